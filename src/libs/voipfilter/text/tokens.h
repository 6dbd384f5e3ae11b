// Tokens of a line: the generic tokeniser over a separator predicate (the address parser, SIP and
// SDP lines), the white-space predicate, and decimal numbers.
#ifndef VOIPFILTER_TEXT_TOKENS_H
#define VOIPFILTER_TEXT_TOKENS_H

#include <string>
#include <string_view>
#include <vector>

// Scans text from index start: skips a run of separators, takes the following run of
// non-separators as one token and appends it, until the end. The vector is not cleared first.
// Returns tokens.size() after the scan.
template <typename IsSeparator>
unsigned Tokenise(std::vector<std::string>& tokens, std::string_view text, unsigned start = 0) {
    IsSeparator isSeparator;
    std::string_view::size_type i = start;
    const std::string_view::size_type n = text.size();
    while (i < n) {
        while (i < n && isSeparator(text[i]))
            ++i;
        if (i == n)
            break;
        const std::string_view::size_type first = i;
        while (i < n && !isSeparator(text[i]))
            ++i;
        tokens.emplace_back(text.data() + first, i - first);
    }
    return static_cast<unsigned>(tokens.size());
}

// Separator predicate for Tokenise: NUL and the white space of the C locale (space, tab, LF, VT,
// FF, CR), independent of the locale the host process runs in.
struct IsWhiteSpace {
    bool operator()(char c) const { return c == ' ' || c == '\0' || (c >= '\t' && c <= '\r'); }
};

// Decimal number in the manner of atoi (leading blanks, optional sign, digits), but with values
// beyond the range of int clamped instead of undefined.
int DecimalValue(const char* text);
inline int DecimalValue(const std::string& text) {
    return DecimalValue(text.c_str());
}

#endif
