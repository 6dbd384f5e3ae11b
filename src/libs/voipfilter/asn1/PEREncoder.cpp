// Aligned (and unaligned) PER encoding, X.691, mirroring PERDecoder and each of its departures.
#include "asn1/PEREncoder.h"

#include <cstring>
#include <string>

namespace ASN1 {

namespace {
constexpr unsigned kUnconstrained = 0x7FFFFFFF;
} // namespace

PEREncoder::PEREncoder(OctetBuffer& output, bool aligned)
    : outputBuffer(output), pending(0), pendingBits(0), alignedFlag(aligned), depth(0) {
    outputBuffer.clear();
    outputBuffer.resize(detail::kPoolLargestBlock);
    cursor = outputBuffer.data();
    limit = cursor + outputBuffer.size();
}

[[gnu::cold]] void PEREncoder::grow(std::size_t count) {
    const std::size_t used = written();
    const std::size_t doubled = outputBuffer.size() * 2;
    outputBuffer.resize(doubled > used + count ? doubled : used + count);
    cursor = outputBuffer.data() + used;
    limit = outputBuffer.data() + outputBuffer.size();
}

void PEREncoder::finish() {
    byteAlign();
    outputBuffer.resize(written());
    cursor = limit = outputBuffer.data() + outputBuffer.size();
}

void PEREncoder::byteAlign() {
    if (pendingBits == 0)
        return;
    reserveOctets(1);
    *cursor++ = static_cast<char>(pending << (8 - pendingBits));
    pendingBits = 0;
}

// The unfinished octet's bits and the new ones are joined in one 32-bit word: one word holds the
// at most 7 waiting bits and 25 new ones. When that completes an octet, the joined bits are moved
// to the top of the word and all four of its octets stored, most significant first, at the
// cursor; the cursor then passes the whole ones only, and the rest are written over later.
[[gnu::always_inline]] inline void PEREncoder::putBits(std::uint32_t value, unsigned nBits) {
    const unsigned total = pendingBits + nBits;
    const std::uint32_t word = (pending << nBits) | value;
    pending = word;
    if (total < 8) {
        pendingBits = total;
        return;
    }
    reserveOctets(4);
    char* const out = cursor;
    const std::uint32_t top = word << (32 - total);
    out[0] = static_cast<char>(top >> 24);
    out[1] = static_cast<char>((top >> 16) & 0xFF);
    out[2] = static_cast<char>((top >> 8) & 0xFF);
    out[3] = static_cast<char>(top & 0xFF);
    cursor = out + total / 8;
    pendingBits = total % 8;
}

void PEREncoder::encodeSingleBit(bool bit) {
    putBits(bit ? 1 : 0, 1);
}

void PEREncoder::encodeMultiBit(unsigned value, unsigned nBits) {
    if (nBits == 0)
        return;
    if (nBits < 32)
        value &= (1u << nBits) - 1;
    if (nBits > 25) { // the wider numbers go in two parts
        putBits(value >> 16, nBits - 16);
        value &= 0xFFFF;
        nBits = 16;
    }
    putBits(value, nBits);
}

void PEREncoder::encodeByte(unsigned value) {
    byteAlign();
    reserveOctets(1);
    *cursor++ = static_cast<char>(value);
}

void PEREncoder::encodeBlock(const char* data, unsigned count) {
    if (count == 0)
        return;
    byteAlign();
    reserveOctets(count);
    std::memcpy(cursor, data, count);
    cursor += count;
}

void PEREncoder::encodeBitMap(const char* bits, unsigned nBits) {
    unsigned index = 0;
    for (; nBits >= 8; nBits -= 8)
        putBits(static_cast<unsigned char>(bits[index++]), 8);
    if (nBits > 0)
        putBits(static_cast<unsigned>(static_cast<unsigned char>(bits[index]) >> (8 - nBits)),
                nBits);
}

// X.691 10.6: normally small non-negative whole number.
void PEREncoder::encodeSmallUnsigned(unsigned value) {
    if (value <= 63) {
        putBits(value, 7); // a 0 bit, then six bits
        return;
    }
    encodeSingleBit(true);
    const unsigned octets = value < 256 ? 1 : value < 65536 ? 2 : value <= 0xFFFFFF ? 3 : 4;
    encodeLength(octets, 0, kUnconstrained);
    byteAlign();
    encodeMultiBit(value, octets * 8);
}

// X.691 10.9: length determinant.
bool PEREncoder::encodeLength(unsigned length, unsigned lower, unsigned upper) {
    if (length < lower || length > upper)
        return false;
    if (upper != kUnconstrained && !alignedFlag) {
        ASN1_ASSERT(upper - lower < 0x10000);
        encodeMultiBit(length - lower, CountBits(upper - lower + 1));
        return true;
    }
    if (upper < 0x10000)
        return encodeUnsigned(length, lower, upper);
    byteAlign();
    if (length < 128) { // X.691 10.9.3.6
        putBits(length, 8);
        return true;
    }
    encodeSingleBit(true);
    const unsigned len = length;
    if (len >= 8192) {
        // Deliberately not X.691 10.9.3.7/10.9.3.8: a length of 8192 or more cannot be written
        // (half of what the decoder accepts) and aborts.
        encodeSingleBit(true);
        ASN1_ASSERT(len < 0x2000);
    }
    putBits(len, 15); // X.691 10.9.3.7: 10 followed by the 14-bit length
    return true;
}

// X.691 10.5: constrained whole number.
bool PEREncoder::encodeUnsigned(unsigned value, unsigned lower, unsigned upper) {
    if (value < lower || value > upper)
        return false;
    if (lower == upper)
        return true;
    const unsigned span = upper - lower;
    unsigned nBits = CountBits(span + 1);
    const unsigned offset = value - lower;
    if (alignedFlag) {
        if (span < 255) { // X.691 10.5.7.1: bit-field, no alignment
            putBits(offset, nBits);
            return true;
        }
        if (nBits >= 17) { // X.691 10.5.7.4: octet count, then the octets
            const unsigned octets = value == lower ? 1 : (CountBits(offset + 1) + 7) / 8;
            if (!encodeLength(octets, 1, (nBits + 7) / 8))
                return false;
            nBits = octets * 8;
        } else if (nBits > 8) {
            nBits = 16;
        }
        byteAlign();
    }
    encodeMultiBit(offset, nBits);
    return true;
}

bool PEREncoder::encodeConstraint(const ConstrainedObject& object, unsigned value) {
    if (!object.extendable())
        return object.getConstraintType() != FixedConstraint;
    const bool outside = object.outsideRoot(value);
    encodeSingleBit(outside);
    return outside;
}

bool PEREncoder::encodeConstrainedLength(const ConstrainedObject& object, unsigned length) {
    if (!encodeConstraint(object, length))
        return encodeLength(length, static_cast<unsigned>(object.getLowerLimit()),
                            object.getUpperLimit());
    return encodeLength(length, 0, kUnconstrained);
}

// X.691 10.2: the value encoded on its own (always aligned), then as a length-prefixed octet
// string. An empty encoding becomes the single octet 0x00.
// The contents are written in place, as a fresh aligned encoding starting on an octet boundary,
// and the length determinant, known only afterwards, is then rotated in front of them. A value
// that fails leaves the output as it was.
bool PEREncoder::encodeAnyType(const AbstractData* value) {
    const std::size_t before = written();
    const std::uint32_t savedPending = pending;
    const unsigned savedPendingBits = pendingBits;
    const bool savedAligned = alignedFlag;
    byteAlign();
    const std::size_t start = written();
    alignedFlag = true;
    const bool ok = value == nullptr || encodeNested(*value);
    alignedFlag = savedAligned;
    if (!ok) {
        cursor = outputBuffer.data() + before;
        pending = savedPending;
        pendingBits = savedPendingBits;
        return false;
    }
    if (written() == start && pendingBits == 0)
        encodeByte(0); // an empty encoding is one zero bit, padded
    byteAlign();
    const std::size_t contents = written();
    if (!encodeLength(static_cast<unsigned>(contents - start), 0, kUnconstrained))
        return false;
    // The determinant of an encodable length is one or two octets (longer ones abort above).
    char* base = outputBuffer.data();
    const std::size_t prefixSize = written() - contents;
    char prefix[2];
    ASN1_ASSERT(prefixSize <= sizeof prefix);
    std::memcpy(prefix, base + contents, prefixSize);
    std::memmove(base + start + prefixSize, base + start, contents - start);
    std::memcpy(base + start, prefix, prefixSize);
    return true;
}

bool PEREncoder::encodeNested(const AbstractData& value) {
    if (depth >= MaximumNestingDepth)
        return false;
    ++depth;
    const bool ok = value.accept(*this);
    --depth;
    return ok;
}

// ------------------------------------------------------------------------------------------------
bool PEREncoder::do_visit(const AbstractData&) {
    return false;
}
bool PEREncoder::do_visit(const Null&) {
    return true;
}

bool PEREncoder::do_visit(const BOOLEAN& value) {
    encodeSingleBit(value);
    return true;
}

bool PEREncoder::do_visit(const INTEGER& value) {
    const int v = value.getValue();
    const int lower = value.getLowerLimit();
    const unsigned upper = value.getUpperLimit();
    if (!encodeConstraint(value, static_cast<unsigned>(v))) {
        if (static_cast<unsigned>(lower) == upper)
            return true;
        // X.691 12.2.2: the offset from the lower bound; a negative lower bound is handled by
        // moving the range to start at 0, which writes the same bits.
        if (lower < 0) {
            if (v < lower || v > static_cast<int>(upper))
                return false;
            return encodeUnsigned(static_cast<unsigned>(v) - static_cast<unsigned>(lower), 0,
                                  upper - static_cast<unsigned>(lower));
        }
        return encodeUnsigned(static_cast<unsigned>(v), static_cast<unsigned>(lower), upper);
    }
    // Unconstrained, semi-constrained or outside an extendable root: a length-prefixed number.
    // Deliberately not X.691 12.2.3/12.2.6: a semi-constrained value is written as itself, not as
    // its offset from the lower bound, and a negative value counts its magnitude's bits without a
    // sign bit, so values such as -1, -129..-256 or -32769..-65536 lose their top octet.
    const unsigned u = value.getConstraintType() == FixedConstraint
                           ? static_cast<unsigned>(v) - static_cast<unsigned>(lower)
                           : static_cast<unsigned>(v);
    unsigned bits;
    if (u == 0)
        bits = 1;
    else if (v < 0)
        bits = CountBits(0u - static_cast<unsigned>(v));
    else
        bits = CountBits(static_cast<unsigned>(v) + 1) + 1;
    const unsigned octets = (bits + 7) / 8;
    if (!encodeLength(octets, 0, kUnconstrained))
        return false;
    encodeMultiBit(u, octets * 8);
    return true;
}

// Deliberately refused: a named-number INTEGER cannot be encoded by this codec.
bool PEREncoder::do_visit(const IntegerWithNamedNumber&) {
    return false;
}

bool PEREncoder::do_visit(const ENUMERATED& value) {
    const int v = value.asInt();
    if (value.extendable()) {
        const bool extended = v > value.getMaximum();
        encodeSingleBit(extended);
        if (extended) {
            // Deliberately not X.691 13.3: this codec's own pair, a small number v + 1 and then v
            // as a constrained number in 0..v (PERDecoder reads the same).
            encodeSmallUnsigned(static_cast<unsigned>(v) + 1);
            return encodeUnsigned(static_cast<unsigned>(v), 0, static_cast<unsigned>(v));
        }
    }
    return encodeUnsigned(static_cast<unsigned>(v), 0, static_cast<unsigned>(value.getMaximum()));
}

bool PEREncoder::do_visit(const OBJECT_IDENTIFIER& value) {
    OctetBuffer contents;
    value.encodeCommon(contents);
    // Deliberately not X.691 24: the length is a constrained number 0..255.
    if (!encodeLength(static_cast<unsigned>(contents.size()), 0, 255))
        return false;
    encodeBlock(contents.data(), static_cast<unsigned>(contents.size()));
    return true;
}

bool PEREncoder::do_visit(const BIT_STRING& value) {
    const unsigned bits = value.size();
    if (!encodeConstrainedLength(value, bits))
        return false;
    if (bits == 0)
        return true;
    if (bits > 16 && alignedFlag) {
        encodeBlock(value.getData().data(), (bits + 7) / 8);
        return true;
    }
    // Deliberately not X.691 16.10: bit strings of up to 16 bits are never aligned.
    encodeBitMap(value.getData().data(), bits);
    return true;
}

bool PEREncoder::do_visit(const OCTET_STRING& value) {
    const unsigned size = static_cast<unsigned>(value.size());
    if (!encodeConstrainedLength(value, size))
        return false;
    switch (size) {
    case 0:
        return true;
    // Deliberately not X.691 17.6/17.7: every one- and two-octet string is written without
    // alignment, whether or not its size is fixed.
    case 1:
        putBits(static_cast<unsigned char>(value[0]), 8);
        return true;
    case 2:
        putBits(static_cast<std::uint32_t>(static_cast<unsigned char>(value[0])) << 8 |
                    static_cast<unsigned char>(value[1]),
                16);
        return true;
    default:
        encodeBlock(value.data(), size);
        return true;
    }
}

bool PEREncoder::do_visit(const AbstractString& value) {
    const unsigned length = static_cast<unsigned>(value.size());
    if (!encodeConstrainedLength(value, length))
        return false;
    const unsigned b = value.getNumBits(alignedFlag);
    // X.691 30.5.7: aligned when the string may exceed two octets.
    if (value.getConstraintType() == Unconstrained ||
        static_cast<unsigned long long>(value.getUpperLimit()) * b >= 17) {
        if (b == 8) {
            encodeBlock(value.data(), length);
            return true;
        }
        if (alignedFlag)
            byteAlign();
    }
    const unsigned canonicalBits = value.getCanonicalSetBits();
    const bool codesAsIs = canonicalBits <= b && canonicalBits > 4;
    const char* set = value.getCharacterSet();
    const unsigned setSize = value.getCharacterSetSize();
    for (char c : static_cast<const std::string&>(value)) {
        if (codesAsIs) {
            encodeMultiBit(static_cast<unsigned char>(c), b);
            continue;
        }
        // X.691 30.5.4: the index in the permitted alphabet. A character outside it fails the
        // encode; what was written stays in the output.
        const void* found = std::memchr(set, c, setSize);
        if (found == nullptr)
            return false;
        encodeMultiBit(static_cast<unsigned>(static_cast<const char*>(found) - set), b);
    }
    return true;
}

bool PEREncoder::do_visit(const BMPString& value) {
    const unsigned length = static_cast<unsigned>(value.size());
    if (!encodeConstrainedLength(value, length))
        return false;
    const unsigned b = value.getNumBits(alignedFlag);
    if (alignedFlag && (value.getConstraintType() == Unconstrained ||
                        static_cast<unsigned long long>(value.getUpperLimit()) * b > 16))
        byteAlign();
    const unsigned first = static_cast<unsigned>(value.getFirstChar());
    for (wchar_t c : static_cast<const BMPCharacters&>(value))
        encodeMultiBit(static_cast<unsigned>(c) - first, b);
    return true;
}

bool PEREncoder::do_visit(const CHOICE& value) {
    const int id = value.currentSelection();
    if (id < 0)
        return false;
    const unsigned numChoices = value.getNumChoices();
    if (value.extendable()) {
        const bool extended = static_cast<unsigned>(id) >= numChoices;
        encodeSingleBit(extended);
        if (extended) { // X.691 23.8: index as a small number, value as an open type
            encodeSmallUnsigned(static_cast<unsigned>(id) - numChoices);
            return encodeAnyType(value.getSelection());
        }
    }
    if (numChoices >= 2 && !encodeUnsigned(static_cast<unsigned>(id), 0, numChoices - 1))
        return false;
    const AbstractData* selection = value.getSelection();
    return selection != nullptr && encodeNested(*selection);
}

bool PEREncoder::do_visit(const SEQUENCE_OF_Base& value) {
    if (!encodeConstrainedLength(value, value.size()))
        return false;
    for (const AbstractData* element : value) {
        if (!encodeNested(*element))
            return false;
    }
    return true;
}

// Only the decoded value is written; octets kept from a decode are not (an OpenData holding only
// them goes out as the empty open type 0x00).
bool PEREncoder::do_visit(const OpenData& value) {
    return encodeAnyType(value.has_data() ? &value.get_data() : nullptr);
}

bool PEREncoder::do_visit(const GeneralizedTime& value) {
    const std::string text = value.get();
    // The upper bound is not the unconstrained marker, so the aligned variant writes an
    // unconstrained length after the 64K test.
    if (!encodeLength(static_cast<unsigned>(text.size()), 0, 0xFFFFFFFF))
        return false;
    encodeBlock(text.data(), static_cast<unsigned>(text.size()));
    return true;
}

// ------------------------------------------------------------------------------------------------
bool PEREncoder::preVisitExtensionRoots(const SEQUENCE& seq) {
    if (seq.extendable())
        encodeSingleBit(seq.extensionMap_.any());
    encodeBitMap(seq.optionalMap_.bytes(), seq.optionalMap_.size());
    return true;
}

bool PEREncoder::visitExtensionRoot(const SEQUENCE& seq, int position) {
    return encodeNested(*seq.fields[static_cast<unsigned>(position)]);
}

// The map held by the value is written, after a decode the peer's, bits of unknown extensions
// included (their octets are not kept, so they are not written).
bool PEREncoder::preVisitExtensions(const SEQUENCE& seq) {
    const unsigned n = seq.extensionMap_.size();
    encodeSmallUnsigned(n - 1);
    encodeBitMap(seq.extensionMap_.bytes(), n);
    return true;
}

bool PEREncoder::visitKnownExtension(const SEQUENCE& seq, int position) {
    return encodeAnyType(seq.fields[static_cast<unsigned>(position)]);
}

} // namespace ASN1
