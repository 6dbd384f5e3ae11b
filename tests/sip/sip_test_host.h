// Test host for the SIP family: callbacks that record every call and open channels with
// predictable translated addresses, plus helpers to load captured datagrams and drive the C API.
#ifndef VOIPFILTER_TESTS_SIP_TEST_HOST_H
#define VOIPFILTER_TESTS_SIP_TEST_HOST_H

#include "host/registry.h"
#include "host/sockaddr.h"
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

    std::unique_ptr<Transcript> log_;
    std::vector<SIPConnection*> connections_;
    std::string out_;
};

// A datagram written as lines, as the flow files write it: each line ends with CR LF, trailing
// empty lines go, the empty line after the headers is added when there is no body, and
// "Content-Length: *" (or "l: *") gets the length of the body.
std::string SipDatagram(std::vector<std::string> lines);

// Reads a file below tests/data/sip.
std::string LoadSip(const std::string& relative);

// Value of the first header of that name in text ("" when absent).
std::string HeaderValue(const std::string& message, const std::string& name);
// Body after the first empty line.
std::string BodyOf(const std::string& message);

#endif
