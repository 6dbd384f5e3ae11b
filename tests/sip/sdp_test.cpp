// SDP traversal: media lines, connection and origin lines, codec veto, hold and channel handling.
#include "sip_test_host.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using Sdp = SipHostTest;

SipMessage Invite(const std::string& callId, const std::string& body) {
    SipMessage invite;
    invite.callId = callId;
    invite.body = body;
    return invite;
}

TEST_F(Sdp, OfferIsRewrittenAndVetoedCodecsLoseTheirRtpmap) {
    const std::string callId = FreshCall("sdp-offer@test");
    Host().refusedCodecs = {"PCMA"};
    SIPConnection* connection = Connect(&Host());
    const SipMessage invite =
        Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000", "8 PCMA/8000"}));
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    const std::string body = "v=0\r\n"
                             "o=- 1 1 IN IP4 198.51.100.7\r\n"
                             "s=-\r\n"
                             "t=0 0\r\n"
                             "m=audio 14000 RTP/AVP 0 8\r\n"
                             "c=IN IP4 203.0.113.1\r\n"
                             "a=rtpmap:0 PCMU/8000\r\n";
    const std::string expected = "INVITE sip:bob@192.0.2.10 SIP/2.0\r\n"
                                 "Via:SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bK-1\r\n"
                                 "From:Alice <sip:alice@10.0.0.5>;tag=a1\r\n"
                                 "To:<sip:bob@192.0.2.10>\r\n"
                                 "Call-ID:" +
                                 callId +
                                 "\r\n"
                                 "CSeq:1 INVITE\r\n"
                                 "Content-Type:application/sdp\r\n"
                                 "Content-Length:" +
                                 std::to_string(body.size()) + "\r\n\r\n" + body;
    EXPECT_EQ(out_, expected);

    ASSERT_EQ(Host().codecs.size(), 2u);
    EXPECT_EQ(Host().codecs[0].name, "PCMU");
    EXPECT_EQ(Host().codecs[0].kind, VOIPXLATE_MEDIA_AUDIO);
    EXPECT_EQ(Host().codecs[0].context, &Host());
    EXPECT_EQ(Host().codecs[1].name, "PCMA");

    ASSERT_EQ(Host().opens.size(), 1u);
    const OpenRecord& open = Host().opens[0];
    EXPECT_EQ(open.slot, VOIPXLATE_OPEN_RTP_CHANNEL);
    EXPECT_EQ(open.direction, 1);
    EXPECT_EQ(open.sessionID, 4000);
    EXPECT_EQ(open.mediaKind, VOIPXLATE_MEDIA_AUDIO);
    EXPECT_TRUE(open.announced == Addr("10.0.0.5:4000")) << "translated address pre-filled";

    const voipxlate_mediasessioninformation& session = Dialog(callId)->callInformation.sessions[0];
    EXPECT_EQ(session.flags, VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN);
    EXPECT_TRUE(session.forwardRTP == Addr("10.0.0.5:4000"));
    EXPECT_TRUE(session.forwardRTCP == Addr("10.0.0.5:4001"));
    EXPECT_TRUE(session.forwardRTPTranslated == Addr("203.0.113.1:14000"));
    EXPECT_TRUE(session.forwardRTCPTranslated == Addr("203.0.113.1:14001"));
    EXPECT_EQ(session.forwardUserData, open.handle);
    EXPECT_EQ(session.codecName, nullptr);
    EXPECT_EQ(Dialog(callId)->callInformation.sessions[1].flags, 0u);
    EXPECT_TRUE(LogCapture::Has("SIP  INVITE media for session 4000 translated from "
                                "10.0.0.5:4000 to 203.0.113.1:14000\n"));
    EXPECT_TRUE(LogCapture::Has("setting sessionInfo->forwardUserData to mctx @ " +
                                std::to_string(open.handle) + "\n"));
    EXPECT_TRUE(LogCapture::Has("Got thru content-type\n"));
    EXPECT_TRUE(LogCapture::Has("Got thru application/sdp\n"));
    EXPECT_TRUE(LogCapture::Has("Got thru more \n"));
    EXPECT_TRUE(LogCapture::Has("SIP  TraverseSDP returned 1\n"));
}

TEST_F(Sdp, WithoutProxyBehaviourTheEndpointsKeepTheirAddresses) {
    const std::string callId = FreshCall("sdp-option0@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    ASSERT_EQ(Translate(connection, invite.Text(), 0), 1);
    ExpectLines(out_, {"m=audio 4000 RTP/AVP 0", "c=IN IP4 10.0.0.5"});
    EXPECT_EQ(Host().opens.size(), 1u) << "the channel is still opened";

    SipMessage answer = invite.Response("200 OK");
    answer.body = AudioSdp("192.0.2.10", 5000, {"0 PCMU/8000"});
    ASSERT_EQ(Translate(connection, answer.Text(), 0), 1);
    ExpectLines(out_, {"m=audio 5000 RTP/AVP 0", "c=IN IP4 192.0.2.10"});
    EXPECT_TRUE(LogCapture::Has("SIP  No proxy behavior\n"));
    const voipxlate_mediasessioninformation& session = Dialog(callId)->callInformation.sessions[0];
    EXPECT_TRUE(session.reverseRTPTranslated == session.reverseRTP);
    EXPECT_TRUE(session.reverseRTCPTranslated == Addr("203.0.113.2:15001"));
}

TEST_F(Sdp, AnswerOpensTheReverseChannel) {
    const std::string callId = FreshCall("sdp-answer@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    SipMessage progress = invite.Response("183 Session Progress");
    progress.body = AudioSdp("192.0.2.10", 5000, {"0 PCMU/8000"});
    ASSERT_EQ(Translate(connection, progress.Text()), 1);
    EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_INVITED);
    ExpectLines(out_, {"m=audio 15000 RTP/AVP 0", "c=IN IP4 203.0.113.2"});
    // The first answer is handled as travelling to the creator's side: its origin gets the
    // creator's translated address.
    EXPECT_TRUE(HasLine(out_, "o=- 1 1 IN IP4 198.51.100.7"));
    EXPECT_TRUE(LogCapture::Has("SIP  INVITE reply media for session 5000 translated from "
                                "192.0.2.10:5000 to 203.0.113.2:15000\n"));
    EXPECT_TRUE(LogCapture::Has("setting sessionInfo->reverseUserData to new mctx @ " +
                                std::to_string(Host().opens.back().handle) + "\n"));

    // The 200 repeats the same media: nothing is reopened.
    SipMessage ok = progress;
    ok.start = "SIP/2.0 200 OK";
    const std::string origin = "o=- 1 1 IN IP4 192.0.2.10";
    ok.body.replace(ok.body.find(origin), origin.size(), "o=- 1 1 IN IP4 172.16.0.1");
    ASSERT_EQ(Translate(connection, ok.Text()), 1);
    EXPECT_EQ(Host().opens.size(), 2u);
    EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_CONNECTED);
    EXPECT_TRUE(HasLine(out_, "m=audio 15000 RTP/AVP 0"));
    // Later answers are not from the creator's side: the origin gets the destination address.
    EXPECT_TRUE(HasLine(out_, "o=- 1 1 IN IP4 192.0.2.10"));

    // A new address replaces the channel: the old one is closed first.
    ok.body = AudioSdp("192.0.2.11", 5002, {"0 PCMU/8000"});
    ASSERT_EQ(Translate(connection, ok.Text()), 1);
    ASSERT_EQ(Host().opens.size(), 3u);
    ASSERT_EQ(Host().closes.size(), 1u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[1].handle);
    EXPECT_EQ(Host().closes[0].direction, 0);
    EXPECT_EQ(Dialog(callId)->callInformation.sessions[0].reverseUserData, Host().opens[2].handle);
    EXPECT_TRUE(LogCapture::Has("closing down existing mctx @ " +
                                std::to_string(Host().opens[1].handle) + "\n"));
}

TEST_F(Sdp, HoldIsReportedAndKeepsTheOpenChannel) {
    const std::string callId = FreshCall("sdp-hold@test");
    SIPConnection* connection = Connect(&Host());
    const SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    SipMessage answer = invite.Response("200 OK");
    answer.body = AudioSdp("192.0.2.10", 5000, {"0 PCMU/8000"});
    ASSERT_EQ(Translate(connection, answer.Text()), 1);
    EXPECT_TRUE(Host().holds.empty());

    // A re-answer with another address but a=sendonly: hold, and the reverse channel stays.
    answer.body = AudioSdp("192.0.2.99", 5010, {"0 PCMU/8000"}, {"a=sendonly"});
    ASSERT_EQ(Translate(connection, answer.Text()), 1);
    ASSERT_EQ(Host().holds.size(), 1u);
    EXPECT_EQ(Host().holds[0], &Host());
    EXPECT_EQ(Host().opens.size(), 2u);
    EXPECT_TRUE(LogCapture::Has("SIP  Got a hold signal\n"));
    EXPECT_TRUE(LogCapture::Has("SIP   Doing nothing for holdState\n"));
    EXPECT_TRUE(HasLine(out_, "a=sendonly"));
    EXPECT_TRUE(HasLine(out_, "m=audio 15000 RTP/AVP 0")) << "the earlier translation stays";

    // A refusing hold callback refuses the message.
    Host().holdResult = -1;
    LogCapture::lines().clear();
    EXPECT_EQ(Translate(connection, answer.Text()), -1);
    EXPECT_TRUE(LogCapture::Has("SIP  callonhold returned -1\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  TraverseSDP returned -1\n"));

    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, nullptr);
    EXPECT_EQ(Translate(connection, answer.Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  callonhold cb is not set\n"));
}

TEST_F(Sdp, EveryCodecVetoedFailsTheMessage) {
    const std::string callId = FreshCall("sdp-veto-all@test");
    Host().refusedCodecs = {"PCMU", "PCMA"};
    const SipMessage invite =
        Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000", "8 PCMA/8000"}));
    EXPECT_EQ(Translate(Connect(), invite.Text()), -1);
    EXPECT_TRUE(LogCapture::Has("SIP  Removing SDP for port 4000 as it has no media left\n"));
    EXPECT_TRUE(Host().opens.empty());

    // Without the veto function no codec is known to be acceptable either.
    Forget(callId);
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, nullptr);
    Host().refusedCodecs.clear();
    EXPECT_EQ(Translate(Connect(), invite.Text()), -1);
}

TEST_F(Sdp, LinesThatAreNotUnderstoodAreKept) {
    struct Case {
        const char* name;
        std::string sdp;
        int result;
    };
    const std::string head = "v=0\r\ns=-\r\n";
    const std::vector<Case> cases = {
        {"port 0 stays with its connection line",
         head + "c=IN IP4 10.0.0.5\r\nm=audio 0 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n", 0},
        {"port 9 stays with its connection line",
         head + "c=IN IP4 10.0.0.5\r\nm=audio 9 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n", 0},
        {"bogus port fails", head + "c=IN IP4 10.0.0.5\r\nm=audio 70000 RTP/AVP 0\r\n", -1},
        {"negative port fails", head + "c=IN IP4 10.0.0.5\r\nm=audio -4 RTP/AVP 0\r\n", -1},
        {"m= without c=", head + "m=audio 4000 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n", 0},
        {"short m= line", head + "c=IN IP4 10.0.0.5\r\nm=audio 4000\r\n", 0},
        {"IPv6 connection line",
         head + "c=IN IP6 2001:db8::1\r\nm=audio 4000 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n", 0},
        {"malformed line", head + "garbage\r\nx\r\n", 0},
        {"five-token origin", "v=0\r\no=- 1 IN IP4 10.0.0.5\r\n", 0},
    };
    for (const Case& c : cases) {
        const std::string callId = FreshCall(std::string("sdp-kept-") + c.name);
        Host() = HostState();
        EXPECT_EQ(Translate(Connect(), Invite(callId, c.sdp).Text()), c.result) << c.name;
        EXPECT_TRUE(Host().opens.empty()) << c.name;
        EXPECT_TRUE(out_.empty()) << c.name << ": nothing changed, nothing re-emitted";
    }
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line with port 0\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line with port 9\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line with bogus port\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring m= line without matching c= line\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line < 4 tokens\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line with unparseable c=\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring malformed line in SDP\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP o= line wth 5 tokens\n"));
}

TEST_F(Sdp, SecondAudioLineSharesTheRecordAndOtherKindsGetTheirOwn) {
    const std::string callId = FreshCall("sdp-multi@test");
    const std::string sdp = "v=0\r\nc=IN IP4 10.0.0.5\r\n"
                            "m=audio 4000 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n"
                            "m=video 4002 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
                            "m=message 4004 TCP/MSRP *\r\na=accept-types:text/plain\r\n"
                            "m=audio 4006 RTP/SAVP 8\r\na=rtpmap:8 PCMA/8000\r\n";
    ASSERT_EQ(Translate(Connect(), Invite(callId, sdp).Text()), 1);
    EXPECT_EQ(BodyOf(out_), "v=0\r\n"
                            "m=audio 14000 RTP/AVP 0\r\nc=IN IP4 203.0.113.1\r\n"
                            "a=rtpmap:0 PCMU/8000\r\n"
                            "m=video 14002 RTP/AVP 96\r\nc=IN IP4 203.0.113.1\r\n"
                            "a=rtpmap:96 H264/90000\r\n"
                            "m=message 14004 TCP/MSRP *\r\nc=IN IP4 203.0.113.1\r\n"
                            "a=accept-types:text/plain\r\n"
                            "m=audio 14006 RTP/AVP 8\r\nc=IN IP4 203.0.113.1\r\n"
                            "a=rtpmap:8 PCMA/8000\r\n");
    ASSERT_EQ(Host().opens.size(), 4u);
    EXPECT_EQ(Host().opens[2].slot, VOIPXLATE_OPEN_IM_CHANNEL);
    EXPECT_EQ(Host().opens[2].mediaKind, VOIPXLATE_MEDIA_MESSAGE);
    EXPECT_EQ(Host().codecs[1].kind, VOIPXLATE_MEDIA_VIDEO);
    const voipxlate_callinformation& info = Dialog(callId)->callInformation;
    EXPECT_EQ(info.sessions[0].sessionID, 4000);
    EXPECT_EQ(info.sessions[0].forwardUserData, Host().opens[3].handle) << "replaced";
    EXPECT_EQ(info.sessions[1].mediaKind, VOIPXLATE_MEDIA_VIDEO);
    EXPECT_EQ(info.sessions[2].mediaKind, VOIPXLATE_MEDIA_MESSAGE);
    EXPECT_EQ(info.sessions[3].flags, 0u);
    ASSERT_EQ(Host().closes.size(), 1u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[0].handle);
    EXPECT_TRUE(LogCapture::Has("SIP   Received a IM message with session type = message\n"));
    EXPECT_TRUE(LogCapture::Has("setting sessionInfo->forwardUserData to new mctx @ " +
                                std::to_string(Host().opens[2].handle) + "\n"));
    EXPECT_TRUE(LogCapture::Has("closing down existing forward mctx @ " +
                                std::to_string(Host().opens[0].handle) + "\n"));
}

TEST_F(Sdp, FailedChannelOpenFailsTheMessage) {
    const std::string callId = FreshCall("sdp-open-fails@test");
    Host().openResult = 5;
    const SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    EXPECT_EQ(Translate(Connect(), invite.Text()), -1);
    EXPECT_TRUE(LogCapture::Has("openRTPChannelFunction failed\n"));
    EXPECT_EQ(Dialog(callId)->callInformation.sessions[0].forwardUserData, 0);
}

TEST_F(Sdp, WithoutOpenCallbackTheReceivedAddressStands) {
    const std::string callId = FreshCall("sdp-no-open@test");
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, nullptr);
    ASSERT_EQ(
        Translate(Connect(), Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"})).Text()),
        1);
    EXPECT_TRUE(HasLine(out_, "m=audio 4000 RTP/AVP 0"));
    EXPECT_EQ(Dialog(callId)->callInformation.sessions[0].flags,
              VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN);
}

TEST_F(Sdp, BodyMustBePlainApplicationSdp) {
    SIPConnection* connection = Connect();
    for (const char* type : {"application/sdp;charset=x", "text/plain", "multipart/mixed"}) {
        const std::string callId = FreshCall(std::string("sdp-type-") + type);
        SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
        invite.contentType = type;
        LogCapture::lines().clear();
        EXPECT_EQ(Translate(connection, invite.Text()), 0) << type;
        EXPECT_TRUE(LogCapture::Has("SIP  Ignoring INVITE with unparseable entity body\n"));
        EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_NONE);
    }
    const std::string callId = FreshCall("sdp-type-case@test");
    SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    invite.contentType = "Application/SDP ";
    EXPECT_EQ(Translate(connection, invite.Text()), 1);
}

TEST_F(Sdp, OriginLineFollowsTheTranslatedSide) {
    const sockaddr_type a = Addr("10.0.0.5:5060");
    const sockaddr_type b = Addr("192.0.2.10:5060");
    // Nothing translated on either side: the origin stays.
    SIPConnection* plain = sipxlate_create(nullptr, &a, &b, &a, &b);
    connections_.push_back(plain);
    const std::string callId = FreshCall("sdp-origin@test");
    const SipMessage invite = Invite(callId, AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"}));
    ASSERT_EQ(Translate(plain, invite.Text()), 1);
    EXPECT_TRUE(HasLine(out_, "o=- 1 1 IN IP4 10.0.0.5"));
    EXPECT_TRUE(LogCapture::Has("no o= translation\n"));
    EXPECT_TRUE(LogCapture::Has("Handle_O_Line called fromSrc=1 isForward=1 line=o=- 1 1 IN IP4 "
                                "10.0.0.5\n"));
    EXPECT_TRUE(LogCapture::Has("Handle_O_Line called dstTranslated=0 srcTranslated=0\n"));
}

TEST_F(Sdp, LinesOfTheBodyAreRewrittenOneByOne) {
    const struct {
        const char* what;
        std::string sdp;
        std::string body;                // as rewritten
        const char* announced;           // the media address the channel is opened for
        std::vector<std::string> codecs; // offered to the veto, in order
        std::vector<std::string> log;
    } cases[] = {
        {"media line without rtpmap: kept; the media-level connection line wins",
         "v=0\r\nc=IN IP4 10.0.0.5\r\nt=0 0\r\nm=audio 4000 RTP/AVP 0 101\r\nc=IN IP4 10.0.0.9\r\n"
         "a=ptime:20\r\n",
         "v=0\r\nt=0 0\r\nm=audio 14000 RTP/AVP 0 101\r\nc=IN IP4 203.0.113.1\r\na=ptime:20\r\n",
         "10.0.0.9:4000",
         {},
         {"SIP   Received a m line without a corresponding a= line\n",
          "SIP   adding to the rtpmap\n"}},
        {"empty lines and blanks around lines are dropped",
         "v=0\n\n  c=IN IP4 10.0.0.5  \nm=audio 4000 RTP/AVP 0\na=rtpmap:0 PCMU/8000",
         "v=0\r\nm=audio 14000 RTP/AVP 0\r\nc=IN IP4 203.0.113.1\r\na=rtpmap:0 PCMU/8000\r\n",
         "10.0.0.5:4000",
         {"PCMU"},
         {"SIP  ignoring empty line in SDP body\n"}},
        {"attribute lines that are not codecs are kept; an rtpmap without clock rate, or with an "
         "empty payload type, offers no codec",
         "v=0\r\nc=IN IP4 10.0.0.5\r\nm=audio 4000 RTP/AVP 0 8\r\na=rtpmap:8 PCMA/8000\r\na=\r\n"
         "a=rtpmap:\r\na=rtpmapx:0 PCMU/8000\r\na=rtpmap:0 PCMU\r\na=rtpmap: 8 PCMA/8000\r\n"
         "a=setup:actpass\r\n",
         "v=0\r\nm=audio 14000 RTP/AVP 0 8\r\nc=IN IP4 203.0.113.1\r\na=rtpmap:8 PCMA/8000\r\n"
         "a=\r\na=rtpmap:\r\na=rtpmapx:0 PCMU/8000\r\na=setup:actpass\r\n",
         "10.0.0.5:4000",
         {"PCMA"},
         {"SIP  Ignoring SDP a= line < 1 token\n", "SIP  adding setup:\n"}},
    };
    for (const auto& c : cases) {
        const std::string callId = FreshCall(std::string("sdp-lines-") + c.what);
        Host() = HostState();
        ASSERT_EQ(Translate(Connect(), Invite(callId, c.sdp).Text()), 1) << c.what;
        EXPECT_EQ(BodyOf(out_), c.body) << c.what;
        ASSERT_EQ(Host().opens.size(), 1u) << c.what;
        EXPECT_EQ(Text(Host().opens[0].announced), c.announced) << c.what;
        std::vector<std::string> codecs;
        for (const CodecRecord& codec : Host().codecs)
            codecs.push_back(codec.name);
        EXPECT_EQ(codecs, c.codecs) << c.what;
        for (const std::string& line : c.log)
            EXPECT_TRUE(LogCapture::Has(line)) << c.what << ": " << line;
    }
}

} // namespace
