#include "sip_summary.h"

#include <cctype>
#include <cstring>

namespace proxy {

namespace {

std::string upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

bool sameName(const char* name, size_t length, const char* expected) {
    return std::strlen(expected) == length && strncasecmp(name, expected, length) == 0;
}

std::string trimmed(const char* begin, const char* end) {
    while (begin < end && (*begin == ' ' || *begin == '\t')) {
        ++begin;
    }
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t' || end[-1] == '\r')) {
        --end;
    }
    return std::string(begin, end);
}

// The first whitespace-separated word of [begin, end) and where the rest starts.
std::string word(const char*& begin, const char* end) {
    while (begin < end && (*begin == ' ' || *begin == '\t')) {
        ++begin;
    }
    const char* start = begin;
    while (begin < end && *begin != ' ' && *begin != '\t' && *begin != '\r') {
        ++begin;
    }
    return std::string(start, begin);
}

} // namespace

SipSummary summarizeSip(const char* data, size_t length) {
    SipSummary summary;
    const char* end = data + length;
    const char* line = data;
    bool first = true;
    std::string cseqMethod;
    while (line < end) {
        const char* eol = static_cast<const char*>(std::memchr(line, '\n', end - line));
        const char* lineEnd = eol != nullptr ? eol : end;
        const char* contentEnd = lineEnd > line && lineEnd[-1] == '\r' ? lineEnd - 1 : lineEnd;
        if (contentEnd == line) {
            break; // the empty line before the body
        }
        if (first) {
            const char* cursor = line;
            std::string token = word(cursor, contentEnd);
            if (token == "SIP/2.0") {
                summary.response = true;
                std::string code = word(cursor, contentEnd);
                summary.status =
                    code.size() == 3 && std::isdigit(static_cast<unsigned char>(code[0]))
                        ? std::atoi(code.c_str())
                        : 0;
                if (summary.status < 100) {
                    return summary;
                }
            } else {
                if (token.empty()) {
                    return summary;
                }
                summary.method = upper(token);
            }
            first = false;
        } else {
            const char* colon = static_cast<const char*>(std::memchr(line, ':', contentEnd - line));
            if (colon != nullptr) {
                const char* nameEnd = colon;
                while (nameEnd > line && (nameEnd[-1] == ' ' || nameEnd[-1] == '\t')) {
                    --nameEnd;
                }
                size_t nameLength = static_cast<size_t>(nameEnd - line);
                if (sameName(line, nameLength, "Call-ID") || sameName(line, nameLength, "i")) {
                    summary.callId = trimmed(colon + 1, contentEnd);
                } else if (sameName(line, nameLength, "CSeq")) {
                    const char* cursor = colon + 1;
                    word(cursor, contentEnd);
                    cseqMethod = upper(word(cursor, contentEnd));
                }
            }
        }
        line = lineEnd + 1;
    }
    if (summary.response) {
        summary.method = cseqMethod;
    }
    summary.valid = !first && !summary.callId.empty();
    return summary;
}

std::string dialogEndMessage(const std::string& callId) {
    return "SIP/2.0 200 OK\r\n"
           "Via: SIP/2.0/UDP 127.0.0.1;branch=z9hG4bKvoipfilterproxyend\r\n"
           "From: <sip:proxy@127.0.0.1>;tag=end\r\n"
           "To: <sip:proxy@127.0.0.1>;tag=end\r\n"
           "Call-ID: " +
           callId +
           "\r\n"
           "CSeq: 1 BYE\r\n"
           "Content-Length: 0\r\n"
           "\r\n";
}

} // namespace proxy
