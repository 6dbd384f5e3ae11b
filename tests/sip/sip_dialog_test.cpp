// Dialog identification, dialog states and the results of the per-message translators, driven
// through the C API.
#include "sip_test_host.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using SipDialog = SipHostTest;

SipMessage Offer(const std::string& callId, const std::string& branch = "z9hG4bKa") {
    SipMessage invite;
    invite.callId = callId;
    invite.via = "SIP/2.0/UDP 10.0.0.5:5060;branch=" + branch;
    invite.body = AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000", "8 PCMA/8000"});
    return invite;
}

SipMessage Answer(const SipMessage& invite, const std::string& status = "200 OK") {
    SipMessage answer = invite.Response(status);
    answer.body = AudioSdp("192.0.2.10", 5000, {"0 PCMU/8000"});
    return answer;
}

TEST_F(SipDialog, FirstInviteCreatesOneDialogUnderTwoKeysAndReportsIt) {
    const std::string callId = FreshCall("first-invite-1@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);

    SIPTranslator::DialogInfo* dialog = Dialog(callId + "z9hG4bKa");
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(Dialog(callId), dialog);
    EXPECT_EQ(dialog->dialogId.compare(0, 7, "z9hG4bK"), 0);
    EXPECT_EQ(dialog->fromTag, "a1");
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_INVITED);
    ASSERT_EQ(Host().callInformation.size(), 1u);
    EXPECT_EQ(Host().callInformation[0], &dialog->callInformation);
    EXPECT_TRUE(LogCapture::Has("SIP  Processing new INVITE\n"));
    EXPECT_TRUE(LogCapture::Has("SIP dialogFind by branch is " + callId + "z9hG4bKa\n"));

    // The retransmission finds the dialog by its branch and creates nothing.
    LogCapture::lines().clear();
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Processing INVITE retry\n"));
    EXPECT_EQ(Host().callInformation.size(), 1u);
    EXPECT_EQ(Host().opens.size(), 1u) << "the same media address reopens no channel";
    EXPECT_EQ(Dialog(callId + "z9hG4bKa"), dialog);

    // Dialog numbers follow one another.
    const std::string second = FreshCall("first-invite-2@test");
    ASSERT_EQ(Translate(connection, Offer(second).Text()), 1);
    const std::string firstNumber = dialog->dialogId.substr(7);
    EXPECT_EQ(Dialog(second)->dialogId, "z9hG4bK" + std::to_string(std::stoul(firstNumber) + 1));
}

TEST_F(SipDialog, BranchIsCutAtSemicolonThenComma) {
    SIPConnection* connection = Connect();
    const struct {
        const char* callId;
        const char* via;
        const char* key;
    } cases[] = {
        {"branch-rport@test", "SIP/2.0/UDP h;branch=z9hG4bKb1;rport", "branch-rport@testz9hG4bKb1"},
        {"branch-comma@test", "SIP/2.0/UDP h;branch=z9hG4bKb2,SIP/2.0/UDP g;branch=x",
         "branch-comma@testz9hG4bKb2"},
        {"branch-none@test", "SIP/2.0/UDP h", "branch-none@test"},
    };
    for (const auto& c : cases) {
        Forget(c.callId);
        SipMessage invite = Offer(c.callId);
        invite.via = c.via;
        ASSERT_EQ(Translate(connection, invite.Text()), 1) << c.callId;
        EXPECT_NE(Dialog(c.key), nullptr) << c.key;
        EXPECT_TRUE(LogCapture::Has(std::string("SIP dialogFind by branch is ") + c.key + "\n"));
    }
}

TEST_F(SipDialog, CallStatesOfASuccessfulCallAndItsEnd) {
    const std::string callId = FreshCall("states-1@test");
    SIPConnection* connection = Connect(&Host());
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    SIPTranslator::DialogInfo* dialog = Dialog(callId);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->hostContext, &Host());

    // 180 carries nothing to translate.
    EXPECT_EQ(Translate(connection, invite.Response("180 Ringing").Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Handling first INVITE response, fromSrc=1\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  PDU not translated\n"));
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_INVITED);

    ASSERT_EQ(Translate(connection, Answer(invite).Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Call connected\n"));
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_CONNECTED);
    // A later answer of the same INVITE is not the first any more.
    EXPECT_EQ(Translate(connection, Answer(invite).Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Handling ReINVITE response, fromSrc=0\n"));

    // ACK of the 2xx establishes the call and is forwarded unchanged.
    EXPECT_EQ(Translate(connection, invite.Request("ACK", "z9hG4bKack").Text()), 0);
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_ESTABLISHED);
    EXPECT_TRUE(LogCapture::Has("SIP  Found with CallID\n"));

    // BYE changes nothing; its 200 ends the dialog and closes both channels.
    LogCapture::lines().clear();
    const SipMessage bye = invite.Request("BYE", "z9hG4bKbye");
    EXPECT_EQ(Translate(connection, bye.Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP Translating BYE\n"));
    ASSERT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(Translate(connection, bye.Response("200 OK").Text()), 0);
    EXPECT_EQ(Dialog(callId), nullptr);
    EXPECT_EQ(Dialog(callId + "z9hG4bKa"), nullptr);
    ASSERT_EQ(Host().opens.size(), 2u);
    ASSERT_EQ(Host().closes.size(), 2u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[0].handle);
    EXPECT_EQ(Host().closes[0].direction, 1);
    EXPECT_EQ(Host().closes[0].context, &Host());
    EXPECT_EQ(Host().closes[1].handle, Host().opens[1].handle);
    EXPECT_EQ(Host().closes[1].direction, 0);
}

TEST_F(SipDialog, FailureAnswerDestroysTheDialogAndTheAckPassesThrough) {
    const std::string callId = FreshCall("busy-1@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    EXPECT_EQ(Translate(connection, invite.Response("486 Busy Here").Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  INVITE failed with code 486\n"));
    EXPECT_EQ(Dialog(callId), nullptr);
    ASSERT_EQ(Host().closes.size(), 1u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[0].handle);

    LogCapture::lines().clear();
    SipMessage ack = invite.Response("486 Busy Here");
    ack.start = "ACK sip:bob@192.0.2.10 SIP/2.0";
    ack.cseq = "1 ACK";
    EXPECT_EQ(Translate(connection, ack.Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Not found with callId+branch, searching by CallId\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Passing though message for unknown dialog\n"));
}

TEST_F(SipDialog, CancelIsFoundByCallIdAndPassedUnchanged) {
    const std::string callId = FreshCall("cancel-1@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    SipMessage cancel = invite;
    cancel.start = "CANCEL sip:bob@192.0.2.10 SIP/2.0";
    cancel.cseq = "1 CANCEL";
    cancel.body.clear();
    // Same branch as the INVITE (RFC 3261 section 9.1): found by Call-ID + branch.
    EXPECT_EQ(Translate(connection, cancel.Text()), 0);
    EXPECT_FALSE(LogCapture::Has("SIP  Found with CallID\n"));
    // Another branch: found by Call-ID alone, and the branch is not added to the table.
    cancel.via = "SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bKother";
    EXPECT_EQ(Translate(connection, cancel.Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Found with CallID\n"));
    EXPECT_EQ(Dialog(callId + "z9hG4bKother"), nullptr);
    // The 200 to CANCEL and the 487 to the INVITE.
    EXPECT_EQ(Translate(connection, cancel.Response("200 OK").Text()), 0);
    EXPECT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(Translate(connection, invite.Response("487 Request Terminated").Text()), 0);
    EXPECT_EQ(Dialog(callId), nullptr);

    SipMessage unknown = cancel;
    unknown.callId = "cancel-unknown@test";
    LogCapture::lines().clear();
    EXPECT_EQ(Translate(connection, unknown.Text()), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Passing though message for unknown dialog\n"));
}

TEST_F(SipDialog, ReInviteFromTheCalledSideIsNotFromSource) {
    const std::string callId = FreshCall("reinvite-1@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    ASSERT_EQ(Translate(connection, Answer(invite).Text()), 1);
    EXPECT_EQ(Translate(connection, invite.Request("ACK", "z9hG4bKack").Text()), 0);

    SipMessage reinvite;
    reinvite.callId = callId;
    reinvite.start = "INVITE sip:alice@10.0.0.5 SIP/2.0";
    reinvite.via = "SIP/2.0/UDP 192.0.2.10:5060;branch=z9hG4bKre";
    reinvite.from = "<sip:bob@192.0.2.10>;tag=t1";
    reinvite.to = "Alice <sip:alice@10.0.0.5>;tag=a1";
    reinvite.cseq = "7 INVITE";
    reinvite.body = AudioSdp("192.0.2.10", 5000, {"0 PCMU/8000"}, {"a=sendonly"});
    LogCapture::lines().clear();
    ASSERT_EQ(Translate(connection, reinvite.Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Processing RE INVITE\n"));
    EXPECT_TRUE(LogCapture::Has("SIP dialogFind by Call-ID is " + callId + "\n"));
    EXPECT_TRUE(LogCapture::Has("Found existing dialog\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Handling ReINVITE, fromSrc=0\n"));
    SIPTranslator::DialogInfo* dialog = Dialog(callId + "z9hG4bKre");
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog, Dialog(callId));
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_ESTABLISHED);
    EXPECT_EQ(Host().holds.size(), 1u);

    // Its 200 is accepted without a state change; the ACK of a re-INVITE passes unchanged.
    SipMessage ok = reinvite.Response("200 OK");
    ok.to = reinvite.to;
    ok.body = AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"});
    EXPECT_EQ(Translate(connection, ok.Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Reinvite accepted\n"));
    EXPECT_TRUE(LogCapture::Has("SIP  Received INVITE response with unknown From tag\n"));
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_ESTABLISHED);
    SipMessage ack = reinvite;
    ack.start = "ACK sip:alice@10.0.0.5 SIP/2.0";
    ack.cseq = "7 ACK";
    ack.body.clear();
    EXPECT_EQ(Translate(connection, ack.Text()), 0);
    EXPECT_EQ(dialog->callInformation.state, VOIPXLATE_SIP_ESTABLISHED);
}

TEST_F(SipDialog, InDialogInviteOfAnUnknownCallCreatesADialogWithoutReportingIt) {
    const std::string callId = FreshCall("orphan-reinvite@test");
    SipMessage invite = Offer(callId, "z9hG4bKorphan");
    invite.to += ";tag=t9";
    ASSERT_EQ(Translate(Connect(), invite.Text()), 1);
    EXPECT_TRUE(LogCapture::Has("SIP  Processing RE INVITE\n"));
    EXPECT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(Dialog(callId + "z9hG4bKorphan"), Dialog(callId));
    EXPECT_TRUE(Host().callInformation.empty());
}

TEST_F(SipDialog, MessagesThatCannotBeIdentifiedPassUnchanged) {
    SIPConnection* connection = Connect();
    EXPECT_EQ(Translate(connection, "SIP/2.0\r\nVia: x\r\n\r\n"), 0);
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring message with < 2 tokens in header line\n"));

    SipMessage noCallId = Offer("never-used@test");
    noCallId.callId.clear();
    std::string text = noCallId.Text();
    text.replace(text.find("Call-ID:"), 8, "X-Call:");
    EXPECT_EQ(Translate(connection, text), 0);
    EXPECT_TRUE(
        LogCapture::Has("SIP  Ignoring message with insufficient fields to construct dialog ID\n"));

    const std::string callId = FreshCall("bad-cseq@test");
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    for (const char* cseq : {"1", "1 INVITE extra", ""}) {
        SipMessage answer = Answer(invite);
        answer.cseq = cseq;
        LogCapture::lines().clear();
        EXPECT_EQ(Translate(connection, answer.Text()), 0) << cseq;
        EXPECT_TRUE(LogCapture::Has("SIP  Ignoring message with unparseable CSeq\n")) << cseq;
    }
    EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_INVITED);
}

TEST_F(SipDialog, CompactHeaderNamesIdentifyTheDialog) {
    const std::string callId = FreshCall("compact-1@test");
    const std::string sdp = AudioSdp("10.0.0.5", 4000, {"0 PCMU/8000"});
    const std::string text = "INVITE sip:bob@192.0.2.10 SIP/2.0\r\n"
                             "v: SIP/2.0/UDP 10.0.0.5;branch=z9hG4bKc\r\n"
                             "f: <sip:alice@10.0.0.5>;tag=a1\r\n"
                             "t: <sip:bob@192.0.2.10>\r\n"
                             "i: " +
                             callId +
                             "\r\n"
                             "CSeq: 1 INVITE\r\n"
                             "c: application/sdp\r\n"
                             "l: " +
                             std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
    ASSERT_EQ(Translate(Connect(), text), 1);
    EXPECT_NE(Dialog(callId + "z9hG4bKc"), nullptr);
    // The new length replaces the compact entry in place.
    EXPECT_EQ(HeaderValue(out_, "l"), std::to_string(BodyOf(out_).size()));
    EXPECT_EQ(HeaderValue(out_, "Content-Length"), "");
}

TEST_F(SipDialog, ContentLengthThatDoesNotMatchTheBody) {
    const struct {
        const char* what;
        const char* length;
        int result;
    } cases[] = {
        // Smaller than the body: the header is ignored and the body with it.
        {"smaller", "10", 0},
        // Larger than the body, or negative and so read as a huge value: what is there is kept.
        {"larger", "100000", 1},
        {"negative", "-5", 1},
    };
    for (const auto& c : cases) {
        const std::string callId = FreshCall(std::string("cl-") + c.what + "@test");
        Host() = HostState();
        const SipMessage invite = Offer(callId);
        std::string text = invite.Text();
        const std::string announced = "Content-Length: " + std::to_string(invite.body.size());
        text.replace(text.find(announced), announced.size(),
                     std::string("Content-Length: ") + c.length);
        ASSERT_EQ(Translate(Connect(), text), c.result) << c.what;
        if (c.result == 0) {
            EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SIP Content-Length as mismatch between "
                                        "Content-Length 10and packet length" +
                                        std::to_string(invite.body.size()) + "\n"));
            // The empty body has no media: the INVITE still counts as the first one.
            EXPECT_EQ(Dialog(callId)->callInformation.state, VOIPXLATE_SIP_INVITED);
            EXPECT_TRUE(Host().opens.empty());
            continue;
        }
        EXPECT_TRUE(HasLine(out_, "m=audio 14000 RTP/AVP 0 8")) << c.what;
        EXPECT_TRUE(HasLine(out_, "a=rtpmap:8 PCMA/8000")) << c.what;
        EXPECT_EQ(HeaderValue(out_, "Content-Length"), std::to_string(BodyOf(out_).size()))
            << c.what;
    }
}

TEST_F(SipDialog, BadArgumentsAndEmptyDatagrams) {
    SIPConnection* connection = Connect();
    unsigned char out[64];
    unsigned length = sizeof out;
    const unsigned char in[] = "OPTIONS sip:x SIP/2.0\r\n\r\n";
    EXPECT_EQ(sipxlate_udp_translate(nullptr, 1, in, sizeof in - 1, out, &length, 1), -1);
    EXPECT_EQ(sipxlate_udp_destroy(nullptr), -1);
    sipxlate_destroy(nullptr);
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, 0, out, &length, 1), -1);
    EXPECT_TRUE(LogCapture::Has("SIP  Malformed header line\n"));
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, nullptr, 10, out, &length, 1), -1);
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, nullptr, &length, 1), -1);
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, out, nullptr, 1), -1);
    EXPECT_EQ(length, sizeof out);

    // The start line must fit with 3 bytes to spare.
    const unsigned startLength = 21;
    length = startLength + 2;
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, out, &length, 1), -1);
    EXPECT_TRUE(LogCapture::Has("SIP  Insufficient buffer space for SIP header\n"));
    length = startLength + 3;
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, out, &length, 1), 0);

    const sockaddr_type a = Addr("10.0.0.5:5060");
    EXPECT_EQ(sipxlate_create(nullptr, &a, &a, nullptr, &a), nullptr);
}

TEST_F(SipDialog, CreateCopiesTheAddressesAndComparesThem) {
    const sockaddr_type a = Addr("10.0.0.5:5060");
    const sockaddr_type b = Addr("192.0.2.10:5060");
    const sockaddr_type c = Addr("198.51.100.7:5060");
    int context = 0;
    SIPConnection* translated = sipxlate_create(&context, &a, &b, &c, &b);
    connections_.push_back(translated);
    EXPECT_EQ(translated->context, &context);
    EXPECT_TRUE(translated->source == a);
    EXPECT_TRUE(translated->translatedSource == c);
    EXPECT_TRUE(translated->destination == b);
    EXPECT_TRUE(translated->translatedDestination == b);
    EXPECT_TRUE(translated->srcTranslated);
    EXPECT_FALSE(translated->dstTranslated);
    EXPECT_EQ(translated->lastMediaPort, 100000u);
    EXPECT_NE(VoIPTranslator::Current().SipTranslator(), nullptr);
}

TEST_F(SipDialog, RewrittenMessageNeedsRoomForItsTerminatingNul) {
    const std::string callId = "exact-buffer@test";
    SIPConnection* connection = Connect();
    Forget(callId);
    const std::string text = Offer(callId).Text();
    ASSERT_EQ(Translate(connection, text), 1);
    const unsigned needed = static_cast<unsigned>(out_.size()) + 1;

    Forget(callId);
    LogCapture::lines().clear();
    EXPECT_EQ(Translate(connection, text, 1, needed - 1), -1);
    EXPECT_TRUE(LogCapture::Has("SIP  Output buffer too small for translated SIP of size " +
                                std::to_string(needed) + "\n"));
    Forget(callId);
    EXPECT_EQ(Translate(connection, text, 1, needed), 1);
    EXPECT_EQ(out_.size() + 1, needed);
}

TEST_F(SipDialog, HostHookForcesARewriteAndMayEditHeaders) {
    struct Hook {
        static int Note(bool fromSource, bool isRequest, SIPMIMEType* headers) {
            Host().rewriteNotes.emplace_back(fromSource, isRequest);
            headers->SetField("X-Hook", 'x', std::string("seen"));
            return Host().rewriteResult;
        }
    };
    voipxlate_setfunction(VOIPXLATE_REWRITE_NOTIFY,
                          reinterpret_cast<voipxlate_function>(&Hook::Note));
    const std::string callId = FreshCall("hook-1@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    EXPECT_TRUE(HasLine(out_, "x:seen"));

    // A BYE is re-emitted only when the hook asks for it; its own body goes with it.
    SipMessage bye = invite.Request("BYE", "z9hG4bKbye");
    bye.contentType = "text/plain";
    bye.body = "bye body";
    Host().rewriteResult = 0;
    EXPECT_EQ(Translate(connection, bye.Text()), 0);
    Host().rewriteResult = 1;
    ASSERT_EQ(Translate(connection, bye.Text()), 1);
    const std::string start = "BYE sip:bob@192.0.2.10 SIP/2.0\r\nVia:";
    EXPECT_EQ(out_.compare(0, start.size(), start), 0);
    EXPECT_EQ(BodyOf(out_), "bye body");
    EXPECT_TRUE(HasLine(out_, "Content-Length:8"));
    // Other positive values are handed back as they are.
    Host().rewriteResult = 6;
    EXPECT_EQ(Translate(connection, bye.Text()), 6);
    ASSERT_GE(Host().rewriteNotes.size(), 4u);
    EXPECT_EQ(Host().rewriteNotes[0], std::make_pair(true, true));

    SipMessage ringing = invite.Response("180 Ringing");
    ringing.from = "Alice <sip:alice@10.0.0.5>;tag=a1";
    Host().rewriteResult = 1;
    ASSERT_EQ(Translate(connection, ringing.Text()), 1);
    EXPECT_EQ(Host().rewriteNotes.back(), std::make_pair(true, false));
    EXPECT_EQ(BodyOf(out_), "");
}

TEST_F(SipDialog, RouteHeadersStay) {
    const std::string callId = FreshCall("route-1@test");
    SipMessage invite = Offer(callId);
    invite.extra = {"Route: <sip:p1;lr>", "Route: <sip:p2;lr>"};
    ASSERT_EQ(Translate(Connect(), invite.Text()), 1);
    int count = 0;
    for (const LoggedLine& line : LogCapture::lines())
        count += line.text == "SIP not removing Route: header \n";
    EXPECT_EQ(count, 1);
    ExpectLines(out_, {"Route:<sip:p1;lr>", "Route:<sip:p2;lr>"});
}

TEST_F(SipDialog, UdpDestroyRemovesTheDialogOfTheLastMediaPort) {
    SIPConnection* idle = Connect();
    const std::size_t before = SIPTranslator::Instance().Dialogs().size();
    EXPECT_EQ(sipxlate_udp_destroy(idle), 0);
    EXPECT_EQ(SIPTranslator::Instance().Dialogs().size(), before);

    const std::string callId = FreshCall("udp-destroy@test");
    SIPConnection* connection = Connect();
    SipMessage invite = Offer(callId);
    invite.body = AudioSdp("10.0.0.5", 41234, {"0 PCMU/8000"});
    ASSERT_EQ(Translate(connection, invite.Text()), 1);
    EXPECT_EQ(connection->lastMediaPort, 41234u);
    ASSERT_NE(Dialog(callId), nullptr);
    EXPECT_EQ(sipxlate_udp_destroy(connection), 0);
    EXPECT_EQ(Dialog(callId), nullptr);
    EXPECT_EQ(Dialog(callId + "z9hG4bKa"), nullptr);
    ASSERT_EQ(Host().closes.size(), 1u);
    EXPECT_EQ(Host().closes[0].handle, Host().opens[0].handle);
}

// The dialogs of a crowd of calls, each INVITE on a connection of its own, and the ones that a
// connection's destroy, the answer to a BYE and AgeDialogs must remove from among them.
class SipTeardown : public SipHostTest {
protected:
    // Sends the INVITE of callId with its media on port, on a new connection unless one is given;
    // returns the handle of the forward channel the host opened for it. Another branch than the
    // first makes it a re-INVITE of the caller.
    int32_t Call(const std::string& callId, int port, SIPConnection* connection = nullptr,
                 const std::string& branch = "z9hG4bKa") {
        SipMessage invite = Offer(callId, branch);
        invite.body = AudioSdp("10.0.0.5", port, {"0 PCMU/8000"});
        if (branch != "z9hG4bKa")
            invite.to += ";tag=t1";
        EXPECT_EQ(Translate(connection != nullptr ? connection : Connect(), invite.Text()), 1)
            << callId;
        return Host().opens.back().handle;
    }

    static std::size_t Keys() { return SIPTranslator::Instance().Dialogs().size(); }

    // Handles the host was asked to close, in order.
    static std::vector<int32_t> Closed() {
        std::vector<int32_t> handles;
        for (const CloseRecord& close : Host().closes)
            handles.push_back(close.handle);
        return handles;
    }
};

TEST_F(SipTeardown, EachWayOfEndingRemovesExactlyItsDialogs) {
    std::vector<std::string> crowd;
    std::vector<int32_t> handles;
    for (int i = 0; i < 40; ++i) {
        crowd.push_back(FreshCall("crowd-" + std::to_string(i) + "@test"));
        handles.push_back(Call(crowd.back(), 20000 + 2 * i));
    }
    // Port 30000: the connection's own call, two more calls on other connections, a call whose
    // re-INVITE moved its media there, and a finished dialog that was not aged yet. A call whose
    // re-INVITE moved its media away from 30000 is not among them.
    SIPConnection* connection = Connect();
    const int32_t b = Call(FreshCall("port-b@test"), 30000, connection);
    const int32_t c = Call(FreshCall("port-c@test"), 30000);
    const int32_t a = Call(FreshCall("port-a@test"), 30000);
    Call(FreshCall("moved-in@test"), 30004);
    const int32_t movedIn = Call("moved-in@test", 30000, nullptr, "z9hG4bKre");
    Call(FreshCall("moved-away@test"), 30000);
    Call("moved-away@test", 30002, nullptr, "z9hG4bKre");
    const int32_t finished = Call(FreshCall("finished@test"), 30000);
    SIPTranslator& translator = SIPTranslator::Instance();
    translator.Finish(*Dialog("finished@test"));

    // All of them go, their media closed in the order of their keys, whatever the order they
    // came in.
    Host().closes.clear();
    const std::size_t keys = Keys();
    EXPECT_EQ(sipxlate_udp_destroy(connection), 0);
    EXPECT_EQ(Closed(), (std::vector<int32_t>{finished, movedIn, a, b, c}));
    for (const char* gone :
         {"finished@test", "moved-in@test", "port-a@test", "port-b@test", "port-c@test"}) {
        EXPECT_EQ(Dialog(gone), nullptr) << gone;
        EXPECT_EQ(Dialog(std::string(gone) + "z9hG4bKa"), nullptr) << gone;
    }
    EXPECT_EQ(Dialog("moved-in@testz9hG4bKre"), nullptr);
    EXPECT_EQ(keys - Keys(), 11u) << "two keys each, three for the re-INVITEd call";
    SIPTranslator::DialogInfo* movedAway = Dialog("moved-away@test");
    ASSERT_NE(movedAway, nullptr);
    EXPECT_EQ(Dialog("moved-away@testz9hG4bKa"), movedAway);
    EXPECT_EQ(Dialog("moved-away@testz9hG4bKre"), movedAway);
    for (const std::string& callId : crowd) {
        ASSERT_NE(Dialog(callId), nullptr) << callId;
        EXPECT_EQ(Dialog(callId + "z9hG4bKa"), Dialog(callId)) << callId;
    }

    // The answer to a BYE ends its own dialog only.
    const SipMessage bye = Offer(crowd[7]).Request("BYE", "z9hG4bKbye");
    EXPECT_EQ(Translate(connection, bye.Text()), 0);
    Host().closes.clear();
    EXPECT_EQ(Translate(connection, bye.Response("200 OK").Text()), 0);
    EXPECT_EQ(Closed(), (std::vector<int32_t>{handles[7]}));
    EXPECT_EQ(Dialog(crowd[7]), nullptr);
    EXPECT_EQ(keys - Keys(), 13u);

    // AgeDialogs deletes the finished dialogs only, in the order of their keys.
    translator.Finish(*Dialog(crowd[31]));
    translator.Finish(*Dialog(crowd[13]));
    Host().closes.clear();
    EXPECT_EQ(translator.AgeDialogs(), 2);
    EXPECT_EQ(Closed(), (std::vector<int32_t>{handles[13], handles[31]}));
    EXPECT_EQ(Dialog(crowd[13]), nullptr);
    EXPECT_EQ(Dialog(crowd[31]), nullptr);
    EXPECT_EQ(keys - Keys(), 17u);
    EXPECT_EQ(translator.AgeDialogs(), 0);
    EXPECT_EQ(translator.Destroy(static_cast<SIPTranslator::DialogInfo*>(nullptr)), -1);

    for (const std::string& callId : crowd)
        Forget(callId);
    Forget("moved-away@test");
}

// A body is copied by its length, whatever bytes it holds: a binary body with NUL bytes goes out
// whole, and the length reported is that of the whole message.
TEST_F(SipDialog, BodiesWithNulBytesGoOutWhole) {
    struct Hook {
        static int Rewrite(bool, bool, SIPMIMEType*) { return 1; }
    };
    voipxlate_setfunction(VOIPXLATE_REWRITE_NOTIFY,
                          reinterpret_cast<voipxlate_function>(&Hook::Rewrite));
    const std::string callId = FreshCall("nul-body@test");
    SIPConnection* connection = Connect();
    const SipMessage invite = Offer(callId);
    ASSERT_EQ(Translate(connection, invite.Text()), 1);

    const std::string binary("\0\x01\x02signal=1\0duration=160\r\n\0\xff\0", 30);
    const struct {
        const char* what;
        SipMessage message;
    } cases[] = {
        {"INFO", invite.Request("INFO", "z9hG4bKinfo")},
        {"BYE", invite.Request("BYE", "z9hG4bKbye")},
        {"200 to INFO", invite.Request("INFO", "z9hG4bKinfo").Response("200 OK")},
    };
    for (const auto& c : cases) {
        SipMessage message = c.message;
        message.contentType = "application/octet-stream";
        message.body = binary;
        ASSERT_EQ(Translate(connection, message.Text()), 1) << c.what;
        EXPECT_EQ(BodyOf(out_), binary) << c.what;
        EXPECT_EQ(HeaderValue(out_, "Content-Length"), "30") << c.what;
    }
}

// Lines may end with CR LF, LF, a bare CR or NUL: the message is understood the same way and
// re-emitted with CR LF.
TEST_F(SipDialog, EveryLineEndGivesTheSameRewrittenMessage) {
    const auto replace = [](std::string text, const std::string& end) {
        for (std::string::size_type at = text.find("\r\n"); at != std::string::npos;
             at = text.find("\r\n", at + end.size()))
            text.replace(at, 2, end);
        return text;
    };
    const std::string callId = "line-ends@test";
    std::string expected;
    for (const std::string& end :
         {std::string("\r\n"), std::string("\n"), std::string("\r"), std::string(1, '\0')}) {
        Forget(callId);
        SipMessage invite = Offer(callId);
        invite.body = replace(invite.body, end);
        ASSERT_EQ(Translate(Connect(), replace(invite.Text(), end)), 1) << int(end[0]);
        if (expected.empty())
            expected = out_;
        EXPECT_EQ(out_, expected) << int(end[0]);
    }
    EXPECT_TRUE(HasLine(expected, "m=audio 14000 RTP/AVP 0 8"));
}

} // namespace
