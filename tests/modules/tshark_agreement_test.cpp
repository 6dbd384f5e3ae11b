// An independent decoder agrees: PDUs that this library's encoder wrote (re-encoded corpus PDUs,
// PDUs rewritten the way the translators rewrite them, and an OpenLogicalChannel built from
// nothing) are dissected by tshark without any expert report, and the fields that the
// translators touch (message type, addresses, ports, fast-start count) read as we wrote them.
// Skipped when tshark is not installed.
#include "pdu_corpus.h"
#include "pdu_util.h"
#include "tshark_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <type_traits>

using namespace modtest;
using namespace H323_MESSAGES;
namespace MSC = MULTIMEDIA_SYSTEM_CONTROL;

namespace {

template <class Octet> void SetIp(Octet& field, std::initializer_list<unsigned char> bytes) {
    field = std::vector<char>(bytes.begin(), bytes.end());
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

class TsharkAgreement : public ::testing::Test {
protected:
    void SetUp() override {
        if (!tshark::Available())
            GTEST_SKIP() << "tshark is not installed; the independent decoder check needs it";
    }
};

TEST_F(TsharkAgreement, ReencodedCorpusDissectsCleanly) {
    std::map<std::string, std::vector<Bytes>> reencoded; // by kind
    for (const Pdu& pdu : LoadCorpus()) {
        WithType(pdu.kind, [&](auto* type) {
            std::remove_pointer_t<decltype(type)> value;
            if (Decode(pdu.bytes, value))
                reencoded[pdu.kind].push_back(Encode(value));
        });
    }
    const std::vector<Bytes>&uuie = reencoded["uuie"], &ras = reencoded["ras"],
          &h245 = reencoded["h245"];
    EXPECT_EQ(uuie.size() + ras.size() + h245.size(), 79u);
    struct Run {
        const char* dissector;
        const std::vector<std::vector<unsigned char>>& pdus;
        const char* field;
    } runs[] = {{"h225", uuie, "h225.h323_message_body"},
                {"h225.ras", ras, "h225.RasMessage"},
                {"h245dg", h245, "h245.pdu_type"}};
    for (const Run& run : runs) {
        SCOPED_TRACE(run.dissector);
        tshark::UserPcap file;
        file.Write(run.pdus);
        std::vector<std::string> lines = tshark::Fields(file, run.dissector, {run.field});
        ASSERT_EQ(lines.size(), run.pdus.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            // No expert message, and the message type was read.
            EXPECT_EQ(lines[i].find('|'), 0u) << "frame " << i + 1 << ": " << lines[i];
            EXPECT_GT(lines[i].size(), 1u) << "frame " << i + 1;
        }
    }
}

// The synthetic SETUP rewritten as the call-signalling translator rewrites one: new call
// signalling addresses and new RTCP addresses in every fast-start proposal.
TEST_F(TsharkAgreement, RewrittenSetupReadsAsWritten) {
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

// An OpenLogicalChannel built from nothing through the accessors.
TEST_F(TsharkAgreement, BuiltOpenLogicalChannelReadsAsWritten) {
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

    std::vector<unsigned char> bytes = Encode(message);
    // The corpus holds the same message as written by an independent encoder.
    EXPECT_EQ(Hex(bytes, " "), Hex(LoadPdu("synth-h245_olc-h245.bin").bytes, " "));
    tshark::UserPcap file;
    file.Write({bytes});
    std::vector<std::string> lines =
        tshark::Fields(file, "h245dg",
                       {"h245.forwardLogicalChannelNumber", "h245.sessionID", "h245.ip4_network",
                        "h245.tsapIdentifier"});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "|101|1|10.0.0.5|5001");
}

// A RAS registration request with its addresses rewritten, as the RAS translator does.
TEST_F(TsharkAgreement, RewrittenRegistrationRequestReadsAsWritten) {
    RasMessage ras;
    ASSERT_TRUE(Decode(LoadPdu("synth-ras_rrq-ras.bin").bytes, ras));
    RegistrationRequest& rrq = ras.ref_registrationRequest();
    ASSERT_EQ(rrq.ref_callSignalAddress().size(), 1u);
    ASSERT_EQ(rrq.ref_rasAddress().size(), 1u);
    TransportAddress_ipAddress& cs = rrq.ref_callSignalAddress()[0].ref_ipAddress();
    SetIp(cs.ref_ip(), {192, 0, 2, 1});
    cs.ref_port() = 1820;
    TransportAddress_ipAddress& rasAddress = rrq.ref_rasAddress()[0].ref_ipAddress();
    SetIp(rasAddress.ref_ip(), {192, 0, 2, 1});
    rasAddress.ref_port() = 1819;
    tshark::UserPcap file;
    file.Write({Encode(ras)});
    std::vector<std::string> lines =
        tshark::Fields(file, "h225.ras", {"h225.RasMessage", "h225.ipV4", "h225.ipV4_port"});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "|3|192.0.2.1,192.0.2.1|1820,1819");
}

} // namespace
