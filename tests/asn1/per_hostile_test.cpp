// Hostile and broken input: truncation, corruption, announced sizes beyond the limits, unknown
// alternatives and nesting deeper than the codecs walk. Every case must end in a clean false, with
// no read past the input (inputs are exactly sized heap copies, run under ASan) and no leak.
#include "asn1_test_support.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

using namespace asn1test;

namespace {

typedef Constrained_OpenData<Int0to255> OpenByte;

// Msg ::= SEQUENCE { rec Rec, nodes SEQUENCE OF Node, pick CHOICE {..., ...}, oid OBJECT
//   IDENTIFIER, name BMPString, open Int0to255 in an open type, digits IA5String FROM ...,
//   tail INTEGER (0..255) }
const void* const msgInfos[] = {&recInfo,
                                &SEQUENCE_OF<Null>::theInfo,
                                &choiceExtInfo,
                                &OBJECT_IDENTIFIER::theInfo,
                                &BMPString::theInfo,
                                &OpenByte::theInfo,
                                &dialedDigitsInfo,
                                &Int0to255::theInfo};
const int msgIds[] = {-1, -1, -1, -1, -1, -1, -1, -1};
const char* const msgNames[] = {"rec", "nodes", "pick", "oid", "name", "open", "digits", "tail"};
const SEQUENCE::InfoType msgInfo = {&SEQUENCE::create, 16, false,   msgInfos, msgIds, 8, 0, 0,
                                    nullptr,           0,  msgNames};

std::unique_ptr<SEQUENCE> makeMessage() {
    std::unique_ptr<SEQUENCE> msg(new SEQUENCE(&msgInfo));
    SEQUENCE& rec = static_cast<SEQUENCE&>(*msg->getField(0));
    static_cast<INTEGER&>(*rec.getField(0)) = 200;
    static_cast<BOOLEAN&>(*rec.includeOptionalField(0, 1)) = true;
    static_cast<AbstractString&>(*rec.includeOptionalField(1, 2)) = "extension";
    static_cast<SEQUENCE_OF_Base&>(*msg->getField(1)).resize(3);
    CHOICE& pick = static_cast<CHOICE&>(*msg->getField(2));
    pick.select(2);
    static_cast<BOOLEAN&>(*pick.getSelection()) = true;
    OBJECT_IDENTIFIER& oid = static_cast<OBJECT_IDENTIFIER&>(*msg->getField(3));
    for (unsigned arc : {0u, 0u, 8u, 2250u, 0u, 4u})
        oid.append(arc);
    static_cast<BMPString&>(*msg->getField(4)) = std::wstring(L"caller");
    static_cast<OpenByte&>(*msg->getField(5)).get_data() = 42;
    static_cast<AbstractString&>(*msg->getField(6)) = "0123#*,9";
    static_cast<INTEGER&>(*msg->getField(7)) = 99;
    return msg;
}

std::vector<char> encode(const AbstractData& value) {
    std::vector<char> out;
    PEREncoder encoder(out, true);
    EXPECT_TRUE(value.accept(encoder));
    return out;
}

TEST(PerHostile, MessageRoundTripsAsAWhole) {
    std::unique_ptr<SEQUENCE> msg = makeMessage();
    const std::vector<char> bytes = encode(*msg);
    SEQUENCE back(&msgInfo);
    ASSERT_TRUE(decodeBytes(bytes, back)) << Hex(bytes);
    // The open type comes back as its contained value.
    EXPECT_EQ(0, back.compare(*msg)) << back << "\n" << *msg;
}

TEST(PerHostile, EveryTruncationFailsCleanly) {
    const std::vector<char> bytes = encode(*makeMessage());
    // The last field is a constrained INTEGER, which a truncated input reads as its lower bound
    // with success, so only prefixes shorter than the whole minus that octet must fail.
    for (std::size_t n = 0; n + 1 < bytes.size(); ++n) {
        SEQUENCE msg(&msgInfo);
        const std::vector<char> prefix(bytes.begin(), bytes.begin() + static_cast<long>(n));
        EXPECT_FALSE(decodeBytes(prefix, msg)) << "prefix of " << n << " octets";
    }
}

TEST(PerHostile, CorruptedInputNeverCrashes) {
    const std::vector<char> bytes = encode(*makeMessage());
    unsigned seed = 12345;
    unsigned decoded = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<char> mutated = bytes;
        for (int flips = 0; flips < 1 + round % 4; ++flips) {
            seed = seed * 1103515245u + 12345u;
            mutated[(seed >> 8) % mutated.size()] ^= static_cast<char>(1u << ((seed >> 4) % 8));
        }
        SEQUENCE msg(&msgInfo);
        if (decodeBytes(mutated, msg)) {
            ++decoded;
            msg.asValueNotation(); // a decoded tree is always printable and encodable
            std::vector<char> out;
            PEREncoder encoder(out, true);
            msg.accept(encoder);
        }
    }
    EXPECT_GT(decoded, 0u); // some flips (in values) still decode
}

TEST(PerHostile, SequenceOfCount129FailsBeforeCreatingElements) {
    SEQUENCE_OF<Int0to255> list;
    EXPECT_FALSE(decodeHex("8081", list));
    EXPECT_EQ(0u, list.size());
    EXPECT_TRUE(decodeHex("8080" + std::string(256, '0'), list)); // 128 is accepted
    EXPECT_EQ(128u, list.size());
}

TEST(PerHostile, FailedElementIsErasedWithTheRest) {
    SEQUENCE_OF<IA5String> list;
    // Three announced, the input holds two: the failed element and after it are gone.
    EXPECT_FALSE(decodeHex("03 0161 0162", list));
    EXPECT_EQ(2u, list.size());
}

TEST(PerHostile, ExtensionCount129Fails) {
    SEQUENCE rec(&recInfo);
    // Extension bit set, then the small number 128 (129 additions).
    EXPECT_FALSE(decodeHex("80 05 80 01 80 ffffffffffffffffffffffffffffffff ff", rec));
    EXPECT_EQ(0u, rec.extensionMap().size());
}

TEST(PerHostile, StringLengthsBeyondTheLimitFail) {
    typedef Constrained_OCTET_STRING<SizeConstraint<2u, 0, 65535u>> Octets64K;
    Octets64K big;
    std::string hex = "4e21" + std::string(2 * 20001, '0'); // 20001 octets, all present
    EXPECT_FALSE(decodeHex(hex, big));
    EXPECT_TRUE(big.empty());
    // A length that the input does not hold fails before the octets are allocated.
    OCTET_STRING truncated;
    EXPECT_FALSE(decodeHex("bfff 0102", truncated));
    EXPECT_TRUE(truncated.empty());
    BIT_STRING bits;
    EXPECT_FALSE(decodeHex("80ff 01", bits));
    BMPString bmp;
    EXPECT_FALSE(decodeHex("7f 0041", bmp));
    IA5String ia5;
    EXPECT_FALSE(decodeHex("05 6162", ia5));
}

TEST(PerHostile, CharacterIndexOutsideThePermittedAlphabetFails) {
    AbstractString digits(&dialedDigitsInfo);
    EXPECT_FALSE(decodeHex("00 f0", digits)); // index 15 of a 13-character alphabet
}

TEST(PerHostile, BadObjectIdentifiers) {
    OBJECT_IDENTIFIER oid;
    EXPECT_FALSE(decodeHex("02 0088 00", oid));         // ends inside an arc
    EXPECT_FALSE(decodeHex("06 00ffffffff7f 00", oid)); // arc above 32 bits
    EXPECT_FALSE(decodeHex("09 0001", oid));            // longer than the input
}

TEST(PerHostile, UnknownAlternativeLeavesTheChoiceUnknown) {
    CHOICE pick(&choiceExtInfo);
    EXPECT_FALSE(decodeHex("84 01 00", pick)); // extension alternative 4 + 2, not known
    EXPECT_TRUE(pick.isUnknownSelection());
    EXPECT_EQ(nullptr, pick.getSelection());
}

TEST(PerHostile, PrunedAlternativeFails) {
    // An alternative the module leaves out has a null descriptor and refuses to decode.
    const void* const infos[] = {&Null::theInfo, nullptr, &BOOLEAN::theInfo};
    const char* const names[] = {"a", "", "c"};
    const CHOICE::InfoType info = {&CHOICE::create, 0, false, infos, 3, 3, 0, names};
    CHOICE pick(&info);
    EXPECT_FALSE(decodeHex("40", pick));
    EXPECT_TRUE(pick.isUnknownSelection());
    EXPECT_TRUE(decodeHex("80", pick));
}

// --- Nesting depth ------------------------------------------------------------------------------
// Tree ::= SEQUENCE OF Tree, n levels: n octets 01, then 00.
std::string treeHex(unsigned levels) {
    std::string hex;
    for (unsigned i = 0; i < levels; ++i)
        hex += "01";
    return hex + "00";
}

TEST(PerHostile, NestingIsLimitedToTheSameDepthEverywhere) {
    SEQUENCE_OF_Base deepest(&treeInfo);
    ASSERT_TRUE(decodeHex(treeHex(MaximumNestingDepth), deepest));
    EXPECT_EQ(treeHex(MaximumNestingDepth), encodeHex(deepest));
    std::ostringstream printed;
    EXPECT_EQ(0, deepest.print_on(printed));

    SEQUENCE_OF_Base tooDeep(&treeInfo);
    EXPECT_FALSE(decodeHex(treeHex(MaximumNestingDepth + 1), tooDeep));

    // A tree one level deeper built by hand is refused by the encoder and the printer.
    SEQUENCE_OF_Base* inner = static_cast<SEQUENCE_OF_Base*>(deepest.clone());
    SEQUENCE_OF_Base built(&treeInfo);
    built.push_back(inner);
    EXPECT_EQ("FAIL:", encodeHex(built).substr(0, 5));
    std::ostringstream os;
    EXPECT_EQ(4, built.print_on(os));
}

TEST(PerHostile, RecursiveChoiceNestingIsRefused) {
    // Node ::= CHOICE { leaf NULL, inner Node }: one bit per level.
    std::vector<char> bits((MaximumNestingDepth + 8) / 8 + 1, static_cast<char>(0xFF));
    CHOICE node(&nodeInfo);
    EXPECT_FALSE(decodeBytes(bits, node));
    // 63 inner levels, then a leaf whose NULL is the 64th level below the top.
    std::vector<char> ok((MaximumNestingDepth + 7) / 8, 0);
    for (unsigned i = 0; i + 1 < MaximumNestingDepth; ++i)
        ok[i / 8] = static_cast<char>(ok[i / 8] | (0x80 >> (i % 8)));
    CHOICE allowed(&nodeInfo);
    EXPECT_TRUE(decodeBytes(ok, allowed));
}

// --- Open types ---------------------------------------------------------------------------------
TEST(PerHostile, TypedOpenTypeJumpsToItsEndAndClampsToTheInput) {
    OpenByte open;
    EXPECT_TRUE(decodeHex("03 07ffff", open));
    EXPECT_EQ(7, open.get_data().getValue());
    OpenByte beyond;
    EXPECT_TRUE(decodeHex("7f 09", beyond)); // claims 127 octets, the value still reads
    EXPECT_EQ(9, beyond.get_data().getValue());
}

TEST(PerHostile, RevisitDecodesKeptOctets) {
    OpenData open;
    ASSERT_TRUE(decodeHex("02 0102", open));
    ASSERT_TRUE(open.has_buf());
    EXPECT_FALSE(open.has_data());
    PERDecoder noData(nullptr, nullptr);
    EXPECT_FALSE(noData.revisit(open)); // nothing to decode into
    open.set_data(new Int0to255);
    EXPECT_TRUE(noData.revisit(open));
    EXPECT_EQ(1, static_cast<INTEGER&>(open.get_data()).getValue());
}

} // namespace
