// Real traffic: captured H.323 calls replayed message by message through the C API and compared
// whole with golden transcripts (results, host callbacks, the PDUs sent on), and the Ekiga fast
// start SETUP. That tshark reads such rewritten calls as well formed is checked where the replay
// tool rewrites the same capture (tests/replay/tool_test.cpp).
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

namespace {

class CorpusTest : public H323HostTest {
protected:
    // Replays a capture of tests/data/h323 ("FRAME O|D h225|h245 HEX" a line, as extract.py wrote
    // it) into a transcript (log level 1) compared with h225/<capture>.
    static void Replay(const std::string& capture, const CallAddresses& addresses) {
        Transcript t(1);
        t.Ignore(DecodeFrameContext());
        TestCall call(addresses);
        std::ifstream in(DataFile("h323/" + capture));
        for (std::string frame, side, channel, hex; in >> frame >> side >> channel >> hex;) {
            if (channel == "h245")
                call.StepH245(t, "frame " + frame, side == "O", FromHex(hex));
            else
                call.Step(t, "frame " + frame, side == "O", FromHex(hex));
        }
        call.NoteSessions(t);
        ExpectGolden("h225/" + capture, t.str());
    }
    static CallAddresses RtpExampleAddresses() {
        CallAddresses a;
        a.expectedOriginator = Addr("10.1.3.143:32803");
        a.expectedDestination = Addr("10.1.6.18:1720");
        a.announcedOriginator = Addr("198.51.100.1:1720");
        a.announcedDestination = Addr("198.51.100.2:1720");
        return a;
    }
};

// SETUP, CALL PROCEEDING, ALERTING, CONNECT with an H.245 address, then capability exchange,
// master/slave determination and one G.711 A-law channel each way on the H.245 connection (the
// ndpi capture with retransmissions).
TEST_F(CorpusTest, RtpExampleCall) {
    Replay("rtp-example-1.txt", RtpExampleAddresses());
}

TEST_F(CorpusTest, NdpiCallWithRetransmissions) {
    Replay("ndpi-h323-1.txt", RtpExampleAddresses());
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
    call.Step(t, "SETUP", true, Bytes(tpkt.begin() + 4, tpkt.end()));
    ExpectGolden("h225/ekiga-setup-faststart.txt", t.str());
}

} // namespace
