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

#include <dirent.h>

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

// --- Building messages ---------------------------------------------------------------------------

// A Q.931 frame: header (call reference 1, message type), the given elements, then user-user.
inline Bytes Frame(const Bytes& userInformation, unsigned char messageType = 0x05,
                   const Bytes& elementsBefore = {}, const Bytes& elementsAfter = {}) {
    Bytes frame;
    frame.reserve(9 + elementsBefore.size() + userInformation.size() + elementsAfter.size());
    for (unsigned char octet : {0x08, 0x02, 0x00, 0x01})
        frame.push_back(octet);
    frame.push_back(messageType);
    frame.insert(frame.end(), elementsBefore.begin(), elementsBefore.end());
    const unsigned length = static_cast<unsigned>(userInformation.size()) + 1;
    frame.push_back(0x7E);
    frame.push_back(static_cast<unsigned char>(length >> 8));
    frame.push_back(static_cast<unsigned char>(length & 0xFF));
    frame.push_back(0x05);
    frame.insert(frame.end(), userInformation.begin(), userInformation.end());
    frame.insert(frame.end(), elementsAfter.begin(), elementsAfter.end());
    return frame;
}

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

// An empty user information carrying CONNECT, FACILITY, RELEASE COMPLETE or EMPTY.
inline H225::H323_UserInformation Message(int tag) {
    H225::H323_UserInformation ui;
    H225::H323_UU_PDU_h323_message_body& body = ui.ref_h323_uu_pdu().ref_h323_message_body();
    body.select(tag);
    using Body = H225::H323_UU_PDU_h323_message_body;
    if (tag == Body::connect::id_) {
        SetProtocol(body.ref_connect().ref_protocolIdentifier());
        body.ref_connect().ref_conferenceID().assign(16, '\x11');
    } else if (tag == Body::facility::id_) {
        SetProtocol(body.ref_facility().ref_protocolIdentifier());
        body.ref_facility().ref_reason().select(H225::FacilityReason::undefinedReason::id_);
    } else if (tag == Body::releaseComplete::id_) {
        auto& release = body.ref_releaseComplete();
        SetProtocol(release.ref_protocolIdentifier());
        release.set_callIdentifier(H225::CallIdentifier()).ref_guid().assign(16, '\x44');
    }
    return ui;
}

// G.711 mu-law (or another audio alternative) at 20 frames a packet.
inline void SetAudio(H245::DataType& dataType, int audio) {
    dataType.select(H245::DataType::audioData::id_);
    auto& capability = dataType.ref_audioData();
    capability.select(audio);
    if (auto* frames = dynamic_cast<ASN1::INTEGER*>(capability.getSelection()))
        *frames = 20;
}

// The session and the RTP and RTCP addresses of a channel; an empty text leaves one out.
template <class Parameters>
void SetMedia(Parameters& params, const std::string& rtp, const std::string& rtcp) {
    if (!rtp.empty())
        SetH245Address(params.set_mediaChannel(H245::TransportAddress()), rtp);
    if (!rtcp.empty())
        SetH245Address(params.set_mediaControlChannel(H245::TransportAddress()), rtcp);
}

// An OpenLogicalChannel with G.711 mu-law (or another audio alternative) over H.225.0.
inline H245::OpenLogicalChannel AudioOLC(int channel, int session, const std::string& rtp,
                                         const std::string& rtcp,
                                         int audio = H245::AudioCapability::g711Ulaw64k::id_) {
    H245::OpenLogicalChannel olc;
    olc.ref_forwardLogicalChannelNumber() = channel;
    auto& forward = olc.ref_forwardLogicalChannelParameters();
    SetAudio(forward.ref_dataType(), audio);
    auto& mux = forward.ref_multiplexParameters();
    mux.select(H245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters::
                   h2250LogicalChannelParameters::id_);
    mux.ref_h2250LogicalChannelParameters().ref_sessionID() = session;
    SetMedia(mux.ref_h2250LogicalChannelParameters(), rtp, rtcp);
    return olc;
}

// A fast start receive proposal: the caller's RTP and RTCP in reverse parameters.
inline H245::OpenLogicalChannel
ReverseAudioOLC(int channel, int session, const std::string& rtp, const std::string& rtcp,
                int audio = H245::AudioCapability::g711Ulaw64k::id_) {
    H245::OpenLogicalChannel olc;
    olc.ref_forwardLogicalChannelNumber() = channel;
    auto& forward = olc.ref_forwardLogicalChannelParameters();
    forward.ref_dataType().select(H245::DataType::nullData::id_);
    forward.ref_multiplexParameters().select(
        H245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters::none::id_);
    auto& reverse = olc.set_reverseLogicalChannelParameters(
        H245::OpenLogicalChannel_reverseLogicalChannelParameters());
    SetAudio(reverse.ref_dataType(), audio);
    auto& mux = reverse.set_multiplexParameters(
        H245::OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters());
    mux.select(H245::OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters::
                   h2250LogicalChannelParameters::id_);
    mux.ref_h2250LogicalChannelParameters().ref_sessionID() = session;
    SetMedia(mux.ref_h2250LogicalChannelParameters(), rtp, rtcp);
    return olc;
}

inline H245::OpenLogicalChannelAck OLCAck(int channel, const std::string& rtp,
                                          const std::string& rtcp) {
    H245::OpenLogicalChannelAck ack;
    ack.ref_forwardLogicalChannelNumber() = channel;
    auto& mux = ack.set_forwardMultiplexAckParameters(
        H245::OpenLogicalChannelAck_forwardMultiplexAckParameters());
    mux.select(H245::OpenLogicalChannelAck_forwardMultiplexAckParameters::
                   h2250LogicalChannelAckParameters::id_);
    SetMedia(mux.ref_h2250LogicalChannelAckParameters(), rtp, rtcp);
    return ack;
}

inline H245::MultimediaSystemControlMessage Request(const H245::OpenLogicalChannel& olc) {
    H245::MultimediaSystemControlMessage message;
    message.select(H245::MultimediaSystemControlMessage::request::id_);
    message.ref_request().select(H245::RequestMessage::openLogicalChannel::id_);
    message.ref_request().ref_openLogicalChannel() = olc;
    return message;
}

inline H245::MultimediaSystemControlMessage Response(const H245::OpenLogicalChannelAck& ack) {
    H245::MultimediaSystemControlMessage message;
    message.select(H245::MultimediaSystemControlMessage::response::id_);
    message.ref_response().select(H245::ResponseMessage::openLogicalChannelAck::id_);
    message.ref_response().ref_openLogicalChannelAck() = ack;
    return message;
}

// The synthesized SETUP: 10.0.0.5 calls 192.0.2.10 with six fast start proposals for session 1
// (G.729A, G.711 mu-law, A-law, each receive and transmit) and tunnelled H.245 (TCS and MSD).
inline H225::H323_UserInformation SynthSetup() {
    H225::H323_UserInformation ui;
    EXPECT_TRUE(DecodeFrame(ReadFile(DataFile("h323/synth-setup-faststart.q931.bin")), ui));
    return ui;
}

inline H225::Setup_UUIE& SetupOf(H225::H323_UserInformation& ui) {
    return ui.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
}

inline H225::Connect_UUIE& ConnectOf(H225::H323_UserInformation& ui) {
    return ui.ref_h323_uu_pdu().ref_h323_message_body().ref_connect();
}

// The synthesized SETUP without fast start and without tunnelled H.245: a slow-start call.
inline H225::H323_UserInformation SlowStartSetupMessage() {
    H225::H323_UserInformation ui = SynthSetup();
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_fastStart);
    ui.ref_h323_uu_pdu().removeOptionalField(H225::H323_UU_PDU::e_h245Control);
    return ui;
}

// A CONNECT framed for sending, announcing the callee's H.245 address.
inline Bytes ConnectWithH245Address(const std::string& h245) {
    H225::H323_UserInformation connect = Message(H225::H323_UU_PDU_h323_message_body::connect::id_);
    SetTransportAddress(ConnectOf(connect).set_h245Address(H225::TransportAddress()), h245);
    return Frame(Encode(connect), 0x07);
}

// An H.245 message as sent, decoded again.
inline H245::MultimediaSystemControlMessage DecodeH245(const Bytes& pdu) {
    H245::MultimediaSystemControlMessage message;
    EXPECT_TRUE(Decode(pdu, message));
    return message;
}

// --- Flow files ---------------------------------------------------------------------------------

// The flows of a folder below tests/data (their names without ".flow"), sorted.
inline std::vector<std::string> FlowNames(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(DataFile(folder).c_str())) {
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name.compare(name.size() - 5, 5, ".flow") == 0)
                names.push_back(name.substr(0, name.size() - 5));
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

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
