// Misuse of the value model and the codec aborts with the C library's assertion message, in every
// build type: one case for each assertion text.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <regex>

using namespace asn1test;

namespace {

// The whole line "<file>:<line>: <function>: Assertion `<text>' failed." as a regular expression.
std::string assertion(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return ":[0-9]+: .*: Assertion `" + std::regex_replace(text, special, R"(\$&)") + "' failed\\.";
}

struct PlainNull : Null {}; // forgets to override do_clone

TEST(AssertionDeathTest, MessageHasTheCLibraryFormat) {
    SEQUENCE rec(&recInfo);
    EXPECT_DEATH(rec.getField(9),
                 "asn1\\.cpp:[0-9]+: ASN1::AbstractData\\* ASN1::SEQUENCE::getField\\(unsigned "
                 "int\\) const: Assertion `pos < fields\\.size\\(\\)' failed\\.");
}

TEST(AssertionDeathTest, ValueModelMisuse) {
    SEQUENCE bare(&bareInfo);
    EXPECT_DEATH(bare.includeOptionalField(1, 1), assertion("extendable()"));
    SEQUENCE rec(&recInfo);
    EXPECT_DEATH(rec = bare, assertion("info_ == that.info_"));
    CHOICE a(&choice3Info);
    CHOICE b(&choiceExtInfo);
    EXPECT_DEATH(a = b, assertion("info_ == other.info_"));
    a.setSelection(5, new Null);
    EXPECT_DEATH(a.getSelectionName(),
                 assertion("choiceID < static_cast<int>(info()->totalChoices)"));
    const ENUMERATED::InfoType single = {&ENUMERATED::create, 10, false, 0, colourNames};
    EXPECT_DEATH(delete new ENUMERATED(&single), assertion("getMaximum() > 0"));
    EXPECT_DEATH(Null().compare(BOOLEAN()), assertion("typeid(other) == typeid(Null)"));
    PlainNull plain;
    EXPECT_DEATH(plain.clone(), assertion("typeid(*this) == typeid(Null)"));
    Constrained_INTEGER<(ConstraintType)2, 1, 65535u> port;
    EXPECT_DEATH(port = 0, assertion("isValid()"));
    // A descriptor whose field cannot be created leaves the slot empty.
    const void* const infos[] = {nullptr};
    const int ids[] = {-1};
    const char* const names[] = {"x"};
    const SEQUENCE::InfoType broken = {&SEQUENCE::create, 16, false, infos, ids, 1, 0, 0,
                                       nullptr,           0,  names};
    SEQUENCE seq(&broken);
    EXPECT_DEATH(seq.asValueNotation(), assertion("value.fields[i]"));
}

TEST(AssertionDeathTest, CodecAborts) {
    // Unconstrained lengths of 8192 and more cannot be written.
    EXPECT_DEATH(encodeHex(OCTET_STRING(8192, 'x')), assertion("len < 0x2000"));
    // A typed open type must hold its value.
    Constrained_OpenData<Int0to255> open;
    open.set_data(nullptr);
    EXPECT_DEATH(decodeHex("01 07", open), assertion("value.has_data()"));
    // The unaligned variant cannot write or read a constrained length spanning 64K or more.
    OctetBuffer out;
    PEREncoder unaligned(out, false);
    EXPECT_DEATH(unaligned.encodeLength(1, 0, 0x10000), assertion("upper - lower < 0x10000"));
}

// The strict checker's INTEGER entry asks the whole-tree check of the same value again, which never
// returns; nothing calls it on such a tree. The process ends on the exhausted stack.
TEST(AssertionDeathTest, StrictCheckOfAnIntegerNeverReturns) {
    const INTEGER n(1, &INTEGER::theInfo);
    EXPECT_DEATH(static_cast<const AbstractData&>(n).isStrictlyValid(), "");
}

} // namespace
