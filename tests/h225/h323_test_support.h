// Test host and PDU helpers for the H.323 tests: a host whose callbacks record every call with its
// arguments and answer predictably, Q.931 framing of test messages, and message builders.
#ifndef VOIPFILTER_TESTS_H323_TEST_SUPPORT_H
#define VOIPFILTER_TESTS_H323_TEST_SUPPORT_H

#include "golden.h"
#include "h225/q931.h"
#include "pdu_util.h"
#include "registry_guard.h"
#include "transcript.h"

#include <voipfilter/voipfilter.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// The host: every callback appends one line to `events` and to the transcript, if one listens;
// channels are opened on 192.0.2.100 with even RTP ports from 20000 on (RTCP one higher) and
// handles from 101 on.
class TestHost {
public:
    static TestHost& Get() {
        static TestHost host;
        return host;
    }

    void Reset() {
        events.clear();
        refusedCodecs.clear();
        failOpenRTP = failOpenH245 = failTranslateMedia = answerIPv6 = false;
        holdResult = 0;
        nextPort = 20000;
        nextHandle = 101;
    }

    void Install(bool allowCodec = true, bool hold = false) {
        auto set = [](int slot, auto function) {
            voipxlate_setfunction(slot, reinterpret_cast<voipxlate_function>(function));
        };
        set(VOIPXLATE_OPEN_RTP_CHANNEL, &OpenRTP);
        set(VOIPXLATE_CLOSE_RTP_CHANNEL, &CloseRTP);
        set(VOIPXLATE_OPEN_H245_CHANNEL, &OpenH245);
        set(VOIPXLATE_TRANSLATE_MEDIA_ADDR, &TranslateMedia);
        if (allowCodec)
            set(VOIPXLATE_ALLOW_CODEC, &AllowCodec);
        if (hold)
            set(VOIPXLATE_CALL_ON_HOLD, &OnHold);
    }

    std::vector<std::string> events;
    std::set<std::string> refusedCodecs;
    bool failOpenRTP = false;
    bool failOpenH245 = false;
    bool failTranslateMedia = false;
    bool answerIPv6 = false; // media channels opened on an IPv6 address
    int holdResult = 0;
    unsigned nextPort = 20000;
    int nextHandle = 101;

    void Push(const std::string& event) {
        events.push_back(event);
        Transcript::Event(event);
    }

    // The host context every test call is created with.
    static void* this_call() {
        static int marker;
        return &marker;
    }

private:
    // Events of a callback that got another host context say so.
    static std::string Ctx(void* ctx) { return ctx == this_call() ? "" : "(foreign ctx) "; }

    static int OpenRTP(void* ctx, int direction, voipxlate_mediasessioninformation* s,
                       int32_t* handle) {
        TestHost& h = Get();
        const sockaddr_type& rtp = direction ? s->forwardRTP : s->reverseRTP;
        const sockaddr_type& rtcp = direction ? s->forwardRTCP : s->reverseRTCP;
        const sockaddr_type& rtpT = direction ? s->forwardRTPTranslated : s->reverseRTPTranslated;
        h.Push(Ctx(ctx) + "openRTP dir=" + std::to_string(direction) +
               " session=" + std::to_string(s->sessionID) + " codec=" + s->codecName +
               " rtp=" + Text(rtp) + " rtcp=" + Text(rtcp) + " pre=" + Text(rtpT));
        if (h.failOpenRTP)
            return -1;
        sockaddr_type& outRTP = direction ? s->forwardRTPTranslated : s->reverseRTPTranslated;
        sockaddr_type& outRTCP = direction ? s->forwardRTCPTranslated : s->reverseRTCPTranslated;
        outRTP = Addr("192.0.2.100:" + std::to_string(h.nextPort));
        outRTCP = Addr("192.0.2.100:" + std::to_string(h.nextPort + 1));
        if (h.answerIPv6)
            outRTP.family = outRTCP.family = VOIPXLATE_FAMILY_IPV6;
        h.nextPort += 2;
        *handle = h.nextHandle++;
        return 0;
    }
    static int CloseRTP(void* ctx, int32_t handle, int direction) {
        Get().Push(Ctx(ctx) + "closeRTP handle=" + std::to_string(handle) +
                   " dir=" + std::to_string(direction));
        return 0;
    }
    static int AllowCodec(void* ctx, int kind, const char* codec) {
        TestHost& h = Get();
        h.Push(Ctx(ctx) + "allowCodec kind=" + std::to_string(kind) + " " + codec);
        return h.refusedCodecs.count(codec) ? 0 : 1;
    }
    static int OpenH245(void* ctx, int direction, const sockaddr_type* announced,
                        sockaddr_type* replacement) {
        TestHost& h = Get();
        h.Push(Ctx(ctx) + "openH245 dir=" + std::to_string(direction) + " " + Text(*announced) +
               " pre=" + Text(*replacement));
        if (h.failOpenH245)
            return -1;
        *replacement = Addr("192.0.2.100:30000");
        return 0;
    }
    static int TranslateMedia(void* ctx, int direction, const sockaddr_type* found,
                              sockaddr_type* replacement, void* scratch) {
        TestHost& h = Get();
        h.Push(Ctx(ctx) + "translateMedia dir=" + std::to_string(direction) + " " + Text(*found) +
               " pre=" + Text(*replacement) + (scratch ? "" : " (no scratch)"));
        if (h.failTranslateMedia)
            return -1;
        *replacement = Addr("192.0.2.100:40000");
        return 0;
    }
    static int OnHold(void* ctx, int flag) {
        TestHost& h = Get();
        h.Push(Ctx(ctx) + "hold " + std::to_string(flag));
        return h.holdResult;
    }
};

// Fixture: an empty registry with the recording host installed, reset around each test.
class H323HostTest : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        host().Reset();
        host().Install();
    }
    void TearDown() override {
        host().Reset();
        RegistryTest::TearDown();
    }
    static TestHost& host() { return TestHost::Get(); }
};

// The four call addresses of the tests: the originator 10.0.0.5 behind the firewall calls
// 192.0.2.10; the firewall announces itself as 198.51.100.1 towards each side.
struct CallAddresses {
    sockaddr_type expectedOriginator = Addr("10.0.0.5:1720");
    sockaddr_type expectedDestination = Addr("192.0.2.10:1720");
    sockaddr_type announcedOriginator = Addr("198.51.100.1:1720");
    sockaddr_type announcedDestination = Addr("198.51.100.1:11720");
};

inline bool DecodeFrame(const Bytes& frame, H225::H323_UserInformation& out);
inline void* DecodeFrameContext();

// One call through the C API.
class TestCall {
public:
    explicit TestCall(const CallAddresses& a = CallAddresses()) {
        CallAddresses copy = a;
        handle = h323xlate_h225_create(TestHost::this_call(), &copy.expectedOriginator,
                                       &copy.expectedDestination, &copy.announcedOriginator,
                                       &copy.announcedDestination);
    }
    ~TestCall() { h323xlate_h225_destroy(handle); }
    TestCall(const TestCall&) = delete;
    TestCall& operator=(const TestCall&) = delete;

    // decode + translate (+ encode when the result asks for it). out gets the PDU to send.
    int Send(bool fromOriginator, const Bytes& pdu, Bytes* out = nullptr, int* status = nullptr) {
        int s = 1234;
        const int decoded =
            h323xlate_h225_decodeh225pdu(handle, pdu.data(), static_cast<unsigned>(pdu.size()));
        if (decoded != 1)
            return 100 + decoded;
        const int r = h323xlate_h225_translateh225pdu(handle, fromOriginator, &s);
        if (status)
            *status = s;
        if (out) {
            *out = pdu;
            if (r == 1) {
                out->assign(8192, 0);
                unsigned size = static_cast<unsigned>(out->size());
                EXPECT_EQ(1, h323xlate_h225_encodeh225pdu(handle, out->data(), &size));
                out->resize(size);
            }
        }
        return r;
    }

    // The separate H.245 channel: out gets the PDU to send (the input when unchanged).
    int SendH245(bool fromOriginator, const Bytes& pdu, Bytes* out = nullptr) {
        Bytes buffer(4096);
        unsigned size = static_cast<unsigned>(buffer.size());
        const int r = h323xlate_h225_translateh245pdu(handle, fromOriginator, pdu.data(),
                                                      static_cast<unsigned>(pdu.size()),
                                                      buffer.data(), &size);
        if (out) {
            *out = pdu;
            if (r == 1)
                out->assign(buffer.begin(), buffer.begin() + size);
        }
        return r;
    }

    // Sends a call signalling PDU and notes the outcome in the transcript: the result, the status
    // word, the call state, and the PDU sent on (in value notation) when it was rewritten.
    int Step(Transcript& t, const std::string& what, bool fromOriginator, const Bytes& pdu,
             Bytes* sentOn = nullptr) {
        Bytes out;
        int status = 1234;
        t.Note("> " + what + (fromOriginator ? " from the originator" : " from the destination"));
        const int r = Send(fromOriginator, pdu, &out, &status);
        if (r > 90) // the PDU did not decode
            t.Note("decode " + std::to_string(r - 100));
        else
            t.Note("result " + std::to_string(r) + " status " + std::to_string(status) + " state " +
                   std::to_string(Info().state));
        H225::H323_UserInformation sent;
        if (r == 1 && DecodeFrame(out, sent))
            t.Note("sent " + sent.asValueNotation());
        if (sentOn)
            *sentOn = out;
        return r;
    }
    // The same for the separate H.245 channel.
    int StepH245(Transcript& t, const std::string& what, bool fromOriginator, const Bytes& pdu,
                 Bytes* sentOn = nullptr) {
        Bytes out;
        t.Note("> H.245 " + what +
               (fromOriginator ? " from the originator" : " from the destination"));
        const int r = SendH245(fromOriginator, pdu, &out);
        t.Note("result " + std::to_string(r));
        H245::MultimediaSystemControlMessage sent;
        if (r == 1 && Decode(out, sent))
            t.Note("sent " + sent.asValueNotation());
        if (sentOn)
            *sentOn = out;
        return r;
    }
    // The sessions in use, one line each.
    void NoteSessions(Transcript& t) {
        for (const voipxlate_mediasessioninformation& s : Info().sessions) {
            if (s.flags == 0)
                continue;
            std::ostringstream os;
            os << "session " << s.sessionID << " kind " << s.mediaKind << " codec "
               << (s.codecName ? s.codecName : "-") << std::hex << " flags 0x" << s.flags
               << std::dec << " channels " << s.originatorChannel << "/" << s.destinationChannel
               << "\n  forward " << s.forwardRTP << " " << s.forwardRTCP << " -> "
               << s.forwardRTPTranslated << " " << s.forwardRTCPTranslated << " handle "
               << s.forwardUserData << "\n  reverse " << s.reverseRTP << " " << s.reverseRTCP
               << " -> " << s.reverseRTPTranslated << " " << s.reverseRTCPTranslated << " handle "
               << s.reverseUserData;
            t.Note(os.str());
        }
    }

    voipxlate_callinformation& Info() { return *h323xlate_h225_getcallstatus(handle); }

    H225TranslatorContext* handle;
};

// --- Reading messages ---------------------------------------------------------------------------

// The host context of the helper call that DecodeFrame decodes with (its log lines are not
// those of the call under test).
inline void* DecodeFrameContext() {
    static int marker;
    return &marker;
}

// The user information of a Q.931 frame, decoded again.
inline bool DecodeFrame(const Bytes& frame, H225::H323_UserInformation& out) {
    q931::UserUserPayload payload;
    if (q931::FindUserUser(frame.data(), static_cast<unsigned>(frame.size()), payload) != 1)
        return false;
    out = H225::H323_UserInformation();
    return ASN1::ASNDecode(frame.data() + payload.offset, payload.length, out) == 1;
}

// --- Flow files ---------------------------------------------------------------------------------

// Plays tests/data/<flow>.flow on calls through the C API and compares the transcript at level
// 5 with tests/data/<flow>.txt. A flow file has one PDU a line, "LABEL O|D h225|h245 HEX" (from
// the originator or the destination, on call signalling or the separate H.245 connection, the
// label's underscores read as blanks), and lines that set the host up for what follows:
// "call [EXPECTED-ORIGINATOR EXPECTED-DESTINATION ANNOUNCED-ORIGINATOR ANNOUNCED-DESTINATION]" (a
// new call, with the four addresses of CallAddresses unless given), "refuse CODEC...", "fail
// open-rtp|open-h245|translate-media", "hold RESULT" (the hold callback, answering RESULT),
// "unset SLOT" and "encode" (encodeh225pdu into a buffer of 64 octets, which must stay as it was
// unless the result is 1). The media sessions of the last call close the transcript. Lines
// starting with '#' are comments.
inline void PlayFlow(const std::string& flow) {
    Transcript t(5);
    t.Ignore(DecodeFrameContext());
    TestHost& host = TestHost::Get();
    std::unique_ptr<TestCall> call = std::make_unique<TestCall>();
    std::ifstream in(DataFile(flow + ".flow"));
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string first, second, channel, hex;
        words >> first >> second;
        if (first.empty() || first[0] == '#')
            continue;
        if (second == "O" || second == "D") {
            words >> channel >> hex;
            std::replace(first.begin(), first.end(), '_', ' ');
            if (channel == "h245")
                call->StepH245(t, first, second == "O", FromHex(hex));
            else
                call->Step(t, first, second == "O", FromHex(hex));
            continue;
        }
        t.Note("--- " + line);
        if (first == "call") {
            CallAddresses a;
            if (!second.empty()) {
                std::string destination, announcedOriginator, announcedDestination;
                words >> destination >> announcedOriginator >> announcedDestination;
                a = {Addr(second), Addr(destination), Addr(announcedOriginator),
                     Addr(announcedDestination)};
            }
            call = std::make_unique<TestCall>(a);
        } else if (first == "refuse") {
            host.refusedCodecs.clear();
            for (std::string codec = second; !codec.empty(); codec.clear(), words >> codec)
                host.refusedCodecs.insert(codec);
        } else if (first == "fail") {
            (second == "open-rtp"    ? host.failOpenRTP
             : second == "open-h245" ? host.failOpenH245
                                     : host.failTranslateMedia) = true;
        } else if (first == "hold") {
            host.Install(true, true);
            host.holdResult = std::stoi(second);
        } else if (first == "unset") {
            voipxlate_setfunction(std::stoi(second), nullptr);
        } else if (first == "encode") {
            Bytes buffer(64, 0xAA);
            unsigned size = static_cast<unsigned>(buffer.size());
            const int r = h323xlate_h225_encodeh225pdu(call->handle, buffer.data(), &size);
            t.Note("result " + std::to_string(r));
            if (r != 1) {
                EXPECT_EQ(Bytes(64, 0xAA), buffer) << flow;
            }
        } else {
            ADD_FAILURE() << flow << ": cannot read " << line;
        }
    }
    call->NoteSessions(t);
    ExpectGolden(flow + ".txt", t.str());
}

#endif
