// Space trimming, for header names and values and for the lines of a session description.
#ifndef VOIPFILTER_TEXT_TRIM_H
#define VOIPFILTER_TEXT_TRIM_H

#include <cstddef>
#include <string>
#include <string_view>

// The text without its leading and trailing spaces (byte 32 only; tabs stay).
std::string_view TrimmedSpaces(const char* text, std::size_t length);

// Removes leading and trailing spaces in place, as TrimmedSpaces.
void TrimSpaces(std::string& text);

#endif
