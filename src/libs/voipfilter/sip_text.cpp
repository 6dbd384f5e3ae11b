#include "sip_text.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ostream>

bool SIPLineParser::GetLine(const char** line, unsigned* lineLength) {
    if (cur_ >= end_)
        return false;
    const char* const first = cur_;
    // The line ends at the nearest LF, CR or NUL. Each is found with memchr (vectorised) from the
    // cursor to the end of the buffer and remembered until the cursor passes it: searching only
    // up to the nearest terminator found so far would scan the rest of the datagram again for
    // every line of a message whose lines all end with a bare CR or a NUL.
    static constexpr char kTerminators[3] = {'\n', '\r', '\0'};
    const char* p = end_;
    for (int i = 0; i < 3; ++i) {
        const char*& next = next_[i];
        if (next == nullptr || next < first) {
            const void* hit =
                std::memchr(first, kTerminators[i], static_cast<std::size_t>(end_ - first));
            next = hit != nullptr ? static_cast<const char*>(hit) : end_;
        }
        if (next < p)
            p = next;
    }
    *line = first;
    *lineLength = static_cast<unsigned>(p - first);
    if (p < end_) {
        // CR LF is one terminator, a lone CR ends the line too. The look-ahead stays inside
        // the buffer: a CR as its very last byte is simply the last terminator.
        if (*p++ == '\r' && p < end_ && *p == '\n')
            ++p;
    }
    cur_ = p; // at end_ for a last line without terminator
    return true;
}

bool SIPLineParser::GetLine(std::string& line) {
    const char* text = nullptr;
    unsigned length = 0;
    if (!GetLine(&text, &length))
        return false;
    line.assign(text, length);
    return true;
}

bool SIPMIMEType::IsField(const SIPMIMEEntry& entry, const std::string& name, char compact) const {
    if (compact != 0 && entry.name.size() == 1 && entry.name[0] == compact)
        return true;
    return entry.name.size() == name.size() && strcasecmp(entry.name.c_str(), name.c_str()) == 0;
}

SIPMIMEType::iterator SIPMIMEType::GetField(const std::string& name, char compact) {
    for (iterator it = begin(); it != end(); ++it)
        if (IsField(*it, name, compact))
            return it;
    return end();
}

SIPMIMEType::const_iterator SIPMIMEType::GetField(const std::string& name, char compact) const {
    for (const_iterator it = begin(); it != end(); ++it)
        if (IsField(*it, name, compact))
            return it;
    return end();
}

void SIPMIMEType::SetField(const std::string& name, char compact, const std::string& value) {
    const iterator it = GetField(name, compact);
    if (it != end()) {
        it->value = value;
        return;
    }
    SIPMIMEEntry& entry = Append();
    if (compact != 0)
        entry.name.assign(1, compact);
    else if (!name.empty())
        entry.name.assign(name, 1, std::string::npos);
    else
        entry.name.clear();
    entry.value = value;
}

void SIPMIMEType::SetField(const std::string& name, char compact, unsigned value) {
    SetField(name, compact, std::to_string(value));
}

SIPMIMEEntry& SIPMIMEType::Append() {
    // Entries beyond used_ keep their string buffers from earlier messages.
    if (used_ == entries_.size())
        entries_.emplace_back();
    return entries_[used_++];
}

namespace {

// Assigns text without its leading and trailing spaces.
void AssignTrimmed(std::string& target, const char* text, std::size_t length) {
    std::size_t first = 0;
    while (first < length && text[first] == ' ')
        ++first;
    while (length > first && text[length - 1] == ' ')
        --length;
    target.assign(text + first, length - first);
}

} // namespace

void SIPMIMEType::Add(const char* name, std::size_t nameLength, const char* value,
                      std::size_t valueLength) {
    SIPMIMEEntry& entry = Append();
    AssignTrimmed(entry.name, name, nameLength);
    AssignTrimmed(entry.value, value, valueLength);
}

std::size_t SIPMIMEType::OutputLength() const {
    std::size_t length = 2; // the empty line
    for (const SIPMIMEEntry& entry : *this)
        length += entry.name.size() + 1 + entry.value.size() + 2;
    return length;
}

void SIPMIMEType::AppendTo(std::string& text) const {
    // No blank after the colon: RFC 3261 section 7.3.1 allows none, and it saves bytes.
    for (const SIPMIMEEntry& entry : *this) {
        text += entry.name;
        text += ':';
        text += entry.value;
        text += "\r\n";
    }
    text += "\r\n";
}

char* SIPMIMEType::WriteTo(char* out) const {
    for (const SIPMIMEEntry& entry : *this) {
        out = std::copy(entry.name.begin(), entry.name.end(), out);
        *out++ = ':';
        out = std::copy(entry.value.begin(), entry.value.end(), out);
        *out++ = '\r';
        *out++ = '\n';
    }
    *out++ = '\r';
    *out++ = '\n';
    return out;
}

std::ostream& operator<<(std::ostream& os, const SIPMIMEType& headers) {
    std::string text;
    text.reserve(headers.OutputLength());
    headers.AppendTo(text);
    return os << text;
}

void TrimSpaces(std::string& text) {
    std::string::size_type first = 0;
    while (first < text.size() && text[first] == ' ')
        ++first;
    std::string::size_type last = text.size();
    while (last > first && text[last - 1] == ' ')
        --last;
    text.erase(last);
    text.erase(0, first);
}

std::string ExtractURL(const std::string& value) {
    const std::string::size_type lt = value.find('<');
    const std::string::size_type gt = value.find('>');
    const std::string::size_type semi = value.find(';');
    if (lt != std::string::npos && gt != std::string::npos) {
        // The cut is the position of the first ';' in the whole value, applied to the inner text
        // as it stands: parameters behind '>' never shorten the URI.
        const std::string inner = value.substr(lt + 1, gt - lt - 1);
        return inner.substr(0, semi);
    }
    return value.substr(0, semi);
}

std::string ExtractTag(const std::string& value) {
    // The last "tag=", found from the back by its '=' (cheaper than a general reverse search).
    for (std::string::size_type eq = value.size(); eq-- > 3;) {
        if (value[eq] == '=' && value.compare(eq - 3, 3, "tag") == 0)
            return value.substr(eq + 1);
    }
    return std::string();
}

std::string ExtractBranch(const std::string& value) {
    const std::string::size_type pos = value.find("branch=");
    if (pos == std::string::npos)
        return std::string();
    return value.substr(pos + 7);
}

int DecimalValue(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}
