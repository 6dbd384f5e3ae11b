// ASNDecode / ASNEncode over raw buffers (over OCTET STRINGs, as nested PDUs travel, they carry
// the corpus of tests/modules).
#include "asn1_test_support.h"

#include "asn1/asn_codec.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace asn1test;

namespace {

TEST(CodecHelpers, RawBuffers) {
    const unsigned char ok[] = {0x40, 0x05, 0x80};
    SEQUENCE rec(&recInfo), truncated(&recInfo);
    EXPECT_EQ(1, ASN1::ASNDecode(ok, sizeof ok, rec));
    EXPECT_EQ(-1, ASN1::ASNDecode(static_cast<const unsigned char*>(nullptr), 3, rec));
    EXPECT_EQ(-2, ASN1::ASNDecode(ok, 1, truncated));
    // The buffer must have room for the whole encoding; one octet short leaves it untouched.
    unsigned char buffer[8] = {0xEE};
    unsigned size = 2;
    EXPECT_EQ(-1, ASN1::ASNEncode(rec, buffer, &size));
    EXPECT_EQ(0xEE, buffer[0]);
    size = 3;
    EXPECT_EQ(1, ASN1::ASNEncode(rec, buffer, &size));
    EXPECT_EQ(3u, size);
    EXPECT_EQ(0, std::memcmp(buffer, ok, 3));
    EXPECT_EQ(-1, ASN1::ASNEncode(rec, buffer, nullptr));
    // A failed encoding is copied out as far as it was written, and reported as done.
    CHOICE nothing(&choice3Info);
    EXPECT_EQ(1, ASN1::ASNEncode(nothing, buffer, &size));
    EXPECT_EQ(0u, size);
}

} // namespace
