// The proxy: the host of the library. It owns every socket, hands each signalling message to the
// library with the side it came from, sends on what the library returns, and runs the relays
// the library asks for through its callbacks.
#ifndef VOIPFILTER_PROXY_PROXY_H
#define VOIPFILTER_PROXY_PROXY_H

#include <uv.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <voipfilter/voipfilter.h>

#include "config.h"
#include "net.h"
#include "port_pool.h"
#include "relay_book.h"
#include "tpkt.h"

namespace proxy {

struct Counters {
    uint64_t sipCalls = 0;
    uint64_t sipTransactions = 0; // SIP exchanges outside INVITE dialogs (REGISTER, OPTIONS...)
    uint64_t h323Calls = 0;
    uint64_t rasAssociations = 0;
    uint64_t sipMessages = 0;
    uint64_t h225Messages = 0;
    uint64_t h245Messages = 0;
    uint64_t rasMessages = 0;
    uint64_t translated = 0; // the library rewrote the message
    uint64_t forwarded = 0;  // the library let it pass unchanged
    uint64_t refused = 0;    // the library refused it (or could not read it)
    uint64_t unroutable = 0; // the proxy had nowhere to send it
    uint64_t callsShutDown = 0;
    uint64_t h245Relays = 0;
    uint64_t mappings = 0;
    uint64_t mediaPackets = 0;
};

class Proxy final : private RelayIo {
public:
    Proxy(const Config& config, uv_loop_t* loop);
    ~Proxy() override;
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    // Registers the library callbacks and opens the listening sockets; false (logged) when one
    // cannot be opened.
    bool start();
    // Releases every call and closes every socket; the loop then runs out.
    void stop();
    std::string countersText() const;
    size_t openRelays() const { return relays_.size(); }
    size_t activeCalls() const;

private:
    struct Call;
    struct SipCall;
    struct H323Call;
    struct H245Relay;
    struct RasAssociation;
    struct Mapping;

    uint64_t now() const;
    Endpoint own(Side side, uint16_t port) const;
    void log(int level, const std::string& text) const;
    Call* findCall(void* context);
    uint64_t lastSignalling(uint64_t call);
    void housekeeping();

    // SIP over UDP
    void onSip(Side side, const Endpoint& from, const uint8_t* data, size_t length);
    void releaseSip(SipCall& call);
    // H.323 call signalling and H.245
    void acceptH323(Side side, std::unique_ptr<TcpConnection> connection, const Endpoint* target);
    void onH225(H323Call& call, bool fromOriginator, const uint8_t* data, size_t length);
    void sendH225(H323Call& call, bool toDestination, const uint8_t* data, size_t length);
    void endH323(uint64_t id, const char* why);
    void acceptH245(H245Relay& relay, std::unique_ptr<TcpConnection> connection);
    void onH245(H245Relay& relay, bool fromAnnouncer, const uint8_t* data, size_t length);
    void endH245(H245Relay& relay);
    // RAS
    void onRas(Side side, const Endpoint& from, const uint8_t* data, size_t length);
    void onRasReply(RasAssociation& association, const Endpoint& from, const uint8_t* data,
                    size_t length);
    void releaseRas(RasAssociation& association);

    // RelayIo
    bool start(Relay& relay) override;
    void stop(Relay& relay) override;
    void onMedia(int32_t relay, Side side, bool control, const uint8_t* data, size_t length);

    // Library callbacks (slots 0 to 15); the host context is the call's number.
    static Proxy* active_;
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

    Config config_;
    uv_loop_t* loop_;
    PortPool ports_;
    RelayBook relays_;
    Counters counters_;
    uint64_t nextCall_ = 0;
    bool stopping_ = false;
    uv_timer_t* timer_ = nullptr;

    std::unique_ptr<UdpSocket> sip_[2];
    std::unique_ptr<UdpSocket> ras_[2];
    std::unique_ptr<UdpSocket> rasDiscovery_[2];
    std::unique_ptr<TcpListener> h323_[2];

    std::map<uint64_t, Call*> calls_; // every call, association and transaction by number
    std::map<std::string, std::unique_ptr<SipCall>> sipCalls_; // by Call-ID
    std::map<uint64_t, std::unique_ptr<H323Call>> h323Calls_;
    std::map<std::pair<int, Endpoint>, std::unique_ptr<RasAssociation>> rasAssociations_;
    std::vector<uint8_t> scratch_; // output buffer of the translations
};

} // namespace proxy

#endif
