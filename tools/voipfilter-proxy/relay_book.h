// Bookkeeping of the relays the proxy runs for the media the calls negotiate: which call and
// media session each belongs to, the ports it holds on each side, where it sends, and the
// handles the library holds for it. The sockets themselves belong to a RelayIo.
//
// One relay serves one media session of a call in both directions. It has a leg on each side of
// the firewall; each endpoint sends to the leg on its own side, and the relay sends from the
// other leg, so that both endpoints see one address for the far end (symmetric RTP keeps
// working). The library opens the session one direction at a time: "forward" carries the
// originator's addresses (packets from the destination go there, and the destination is told the
// leg on its own side), "reverse" the destination's. The relay lives while either direction is
// open.
#ifndef VOIPFILTER_PROXY_RELAY_BOOK_H
#define VOIPFILTER_PROXY_RELAY_BOOK_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "config.h"
#include "port_pool.h"

namespace proxy {

enum class RelayKind {
    Media,  // RTP and RTCP over UDP: a port pair on each side
    Stream, // a message session (MSRP) over TCP: one port on each side
    T120,   // a T.120 separate stack over TCP: one listening port, towards one address
};

enum Direction : int { Reverse = 0, Forward = 1 };

struct Relay {
    int32_t id = 0;
    uint64_t call = 0;
    const void* session = nullptr; // the library's session record; null for T.120
    RelayKind kind = RelayKind::Media;
    Side originSide = Inside;      // the side of the call's originator
    uint16_t port[2] = {0, 0};     // the proxy's port on each side (indexed by Side), 0 = no leg
    bool open[2] = {false, false}; // indexed by Direction
    Endpoint rtp[2];               // where each direction sends (indexed by Direction)
    Endpoint rtcp[2];
    uint64_t lastActivity = 0;
    uint64_t packets = 0;
    void* io = nullptr; // the I/O layer's sockets

    // The side an endpoint of a direction lives on: forward addresses are the originator's.
    Side sideOf(Direction direction) const {
        return direction == Forward ? originSide : otherSide(originSide);
    }
    // The leg an endpoint of the other direction is told to send to.
    Side legFor(Direction direction) const { return otherSide(sideOf(direction)); }
};

class RelayIo {
public:
    virtual ~RelayIo() = default;
    // Opens the sockets of a new relay (its ports are set); false fails the open.
    virtual bool start(Relay& relay) = 0;
    virtual void stop(Relay& relay) = 0;
};

class RelayBook {
public:
    RelayBook(PortPool& ports, RelayIo& io) : ports_(ports), io_(io) {}
    ~RelayBook();
    RelayBook(const RelayBook&) = delete;
    RelayBook& operator=(const RelayBook&) = delete;

    // Opens one direction of a media session, making the session's relay on first use. rtp and
    // rtcp are the addresses that direction's endpoint announced. On success handle receives the
    // library's handle (never 0) and the relay is returned; null when no ports are left or the
    // sockets could not be opened.
    Relay* open(uint64_t call, const void* session, RelayKind kind, Side originSide,
                Direction direction, const Endpoint& rtp, const Endpoint& rtcp, uint64_t now,
                int32_t& handle);
    // A T.120 relay: listens on listenSide and connects to target.
    Relay* openT120(uint64_t call, Side listenSide, const Endpoint& target, uint64_t now);

    // Closes the direction a handle stands for, freeing the relay when no direction is left
    // open. Unknown handles (a relay that timed out, or one freed with its call) are ignored.
    bool close(int32_t handle);
    void releaseCall(uint64_t call);
    void releaseAll();
    // Frees every relay that saw neither a packet nor signalling of its call (lastSignalling
    // gives that time) for timeout seconds; returns how many.
    size_t expire(uint64_t now, uint64_t timeout,
                  const std::function<uint64_t(uint64_t call)>& lastSignalling);

    Relay* find(int32_t id);
    size_t size() const { return relays_.size(); }
    size_t countForCall(uint64_t call) const { return byCall_.count(call); }
    uint64_t opened() const { return opened_; }
    uint64_t expired() const { return expired_; }

    static int32_t handleOf(int32_t id, Direction direction) { return id * 2 + direction; }

private:
    Relay* make(uint64_t call, const void* session, RelayKind kind, Side originSide);
    void free(int32_t id);
    int32_t nextId();

    PortPool& ports_;
    RelayIo& io_;
    std::map<int32_t, std::unique_ptr<Relay>> relays_;
    std::map<std::pair<uint64_t, const void*>, int32_t> bySession_;
    std::multimap<uint64_t, int32_t> byCall_;
    int32_t lastId_ = 0;
    uint64_t opened_ = 0;
    uint64_t expired_ = 0;
};

} // namespace proxy

#endif
