// Whole H.225.0 calls through the C API, each compared whole with a golden transcript at level 5:
// every step's result, status word and call state, the host's callbacks in order, every log line
// with its source path, and each PDU sent on in value notation.
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

using Body = H225::H323_UU_PDU_h323_message_body;

Bytes Plain(int tag, unsigned char type) {
    return Frame(Encode(Message(tag)), type);
}

class CallTest : public H323HostTest {
protected:
    void SetUp() override {
        H323HostTest::SetUp();
        t.Listen();
        t.Ignore(DecodeFrameContext());
    }
    void ExpectTranscript(const std::string& name) {
        ExpectGolden("h225/" + name + ".txt", t.str());
    }
    Transcript t{5};
};

// A slow-start call from SETUP to RELEASE COMPLETE, with the messages either side may send.
TEST_F(CallTest, SlowStartCall) {
    TestCall call;
    call.Step(t, "SETUP", true, SlowStartSetup());
    call.Step(t, "CALL PROCEEDING", false, Plain(Body::callProceeding::id_, 0x02));
    call.Step(t, "ALERTING", false, Plain(Body::alerting::id_, 0x01));
    call.Step(t, "PROGRESS", false, Plain(Body::progress::id_, 0x03));
    call.Step(t, "CONNECT", false, ConnectWithH245Address("192.0.2.10:1232"));
    call.Step(t, "FACILITY", true, Plain(Body::facility::id_, 0x62));
    call.Step(t, "INFORMATION", false, Plain(Body::information::id_, 0x7b));
    const Bytes release = Plain(Body::releaseComplete::id_, 0x5a);
    for (bool side : {true, false}) {
        call.Step(t, "RELEASE COMPLETE", side, release);
        // Nothing to encode: the buffer is left alone.
        Bytes buffer(64, 0xAA);
        unsigned size = static_cast<unsigned>(buffer.size());
        EXPECT_EQ(0, h323xlate_h225_encodeh225pdu(call.handle, buffer.data(), &size));
        EXPECT_EQ(Bytes(64, 0xAA), buffer);
    }
    ExpectTranscript("slow-start-call");
}

TEST_F(CallTest, MessagesFromTheWrongLegOrInTheWrongState) {
    TestCall call;
    call.Step(t, "CALL PROCEEDING", false, Plain(Body::callProceeding::id_, 0x02));
    call.Step(t, "EMPTY", true, Plain(Body::empty::id_, 0x62));
    call.Step(t, "SETUP", false, SlowStartSetup());
    call.Step(t, "SETUP", true, SlowStartSetup());
    call.Step(t, "SETUP", true, SlowStartSetup());
    call.Step(t, "CONNECT", true, Plain(Body::connect::id_, 0x07));
    ExpectTranscript("wrong-leg-or-state");
}

TEST_F(CallTest, EmptyIsAHoldNotification) {
    host().Install(true, true);
    TestCall call;
    const Bytes empty = Plain(Body::empty::id_, 0x62);
    call.Step(t, "SETUP", true, SlowStartSetup());
    call.Step(t, "EMPTY", false, empty);
    host().holdResult = -1;
    call.Step(t, "EMPTY, the host refusing the hold", true, empty);
    ExpectTranscript("hold");
}

TEST_F(CallTest, SetupChecks) {
    // The originator is not where the proxy expected: a warning, the call goes on.
    CallAddresses moved;
    moved.expectedOriginator = Addr("10.0.0.99:1720");
    TestCall call(moved);
    call.Step(t, "SETUP", true, SlowStartSetup());

    H225::H323_UserInformation ipx = SynthSetup();
    SetIpx(SetupOf(ipx).ref_destCallSignalAddress());
    TestCall ipxCall;
    ipxCall.Step(t, "SETUP to an IPX address", true, Frame(Encode(ipx)));

    // Announcing exactly what the SETUP carries leaves parallelH245Control as the only change,
    // which is then dropped without a rewrite.
    CallAddresses same;
    same.announcedOriginator = same.expectedOriginator;
    same.announcedDestination = same.expectedDestination;
    TestCall parallel(same);
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_sourceCallSignalAddress);
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_destCallSignalAddress);
    SetupOf(ui).set_parallelH245Control(OctetStringList());
    parallel.Step(t, "SETUP with parallelH245Control", true, Frame(Encode(ui)));
    ExpectTranscript("setup-checks");
}

TEST_F(CallTest, H245Relay) {
    // The caller announces its H.245 address in SETUP; the callee's in CONNECT is a repeat and
    // gets the first relay.
    TestCall call;
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    SetTransportAddress(SetupOf(ui).set_h245Address(H225::TransportAddress()), "10.0.0.5:1300");
    call.Step(t, "SETUP with an H.245 address", true, Frame(Encode(ui)));
    call.Step(t, "CONNECT with an H.245 address", false, ConnectWithH245Address("192.0.2.10:1232"));

    // A host that refuses the relay shuts the call down; it does not connect.
    host().failOpenH245 = true;
    TestCall refused;
    refused.Step(t, "SETUP", true, SlowStartSetup());
    refused.Step(t, "CONNECT, the host refusing the relay", false,
                 ConnectWithH245Address("192.0.2.10:1232"));
    ExpectTranscript("h245-relay");
}

TEST_F(CallTest, TranslateAndEncodeBeforeAnyDecode) {
    TestCall call;
    int status = -5;
    EXPECT_EQ(0, h323xlate_h225_translateh225pdu(call.handle, 1, &status));
    EXPECT_EQ(-1, status);
    unsigned char buffer[16];
    unsigned size = sizeof buffer;
    EXPECT_EQ(0, h323xlate_h225_encodeh225pdu(call.handle, buffer, &size));
    // A failed decode leaves nothing to translate either.
    const unsigned char bad[] = {0x08, 0x02, 0x00, 0x01, 0x05, 0x7E, 0x00, 0x03, 0x05, 0xFF, 0xFF};
    EXPECT_EQ(-2, h323xlate_h225_decodeh225pdu(call.handle, bad, sizeof bad));
    EXPECT_EQ(0, h323xlate_h225_translateh225pdu(call.handle, 1, &status));
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);
}

TEST_F(CallTest, NullHandlesAndAFreshCallRecord) {
    int status = 7;
    unsigned size = 4;
    unsigned char buffer[4];
    EXPECT_EQ(-1, h323xlate_h225_translateh225pdu(nullptr, 1, &status));
    EXPECT_EQ(7, status);
    EXPECT_EQ(-1, h323xlate_h225_decodeh225pdu(nullptr, buffer, 4));
    EXPECT_EQ(-1, h323xlate_h225_encodeh225pdu(nullptr, buffer, &size));
    EXPECT_EQ(-1, h323xlate_h225_translateh245pdu(nullptr, 1, buffer, 4, buffer, &size));
    EXPECT_EQ(nullptr, h323xlate_h225_getcallstatus(nullptr));
    EXPECT_EQ(-1, h323xlate_h225_setheaderstring(nullptr, buffer, 4, 1, nullptr, buffer, &size));
    EXPECT_EQ(nullptr, h323xlate_h225_getheaderstring(nullptr, buffer, 4, 1));
    h323xlate_h225_destroy(nullptr);

    const int64_t before = static_cast<int64_t>(std::time(nullptr));
    TestCall call;
    EXPECT_EQ(1, call.Info().status);
    EXPECT_GE(call.Info().startTime, before);
    EXPECT_LE(call.Info().startTime, before + 5);
    call.NoteSessions(t);
    EXPECT_EQ("", t.str());
}

} // namespace
