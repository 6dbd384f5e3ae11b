// Aligned (and unaligned) PER decoding, X.691. Departures from the Recommendation are marked at the
// spot; the encoder mirrors each of them.
#include "asn1/PERDecoder.h"

#include <climits>
#include <cstring>

namespace ASN1 {

namespace {
// The upper bound that stands for "no upper bound" in length and number primitives.
constexpr unsigned kUnconstrained = 0x7FFFFFFF;

// The octets PEREncoder gives a normally small number above 63.
unsigned SmallNumberOctets(unsigned value) {
    return value < 256 ? 1 : value < 65536 ? 2 : value <= 0xFFFFFF ? 3 : 4;
}
} // namespace

const LeafPositions::Entry* LeafPositions::find(const AbstractData& leaf) const {
    for (unsigned i = 0; i < count; ++i)
        if (entries[i].leaf == &leaf)
            return &entries[i];
    return nullptr;
}

namespace {

bool WriteString(const LeafPositions::Entry& entry, const OCTET_STRING& leaf, char* input) {
    if (entry.octets != leaf.size())
        return false;
    std::memcpy(input + entry.offset, leaf.data(), entry.octets);
    return true;
}

bool WriteNumber(const LeafPositions::Entry& entry, const INTEGER& leaf, char* input) {
    const unsigned value = static_cast<unsigned>(leaf.getValue());
    const unsigned lower = static_cast<unsigned>(leaf.getLowerLimit());
    if (leaf.extendable() && leaf.outsideRoot(value))
        return false;
    // The code is the offset from the lower bound, in one octet or two, most significant first.
    const unsigned offset = value - lower;
    if (offset > leaf.getUpperLimit() - lower || (entry.octets == 1 && offset > 0xFF))
        return false;
    char* out = input + entry.offset;
    if (entry.octets == 2)
        *out++ = static_cast<char>(offset >> 8);
    *out = static_cast<char>(offset & 0xFF);
    return true;
}

} // namespace

bool OverwriteLeaf(const LeafPositions& positions, const OCTET_STRING& leaf, char* input) {
    const LeafPositions::Entry* entry = positions.find(leaf);
    return entry != nullptr && WriteString(*entry, leaf, input);
}

bool OverwriteLeaf(const LeafPositions& positions, const INTEGER& leaf, char* input) {
    const LeafPositions::Entry* entry = positions.find(leaf);
    return entry != nullptr && WriteNumber(*entry, leaf, input);
}

bool OverwriteLeaves(const LeafPositions& positions, char* input) {
    if (!positions.complete())
        return false;
    for (const LeafPositions::Entry& entry : positions) {
        const bool written =
            entry.octets <= 2
                ? WriteNumber(entry, *static_cast<const INTEGER*>(entry.leaf), input)
                : WriteString(entry, *static_cast<const OCTET_STRING*>(entry.leaf), input);
        if (!written)
            return false;
    }
    return true;
}

bool PERDecoder::endsCanonically() const {
    if (!canonicalFlag)
        return false;
    if (bitOffset == 8)
        return beginPosition == endPosition;
    return beginPosition + 1 == endPosition &&
           (static_cast<unsigned char>(*beginPosition) & ((1u << bitOffset) - 1)) == 0;
}

// The bits skipped to reach the octet boundary are padding, which the encoder writes as zeros.
[[gnu::always_inline]] inline void PERDecoder::byteAlign() {
    if (bitOffset != 8) {
        if ((static_cast<unsigned char>(*beginPosition) & ((1u << bitOffset) - 1)) != 0)
            notCanonical();
        bitOffset = 8;
        ++beginPosition;
    }
}

void PERDecoder::setPosition(const char* p) {
    beginPosition = p < endPosition ? p : endPosition;
    bitOffset = 8;
}

void PERDecoder::rollback(memento_type m) {
    if (m.position == nullptr)
        return;
    beginPosition = m.position < endPosition ? m.position : endPosition;
    bitOffset = static_cast<std::uint16_t>(m.bitOffset);
}

// A read past the end yields 0 without a failure signal; the caller's next read fails instead.
// The encoder would have written that bit, so the input is not canonical.
[[gnu::always_inline]] inline bool PERDecoder::decodeSingleBit() {
    if (getBitsLeft() == 0) {
        notCanonical();
        return false;
    }
    --bitOffset;
    const bool bit = ((static_cast<unsigned char>(*beginPosition) >> bitOffset) & 1) != 0;
    if (bitOffset == 0)
        byteAlign();
    return bit;
}

[[gnu::always_inline]] inline bool PERDecoder::decodeMultiBit(unsigned nBits, unsigned& value) {
    if (nBits > 32 || nBits > getBitsLeft())
        return false;
    if (nBits == 0) {
        value = 0;
        return true;
    }
    if (bitOffset > nBits) {
        bitOffset = static_cast<std::uint16_t>(bitOffset - nBits);
        value = (static_cast<unsigned char>(*beginPosition) >> bitOffset) & ((1u << nBits) - 1);
        return true;
    }
    value = static_cast<unsigned char>(*beginPosition) & ((1u << bitOffset) - 1);
    ++beginPosition;
    unsigned remaining = nBits - bitOffset;
    bitOffset = 8;
    while (remaining >= 8) {
        value = (value << 8) | static_cast<unsigned char>(*beginPosition++);
        remaining -= 8;
    }
    if (remaining > 0) {
        bitOffset = static_cast<std::uint16_t>(8 - remaining);
        value = (value << remaining) | (static_cast<unsigned char>(*beginPosition) >> bitOffset);
    }
    return true;
}

// X.691 10.6: normally small non-negative whole number.
bool PERDecoder::decodeSmallUnsigned(unsigned& value) {
    if (!decodeSingleBit())
        return decodeMultiBit(6, value);
    unsigned length;
    if (decodeLength(0, kUnconstrained, length) != 0 || length > 4)
        return false;
    byteAlign();
    if (!decodeMultiBit(length * 8, value))
        return false;
    if (value <= 63 || length != SmallNumberOctets(value))
        notCanonical();
    return true;
}

// X.691 10.5: constrained whole number.
int PERDecoder::decodeUnsigned(unsigned lower, unsigned upper, unsigned& value) {
    if (lower == upper) {
        value = lower;
        return 0;
    }
    if (atEnd())
        return -1;
    const unsigned range = upper - lower + 1; // 0 when the range is the whole 32-bit space
    unsigned nBits = CountBits(range);
    unsigned bits = 0;
    if (alignedFlag && nBits > 16) {
        // X.691 10.5.7.4: octet count as a constrained length, then the octets.
        unsigned octets;
        if (decodeLength(1, (nBits + 7) / 8, octets) != 0)
            return -1;
        byteAlign();
        if (!decodeMultiBit(octets * 8, bits))
            return -1;
        if (octets != (bits == 0 ? 1 : (CountBits(bits + 1) + 7) / 8))
            notCanonical(); // more octets than the number needs
    } else {
        if (alignedFlag && range > 255) {
            if (nBits > 8)
                nBits = 16; // X.691 10.5.7.3: two aligned octets
            byteAlign();    // X.691 10.5.7.2: a range of 256 takes one aligned octet
        }
        if (!decodeMultiBit(nBits, bits))
            return -1;
    }
    if (bits > upper - lower) // past the upper bound: the encoder refuses to write it
        notCanonical();
    value = bits + lower;
    return 0;
}

// X.691 10.9: length determinant.
int PERDecoder::decodeLength(unsigned lower, unsigned upper, unsigned& length) {
    if (upper != kUnconstrained && !alignedFlag) {
        // Deliberately not X.691: the unaligned variant consumes a constrained length twice, here
        // and again below (it has no caller; the encoder writes it once).
        ASN1_ASSERT(upper - lower < 0x10000);
        unsigned scratch;
        if (!decodeMultiBit(CountBits(upper - lower + 1), scratch))
            return -1;
    }
    if (upper < 0x10000)
        return decodeUnsigned(lower, upper, length);
    byteAlign();
    if (atEnd())
        return -1;
    unsigned bits;
    if (!decodeSingleBit()) { // X.691 10.9.3.6: 0xxxxxxx, lengths 0..127
        if (!decodeMultiBit(7, bits))
            return -1;
    } else if (!decodeSingleBit()) { // X.691 10.9.3.7: 10xxxxxx xxxxxxxx, lengths up to 16383
        if (!decodeMultiBit(14, bits))
            return -1;
        // Shorter lengths go in one octet, and the encoder writes none of 8192 or more.
        if (bits < 128 || bits >= 8192)
            notCanonical();
    } else {
        // Deliberately not X.691 10.9.3.8: fragmented lengths (11xxxxxx) are refused.
        return -1;
    }
    if (bits < lower || bits > upper)
        notCanonical(); // outside its bounds: the encoder refuses to write it
    length = bits;
    return 0;
}

int PERDecoder::decodeConstrainedLength(ConstrainedObject& object, unsigned& length) {
    const ConstraintType type = object.getConstraintType();
    if (type == ExtendableConstraint) {
        if (decodeSingleBit()) { // X.691 10.9.3.3 / 16.6: outside the root, length unconstrained
            if (decodeLength(0, kUnconstrained, length) != 0)
                return -1;
            if (!object.outsideRoot(length))
                notCanonical();
            return 0;
        }
    } else if (type == Unconstrained) {
        return decodeLength(0, kUnconstrained, length);
    } else if (type == PartiallyConstrained) {
        notCanonical(); // the encoder writes such a size unconstrained
    }
    // A lower-bound-only constraint is read as if its upper bound meant something; the modules use
    // none for sizes.
    return decodeLength(static_cast<unsigned>(object.getLowerLimit()), object.getUpperLimit(),
                        length);
}

unsigned PERDecoder::decodeBlock(char* destination, unsigned count) {
    if (count == 0)
        return 0;
    byteAlign();
    const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
    if (count > available)
        count = available;
    if (count == 0)
        return 0;
    std::memcpy(destination, beginPosition, count);
    beginPosition += count;
    return count;
}

bool PERDecoder::decodeBitMap(char* bits, unsigned nBits) {
    unsigned index = 0;
    unsigned value;
    for (; nBits >= 8; nBits -= 8) {
        if (!decodeMultiBit(8, value))
            return false;
        bits[index++] = static_cast<char>(value);
    }
    if (nBits > 0) {
        if (!decodeMultiBit(nBits, value))
            return false;
        bits[index] = static_cast<char>(value << (8 - nBits));
    }
    return true;
}

bool PERDecoder::decodeNested(AbstractData& value) {
    if (depth >= MaximumNestingDepth)
        return false;
    ++depth;
    const bool ok = value.accept(*this);
    --depth;
    return ok;
}

void PERDecoder::closeOpenType(const char* start, const char* end) {
    byteAlign();
    if (beginPosition == start ? end != start + 1 || *start != 0 : beginPosition != end)
        notCanonical();
}

template <class Bytes> bool PERDecoder::decodeOctets(Bytes& bytes, unsigned length) {
    if (static_cast<unsigned long long>(length) * 8 > getBitsLeft())
        return false; // truncated: refuse before allocating
    unsigned value;
    switch (length) {
    case 0:
        bytes.clear();
        return true;
    // Deliberately not X.691 17.6/17.7: every one- and two-octet string is read without
    // alignment, whether or not its size is fixed.
    case 1:
    case 2:
        bytes.resize(length);
        for (unsigned i = 0; i < length; ++i) {
            if (!decodeMultiBit(8, value))
                return false;
            bytes[i] = static_cast<char>(value);
        }
        return true;
    default: {
        // Copied straight from the input; octets the input lacks after the alignment are zeros.
        byteAlign();
        const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
        const unsigned count = length < available ? length : available;
        bytes.assign(beginPosition, beginPosition + count);
        bytes.resize(length);
        beginPosition += count;
        return count == length;
    }
    }
}

// X.691 11: the start of a CHOICE. An extension alternative is an open type; the memento marks
// its end so that the position jumps there whatever the inner decode consumed.
bool PERDecoder::decodeChoicePreamle(CHOICE& choice, memento_type& memento) {
    if (atEnd())
        return false;
    const unsigned numChoices = choice.getNumChoices();
    if (choice.extendable() && decodeSingleBit()) {
        unsigned n;
        if (!decodeSmallUnsigned(n))
            return false;
        const int id = n > static_cast<unsigned>(INT_MAX) - numChoices
                           ? INT_MAX
                           : static_cast<int>(n + numChoices);
        unsigned length;
        if (decodeLength(0, kUnconstrained, length) != 0)
            return false;
        const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
        if (length > available)
            notCanonical();
        memento.position = length < available ? beginPosition + length : endPosition;
        memento.bitOffset = 8;
        // Deliberately not X.691 23.9: an unknown extension alternative is not skipped; select
        // fails, the CHOICE is left unknown and the decode fails.
        return choice.select(id);
    }
    unsigned id = 0;
    if (numChoices >= 2 && decodeUnsigned(0, numChoices - 1, id) != 0)
        return false;
    return choice.select(static_cast<int>(id));
}

// ------------------------------------------------------------------------------------------------
bool PERDecoder::do_visit(Null&) {
    return true;
}

bool PERDecoder::do_visit(BOOLEAN& value) {
    if (atEnd())
        return false;
    value = decodeSingleBit();
    return true;
}

bool PERDecoder::do_visit(INTEGER& value) {
    const ConstraintType type = value.getConstraintType();
    const bool extended = type == ExtendableConstraint && decodeSingleBit();
    if (extended || type == Unconstrained || type == PartiallyConstrained) {
        unsigned length;
        if (decodeLength(0, kUnconstrained, length) != 0 || length > 4)
            return false;
        unsigned bits;
        if (!decodeMultiBit(length * 8, bits))
            return false;
        // Deliberately not X.691 12.2.3/12.2.6: only an unconstrained value is sign-extended; a
        // semi-constrained or out-of-root value is the raw number, without its lower bound.
        if (type == Unconstrained && length > 0 && length < 4 && (bits >> (length * 8 - 1)) != 0)
            bits |= ~0u << (length * 8);
        value = static_cast<int>(bits);
        // The encoder's octet count for this value (see PEREncoder's INTEGER).
        const int v = static_cast<int>(bits);
        const unsigned significant = bits == 0 ? 1
                                     : v < 0   ? CountBits(0u - bits)
                                               : CountBits(bits + 1) + 1;
        if (length != (significant + 7) / 8 || (extended && !value.outsideRoot(bits)))
            notCanonical();
        return true;
    }
    const int lower = value.getLowerLimit();
    const unsigned upper = value.getUpperLimit();
    if (static_cast<unsigned>(lower) == upper) {
        value = lower;
        return true;
    }
    unsigned bits;
    if (decodeUnsigned(static_cast<unsigned>(lower), upper, bits) == 0) {
        value = static_cast<int>(bits);
        if (type == ExtendableConstraint && value.outsideRoot(bits))
            notCanonical(); // written with the extension bit set
        const unsigned span = upper - static_cast<unsigned>(lower);
        if (leaves != nullptr && alignedFlag && span >= 255 && span <= 0xFFFF)
            leaves->note(value,
                         static_cast<unsigned>(beginPosition - originPosition) -
                             (span == 255 ? 1 : 2),
                         span == 255 ? 1 : 2);
        return true;
    }
    // Deliberately lenient: a constrained INTEGER that cannot be read (truncated input) takes its
    // lower bound and succeeds; the next read fails instead.
    notCanonical();
    value = lower;
    return true;
}

// Decoded as the INTEGER it is; the encoder cannot write it, so never canonical.
bool PERDecoder::do_visit(IntegerWithNamedNumber& value) {
    notCanonical();
    return do_visit(static_cast<INTEGER&>(value));
}

bool PERDecoder::do_visit(ENUMERATED& value) {
    if (value.extendable() && decodeSingleBit()) {
        // Deliberately not X.691 13.3: an extension value is this codec's own pair, a small number
        // n followed by the value as a constrained number in 0..n-1 (the encoder writes the same).
        unsigned n;
        unsigned v;
        if (decodeSmallUnsigned(n) && n != 0 && decodeUnsigned(0, n - 1, v) == 0) {
            if (n != v + 1 || v <= static_cast<unsigned>(value.getMaximum()))
                notCanonical();
            value.setFromInt(static_cast<int>(v));
            return true;
        }
        // Otherwise fall through and read a root value from where the position stands.
        notCanonical();
    }
    unsigned v;
    if (decodeUnsigned(0, static_cast<unsigned>(value.getMaximum()), v) != 0)
        return false;
    value.setFromInt(static_cast<int>(v));
    return true;
}

bool PERDecoder::do_visit(OBJECT_IDENTIFIER& value) {
    // Deliberately not X.691 24: the length is a constrained number 0..255 (one aligned octet),
    // which agrees with the unconstrained form below 128.
    unsigned length;
    if (decodeLength(0, 255, length) != 0)
        return false;
    // Deliberately strict: an identifier that ends exactly at the end of the input is refused.
    const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
    if (length >= available)
        return false;
    const char* contents = beginPosition;
    beginPosition += length;
    // A subidentifier is written in as few base-128 digits as it needs: none starts with 0x80.
    for (unsigned i = 0; i < length; ++i)
        if (static_cast<unsigned char>(contents[i]) == 0x80 &&
            (i == 0 || (static_cast<unsigned char>(contents[i - 1]) & 0x80) == 0))
            notCanonical();
    return value.decodeCommon(contents, length);
}

bool PERDecoder::do_visit(OCTET_STRING& value) {
    unsigned length;
    if (decodeConstrainedLength(value, length) != 0 || length > MaximumStringSize)
        return false;
    if (!decodeOctets(value, length))
        return false;
    if (leaves != nullptr && length > 2) // the longer strings are aligned (see decodeOctets)
        leaves->note(value, static_cast<unsigned>(beginPosition - originPosition) - length, length);
    return true;
}

bool PERDecoder::do_visit(BIT_STRING& value) {
    unsigned bits;
    if (decodeConstrainedLength(value, bits) != 0 || bits > MaximumStringSize)
        return false;
    if (bits == 0) {
        value.resize(0);
        return true;
    }
    if (bits > getBitsLeft())
        return false;
    value.resize(bits);
    if (bits > 16 && alignedFlag) {
        const unsigned octets = (bits + 7) / 8;
        return decodeBlock(value.getData().data(), octets) == octets;
    }
    // Deliberately not X.691 16.10: bit strings of up to 16 bits are never aligned.
    return decodeBitMap(value.getData().data(), bits);
}

bool PERDecoder::do_visit(AbstractString& value) {
    unsigned length;
    if (decodeConstrainedLength(value, length) != 0 || length > MaximumStringSize)
        return false;
    const unsigned b = value.getNumBits(alignedFlag);
    if (static_cast<unsigned long long>(length) * b > getBitsLeft())
        return false; // truncated: refuse before allocating
    value.resize(length);
    // X.691 30.5.7: aligned when the string may exceed two octets.
    if (value.getConstraintType() == Unconstrained ||
        static_cast<unsigned long long>(value.getUpperLimit()) * b >= 17) {
        if (b == 8) {
            if (decodeBlock(&value[0], length) != length) {
                value.clear();
                return false;
            }
            return true;
        }
        if (alignedFlag)
            byteAlign();
    }
    const unsigned canonicalBits = value.getCanonicalSetBits();
    const bool codesAsIs = canonicalBits <= b && canonicalBits >= 5;
    for (unsigned i = 0; i < length; ++i) {
        unsigned bits;
        if (!decodeMultiBit(b, bits))
            return false;
        if (codesAsIs) {
            value[i] = static_cast<char>(bits);
        } else {
            // X.691 30.5.4: the bits index the permitted alphabet; an index outside it is refused
            // rather than read past the table.
            if (bits >= value.getCharacterSetSize())
                return false;
            value[i] = value.getCharacterSet()[bits];
        }
    }
    return true;
}

bool PERDecoder::do_visit(BMPString& value) {
    unsigned length;
    if (decodeConstrainedLength(value, length) != 0 || length > MaximumStringSize)
        return false;
    const unsigned b = value.getNumBits(alignedFlag);
    if (static_cast<unsigned long long>(length) * b > getBitsLeft())
        return false; // truncated: refuse before allocating
    value.resize(length);
    if (alignedFlag && (value.getConstraintType() == Unconstrained ||
                        static_cast<unsigned long long>(value.getUpperLimit()) * b > 16))
        byteAlign();
    for (unsigned i = 0; i < length; ++i) {
        unsigned bits;
        if (!decodeMultiBit(b, bits))
            return false;
        value[i] = static_cast<wchar_t>(bits + static_cast<unsigned>(value.getFirstChar()));
    }
    return true;
}

bool PERDecoder::do_visit(CHOICE& value) {
    memento_type memento = {nullptr, 8};
    if (!decodeChoicePreamle(value, memento))
        return false;
    const char* contents = beginPosition;
    if (!value.isUnknownSelection()) {
        AbstractData* selection = value.getSelection();
        if (selection == nullptr || !decodeNested(*selection))
            return false;
    }
    if (memento.position != nullptr)
        closeOpenType(contents, memento.position);
    rollback(memento);
    return true;
}

bool PERDecoder::do_visit(SEQUENCE_OF_Base& value) {
    unsigned count;
    if (decodeConstrainedLength(value, count) != 0)
        return false;
    // Deliberately not X.691: at most MaximumArraySize elements, checked before any is created.
    if (count > MaximumArraySize)
        return false;
    value.resize(count);
    SEQUENCE_OF_Base::Container& elements = value.container;
    for (unsigned i = 0; i < count; ++i) {
        if (elements[i] == nullptr)
            elements[i] = value.createElement();
        if (elements[i] == nullptr || !decodeNested(*elements[i])) {
            value.erase(elements.begin() + i, elements.end());
            return false;
        }
    }
    return true;
}

// X.691 10.2: an open type of unknown content is kept as its octets. The encoder writes only a
// decoded value, never kept octets, so this is not canonical.
bool PERDecoder::do_visit(OpenData& value) {
    notCanonical();
    unsigned length;
    if (decodeLength(0, kUnconstrained, length) != 0 || length > MaximumStringSize)
        return false;
    std::vector<char> octets;
    if (!decodeOctets(octets, length))
        return false;
    if (!value.has_buf())
        value.grab(new std::vector<char>());
    value.get_buf().swap(octets);
    return true;
}

bool PERDecoder::do_revisit(OpenData& value) {
    if (!value.has_buf() || !value.has_data())
        return false;
    const std::vector<char>& octets = value.get_buf();
    PERDecoder inner(octets.data(), octets.data() + octets.size(), get_env(), true);
    inner.depth = depth;
    return inner.decodeNested(value.get_data());
}

bool PERDecoder::do_visit(TypeConstrainedOpenData& value) {
    ASN1_ASSERT(value.has_data());
    unsigned length;
    if (decodeLength(0, kUnconstrained, length) != 0)
        return false;
    const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
    const char* end = length < available ? beginPosition + length : endPosition;
    if (length > available)
        notCanonical();
    // The contained value is read in place; the position then moves to the end of the open type
    // whatever the inner decode consumed.
    const char* contents = beginPosition;
    const bool ok = decodeNested(value.get_data());
    closeOpenType(contents, end);
    setPosition(end);
    return ok;
}

// Deliberately never decodes: this codec tests the length result the wrong way round, so a
// well-formed GeneralizedTime fails, and the other path would work on a length never read. No
// field of the message modules is of this kind.
bool PERDecoder::do_visit(GeneralizedTime&) {
    unsigned length;
    decodeLength(0, kUnconstrained, length);
    return false;
}

// ------------------------------------------------------------------------------------------------
// X.691 18: SEQUENCE preamble, extension bit then optional-field bit map.
int PERDecoder::preVisitExtensionRoots(SEQUENCE& seq) {
    bool extended = false;
    if (seq.extendable()) {
        if (atEnd())
            return 0;
        extended = decodeSingleBit();
    }
    if (!decodeBitMap(seq.optionalMap_.bytes(), seq.optionalMap_.size()))
        return 0;
    if (!extended && seq.extensionMap_.size() != 0)
        notCanonical(); // a map kept from before is written with the extension bit set
    return extended ? 3 : 2;
}

int PERDecoder::visitExtensionRoot(SEQUENCE& seq, int position, int optionalIndex) {
    if (optionalIndex != -1 && !seq.optionalMap_[static_cast<unsigned>(optionalIndex)])
        return 3;
    AbstractData*& field = seq.fields[static_cast<unsigned>(position)];
    if (field == nullptr)
        field = AbstractData::create(seq.info()->fieldInfos[position]);
    return field != nullptr && decodeNested(*field) ? 3 : 0;
}

// X.691 18.7: the extension addition bit map with its length as a small number.
int PERDecoder::preVisitExtensions(SEQUENCE& seq) {
    unsigned n;
    // Deliberately not X.691: at most MaximumArraySize extension bits.
    if (!decodeSmallUnsigned(n) || n >= MaximumArraySize)
        return 0;
    ++n;
    seq.extensionMap_.resize(n);
    if (!decodeBitMap(seq.extensionMap_.bytes(), n))
        return 0;
    if (!seq.extensionMap_.any())
        notCanonical(); // the encoder sets the extension bit only for a map with a bit set
    return 3;
}

int PERDecoder::visitKnownExtension(SEQUENCE& seq, int position, int optionalIndex) {
    if (!seq.hasOptionalField(static_cast<unsigned>(optionalIndex)))
        return 3;
    unsigned length;
    if (decodeLength(0, kUnconstrained, length) != 0)
        return 0;
    const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
    const char* end = length < available ? beginPosition + length : endPosition;
    if (length > available)
        notCanonical();
    AbstractData*& field = seq.fields[static_cast<unsigned>(position)];
    if (field == nullptr)
        field = AbstractData::create(seq.info()->fieldInfos[position]);
    const char* contents = beginPosition;
    const bool ok = field != nullptr && decodeNested(*field);
    closeOpenType(contents, end);
    setPosition(end);
    return ok ? 3 : 0;
}

// Deliberately not X.691 18.9: unknown extension additions are skipped and only their presence
// bits are kept; one whose octets end exactly at the end of the input fails the decode.
bool PERDecoder::visitUnknownExtensions(SEQUENCE& seq) {
    const SEQUENCE::BitMap& map = seq.extensionMap_;
    for (unsigned k = seq.getKnownExtensions(); k < map.size(); ++k) {
        if (!map[k])
            continue;
        notCanonical(); // the encoder writes no unknown addition back
        unsigned length;
        if (decodeLength(0, kUnconstrained, length) != 0)
            return false;
        const unsigned available = static_cast<unsigned>(endPosition - beginPosition);
        if (length >= available)
            return false;
        beginPosition += length;
    }
    return true;
}

} // namespace ASN1
