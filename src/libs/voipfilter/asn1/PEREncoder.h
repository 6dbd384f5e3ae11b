// Packed Encoding Rules encoder (ITU-T X.691), the mirror of PERDecoder: every departure of the
// decoder from X.691 is reproduced here so that what this encoder writes the decoder reads back.
#ifndef VOIPFILTER_ASN1_PERENCODER_H
#define VOIPFILTER_ASN1_PERENCODER_H

#include "asn1/asn1.h"

#include <cstdint>
#include <vector>

namespace ASN1 {

class PEREncoder : public ConstVisitor {
public:
    // Clears output and reserves room for a typical message (the largest pooled block).
    explicit PEREncoder(OctetBuffer& output, bool aligned = true);

    bool aligned() const { return alignedFlag; }

    void byteAlign() { bitOffset = 8; }
    void encodeSingleBit(bool bit);
    void encodeMultiBit(unsigned value, unsigned nBits);
    void encodeByte(unsigned value);
    void encodeBlock(const char* data, unsigned count);
    void encodeBitMap(const char* bits, unsigned nBits); // bits: ceil(nBits / 8) bytes
    void encodeSmallUnsigned(unsigned value);
    bool encodeLength(unsigned length, unsigned lower, unsigned upper);
    bool encodeUnsigned(unsigned value, unsigned lower, unsigned upper);
    // True when the value is to be written unconstrained (writes the extension bit of an
    // extendable constraint).
    bool encodeConstraint(const ConstrainedObject& object, unsigned value);
    bool encodeConstrainedLength(const ConstrainedObject& object, unsigned length);
    // Writes value as an open type (X.691 10.2): length-prefixed aligned octets.
    bool encodeAnyType(const AbstractData* value);

private:
    bool do_visit(const AbstractData& v) override;
    bool do_visit(const Null& v) override;
    bool do_visit(const BOOLEAN& v) override;
    bool do_visit(const INTEGER& v) override;
    bool do_visit(const IntegerWithNamedNumber& v) override;
    bool do_visit(const ENUMERATED& v) override;
    bool do_visit(const OBJECT_IDENTIFIER& v) override;
    bool do_visit(const BIT_STRING& v) override;
    bool do_visit(const OCTET_STRING& v) override;
    bool do_visit(const AbstractString& v) override;
    bool do_visit(const BMPString& v) override;
    bool do_visit(const CHOICE& v) override;
    bool do_visit(const OpenData& v) override;
    bool do_visit(const GeneralizedTime& v) override;
    bool do_visit(const SEQUENCE_OF_Base& v) override;
    bool preVisitExtensionRoots(const SEQUENCE& seq) override;
    bool visitExtensionRoot(const SEQUENCE& seq, int position) override;
    bool preVisitExtensions(const SEQUENCE& seq) override;
    bool visitKnownExtension(const SEQUENCE& seq, int position) override;

    // Encodes a value one nesting level down; refuses trees deeper than MaximumNestingDepth.
    bool encodeNested(const AbstractData& value);

    OctetBuffer& outputBuffer;
    std::uint16_t bitOffset; // free bits in the last byte, 1..8
    bool alignedFlag;
    unsigned depth;
};

} // namespace ASN1

#endif
