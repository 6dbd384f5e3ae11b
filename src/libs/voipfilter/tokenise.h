// Generic tokeniser over a separator predicate, shared by the address parser and the SIP text code.
#ifndef VOIPFILTER_TOKENISE_H
#define VOIPFILTER_TOKENISE_H

#include <string>
#include <vector>

// Scans text from index start: skips a run of separators, takes the following run of
// non-separators as one token and appends it, until the end. The vector is not cleared first.
// Returns tokens.size() after the scan.
template <typename IsSeparator>
unsigned Tokenise(std::vector<std::string>& tokens, const std::string& text, unsigned start = 0) {
    IsSeparator isSeparator;
    std::string::size_type i = start;
    const std::string::size_type n = text.size();
    while (i < n) {
        while (i < n && isSeparator(text[i]))
            ++i;
        if (i == n)
            break;
        const std::string::size_type first = i;
        while (i < n && !isSeparator(text[i]))
            ++i;
        tokens.emplace_back(text, first, i - first);
    }
    return static_cast<unsigned>(tokens.size());
}

#endif
