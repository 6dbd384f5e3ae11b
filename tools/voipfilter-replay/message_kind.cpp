#include "message_kind.h"

#include <cctype>
#include <cstring>
#include <vector>

namespace replay {

namespace {

std::string firstLine(const uint8_t* data, size_t length) {
    size_t end = 0;
    while (end < length && data[end] != '\r' && data[end] != '\n') {
        ++end;
    }
    return std::string(reinterpret_cast<const char*>(data), end);
}

bool equalsIgnoringCase(const std::string& a, const char* b) {
    size_t n = std::strlen(b);
    if (a.size() != n) {
        return false;
    }
    for (size_t i = 0; i < n; ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

std::string trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) {
        return "";
    }
    size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

std::string word(const std::string& text, size_t index) {
    size_t at = 0;
    for (size_t i = 0;; ++i) {
        at = text.find_first_not_of(' ', at);
        if (at == std::string::npos) {
            return "";
        }
        size_t end = text.find(' ', at);
        if (i == index) {
            return text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        }
        if (end == std::string::npos) {
            return "";
        }
        at = end;
    }
}

} // namespace

bool looksLikeSip(const uint8_t* data, size_t length) {
    std::string line = firstLine(data, length);
    const std::string version = "SIP/2.0";
    if (line.compare(0, version.size() + 1, version + " ") == 0) {
        return true;
    }
    return line.size() > version.size() + 1 &&
           line.compare(line.size() - version.size() - 1, version.size() + 1, " " + version) == 0;
}

std::string sipKind(const uint8_t* data, size_t length) {
    std::string line = firstLine(data, length);
    if (line.compare(0, 8, "SIP/2.0 ") == 0) {
        std::string kind = "SIP " + word(line, 1);
        std::string method = word(sipHeader(data, length, "CSeq", nullptr), 1);
        if (!method.empty()) {
            kind += " (" + method + ")";
        }
        return kind;
    }
    return "SIP " + word(line, 0);
}

std::string sipHeader(const uint8_t* data, size_t length, const char* name, const char* compact) {
    const char* text = reinterpret_cast<const char*>(data);
    size_t at = 0;
    bool first = true;
    while (at < length) {
        size_t end = at;
        while (end < length && text[end] != '\n') {
            ++end;
        }
        std::string line(text + at, end - at);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() && !first) {
            break; // end of the header block
        }
        size_t colon = line.find(':');
        if (!first && colon != std::string::npos) {
            std::string header = trim(line.substr(0, colon));
            if (equalsIgnoringCase(header, name) ||
                (compact != nullptr && equalsIgnoringCase(header, compact))) {
                return trim(line.substr(colon + 1));
            }
        }
        first = false;
        at = end + 1;
    }
    return "";
}

bool looksLikeQ931Tpkt(const uint8_t* data, size_t length) {
    return length >= 5 && data[0] == 3 && data[1] == 0 && data[4] == 8;
}

std::string q931MessageName(const uint8_t* q931, size_t length) {
    if (length < 2) {
        return "Q.931 (short)";
    }
    size_t typeAt = 2 + (q931[1] & 0x0Fu);
    if (typeAt >= length) {
        return "Q.931 (short)";
    }
    switch (q931[typeAt]) {
    case 0x01:
        return "ALERTING";
    case 0x02:
        return "CALL PROCEEDING";
    case 0x03:
        return "PROGRESS";
    case 0x05:
        return "SETUP";
    case 0x07:
        return "CONNECT";
    case 0x0D:
        return "SETUP ACKNOWLEDGE";
    case 0x5A:
        return "RELEASE COMPLETE";
    case 0x62:
        return "FACILITY";
    case 0x6E:
        return "NOTIFY";
    case 0x75:
        return "STATUS INQUIRY";
    case 0x7B:
        return "INFORMATION";
    case 0x7D:
        return "STATUS";
    default: {
        char buffer[24];
        std::snprintf(buffer, sizeof buffer, "Q.931 type 0x%02x", q931[typeAt]);
        return buffer;
    }
    }
}

std::string h225BodyName(int tag) {
    static const char* const names[] = {
        "SETUP",    "CALL PROCEEDING", "CONNECT", "ALERTING", "INFORMATION",    "RELEASE COMPLETE",
        "FACILITY", "PROGRESS",        "EMPTY",   "STATUS",   "STATUS INQUIRY", "SETUP ACKNOWLEDGE",
        "NOTIFY"};
    if (tag < 0 || tag >= static_cast<int>(sizeof names / sizeof names[0])) {
        return "";
    }
    return names[tag];
}

namespace {

// Reads count bits starting at bit position *at (most significant bit of byte 0 first).
bool readBits(const uint8_t* data, size_t length, size_t* at, unsigned count, unsigned* value) {
    *value = 0;
    for (unsigned i = 0; i < count; ++i, ++*at) {
        if (*at / 8 >= length) {
            return false;
        }
        *value = (*value << 1) | ((data[*at / 8] >> (7 - *at % 8)) & 1u);
    }
    return true;
}

// An extensible CHOICE's root alternative index: an extension bit, then the index in the fewest
// bits that hold the root range (X.691 22.6, 22.7). Empty when extended or cut short.
bool choiceIndex(const uint8_t* data, size_t length, size_t* at, unsigned bits, unsigned* index) {
    unsigned extended = 0;
    return readBits(data, length, at, 1, &extended) && extended == 0 &&
           readBits(data, length, at, bits, index);
}

std::string pick(const std::vector<const char*>& names, unsigned index, const char* fallback) {
    return index < names.size() ? names[index] : fallback;
}

} // namespace

std::string h245MessageName(const uint8_t* per, size_t length) {
    static const std::vector<const char*> requests = {
        "nonStandard",           "MSD", "TCS", "OLC",         "CLC",
        "RequestChannelClose",   "MES", "RME", "RequestMode", "RoundTripDelayRequest",
        "MaintenanceLoopRequest"};
    static const std::vector<const char*> responses = {"nonStandard",
                                                       "MSDAck",
                                                       "MSDReject",
                                                       "TCSAck",
                                                       "TCSReject",
                                                       "OLCAck",
                                                       "OLCReject",
                                                       "CLCAck",
                                                       "RequestChannelCloseAck",
                                                       "RequestChannelCloseReject",
                                                       "MESAck",
                                                       "MESReject",
                                                       "RMEAck",
                                                       "RMEReject",
                                                       "RequestModeAck",
                                                       "RequestModeReject",
                                                       "RoundTripDelayResponse",
                                                       "MaintenanceLoopAck",
                                                       "MaintenanceLoopReject"};
    size_t at = 0;
    unsigned top = 0;
    unsigned inner = 0;
    if (!choiceIndex(per, length, &at, 2, &top)) {
        return "H.245 (unknown)";
    }
    switch (top) {
    case 0:
        return "H.245 " + (choiceIndex(per, length, &at, 4, &inner)
                               ? pick(requests, inner, "request")
                               : std::string("request"));
    case 1:
        return "H.245 " + (choiceIndex(per, length, &at, 5, &inner)
                               ? pick(responses, inner, "response")
                               : std::string("response"));
    case 2:
        return "H.245 command";
    default:
        return "H.245 indication";
    }
}

std::string rasMessageName(const uint8_t* per, size_t length) {
    static const std::vector<const char*> names = {"GRQ",
                                                   "GCF",
                                                   "GRJ",
                                                   "RRQ",
                                                   "RCF",
                                                   "RRJ",
                                                   "URQ",
                                                   "UCF",
                                                   "URJ",
                                                   "ARQ",
                                                   "ACF",
                                                   "ARJ",
                                                   "BRQ",
                                                   "BCF",
                                                   "BRJ",
                                                   "DRQ",
                                                   "DCF",
                                                   "DRJ",
                                                   "LRQ",
                                                   "LCF",
                                                   "LRJ",
                                                   "IRQ",
                                                   "IRR",
                                                   "nonStandardMessage",
                                                   "unknownMessageResponse"};
    size_t at = 0;
    unsigned index = 0;
    if (!choiceIndex(per, length, &at, 5, &index)) {
        return "RAS (extension)";
    }
    return "RAS " + pick(names, index, "(unknown)");
}

} // namespace replay
