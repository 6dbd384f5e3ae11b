#include "sip_test_host.h"

#include "host/sockaddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

int OpenChannel(int slot, void* context, int direction, voipxlate_mediasessioninformation* session,
                int32_t* handle) {
    HostState& host = Host();
    sockaddr_type& rtp = direction ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcp =
        direction ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    std::ostringstream event;
    event << (slot == VOIPXLATE_OPEN_RTP_CHANNEL ? "openRTP" : "openIM") << " dir=" << direction
          << " session=" << session->sessionID << " kind=" << session->mediaKind
          << " codec=" << (session->codecName ? session->codecName : "-")
          << " rtp=" << (direction ? session->forwardRTP : session->reverseRTP)
          << " rtcp=" << (direction ? session->forwardRTCP : session->reverseRTCP)
          << " pre=" << rtp;
    if (host.openResult == 0) {
        *handle = host.nextHandle++;
        host.opened.push_back(*handle);
        const uint16_t port = static_cast<uint16_t>(ntohs(rtp.port) + 10000);
        rtp = Addr(direction ? "203.0.113.1" : "203.0.113.2");
        rtp.port = htons(port);
        rtcp = rtp;
        rtcp.port = htons(static_cast<uint16_t>(port + 1));
        event << " -> " << rtp << " " << rtcp << " handle=" << *handle;
    }
    Transcript::Event(event.str() + (context == &host ? "" : " (other context)") +
                      " result=" + std::to_string(host.openResult));
    return host.openResult;
}

int OpenRtp(void* context, int direction, voipxlate_mediasessioninformation* session,
            int32_t* handle) {
    return OpenChannel(VOIPXLATE_OPEN_RTP_CHANNEL, context, direction, session, handle);
}

int OpenIm(void* context, int direction, voipxlate_mediasessioninformation* session,
           int32_t* handle) {
    return OpenChannel(VOIPXLATE_OPEN_IM_CHANNEL, context, direction, session, handle);
}

int Close(void* context, int32_t handle, int direction) {
    Host().closed.push_back(handle);
    Transcript::Event("closeRTP handle=" + std::to_string(handle) + " dir=" +
                      std::to_string(direction) + (context == &Host() ? "" : " (other context)"));
    return 0;
}

int Allow(void* context, int kind, const char* name) {
    Transcript::Event("allowCodec kind=" + std::to_string(kind) + " " + name +
                      (context == &Host() ? "" : " (other context)"));
    return Host().refusedCodecs.count(name) == 0 ? 1 : 0;
}

void CallInformation(voipxlate_callinformation* info) {
    Transcript::Event("callInformation state=" + std::to_string(info->state));
}

int OnHold(void* context, int flag) {
    Transcript::Event("hold " + std::to_string(flag) +
                      " result=" + std::to_string(Host().holdResult) +
                      (context == &Host() ? "" : " (other context)"));
    return Host().holdResult;
}

template <typename Fn> voipxlate_function Slot(Fn fn) {
    return reinterpret_cast<voipxlate_function>(fn);
}

} // namespace

HostState& Host() {
    static HostState state;
    return state;
}

void SipHostTest::SetUp() {
    RegistryTest::SetUp();
    Host() = HostState();
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, Slot(&OpenRtp));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL, Slot(&Close));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, Slot(&Allow));
    voipxlate_setfunction(VOIPXLATE_CALL_INFORMATION, Slot(&CallInformation));
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, Slot(&OnHold));
    voipxlate_setfunction(VOIPXLATE_OPEN_IM_CHANNEL, Slot(&OpenIm));
    log_ = std::make_unique<Transcript>(5);
}

void SipHostTest::TearDown() {
    for (SIPConnection* connection : connections_)
        sipxlate_destroy(connection);
    log_.reset();
    RegistryTest::TearDown();
}

SIPConnection* SipHostTest::Connect(void* context) {
    const sockaddr_type a = Addr("10.0.0.5:5060");
    const sockaddr_type b = Addr("192.0.2.10:5060");
    const sockaddr_type c = Addr("198.51.100.7:5060");
    const sockaddr_type d = Addr("10.0.0.1:5060");
    SIPConnection* connection = sipxlate_create(context, &a, &b, &c, &d);
    connections_.push_back(connection);
    return connection;
}

int SipHostTest::Translate(SIPConnection* connection, const std::string& message, int option,
                           unsigned capacity) {
    // An exactly sized copy of the datagram, so that AddressSanitizer sees any read beyond it.
    const std::vector<unsigned char> in(message.begin(), message.end());
    std::vector<unsigned char> out(capacity, 0xAA);
    unsigned length = capacity;
    const int result = sipxlate_udp_translate(
        connection, 1, in.data(), static_cast<unsigned>(in.size()), out.data(), &length, option);
    out_.clear();
    if (result > 0) {
        EXPECT_LE(length, capacity);
        EXPECT_EQ(out[length], 0) << "rewritten message is NUL-terminated";
        out_.assign(reinterpret_cast<const char*>(out.data()), length);
    }
    return result;
}

void SipHostTest::Forget(const std::string& callId) {
    // Leftovers are removed without the host hearing of it: their channel closes belong to
    // whichever run opened them.
    VoIPTranslator& registry = VoIPTranslator::Current();
    const voipxlate_function close = registry.Function(VOIPXLATE_CLOSE_RTP_CHANNEL);
    registry.SetFunction(VOIPXLATE_CLOSE_RTP_CHANNEL, nullptr);
    struct Restore {
        VoIPTranslator& registry;
        voipxlate_function close;
        ~Restore() { registry.SetFunction(VOIPXLATE_CLOSE_RTP_CHANNEL, close); }
    } restore{registry, close};
    SIPTranslator& translator = SIPTranslator::Instance();
    for (;;) {
        const auto& dialogs = translator.Dialogs();
        auto it = std::find_if(dialogs.begin(), dialogs.end(), [&](const auto& entry) {
            return entry.first.compare(0, callId.size(), callId) == 0;
        });
        if (it == dialogs.end())
            return;
        translator.Destroy(it->second);
    }
}

SIPTranslator::DialogInfo* SipHostTest::Dialog(const std::string& key) {
    const auto& dialogs = SIPTranslator::Instance().Dialogs();
    const auto it = dialogs.find(key);
    return it == dialogs.end() ? nullptr : it->second;
}

std::string LoadSip(const std::string& relative) {
    return ReadText(DataFile("sip/" + relative));
}

std::string HeaderValue(const std::string& message, const std::string& name) {
    std::istringstream lines(message);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            break;
        const std::string::size_type colon = line.find(':');
        if (colon == std::string::npos || line.compare(0, colon, name) != 0)
            continue;
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(' '));
        return value;
    }
    return std::string();
}

std::string BodyOf(const std::string& message) {
    const std::string::size_type pos = message.find("\r\n\r\n");
    return pos == std::string::npos ? std::string() : message.substr(pos + 4);
}

std::string SipDatagram(std::vector<std::string> lines) {
    while (!lines.empty() && lines.back().empty())
        lines.pop_back();
    std::string head, body;
    bool inBody = false;
    for (const std::string& line : lines) {
        if (!inBody && line.empty())
            inBody = true;
        else
            (inBody ? body : head) += line + "\r\n";
    }
    for (const std::string name : {"\nContent-Length: *", "\nl: *"}) {
        const std::string::size_type star = head.find(name);
        if (star != std::string::npos)
            head.replace(star + name.size() - 1, 1, std::to_string(body.size()));
    }
    return head + "\r\n" + body;
}
