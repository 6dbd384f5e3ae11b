#include "relay_book.h"

namespace proxy {

namespace {
// Handles are id * 2 + direction and must stay positive 32-bit numbers.
constexpr int32_t kMaxId = 0x3fffffff;
} // namespace

RelayBook::~RelayBook() {
    releaseAll();
}

int32_t RelayBook::nextId() {
    do {
        lastId_ = lastId_ >= kMaxId ? 1 : lastId_ + 1;
    } while (relays_.count(lastId_) != 0);
    return lastId_;
}

Relay* RelayBook::make(uint64_t call, const void* session, RelayKind kind, Side originSide) {
    auto relay = std::make_unique<Relay>();
    relay->call = call;
    relay->session = session;
    relay->kind = kind;
    relay->originSide = originSide;
    bool ok = true;
    for (Side side : {Inside, Outside}) {
        if (kind == RelayKind::T120 && side != originSide) {
            continue; // T.120 listens on one side only; originSide says which
        }
        std::optional<uint16_t> port =
            kind == RelayKind::Media ? ports_.allocatePair() : ports_.allocateOne();
        if (!port) {
            ok = false;
            break;
        }
        relay->port[side] = *port;
    }
    if (ok) {
        relay->id = nextId();
        ok = io_.start(*relay);
    }
    if (!ok) {
        for (uint16_t port : relay->port) {
            if (port != 0) {
                kind == RelayKind::Media ? ports_.releasePair(port) : ports_.release(port);
            }
        }
        return nullptr;
    }
    Relay* result = relay.get();
    relays_.emplace(result->id, std::move(relay));
    byCall_.emplace(call, result->id);
    if (session != nullptr) {
        bySession_[{call, session}] = result->id;
    }
    ++opened_;
    return result;
}

Relay* RelayBook::open(uint64_t call, const void* session, RelayKind kind, Side originSide,
                       Direction direction, const Endpoint& rtp, const Endpoint& rtcp, uint64_t now,
                       int32_t& handle) {
    Relay* relay = nullptr;
    auto known = bySession_.find({call, session});
    if (known != bySession_.end()) {
        relay = find(known->second);
    }
    if (relay == nullptr) {
        relay = make(call, session, kind, originSide);
        if (relay == nullptr) {
            return nullptr;
        }
    }
    relay->open[direction] = true;
    relay->rtp[direction] = rtp;
    relay->rtcp[direction] = rtcp;
    relay->lastActivity = now;
    handle = handleOf(relay->id, direction);
    return relay;
}

Relay* RelayBook::openT120(uint64_t call, Side listenSide, const Endpoint& target, uint64_t now) {
    Relay* relay = make(call, nullptr, RelayKind::T120, listenSide);
    if (relay != nullptr) {
        // Whoever connects to the listening leg is sent to target.
        relay->open[Forward] = true;
        relay->rtp[Forward] = target;
        relay->lastActivity = now;
    }
    return relay;
}

bool RelayBook::close(int32_t handle) {
    if (handle <= 0) {
        return false;
    }
    Relay* relay = find(handle / 2);
    const auto direction = static_cast<Direction>(handle % 2);
    if (relay == nullptr || relay->kind == RelayKind::T120 || !relay->open[direction]) {
        return false;
    }
    relay->open[direction] = false;
    if (!relay->open[Forward] && !relay->open[Reverse]) {
        free(relay->id);
    }
    return true;
}

void RelayBook::free(int32_t id) {
    auto it = relays_.find(id);
    if (it == relays_.end()) {
        return;
    }
    Relay& relay = *it->second;
    io_.stop(relay);
    for (uint16_t port : relay.port) {
        if (port != 0) {
            relay.kind == RelayKind::Media ? ports_.releasePair(port) : ports_.release(port);
        }
    }
    if (relay.session != nullptr) {
        bySession_.erase({relay.call, relay.session});
    }
    auto range = byCall_.equal_range(relay.call);
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (entry->second == id) {
            byCall_.erase(entry);
            break;
        }
    }
    relays_.erase(it);
}

void RelayBook::releaseCall(uint64_t call) {
    std::vector<int32_t> ids;
    auto range = byCall_.equal_range(call);
    for (auto entry = range.first; entry != range.second; ++entry) {
        ids.push_back(entry->second);
    }
    for (int32_t id : ids) {
        free(id);
    }
}

void RelayBook::releaseAll() {
    while (!relays_.empty()) {
        free(relays_.begin()->first);
    }
}

size_t RelayBook::expire(uint64_t now, uint64_t timeout,
                         const std::function<uint64_t(uint64_t call)>& lastSignalling) {
    std::vector<int32_t> idle;
    for (const auto& [id, relay] : relays_) {
        uint64_t last = std::max(relay->lastActivity, lastSignalling(relay->call));
        if (now >= last + timeout) {
            idle.push_back(id);
        }
    }
    for (int32_t id : idle) {
        free(id);
    }
    expired_ += idle.size();
    return idle.size();
}

Relay* RelayBook::find(int32_t id) {
    auto it = relays_.find(id);
    return it == relays_.end() ? nullptr : it->second.get();
}

} // namespace proxy
