// Text toolkit for SIP messages (RFC 3261 section 7): a line splitter over one datagram, the header
// list of a message with look-up by full or compact name, and the small extractors the translator
// needs (URI, tag= and branch= values, whitespace tokens, space trimming).
#ifndef VOIPFILTER_SIP_TEXT_H
#define VOIPFILTER_SIP_TEXT_H

#include "tokenise.h"

#include <voipfilter/voipfilter.h>

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

// A cursor over a byte buffer that it does not own. After the header block has been read the
// cursor stands on the first byte of the message body.
class SIPLineParser {
public:
    SIPLineParser() = default;

    void Start(const char* data, unsigned length) {
        cur_ = data;
        length_ = length;
        end_ = data + length;
        for (const char*& next : next_)
            next = nullptr;
    }

    // Returns the next line without its terminator. LF, CR, CR LF and NUL each end a line; a last
    // line without terminator is returned as it is. False once the buffer is used up.
    bool GetLine(const char** line, unsigned* lineLength);
    bool GetLine(std::string& line);

    const char* Position() const { return cur_; }
    // Bytes not yet consumed.
    unsigned Remaining() const { return static_cast<unsigned>(end_ - cur_); }
    unsigned Length() const { return length_; }

private:
    const char* cur_ = nullptr;
    const char* end_ = nullptr;
    unsigned length_ = 0;
    // For LF, CR and NUL: where the next one stands (end_ when there is none), as found by the
    // last search for it, or null before the first. A search is repeated only once the cursor
    // has passed what it found, so every byte is searched at most once for each terminator
    // however the lines end.
    const char* next_[3] = {nullptr, nullptr, nullptr};
};

// One header line: the name as it stood before the first colon and the value after it, both
// trimmed of spaces.
struct SIPMIMEEntry {
    SIPMIMEEntry() = default;
    SIPMIMEEntry(std::string n, std::string v) : name(std::move(n)), value(std::move(v)) {}

    std::string name;
    std::string value;
};

// The header block of one message, in received order. Repeated headers stay separate entries;
// nothing is merged, split at commas or reordered. (Declared as a struct because C hosts see it
// through an opaque `struct SIPMIMEType` pointer.)
struct SIPMIMEType {
public:
    using iterator = std::vector<SIPMIMEEntry>::iterator;
    using const_iterator = std::vector<SIPMIMEEntry>::const_iterator;

    // True when the entry's name equals name ignoring ASCII case, or, when compact is not zero,
    // when the name is exactly that one letter (RFC 3261 section 7.3.3 compact form; the letter is
    // compared case-sensitively).
    bool IsField(const SIPMIMEEntry& entry, const std::string& name, char compact) const;

    // The first entry that IsField accepts, or end().
    iterator GetField(const std::string& name, char compact);
    const_iterator GetField(const std::string& name, char compact) const;

    // Replaces the value of the first matching entry, keeping its name as received. A missing
    // header is appended under its compact letter, or, without one, under name.substr(1): callers
    // that may add a header must pass a compact letter.
    void SetField(const std::string& name, char compact, const std::string& value);
    void SetField(const std::string& name, char compact, unsigned value);

    // Appends an entry with name and value trimmed of spaces.
    void Add(const char* name, std::size_t nameLength, const char* value, std::size_t valueLength);
    void Clear() { used_ = 0; }

    iterator begin() { return entries_.begin(); }
    iterator end() { return entries_.begin() + static_cast<std::ptrdiff_t>(used_); }
    const_iterator begin() const { return entries_.begin(); }
    const_iterator end() const { return entries_.begin() + static_cast<std::ptrdiff_t>(used_); }
    std::size_t size() const { return used_; }

    // Appends "name:value\r\n" for every entry and the empty line that ends the block.
    void AppendTo(std::string& text) const;
    // Writes the same OutputLength() bytes at out; returns the end of what was written.
    char* WriteTo(char* out) const;
    // Bytes that AppendTo writes.
    std::size_t OutputLength() const;

private:
    SIPMIMEEntry& Append();

    // The list is entries_[0, used_). A translator reuses one list for every datagram, so the
    // entries past used_ are kept with their buffers instead of being freed and allocated again.
    std::vector<SIPMIMEEntry> entries_;
    std::size_t used_ = 0;
};

std::ostream& operator<<(std::ostream& os, const SIPMIMEType& headers);

// Removes leading and trailing spaces (byte 32 only; tabs stay).
void TrimSpaces(std::string& text);

// The URI of a From/To/Contact/Via value: the text inside the first <...> when there is one, cut
// at the position of the first ';' of the whole value; otherwise the value cut at its first ';'.
std::string ExtractURL(const std::string& value);

// Everything after the last "tag=" (parameters behind the tag included), or "".
std::string ExtractTag(const std::string& value);

// Everything after the first "branch=", or "".
std::string ExtractBranch(const std::string& value);

// Separator predicate for Tokenise: NUL and the white space of the C locale (space, tab, LF, VT,
// FF, CR), independent of the locale the host process runs in.
struct IsWhiteSpace {
    bool operator()(char c) const { return c == ' ' || c == '\0' || (c >= '\t' && c <= '\r'); }
};

// Decimal number in the manner of atoi (leading blanks, optional sign, digits), but with values
// beyond the range of int clamped instead of undefined.
int DecimalValue(const char* text);
inline int DecimalValue(const std::string& text) {
    return DecimalValue(text.c_str());
}

#endif
