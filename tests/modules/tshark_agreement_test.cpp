// An independent decoder agrees: the synthetic SETUP rewritten the way the translators rewrite one
// is dissected by tshark without any expert report, and the fields that the translators touch
// read as we wrote them (skipped when tshark is not installed). And an OpenLogicalChannel built
// from nothing is what an independent encoder wrote.
#include "pdu_corpus.h"
#include "pdu_util.h"
#include "tshark_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace modtest;
using namespace H323_MESSAGES;
namespace MSC = MULTIMEDIA_SYSTEM_CONTROL;

namespace {

template <class Octet> void SetIp(Octet& field, std::initializer_list<unsigned char> bytes) {
    field = ASN1::OctetBuffer(bytes.begin(), bytes.end());
}

// New RTP and RTCP addresses for proposal i: 203.0.113.9, ports 30000 + i and 40000 + i.
void Rewrite(MSC::H2250LogicalChannelParameters& h2250, unsigned i) {
    if (h2250.mediaChannel_isPresent()) {
        MSC::UnicastAddress_iPAddress& rtp =
            h2250.ref_mediaChannel().ref_unicastAddress().ref_iPAddress();
        SetIp(rtp.ref_network(), {203, 0, 113, 9});
        rtp.ref_tsapIdentifier() = static_cast<int>(30000 + i);
    }
    if (h2250.mediaControlChannel_isPresent()) {
        MSC::UnicastAddress_iPAddress& rtcp =
            h2250.ref_mediaControlChannel().ref_unicastAddress().ref_iPAddress();
        SetIp(rtcp.ref_network(), {203, 0, 113, 9});
        rtcp.ref_tsapIdentifier() = static_cast<int>(40000 + i);
    }
}

// The synthetic SETUP rewritten as the call-signalling translator rewrites one: new call
// signalling addresses and new RTCP addresses in every fast-start proposal.
TEST(TsharkAgreement, RewrittenSetupReadsAsWritten) {
    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed; the independent decoder check needs it";
    H323_UserInformation info;
    ASSERT_TRUE(Decode(LoadPdu("synth-setup_faststart-uuie.bin").bytes, info));
    Setup_UUIE& setup = info.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
    TransportAddress_ipAddress& dest = setup.ref_destCallSignalAddress().ref_ipAddress();
    SetIp(dest.ref_ip(), {198, 51, 100, 7});
    dest.ref_port() = 11720;
    TransportAddress_ipAddress& src = setup.ref_sourceCallSignalAddress().ref_ipAddress();
    SetIp(src.ref_ip(), {203, 0, 113, 9});
    src.ref_port() = 21720;
    ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>& fastStart = setup.ref_fastStart();
    for (unsigned i = 0; i < fastStart.size(); ++i) {
        MSC::OpenLogicalChannel olc;
        ASSERT_EQ(ASN1::ASNDecode(fastStart[i], olc), 1);
        MSC::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters& forward =
            olc.ref_forwardLogicalChannelParameters().ref_multiplexParameters();
        if (forward.h2250LogicalChannelParameters_isSelected())
            Rewrite(forward.ref_h2250LogicalChannelParameters(), i);
        if (olc.reverseLogicalChannelParameters_isPresent() &&
            olc.ref_reverseLogicalChannelParameters().multiplexParameters_isPresent()) {
            MSC::OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters& reverse =
                olc.ref_reverseLogicalChannelParameters().ref_multiplexParameters();
            ASSERT_TRUE(reverse.h2250LogicalChannelParameters_isSelected());
            Rewrite(reverse.ref_h2250LogicalChannelParameters(), i);
        }
        ASN1::ASNEncode(olc, fastStart[i]);
    }
    tshark::UserPcap file;
    file.Write({Encode(info)});
    std::vector<std::string> lines =
        tshark::Fields(file, "h225",
                       {"h225.h323_message_body", "h225.ipV4", "h225.ipV4_port",
                        "h225.FastStart_item", "h245.ip4_network", "h245.tsapIdentifier"});
    ASSERT_EQ(lines.size(), 1u);
    // No expert message; setup (0); the two new signalling addresses; six proposals (tshark
    // lists their lengths); and the new media addresses: a receive proposal carries its RTCP
    // address, a transmit proposal its RTP and RTCP addresses.
    const std::string& line = lines[0];
    const std::string head = "|0|198.51.100.7,203.0.113.9|11720,21720|";
    ASSERT_EQ(line.compare(0, head.size(), head), 0) << line;
    size_t listEnd = line.find('|', head.size());
    ASSERT_NE(listEnd, std::string::npos);
    std::string lengths = line.substr(head.size(), listEnd - head.size());
    EXPECT_EQ(std::count(lengths.begin(), lengths.end(), ',') + 1, 6) << lengths;
    EXPECT_EQ(line.substr(listEnd),
              "|203.0.113.9,203.0.113.9,203.0.113.9,203.0.113.9,203.0.113.9,203.0.113.9,"
              "203.0.113.9,203.0.113.9,203.0.113.9|"
              "40000,30001,40001,40002,30003,40003,40004,30005,40005");
}

// An OpenLogicalChannel built from nothing through the accessors is the one of the corpus, which
// an independent encoder wrote.
TEST(BuiltPdu, OpenLogicalChannelAsAnIndependentEncoderWritesIt) {
    MSC::MultimediaSystemControlMessage message;
    ASSERT_TRUE(message.select(MSC::MultimediaSystemControlMessage::request::id_));
    ASSERT_TRUE(message.ref_request().select(MSC::RequestMessage::openLogicalChannel::id_));
    MSC::OpenLogicalChannel& olc = message.ref_request().ref_openLogicalChannel();
    olc.ref_forwardLogicalChannelNumber() = 101;
    MSC::OpenLogicalChannel_forwardLogicalChannelParameters& forward =
        olc.ref_forwardLogicalChannelParameters();
    ASSERT_TRUE(forward.ref_dataType().select(MSC::DataType::audioData::id_));
    ASSERT_TRUE(
        forward.ref_dataType().ref_audioData().select(MSC::AudioCapability::g711Ulaw64k::id_));
    forward.ref_dataType().ref_audioData().ref_g711Ulaw64k() = 20;
    ASSERT_TRUE(forward.ref_multiplexParameters().select(
        MSC::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters::
            h2250LogicalChannelParameters::id_));
    MSC::H2250LogicalChannelParameters& h2250 =
        forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
    h2250.ref_sessionID() = 1;
    MSC::TransportAddress& rtcp = h2250.set_mediaControlChannel(MSC::TransportAddress());
    ASSERT_TRUE(rtcp.select(MSC::TransportAddress::unicastAddress::id_));
    ASSERT_TRUE(rtcp.ref_unicastAddress().select(MSC::UnicastAddress::iPAddress::id_));
    SetIp(rtcp.ref_unicastAddress().ref_iPAddress().ref_network(), {10, 0, 0, 5});
    rtcp.ref_unicastAddress().ref_iPAddress().ref_tsapIdentifier() = 5001;

    EXPECT_EQ(Hex(Encode(message), " "), Hex(LoadPdu("synth-h245_olc-h245.bin").bytes, " "));
}

} // namespace
