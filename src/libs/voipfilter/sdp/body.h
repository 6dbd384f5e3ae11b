// An SDP body (RFC 4566) as the rewriting sees it: its lines, the text that replaces it, and the
// working storage that one translator lends to every dialog in turn.
#ifndef VOIPFILTER_SDP_BODY_H
#define VOIPFILTER_SDP_BODY_H

#include <voipfilter/voipfilter.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Lines of an SDP body. Kept by the translator and lent to the dialog being translated, so that
// the strings' buffers serve message after message instead of being allocated for each dialog.
class SdpLines {
public:
    void clear() { used_ = 0; }
    void emplace_back(const char* text, std::size_t length) {
        if (used_ == lines_.size())
            lines_.emplace_back();
        lines_[used_++].assign(text, length);
    }
    std::size_t size() const { return used_; }
    bool empty() const { return used_ == 0; }
    const std::string& operator[](std::size_t i) const { return lines_[i]; }

private:
    std::vector<std::string> lines_;
    std::size_t used_ = 0;
};

// The rewritten SDP body of the message being translated. size() counts every byte appended,
// but the text keeps no more than the limit: a longer body can never reach the output buffer, and
// the session's connection line, copied under each of many disabled media lines, would otherwise
// grow the text with the square of the body's size.
class SdpBodyText {
public:
    // No more than limit bytes are kept from the next clear() on.
    void SetLimit(std::size_t limit) { limit_ = limit; }
    void clear() {
        text_.clear();
        size_ = 0;
    }
    void Append(const char* text, std::size_t length) {
        size_ += length; // cannot wrap: the bytes copied are bounded by the body's size squared
        if (text_.size() < limit_)
            text_.append(text, std::min(length, limit_ - text_.size()));
    }
    SdpBodyText& operator+=(const std::string& text) {
        Append(text.data(), text.size());
        return *this;
    }
    SdpBodyText& operator+=(const char* text) {
        Append(text, std::char_traits<char>::length(text));
        return *this;
    }
    SdpBodyText& operator+=(char c) {
        Append(&c, 1);
        return *this;
    }
    // Bytes appended since clear().
    uint64_t size() const { return size_; }
    // The body as far as it was kept: all of it while size() is within the limit.
    const std::string& text() const { return text_; }

private:
    std::string text_;
    uint64_t size_ = 0;
    std::size_t limit_ = std::string::npos;
};

// The payload types the host allowed, per media port, for the body being translated. Entries stay
// from one body to the next so that their lists keep their storage; an entry belongs to the
// current body only when it was added since Clear(). What stays is bounded: the table starts
// afresh once it holds more ports than an ordinary body names, and a list grown long by a large
// body gives its storage back when it is used again.
class PayloadTable {
public:
    void Clear() {
        if (entries_.size() > kKeptPorts)
            entries_.clear();
        ++generation_;
    }
    std::vector<uint32_t>* Find(uint32_t port) {
        const auto entry = entries_.find(port);
        return entry != entries_.end() && entry->second.generation == generation_
                   ? &entry->second.types
                   : nullptr;
    }
    // An empty list for a port that Find() does not know.
    std::vector<uint32_t>& Add(uint32_t port) {
        Entry& entry = entries_[port];
        entry.generation = generation_;
        if (entry.types.capacity() > kKeptTypes)
            std::vector<uint32_t>().swap(entry.types);
        entry.types.clear();
        return entry.types;
    }
    template <class Function> void ForEach(Function function) {
        for (auto& entry : entries_)
            if (entry.second.generation == generation_)
                function(entry.second.types);
    }

private:
    static constexpr std::size_t kKeptPorts = 16;
    static constexpr std::size_t kKeptTypes = 64;
    struct Entry {
        uint64_t generation = 0;
        std::vector<uint32_t> types;
    };
    std::map<uint32_t, Entry> entries_;
    uint64_t generation_ = 1;
};

// Working storage of the body being translated. A dialog uses it only while one of its messages
// is translated, so a single set serves every dialog, and the buffers serve message after
// message.
struct SdpScratch {
    SdpLines lines;
    // The session-level c= line of the body.
    std::string sessionConnectionLine;
    SdpBodyText body;
    // The payload types the host allowed, per media port.
    PayloadTable rtpMap;
    std::vector<std::string> tokens;
    // The connection line parsed last in this traversal, with its result: every media line of a
    // body may name the session's one.
    const std::string* parsedConnectionLine = nullptr;
    bool parsedConnectionOk = false;
    sockaddr_type parsedConnection{};
};

// Reads "c=IN IP4 a.b.c.d" into address; false for any other network or address type.
bool ParseConnectionLine(sockaddr_type& address, const std::string& cLine);

#endif
