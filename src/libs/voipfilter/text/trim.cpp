#include "text/trim.h"

void TrimSpaces(std::string& text) {
    const std::string_view kept = TrimmedSpaces(text.data(), text.size());
    const std::size_t first = static_cast<std::size_t>(kept.data() - text.data());
    text.erase(first + kept.size());
    text.erase(0, first);
}
