// The host side of the fuzz targets: callbacks whose answers are chosen by the input's first
// bytes, so that the fuzzer explores refusals, failures and log composition as well as the
// common path. Each callback also checks the arguments the library hands it.
#ifndef VOIPFILTER_FUZZ_FUZZ_HOST_H
#define VOIPFILTER_FUZZ_FUZZ_HOST_H

#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace fuzzhost {

// Bits of the policy byte.
enum : uint8_t {
    kOpenChannels = 1 << 0,
    kOpenFails = 1 << 1,
    kCodecVeto = 1 << 2,
    kVetoEverything = 1 << 3,
    kHold = 1 << 4,
    kHoldFails = 1 << 5,
    kRewriteNotify = 1 << 6,
    kCloseChannels = 1 << 7,
};

// 10.0.0.<last>:<port>, the addresses every fuzzed call or association is created with.
inline sockaddr_type Address(uint8_t last, uint16_t port) {
    sockaddr_type a;
    std::memset(&a, 0, sizeof a);
    a.family = VOIPXLATE_FAMILY_IPV4;
    a.addr[0] = 10;
    a.addr[3] = last;
    a.port = htons(port);
    return a;
}

inline uint8_t& Policy() {
    static uint8_t policy = 0;
    return policy;
}

inline int32_t& NextHandle() {
    static int32_t handle = 0;
    return handle;
}

inline void Check(bool condition) {
    if (!condition)
        __builtin_trap();
}

// The refusals the hardened library is known to make on a peer's message. Any other reason is an
// assertion that a message reached and nobody knew of: a finding.
inline bool KnownRefusal(const char* reason) {
    static const char* const known[] = {
        "len < 0x2000\n",
        "currentSelection() ==iPAddress::id_\n",
        "currentSelection() ==h2250LogicalChannelParameters::id_\n",
        "incomplete PER encoding\n",
        "out of memory\n",
    };
    for (const char* text : known)
        if (std::strcmp(reason, text) == 0)
            return true;
    return false;
}

inline void Log(void*, const char* file, int, int level, const char* text) {
    Check(file != nullptr && text != nullptr && level >= 1 && level <= 5);
    // Touch every byte of the text so that a bad pointer or a missing terminator shows up.
    volatile size_t n = std::strlen(text);
    (void)n;
    // A refusal line is a family's tag followed by the refusal (a message's own text, logged at
    // level 5, may hold the same words anywhere).
    static const char refused[] = "Message refused: ";
    for (const char* tag : {"H.225\t", "H.245\t", "H225 RAS ", "SIP  "}) {
        const std::size_t n = std::strlen(tag);
        if (std::strncmp(text, tag, n) == 0 &&
            std::strncmp(text + n, refused, sizeof refused - 1) == 0)
            Check(KnownRefusal(text + n + sizeof refused - 1));
    }
}

inline int Open(void*, int direction, voipxlate_mediasessioninformation* session, int32_t* handle) {
    Check(session != nullptr && handle != nullptr && (direction == 0 || direction == 1));
    if (Policy() & kOpenFails)
        return -1;
    sockaddr_type& rtp = direction ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcp =
        direction ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    rtp.family = rtcp.family = VOIPXLATE_FAMILY_IPV4;
    const uint8_t pub[4] = {198, 51, 100, 7};
    std::memcpy(rtp.addr, pub, 4);
    std::memcpy(rtcp.addr, pub, 4);
    *handle = ++NextHandle();
    return 0;
}

inline int Close(void*, int32_t, int direction) {
    Check(direction == 0 || direction == 1);
    return 0;
}

inline int AllowCodec(void*, int, const char* codec) {
    Check(codec != nullptr);
    if (Policy() & kVetoEverything)
        return 0;
    // Keep codecs whose name has an even length: a stable, input-independent half.
    return (std::strlen(codec) & 1) == 0;
}

inline int Hold(void*, int flag) {
    Check(flag == 1);
    return (Policy() & kHoldFails) ? -1 : 0;
}

inline int RewriteNotify(bool, bool, SIPMIMEType* headers) {
    Check(headers != nullptr);
    return 1;
}

inline void CallInformation(voipxlate_callinformation* info) {
    Check(info != nullptr);
}

template <typename Fn> voipxlate_function Slot(bool on, Fn fn) {
    return on ? reinterpret_cast<voipxlate_function>(fn) : nullptr;
}

// Reads the policy byte and the log level byte and configures the registry.
inline void Configure(uint8_t policy, uint8_t logLevel) {
    Policy() = policy;
    voipxlate_setfunction(VOIPXLATE_LOG, reinterpret_cast<voipxlate_function>(&Log));
    voipxlate_setloglevel(logLevel % 6);
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, Slot(policy & kOpenChannels, &Open));
    voipxlate_setfunction(VOIPXLATE_OPEN_IM_CHANNEL, Slot(policy & kOpenChannels, &Open));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL, Slot(policy & kCloseChannels, &Close));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, Slot(policy & kCodecVeto, &AllowCodec));
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, Slot(policy & kHold, &Hold));
    voipxlate_setfunction(VOIPXLATE_REWRITE_NOTIFY, Slot(policy & kRewriteNotify, &RewriteNotify));
    voipxlate_setfunction(VOIPXLATE_CALL_INFORMATION, Slot(true, &CallInformation));
}

// Splits the rest of the input into records: [flags][length, 2 octets big-endian][bytes].
// A length running past the end takes what is left.
struct Record {
    uint8_t flags;
    const uint8_t* data;
    size_t size;
};

class RecordReader {
public:
    RecordReader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    bool Next(Record& record) {
        if (end_ - p_ < 3)
            return false;
        record.flags = p_[0];
        size_t length = (size_t(p_[1]) << 8) | p_[2];
        p_ += 3;
        if (length > size_t(end_ - p_))
            length = size_t(end_ - p_);
        record.data = p_;
        record.size = length;
        p_ += length;
        return true;
    }

private:
    const uint8_t* p_;
    const uint8_t* end_;
};

} // namespace fuzzhost

#endif
