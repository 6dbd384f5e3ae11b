// Space trimming, for header names and values and for the lines of a session description.
#ifndef VOIPFILTER_TEXT_TRIM_H
#define VOIPFILTER_TEXT_TRIM_H

#include <cstddef>
#include <string>
#include <string_view>

// The text without its leading and trailing spaces (byte 32 only; tabs stay). Inline: every
// header name and value and every SDP line of a message passes through it.
inline std::string_view TrimmedSpaces(const char* text, std::size_t length) {
    std::size_t first = 0;
    while (first < length && text[first] == ' ')
        ++first;
    while (length > first && text[length - 1] == ' ')
        --length;
    return std::string_view(text + first, length - first);
}

// Removes leading and trailing spaces in place, as TrimmedSpaces.
void TrimSpaces(std::string& text);

#endif
