// The simulated firewall behind the library's callbacks: it opens media pinholes on public ports,
// relays H.245, maps registered addresses, vetoes codecs, notes holds and collects log lines, and
// writes everything it did into the report of the call whose message is being translated.
#ifndef VOIPFILTER_REPLAY_HOST_H
#define VOIPFILTER_REPLAY_HOST_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <voipfilter/voipfilter.h>

#include "nat.h"
#include "report.h"

namespace replay {

struct HostOptions {
    NatTable nat;
    PortRange ports{20000, 29999};
    std::vector<std::string> deniedCodecs;
    int logLevel = 0;
};

// The host context handed to the library with every call or association: the two endpoints'
// addresses as the firewall sees them.
struct CallContext {
    uint32_t originatorIp = 0;
    uint32_t destinationIp = 0;
};

// A separate H.245 connection that a call announced (openH245ChannelFunction).
struct H245Announcement {
    const CallContext* context = nullptr;
    bool byOriginator = true; // the address belongs to the call's originator
    uint32_t ip = 0;
    uint16_t port = 0;
};

sockaddr_type makeAddress(uint32_t ip, uint16_t port);
uint32_t addressIp(const sockaddr_type& address);
uint16_t addressPort(const sockaddr_type& address);
std::string addressText(const sockaddr_type& address);

class Host {
public:
    // Registers the callbacks and the log level; only one host may be installed at a time.
    Host(const HostOptions& options, std::vector<CallRecord>& calls);
    ~Host(); // empties every callback slot again
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    const NatTable& nat() const { return options_.nat; }

    // Callbacks from now on belong to the message of this frame in calls[call].
    void begin(size_t call, uint64_t frame);
    // Ends that; returns the log lines and the notes collected meanwhile.
    std::vector<LogLine> end(std::string& notes);

    std::vector<H245Announcement> takeH245Announcements();

private:
    CallRecord* current();
    uint32_t peerOf(const CallContext* context, uint32_t ip, bool forward) const;
    // Public address for ip towards peer, or ip itself when it needs no translation.
    bool translates(uint32_t ip, uint32_t peer) const;

    static Host* active_;
    static void logLine(void* ctx, const char* file, int line, int level, const char* text);
    static int openChannel(void* ctx, int direction, voipxlate_mediasessioninformation* session,
                           int32_t* handle);
    static int closeChannel(void* ctx, int32_t handle, int direction);
    static int allowCodec(void* ctx, int kind, const char* codec);
    static int openH245(void* ctx, int direction, const sockaddr_type* announced,
                        sockaddr_type* replacement);
    static void callInformation(voipxlate_callinformation* call);
    static void translateAddr(void* ctx, int direction, const sockaddr_type* found,
                              sockaddr_type* replacement, void** mapping);
    static void removeMapping(void* ctx, void* mapping);
    static int translateMediaAddr(void* ctx, int direction, const sockaddr_type* found,
                                  sockaddr_type* replacement, void* scratch);
    static int callOnHold(void* ctx, int flag);

    struct Channel {
        size_t call = 0;
        size_t media = 0;
        uint16_t publicPort = 0; // 0 when no public port was taken
    };

    HostOptions options_;
    std::vector<CallRecord>& calls_;
    PortPool pool_;
    bool attributing_ = false;
    size_t call_ = 0;
    uint64_t frame_ = 0;
    std::vector<LogLine> log_;
    std::string notes_;
    std::vector<H245Announcement> announcements_;
    std::map<int32_t, Channel> channels_;
    int32_t nextHandle_ = 0;
};

} // namespace replay

#endif
