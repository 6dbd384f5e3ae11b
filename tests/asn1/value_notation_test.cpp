// Value notation printing: the text of every kind, and the indentation and separator rules of
// SEQUENCE and SEQUENCE OF at several depths.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace asn1test;

namespace {

TEST(ValueNotation, ScalarKinds) {
    EXPECT_EQ("NULL", Null().asValueNotation());
    EXPECT_EQ("TRUE", BOOLEAN(true).asValueNotation());
    EXPECT_EQ("FALSE", BOOLEAN(false).asValueNotation());
    EXPECT_EQ("-7", INTEGER(-7, &INTEGER::theInfo).asValueNotation());
    // A constrained INTEGER with a non-negative lower bound prints as unsigned.
    Int0to7 outOfRange;
    static_cast<INTEGER&>(outOfRange) = -1;
    EXPECT_EQ("4294967295", outOfRange.asValueNotation());
    EXPECT_EQ("-5", IntMinus5to5(-5).asValueNotation());

    ENUMERATED colour(&colourInfo);
    colour.setFromInt(1);
    EXPECT_EQ("green", colour.asValueNotation());
    colour.setFromInt(7);
    EXPECT_EQ("7", colour.asValueNotation());

    const IntegerWithNamedNumber::NameEntry entries[] = {{4, "four"}};
    const IntegerWithNamedNumber::InfoType info = {
        &IntegerWithNamedNumber::create, 2, Unconstrained, INT_MIN, 0x7FFFFFFF, entries, 1};
    EXPECT_EQ("four", IntegerWithNamedNumber(4, &info).asValueNotation());
    EXPECT_EQ("5", IntegerWithNamedNumber(5, &info).asValueNotation());

    EXPECT_EQ("{ 0 0 8 2250 0 4 }", OBJECT_IDENTIFIER({0, 0, 8, 2250, 0, 4}).asValueNotation());
    BIT_STRING bits;
    bits.resize(4);
    bits.set(0);
    bits.set(2);
    EXPECT_EQ("'1010'B", bits.asValueNotation());
    EXPECT_EQ("'01 ab'H", OCTET_STRING(fromHex("01ab")).asValueNotation());
    EXPECT_EQ("''H", OCTET_STRING().asValueNotation());
    EXPECT_EQ("\"abc\"", IA5String("abc").asValueNotation());
    EXPECT_EQ("\"20240102030405Z\"", GeneralizedTime("20240102030405Z").asValueNotation());
}

TEST(ValueNotation, OctetStringRestoresTheStreamFormat) {
    std::ostringstream os;
    os << OCTET_STRING(fromHex("0aff")) << ' ' << 255 << '|';
    os.width(3);
    os << 7;
    EXPECT_EQ("'0a ff'H 255|  7", os.str());
}

TEST(ValueNotation, BmpStringInTheCLocale) {
    EXPECT_EQ("\"Hi\"", BMPString(L"Hi").asValueNotation());
    // Not representable in the C locale: characters as quadruples.
    EXPECT_EQ("{{ 0, 0, 38, 58}, { 0, 0, 0, 65}}", BMPString(L"\x263A"
                                                             L"A")
                                                       .asValueNotation());
}

TEST(ValueNotation, ChoiceAndOpenData) {
    CHOICE pick(&choice3Info);
    std::ostringstream os;
    EXPECT_EQ(4, pick.print_on(os));
    os << pick;
    EXPECT_FALSE(os.good());
    std::ostringstream bad;
    bad.setstate(std::ios_base::failbit);
    bad << pick; // a stream that is not good is left alone
    EXPECT_EQ("", bad.str());

    pick.select(1);
    static_cast<BOOLEAN&>(*pick.getSelection()) = true;
    EXPECT_EQ("flag : TRUE", pick.asValueNotation());

    OpenData bytes;
    bytes.grab(new std::vector<char>(fromHex("0102")));
    EXPECT_EQ("'01 02'H", bytes.asValueNotation());
    EXPECT_EQ("9", OpenData(new Int0to255(9), &OpenData::theInfo).asValueNotation());
}

TEST(ValueNotation, SequenceLayout) {
    SEQUENCE pair(&pairInfo);
    static_cast<INTEGER&>(*pair.getField(0)) = 1;
    static_cast<BOOLEAN&>(*pair.getField(1)) = true;
    EXPECT_EQ("{\n  a 1,\n  b TRUE\n}", pair.asValueNotation());

    SEQUENCE empty(&emptySeqInfo);
    EXPECT_EQ("{\n}", empty.asValueNotation());

    // Absent optional fields print nothing; known extensions print like root fields, and a
    // nested SEQUENCE closes at its field's indentation.
    SEQUENCE rec(&recInfo);
    static_cast<INTEGER&>(*rec.getField(0)) = 5;
    static_cast<AbstractString&>(*rec.includeOptionalField(1, 2)) = "hi";
    rec.includeOptionalField(2, 3);
    EXPECT_EQ("{\n  a 5,\n  c \"hi\",\n  d {\n  }\n}", rec.asValueNotation());
}

TEST(ValueNotation, SequenceOfLayout) {
    SEQUENCE_OF<Int0to255> empty;
    EXPECT_EQ("{\n}", empty.asValueNotation());

    // Tree ::= SEQUENCE OF Tree with { {}, { {} } }.
    SEQUENCE_OF_Base tree(&treeInfo);
    tree.resize(2);
    static_cast<SEQUENCE_OF_Base&>(**(tree.begin() + 1)).resize(1);
    EXPECT_EQ("{\n"
              "  {\n"
              "  },\n"
              "  {\n"
              "    {\n"
              "    }\n"
              "  }\n"
              "}",
              tree.asValueNotation());

    SEQUENCE_OF<SEQUENCE_OF<Null>> lists;
    lists.resize(1);
    lists[0].resize(2);
    EXPECT_EQ("{\n  {\n    NULL,\n    NULL\n  }\n}", lists.asValueNotation());
}

} // namespace
