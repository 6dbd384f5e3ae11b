// Entry points for decoding and encoding a whole message (aligned PER), from and to a raw buffer
// or an OCTET STRING that carries a nested PDU (tunnelled H.245, fast start elements).
#ifndef VOIPFILTER_ASN1_ASN_CODEC_H
#define VOIPFILTER_ASN1_ASN_CODEC_H

#include "asn1/PERDecoder.h"
#include "asn1/PEREncoder.h"
#include "asn1/asn1.h"

#include <cstring>
#include <vector>

namespace ASN1 {

// @return 1 decoded, -1 null data, -2 decode failure (value then holds a partial tree).
template <class T> int ASNDecode(const unsigned char* data, unsigned length, T& value) {
    if (data == nullptr)
        return -1;
    const char* begin = reinterpret_cast<const char*>(data);
    PERDecoder decoder(begin, begin + length, nullptr, true);
    return value.accept(decoder) ? 1 : -2;
}

// As ASNDecode, noting where the value's fixed-width leaves lie in the data; canonical says
// whether the data is the decoded value's own encoding (see PERDecoder::endsCanonically).
template <class T>
int ASNDecode(const unsigned char* data, unsigned length, T& value, LeafPositions& positions,
              bool& canonical) {
    canonical = false;
    positions.clear();
    if (data == nullptr)
        return -1;
    const char* begin = reinterpret_cast<const char*>(data);
    PERDecoder decoder(begin, begin + length, nullptr, true);
    decoder.noteLeaves(&positions);
    if (!value.accept(decoder))
        return -2;
    canonical = decoder.endsCanonically();
    return 1;
}

template <class T>
int ASNDecode(const OCTET_STRING& octets, T& value, LeafPositions& positions, bool& canonical) {
    return ASNDecode(reinterpret_cast<const unsigned char*>(octets.data()),
                     static_cast<unsigned>(octets.size()), value, positions, canonical);
}

// A rewrite in place (see LeafPositions) stands for an encoding of value. Builds configured with
// VOIPFILTER_VERIFY_IN_PLACE (the sanitizer test build and the fuzz targets) encode value as well
// and stop at the first difference; other builds take the rewrite on trust.
template <class T>
void VerifyRewrittenInPlace([[maybe_unused]] const T& value, [[maybe_unused]] const void* octets,
                            [[maybe_unused]] std::size_t size) {
#ifdef VOIPFILTER_VERIFY_IN_PLACE
    OctetBuffer encoded;
    PEREncoder encoder(encoded, true);
    value.accept(encoder);
    encoder.finish();
    const bool sameAsEncoding =
        encoded.size() == size && std::memcmp(encoded.data(), octets, size) == 0;
    ASN1_ASSERT(sameAsEncoding);
#endif
}

// @return 1 encoded (*size set to the length), -1 null argument or a buffer shorter than the
// encoding (buffer and *size untouched). A value that fails half-way is still copied out as far
// as it was written (the hardened flavour refuses it instead: encodingIncomplete).
template <class T> int ASNEncode(T& value, unsigned char* buffer, unsigned* size) {
    if (buffer == nullptr || size == nullptr)
        return -1;
    OctetBuffer octets;
    PEREncoder encoder(octets, true);
    const bool complete = value.accept(encoder);
    encoder.finish();
    if (!complete)
        encodingIncomplete();
    if (octets.size() > *size)
        return -1;
    *size = static_cast<unsigned>(octets.size());
    if (!octets.empty())
        std::memcpy(buffer, octets.data(), octets.size());
    return 1;
}

// As the raw form over the octets (so an empty string, having no data, gives -1).
template <class T> int ASNDecode(const OCTET_STRING& octets, T& value) {
    return ASNDecode(reinterpret_cast<const unsigned char*>(octets.data()),
                     static_cast<unsigned>(octets.size()), value);
}

// Replaces the octets by the encoding of value, complete or not (as the raw form). @return 1.
// The octets keep their own block when the encoding fits in it (a rewritten address seldom
// changes the length), so that they hold no more than they did.
template <class T> int ASNEncode(T& value, OCTET_STRING& octets) {
    OctetBuffer encoded;
    PEREncoder encoder(encoded, true);
    const bool complete = value.accept(encoder);
    encoder.finish();
    if (!complete)
        encodingIncomplete();
    octets.assign(encoded.begin(), encoded.end());
    return 1;
}

} // namespace ASN1

#endif
