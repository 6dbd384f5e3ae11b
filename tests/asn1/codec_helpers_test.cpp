// ASNDecode / ASNEncode over raw buffers and over OCTET STRINGs carrying nested PDUs.
#include "asn1_test_support.h"

#include "asn1/asn_codec.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace asn1test;

namespace {

class Rec : public SEQUENCE {
public:
    Rec() : SEQUENCE(&recInfo) {}
};

TEST(CodecHelpers, RawBufferDecode) {
    const unsigned char ok[] = {0x40, 0x05, 0x80};
    Rec rec;
    EXPECT_EQ(1, ASN1::ASNDecode(ok, sizeof ok, rec));
    EXPECT_TRUE(rec.hasOptionalField(0));
    EXPECT_EQ(-1, ASN1::ASNDecode(static_cast<const unsigned char*>(nullptr), 3, rec));
    Rec truncated;
    EXPECT_EQ(-2, ASN1::ASNDecode(ok, 1, truncated));
}

TEST(CodecHelpers, RawBufferEncodeNeedsRoomForTheWholeEncoding) {
    Rec rec;
    static_cast<INTEGER&>(*rec.getField(0)) = 5;
    static_cast<BOOLEAN&>(*rec.includeOptionalField(0, 1)) = true;
    unsigned char buffer[8];
    std::memset(buffer, 0xEE, sizeof buffer);
    unsigned size = 2; // one octet short
    EXPECT_EQ(-1, ASN1::ASNEncode(rec, buffer, &size));
    EXPECT_EQ(2u, size);
    EXPECT_EQ(0xEE, buffer[0]);
    size = 3;
    EXPECT_EQ(1, ASN1::ASNEncode(rec, buffer, &size));
    EXPECT_EQ(3u, size);
    EXPECT_EQ(0, std::memcmp(buffer, "\x40\x05\x80", 3));
    EXPECT_EQ(-1, ASN1::ASNEncode(rec, nullptr, &size));
    EXPECT_EQ(-1, ASN1::ASNEncode(rec, buffer, nullptr));
}

TEST(CodecHelpers, FailedEncodeIsCopiedOutAsFarAsWritten) {
    CHOICE nothing(&choice3Info); // nothing selected: the encoder fails at once
    unsigned char buffer[4];
    unsigned size = sizeof buffer;
    EXPECT_EQ(1, ASN1::ASNEncode(nothing, buffer, &size));
    EXPECT_EQ(0u, size);
}

TEST(CodecHelpers, OctetStringForms) {
    Rec rec;
    static_cast<INTEGER&>(*rec.getField(0)) = 7;
    OCTET_STRING carrier(fromHex("ffffffff"));
    EXPECT_EQ(1, ASN1::ASNEncode(rec, carrier));
    EXPECT_EQ("0007", Hex(carrier));
    Rec back;
    EXPECT_EQ(1, ASN1::ASNDecode(carrier, back));
    EXPECT_EQ(0, back.compare(rec));
    Rec fromGarbage;
    EXPECT_EQ(-2, ASN1::ASNDecode(OCTET_STRING(fromHex("80")), fromGarbage));
    CHOICE nothing(&choice3Info);
    EXPECT_EQ(1, ASN1::ASNEncode(nothing, carrier)); // always 1
    EXPECT_TRUE(carrier.empty());
}

} // namespace
