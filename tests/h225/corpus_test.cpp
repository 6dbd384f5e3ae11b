// Real and independently encoded traffic: captured H.323 calls replayed message by message through
// the C API and compared whole with golden transcripts (results, host callbacks, the PDUs sent on),
// the Ekiga fast start SETUP, and the rewritten PDUs read by tshark's dissectors where it is
// installed.
#include "golden.h"
#include "h323_test_support.h"
#include "tshark_support.h"

#include <gtest/gtest.h>

#include <map>

namespace {

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

// tshark's view of the PDUs: one line per frame with the malformed and error markers and the
// H.225.0 and H.245 addresses it found. Each PDU goes in a TPKT (RFC 1006) of its own, in TCP from
// the originator 10.1.3.143 to the destination 10.1.6.18 or back, call signalling on 1720 and
// H.245 on 1232.
std::string Tshark(const std::vector<CapturedPdu>& pdus) {
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
    std::string all;
    for (const std::string& line :
         tshark::Run(file.path(), "-d tcp.port==1232,h245 -T fields -E separator=/s "
                                  "-e frame.number -e _ws.malformed -e _ws.expert.severity "
                                  "-e h225.ipV4 -e h225.ipV4_port -e h225.h245Ip "
                                  "-e h225.h245IpPort -e h245.ip4_network -e h245.tsapIdentifier"))
        all += line + "\n";
    return all;
}

class CorpusTest : public H323HostTest {
protected:
    // Replays a capture into a transcript (log level 1) compared with h225/<capture>; returns the
    // PDUs as the host sends them on.
    std::vector<CapturedPdu> Replay(const std::string& capture, const CallAddresses& addresses) {
        Transcript t(1);
        t.Ignore(DecodeFrameContext());
        TestCall call(addresses);
        std::vector<CapturedPdu> sent;
        for (CapturedPdu pdu : LoadCapture(capture)) {
            const std::string frame = "frame " + std::to_string(pdu.frame);
            const Bytes in = pdu.bytes;
            if (pdu.h245)
                call.StepH245(t, frame, pdu.fromOriginator, in, &pdu.bytes);
            else
                call.Step(t, frame, pdu.fromOriginator, in, &pdu.bytes);
            sent.push_back(pdu);
        }
        call.NoteSessions(t);
        ExpectGolden("h225/" + capture, t.str());
        return sent;
    }
    static CallAddresses RtpExampleAddresses() {
        CallAddresses a;
        a.expectedOriginator = Addr("10.1.3.143:32803");
        a.expectedDestination = Addr("10.1.6.18:1720");
        a.announcedOriginator = Addr("198.51.100.1:1720");
        a.announcedDestination = Addr("198.51.100.2:1720");
        return a;
    }
    // The rewritten slow-start call as tshark reads it: well formed, and the endpoints' own
    // addresses are gone from the call signalling and media fields.
    static void Dissect(const std::vector<CapturedPdu>& sent) {
        if (!tshark::Available())
            GTEST_SKIP() << "tshark is not installed: the rewritten call is not dissected";
        const std::string all = Tshark(sent);
        EXPECT_EQ(std::string::npos, all.find("Malformed")) << all;
        for (const char* text :
             {"198.51.100.1", "198.51.100.2", "192.0.2.100", "30000", "20001", "20003"})
            EXPECT_NE(std::string::npos, all.find(text)) << text;
        EXPECT_EQ(std::string::npos, all.find("10.1.3.143")) << all;
        EXPECT_EQ(std::string::npos, all.find("10.1.6.18")) << all;
    }
};

// SETUP, CALL PROCEEDING, ALERTING, CONNECT with an H.245 address, then capability exchange,
// master/slave determination and one G.711 A-law channel each way on the H.245 connection (the
// ndpi capture with retransmissions).
TEST_F(CorpusTest, RtpExampleCall) {
    Dissect(Replay("rtp-example-1.txt", RtpExampleAddresses()));
}

TEST_F(CorpusTest, NdpiCallWithRetransmissions) {
    Dissect(Replay("ndpi-h323-1.txt", RtpExampleAddresses()));
}

// A SETUP and an ALERTING without vendor; a SETUP that does not decode (tshark finds it malformed
// too) and the RELEASE COMPLETE that answers it.
TEST_F(CorpusTest, NdpiShortCalls) {
    CallAddresses a;
    a.expectedOriginator = Addr("192.168.0.208:56837");
    a.expectedDestination = Addr("192.168.0.1:1720");
    Replay("ndpi-h323-2.txt", a);
    Replay("ndpi-h323-3.txt", CallAddresses());
}

// Ekiga offers fourteen fast start proposals and starts H.245 in parallel, which is taken out.
TEST_F(CorpusTest, EkigaFastStartSetup) {
    const Bytes tpkt = ReadFile(DataFile("h323/ekiga-setup-faststart.tpkt.bin"));
    ASSERT_EQ(1041u, tpkt.size());
    host().refusedCodecs = {"non-standard"};
    Transcript t(2);
    t.Ignore(DecodeFrameContext());
    TestCall call;
    CapturedPdu setup{1, true, false, Bytes(tpkt.begin() + 4, tpkt.end())};
    const Bytes in = setup.bytes;
    call.Step(t, "SETUP", true, in, &setup.bytes);
    ExpectGolden("h225/ekiga-setup-faststart.txt", t.str());

    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed: the rewritten SETUP is not dissected";
    const std::string line = Tshark({setup});
    EXPECT_EQ(std::string::npos, line.find("Malformed")) << line;
    EXPECT_NE(std::string::npos, line.find("192.0.2.100")) << line;
}

} // namespace
