// Aligned PER vectors: {value, expected octets} rows for every kind, the length boundaries, each of
// the codec's departures from X.691 (rows marked "departure"), the X.691 A.2 worked example, and
// encode -> decode -> compare round trips.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

using namespace asn1test;

namespace {

typedef std::unique_ptr<AbstractData> Value;

template <class T> T& field(AbstractData& seq, unsigned i) {
    return static_cast<T&>(*static_cast<SEQUENCE&>(seq).getField(i));
}

struct Row {
    const char* what;
    std::function<Value()> make;
    const char* hex; // expected aligned encoding, blanks for readability
    bool roundTrip;  // decoding the octets gives back an equal value
};

template <class T> std::function<Value()> number(int v) {
    return [v] {
        T* t = new T;
        static_cast<INTEGER&>(*t) = v;
        return Value(t);
    };
}

std::function<Value()> octets(const ConstrainedObject::InfoType* info, const std::string& hex) {
    return [info, hex] { return Value(new OCTET_STRING(fromHex(hex), info)); };
}

std::function<Value()> bits(const ConstrainedObject::InfoType* info, const char* pattern) {
    return [info, pattern] {
        BIT_STRING* b = new BIT_STRING(info);
        b->resize(static_cast<unsigned>(std::strlen(pattern)));
        for (unsigned i = 0; pattern[i]; ++i)
            if (pattern[i] == '1')
                b->set(i);
        return Value(b);
    };
}

template <class S> std::function<Value()> text(const char* s) {
    return [s] { return Value(new S(s)); };
}

std::function<Value()> textWith(const AbstractString::InfoType* info, const char* s) {
    return [info, s] { return Value(new AbstractString(info, s)); };
}

std::function<Value()> colour(const ENUMERATED::InfoType* info, int v) {
    return [info, v] {
        ENUMERATED* e = new ENUMERATED(info);
        e->setFromInt(v);
        return Value(e);
    };
}

std::function<Value()> choice(const CHOICE::InfoType* info, int id,
                              std::function<void(AbstractData&)> fill) {
    return [info, id, fill] {
        CHOICE* c = new CHOICE(info);
        c->select(id);
        fill(*c->getSelection());
        return Value(c);
    };
}

std::function<Value()> rec(int a, int b, const char* c, bool d) {
    return [=] {
        SEQUENCE* s = new SEQUENCE(&recInfo);
        field<INTEGER>(*s, 0) = a;
        if (b >= 0)
            static_cast<BOOLEAN&>(*s->includeOptionalField(0, 1)) = b != 0;
        if (c != nullptr)
            static_cast<AbstractString&>(*s->includeOptionalField(1, 2)) = c;
        if (d)
            s->includeOptionalField(2, 3);
        return Value(s);
    };
}

typedef Constrained_OCTET_STRING<SizeConstraint<2u, 0, 7u>> Octets0to7;
typedef Constrained_OCTET_STRING<SizeConstraint<2u, 2, 2u>> Octets2;
typedef Constrained_OCTET_STRING<SizeConstraint<2u, 0, 65535u>> Octets0to64K;
typedef Constrained_BIT_STRING<SizeConstraint<2u, 0, 31u>> Bits0to31;
typedef Constrained_IA5String<SizeConstraint<2u, 1, 128u>> IA5to128;
typedef Constrained_IA5String<SizeConstraint<2u, 1, 1u>> IA5One;
typedef Constrained_NumericString<SizeConstraint<2u, 1, 16u>> Digits16;
typedef Constrained_BMPString<SizeConstraint<2u, 1, 128u>> BMP128;
typedef SEQUENCE_OF<Int0to255, SizeConstraint<2u, 1, 4u>> Bytes1to4;

const Row rows[] = {
    {"NULL", [] { return Value(new Null); }, "", true},
    {"BOOLEAN TRUE", [] { return Value(new BOOLEAN(true)); }, "80", true},
    {"BOOLEAN FALSE", [] { return Value(new BOOLEAN(false)); }, "00", true},

    // X.691 12: INTEGER.
    {"INTEGER 0", number<INTEGER>(0), "01 00", true},
    {"INTEGER 127", number<INTEGER>(127), "01 7f", true},
    {"INTEGER 128", number<INTEGER>(128), "02 0080", true},
    {"INTEGER -128", number<INTEGER>(-128), "01 80", true},
    {"INTEGER 65535", number<INTEGER>(65535), "03 00ffff", true},
    {"INTEGER -129 (departure: one octet too few)", number<INTEGER>(-129), "01 7f", false},
    {"INTEGER -1 (departure: no octets)", number<INTEGER>(-1), "00", false},
    {"INTEGER (0..7) 5", number<Int0to7>(5), "a0", true},
    {"INTEGER (0..255) 255", number<Int0to255>(255), "ff", true},
    {"INTEGER (1..65535) 1", number<Int1to65535>(1), "0000", true},
    {"INTEGER (1..65535) 257", number<Int1to65535>(257), "0100", true},
    {"INTEGER (0..4294967295) 256", number<Int0to4G>(256), "40 0100", true},
    {"INTEGER (0..4294967295) 0", number<Int0to4G>(0), "00 00", true},
    {"INTEGER (-5..5) -5", number<IntMinus5to5>(-5), "00", true},
    {"INTEGER (-5..5) 5", number<IntMinus5to5>(5), "a0", true},
    {"INTEGER (3..3)", number<Int3to3>(3), "", true},
    {"INTEGER (0..7, ...) 5", number<Int0to7Ext>(5), "50", true},
    {"INTEGER (0..7, ...) 9", number<Int0to7Ext>(9), "80 01 09", true},
    {"INTEGER (10..MAX) 300 (departure: no offset)", number<IntFrom10>(300), "02 012c", true},

    // X.691 13: ENUMERATED.
    {"ENUMERATED green", colour(&colourInfo, 1), "40", true},
    {"ENUMERATED {..., ...} green", colour(&colourExtInfo, 1), "20", true},
    {"ENUMERATED {..., ...} 5 (departure: own extension form)", colour(&colourExtInfo, 5), "86 a0",
     true},

    // X.691 24 with X.690 8.19 contents.
    {"OBJECT IDENTIFIER {0 0 8 2250 0 4} (departure: 0..255 length)",
     [] {
         return Value(new OBJECT_IDENTIFIER({0, 0, 8, 2250, 0, 4}));
     },
     "06 0008914a0004", false},

    // X.691 17: OCTET STRING.
    {"OCTET STRING empty", octets(&OCTET_STRING::theInfo, ""), "00", true},
    {"OCTET STRING 1", octets(&OCTET_STRING::theInfo, "ab"), "01 ab", true},
    {"OCTET STRING 3", octets(&OCTET_STRING::theInfo, "010203"), "03 010203", true},
    {"OCTET STRING (SIZE (2))", octets(&Octets2::theInfo, "abcd"), "abcd", true},
    {"OCTET STRING (SIZE (0..7)) 2 octets (departure: not aligned)",
     octets(&Octets0to7::theInfo, "abcd"), "55 79 a0", true},
    {"OCTET STRING (SIZE (0..7)) 3 octets", octets(&Octets0to7::theInfo, "010203"), "60 010203",
     true},
    {"OCTET STRING (SIZE (0..65535)) 2 octets", octets(&Octets0to64K::theInfo, "abcd"), "0002 abcd",
     true},

    // X.691 16: BIT STRING.
    {"BIT STRING 1010", bits(&BIT_STRING::theInfo, "1010"), "04 a0", true},
    {"BIT STRING 20 bits", bits(&BIT_STRING::theInfo, "10101010111111110001"), "14 aaff10", true},
    {"BIT STRING (SIZE (0..31)) 12 bits (departure: not aligned)",
     bits(&Bits0to31::theInfo, "101010111100"), "65 5e 00", true},

    // X.691 30: known-multiplier character strings.
    {"IA5String abc", text<IA5String>("abc"), "03 616263", true},
    {"IA5String (SIZE (1..128)) abc", text<IA5to128>("abc"), "04 616263", true},
    {"IA5String (SIZE (1)) x", text<IA5One>("x"), "78", true},
    {"PrintableString Hi", text<PrintableString>("Hi"), "02 4869", true},
    {"VisibleString empty", text<VisibleString>(""), "00", true},
    {"NumericString (SIZE (1..16)) 0129", text<Digits16>("0129"), "30 123a", true},
    {"IA5String FROM (0-9#*,) 12#", textWith(&dialedDigitsInfo, "12#"), "04 4500", true},
    {"BMPString Hi", [] { return Value(new BMPString(L"Hi")); }, "02 00480069", true},
    {"BMPString (SIZE (1..128)) A", [] { return Value(new BMP128(L"A")); }, "00 0041", true},
    {"GeneralizedTime (departure: never decodes)",
     [] { return Value(new GeneralizedTime(2024, 1, 2, 3, 4, 5, 0, 0, true)); },
     "0f 3230323430313032303330343035 5a", false},

    // X.691 23: CHOICE.
    {"CHOICE flag TRUE",
     choice(&choice3Info, 1, [](AbstractData& v) { static_cast<BOOLEAN&>(v) = true; }), "60", true},
    {"CHOICE none", choice(&choice3Info, 2, [](AbstractData&) {}), "80", true},
    {"CHOICE {..., ...} n 5",
     choice(&choiceExtInfo, 0, [](AbstractData& v) { static_cast<INTEGER&>(v) = 5; }), "00 05",
     true},
    {"CHOICE {..., ...} extension flag TRUE",
     choice(&choiceExtInfo, 2, [](AbstractData& v) { static_cast<BOOLEAN&>(v) = true; }),
     "80 01 80", true},

    // X.691 18/19: SEQUENCE and SEQUENCE OF.
    {"SEQUENCE a 5", rec(5, -1, nullptr, false), "00 05", true},
    {"SEQUENCE a 5 b TRUE", rec(5, 1, nullptr, false), "40 05 80", true},
    {"SEQUENCE extension c", rec(5, -1, "hi", false), "80 05 01 03 026869", true},
    {"SEQUENCE extensions c and empty d", rec(5, -1, "hi", true), "80 05 03 80 03 026869 01 00",
     true},
    {"SEQUENCE OF (SIZE (1..4)) {1, 2}",
     [] {
         Bytes1to4* s = new Bytes1to4;
         s->resize(2);
         (*s)[0] = 1;
         (*s)[1] = 2;
         return Value(s);
     },
     "40 0102", true},
    {"SEQUENCE OF empty", [] { return Value(new SEQUENCE_OF<Null>); }, "00", true},

    // X.691 10.2: open types.
    {"open type holding INTEGER (0..255) 7",
     [] { return Value(new OpenData(new Int0to255(7), &OpenData::theInfo)); }, "01 07", false},
    {"open type holding only octets (written empty)",
     [] {
         OpenData* o = new OpenData;
         o->grab(new std::vector<char>(fromHex("0102")));
         return Value(o);
     },
     "01 00", false},
};

class PerVector : public ::testing::TestWithParam<Row> {};

TEST_P(PerVector, EncodesToExpectedOctets) {
    const Row& row = GetParam();
    Value value = row.make();
    EXPECT_EQ(stripBlanks(row.hex), encodeHex(*value)) << row.what;
}

// Rows marked as not round-tripping must really not: the departure is visible on the way back.
TEST_P(PerVector, DecodesBack) {
    const Row& row = GetParam();
    Value value = row.make();
    Value decoded(AbstractData::create(value->getInfo()));
    const bool ok = decodeHex(row.hex, *decoded);
    if (!row.roundTrip) {
        EXPECT_FALSE(ok && decoded->compare(*value) == 0) << row.what;
        return;
    }
    ASSERT_TRUE(ok) << row.what;
    EXPECT_EQ(0, decoded->compare(*value)) << row.what << "\ndecoded: " << *decoded;
    EXPECT_EQ(stripBlanks(row.hex), encodeHex(*decoded)) << row.what;
}

INSTANTIATE_TEST_SUITE_P(Kinds, PerVector, ::testing::ValuesIn(rows));

// --- Primitives at their boundaries -------------------------------------------------------------
TEST(PerPrimitive, LengthsAndWholeNumbersAtTheirBoundaries) {
    enum Kind { kLength, kConstrained, kSmall };
    const struct {
        Kind kind;
        unsigned value, lower, upper;
        const char* hex;
    } rows[] = {
        // X.691 10.9.3.6 / 10.9.3.7: an unconstrained length is one octet up to 127, two octets
        // 10xxxxxx up to 16383.
        {kLength, 0, 0, 0x7FFFFFFF, "00"},
        {kLength, 127, 0, 0x7FFFFFFF, "7f"},
        {kLength, 128, 0, 0x7FFFFFFF, "8080"},
        {kLength, 200, 0, 0x7FFFFFFF, "80c8"},
        {kLength, 8191, 0, 0x7FFFFFFF, "9fff"},
        // X.691 10.5.7: a constrained whole number is a bit-field below a range of 256, one
        // aligned octet for 256, two up to 64K, else a length-prefixed octet count.
        {kConstrained, 3, 0, 7, "60"},
        {kConstrained, 255, 0, 255, "ff"},
        {kConstrained, 1, 0, 256, "0001"},
        {kConstrained, 256, 0, 65535, "0100"},
        {kConstrained, 0x10000, 0, 0xFFFFFFFF, "80010000"},
        {kConstrained, 0xFFFFFFFF, 0, 0xFFFFFFFF, "c0ffffffff"},
        {kConstrained, 9, 9, 9, ""},
        // X.691 10.6: a small non-negative whole number is six bits up to 63, then
        // length-prefixed.
        {kSmall, 5, 0, 0, "0a"},
        {kSmall, 63, 0, 0, "7e"},
        {kSmall, 64, 0, 0, "800140"},
        {kSmall, 300, 0, 0, "8002012c"},
    };
    for (const auto& row : rows) {
        std::vector<char> out;
        PEREncoder encoder(out, true);
        if (row.kind == kLength) {
            ASSERT_TRUE(encoder.encodeLength(row.value, row.lower, row.upper)) << row.value;
        } else if (row.kind == kConstrained) {
            ASSERT_TRUE(encoder.encodeUnsigned(row.value, row.lower, row.upper)) << row.value;
        } else {
            encoder.encodeSmallUnsigned(row.value);
        }
        EXPECT_EQ(row.hex, Hex(out)) << row.value;
        PERDecoder decoder(out.data(), out.data() + out.size());
        unsigned value = 0;
        const bool read =
            row.kind == kLength        ? decoder.decodeLength(row.lower, row.upper, value) == 0
            : row.kind == kConstrained ? decoder.decodeUnsigned(row.lower, row.upper, value) == 0
                                       : decoder.decodeSmallUnsigned(value);
        EXPECT_TRUE(read) << row.value;
        EXPECT_EQ(row.value, value);
    }
    std::vector<char> out;
    PEREncoder encoder(out, true);
    EXPECT_FALSE(encoder.encodeUnsigned(8, 0, 7));
}

// An open type is written in place with its length moved in front afterwards: a partial octet
// before it is padded, a long contents gets a two-octet length, and contents that fail to encode
// leave the output (and the bit position) as they were.
TEST(PerOpenType, LengthMovedInFrontOfContents) {
    std::vector<char> out;
    PEREncoder encoder(out, true);
    encoder.encodeSingleBit(true);
    Int0to255 seven;
    seven = 7;
    ASSERT_TRUE(encoder.encodeAnyType(&seven));
    encoder.encodeSingleBit(true);
    EXPECT_EQ("80010780", Hex(out));

    const OCTET_STRING longContents(200, 'Z');
    ASSERT_TRUE(encoder.encodeAnyType(&longContents));
    std::string expected = "80010780"
                           "80ca"
                           "80c8";
    for (int i = 0; i < 200; ++i)
        expected += "5a";
    EXPECT_EQ(expected, Hex(out));

    out.clear();
    encoder.byteAlign();
    encoder.encodeSingleBit(true);
    CHOICE unselected(&choice3Info);
    EXPECT_FALSE(encoder.encodeAnyType(&unselected));
    encoder.encodeSingleBit(true);
    EXPECT_EQ("c0", Hex(out));
}

TEST(PerLength, DecoderReadsUpTo16383AndRefusesFragments) {
    const std::vector<char> max = fromHex("bfff");
    PERDecoder decoder(max.data(), max.data() + max.size());
    unsigned length = 0;
    EXPECT_EQ(0, decoder.decodeLength(0, 0x7FFFFFFF, length));
    EXPECT_EQ(16383u, length);
    // 11xxxxxx announces a fragment (X.691 10.9.3.8): 16384 and above cannot be expressed.
    for (const char* hex : {"c0", "c1", "ff"}) {
        const std::vector<char> in = fromHex(hex);
        PERDecoder fragment(in.data(), in.data() + in.size());
        EXPECT_EQ(-1, fragment.decodeLength(0, 0x7FFFFFFF, length)) << hex;
    }
}

TEST(PerLength, StringsAtTheSizeLimits) {
    // 8191 octets is the longest unconstrained string the encoder can write; 16384 the longest
    // the decoder accepts (not expressible without fragments, so 16383 is).
    OCTET_STRING big(8191, 'x');
    const std::string hex = encodeHex(big);
    ASSERT_EQ("9fff", hex.substr(0, 4));
    OCTET_STRING back;
    ASSERT_TRUE(decodeHex(hex, back));
    EXPECT_EQ(0, back.compare(big));

    std::vector<char> max = fromHex("bfff");
    max.resize(2 + 16383, 'y');
    PERDecoder decoder(max.data(), max.data() + max.size());
    OCTET_STRING largest;
    EXPECT_TRUE(largest.accept(decoder));
    EXPECT_EQ(16383u, largest.size());
}

TEST(PerBits, MultiBitFieldsCrossByteBoundaries) {
    std::vector<char> out;
    PEREncoder encoder(out, true);
    encoder.encodeSingleBit(true);
    encoder.encodeMultiBit(0x1ABCD, 17);
    encoder.encodeMultiBit(0xFFFFFFFF, 32);
    encoder.encodeMultiBit(5, 3);
    EXPECT_EQ("eaf37fffffffe8", Hex(out));
    PERDecoder decoder(out.data(), out.data() + out.size());
    unsigned value = 0;
    EXPECT_TRUE(decoder.decodeSingleBit());
    ASSERT_TRUE(decoder.decodeMultiBit(17, value));
    EXPECT_EQ(0x1ABCDu, value);
    ASSERT_TRUE(decoder.decodeMultiBit(32, value));
    EXPECT_EQ(0xFFFFFFFFu, value);
    ASSERT_TRUE(decoder.decodeMultiBit(3, value));
    EXPECT_EQ(5u, value);
    EXPECT_EQ(3u, decoder.getBitsLeft());
    EXPECT_FALSE(decoder.decodeMultiBit(4, value));
    EXPECT_FALSE(decoder.decodeMultiBit(33, value));
}

TEST(PerUnaligned, NumbersAndCharactersAreNotPadded) {
    // X.691 10.5.7 (unaligned): a 0..65535 number is a plain 16-bit field; X.691 30.5.3: IA5String
    // characters take 7 bits each.
    std::vector<char> out;
    PEREncoder encoder(out, false);
    encoder.encodeSingleBit(true);
    ASSERT_TRUE(encoder.encodeUnsigned(300, 0, 65535));
    EXPECT_EQ("809600", Hex(out));
    PERDecoder decoder(out.data(), out.data() + out.size(), nullptr, false);
    unsigned value = 0;
    EXPECT_TRUE(decoder.decodeSingleBit());
    EXPECT_EQ(0, decoder.decodeUnsigned(0, 65535, value));
    EXPECT_EQ(300u, value);

    IA5String text("ab");
    PEREncoder textEncoder(out, false);
    ASSERT_TRUE(text.accept(textEncoder));
    EXPECT_EQ("02c388", Hex(out));
    IA5String back;
    PERDecoder textDecoder(out.data(), out.data() + out.size(), nullptr, false);
    ASSERT_TRUE(back.accept(textDecoder));
    EXPECT_EQ("ab", static_cast<const std::string&>(back));
}

// --- Departures read from input -----------------------------------------------------------------
TEST(PerDeparture, ObjectIdentifierEndingAtTheEndIsRefused) {
    OBJECT_IDENTIFIER oid;
    EXPECT_FALSE(decodeHex("06 0008914a0004", oid));
    ASSERT_TRUE(decodeHex("06 0008914a0004 00", oid));
    EXPECT_EQ(0, oid.compare(OBJECT_IDENTIFIER({0, 0, 8, 2250, 0, 4})));
}

TEST(PerDeparture, GeneralizedTimeNeverDecodes) {
    GeneralizedTime t;
    EXPECT_FALSE(decodeHex("0f 3230323430313032303330343035 5a", t));
    EXPECT_FALSE(decodeHex("", t));
}

TEST(PerDeparture, ExtendableIntegerOutsideRootIsRawAndUnsigned) {
    // 0xFF read back as 255 (no sign extension outside the root); an unconstrained one is -1.
    Int0to7Ext ext;
    ASSERT_TRUE(decodeHex("80 01 ff", ext));
    EXPECT_EQ(255, ext.getValue());
    INTEGER plain;
    ASSERT_TRUE(decodeHex("01 ff", plain));
    EXPECT_EQ(-1, plain.getValue());
}

TEST(PerDeparture, TruncatedConstrainedIntegerTakesItsLowerBound) {
    Int1to65535 n;
    n = 99;
    EXPECT_TRUE(decodeHex("", n));
    EXPECT_EQ(1, n.getValue());
}

TEST(PerDeparture, UnknownExtensionsAreSkippedAndOnlyTheirBitsKept) {
    // Three extension bits, the third unknown to this module: its octets (ff) are skipped.
    SEQUENCE seq(&recInfo);
    ASSERT_TRUE(decodeHex("80 05 05c0 03026869 0100 01ff 00", seq));
    EXPECT_EQ(3u, seq.extensionMap().size());
    EXPECT_EQ("\"hi\"", seq.getField(2)->asValueNotation());
    // Re-encoded with the unknown bit set but without its octets.
    EXPECT_EQ("800505c0030268690100", encodeHex(seq));
    // The same extension ending exactly at the end of the input fails.
    SEQUENCE last(&recInfo);
    EXPECT_FALSE(decodeHex("80 05 05c0 03026869 0100 01ff", last));
}

TEST(PerDeparture, KnownExtensionPositionJumpsToTheEndOfItsOpenType) {
    // Extension e1 claims 3 octets but its INTEGER (0..255) uses one; e2 follows the 3 octets.
    SEQUENCE seq(&extsInfo);
    ASSERT_TRUE(decodeHex("81 c0 03 07ffff 01 09", seq));
    EXPECT_EQ(7, static_cast<INTEGER&>(*seq.getField(0)).getValue());
    EXPECT_EQ(9, static_cast<INTEGER&>(*seq.getField(1)).getValue());
}

TEST(PerDeparture, ExtensionAlternativeJumpsToTheEndOfItsOpenType) {
    // flag TRUE in a two-octet open type, then a second CHOICE with the root alternative n 7.
    CHOICE first(&choiceExtInfo);
    const std::vector<char> in = fromHex("80 02 80ff 00 07");
    PERDecoder decoder(in.data(), in.data() + in.size());
    ASSERT_TRUE(first.accept(decoder));
    EXPECT_EQ(2, first.currentSelection());
    CHOICE second(&choiceExtInfo);
    ASSERT_TRUE(second.accept(decoder));
    EXPECT_EQ("n : 7", second.asValueNotation());
}

TEST(PerDeparture, ExtensionMapIsWrittenWheneverItHasBits) {
    // An extension included and removed again leaves a one-bit map with nothing set: the
    // extension bit says "none", yet the map follows it (the decoder leaves it unread).
    SEQUENCE rec(&recInfo);
    static_cast<INTEGER&>(*rec.getField(0)) = 5;
    rec.includeOptionalField(1, 2);
    rec.removeOptionalField(1);
    EXPECT_EQ("000500", encodeHex(rec));
    SEQUENCE back(&recInfo);
    ASSERT_TRUE(decodeHex("000500", back));
    EXPECT_EQ(0u, back.extensionMap().size());
}

TEST(PerDeparture, EnumeratedExtensionFormThatFailsFallsBackToTheRoot) {
    // Extension bit, then the small number 0 (no value can follow), then two root bits 01.
    ENUMERATED colour(&colourExtInfo);
    ASSERT_TRUE(decodeHex("80 40", colour));
    EXPECT_EQ(1, colour.asInt());
}

// --- X.691 Annex A.2: the PersonnelRecord in aligned PER ----------------------------------------
namespace personnel {
const void* const nameInfos[] = {&VisibleString::theInfo, &VisibleString::theInfo,
                                 &VisibleString::theInfo};
const int nameIds[] = {-1, -1, -1};
const char* const nameNames[] = {"givenName", "initial", "familyName"};
const SEQUENCE::InfoType nameInfo = {&SEQUENCE::create, 16, false,    nameInfos, nameIds, 3, 0, 0,
                                     nullptr,           0,  nameNames};
// SET components go in canonical tag order (X.691 21.1): [APPLICATION] before context tags.
const void* const childInfos[] = {&nameInfo, &VisibleString::theInfo};
const int childIds[] = {-1, -1};
const char* const childNames[] = {"name", "dateOfBirth"};
const SEQUENCE::InfoType childInfo = {
    &SEQUENCE::create, 17, false, childInfos, childIds, 2, 0, 0, nullptr, 0, childNames};
const SEQUENCE_OF_Base::InfoType childrenInfo = {
    &SEQUENCE_OF_Base::create, 16, Unconstrained, 0, UINT_MAX, &childInfo};
const void* const recordInfos[] = {
    &nameInfo, &INTEGER::theInfo, &VisibleString::theInfo, &VisibleString::theInfo,
    &nameInfo, &childrenInfo};
const int recordIds[] = {-1, -1, -1, -1, -1, 0};
const char* const recordNames[] = {"name",       "number",       "title",
                                   "dateOfHire", "nameOfSpouse", "children"};
const SEQUENCE::InfoType recordInfo = {
    &SEQUENCE::create, 17, false, recordInfos, recordIds, 6, 0, 1, nullptr, 0, recordNames};

void setName(AbstractData& name, const char* given, const char* initial, const char* family) {
    static_cast<AbstractString&>(*static_cast<SEQUENCE&>(name).getField(0)) = given;
    static_cast<AbstractString&>(*static_cast<SEQUENCE&>(name).getField(1)) = initial;
    static_cast<AbstractString&>(*static_cast<SEQUENCE&>(name).getField(2)) = family;
}
} // namespace personnel

TEST(PerAnnexA, PersonnelRecordAligned) {
    using namespace personnel;
    SEQUENCE record(&recordInfo);
    setName(*record.getField(0), "John", "P", "Smith");
    field<INTEGER>(record, 1) = 51;
    field<AbstractString>(record, 2) = "Director";
    field<AbstractString>(record, 3) = "19710917";
    setName(*record.getField(4), "Mary", "T", "Smith");
    SEQUENCE_OF_Base& children = static_cast<SEQUENCE_OF_Base&>(*record.includeOptionalField(0, 5));
    children.resize(2);
    SEQUENCE& ralph = static_cast<SEQUENCE&>(**children.begin());
    setName(*ralph.getField(0), "Ralph", "T", "Smith");
    field<AbstractString>(ralph, 1) = "19571111";
    SEQUENCE& susan = static_cast<SEQUENCE&>(**(children.begin() + 1));
    setName(*susan.getField(0), "Susan", "B", "Jones");
    field<AbstractString>(susan, 1) = "19590717";

    // X.691 A.2.1.
    const std::string expected = stripBlanks("80"
                                             "04 4a6f686e 01 50 05 536d697468"   // John P Smith
                                             "01 33"                             // 51
                                             "08 4469726563746f72"               // Director
                                             "08 3139373130393137"               // 19710917
                                             "04 4d617279 01 54 05 536d697468"   // Mary T Smith
                                             "02"                                // two children
                                             "05 52616c7068 01 54 05 536d697468" // Ralph T Smith
                                             "08 3139353731313131"               // 19571111
                                             "05 537573616e 01 42 05 4a6f6e6573" // Susan B Jones
                                             "08 3139353930373137");             // 19590717
    EXPECT_EQ(expected, encodeHex(record));
    SEQUENCE back(&recordInfo);
    ASSERT_TRUE(decodeHex(expected, back));
    EXPECT_EQ(0, back.compare(record));
}

} // namespace
