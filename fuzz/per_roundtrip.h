// The round-trip property of a top-level message type: decode, print, re-encode, decode the
// re-encoding and re-encode again. The second encoding must equal the first: the codec's
// departures from X.691 (negative INTEGER octet count, dropped unknown extensions, ...) may
// change a value once, but what it wrote it must read back to the same octets. Values whose
// shape the encoder does not reproduce (see reencoding_shapes.h) are exempt, and a value the
// encoder refuses (the hardened flavour throws a Refusal where the default one aborts, for
// example at a length of 8192 or more) ends the round trip as a failed encoding does.
// A decode that ends canonically vouches that the first encoding is the input itself, which is
// what lets the translators overwrite fields in place instead of encoding again: so each leaf
// whose position the decoder noted is then changed to another value of the same width and
// written over the input, and the result must be what encoding the changed value gives.
#ifndef VOIPFILTER_FUZZ_PER_ROUNDTRIP_H
#define VOIPFILTER_FUZZ_PER_ROUNDTRIP_H

#include "asn1/asn_codec.h"
#include "reencoding_shapes.h"

#include <algorithm>
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

template <class T>
bool Decode(const char* data, size_t size, T& value, bool* canonical = nullptr,
            ASN1::LeafPositions* positions = nullptr) {
    ASN1::PERDecoder decoder(data, data + size, nullptr, true);
    decoder.noteLeaves(positions);
    const bool ok = value.accept(decoder);
    if (canonical != nullptr)
        *canonical = ok && decoder.endsCanonically();
    return ok;
}

// Changes every noted leaf of value (decoded canonically from input) and writes it over a copy of
// the input; that copy must be value's encoding.
template <class T>
void CheckOverwrites(T& value, const ASN1::LeafPositions& positions,
                     const ASN1::OctetBuffer& encoding) {
    ASN1::OctetBuffer patched = encoding;
    for (const ASN1::LeafPositions::Entry& entry : positions) {
        ASN1::AbstractData* leaf = const_cast<ASN1::AbstractData*>(entry.leaf);
        bool written;
        if (auto* octets = dynamic_cast<ASN1::OCTET_STRING*>(leaf)) {
            for (char& c : *octets)
                c = static_cast<char>(~c);
            written = ASN1::OverwriteLeaf(positions, *octets, patched.data());
        } else if (auto* number = dynamic_cast<ASN1::INTEGER*>(leaf)) {
            const int lower = number->getLowerLimit();
            const int upper = static_cast<int>(number->getUpperLimit());
            *number = number->getValue() == lower ? upper : lower;
            written = ASN1::OverwriteLeaf(positions, *number, patched.data());
        } else {
            __builtin_trap(); // only strings and numbers are noted
        }
        if (!written)
            return; // a negative number in an extendable root: the encoder marks it extended
    }
    ASN1::OctetBuffer all = encoding;
    if (positions.complete() && (!ASN1::OverwriteLeaves(positions, all.data()) || all != patched))
        __builtin_trap();
    ASN1::OctetBuffer reencoded;
    if (!Encode(value, reencoded) || reencoded != patched)
        __builtin_trap();
}

template <class T> void RoundTrip(const uint8_t* data, size_t size) {
    T first;
    bool canonical = false;
    if (!Decode(reinterpret_cast<const char*>(data), size, first, &canonical))
        return;
    const bool changes = fuzzshape::ChangesOnReencoding(first);
    if (canonical) {
        T changed;
        ASN1::LeafPositions positions;
        Decode(reinterpret_cast<const char*>(data), size, changed, nullptr, &positions);
        CheckOverwrites(changed, positions, ASN1::OctetBuffer(data, data + size));
    }
    const std::string text = first.asValueNotation();
    (void)first.isValid();

    ASN1::OctetBuffer once;
    const bool encodedOnce = Encode(first, once);
    if (canonical && (!encodedOnce || once.size() != size ||
                      !std::equal(once.begin(), once.end(), reinterpret_cast<const char*>(data))))
        __builtin_trap();
    if (!encodedOnce)
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
