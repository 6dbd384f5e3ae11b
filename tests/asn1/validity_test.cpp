// isValid() (extensible constraints admit values beyond the root) and isStrictlyValid() (every
// value within the root), per kind and over trees.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

using namespace asn1test;

namespace {

TEST(Validity, Integers) {
    Int0to7 n;
    EXPECT_TRUE(n.isValid());
    static_cast<INTEGER&>(n) = 8;
    EXPECT_FALSE(n.isValid());
    EXPECT_FALSE(n.isStrictValid());
    Int0to7Ext ext;
    ext = 9;
    EXPECT_TRUE(ext.isValid());
    EXPECT_FALSE(ext.isStrictValid());
    IntMinus5to5 signedRange;
    static_cast<INTEGER&>(signedRange) = -6;
    EXPECT_FALSE(signedRange.isValid());
    static_cast<INTEGER&>(signedRange) = -5;
    EXPECT_TRUE(signedRange.isValid());
    // The bounds are consulted even without a constraint.
    const INTEGER::InfoType narrow = {&INTEGER::create, 2, Unconstrained, 0, 10};
    EXPECT_FALSE(INTEGER(11, &narrow).isValid());
    EXPECT_TRUE(INTEGER(-11, &INTEGER::theInfo).isValid());
}

TEST(Validity, EnumeratedAndObjectIdentifier) {
    ENUMERATED colour(&colourInfo);
    colour.setFromInt(3);
    EXPECT_FALSE(colour.isValid());
    colour.setFromInt(-1); // no lower test
    EXPECT_TRUE(colour.isStrictlyValid());
    ENUMERATED open(&colourExtInfo);
    open.setFromInt(3);
    EXPECT_TRUE(open.isValid());
    EXPECT_FALSE(open.isStrictlyValid());
    EXPECT_FALSE(OBJECT_IDENTIFIER().isValid());
    EXPECT_TRUE(OBJECT_IDENTIFIER({1}).isValid());
}

TEST(Validity, StringSizes) {
    typedef Constrained_OCTET_STRING<SizeConstraint<2u, 4, 4u>> Four;
    Four ip(std::vector<char>(5, 0));
    EXPECT_FALSE(ip.isValid());
    ip.resize(4);
    EXPECT_TRUE(ip.isValid());
    // Unconstrained (type 0): any size from the lower bound up is valid, the strict test still
    // looks at the upper bound.
    const OCTET_STRING::InfoType loose = {&OCTET_STRING::create, 4, Unconstrained, 1, 2};
    OCTET_STRING big(100, 'x', &loose);
    EXPECT_TRUE(big.isValid());
    EXPECT_FALSE(big.isStrictlyValid());
    EXPECT_FALSE(OCTET_STRING(&loose).isValid());

    typedef Constrained_BIT_STRING<SizeConstraint<2u, 1, 16u>> Bits;
    Bits bits;
    EXPECT_FALSE(bits.isValid());
    bits.resize(16);
    EXPECT_TRUE(bits.isStrictlyValid());
}

TEST(Validity, CharacterStrings) {
    EXPECT_TRUE(NumericString("0 12").isValid());
    EXPECT_FALSE(NumericString("12a").isValid());
    EXPECT_FALSE(PrintableString("a@b").isValid());
    EXPECT_TRUE(PrintableString("a b?").isValid());
    EXPECT_TRUE(IA5String(std::string("a\0b", 3)).isValid()); // NUL is an IA5 character
    EXPECT_FALSE(IA5String("\xe9").isValid());
    EXPECT_TRUE(GeneralString("\xe9").isValid()); // no alphabet to check
    AbstractString digits(&dialedDigitsInfo, "12#");
    EXPECT_TRUE(digits.isValid());
    digits = "12A";
    EXPECT_FALSE(digits.isValid());
    digits = "";
    EXPECT_FALSE(digits.isValid()); // below SIZE (1..128)
    Constrained_BMPString<SizeConstraint<2u, 1, 2u>> bmp(L"abc");
    EXPECT_FALSE(bmp.isValid());
    const BMPString::InfoType latin = {
        &BMPString::create, 30, Unconstrained, 0, 10, L'a', L'z', 16, 16};
    BMPString ranged(L"abZ", &latin);
    EXPECT_EQ(2u, ranged.first_illegal_at());
    EXPECT_FALSE(ranged.isValid());
    EXPECT_FALSE(ranged.legalCharacter(L'Z'));
}

TEST(Validity, GeneralizedTimeFields) {
    EXPECT_TRUE(GeneralizedTime(2024, 1, 2, 24).isValid());
    EXPECT_FALSE(GeneralizedTime(2024, 0, 2).isValid());
    EXPECT_FALSE(GeneralizedTime(2024, 1, 2, 0, 0, 0, 0, 721).isValid());
    EXPECT_FALSE(GeneralizedTime(0, 1, 1).isValid());
}

TEST(Validity, ChoicesSequencesAndOpenTypes) {
    CHOICE pick(&choiceExtInfo);
    EXPECT_FALSE(pick.isValid());
    EXPECT_FALSE(pick.isStrictlyValid());
    pick.select(2); // a known extension alternative
    EXPECT_TRUE(pick.isValid());
    pick.select(0);
    static_cast<INTEGER&>(*pick.getSelection()) = 300;
    EXPECT_FALSE(pick.isValid());

    SEQUENCE rec(&recInfo);
    EXPECT_TRUE(static_cast<AbstractData&>(rec).isValid());
    static_cast<INTEGER&>(*rec.getField(0)) = 256;
    EXPECT_FALSE(static_cast<AbstractData&>(rec).isValid());
    static_cast<INTEGER&>(*rec.getField(0)) = 1;
    static_cast<AbstractString&>(*rec.includeOptionalField(1, 2)) = "\xff";
    EXPECT_FALSE(static_cast<AbstractData&>(rec).isValid());
    rec.removeOptionalField(1); // an absent field is not looked at
    EXPECT_TRUE(static_cast<AbstractData&>(rec).isValid());

    SEQUENCE_OF<Int0to255, SizeConstraint<3u, 0, 1u>> openList;
    openList.resize(2);
    EXPECT_TRUE(openList.isValid());
    EXPECT_FALSE(openList.isStrictlyValid());
    openList[1] = 255;
    static_cast<INTEGER&>(openList[1]) = 256;
    EXPECT_FALSE(openList.isValid());

    OpenData received;
    EXPECT_FALSE(received.isValid());
    received.grab(new std::vector<char>(1, 0));
    EXPECT_TRUE(received.isValid());
    received.set_data(new Int0to7(8));
    EXPECT_FALSE(received.isValid());
}

TEST(Validity, StrictCheckOfTreesWithoutIntegers) {
    SEQUENCE_OF<IA5String, SizeConstraint<2u, 1, 2u>> names;
    names.resize(1);
    EXPECT_TRUE(static_cast<AbstractData&>(names).isStrictlyValid());
    names.resize(3);
    EXPECT_FALSE(static_cast<AbstractData&>(names).isStrictlyValid());
}

} // namespace
