// PER vectors and hostile inputs as one table (tests/data/asn1/per.tsv): each row's octets are
// decoded as its type, the value printed in value notation and encoded again. Then what a table
// cannot hold: every truncation and random corruption of a message of every kind, trees built
// deeper than the codecs walk, and the open-type writer.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>

using namespace asn1test;

namespace {

// Hex octets, blanks ignored; "XX*N" stands for N octets XX, "-" for no octets.
OctetBuffer Octets(const std::string& text) {
    OctetBuffer out;
    std::istringstream words(text == "-" ? "" : text);
    for (std::string word; words >> word;) {
        const std::size_t star = word.find('*');
        const OctetBuffer part = fromHex(word.substr(0, star));
        const unsigned times = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1));
        for (unsigned i = 0; i < times; ++i)
            out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

struct Outcome {
    std::string value = "FAIL"; // value notation, line ends written as \n
    std::string octets;         // the value encoded again
    bool canonical = false;     // the decoder vouched that the input is that encoding
};

// The codec's primitives on their own: "length (L..U)", "whole (L..U)" and "small".
bool DecodePrimitive(const std::string& type, bool aligned, bool encode, const OctetBuffer& in,
                     Outcome& outcome) {
    unsigned long lower = 0, upper = 0;
    const std::string kind = type.substr(0, type.find(' '));
    if (kind != "small" &&
        std::sscanf(type.c_str() + kind.size(), " (%lu..%lu)", &lower, &upper) != 2)
        return false;
    PERDecoder decoder(in.data(), in.data() + in.size(), nullptr, aligned);
    OctetBuffer out;
    PEREncoder encoder(out, aligned);
    const unsigned lo = static_cast<unsigned>(lower), hi = static_cast<unsigned>(upper);
    unsigned value = 0;
    bool ok = false;
    if (kind == "length")
        ok = decoder.decodeLength(lo, hi, value) == 0 &&
             (!encode || encoder.encodeLength(value, lo, hi));
    else if (kind == "whole")
        ok = decoder.decodeUnsigned(lo, hi, value) == 0 && encoder.encodeUnsigned(value, lo, hi);
    else if (kind == "small" && decoder.decodeSmallUnsigned(value)) {
        encoder.encodeSmallUnsigned(value);
        ok = true;
    }
    encoder.finish();
    if (ok) {
        outcome.value = std::to_string(value);
        outcome.octets = Hex(out);
        outcome.canonical = decoder.endsCanonically();
    }
    return kind == "length" || kind == "whole" || kind == "small";
}

std::string Escaped(const std::string& text) {
    std::string out;
    for (char c : text)
        out += c == '\n' ? std::string("\\n") : std::string(1, c);
    return out;
}

TEST(PerTable, EveryRowDecodesPrintsAndEncodesAsListed) {
    const auto rows = TableRows("asn1/per.tsv", 4);
    for (const std::vector<std::string>& cells : rows) {
        const std::string where = cells[0] + " " + cells[1];
        const bool aligned = cells[0].compare(0, 10, "unaligned ") != 0;
        const std::string type = aligned ? cells[0] : cells[0].substr(10);
        const OctetBuffer in = Octets(cells[1]);
        Outcome got;
        const bool encode = cells[3] != "-";
        if (!DecodePrimitive(type, aligned, encode, in, got)) {
            const void* info = TypeNamed(type);
            ASSERT_NE(nullptr, info) << where << ": no such type";
            std::unique_ptr<AbstractData> value(AbstractData::create(info));
            if (decodeBytes(in, *value, aligned, &got.canonical)) {
                got.value = Escaped(value->asValueNotation());
                got.octets = encode ? encodeHex(*value, aligned) : "";
            }
        }
        if (cells[2] != "*") {
            EXPECT_EQ(cells[2], got.value) << where;
        }
        if (cells[2] != "FAIL" && encode) {
            EXPECT_EQ(Hex(cells[3] == "=" ? in : Octets(cells[3])), got.octets) << where;
        }
        // The decoder vouches for exactly the aligned inputs that come back unchanged.
        if (aligned && encode && got.value != "FAIL") {
            EXPECT_EQ(got.octets == Hex(in), got.canonical) << where;
        }
    }
    EXPECT_GT(rows.size(), 100u);
}

const char kMessage[] = "c0c880800a09657874656e73696f6e03800180060008914a00040600630061006c006c"
                        "00650072012a0e3456012c63";

// Inputs are exactly sized heap copies, so ASan sees any read past them.
TEST(PerHostile, EveryTruncationFailsAndCorruptionNeverCrashes) {
    // A message holding one value of every kind (its row in per.tsv shows the value).
    const OctetBuffer bytes = Octets(kMessage);
    // The last field is a constrained INTEGER, which a truncated input reads as its lower bound,
    // so only prefixes shorter than the whole minus that octet must fail.
    for (std::size_t n = 0; n + 1 < bytes.size(); ++n) {
        SEQUENCE msg(&msgInfo);
        EXPECT_FALSE(decodeBytes(OctetBuffer(bytes.begin(), bytes.begin() + n), msg)) << n;
    }
    unsigned seed = 12345, decoded = 0;
    for (int round = 0; round < 3000; ++round) {
        OctetBuffer mutated = bytes;
        for (int flips = 0; flips < 1 + round % 4; ++flips) {
            seed = seed * 1103515245u + 12345u;
            mutated[(seed >> 8) % mutated.size()] ^= static_cast<char>(1u << ((seed >> 4) % 8));
        }
        SEQUENCE msg(&msgInfo);
        if (decodeBytes(mutated, msg)) {
            ++decoded;
            msg.asValueNotation(); // a decoded tree is always printable and encodable
            encodeHex(msg);
        }
    }
    EXPECT_GT(decoded, 0u);
}

TEST(PerHostile, TreeBuiltDeeperThanTheLimitIsRefusedByEncoderAndPrinter) {
    SEQUENCE_OF_Base deepest(&treeInfo);
    ASSERT_TRUE(decodeBytes(Octets("01*64 00"), deepest));
    SEQUENCE_OF_Base built(&treeInfo);
    built.push_back(deepest.clone());
    EXPECT_EQ("FAIL:", encodeHex(built).substr(0, 5));
    std::ostringstream os;
    EXPECT_EQ(4, built.print_on(os));
}

// An open type is written in place with its length moved in front afterwards: a partial octet
// before it is padded, a long contents gets a two-octet length, and contents that fail to encode
// leave the output (and the bit position) as they were.
TEST(PerOpenType, LengthMovedInFrontOfContents) {
    OctetBuffer out;
    PEREncoder encoder(out, true);
    encoder.encodeSingleBit(true);
    Int0to255 seven(7);
    ASSERT_TRUE(encoder.encodeAnyType(&seven));
    const OCTET_STRING longContents(200, 'Z');
    ASSERT_TRUE(encoder.encodeAnyType(&longContents));
    encoder.encodeSingleBit(true);
    CHOICE unselected(&choice3Info);
    EXPECT_FALSE(encoder.encodeAnyType(&unselected));
    encoder.encodeSingleBit(true);
    encoder.finish();
    EXPECT_EQ(Hex(Octets("80 01 07 80ca 80c8 5a*200 c0")), Hex(out));
}

TEST(PerOpenType, RevisitDecodesKeptOctets) {
    OpenData open;
    ASSERT_TRUE(decodeHex("02 0102", open));
    EXPECT_FALSE(open.has_data());
    PERDecoder noData(nullptr, nullptr);
    EXPECT_FALSE(noData.revisit(open)); // nothing to decode into
    open.set_data(new Int0to255);
    EXPECT_TRUE(noData.revisit(open));
    EXPECT_EQ(1, static_cast<INTEGER&>(open.get_data()).getValue());
}

} // namespace
