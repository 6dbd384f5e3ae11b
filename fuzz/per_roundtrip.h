// The round-trip property of a top-level message type: decode, print, re-encode, decode the
// re-encoding and re-encode again. The second encoding must equal the first: the codec's
// departures from X.691 (negative INTEGER octet count, dropped unknown extensions, ...) may
// change a value once, but what it wrote it must read back to the same octets. Values whose
// shape the encoder does not reproduce (see documented_aborts.h) are exempt.
#ifndef VOIPFILTER_FUZZ_PER_ROUNDTRIP_H
#define VOIPFILTER_FUZZ_PER_ROUNDTRIP_H

#include "asn1/asn_codec.h"
#include "documented_aborts.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzper {

template <class T> bool Encode(const T& value, std::vector<char>& out) {
    ASN1::PEREncoder encoder(out, true);
    return value.accept(encoder);
}

template <class T> bool Decode(const char* data, size_t size, T& value) {
    ASN1::PERDecoder decoder(data, data + size, nullptr, true);
    return value.accept(decoder);
}

template <class T> void RoundTrip(const uint8_t* data, size_t size) {
    if (size > 7000)
        return;
    T first;
    if (!Decode(reinterpret_cast<const char*>(data), size, first))
        return;
    const fuzzscan::Findings scan = fuzzscan::Scan(first, false);
    if (scan.Found())
        return;
    const std::string text = first.asValueNotation();
    (void)first.isValid();

    std::vector<char> once;
    if (!Encode(first, once))
        return;
    T second;
    // Can fail where the codec departs from X.691 (an OBJECT IDENTIFIER or an unknown extension
    // ending exactly at the end of the input is refused).
    if (!Decode(once.data(), once.size(), second))
        return;
    std::vector<char> twice;
    const bool encoded = Encode(second, twice);
    if (!scan.changesOnReencoding && (!encoded || twice != once))
        __builtin_trap();
}

} // namespace fuzzper

#endif
