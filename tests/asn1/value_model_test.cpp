// The value model: CHOICE selection, SEQUENCE optional and extension fields, comparison (including
// the masked extension comparison), copying, the typed templates and GeneralizedTime text.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

using namespace asn1test;

namespace {

// Descriptors are plain aggregates that generated modules initialise as constants.
template <class Info> constexpr bool isPlainDescriptor() {
    return std::is_aggregate<Info>::value && std::is_standard_layout<Info>::value &&
           std::is_trivially_copyable<Info>::value;
}
static_assert(isPlainDescriptor<Null::InfoType>() && isPlainDescriptor<INTEGER::InfoType>() &&
                  isPlainDescriptor<IntegerWithNamedNumber::InfoType>() &&
                  isPlainDescriptor<ENUMERATED::InfoType>() &&
                  isPlainDescriptor<AbstractString::InfoType>() &&
                  isPlainDescriptor<BMPString::InfoType>() &&
                  isPlainDescriptor<CHOICE::InfoType>() &&
                  isPlainDescriptor<SEQUENCE::InfoType>() &&
                  isPlainDescriptor<SEQUENCE_OF_Base::InfoType>() &&
                  isPlainDescriptor<TypeConstrainedOpenData::InfoType>(),
              "descriptor records must stay plain aggregates");
constexpr SEQUENCE::InfoType constantSequence = {
    &SEQUENCE::create, 16, true, nullptr, nullptr, 0, 0, 0, nullptr, 0, nullptr};
static_assert(constantSequence.create == &SEQUENCE::create, "constant-initialised");

TEST(Choice, SelectKeepsTheCurrentValueAndRefusesUnknownIds) {
    CHOICE pick(&choice3Info);
    EXPECT_EQ(-1, pick.currentSelection());
    ASSERT_TRUE(pick.select(0));
    AbstractData* first = pick.getSelection();
    static_cast<INTEGER&>(*first) = 17;
    EXPECT_TRUE(pick.select(0));
    EXPECT_EQ(first, pick.getSelection());
    EXPECT_EQ(17, static_cast<INTEGER&>(*pick.getSelection()).getValue());
    EXPECT_STREQ("n", pick.getSelectionName());

    EXPECT_FALSE(pick.select(3));
    EXPECT_EQ(-2, pick.currentSelection());
    EXPECT_TRUE(pick.isUnknownSelection());
    EXPECT_EQ(nullptr, pick.getSelection());
    EXPECT_TRUE(pick.select(2)); // recovers through select
    EXPECT_FALSE(pick.isUnknownSelection());
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
    CHOICE none(&choice3Info);
    EXPECT_EQ(-1, none.compare(a));
    a = b;
    EXPECT_EQ(1, a.currentSelection());
    a.swap(none);
    EXPECT_EQ(-1, a.currentSelection());
    EXPECT_EQ(1, none.currentSelection());
}

TEST(Sequence, ConstructionCreatesOnlyMandatoryFields) {
    SEQUENCE rec(&recInfo);
    EXPECT_NE(nullptr, rec.getField(0));
    EXPECT_EQ(nullptr, rec.getField(1));
    EXPECT_EQ(nullptr, rec.getField(2));
    EXPECT_EQ(1u, rec.optionalMap().size());
    EXPECT_EQ(0u, rec.extensionMap().size());
    EXPECT_FALSE(rec.hasOptionalField(0));
    EXPECT_FALSE(rec.hasOptionalField(5)); // beyond the extension map
}

TEST(Sequence, DefaultExtensionsPresetTheMap) {
    const char defaults[] = {0, 1};
    const void* const infos[] = {&Int0to255::theInfo, &Int0to255::theInfo};
    const int ids[] = {0, 0};
    const char* const names[] = {"e1", "e2"};
    const SEQUENCE::InfoType info = {&SEQUENCE::create, 16, true, infos, ids, 0, 2, 0,
                                     defaults,          0,  names};
    SEQUENCE seq(&info);
    EXPECT_EQ(2u, seq.extensionMap().size());
    EXPECT_FALSE(seq.hasOptionalField(0));
    EXPECT_TRUE(seq.hasOptionalField(1));
    EXPECT_EQ(nullptr, seq.getField(0));
    EXPECT_NE(nullptr, seq.getField(1));
}

TEST(Sequence, RemovedFieldKeepsItsValueForTheNextInclude) {
    SEQUENCE rec(&recInfo);
    AbstractData* b = rec.includeOptionalField(0, 1);
    static_cast<BOOLEAN&>(*b) = true;
    rec.removeOptionalField(0);
    EXPECT_FALSE(rec.hasOptionalField(0));
    EXPECT_EQ(b, rec.getField(1));
    EXPECT_EQ(b, rec.includeOptionalField(0, 1));
    EXPECT_TRUE(static_cast<BOOLEAN&>(*b));

    // An extension index grows the extension map to reach it.
    rec.includeOptionalField(2, 3);
    EXPECT_EQ(2u, rec.extensionMap().size());
    EXPECT_FALSE(rec.hasOptionalField(1));
    EXPECT_TRUE(rec.hasOptionalField(2));
    rec.removeOptionalField(2);
    EXPECT_FALSE(rec.hasOptionalField(2));
    EXPECT_EQ(2u, rec.extensionMap().size());
}

TEST(Sequence, ComparisonStopsAtRootDifferencesButMasksExtensionOnes) {
    SEQUENCE x(&extsInfo);
    SEQUENCE y(&extsInfo);
    static_cast<INTEGER&>(*x.includeOptionalField(0, 0)) = 1;
    static_cast<INTEGER&>(*y.includeOptionalField(0, 0)) = 2;
    static_cast<INTEGER&>(*x.includeOptionalField(1, 1)) = 9;
    static_cast<INTEGER&>(*y.includeOptionalField(1, 1)) = 9;
    // They differ in the first extension and agree in the last: reported equal, by design of the
    // comparison.
    EXPECT_EQ(0, x.compare(y));
    static_cast<INTEGER&>(*y.getField(1)) = 10;
    EXPECT_LT(x.compare(y), 0);

    SEQUENCE p(&recInfo);
    SEQUENCE q(&recInfo);
    static_cast<INTEGER&>(*p.getField(0)) = 1;
    static_cast<INTEGER&>(*q.getField(0)) = 2;
    static_cast<AbstractString&>(*p.includeOptionalField(1, 2)) = "z";
    EXPECT_LT(p.compare(q), 0); // the root difference wins
    static_cast<INTEGER&>(*q.getField(0)) = 1;
    EXPECT_EQ(0, p.compare(q)); // c present only here, masked by d absent on both sides
    p.includeOptionalField(2, 3);
    EXPECT_EQ(1, p.compare(q)); // d present only here
    static_cast<BOOLEAN&>(*q.includeOptionalField(0, 1)) = false;
    EXPECT_EQ(-1, p.compare(q)); // b present only there
}

TEST(Sequence, CopyAssignAndSwapAreDeep) {
    SEQUENCE a(&recInfo);
    static_cast<INTEGER&>(*a.getField(0)) = 3;
    static_cast<AbstractString&>(*a.includeOptionalField(1, 2)) = "x";
    std::unique_ptr<SEQUENCE> copy(a.clone());
    EXPECT_EQ(0, copy->compare(a));
    EXPECT_NE(copy->getField(2), a.getField(2));
    SEQUENCE b(&recInfo);
    b = a;
    EXPECT_EQ(0, b.compare(a));
    SEQUENCE c(&recInfo);
    c.swap(b);
    EXPECT_EQ(0, c.compare(a));
    EXPECT_EQ(nullptr, b.getField(2));
}

TEST(SequenceOf, ResizeInsertEraseOwnTheirElements) {
    SEQUENCE_OF<Int0to255, SizeConstraint<2u, 0, 8u>> list;
    list.resize(2);
    list[0] = 1;
    list[1] = 2;
    Int0to255 nine(9);
    list.insert(list.begin() + 1, 2, nine);
    EXPECT_EQ("{\n  1,\n  9,\n  9,\n  2\n}", list.asValueNotation());
    SEQUENCE_OF<Int0to255, SizeConstraint<2u, 0, 8u>> other;
    other.insert(other.begin(), list.begin() + 2, list.end());
    EXPECT_EQ(2u, other.size());
    list.erase(list.begin(), list.begin() + 3);
    EXPECT_EQ(1u, list.size());
    EXPECT_EQ(2, list[0].getValue());
    list.push_back(new Int0to255(4));
    list.push_back(Int0to255(5));
    list.resize(2);
    EXPECT_EQ(2u, list.size());
    EXPECT_LT(list.compare(other), 0); // 2 < 9
    other.clear();
    EXPECT_GT(list.compare(other), 0); // longer
    std::unique_ptr<SEQUENCE_OF<Int0to255, SizeConstraint<2u, 0, 8u>>> clone(list.clone());
    EXPECT_EQ(0, clone->compare(list));
    const Int0to255& element = (*clone)[0];
    EXPECT_EQ(typeid(Int0to255), typeid(element));
}

TEST(Compare, LexicographicBytes) {
    const char ab[] = "ab";
    const char abc[] = "abc";
    const char high[] = "\x80";
    const char low[] = "\x01";
    EXPECT_EQ(-1, lexicographic_compare_bytes(ab, ab + 2, abc, abc + 3));
    EXPECT_EQ(1, lexicographic_compare_bytes(abc, abc + 3, ab, ab + 2));
    EXPECT_EQ(0, lexicographic_compare_bytes(ab, ab, abc, abc));
    EXPECT_EQ(-1, lexicographic_compare_bytes(high, high + 1, low, low + 1)); // 0x80 is negative
    EXPECT_EQ(0, lexicographic_compare_bytes(abc, abc + 3, abc, abc + 3));
}

TEST(Compare, ScalarsObjectIdentifiersAndOpenData) {
    EXPECT_EQ(0, Null().compare(Null()));
    EXPECT_EQ(1, BOOLEAN(true).compare(BOOLEAN(false)));
    INTEGER big(INT_MAX, &INTEGER::theInfo);
    INTEGER minusOne(-1, &INTEGER::theInfo);
    EXPECT_EQ(INT_MIN, big.compare(minusOne)); // 32-bit wrap-around of the difference
    EXPECT_EQ(-6, OBJECT_IDENTIFIER({1, 2, 3}).compare(OBJECT_IDENTIFIER({1, 2, 9})));
    EXPECT_EQ(-1, OBJECT_IDENTIFIER({1, 2}).compare(OBJECT_IDENTIFIER({1, 2, 0})));

    OpenData empty;
    OpenData withData(new Int0to255(3), &OpenData::theInfo);
    OpenData withBuf;
    withBuf.grab(new std::vector<char>(1, 'a'));
    EXPECT_EQ(0, empty.compare(OpenData()));
    EXPECT_EQ(1, withData.compare(withBuf));
    EXPECT_EQ(-1, withBuf.compare(withData));
    OpenData otherBuf(withBuf);
    EXPECT_EQ(0, otherBuf.compare(withBuf));
}

TEST(Kinds, EnumeratedNamesAndIntegerNamedNumbers) {
    ENUMERATED colour(&colourInfo);
    EXPECT_EQ(0, colour.asInt());
    EXPECT_STREQ("red", colour.getName());
    EXPECT_TRUE(colour.setFromName("blue"));
    EXPECT_EQ(2, colour.asInt());
    colour.setFromInt(3);
    EXPECT_EQ(nullptr, colour.getName());
    colour.setFromInt(-1);
    EXPECT_EQ(nullptr, colour.getName());

    const IntegerWithNamedNumber::NameEntry entries[] = {{-1, "minus"}, {4, "four"}, {9, "nine"}};
    const IntegerWithNamedNumber::InfoType info = {
        &IntegerWithNamedNumber::create, 2, Unconstrained, INT_MIN, 0x7FFFFFFF, entries, 3};
    IntegerWithNamedNumber n(4, &info);
    std::string name;
    EXPECT_TRUE(n.getName(name));
    EXPECT_EQ("four", name);
    n = 5;
    EXPECT_FALSE(n.getName(name));
    EXPECT_TRUE(n.setFromName("minus"));
    EXPECT_EQ(-1, n.getValue());
}

TEST(Kinds, ObjectIdentifierContentsOctets) {
    OBJECT_IDENTIFIER oid({2, 100, 3});
    std::vector<char> octets;
    oid.encodeCommon(octets);
    EXPECT_EQ("813403", Hex(octets)); // X.690 8.19.5: 2*40 + 100 = 180
    OBJECT_IDENTIFIER back;
    ASSERT_TRUE(back.decodeCommon(octets.data(), static_cast<unsigned>(octets.size())));
    EXPECT_EQ(0, back.compare(oid));
    OBJECT_IDENTIFIER single({1});
    single.encodeCommon(octets);
    EXPECT_TRUE(octets.empty());
}

TEST(Kinds, BitStringBitsAreMostSignificantFirst) {
    BIT_STRING bits;
    bits.resize(10);
    bits.set(0);
    bits.set(9);
    bits.set(10); // ignored
    EXPECT_EQ("8040", Hex(bits.getData()));
    EXPECT_TRUE(bits[9]);
    EXPECT_FALSE(bits[10]);
    bits.clear(0);
    EXPECT_FALSE(bits[0]);
}

TEST(Kinds, TypedOpenDataStartsWithItsValue) {
    Constrained_OpenData<Int0to255> open;
    ASSERT_TRUE(open.has_data());
    const Int0to255& contained = open.get_data();
    EXPECT_EQ(typeid(Int0to255), typeid(contained));
    std::unique_ptr<AbstractData> created(
        AbstractData::create(&Constrained_OpenData<Int0to255>::theInfo));
    const AbstractData& made = *created;
    EXPECT_EQ(typeid(Constrained_OpenData<Int0to255>), typeid(made));
    EXPECT_EQ(nullptr, AbstractData::create(nullptr));
}

TEST(GeneralizedTimeText, ReadsAndWritesItsForms) {
    GeneralizedTime utc("20240102030405Z");
    EXPECT_TRUE(utc.getUtc());
    EXPECT_EQ(0, utc.getMillisec());
    EXPECT_EQ(0, utc.getMindiff());
    EXPECT_EQ(2024, utc.getYear());
    EXPECT_EQ(5, utc.getSecond());
    EXPECT_EQ("20240102030405Z", utc.get());

    GeneralizedTime fraction("20240102030405.25");
    EXPECT_EQ(250, fraction.getMillisec());
    EXPECT_EQ("20240102030405.250", fraction.get());

    // The offset is read as its digits and written as minutes split into hours and minutes.
    GeneralizedTime offset("20240102030405+0130");
    EXPECT_EQ(130, offset.getMindiff());
    EXPECT_EQ("20240102030405+0210", offset.get());

    GeneralizedTime t;
    t.set_time_t(86400L * 365 + 3661);
    EXPECT_EQ("19710101010101Z", t.get());
    EXPECT_EQ(86400L * 365 + 3661, t.get_time_t());
    GeneralizedTime leap(2024, 2, 29, 23, 59, 59);
    GeneralizedTime back;
    back.set_time_t(leap.get_time_t());
    EXPECT_EQ("20240229235959Z", back.get());
}

} // namespace
