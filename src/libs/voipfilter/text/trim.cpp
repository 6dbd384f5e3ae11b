#include "text/trim.h"

std::string_view TrimmedSpaces(const char* text, std::size_t length) {
    std::size_t first = 0;
    while (first < length && text[first] == ' ')
        ++first;
    while (length > first && text[length - 1] == ' ')
        --length;
    return std::string_view(text + first, length - first);
}

void TrimSpaces(std::string& text) {
    const std::string_view kept = TrimmedSpaces(text.data(), text.size());
    const std::size_t first = static_cast<std::size_t>(kept.data() - text.data());
    text.erase(first + kept.size());
    text.erase(0, first);
}
