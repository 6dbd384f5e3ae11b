// The round-trip property of a top-level message type: decode, print, re-encode, decode the
// re-encoding and re-encode again. The second encoding must equal the first: the codec's
// departures from X.691 (negative INTEGER octet count, dropped unknown extensions, ...) may
// change a value once, but what it wrote it must read back to the same octets. Values whose
// shape the encoder does not reproduce (see reencoding_shapes.h) are exempt, and a value the
// encoder refuses (the hardened flavour throws a Refusal where the default one aborts, for
// example at a length of 8192 or more) ends the round trip as a failed encoding does.
#ifndef VOIPFILTER_FUZZ_PER_ROUNDTRIP_H
#define VOIPFILTER_FUZZ_PER_ROUNDTRIP_H

#include "asn1/asn_codec.h"
#include "reencoding_shapes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzper {

template <class T> bool Encode(const T& value, ASN1::OctetBuffer& out) {
    ASN1::PEREncoder encoder(out, true);
    try {
        const bool ok = value.accept(encoder);
        encoder.finish();
        return ok;
    } catch (const ASN1::Refusal&) {
        return false;
    }
}

template <class T> bool Decode(const char* data, size_t size, T& value) {
    ASN1::PERDecoder decoder(data, data + size, nullptr, true);
    return value.accept(decoder);
}

template <class T> void RoundTrip(const uint8_t* data, size_t size) {
    T first;
    if (!Decode(reinterpret_cast<const char*>(data), size, first))
        return;
    const bool changes = fuzzshape::ChangesOnReencoding(first);
    const std::string text = first.asValueNotation();
    (void)first.isValid();

    ASN1::OctetBuffer once;
    if (!Encode(first, once))
        return;
    T second;
    // Can fail where the codec departs from X.691 (an OBJECT IDENTIFIER or an unknown extension
    // ending exactly at the end of the input is refused).
    if (!Decode(once.data(), once.size(), second))
        return;
    ASN1::OctetBuffer twice;
    const bool encoded = Encode(second, twice);
    if (!changes && (!encoded || twice != once))
        __builtin_trap();
}

} // namespace fuzzper

#endif
