// isValid() (extensible constraints admit values beyond the root) and isStrictlyValid() (every
// value within the root), per kind and over trees.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

using namespace asn1test;

namespace {

TEST(Validity, NumbersAndEnumerations) {
    Int0to7 n;
    static_cast<INTEGER&>(n) = 8;
    EXPECT_FALSE(n.isValid());
    Int0to7Ext ext(9);
    EXPECT_TRUE(ext.isValid());
    EXPECT_FALSE(ext.isStrictValid());
    EXPECT_FALSE(IntMinus5to5(-6).isValid());
    EXPECT_TRUE(IntMinus5to5(-5).isValid());
    const INTEGER::InfoType narrow = {&INTEGER::create, 2, Unconstrained, 0, 10};
    EXPECT_FALSE(INTEGER(11, &narrow).isValid()); // bounds count even without a constraint
    ENUMERATED colour(&colourInfo), open(&colourExtInfo);
    colour.setFromInt(3);
    open.setFromInt(3);
    EXPECT_FALSE(colour.isValid());
    EXPECT_TRUE(open.isValid());
    EXPECT_FALSE(open.isStrictlyValid());
}

TEST(Validity, StringSizesAndAlphabets) {
    // Unconstrained: any size from the lower bound up; the strict test looks at the upper bound.
    const OCTET_STRING::InfoType loose = {&OCTET_STRING::create, 4, Unconstrained, 1, 2};
    OCTET_STRING big(100, 'x', &loose);
    EXPECT_TRUE(big.isValid());
    EXPECT_FALSE(big.isStrictlyValid());
    EXPECT_FALSE(OCTET_STRING(&loose).isValid());
    EXPECT_FALSE(NumericString("12a").isValid());
    EXPECT_FALSE(PrintableString("a@b").isValid());
    EXPECT_TRUE(IA5String(std::string("a\0b", 3)).isValid()); // NUL is an IA5 character
    EXPECT_FALSE(IA5String("\xe9").isValid());
    AbstractString digits(&dialedDigitsInfo, "12A");
    EXPECT_FALSE(digits.isValid());
    digits = "";
    EXPECT_FALSE(digits.isValid()); // below SIZE (1..128)
    const BMPString::InfoType latin = {
        &BMPString::create, 30, Unconstrained, 0, 10, L'a', L'z', 16, 16};
    BMPString ranged(L"abZ", &latin);
    EXPECT_EQ(2u, ranged.first_illegal_at());
    EXPECT_FALSE(ranged.isValid());
    EXPECT_FALSE(GeneralizedTime(2024, 1, 2, 0, 0, 0, 0, 721).isValid());
}

TEST(Validity, Trees) {
    CHOICE pick(&choiceExtInfo);
    EXPECT_FALSE(pick.isValid());
    pick.select(2); // a known extension alternative
    EXPECT_TRUE(pick.isValid());
    pick.select(0);
    static_cast<INTEGER&>(*pick.getSelection()) = 300;
    EXPECT_FALSE(pick.isValid());

    SEQUENCE rec(&recInfo);
    static_cast<AbstractString&>(*rec.includeOptionalField(1, 2)) = "\xff";
    EXPECT_FALSE(static_cast<AbstractData&>(rec).isValid());
    rec.removeOptionalField(1); // an absent field is not looked at
    EXPECT_TRUE(static_cast<AbstractData&>(rec).isValid());

    SEQUENCE_OF<Int0to255, SizeConstraint<3u, 0, 1u>> openList;
    openList.resize(2);
    EXPECT_TRUE(openList.isValid());
    EXPECT_FALSE(openList.isStrictlyValid());
    SEQUENCE_OF<IA5String, SizeConstraint<2u, 1, 2u>> names;
    names.resize(3);
    EXPECT_FALSE(static_cast<AbstractData&>(names).isStrictlyValid());

    OpenData received;
    EXPECT_FALSE(received.isValid());
    received.set_data(new Int0to7(8));
    EXPECT_FALSE(received.isValid());
}

} // namespace
