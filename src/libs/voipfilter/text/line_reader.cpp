#include "text/line_reader.h"

#include <cstring>

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
