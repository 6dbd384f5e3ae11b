// The value model: CHOICE selection, SEQUENCE optional and extension fields, comparison (including
// the masked extension comparison), copying, GeneralizedTime text and the printing that the
// vector table does not reach.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <type_traits>

using namespace asn1test;

namespace {

// Descriptors are plain aggregates that generated modules initialise as constants.
template <class... Info> constexpr bool plainDescriptors() {
    return (... && (std::is_aggregate<Info>::value && std::is_standard_layout<Info>::value &&
                    std::is_trivially_copyable<Info>::value));
}
static_assert(plainDescriptors<Null::InfoType, INTEGER::InfoType, IntegerWithNamedNumber::InfoType,
                               ENUMERATED::InfoType, AbstractString::InfoType, BMPString::InfoType,
                               CHOICE::InfoType, SEQUENCE::InfoType, SEQUENCE_OF_Base::InfoType,
                               TypeConstrainedOpenData::InfoType>(),
              "descriptor records must stay plain aggregates");

TEST(Choice, SelectKeepsTheCurrentValueAndRefusesUnknownIds) {
    CHOICE pick(&choice3Info);
    ASSERT_TRUE(pick.select(0));
    AbstractData* first = pick.getSelection();
    static_cast<INTEGER&>(*first) = 17;
    EXPECT_TRUE(pick.select(0));
    EXPECT_EQ(first, pick.getSelection());
    EXPECT_EQ(17, static_cast<INTEGER&>(*pick.getSelection()).getValue());
    EXPECT_FALSE(pick.select(3));
    EXPECT_TRUE(pick.isUnknownSelection());
    EXPECT_EQ(nullptr, pick.getSelection());
    EXPECT_TRUE(pick.select(2)); // recovers through select
}

TEST(Choice, CopyIsDeepAndCompareOrdersByAlternativeThenValue) {
    CHOICE a(&choice3Info);
    a.select(0);
    static_cast<INTEGER&>(*a.getSelection()) = 5;
    CHOICE b(a);
    EXPECT_NE(a.getSelection(), b.getSelection());
    EXPECT_EQ(0, a.compare(b));
    static_cast<INTEGER&>(*b.getSelection()) = 6;
    EXPECT_LT(a.compare(b), 0);
    b.select(1);
    EXPECT_EQ(-1, a.compare(b));
}

TEST(Sequence, OptionalAndDefaultExtensionFields) {
    SEQUENCE rec(&recInfo);
    EXPECT_EQ(nullptr, rec.getField(1)); // only mandatory fields are created
    EXPECT_FALSE(rec.hasOptionalField(5));
    AbstractData* b = rec.includeOptionalField(0, 1);
    static_cast<BOOLEAN&>(*b) = true;
    rec.removeOptionalField(0);
    EXPECT_FALSE(rec.hasOptionalField(0));
    EXPECT_EQ(b, rec.includeOptionalField(0, 1)); // a removed field keeps its value
    rec.includeOptionalField(2, 3); // an extension index grows the extension map to reach it
    EXPECT_EQ(2u, rec.extensionMap().size());
    EXPECT_FALSE(rec.hasOptionalField(1));

    const char defaults[] = {0, 1};
    const void* const infos[] = {&Int0to255::theInfo, &Int0to255::theInfo};
    const int ids[] = {0, 0};
    const SEQUENCE::InfoType info = {&SEQUENCE::create, 16, true,   infos, ids, 0, 2, 0,
                                     defaults,          0,  nullptr};
    SEQUENCE seq(&info);
    EXPECT_FALSE(seq.hasOptionalField(0));
    EXPECT_TRUE(seq.hasOptionalField(1));
    EXPECT_NE(nullptr, seq.getField(1));
}

// A presence map past 64 bits leaves the object's own storage: the bits set before stay, the new
// ones start clear, and copies and swaps carry the longer map whole.
TEST(Sequence, LongPresenceMapsKeepTheirBitsThroughGrowthCopyAndSwap) {
    SEQUENCE a(&extsInfo);
    a.includeOptionalField(0, 0);
    a.includeOptionalField(100, 1);
    EXPECT_EQ(101u, a.extensionMap().size());
    EXPECT_TRUE(a.hasOptionalField(0));
    EXPECT_FALSE(a.hasOptionalField(64));
    EXPECT_TRUE(a.hasOptionalField(100));
    std::unique_ptr<SEQUENCE> copy(a.clone());
    SEQUENCE b(&extsInfo);
    b.swap(*copy);
    EXPECT_FALSE(copy->hasOptionalField(100));
    b.removeOptionalField(100);
    EXPECT_FALSE(b.hasOptionalField(100));
    EXPECT_TRUE(b.hasOptionalField(0));
    EXPECT_TRUE(a.hasOptionalField(100)); // the copy's bits are its own
    *copy = a;
    EXPECT_TRUE(copy->hasOptionalField(100));
    EXPECT_EQ(encodeHex(a), encodeHex(*copy));
}

TEST(Sequence, ComparisonStopsAtRootDifferencesButMasksExtensionOnes) {
    SEQUENCE x(&extsInfo), y(&extsInfo);
    static_cast<INTEGER&>(*x.includeOptionalField(0, 0)) = 1;
    static_cast<INTEGER&>(*y.includeOptionalField(0, 0)) = 2;
    static_cast<INTEGER&>(*x.includeOptionalField(1, 1)) = 9;
    static_cast<INTEGER&>(*y.includeOptionalField(1, 1)) = 9;
    EXPECT_EQ(0, x.compare(y)); // deliberately, only the last extension counts
    static_cast<INTEGER&>(*y.getField(1)) = 10;
    EXPECT_LT(x.compare(y), 0);

    SEQUENCE p(&recInfo), q(&recInfo);
    static_cast<INTEGER&>(*p.getField(0)) = 1;
    static_cast<INTEGER&>(*q.getField(0)) = 2;
    static_cast<AbstractString&>(*p.includeOptionalField(1, 2)) = "z";
    EXPECT_LT(p.compare(q), 0); // the root difference wins
    static_cast<INTEGER&>(*q.getField(0)) = 1;
    EXPECT_EQ(0, p.compare(q)); // c present only here, masked by d absent on both sides
    p.includeOptionalField(2, 3);
    EXPECT_EQ(1, p.compare(q));
    static_cast<BOOLEAN&>(*q.includeOptionalField(0, 1)) = false;
    EXPECT_EQ(-1, p.compare(q));
}

TEST(Sequence, CopiesAreDeepAndKeepTheExtensions) {
    SEQUENCE a(&recInfo);
    static_cast<AbstractString&>(*a.includeOptionalField(1, 2)) = "x";
    std::unique_ptr<SEQUENCE> copy(a.clone());
    EXPECT_TRUE(copy->hasOptionalField(1));
    EXPECT_NE(copy->getField(2), a.getField(2));
    EXPECT_EQ(encodeHex(a), encodeHex(*copy));
    SEQUENCE b(&recInfo), c(&recInfo);
    b = a;
    c.swap(b);
    EXPECT_EQ(encodeHex(a), encodeHex(c));
    EXPECT_EQ(nullptr, b.getField(2));
}

TEST(SequenceOf, ResizeInsertEraseOwnTheirElements) {
    SEQUENCE_OF<Int0to255, SizeConstraint<2u, 0, 8u>> list, other;
    list.resize(2);
    list[0] = 1;
    list[1] = 2;
    list.insert(list.begin() + 1, 2, Int0to255(9));
    other.insert(other.begin(), list.begin() + 2, list.end());
    list.erase(list.begin(), list.begin() + 3);
    list.push_back(new Int0to255(4));
    list.push_back(Int0to255(5));
    EXPECT_EQ("{\n  2,\n  4,\n  5\n}", list.asValueNotation());
    EXPECT_EQ("{\n  9,\n  2\n}", other.asValueNotation());
    EXPECT_LT(list.compare(other), 0); // 2 < 9
    other.clear();
    EXPECT_GT(list.compare(other), 0); // longer
    std::unique_ptr<AbstractData> clone(list.clone());
    EXPECT_EQ(0, clone->compare(list));
}

TEST(Compare, ScalarsBytesObjectIdentifiersAndOpenData) {
    // The difference wraps around in 32 bits.
    EXPECT_EQ(INT_MIN, INTEGER(INT_MAX, &INTEGER::theInfo).compare(INTEGER(-1, &INTEGER::theInfo)));
    EXPECT_EQ(-6, OBJECT_IDENTIFIER({1, 2, 3}).compare(OBJECT_IDENTIFIER({1, 2, 9})));
    EXPECT_EQ(-1, OBJECT_IDENTIFIER({1, 2}).compare(OBJECT_IDENTIFIER({1, 2, 0})));
    const char high[] = "\x80", low[] = "\x01", abc[] = "abc";
    EXPECT_EQ(-1, lexicographic_compare_bytes(high, high + 1, low, low + 1)); // signed chars
    EXPECT_EQ(-1, lexicographic_compare_bytes(abc, abc + 2, abc, abc + 3));
    OpenData withData(new Int0to255(3), &OpenData::theInfo), withBuf;
    withBuf.grab(new std::vector<char>(1, 'a'));
    EXPECT_EQ(1, withData.compare(withBuf)); // a value sorts after bare octets
}

TEST(Kinds, NamesAndObjectIdentifierContents) {
    ENUMERATED colour(&colourInfo);
    EXPECT_TRUE(colour.setFromName("blue"));
    EXPECT_EQ(2, colour.asInt());
    colour.setFromInt(3);
    EXPECT_EQ(nullptr, colour.getName());
    const IntegerWithNamedNumber::NameEntry entries[] = {{-1, "minus"}, {4, "four"}};
    const IntegerWithNamedNumber::InfoType info = {
        &IntegerWithNamedNumber::create, 2, Unconstrained, INT_MIN, 0x7FFFFFFF, entries, 2};
    IntegerWithNamedNumber n(4, &info);
    EXPECT_EQ("four", n.asValueNotation());
    EXPECT_TRUE(n.setFromName("minus"));
    EXPECT_EQ(-1, n.getValue());

    OctetBuffer octets;
    OBJECT_IDENTIFIER({2, 100, 3}).encodeCommon(octets);
    EXPECT_EQ("813403", Hex(octets)); // X.690 8.19.5: 2*40 + 100 = 180
    BIT_STRING bits;
    bits.resize(10);
    bits.set(9);
    bits.set(10); // ignored
    EXPECT_EQ("0040", Hex(bits.getData()));
}

TEST(Printing, StreamStateAndUnprintableValues) {
    std::ostringstream os;
    os << OCTET_STRING(fromHex("0aff")) << ' ' << 255 << '|';
    os.width(3);
    os << 7;
    EXPECT_EQ("'0a ff'H 255|  7", os.str()); // the stream's format is restored
    CHOICE pick(&choice3Info);
    EXPECT_EQ(4, pick.print_on(os)); // nothing selected
    os << pick;
    EXPECT_FALSE(os.good());
    Int0to7 outOfRange;
    static_cast<INTEGER&>(outOfRange) = -1;
    EXPECT_EQ("4294967295", outOfRange.asValueNotation()); // non-negative range: unsigned
}

TEST(GeneralizedTimeText, ReadsAndWritesItsForms) {
    // The offset is read as its digits and written as minutes split into hours and minutes.
    EXPECT_EQ("20240102030405+0210", GeneralizedTime("20240102030405+0130").get());
    EXPECT_EQ("20240102030405.250", GeneralizedTime("20240102030405.25").get());
    GeneralizedTime t;
    t.set_time_t(GeneralizedTime(2024, 2, 29, 23, 59, 59).get_time_t());
    EXPECT_EQ("20240229235959Z", t.get());
}

} // namespace
