// Packed Encoding Rules encoder (ITU-T X.691), the mirror of PERDecoder: every departure of the
// decoder from X.691 is reproduced here so that what this encoder writes the decoder reads back.
#ifndef VOIPFILTER_ASN1_PERENCODER_H
#define VOIPFILTER_ASN1_PERENCODER_H

#include "asn1/asn1.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ASN1 {

// The encoder writes through a cursor into output, which it sizes ahead (a typical message fits
// the first block), and keeps the bits of the octet it has not finished in a word of its own.
// Until finish() the output holds that room, not the encoding: call it once the value (or the
// primitives) are written, whether they succeeded or not.
class PEREncoder : public ConstVisitor {
public:
    // Clears output and sizes it for a typical message (the largest pooled block).
    explicit PEREncoder(OctetBuffer& output, bool aligned = true);

    bool aligned() const { return alignedFlag; }

    // Cuts the output to what was written, the unfinished octet padded with zero bits. Nothing is
    // to be written after it.
    void finish();

    void byteAlign();
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
    // Appends nBits (1..32) of value, which has no bits above them.
    void putBits(std::uint32_t value, unsigned nBits);
    // Makes room for count more octets at the cursor.
    void reserveOctets(std::size_t count) {
        if (static_cast<std::size_t>(limit - cursor) < count)
            grow(count);
    }
    void grow(std::size_t count);
    std::size_t written() const { return static_cast<std::size_t>(cursor - outputBuffer.data()); }

    OctetBuffer& outputBuffer;
    char* cursor; // where the next whole octet goes
    char* limit;  // end of the room sized in outputBuffer
    // The bits of the unfinished octet are the low pendingBits (0..7) bits of pending; the bits
    // above them are left over from octets already written and mean nothing.
    std::uint32_t pending;
    unsigned pendingBits;
    bool alignedFlag;
    unsigned depth;
};

} // namespace ASN1

#endif
