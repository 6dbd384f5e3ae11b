// Packed Encoding Rules decoder (ITU-T X.691, aligned variant used throughout; the unaligned one
// exists but has no caller). The caller builds the empty top-level value and calls its accept()
// with a decoder over the input; each kind reads its own encoding and creates optional fields,
// extension fields, CHOICE alternatives and SEQUENCE OF elements as it meets them.
#ifndef VOIPFILTER_ASN1_PERDECODER_H
#define VOIPFILTER_ASN1_PERDECODER_H

#include "asn1/asn1.h"

#include <cstdint>
#include <vector>

namespace ASN1 {

// Where a decode found the leaves that are coded as a fixed count of whole, aligned octets:
// OCTET STRINGs of three octets or more, and constrained numbers coded in one or two aligned
// octets (so an entry of one or two octets is an INTEGER, a longer one an OCTET STRING). A caller
// that changes only such leaves of a canonically decoded value (one whose encoding is its input,
// see PERDecoder::endsCanonically) and keeps each code's width can write the new codes over the
// input instead of encoding the whole value again. The entries point into the decoded tree: they
// hold while no node of it is added, removed or replaced. There is room for kRoom leaves; a
// decode with more leaves is not complete().
class LeafPositions {
public:
    struct Entry {
        const AbstractData* leaf;
        unsigned offset; // from the first octet of the decoder's input
        unsigned octets;
    };
    static constexpr unsigned kRoom = 64;

    void clear() {
        count = 0;
        overflowed = false;
    }
    void note(const AbstractData& leaf, unsigned offset, unsigned octets) {
        if (count < kRoom)
            entries[count++] = Entry{&leaf, offset, octets};
        else
            overflowed = true;
    }
    bool complete() const { return !overflowed; }
    const Entry* find(const AbstractData& leaf) const;
    const Entry* begin() const { return entries; }
    const Entry* end() const { return entries + count; }

private:
    Entry entries[kRoom];
    unsigned count = 0;
    bool overflowed = false;
};

// Write leaf's present code over the octets noted for it in input (the octets the positions were
// noted from). False, writing nothing, when the leaf was not noted or its code no longer has the
// noted width (a string of another size, a number outside its root).
bool OverwriteLeaf(const LeafPositions& positions, const OCTET_STRING& leaf, char* input);
bool OverwriteLeaf(const LeafPositions& positions, const INTEGER& leaf, char* input);
// Writes every noted leaf's present code over input. False when positions is not complete or a
// leaf's code no longer has its noted width; input is then partly written.
bool OverwriteLeaves(const LeafPositions& positions, char* input);

class PERDecoder : public Visitor {
public:
    // A saved position; a null position means nothing saved.
    struct memento_type {
        const char* position;
        unsigned bitOffset;
    };

    PERDecoder(const char* begin, const char* end, CoderEnv* env = nullptr, bool aligned = true)
        : Visitor(env), originPosition(begin), beginPosition(begin), endPosition(end), bitOffset(8),
          alignedFlag(aligned), canonicalFlag(true), depth(0), leaves(nullptr) {}

    bool aligned() const { return alignedFlag; }
    bool atEnd() const { return beginPosition >= endPosition; }
    unsigned getBitsLeft() const {
        return static_cast<unsigned>(endPosition - beginPosition) * 8 + bitOffset - 8;
    }
    const char* getPosition() const { return beginPosition; }
    unsigned getBitOffset() const { return bitOffset; }

    // False once the decoder has read a form PEREncoder does not write for the value it gave:
    // non-zero padding, a length, number or octet count longer than needed, an extension bit for
    // a value inside the root or for no addition, an unknown extension, an open type whose
    // contents do not fill it, a truncated number read leniently. The aligned variant only.
    bool canonical() const { return canonicalFlag; }
    // Canonical, and nothing but the zero padding of the last octet is left: encoding the decoded
    // value again gives the input, octet for octet.
    bool endsCanonically() const;
    // Notes fixed-width aligned leaves into positions as they are read (null: not noted).
    void noteLeaves(LeafPositions* positions) { leaves = positions; }

    void byteAlign();
    void setPosition(const char* p);
    void rollback(memento_type m);

    // Results: bool true = success; the int-returning primitives give 0 on success, -1 on failure.
    bool decodeSingleBit();
    bool decodeMultiBit(unsigned nBits, unsigned& value);
    bool decodeSmallUnsigned(unsigned& value);
    int decodeLength(unsigned lower, unsigned upper, unsigned& length);
    int decodeConstrainedLength(ConstrainedObject& object, unsigned& length);
    int decodeUnsigned(unsigned lower, unsigned upper, unsigned& value);
    // Number of bytes copied, which callers compare with count.
    unsigned decodeBlock(char* destination, unsigned count);
    bool decodeBitMap(char* bits, unsigned nBits); // bits: ceil(nBits / 8) bytes
    bool decodeChoicePreamle(CHOICE& choice, memento_type& memento);

private:
    bool do_visit(Null& v) override;
    bool do_visit(BOOLEAN& v) override;
    bool do_visit(INTEGER& v) override;
    bool do_visit(IntegerWithNamedNumber& v) override;
    bool do_visit(ENUMERATED& v) override;
    bool do_visit(OBJECT_IDENTIFIER& v) override;
    bool do_visit(OCTET_STRING& v) override;
    bool do_visit(BIT_STRING& v) override;
    bool do_visit(AbstractString& v) override;
    bool do_visit(BMPString& v) override;
    bool do_visit(CHOICE& v) override;
    bool do_visit(SEQUENCE_OF_Base& v) override;
    bool do_visit(OpenData& v) override;
    bool do_revisit(OpenData& v) override;
    bool do_visit(TypeConstrainedOpenData& v) override;
    bool do_visit(GeneralizedTime& v) override;
    int preVisitExtensionRoots(SEQUENCE& seq) override;
    int visitExtensionRoot(SEQUENCE& seq, int position, int optionalIndex) override;
    int preVisitExtensions(SEQUENCE& seq) override;
    int visitKnownExtension(SEQUENCE& seq, int position, int optionalIndex) override;
    bool visitUnknownExtensions(SEQUENCE& seq) override;

    // Decodes a value one nesting level down; refuses trees deeper than MaximumNestingDepth.
    bool decodeNested(AbstractData& value);
    // Octets of an OCTET STRING with the given length (shared by OCTET STRING and open types).
    template <class Bytes> bool decodeOctets(Bytes& bytes, unsigned length);
    // After the contents of an open type that starts at start and was said to end at end: the
    // encoder pads the contents to whole octets and writes an empty encoding as one zero octet.
    void closeOpenType(const char* start, const char* end);
    void notCanonical() { canonicalFlag = false; }

    const char* originPosition;
    const char* beginPosition;
    const char* endPosition;
    std::uint16_t bitOffset; // bits not yet read in the current byte, 1..8
    bool alignedFlag;
    bool canonicalFlag;
    unsigned depth;
    LeafPositions* leaves;
};

} // namespace ASN1

#endif
