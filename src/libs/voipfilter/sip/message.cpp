#include "sip/message.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ostream>

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

void SIPMIMEType::Add(const char* name, std::size_t nameLength, const char* value,
                      std::size_t valueLength) {
    SIPMIMEEntry& entry = Append();
    entry.name = TrimmedSpaces(name, nameLength);
    entry.value = TrimmedSpaces(value, valueLength);
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
