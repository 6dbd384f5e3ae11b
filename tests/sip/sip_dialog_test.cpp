// What the flow files do not show: bad arguments, the dialogs that each way of ending a call
// removes from among many, and binary bodies.
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using SipDialog = SipHostTest;

// A message of tests/data/sip/dialog/messages.sip with its fields filled in.
std::string Sip(const std::string& name, const std::map<std::string, std::string>& fields) {
    const std::string all = LoadSip("dialog/messages.sip");
    std::istringstream in(all.substr(all.find("=== " + name + "\n") + name.size() + 5));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line) && line.compare(0, 4, "=== ") != 0;) {
        for (const auto& [field, value] : fields)
            for (auto at = line.find(field); at != std::string::npos;
                 at = line.find(field, at + value.size()))
                line.replace(at, field.size(), value);
        lines.push_back(line);
    }
    return SipDatagram(lines);
}

// The caller's INVITE, offering PCMU and PCMA on port.
std::string Offer(const std::string& callId, const std::string& branch = "z9hG4bKa",
                  int port = 4000, const std::string& toTag = "") {
    return Sip(
        "invite",
        {{"$CALL", callId}, {"$BRANCH", branch}, {"$PORT", std::to_string(port)}, {"$TO", toTag}});
}

// An in-dialog request of the caller ("request") or the callee's answer to it ("response"), with
// a binary body when one is given.
std::string InDialog(const std::string& kind, const std::string& callId, const std::string& method,
                     const std::string& branch, const std::string& binaryBody = "") {
    std::string text = Sip(kind, {{"$CALL", callId}, {"$BRANCH", branch}, {"$METHOD", method}});
    if (!binaryBody.empty())
        text.insert(text.size() - 2, "Content-Type: application/octet-stream\r\nContent-Length: " +
                                         std::to_string(binaryBody.size()) + "\r\n");
    return text + binaryBody;
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
    EXPECT_TRUE(log_->Logged("SIP  Malformed header line"));
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, nullptr, 10, out, &length, 1), -1);
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, nullptr, &length, 1), -1);
    EXPECT_EQ(sipxlate_udp_translate(connection, 1, in, sizeof in - 1, out, nullptr, 1), -1);
    EXPECT_EQ(length, sizeof out);

    const sockaddr_type a = Addr("10.0.0.5:5060");
    EXPECT_EQ(sipxlate_create(nullptr, &a, &a, nullptr, &a), nullptr);
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
        const std::string invite =
            Offer(callId, branch, port, branch == "z9hG4bKa" ? "" : ";tag=t1");
        EXPECT_EQ(Translate(connection != nullptr ? connection : Connect(), invite), 1) << callId;
        return Host().opened.back();
    }

    static std::size_t Keys() { return SIPTranslator::Instance().Dialogs().size(); }

    // Handles the host was asked to close, in order.
    static std::vector<int32_t> Closed() { return Host().closed; }
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
    Host().closed.clear();
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
    EXPECT_EQ(Translate(connection, InDialog("request", crowd[7], "BYE", "z9hG4bKbye")), 0);
    Host().closed.clear();
    EXPECT_EQ(Translate(connection, InDialog("response", crowd[7], "BYE", "z9hG4bKbye")), 0);
    EXPECT_EQ(Closed(), (std::vector<int32_t>{handles[7]}));
    EXPECT_EQ(Dialog(crowd[7]), nullptr);
    EXPECT_EQ(keys - Keys(), 13u);

    // AgeDialogs deletes the finished dialogs only, in the order of their keys.
    translator.Finish(*Dialog(crowd[31]));
    translator.Finish(*Dialog(crowd[13]));
    Host().closed.clear();
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
    ASSERT_EQ(Translate(connection, Offer(callId)), 1);

    const std::string binary("\0\x01\x02signal=1\0duration=160\r\n\0\xff\0", 30);
    const struct {
        const char* what;
        const char* kind;
        const char* method;
        const char* branch;
    } cases[] = {
        {"INFO", "request", "INFO", "z9hG4bKinfo"},
        {"BYE", "request", "BYE", "z9hG4bKbye"},
        {"200 to INFO", "response", "INFO", "z9hG4bKinfo"},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(Translate(connection, InDialog(c.kind, callId, c.method, c.branch, binary)), 1)
            << c.what;
        EXPECT_EQ(BodyOf(out_), binary) << c.what;
        EXPECT_EQ(HeaderValue(out_, "Content-Length"), "30") << c.what;
    }
}

} // namespace
