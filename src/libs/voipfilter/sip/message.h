// A SIP message's header block (RFC 3261 section 7): the header list with look-up by full or
// compact name, and the small extractors the translator needs (URI, tag= and branch= values).
#ifndef VOIPFILTER_SIP_MESSAGE_H
#define VOIPFILTER_SIP_MESSAGE_H

#include "text/line_reader.h"
#include "text/tokens.h"
#include "text/trim.h"

#include <voipfilter/voipfilter.h>

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

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

// The URI of a From/To/Contact/Via value: the text inside the first <...> when there is one, cut
// at the position of the first ';' of the whole value; otherwise the value cut at its first ';'.
std::string ExtractURL(const std::string& value);

// Everything after the last "tag=" (parameters behind the tag included), or "".
std::string ExtractTag(const std::string& value);

// Everything after the first "branch=", or "".
std::string ExtractBranch(const std::string& value);

#endif
