// Soak test: a million complete SIP dialogs and a hundred thousand H.323 calls through the C API
// with a counting host, then dialogs that never end, reporting resident memory as it goes.
// Completed calls must leave nothing behind; an INVITE that is never answered leaves its dialog
// in the table by design (the library has no timers), and the last phase measures what that
// costs per dialog.
// Usage: voipfilter_soak [SIP_DIALOGS [H323_CALLS [ABANDONED_DIALOGS]]]
#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct Counts {
    long opened = 0;
    long closed = 0;
    long holds = 0;
    long h245Relays = 0;
} g_counts;

int OpenChannel(void*, int direction, voipxlate_mediasessioninformation* session, int32_t* handle) {
    sockaddr_type& rtp = direction ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcp =
        direction ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    rtp.addr[0] = rtcp.addr[0] = 203;
    *handle = int32_t(++g_counts.opened);
    return 0;
}
int CloseChannel(void*, int32_t, int) {
    ++g_counts.closed;
    return 0;
}
int AllowCodec(void*, int, const char*) {
    return 1;
}
int Hold(void*, int) {
    ++g_counts.holds;
    return 0;
}
int OpenH245(void*, int, const sockaddr_type*, sockaddr_type* replacement) {
    replacement->addr[0] = 203;
    ++g_counts.h245Relays;
    return 0;
}

std::string ReadText(const std::string& relative) {
    std::ifstream in(std::string(VOIPFILTER_TEST_DATA_DIR) + "/" + relative, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "missing %s\n", relative.c_str());
        std::exit(2);
    }
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

long ResidentKiB() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * 4; // 4 KiB pages
}

sockaddr_type Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port) {
    sockaddr_type s;
    std::memset(&s, 0, sizeof s);
    s.family = VOIPXLATE_FAMILY_IPV4;
    s.addr[0] = a;
    s.addr[1] = b;
    s.addr[2] = c;
    s.addr[3] = d;
    s.port = htons(port);
    return s;
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (std::string::size_type at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

// A real SIP call (SIPp calling FreeSWITCH): INVITE, 100, 200, ACK, BYE, 200, with the Call-ID
// made unique per dialog.
struct SipCall {
    std::vector<std::string> messages;
    std::vector<int> fromCaller = {1, 0, 0, 1, 0, 1};
    SipCall() {
        for (int i = 1; i <= 6; ++i)
            messages.push_back(ReadText("sip/dvi4/00" + std::to_string(i) + ".sip"));
    }
};

int RunSip(SIPConnection* connection, const SipCall& call, const std::string& callId, size_t count,
           std::vector<unsigned char>& out) {
    int failures = 0;
    for (size_t i = 0; i < count; ++i) {
        std::string message = call.messages[i];
        Replace(message, "1-2187@10.0.2.20", callId);
        unsigned length = unsigned(out.size());
        if (sipxlate_udp_translate(connection, call.fromCaller[i],
                                   reinterpret_cast<const unsigned char*>(message.data()),
                                   unsigned(message.size()), out.data(), &length, 1) < 0)
            ++failures;
    }
    return failures;
}

// A real H.323 call (Callgen323 to a 310i): SETUP, CALL PROCEEDING, ALERTING, CONNECT, then the
// separate H.245 channel's capability exchange and logical channels.
struct H323Pdu {
    bool fromOriginator;
    bool h245;
    Bytes bytes;
};

std::vector<H323Pdu> H323Call() {
    std::istringstream lines(ReadText("h323/rtp-example-1.txt"));
    std::vector<H323Pdu> pdus;
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string frame, side, kind, hex;
        if (!(fields >> frame >> side >> kind >> hex))
            continue;
        H323Pdu pdu{side == "O", kind == "h245", {}};
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            pdu.bytes.push_back(
                static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
        pdus.push_back(pdu);
    }
    return pdus;
}

} // namespace

int main(int argc, char** argv) {
    const long sipDialogs = argc > 1 ? std::atol(argv[1]) : 1000000;
    const long h323Calls = argc > 2 ? std::atol(argv[2]) : 100000;
    const long abandoned = argc > 3 ? std::atol(argv[3]) : 100000;

    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL,
                          reinterpret_cast<voipxlate_function>(&OpenChannel));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL,
                          reinterpret_cast<voipxlate_function>(&CloseChannel));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, reinterpret_cast<voipxlate_function>(&AllowCodec));
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, reinterpret_cast<voipxlate_function>(&Hold));
    voipxlate_setfunction(VOIPXLATE_OPEN_H245_CHANNEL,
                          reinterpret_cast<voipxlate_function>(&OpenH245));
    voipxlate_setfunction(VOIPXLATE_LOG, nullptr);

    std::vector<unsigned char> out(65536);
    sockaddr_type caller = Ipv4(10, 0, 2, 20, 5060), callee = Ipv4(10, 0, 2, 15, 5060);
    sockaddr_type callerPublic = Ipv4(203, 0, 113, 2, 5060);
    int status = 0;

    std::printf("phase 1: %ld complete SIP dialogs (INVITE, 100, 200, ACK, BYE, 200)\n",
                sipDialogs);
    std::printf("%12s %14s %10s %10s\n", "dialogs", "resident KiB", "opened", "closed");
    const SipCall sipCall;
    SIPConnection* connection = sipxlate_create(nullptr, &caller, &callee, &callerPublic, &callee);
    const long sipStep = sipDialogs / 10 > 0 ? sipDialogs / 10 : 1;
    for (long n = 1; n <= sipDialogs; ++n) {
        if (RunSip(connection, sipCall, "soak-" + std::to_string(n) + "@10.0.2.20", 6, out) != 0)
            status = 1;
        if (n % sipStep == 0)
            std::printf("%12ld %14ld %10ld %10ld\n", n, ResidentKiB(), g_counts.opened,
                        g_counts.closed);
    }
    if (g_counts.opened != g_counts.closed) {
        std::printf("channels opened and closed differ\n");
        status = 1;
    }

    std::printf("\nphase 2: %ld H.323 calls (SETUP ... CONNECT, H.245 TCS, MSD, OLC, OLCAck)\n",
                h323Calls);
    std::printf("%12s %14s %10s %10s\n", "calls", "resident KiB", "opened", "relays");
    const std::vector<H323Pdu> pdus = H323Call();
    sockaddr_type h323Caller = Ipv4(10, 1, 3, 143, 32803), h323Callee = Ipv4(10, 1, 6, 18, 1720);
    sockaddr_type h323CallerPublic = Ipv4(203, 0, 113, 1, 32803);
    const long h323Step = h323Calls / 10 > 0 ? h323Calls / 10 : 1;
    for (long n = 1; n <= h323Calls; ++n) {
        H225TranslatorContext* call = h323xlate_h225_create(nullptr, &h323Caller, &h323Callee,
                                                            &h323CallerPublic, &h323Callee);
        for (const H323Pdu& pdu : pdus) {
            unsigned length = unsigned(out.size());
            if (pdu.h245) {
                if (h323xlate_h225_translateh245pdu(call, pdu.fromOriginator, pdu.bytes.data(),
                                                    unsigned(pdu.bytes.size()), out.data(),
                                                    &length) < 0)
                    status = 1;
                continue;
            }
            int tag;
            if (h323xlate_h225_decodeh225pdu(call, pdu.bytes.data(), unsigned(pdu.bytes.size())) !=
                    1 ||
                h323xlate_h225_translateh225pdu(call, pdu.fromOriginator, &tag) < 0 ||
                h323xlate_h225_encodeh225pdu(call, out.data(), &length) < 0)
                status = 1;
        }
        h323xlate_h225_destroy(call);
        if (n % h323Step == 0)
            std::printf("%12ld %14ld %10ld %10ld\n", n, ResidentKiB(), g_counts.opened,
                        g_counts.h245Relays);
    }

    std::printf("\nphase 3: %ld INVITEs never answered (their dialogs stay, by design)\n",
                abandoned);
    std::printf("%12s %14s\n", "dialogs", "resident KiB");
    const long before = ResidentKiB();
    const long abandonedStep = abandoned / 5 > 0 ? abandoned / 5 : 1;
    for (long n = 1; n <= abandoned; ++n) {
        RunSip(connection, sipCall, "abandoned-" + std::to_string(n) + "@10.0.2.20", 1, out);
        if (n % abandonedStep == 0)
            std::printf("%12ld %14ld\n", n, ResidentKiB());
    }
    if (abandoned > 0)
        std::printf("kept per abandoned dialog: about %ld bytes\n",
                    (ResidentKiB() - before) * 1024 / abandoned);
    sipxlate_destroy(connection);
    std::printf("\n%s\n",
                status == 0 ? "every message translated without error" : "some messages failed");
    return status;
}
