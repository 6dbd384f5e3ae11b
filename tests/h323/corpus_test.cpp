// Real and independently encoded traffic: captured H.323 calls replayed message by message
// through the C API, the Ekiga fast start SETUP, and the rewritten PDUs checked by decoding them
// again and, where tshark is installed, by tshark's dissectors.
#include "h323_test_support.h"
#include "log_capture.h"
#include "tshark_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

using Body = H225::H323_UU_PDU_h323_message_body;

// One PDU of a capture, as tests/data/h323/extract.py wrote it.
struct CapturedPdu {
    int frame = 0;
    bool fromOriginator = false;
    bool h245 = false;
    Bytes bytes;
};

std::vector<CapturedPdu> LoadCapture(const std::string& name) {
    std::ifstream in(DataFile("h323/" + name));
    std::vector<CapturedPdu> pdus;
    CapturedPdu pdu;
    std::string side, channel, hex;
    while (in >> pdu.frame >> side >> channel >> hex) {
        pdu.fromOriginator = side == "O";
        pdu.h245 = channel == "h245";
        pdu.bytes = FromHex(hex);
        pdus.push_back(pdu);
    }
    return pdus;
}

// The results of a replay and the PDUs as the host would send them on.
struct Replay {
    std::vector<int> results;
    std::vector<CapturedPdu> sent;
};

Replay ReplayCapture(TestCall& call, const std::vector<CapturedPdu>& pdus) {
    Replay replay;
    for (const CapturedPdu& pdu : pdus) {
        CapturedPdu out = pdu;
        replay.results.push_back(pdu.h245 ? call.SendH245(pdu.fromOriginator, pdu.bytes, &out.bytes)
                                          : call.Send(pdu.fromOriginator, pdu.bytes, &out.bytes));
        replay.sent.push_back(out);
    }
    return replay;
}

// tshark's view of the PDUs: one line per frame with the malformed and error markers and the
// H.225.0 and H.245 addresses it found. Each PDU goes in a TPKT (RFC 1006) of its own, in TCP from
// the originator 10.1.3.143 to the destination 10.1.6.18 or back, call signalling on 1720 and
// H.245 on 1232.
std::vector<std::string> Tshark(const std::vector<CapturedPdu>& pdus) {
    pcap::Writer writer(pcap::kEthernet);
    std::map<std::pair<bool, bool>, uint32_t> sequence; // by (H.245, from the originator)
    for (const CapturedPdu& pdu : pdus) {
        const sockaddr_type client = Addr(pdu.h245 ? "10.1.3.143:32804" : "10.1.3.143:32803");
        const sockaddr_type server = Addr(pdu.h245 ? "10.1.6.18:1232" : "10.1.6.18:1720");
        Bytes tpkt;
        pcap::Put16(tpkt, 0x0300); // version 3, reserved
        pcap::Put16(tpkt, static_cast<unsigned>(pdu.bytes.size() + 4));
        tpkt.insert(tpkt.end(), pdu.bytes.begin(), pdu.bytes.end());
        uint32_t& seq = sequence[{pdu.h245, pdu.fromOriginator}];
        const uint32_t ack = sequence[{pdu.h245, !pdu.fromOriginator}] + 1;
        writer.Add(pdu.fromOriginator ? pcap::TcpFrame(client, server, seq + 1, ack, tpkt)
                                      : pcap::TcpFrame(server, client, seq + 1, ack, tpkt));
        seq += static_cast<uint32_t>(tpkt.size());
    }
    TempFile file("h323.pcap");
    EXPECT_TRUE(writer.Save(file.path()));
    return tshark::Run(file.path(),
                       "-d tcp.port==1232,h245 -T fields -E separator=/s -e frame.number "
                       "-e _ws.malformed -e _ws.expert.severity -e h225.ipV4 -e h225.ipV4_port "
                       "-e h225.h245Ip -e h225.h245IpPort -e h245.ip4_network "
                       "-e h245.tsapIdentifier");
}

class CorpusTest : public H323HostTest {
protected:
    static CallAddresses RtpExampleAddresses() {
        CallAddresses a;
        a.expectedOriginator = Addr("10.1.3.143:32803");
        a.expectedDestination = Addr("10.1.6.18:1720");
        a.announcedOriginator = Addr("198.51.100.1:1720");
        a.announcedDestination = Addr("198.51.100.2:1720");
        return a;
    }

    // The slow-start call of the capture (SETUP, CALL PROCEEDING, ALERTING, CONNECT with an
    // H.245 address, then capability exchange, master/slave determination and one G.711 A-law
    // channel each way on the separate H.245 connection).
    void CheckSlowStartCall(const std::string& capture) {
        LogCapture log(3);
        TestCall call(RtpExampleAddresses());
        const std::vector<CapturedPdu> pdus = LoadCapture(capture);
        ASSERT_EQ(16u, pdus.size());
        const Replay replay = ReplayCapture(call, pdus);
        EXPECT_EQ((std::vector<int>{1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1}),
                  replay.results);
        EXPECT_FALSE(LogCapture::HasPrefix(1, "H.225\twarning: srcCallSigAddr"));

        H225::H323_UserInformation setup, connect;
        ASSERT_TRUE(DecodeFrame(replay.sent[0].bytes, setup));
        auto& s = setup.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
        EXPECT_EQ("198.51.100.1:1720", H225Text(s.get_sourceCallSignalAddress()));
        EXPECT_EQ("198.51.100.2:1720", H225Text(s.get_destCallSignalAddress()));
        ASSERT_TRUE(DecodeFrame(replay.sent[3].bytes, connect));
        EXPECT_EQ("192.0.2.100:30000", H225Text(ConnectOf(connect).get_h245Address()));

        // Both OLCs carry only RTCP; both acks carry RTP and RTCP.
        const char* expectedRTCP[] = {"192.0.2.100:20001", "192.0.2.100:20003"};
        const char* expectedAckRTP[] = {"192.0.2.100:20000", "192.0.2.100:20002"};
        for (int i = 0; i < 2; ++i) {
            H245::MultimediaSystemControlMessage olc = DecodeH245(replay.sent[12 + i].bytes);
            EXPECT_EQ(expectedRTCP[i], H245Text(OlcParameters(olc).get_mediaControlChannel()));
            H245::MultimediaSystemControlMessage ack = DecodeH245(replay.sent[14 + i].bytes);
            EXPECT_EQ(expectedAckRTP[i], H245Text(AckParameters(ack).get_mediaChannel()));
        }
        EXPECT_EQ((std::vector<std::string>{
                      "openH245 dir=0 10.1.6.18:1232 pre=10.1.6.18:1232",
                      "openRTP dir=1 session=1 codec=PCMA rtp=10.1.3.143:5000 "
                      "rtcp=10.1.3.143:5001 pre=10.1.3.143:5000",
                      "openRTP dir=0 session=1 codec=PCMA rtp=10.1.6.18:2006 "
                      "rtcp=10.1.6.18:2007 pre=10.1.6.18:2006",
                  }),
                  [&] {
                      std::vector<std::string> v = host().Events("openH245");
                      for (const std::string& e : host().Events("openRTP"))
                          v.push_back(e);
                      return v;
                  }());
        EXPECT_FALSE(host().Events("allowCodec kind=1 PCMA").empty());
        const voipxlate_mediasessioninformation& session = call.Session(0);
        EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN |
                      VOIPXLATE_SESSION_REVERSE_OPEN,
                  session.flags);
        EXPECT_EQ(101u, session.originatorChannel);
        EXPECT_EQ(61u, session.destinationChannel);
        EXPECT_EQ(VOIPXLATE_H225_CONNECTED, call.Info().state);

        if (!tshark::Available())
            GTEST_SKIP() << "tshark is not installed: the rewritten call is not dissected";
        const std::vector<std::string> lines = Tshark(replay.sent);
        ASSERT_EQ(16u, lines.size()); // one frame per PDU
        std::string all;
        for (const std::string& line : lines) {
            all += line + "\n";
            EXPECT_EQ(std::string::npos, line.find("Malformed")) << line;
        }
        // The rewritten addresses are what tshark reads; the endpoints' own are gone from the
        // call signalling and media fields.
        for (const char* text :
             {"198.51.100.1", "198.51.100.2", "192.0.2.100", "30000", "20001", "20003"})
            EXPECT_NE(std::string::npos, all.find(text)) << text;
        EXPECT_EQ(std::string::npos, all.find("10.1.3.143")) << all;
        EXPECT_EQ(std::string::npos, all.find("10.1.6.18")) << all;
    }
};

TEST_F(CorpusTest, RtpExampleCallReplayed) {
    CheckSlowStartCall("rtp-example-1.txt");
}

TEST_F(CorpusTest, NdpiCallWithRetransmissionsReplayed) {
    CheckSlowStartCall("ndpi-h323-1.txt");
}

TEST_F(CorpusTest, NdpiSetupAndAlertingWithoutVendor) {
    CallAddresses a;
    a.expectedOriginator = Addr("192.168.0.208:56837");
    a.expectedDestination = Addr("192.168.0.1:1720");
    TestCall call(a);
    const Replay replay = ReplayCapture(call, LoadCapture("ndpi-h323-2.txt"));
    EXPECT_EQ((std::vector<int>{1, 0}), replay.results);
    EXPECT_EQ(VOIPXLATE_H225_SETUP, call.Info().state);
}

TEST_F(CorpusTest, NdpiSetupThatDoesNotDecode) {
    LogCapture log(1);
    TestCall call;
    const Replay replay = ReplayCapture(call, LoadCapture("ndpi-h323-3.txt"));
    // tshark finds the Aselsan SETUP malformed too; the RELEASE COMPLETE that answers it passes.
    ASSERT_EQ(2u, replay.results.size());
    EXPECT_EQ(100 - 2, replay.results[0]);
    EXPECT_EQ(0, replay.results[1]);
}

TEST_F(CorpusTest, EkigaFastStartSetup) {
    LogCapture log(2);
    const Bytes tpkt = ReadFile(DataFile("h323/ekiga-setup-faststart.tpkt.bin"));
    ASSERT_EQ(1041u, tpkt.size());
    const Bytes pdu(tpkt.begin() + 4, tpkt.end());
    H225::H323_UserInformation received;
    ASSERT_TRUE(DecodeFrame(pdu, received));
    auto& receivedSetup = received.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
    ASSERT_EQ(14u, receivedSetup.ref_fastStart().size());

    host().refusedCodecs = {"non-standard"};
    TestCall call;
    Bytes out;
    int status;
    ASSERT_EQ(1, call.Send(true, pdu, &out, &status));
    EXPECT_EQ(0, status);

    std::vector<std::string> codecs;
    for (const std::string& e : host().Events("allowCodec"))
        codecs.push_back(e.substr(11));
    EXPECT_EQ(14u, codecs.size());
    EXPECT_NE(codecs.end(), std::find(codecs.begin(), codecs.end(), "kind=1 GSM"));
    EXPECT_NE(codecs.end(), std::find(codecs.begin(), codecs.end(), "kind=1 PCMA"));
    EXPECT_NE(codecs.end(), std::find(codecs.begin(), codecs.end(), "kind=1 PCMU"));

    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    auto& setup = sent.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
    const unsigned nonStandard =
        static_cast<unsigned>(std::count(codecs.begin(), codecs.end(), "kind=1 non-standard"));
    ASSERT_EQ(14u - nonStandard, setup.ref_fastStart().size());
    for (unsigned i = 0; i < setup.ref_fastStart().size(); ++i) {
        H245::OpenLogicalChannel olc;
        ASSERT_EQ(1, ASN1::ASNDecode(setup.ref_fastStart()[i], olc));
        const FastStartElement element = ClassifyFastStartElement(olc);
        ASSERT_NE(nullptr, element.parameters);
        if (element.parameters->mediaChannel_isPresent()) {
            EXPECT_EQ("192.0.2.100",
                      H245Text(element.parameters->get_mediaChannel()).substr(0, 11));
        }
        if (element.parameters->mediaControlChannel_isPresent()) {
            EXPECT_EQ("192.0.2.100",
                      H245Text(element.parameters->get_mediaControlChannel()).substr(0, 11));
        }
    }
    // Ekiga starts H.245 in parallel with fast start; that offer is taken out.
    EXPECT_TRUE(receivedSetup.parallelH245Control_isPresent());
    EXPECT_FALSE(setup.parallelH245Control_isPresent());
    EXPECT_TRUE(LogCapture::Has("H.225\tRemoving parallelH245Control\n"));
    EXPECT_FALSE(host().Events("openRTP").empty());

    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed: the rewritten SETUP is not dissected";
    CapturedPdu rewritten;
    rewritten.fromOriginator = true;
    rewritten.bytes = out;
    const std::vector<std::string> lines = Tshark({rewritten});
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(std::string::npos, lines[0].find("Malformed")) << lines[0];
    EXPECT_NE(std::string::npos, lines[0].find("192.0.2.100")) << lines[0];
}

TEST_F(CorpusTest, PcapWriterFramesAsTsharkExpects) {
    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed";
    // The captured call as it came, through the same writer: tshark must see what it saw in
    // the original capture.
    const std::vector<std::string> lines = Tshark(LoadCapture("rtp-example-1.txt"));
    ASSERT_EQ(16u, lines.size());
    std::string all;
    for (const std::string& line : lines)
        all += line + "\n";
    for (const char* text : {"10.1.3.143", "10.1.6.18", "32803", "1232", "5001"})
        EXPECT_NE(std::string::npos, all.find(text)) << text;
    EXPECT_EQ(std::string::npos, all.find("Malformed"));
}

} // namespace
