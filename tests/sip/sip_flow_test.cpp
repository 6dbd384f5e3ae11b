// Calls from real captures replayed through the C API, checked from the host's side: rewritten
// text, callbacks and their arguments, dialog records.
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

class RealCall : public SipHostTest {
protected:
    // Translates the frames of a capture directory in order; results and rewritten texts are kept
    // by frame number.
    void Replay(SIPConnection* connection, const std::string& dir, std::vector<int> frames) {
        for (int frame : frames) {
            char name[16];
            std::snprintf(name, sizeof name, "/%03d.sip", frame);
            results_[frame] = Translate(connection, LoadSip(dir + name));
            texts_[frame] = out_;
        }
    }

    // Every rewritten message announces its own body length.
    static void ExpectConsistentLength(const std::string& message) {
        std::string length = HeaderValue(message, "Content-Length");
        if (length.empty())
            length = HeaderValue(message, "l");
        EXPECT_EQ(length, std::to_string(BodyOf(message).size())) << message;
    }

    std::map<int, int> results_;
    std::map<int, std::string> texts_;
};

TEST_F(RealCall, G711CallWithACodecRefused) {
    Forget("12013223@200.57.7.195");
    Host().refusedCodecs = {"G729"};
    SIPConnection* connection = Connect(&Host());
    Replay(connection, "g711", {1, 2, 3, 6, 7});
    EXPECT_EQ(results_, (std::map<int, int>{{1, 1}, {2, 0}, {3, 0}, {6, 1}, {7, 0}}));

    const std::string& invite = texts_[1];
    EXPECT_EQ(invite.compare(0, 47, "INVITE sip:francisco@bestel.com:55060 SIP/2.0\r\n"), 0);
    ExpectLines(
        invite,
        {"Via:SIP/2.0/UDP 200.57.7.195;branch=z9hG4bKff9b46fb055c0521cc24024da96cd290",
         "Via:SIP/2.0/UDP 200.57.7.195:55061;branch=z9hG4bK291d90e31a47b225bd0ddff4353e9cc0",
         "o=Clarent 120386 120387 IN IP4 198.51.100.7", "m=audio 50376 RTP/AVP 8 18 4 0",
         "c=IN IP4 203.0.113.1", "a=rtpmap:8 PCMA/8000", "a=rtpmap:0 PCMU/8000", "a=SendRecv"});
    EXPECT_FALSE(HasLine(invite, "c=IN IP4 200.57.7.196"));
    EXPECT_FALSE(HasLine(invite, "a=rtpmap:18 G729/8000"));
    ExpectConsistentLength(invite);

    ASSERT_GE(Host().codecs.size(), 4u);
    EXPECT_EQ(Host().codecs[0].name, "PCMA");
    EXPECT_EQ(Host().codecs[1].name, "G729");
    EXPECT_EQ(Host().codecs[2].name, "G723");
    EXPECT_EQ(Host().codecs[3].name, "PCMU");

    // The 100 was the first answer, so the 200 is handled as coming from the caller's peer: its
    // origin carries the destination's address.
    const std::string& ok = texts_[6];
    EXPECT_EQ(ok.compare(0, 16, "SIP/2.0 200 Ok\r\n"), 0);
    ExpectLines(ok, {"o=francisco 13004970 13013442 IN IP4 192.0.2.10",
                     "m=audio 18000 RTP/AVP 8 0 3 98 97 101", "c=IN IP4 203.0.113.2",
                     "a=rtpmap:101 telephone-event/8000", "a=fmtp:101 0-15",
                     "Server:X-Lite release 1103m"});
    ExpectConsistentLength(ok);

    ASSERT_EQ(Host().opens.size(), 2u);
    EXPECT_EQ(Host().opens[0].context, &Host());
    EXPECT_TRUE(Host().opens[0].announced == Addr("200.57.7.196:40376"));
    EXPECT_TRUE(Host().opens[1].announced == Addr("200.57.7.204:8000"));
    const SIPTranslator::DialogInfo* dialog = Dialog("12013223@200.57.7.195");
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_ESTABLISHED);
    EXPECT_EQ(Host().callInformation.size(), 1u);
    EXPECT_EQ(Host().callInformation[0], &dialog->callInformation);
}

TEST_F(RealCall, OneWayMediaCallReportsHoldAndEndsWithBye) {
    Forget("1-2187@10.0.2.20");
    SIPConnection* connection = Connect();
    Replay(connection, "dvi4", {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(results_, (std::map<int, int>{{1, 1}, {2, 0}, {3, 1}, {4, 0}, {5, 0}, {6, 0}}));
    // a=recvonly in the offer and a=sendonly in the answer.
    EXPECT_EQ(Host().holds.size(), 2u);
    ExpectLines(texts_[1], {"m=audio 16000 RTP/AVP 5", "a=recvonly"});
    ExpectLines(
        texts_[3],
        {"m=audio 40490 RTP/AVP 5 101", "a=sendonly", "a=ptime:20",
         "Remote-Party-ID:\"test\" <sip:test@10.0.2.15>;party=calling;privacy=off;screen=no"});
    ExpectConsistentLength(texts_[1]);
    ExpectConsistentLength(texts_[3]);
    EXPECT_TRUE(LogCapture::Has("SIP Translating BYE\n"));

    EXPECT_EQ(Dialog("1-2187@10.0.2.20"), nullptr);
    ASSERT_EQ(Host().opens.size(), 2u);
    ASSERT_EQ(Host().closes.size(), 2u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[0].handle);
    EXPECT_EQ(Host().closes[1].handle, Host().opens[1].handle);
}

TEST_F(RealCall, RetransmittedInviteCancelledAndTimedOut) {
    const std::string callId = FreshCall("105090259-446faf7a@192.168.1.2");
    SIPConnection* connection = Connect();
    Replay(connection, "aaa", {19, 20, 21, 22, 23, 26});
    EXPECT_EQ(results_, (std::map<int, int>{{19, 1}, {20, 1}, {21, 1}, {22, 0}, {23, 0}, {26, 0}}));
    EXPECT_EQ(texts_[19], texts_[21]) << "a retransmission is translated the same way";
    ExpectLines(texts_[19], {"m=audio 40000 RTP/AVP 0 8 97 2 3", "a=sendrecv"});
    EXPECT_TRUE(LogCapture::Has("SIP  addind sendrecv\n"));
    EXPECT_EQ(Host().opens.size(), 1u);
    EXPECT_EQ(Host().callInformation.size(), 1u);
    EXPECT_TRUE(LogCapture::Has("SIP  INVITE failed with code 408\n"));
    EXPECT_EQ(Dialog(callId), nullptr);
    EXPECT_EQ(Host().closes.size(), 1u);

    LogCapture::lines().clear();
    Replay(connection, "aaa", {27, 28});
    EXPECT_EQ(results_[27], 0);
    EXPECT_EQ(results_[28], 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Passing though message for unknown dialog\n"));
}

TEST_F(RealCall, EarlyMediaThenFailure) {
    const std::string callId = FreshCall("11894297-4432a9f8@192.168.1.2");
    const std::string invite = LoadSip("aaa/072.sip");
    ASSERT_NE(invite.find("Call-ID: " + callId), std::string::npos);
    SIPConnection* connection = Connect();
    Replay(connection, "aaa", {72, 73, 74});
    EXPECT_EQ(results_, (std::map<int, int>{{72, 1}, {73, 0}, {74, 1}}));
    const std::string& progress = texts_[74];
    EXPECT_EQ(progress.compare(0, 12, "SIP/2.0 183 "), 0);
    ExpectLines(progress, {"m=audio 50392 RTP/AVP 8 0", "c=IN IP4 203.0.113.2", "b=AS:64",
                           "a=rtpmap:8 PCMA/8000/1"});
    ExpectConsistentLength(progress);
    ASSERT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_INVITED);

    Replay(connection, "aaa", {75, 76});
    EXPECT_EQ(results_[75], 0);
    EXPECT_EQ(results_[76], 0);
    EXPECT_EQ(Dialog(callId), nullptr);
    EXPECT_EQ(Host().closes.size(), 2u);
}

TEST_F(RealCall, FaxReInviteSwitchesToImageAndIsRefused) {
    const std::string legA = FreshCall("00e9d4a500e9d48-0015-0001-0000-0000@10.35.40.25");
    const std::string legB = FreshCall("SD4909701-9ff11bf72eb4a347c92974d8fbbc2668-ao8o3i1");
    SIPConnection* connection = Connect();
    std::vector<int> frames;
    for (int frame = 1; frame <= 60; ++frame)
        frames.push_back(frame);
    Replay(connection, "fax", frames);

    // The T.38 re-offer gets its own session record; its transport is written as RTP/AVP.
    EXPECT_EQ(results_[45], 1);
    ExpectLines(texts_[45], {"m=image 26756 RTP/AVP t38", "c=IN IP4 203.0.113.1"});
    ExpectConsistentLength(texts_[45]);
    // 488 to the re-INVITE (RFC 3261 section 14.1) ends the dialog of both legs here.
    EXPECT_TRUE(LogCapture::Has("SIP  INVITE failed with code 488\n"));
    EXPECT_EQ(Dialog(legA), nullptr);
    EXPECT_EQ(Dialog(legB), nullptr);

    // The next re-INVITE of leg A finds no dialog and starts an unreported one.
    const std::size_t reported = Host().callInformation.size();
    Replay(connection, "fax", {61});
    EXPECT_EQ(results_[61], 1);
    ASSERT_NE(Dialog(legA), nullptr);
    EXPECT_EQ(Host().callInformation.size(), reported);
    Forget(legA);
}

TEST_F(RealCall, LateOfferIsLeftToTheAnswer) {
    // The INVITE carries no SDP (RFC 3261 section 13.2.1 late offer): it is forwarded as it is,
    // never counts as the first INVITE, and the offer in the 200 is translated all the same.
    const std::string callId = FreshCall("25672@192.168.105.110");
    SIPConnection* connection = Connect();
    Replay(connection, "dtmf2", {16, 17, 19, 21, 23});
    EXPECT_EQ(results_, (std::map<int, int>{{16, 0}, {17, 0}, {19, 0}, {21, 1}, {23, 0}}));
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring INVITE with unparseable entity body\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Reinvite accepted\n"));
    EXPECT_TRUE(HasLine(texts_[21], "c=IN IP4 203.0.113.2"));
    ExpectConsistentLength(texts_[21]);
    ASSERT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_NONE);
    Forget(callId);
}

} // namespace
