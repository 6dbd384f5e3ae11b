// Whole H.323 calls through the C API, seen from the host: results, status words, callbacks in
// order, the call information record, the rewritten PDUs decoded again, and the log.
#include "h323_test_support.h"
#include "log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

namespace {

using Body = H225::H323_UU_PDU_h323_message_body;

bool StartsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// Call signalling lines name the H.225 source, media control and fast start lines the H.245
// one, except the four lines that report a fast start answer to the H.225 message handling.
void ExpectSourcePaths() {
    for (const LoggedLine& line : LogCapture::lines()) {
        if (line.context == DecodeFrameContext())
            continue;
        const std::string& t = line.text;
        const bool h245 = StartsWith(t, "H.245\t") || StartsWith(t, "H245\t") ||
                          StartsWith(t, "H.225\tTranslating H.245 from call") ||
                          StartsWith(t, "H.225\tfastStart") ||
                          StartsWith(t, "H.225\tcannot decode fastStart") ||
                          StartsWith(t, "H.225\terror translating fastStart");
        EXPECT_EQ(h245 ? "src/libs/voipfilter/h245_xlate" : "src/libs/voipfilter/h225_xlate",
                  line.file)
            << t;
        EXPECT_EQ(TestHost::this_call(), line.context) << t;
    }
}

class CallFlowTest : public H323HostTest {
protected:
    static std::vector<H245::OpenLogicalChannel> FastStartOf(const OctetStringList& list) {
        std::vector<H245::OpenLogicalChannel> elements(list.size());
        for (unsigned i = 0; i < list.size(); ++i)
            EXPECT_EQ(1, ASN1::ASNDecode(list[i], elements[i])) << "element " << i;
        return elements;
    }

    static H245::H2250LogicalChannelParameters& ParametersOf(H245::OpenLogicalChannel& olc) {
        if (olc.reverseLogicalChannelParameters_isPresent())
            return olc.ref_reverseLogicalChannelParameters()
                .ref_multiplexParameters()
                .ref_h2250LogicalChannelParameters();
        return olc.ref_forwardLogicalChannelParameters()
            .ref_multiplexParameters()
            .ref_h2250LogicalChannelParameters();
    }
};

TEST_F(CallFlowTest, FastStartAcceptedThenConnectRetransmitted) {
    LogCapture log(5);
    TestCall call;
    Bytes out;
    int status = -5;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(SynthSetup())), &out, &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ(VOIPXLATE_H225_SETUP, call.Info().state);

    // Each proposal is offered to the host's codec veto, then the first of session 1 opens
    // the forward channel; the rest reuse it.
    EXPECT_EQ((std::vector<std::string>{
                  "allowCodec kind=1 G729A",
                  "openRTP dir=1 session=1 codec=G729A rtp=10.0.0.5:5000 rtcp=10.0.0.5:5001 "
                  "pre=10.0.0.5:5000",
                  "allowCodec kind=1 G729A",
                  "allowCodec kind=1 PCMU",
                  "allowCodec kind=1 PCMU",
                  "allowCodec kind=1 PCMA",
                  "allowCodec kind=1 PCMA",
              }),
              host().events);

    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    H225::Setup_UUIE& setup = SetupOf(sent);
    EXPECT_EQ("198.51.100.1:1720", H225Text(setup.get_sourceCallSignalAddress()));
    EXPECT_EQ("198.51.100.1:11720", H225Text(setup.get_destCallSignalAddress()));
    std::vector<H245::OpenLogicalChannel> offer = FastStartOf(setup.ref_fastStart());
    ASSERT_EQ(6u, offer.size());
    for (H245::OpenLogicalChannel& olc : offer) {
        H245::H2250LogicalChannelParameters& p = ParametersOf(olc);
        if (p.mediaChannel_isPresent()) {
            EXPECT_EQ("192.0.2.100:20000", H245Text(p.get_mediaChannel()));
        }
        ASSERT_TRUE(p.mediaControlChannel_isPresent());
        EXPECT_EQ("192.0.2.100:20001", H245Text(p.get_mediaControlChannel()));
    }
    const voipxlate_mediasessioninformation& session = call.Session(0);
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN, session.flags);
    EXPECT_EQ(1, session.sessionID);
    EXPECT_EQ(VOIPXLATE_MEDIA_AUDIO, session.mediaKind);
    EXPECT_STREQ("G729A", session.codecName);
    EXPECT_EQ(101, session.forwardUserData);
    EXPECT_EQ(0u, call.Session(1).flags);

    // CONNECT with the callee's accepted channels, the reverse element listed first: it sends
    // G.711 mu-law to 192.0.2.10:6000 (RTCP 6001) and receives on the same.
    host().events.clear();
    H225::H323_UserInformation connect = Message(Body::connect::id_, true);
    auto& fastStart = ConnectOf(connect).set_fastStart(OctetStringList());
    fastStart.push_back(EncodeOctets(ReverseAudioOLC(2, 1, "192.0.2.10:6000", "192.0.2.10:6001")));
    fastStart.push_back(EncodeOctets(AudioOLC(1, 1, "192.0.2.10:6000", "192.0.2.10:6001")));
    const Bytes connectFrame = Frame(Encode(connect), 0x07);
    ASSERT_EQ(1, call.Send(false, connectFrame, &out, &status));
    EXPECT_EQ(2, status);
    EXPECT_EQ(VOIPXLATE_H225_CONNECTED, call.Info().state);
    ASSERT_FALSE(host().events.empty());
    EXPECT_EQ("openRTP dir=0 session=1 codec=G729A rtp=192.0.2.10:6000 rtcp=192.0.2.10:6001 "
              "pre=192.0.2.10:6000",
              host().events[0]);
    // The nine records no session holds are released, forward then reverse handle.
    std::vector<std::string> expectedCloses;
    for (int i = 0; i < 9; ++i) {
        expectedCloses.push_back("closeRTP handle=0 dir=1");
        expectedCloses.push_back("closeRTP handle=0 dir=0");
    }
    EXPECT_EQ(expectedCloses,
              std::vector<std::string>(host().events.begin() + 1, host().events.end()));
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_ANSWERED |
                  VOIPXLATE_SESSION_FORWARD_OPEN | VOIPXLATE_SESSION_REVERSE_OPEN,
              call.Session(0).flags);
    EXPECT_EQ(102, call.Session(0).reverseUserData);

    ASSERT_TRUE(DecodeFrame(out, sent));
    std::vector<H245::OpenLogicalChannel> answer = FastStartOf(ConnectOf(sent).ref_fastStart());
    ASSERT_EQ(2u, answer.size());
    for (H245::OpenLogicalChannel& olc : answer) {
        EXPECT_EQ("192.0.2.100:20002", H245Text(ParametersOf(olc).get_mediaChannel()));
        EXPECT_EQ("192.0.2.100:20003", H245Text(ParametersOf(olc).get_mediaControlChannel()));
    }
    EXPECT_TRUE(LogCapture::Has("H225\tfastStart translation succeeded\n"));

    // The same CONNECT again: rewritten alike from the stored addresses, no host call.
    host().events.clear();
    Bytes again;
    ASSERT_EQ(1, call.Send(false, connectFrame, &again, &status));
    EXPECT_TRUE(host().events.empty());
    EXPECT_EQ(out, again);
    EXPECT_TRUE(
        LogCapture::Has("H.225\tfastStart already accepted - retranslating retransmission\n"));
    EXPECT_TRUE(LogCapture::HasPrefix(5, "H.225\tTranslating PDU from call originator\n"));
    EXPECT_TRUE(LogCapture::HasPrefix(5, "H.245\tTranslating fastStart reply\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\t Decoding the PDU \n"));
    ExpectSourcePaths();
}

TEST_F(CallFlowTest, FastConnectRefusedReleasesTheOfferOnce) {
    LogCapture log(2);
    TestCall call;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(SynthSetup()))));
    host().events.clear();

    H225::H323_UserInformation alerting = Message(Body::alerting::id_, true);
    alerting.ref_h323_uu_pdu().ref_h323_message_body().ref_alerting().set_fastConnectRefused(
        ASN1::Null());
    const Bytes frame = Frame(Encode(alerting), 0x01);
    int status = -5;
    EXPECT_EQ(0, call.Send(false, frame, nullptr, &status));
    EXPECT_EQ(3, status);
    EXPECT_EQ(std::vector<std::string>{"closeRTP handle=101 dir=1"}, host().events);
    EXPECT_EQ(VOIPXLATE_SESSION_FORWARD_OPEN, call.Session(0).flags);
    EXPECT_TRUE(call.handle->SetupFlags() & setupflag::kFastStartRefused);

    bool refusedFromH225 = false, refusedFromH245 = false;
    for (const LoggedLine& line : LogCapture::lines()) {
        if (line.text == "H225\tfastStart refused\n" && line.level == 1)
            refusedFromH225 = line.file == "src/libs/voipfilter/h225_xlate";
        if (line.text == "H245\tFastStart refused\n" && line.level == 2)
            refusedFromH245 = line.file == "src/libs/voipfilter/h245_xlate";
    }
    EXPECT_TRUE(refusedFromH225);
    EXPECT_TRUE(refusedFromH245);

    host().events.clear();
    EXPECT_EQ(0, call.Send(false, frame));
    EXPECT_TRUE(host().events.empty());
}

TEST_F(CallFlowTest, H245ChannelFromDestinationBeforeConnectRefusesFastStart) {
    TestCall call;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(SynthSetup()))));
    host().events.clear();

    H245::MultimediaSystemControlMessage olc =
        Request(AudioOLC(7, 1, "192.0.2.10:7000", "192.0.2.10:7001"));
    Bytes out;
    ASSERT_EQ(1, call.SendH245(false, Encode(olc), &out));
    // The offer's channel is closed first, then the callee's channel gets a new record.
    ASSERT_EQ(2u, host().events.size());
    EXPECT_EQ("closeRTP handle=101 dir=1", host().events[0]);
    EXPECT_EQ("openRTP dir=0 session=1 codec=PCMU rtp=192.0.2.10:7000 rtcp=192.0.2.10:7001 "
              "pre=192.0.2.10:7000",
              host().events[1]);
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_REVERSE_OPEN, call.Session(0).flags);
    EXPECT_EQ(7u, call.Session(0).destinationChannel);

    H245::MultimediaSystemControlMessage sent = DecodeH245(out);
    auto& params = OlcParameters(sent);
    EXPECT_EQ("192.0.2.100:20002", H245Text(params.get_mediaChannel()));
    EXPECT_EQ("192.0.2.100:20003", H245Text(params.get_mediaControlChannel()));
}

TEST_F(CallFlowTest, SlowStartWithSeparateH245Channel) {
    LogCapture log(3);
    TestCall call;
    Bytes out;
    // Without fast start, the SETUP's only changes are the call signalling addresses.
    ASSERT_EQ(1, call.Send(true, SlowStartSetup(), &out));
    EXPECT_TRUE(host().events.empty());
    EXPECT_FALSE(call.handle->SetupFlags() & setupflag::kFastStartOffered);

    int status = -5;
    ASSERT_EQ(1, call.Send(false, ConnectWithH245Address("192.0.2.10:1232"), &out, &status));
    EXPECT_EQ(2, status);
    EXPECT_EQ(std::vector<std::string>{"openH245 dir=0 192.0.2.10:1232 pre=192.0.2.10:1232"},
              host().events);
    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    EXPECT_EQ("192.0.2.100:30000", H225Text(ConnectOf(sent).get_h245Address()));
    EXPECT_TRUE(LogCapture::Has("H.225\tH.245 tunnelling disabled\n"));
    EXPECT_EQ(VOIPXLATE_H225_CONNECTED, call.Info().state);

    // Caller opens its channel, the callee acknowledges, then the other way round.
    host().events.clear();
    ASSERT_EQ(1, call.SendH245(true,
                               Encode(Request(AudioOLC(101, 1, "10.0.0.5:5000", "10.0.0.5:5001"))),
                               &out));
    H245::MultimediaSystemControlMessage m = DecodeH245(out);
    EXPECT_EQ("192.0.2.100:20000", H245Text(OlcParameters(m).get_mediaChannel()));
    EXPECT_TRUE(LogCapture::Has("H.245\tforward OLC for session 1 of type PCMU\n"));
    EXPECT_TRUE(LogCapture::Has(
        "H.245\tforward OLC for session 1 translated from 10.0.0.5:5000 to 192.0.2.100:20000\n"));

    ASSERT_EQ(1, call.SendH245(false,
                               Encode(Response(OLCAck(101, "192.0.2.10:6000", "192.0.2.10:6001"))),
                               &out));
    m = DecodeH245(out);
    auto& ackParams = AckParameters(m);
    EXPECT_EQ("192.0.2.100:20002", H245Text(ackParams.get_mediaChannel()));
    EXPECT_EQ("192.0.2.100:20003", H245Text(ackParams.get_mediaControlChannel()));
    EXPECT_TRUE(LogCapture::Has("H.245\treverse OLC ack for session 1 translated from "
                                "192.0.2.10:6000 to 192.0.2.100:20002\n"));

    // The callee's own channel of the same session, and the caller's ack: both directions
    // are open already, so the stored addresses are used and the host is not asked again.
    ASSERT_EQ(1, call.SendH245(false,
                               Encode(Request(AudioOLC(201, 1, "192.0.2.10:6000", "192.0.2.10:6001",
                                                       H245::AudioCapability::g711Alaw64k::id_))),
                               &out));
    ASSERT_EQ(1, call.SendH245(true, Encode(Response(OLCAck(201, "10.0.0.5:5000", ""))), &out));
    m = DecodeH245(out);
    auto& ack2 = AckParameters(m);
    EXPECT_EQ("192.0.2.100:20000", H245Text(ack2.get_mediaChannel()));
    EXPECT_FALSE(ack2.mediaControlChannel_isPresent());

    EXPECT_EQ((std::vector<std::string>{
                  "openRTP dir=1 session=1 codec=PCMU rtp=10.0.0.5:5000 rtcp=10.0.0.5:5001 "
                  "pre=10.0.0.5:5000",
                  "openRTP dir=0 session=1 codec=PCMU rtp=192.0.2.10:6000 rtcp=192.0.2.10:6001 "
                  "pre=192.0.2.10:6000",
              }),
              host().events);
    const voipxlate_mediasessioninformation& s = call.Session(0);
    EXPECT_STREQ("PCMU", s.codecName); // fixed by the first channel of the session
    EXPECT_EQ(101u, s.originatorChannel);
    EXPECT_EQ(201u, s.destinationChannel);
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN |
                  VOIPXLATE_SESSION_REVERSE_OPEN,
              s.flags);
    EXPECT_EQ(0u, call.Session(1).flags);

    // An ack for a channel nobody opened passes unchanged.
    EXPECT_EQ(0, call.SendH245(false, Encode(Response(OLCAck(999, "192.0.2.10:6000", "")))));
    EXPECT_TRUE(LogCapture::Has("H.245\tcannot find matching OLC for OLCack\n"));
    ExpectSourcePaths();
}

TEST_F(CallFlowTest, TunnelledCapabilitySetIsFiltered) {
    LogCapture log(2);
    host().refusedCodecs = {"PCMU"};
    TestCall call;
    // A slow-start SETUP that tunnels the synthesized capability set and MSD.
    H225::H323_UserInformation ui = SynthSetup();
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_fastStart);
    Bytes out;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(ui)), &out));
    EXPECT_EQ((std::vector<std::string>{"allowCodec kind=1 G729A", "allowCodec kind=1 PCMU",
                                        "allowCodec kind=1 PCMA", "allowCodec kind=0 (unknown)"}),
              host().events);
    EXPECT_TRUE(LogCapture::Has("H.245\tCodec PCMU in TCS was filtered out\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\tTunneled H.245 was translated\n"));

    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    auto& control = sent.ref_h323_uu_pdu().ref_h245Control();
    ASSERT_EQ(2u, control.size());
    H245::MultimediaSystemControlMessage tcsMessage;
    ASSERT_EQ(1, ASN1::ASNDecode(control[0], tcsMessage));
    H245::TerminalCapabilitySet& tcs = tcsMessage.ref_request().ref_terminalCapabilitySet();
    ASSERT_EQ(3u, tcs.get_capabilityTable().size());
    EXPECT_EQ(1, tcs.get_capabilityTable()[0].get_capabilityTableEntryNumber().getValue());
    EXPECT_EQ(3, tcs.get_capabilityTable()[1].get_capabilityTableEntryNumber().getValue());
    EXPECT_EQ(4, tcs.get_capabilityTable()[2].get_capabilityTableEntryNumber().getValue());
    // The descriptor's set {1, 2, 3} lost 2; the set {4} stays.
    const auto& descriptors = tcs.get_capabilityDescriptors();
    ASSERT_EQ(1u, descriptors.size());
    const auto& sets = descriptors[0].get_simultaneousCapabilities();
    ASSERT_EQ(2u, sets.size());
    ASSERT_EQ(2u, sets[0].size());
    EXPECT_EQ(1, sets[0][0].getValue());
    EXPECT_EQ(3, sets[0][1].getValue());
    ASSERT_EQ(1u, sets[1].size());
    EXPECT_EQ(4, sets[1][0].getValue());
    // The MSD element is forwarded byte for byte.
    H225::H323_UserInformation original = SynthSetup();
    EXPECT_EQ(
        static_cast<const std::vector<char>&>(original.ref_h323_uu_pdu().ref_h245Control()[1]),
        static_cast<const std::vector<char>&>(control[1]));
}

TEST_F(CallFlowTest, EmptyIsAHoldNotification) {
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, nullptr);
    host().Install(true, true);
    LogCapture log(2);
    TestCall call;
    const Bytes empty = Frame(Encode(Message(Body::empty::id_)), 0x62);
    int status = -5;
    EXPECT_EQ(-2, call.Send(true, empty, nullptr, &status));
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(LogCapture::Has("H.225\tINFORMATION received when in Idle state\n"));
    EXPECT_TRUE(host().events.empty());

    ASSERT_EQ(1, call.Send(true, SlowStartSetup()));
    host().events.clear();
    EXPECT_EQ(0, call.Send(false, empty, nullptr, &status));
    EXPECT_EQ(8, status);
    EXPECT_EQ(std::vector<std::string>{"hold 1"}, host().events);
    EXPECT_TRUE(LogCapture::Has("H.225\tHold notification received\n"));

    host().holdResult = -1;
    EXPECT_EQ(-2, call.Send(true, empty));
    EXPECT_TRUE(LogCapture::Has("H.225\tCall shutdown by EMPTY PDU\n"));
}

TEST_F(CallFlowTest, T120SeparateStackAddress) {
    LogCapture log(3);
    TestCall call;
    ASSERT_EQ(1, call.Send(true, SlowStartSetup()));
    host().events.clear();

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

    Bytes out;
    ASSERT_EQ(1, call.SendH245(true, pdu, &out));
    EXPECT_EQ(std::vector<std::string>{"translateMedia dir=1 10.0.0.5:1503 pre=10.0.0.5:1503"},
              host().events);
    EXPECT_TRUE(LogCapture::Has("H.245\tOffering T.120 address of 10.0.0.5:1503\n"));
    H245::MultimediaSystemControlMessage sent = DecodeH245(out);
    EXPECT_EQ("192.0.2.100:40000", H245Text(sent.ref_request()
                                                .ref_openLogicalChannel()
                                                .ref_separateStack()
                                                .ref_networkAddress()
                                                .ref_localAreaAddress()));
    EXPECT_EQ(0u, call.Session(0).flags); // T.120 has no media session

    host().failTranslateMedia = true;
    EXPECT_EQ(-1, call.SendH245(true, pdu));
    EXPECT_TRUE(LogCapture::Has("H.245\tFailed to translate T.120 address\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\tOLC translation failed for H.245 message\n"));

    // Without the callback the address is written back unchanged, still as a rewrite.
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, nullptr);
    ASSERT_EQ(1, call.SendH245(true, pdu, &out));
    EXPECT_EQ(pdu, out);

    // The ack's separate stack is announced with its own text.
    H245::OpenLogicalChannelAck ack = OLCAck(5, "", "");
    auto& ackStack = ack.set_separateStack(stack);
    SetH245Address(ackStack.ref_networkAddress().ref_localAreaAddress(), "192.0.2.10:1503");
    ASSERT_EQ(1, call.SendH245(false, Encode(Response(ack))));
    EXPECT_TRUE(LogCapture::Has("New H.245\tOffering T.120 address of 192.0.2.10:1503\n"));
}

TEST_F(CallFlowTest, MessagesFromTheWrongLegOrInTheWrongState) {
    LogCapture log(2);
    TestCall call;
    int status = -5;
    const Bytes proceeding = Frame(Encode(Message(Body::callProceeding::id_)), 0x02);
    EXPECT_EQ(-2, call.Send(false, proceeding, nullptr, &status));
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(LogCapture::Has("H.225\tCALL PROCEEDING received when in Idle state\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\tCall shutdown by CALL PROCEEDING PDU\n"));
    // Every refusal is reported as a shutdown, never as a translation error.
    EXPECT_FALSE(LogCapture::HasPrefix(1, "H.225\tError translating"));

    const Bytes setup = SlowStartSetup();
    EXPECT_EQ(-1, call.Send(false, setup, nullptr, &status));
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(LogCapture::Has("H.225\terror - SETUP PDU received from wrong call leg\n"));
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);

    ASSERT_EQ(1, call.Send(true, setup));
    EXPECT_EQ(-2, call.Send(true, setup, nullptr, &status));
    EXPECT_TRUE(LogCapture::Has("H.225\tSETUP received when not in Idle state\n"));

    const Bytes connect = Frame(Encode(Message(Body::connect::id_)), 0x07);
    EXPECT_EQ(-1, call.Send(true, connect, nullptr, &status));
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(LogCapture::Has("H.225\terror - CONNECT PDU received from wrong call leg\n"));

    const Bytes release = Frame(Encode(Message(Body::releaseComplete::id_)), 0x5a);
    for (bool side : {true, false}) {
        Bytes buffer(64, 0xAA);
        unsigned size = static_cast<unsigned>(buffer.size());
        EXPECT_EQ(0, call.Send(side, release, nullptr, &status));
        EXPECT_EQ(5, status);
        EXPECT_EQ(0, h323xlate_h225_encodeh225pdu(call.handle, buffer.data(), &size));
        EXPECT_EQ(64u, size);
    }
    EXPECT_TRUE(LogCapture::Has("H.225\tNo translation for RELEASE COMPLETE PDU\n"));

    // FACILITY and INFORMATION are accepted from either leg once the call is set up.
    const Bytes facility = Frame(Encode(Message(Body::facility::id_)), 0x62);
    EXPECT_EQ(0, call.Send(true, facility, nullptr, &status));
    EXPECT_EQ(6, status);
    EXPECT_TRUE(LogCapture::Has("H.225\tFACILITY PDU not translated\n"));
    const Bytes information = Frame(Encode(Message(Body::information::id_)), 0x7b);
    EXPECT_EQ(0, call.Send(false, information, nullptr, &status));
    EXPECT_EQ(4, status);
}

TEST_F(CallFlowTest, SetupWhoseFastStartIsFilteredToNothing) {
    LogCapture log(2);
    host().refusedCodecs = {"G729A", "PCMU", "PCMA"};
    TestCall call;
    int status = -5;
    EXPECT_EQ(-2, call.Send(true, Frame(Encode(SynthSetup())), nullptr, &status));
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(LogCapture::Has(
        "H.225\tCall shutdown triggered as all fastStart elements were filtered out\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\tCodec PCMA in fastStart request was filtered out\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\tCall shutdown by SETUP PDU\n"));
    EXPECT_TRUE(host().Events("openRTP").empty());
    EXPECT_EQ(VOIPXLATE_H225_SETUP, call.Info().state);
}

TEST_F(CallFlowTest, FastStartFilteringKeepsTheOrderOfTheRest) {
    host().refusedCodecs = {"PCMU"};
    TestCall call;
    Bytes out;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(SynthSetup())), &out));
    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    std::vector<H245::OpenLogicalChannel> offer = FastStartOf(SetupOf(sent).ref_fastStart());
    ASSERT_EQ(4u, offer.size());
    const int expected[] = {
        H245::AudioCapability::g729AnnexA::id_, H245::AudioCapability::g729AnnexA::id_,
        H245::AudioCapability::g711Alaw64k::id_, H245::AudioCapability::g711Alaw64k::id_};
    for (unsigned i = 0; i < offer.size(); ++i) {
        const H245::DataType* dataType = ClassifyFastStartElement(offer[i]).dataType;
        ASSERT_NE(nullptr, dataType);
        EXPECT_EQ(expected[i], dataType->get_audioData().currentSelection()) << i;
    }
}

TEST_F(CallFlowTest, HostRefusingTheH245RelayShutsTheCallDown) {
    host().failOpenH245 = true;
    TestCall call;
    ASSERT_EQ(1, call.Send(true, SlowStartSetup()));
    EXPECT_EQ(-2, call.Send(false, ConnectWithH245Address("192.0.2.10:1232")));
    EXPECT_EQ(VOIPXLATE_H225_SETUP, call.Info().state); // a failed CONNECT does not connect
}

TEST_F(CallFlowTest, RepeatedH245AddressKeepsTheFirstRelay) {
    LogCapture log(1);
    TestCall call;
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    SetTransportAddress(SetupOf(ui).set_h245Address(H225::TransportAddress()), "10.0.0.5:1300");
    Bytes out;
    ASSERT_EQ(1, call.Send(true, Frame(Encode(ui)), &out));
    EXPECT_EQ(std::vector<std::string>{"openH245 dir=1 10.0.0.5:1300 pre=10.0.0.5:1300"},
              host().events);

    ASSERT_EQ(1, call.Send(false, ConnectWithH245Address("192.0.2.10:1232"), &out));
    EXPECT_EQ(1u, host().events.size());
    EXPECT_TRUE(LogCapture::Has("H.225\twarning: repeated request for H.245 address in CONNECT\n"));
    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    EXPECT_EQ("192.0.2.100:30000", H225Text(ConnectOf(sent).get_h245Address()));
    EXPECT_EQ("10.0.0.5:1300", Text(call.handle->PeerH245Address()));
}

TEST_F(CallFlowTest, ParallelH245ControlIsDroppedOnlyWithOtherChanges) {
    LogCapture log(2);
    CallAddresses addresses;
    // Announce exactly what the SETUP carries, so nothing else changes.
    addresses.announcedOriginator = addresses.expectedOriginator;
    addresses.announcedDestination = addresses.expectedDestination;
    TestCall call(addresses);
    H225::H323_UserInformation ui = SynthSetup();
    H225::Setup_UUIE& setup = SetupOf(ui);
    setup.removeOptionalField(H225::Setup_UUIE::e_fastStart);
    setup.removeOptionalField(H225::Setup_UUIE::e_sourceCallSignalAddress);
    setup.removeOptionalField(H225::Setup_UUIE::e_destCallSignalAddress);
    ui.ref_h323_uu_pdu().removeOptionalField(H225::H323_UU_PDU::e_h245Control);
    setup.set_parallelH245Control(OctetStringList());
    EXPECT_EQ(0, call.Send(true, Frame(Encode(ui))));
    EXPECT_TRUE(LogCapture::Has("H.225\tRemoving parallelH245Control\n"));
}

TEST_F(CallFlowTest, SetupAddressChecks) {
    LogCapture log(1);
    CallAddresses addresses;
    addresses.expectedOriginator = Addr("10.0.0.99:1720");
    TestCall call(addresses);
    EXPECT_EQ(1, call.Send(true, SlowStartSetup()));
    EXPECT_TRUE(LogCapture::Has("H.225\twarning: srcCallSigAddr in SETUP (10.0.0.5:1720) does not "
                                "match address provided by proxy (10.0.0.99:1720)\n"));
    EXPECT_TRUE(call.handle->SetupFlags() & setupflag::kSourceCallSignalAddress);
    EXPECT_TRUE(call.handle->SetupFlags() & setupflag::kCallIdentifier);

    TestCall ipx;
    H225::H323_UserInformation ui = SynthSetup();
    SetIpx(SetupOf(ui).ref_destCallSignalAddress());
    EXPECT_EQ(-2, ipx.Send(true, Frame(Encode(ui))));
    EXPECT_TRUE(LogCapture::Has("H.225\terror: setup contains non-IP destCallSignalAddress\n"));
}

TEST_F(CallFlowTest, TranslateAndEncodeBeforeAnyDecode) {
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

TEST_F(CallFlowTest, NullHandles) {
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
    EXPECT_TRUE(TestHost::Get().events.empty());
}

TEST_F(CallFlowTest, FreshCallRecord) {
    const int64_t before = static_cast<int64_t>(std::time(nullptr));
    TestCall call;
    EXPECT_EQ(1, call.Info().status);
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);
    EXPECT_GE(call.Info().startTime, before);
    EXPECT_LE(call.Info().startTime, before + 5);
    for (const voipxlate_mediasessioninformation& s : call.Info().sessions)
        EXPECT_EQ(0u, s.flags);
}

} // namespace
