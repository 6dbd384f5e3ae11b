// H.245 in whole calls through the C API: fast start offered, answered, refused and filtered,
// logical channels on the separate H.245 connection, tunnelled capability sets and T.120. Each
// flow is compared whole with a golden transcript at level 5 (results, host callbacks, log lines,
// the PDUs sent on in value notation, the media sessions at the end).
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

namespace {

using Body = H225::H323_UU_PDU_h323_message_body;

class FlowTest : public H323HostTest {
protected:
    void SetUp() override {
        H323HostTest::SetUp();
        t.Listen();
        t.Ignore(DecodeFrameContext());
    }
    void ExpectTranscript(TestCall& call, const std::string& name) {
        call.NoteSessions(t);
        ExpectGolden("h245/" + name + ".txt", t.str());
    }
    Bytes FastStartSetup() { return Frame(Encode(SynthSetup())); }
    Transcript t{5};
};

// The callee accepts G.711 mu-law in CONNECT, the reverse element listed first; the CONNECT is
// then retransmitted and rewritten alike from the stored addresses, without asking the host.
TEST_F(FlowTest, FastStartAcceptedThenConnectRetransmitted) {
    TestCall call;
    call.Step(t, "SETUP offering fast start", true, FastStartSetup());
    H225::H323_UserInformation connect = Message(Body::connect::id_, true);
    auto& fastStart = ConnectOf(connect).set_fastStart(OctetStringList());
    fastStart.push_back(EncodeOctets(ReverseAudioOLC(2, 1, "192.0.2.10:6000", "192.0.2.10:6001")));
    fastStart.push_back(EncodeOctets(AudioOLC(1, 1, "192.0.2.10:6000", "192.0.2.10:6001")));
    const Bytes connectFrame = Frame(Encode(connect), 0x07);
    call.Step(t, "CONNECT accepting fast start", false, connectFrame);
    call.Step(t, "CONNECT again", false, connectFrame);
    ExpectTranscript(call, "fast-start-accepted");
}

// fastConnectRefused in ALERTING closes the offer's channel, once.
TEST_F(FlowTest, FastConnectRefused) {
    TestCall call;
    call.Step(t, "SETUP offering fast start", true, FastStartSetup());
    H225::H323_UserInformation alerting = Message(Body::alerting::id_, true);
    alerting.ref_h323_uu_pdu().ref_h323_message_body().ref_alerting().set_fastConnectRefused(
        ASN1::Null());
    const Bytes frame = Frame(Encode(alerting), 0x01);
    call.Step(t, "ALERTING refusing fast start", false, frame);
    call.Step(t, "ALERTING again", false, frame);
    ExpectTranscript(call, "fast-connect-refused");
}

// An OpenLogicalChannel before CONNECT: the caller's own leaves the fast start offer alone; the
// callee's means it turned fast start down, so the offer's channel is closed first.
TEST_F(FlowTest, ChannelsBeforeConnect) {
    TestCall call;
    call.Step(t, "SETUP offering fast start", true, FastStartSetup());
    call.StepH245(t, "OLC", true,
                  Encode(Request(AudioOLC(3, 2, "10.0.0.5:5100", "10.0.0.5:5101"))));
    call.StepH245(t, "OLC", false,
                  Encode(Request(AudioOLC(7, 1, "192.0.2.10:7000", "192.0.2.10:7001"))));
    ExpectTranscript(call, "channels-before-connect");
}

// Every proposal of a codec the host vetoes is taken out, the rest keep their order; with every
// codec vetoed the call is shut down.
TEST_F(FlowTest, FastStartFiltered) {
    host().refusedCodecs = {"PCMU"};
    TestCall call;
    call.Step(t, "SETUP offering fast start, PCMU vetoed", true, FastStartSetup());
    host().refusedCodecs = {"G729A", "PCMU", "PCMA"};
    TestCall none;
    none.Step(t, "SETUP offering fast start, every codec vetoed", true, FastStartSetup());
    ExpectTranscript(none, "fast-start-filtered");
}

// A slow-start call: each side opens a channel on the separate H.245 connection and the other
// acknowledges; the second channel of the session uses the stored addresses.
TEST_F(FlowTest, SlowStartChannels) {
    TestCall call;
    call.Step(t, "SETUP", true, SlowStartSetup());
    call.Step(t, "CONNECT", false, ConnectWithH245Address("192.0.2.10:1232"));
    call.StepH245(t, "OLC", true,
                  Encode(Request(AudioOLC(101, 1, "10.0.0.5:5000", "10.0.0.5:5001"))));
    call.StepH245(t, "OLC ack", false,
                  Encode(Response(OLCAck(101, "192.0.2.10:6000", "192.0.2.10:6001"))));
    call.StepH245(t, "OLC", false,
                  Encode(Request(AudioOLC(201, 1, "192.0.2.10:6000", "192.0.2.10:6001",
                                          H245::AudioCapability::g711Alaw64k::id_))));
    call.StepH245(t, "OLC ack", true, Encode(Response(OLCAck(201, "10.0.0.5:5000", ""))));
    call.StepH245(t, "OLC ack for no channel", false,
                  Encode(Response(OLCAck(999, "192.0.2.10:6000", ""))));
    ExpectTranscript(call, "slow-start-channels");
}

// The tunnelled capability set loses the vetoed codec (in its table and descriptors); the
// master/slave determination beside it goes on byte for byte.
TEST_F(FlowTest, TunnelledCapabilitySetFiltered) {
    host().refusedCodecs = {"PCMU"};
    TestCall call;
    H225::H323_UserInformation ui = SynthSetup();
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_fastStart);
    call.Step(t, "SETUP tunnelling TCS and MSD", true, Frame(Encode(ui)));
    ExpectTranscript(call, "tunnelled-tcs-filtered");
}

// A T.120 channel's separate stack address goes through the host's media address translation.
TEST_F(FlowTest, T120SeparateStack) {
    TestCall call;
    call.Step(t, "SETUP", true, SlowStartSetup());
    H245::OpenLogicalChannel olc = AudioOLC(5, 3, "", "");
    auto& dataType = olc.ref_forwardLogicalChannelParameters().ref_dataType();
    dataType.select(H245::DataType::data::id_);
    dataType.ref_data().ref_application().select(
        H245::DataApplicationCapability_application::t120::id_);
    dataType.ref_data().ref_application().ref_t120().select(H245::DataProtocolCapability::tcp::id_);
    auto& stack = olc.set_separateStack(H245::NetworkAccessParameters());
    stack.ref_networkAddress().select(
        H245::NetworkAccessParameters_networkAddress::localAreaAddress::id_);
    SetH245Address(stack.ref_networkAddress().ref_localAreaAddress(), "10.0.0.5:1503");
    const Bytes pdu = Encode(Request(olc));
    call.StepH245(t, "T.120 OLC", true, pdu);
    host().failTranslateMedia = true;
    call.StepH245(t, "T.120 OLC, the host failing", true, pdu);
    // Without the callback the address is written back unchanged, still as a rewrite.
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, nullptr);
    Bytes out;
    EXPECT_EQ(1, call.SendH245(true, pdu, &out));
    EXPECT_EQ(pdu, out);
    H245::OpenLogicalChannelAck ack = OLCAck(5, "", "");
    SetH245Address(ack.set_separateStack(stack).ref_networkAddress().ref_localAreaAddress(),
                   "192.0.2.10:1503");
    call.StepH245(t, "T.120 OLC ack", false, Encode(Response(ack)));
    ExpectTranscript(call, "t120");
}

} // namespace
