// Messages larger than the library's own encoder writes. The decoder reads unconstrained lengths
// up to 16383 but the encoder stops at 8192, so a message that carries more in one length is made
// by encoding a smaller one and splicing more of the same contents into it. Used by the hostile
// tests and the scaling benchmark; free of GoogleTest.
#ifndef VOIPFILTER_TESTS_PER_SPLICE_H
#define VOIPFILTER_TESTS_PER_SPLICE_H

#include <algorithm>
#include <cstddef>
#include <vector>

namespace persplice {

using Octets = std::vector<unsigned char>;

// An aligned PER unconstrained length (X.691 10.9.3.6 and 10.9.3.7: below 16384).
inline Octets Length(std::size_t n) {
    if (n < 128)
        return {static_cast<unsigned char>(n)};
    return {static_cast<unsigned char>(0x80 | n >> 8), static_cast<unsigned char>(n & 0xFF)};
}

// The contents of a SEQUENCE OF OCTET STRING (count below 128): the count, then each string with
// its length.
inline Octets SequenceOfOctets(const Octets& element, std::size_t count) {
    Octets contents = {static_cast<unsigned char>(count)};
    const Octets length = Length(element.size());
    for (std::size_t i = 0; i < count; ++i) {
        contents.insert(contents.end(), length.begin(), length.end());
        contents.insert(contents.end(), element.begin(), element.end());
    }
    return contents;
}

// Replaces the length-prefixed contents `from` in an encoding by the length-prefixed `to`; the
// encoding is returned as it was when `from` is not in it.
inline Octets Splice(const Octets& encoding, const Octets& from, const Octets& to) {
    Octets needle = Length(from.size());
    needle.insert(needle.end(), from.begin(), from.end());
    const auto at = std::search(encoding.begin(), encoding.end(), needle.begin(), needle.end());
    if (at == encoding.end())
        return encoding;
    Octets out(encoding.begin(), at);
    const Octets length = Length(to.size());
    out.insert(out.end(), length.begin(), length.end());
    out.insert(out.end(), to.begin(), to.end());
    out.insert(out.end(), at + static_cast<std::ptrdiff_t>(needle.size()), encoding.end());
    return out;
}

} // namespace persplice

#endif
