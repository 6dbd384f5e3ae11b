// Real traffic: the H.245 PDUs of a captured H.323 call (tests/data/asn1, see its README), decoded
// through ASNDecode with hand-written descriptors of the few H.245 types they use, checked against
// TShark's dissection and re-encoded byte for byte through ASNEncode.
#include "asn1_test_support.h"

#include "asn1/asn_codec.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

using namespace asn1test;

namespace {

// MasterSlaveDetermination ::= SEQUENCE { terminalType INTEGER (0..255),
//   statusDeterminationNumber INTEGER (0..16777215), ... }
typedef Constrained_INTEGER<FixedConstraint, 0, 16777215u> StatusDeterminationNumber;
const void* const msdInfos[] = {&Int0to255::theInfo, &StatusDeterminationNumber::theInfo};
const int msdIds[] = {-1, -1};
const char* const msdNames[] = {"terminalType", "statusDeterminationNumber"};
const SEQUENCE::InfoType msdInfo = {&SEQUENCE::create, 16, true,    msdInfos, msdIds, 2, 0, 0,
                                    nullptr,           0,  msdNames};

// MasterSlaveDeterminationAck ::= SEQUENCE { decision CHOICE { master NULL, slave NULL }, ... }
const void* const decisionInfos[] = {&Null::theInfo, &Null::theInfo};
const char* const decisionNames[] = {"master", "slave"};
const CHOICE::InfoType decisionInfo = {&CHOICE::create, 0, false, decisionInfos, 2, 2, 0,
                                       decisionNames};
const void* const msdAckInfos[] = {&decisionInfo};
const int msdAckIds[] = {-1};
const char* const msdAckNames[] = {"decision"};
const SEQUENCE::InfoType msdAckInfo = {
    &SEQUENCE::create, 16, true, msdAckInfos, msdAckIds, 1, 0, 0, nullptr, 0, msdAckNames};

// TerminalCapabilitySetAck ::= SEQUENCE { sequenceNumber SequenceNumber, ... }
const void* const tcsAckInfos[] = {&Int0to255::theInfo};
const int tcsAckIds[] = {-1};
const char* const tcsAckNames[] = {"sequenceNumber"};
const SEQUENCE::InfoType tcsAckInfo = {
    &SEQUENCE::create, 16, true, tcsAckInfos, tcsAckIds, 1, 0, 0, nullptr, 0, tcsAckNames};

// RequestMessage: 11 root and 4 extension alternatives; ResponseMessage: 19 and 5. Alternatives
// this test does not describe are left null, as the modules leave out pruned ones.
const void* const requestInfos[15] = {nullptr, &msdInfo};
const char* const requestNames[15] = {
    "", "masterSlaveDetermination", "", "", "", "", "", "", "", "", "", "", "", "", ""};
const CHOICE::InfoType requestInfo = {&CHOICE::create, 0, true, requestInfos, 11, 15, 0,
                                      requestNames};
const void* const responseInfos[24] = {nullptr, &msdAckInfo, nullptr, &tcsAckInfo};
const char* const responseNames[24] = {"", "masterSlaveDeterminationAck", "",
                                       "terminalCapabilitySetAck"};
const CHOICE::InfoType responseInfo = {&CHOICE::create, 0, true, responseInfos, 19, 24, 0,
                                       responseNames};

// MultimediaSystemControlMessage ::= CHOICE { request, response, command, indication, ... }
const void* const messageInfos[] = {&requestInfo, &responseInfo, nullptr, nullptr};
const char* const messageNames[] = {"request", "response", "command", "indication"};
const CHOICE::InfoType messageInfo = {&CHOICE::create, 0, true, messageInfos, 4, 4, 0,
                                      messageNames};

class MultimediaSystemControlMessage : public CHOICE {
public:
    MultimediaSystemControlMessage() : CHOICE(&messageInfo) {}
};

struct Pdu {
    std::string frame;
    std::vector<char> octets;
};

std::vector<Pdu> loadPdus() {
    std::ifstream in(VOIPFILTER_TEST_DATA_DIR "/asn1/rtp_example-h245.txt");
    std::vector<Pdu> pdus;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream fields(line);
        Pdu pdu;
        std::string hex;
        fields >> pdu.frame >> hex;
        pdu.octets = fromHex(hex);
        pdus.push_back(pdu);
    }
    return pdus;
}

TEST(H245Corpus, DecodesChecksAndReencodesTheDescribedPdus) {
    const std::vector<Pdu> pdus = loadPdus();
    ASSERT_EQ(12u, pdus.size());

    // What TShark 4.0.17 shows for each frame, in this codec's value notation.
    const std::multimap<std::string, std::string> expected = {
        {"17", "request : masterSlaveDetermination : {\n  terminalType 0,\n"
               "  statusDeterminationNumber 9588693\n}"},
        {"20", "request : masterSlaveDetermination : {\n  terminalType 50,\n"
               "  statusDeterminationNumber 3637982\n}"},
        {"22", "response : terminalCapabilitySetAck : {\n  sequenceNumber 1\n}"},
        {"22", "response : masterSlaveDeterminationAck : {\n  decision slave : NULL\n}"},
        {"24", "response : terminalCapabilitySetAck : {\n  sequenceNumber 1\n}"},
        {"26", "response : masterSlaveDeterminationAck : {\n  decision master : NULL\n}"},
    };

    unsigned decoded = 0;
    for (const Pdu& pdu : pdus) {
        SCOPED_TRACE("frame " + pdu.frame + ": " + Hex(pdu.octets));
        const unsigned char* data = reinterpret_cast<const unsigned char*>(pdu.octets.data());
        const unsigned size = static_cast<unsigned>(pdu.octets.size());
        MultimediaSystemControlMessage message;
        const int result = ASN1::ASNDecode(data, size, message);
        if (expected.count(pdu.frame) == 0) {
            // terminalCapabilitySet, openLogicalChannel(Ack): not described here.
            EXPECT_EQ(-2, result);
            continue;
        }
        ASSERT_EQ(1, result);
        ++decoded;
        const std::string text = message.asValueNotation();
        bool matched = false;
        auto range = expected.equal_range(pdu.frame);
        for (auto it = range.first; it != range.second; ++it)
            matched = matched || it->second == text;
        EXPECT_TRUE(matched) << text;

        unsigned char out[64];
        unsigned outSize = sizeof out;
        ASSERT_EQ(1, ASN1::ASNEncode(message, out, &outSize));
        EXPECT_EQ(Hex(pdu.octets), Hex(std::vector<char>(out, out + outSize)));
    }
    EXPECT_EQ(6u, decoded);
}

} // namespace
