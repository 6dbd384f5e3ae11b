// Test host for the SIP family: callbacks that record every call and open channels with
// predictable translated addresses, plus helpers to load captured datagrams and drive the C API.
#ifndef VOIPFILTER_TESTS_SIP_TEST_HOST_H
#define VOIPFILTER_TESTS_SIP_TEST_HOST_H

#include "host/registry.h"
#include "host/sockaddr.h"
#include "log_capture.h"
#include "registry_guard.h"
#include "sip/translator.h"
#include "test_util.h"
#include "transcript.h"

#include <voipfilter/voipfilter.h>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

// What the recording host saw, and how it answers. Every callback is also an event of the
// transcript, if one listens.
struct HostState {
    std::vector<int32_t> opened; // channel handles, in order
    std::vector<int32_t> closed;
    std::set<std::string> refusedCodecs;
    int openResult = 0;
    int holdResult = 0;
    int rewriteResult = 0;
    int32_t nextHandle = 1000;
};

HostState& Host();

// Fixture: empty registry with the recording callbacks in slots 1, 2, 3, 8, 14 and 15 (slot 9 is
// set by the tests that need it), and a log capture at level 5. Channels are opened on
// 203.0.113.1 (forward) or .2 (reverse) with the announced port + 10000.
class SipHostTest : public RegistryTest {
public:
    // Deletes any dialog left from an earlier run under this Call-ID, so tests do not depend on
    // their order.
    static void Forget(const std::string& callId);
    // The Call-ID of a test's call, forgotten first.
    static std::string FreshCall(const std::string& callId) {
        Forget(callId);
        return callId;
    }

    static SIPTranslator::DialogInfo* Dialog(const std::string& key);

protected:
    void SetUp() override;
    void TearDown() override;

    // Connection with distinct source/translated addresses on both sides.
    SIPConnection* Connect(void* context = nullptr);

    // Translates text through the C API; the output (when the result is positive) goes to out_.
    int Translate(SIPConnection* connection, const std::string& message, int option = 1,
                  unsigned capacity = 8192);

    std::unique_ptr<LogCapture> log_;
    std::vector<SIPConnection*> connections_;
    std::string out_;
};

// A SIP message put together for a test; Text() adds Content-Type and Content-Length when there
// is a body.
struct SipMessage {
    std::string start = "INVITE sip:bob@192.0.2.10 SIP/2.0";
    std::string via = "SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bK-1";
    std::string from = "Alice <sip:alice@10.0.0.5>;tag=a1";
    std::string to = "<sip:bob@192.0.2.10>";
    std::string callId = "call";
    std::string cseq = "1 INVITE";
    std::vector<std::string> extra; // further header lines
    std::string contentType = "application/sdp";
    std::string body;

    std::string Text() const;
    // The same message as a response of the callee (To tag t1) with this status line.
    SipMessage Response(const std::string& status) const;
    // An in-dialog request of the caller with this method, CSeq and branch.
    SipMessage Request(const std::string& method, const std::string& branch) const;
};

// An SDP body with one audio line: c= at session level, rtpmap lines for the payloads given as
// "0 PCMU/8000" and any further attribute lines.
std::string AudioSdp(const std::string& ip, int port, const std::vector<std::string>& rtpmaps,
                     const std::vector<std::string>& attributes = {});

// Reads a file below tests/data/sip.
std::string LoadSip(const std::string& relative);
// Files of a directory below tests/data/sip, sorted by name.
std::vector<std::string> ListSip(const std::string& relative);

// Value of the first header of that name in text ("" when absent).
std::string HeaderValue(const std::string& message, const std::string& name);
// Body after the first empty line.
std::string BodyOf(const std::string& message);

#endif
