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

class PERDecoder : public Visitor {
public:
    // A saved position; a null position means nothing saved.
    struct memento_type {
        const char* position;
        unsigned bitOffset;
    };

    PERDecoder(const char* begin, const char* end, CoderEnv* env = nullptr, bool aligned = true)
        : Visitor(env), beginPosition(begin), endPosition(end), bitOffset(8), alignedFlag(aligned),
          depth(0) {}

    bool aligned() const { return alignedFlag; }
    bool atEnd() const { return beginPosition >= endPosition; }
    unsigned getBitsLeft() const {
        return static_cast<unsigned>(endPosition - beginPosition) * 8 + bitOffset - 8;
    }
    const char* getPosition() const { return beginPosition; }
    unsigned getBitOffset() const { return bitOffset; }

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

    const char* beginPosition;
    const char* endPosition;
    std::uint16_t bitOffset; // bits not yet read in the current byte, 1..8
    bool alignedFlag;
    unsigned depth;
};

} // namespace ASN1

#endif
