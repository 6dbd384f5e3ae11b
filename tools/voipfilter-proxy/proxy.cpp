#include "proxy.h"

#include <arpa/inet.h>
#include <strings.h>

#include <cstdio>
#include <sstream>

#include "sip_summary.h"

namespace proxy {

// The call objects. Every one has a number that stands for it as the library's host context, so
// a callback for a call that has just ended finds nothing instead of freed memory.
struct Proxy::Call {
    enum class Kind { Sip, H323, Ras };
    explicit Call(Kind k) : kind(k) {}
    virtual ~Call() = default;
    Kind kind;
    uint64_t id = 0;
    Side originSide = Inside;
    uint64_t lastSignalling = 0;
};

struct Proxy::SipCall : Call {
    SipCall() : Call(Kind::Sip) {}
    std::string callId;
    Endpoint originator;
    Endpoint destination;
    SIPConnection* sip = nullptr;
    bool invite = false;
    bool ending = false;
    uint64_t endingSince = 0;
};

// A separate H.245 connection: the endpoint that announced its address (the announcer) waits for
// the other endpoint to connect. The proxy listens on the other endpoint's side instead, and
// connects on to the announcer when that connection comes.
struct Proxy::H245Relay {
    explicit H245Relay(size_t maxFrame) : fromNear(maxFrame), fromFar(maxFrame) {}
    uint64_t call = 0;
    uint64_t number = 0; // position in the call's list, from 1
    Side announcerSide = Inside;
    bool announcerIsOriginator = true;
    Endpoint announced;
    uint16_t port = 0;
    std::unique_ptr<TcpListener> listener;
    std::unique_ptr<TcpConnection> near; // from the other endpoint
    std::unique_ptr<TcpConnection> far;  // to the announcer
    TpktReader fromNear;
    TpktReader fromFar;
    std::vector<uint8_t> pendingToFar;
    bool farUp = false;
    bool ended = false;
};

struct Proxy::H323Call : Call {
    explicit H323Call(size_t maxFrame)
        : Call(Kind::H323), fromCaller(maxFrame), fromCallee(maxFrame) {}
    std::unique_ptr<TcpConnection> caller; // accepted from the originator
    std::unique_ptr<TcpConnection> callee; // to the destination
    TpktReader fromCaller;
    TpktReader fromCallee;
    std::vector<uint8_t> pendingToCallee;
    bool calleeUp = false;
    H225TranslatorContext* h225 = nullptr;
    Endpoint destination;
    std::vector<std::unique_ptr<H245Relay>> h245;
};

// A call-signalling address that an endpoint registered through RAS: the proxy listens for calls
// to it on the gatekeeper's side.
struct Proxy::Mapping {
    Endpoint registered;
    uint16_t port = 0;
    std::unique_ptr<TcpListener> listener;
};

struct Proxy::RasAssociation : Call {
    RasAssociation() : Call(Kind::Ras) {}
    Endpoint endpoint;
    Endpoint gatekeeper;
    uint16_t port = 0; // of the socket towards the gatekeeper
    std::unique_ptr<UdpSocket> socket;
    RASTranslatorContext* ras = nullptr;
    std::map<uintptr_t, std::unique_ptr<Mapping>> mappings;
};

namespace {

// The sockets of one relay (Relay::io).
struct RelaySockets {
    std::unique_ptr<UdpSocket> rtp[2];
    std::unique_ptr<UdpSocket> rtcp[2];
    std::unique_ptr<TcpListener> listener[2];
    std::vector<std::unique_ptr<TcpSplice>> splices;
};

void* contextOf(uint64_t id) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(id));
}

// The well-known H.225.0 call signalling port, which endpoints announce as their own.
constexpr uint16_t kCallSignallingPort = 1720;
// A SIP call whose dialog has ended is kept this long for the last retransmissions.
constexpr uint64_t kSipLinger = 4;
// Exchanges outside INVITE dialogs (REGISTER, OPTIONS...) end after a transaction's lifetime.
constexpr uint64_t kTransactionTimeout = 32;

template <typename F> voipxlate_function slot(F* function) {
    return reinterpret_cast<voipxlate_function>(function);
}

} // namespace

Proxy* Proxy::active_ = nullptr;

Proxy::Proxy(const Config& config, uv_loop_t* loop)
    : config_(config), loop_(loop), ports_(config.portLow, config.portHigh), relays_(ports_, *this),
      scratch_(65536) {}

Proxy::~Proxy() {
    stop();
    if (active_ == this) {
        for (int index = 0; index < VOIPXLATE_SLOT_COUNT; ++index) {
            voipxlate_setfunction(index, nullptr);
        }
        active_ = nullptr;
    }
}

uint64_t Proxy::now() const {
    return uv_now(loop_) / 1000;
}

Endpoint Proxy::own(Side side, uint16_t port) const {
    return Endpoint{config_.address[side], htons(port)};
}

void Proxy::log(int level, const std::string& text) const {
    if (level <= config_.logLevel) {
        std::fprintf(stderr, "voipfilter-proxy[%d]: %s\n", level, text.c_str());
    }
}

Proxy::Call* Proxy::findCall(void* context) {
    auto it = calls_.find(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(context)));
    return it == calls_.end() ? nullptr : it->second;
}

uint64_t Proxy::lastSignalling(uint64_t call) {
    auto it = calls_.find(call);
    return it == calls_.end() ? 0 : it->second->lastSignalling;
}

size_t Proxy::activeCalls() const {
    return calls_.size();
}

bool Proxy::start() {
    active_ = this;
    voipxlate_setfunction(VOIPXLATE_LOG, slot(&Proxy::logLine));
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, slot(&Proxy::openChannel));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL, slot(&Proxy::closeChannel));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, slot(&Proxy::allowCodec));
    voipxlate_setfunction(VOIPXLATE_OPEN_H245_CHANNEL, slot(&Proxy::openH245));
    voipxlate_setfunction(VOIPXLATE_CALL_INFORMATION, slot(&Proxy::callInformation));
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR, slot(&Proxy::translateAddr));
    voipxlate_setfunction(VOIPXLATE_REMOVE_MAPPING, slot(&Proxy::removeMapping));
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, slot(&Proxy::translateMediaAddr));
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, slot(&Proxy::callOnHold));
    voipxlate_setfunction(VOIPXLATE_OPEN_IM_CHANNEL, slot(&Proxy::openChannel));
    voipxlate_setloglevel(config_.logLevel);

    bool ok = true;
    auto check = [&](bool opened, const std::string& what, const char* error) {
        if (!opened) {
            log(0, "cannot open " + what + ": " + error);
            ok = false;
        }
    };
    for (Side side : {Inside, Outside}) {
        const std::string where = std::string(" on the ") + sideName(side) + " (";
        sip_[side] = std::make_unique<UdpSocket>(
            loop_, own(side, config_.sipPort),
            [this, side](const Endpoint& from, const uint8_t* data, size_t length) {
                onSip(side, from, data, length);
            });
        check(sip_[side]->ok(), "SIP" + where + endpointText(own(side, config_.sipPort)) + ")",
              sip_[side]->error());
        h323_[side] =
            std::make_unique<TcpListener>(loop_, own(side, config_.h323Port),
                                          [this, side](std::unique_ptr<TcpConnection> connection) {
                                              acceptH323(side, std::move(connection), nullptr);
                                          });
        check(h323_[side]->ok(), "H.323" + where + endpointText(own(side, config_.h323Port)) + ")",
              h323_[side]->error());
        auto rasReceive = [this, side](const Endpoint& from, const uint8_t* data, size_t length) {
            onRas(side, from, data, length);
        };
        ras_[side] = std::make_unique<UdpSocket>(loop_, own(side, config_.rasPort), rasReceive);
        check(ras_[side]->ok(), "RAS" + where + endpointText(own(side, config_.rasPort)) + ")",
              ras_[side]->error());
        rasDiscovery_[side] =
            std::make_unique<UdpSocket>(loop_, own(side, config_.rasDiscoveryPort), rasReceive);
        check(rasDiscovery_[side]->ok(),
              "RAS discovery" + where + endpointText(own(side, config_.rasDiscoveryPort)) + ")",
              rasDiscovery_[side]->error());
    }
    timer_ = new uv_timer_t;
    uv_timer_init(loop_, timer_);
    timer_->data = this;
    uv_timer_start(
        timer_, [](uv_timer_t* timer) { static_cast<Proxy*>(timer->data)->housekeeping(); }, 1000,
        1000);
    if (ok) {
        log(1, "serving inside " + endpointText(own(Inside, config_.sipPort)) + " and outside " +
                   endpointText(own(Outside, config_.sipPort)) + ", relay ports " +
                   std::to_string(config_.portLow) + "-" + std::to_string(config_.portHigh));
    }
    return ok;
}

void Proxy::stop() {
    if (stopping_) {
        return;
    }
    stopping_ = true;
    for (Side side : {Inside, Outside}) {
        sip_[side].reset();
        ras_[side].reset();
        rasDiscovery_[side].reset();
        h323_[side].reset();
    }
    while (!sipCalls_.empty()) {
        releaseSip(*sipCalls_.begin()->second);
    }
    while (!h323Calls_.empty()) {
        endH323(h323Calls_.begin()->first, "the proxy is stopping");
    }
    while (!rasAssociations_.empty()) {
        releaseRas(*rasAssociations_.begin()->second);
    }
    relays_.releaseAll();
    if (timer_ != nullptr) {
        uv_close(reinterpret_cast<uv_handle_t*>(timer_),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
        timer_ = nullptr;
    }
}

void Proxy::housekeeping() {
    const uint64_t t = now();
    size_t expired = relays_.expire(t, config_.mediaTimeout,
                                    [this](uint64_t call) { return lastSignalling(call); });
    if (expired > 0) {
        log(2, std::to_string(expired) + " idle relay(s) timed out");
    }
    std::vector<SipCall*> done;
    for (auto& [callId, call] : sipCalls_) {
        if (call->ending   ? t >= call->endingSince + kSipLinger
            : call->invite ? t >= call->lastSignalling + config_.callTimeout &&
                                 relays_.countForCall(call->id) == 0
                           : t >= call->lastSignalling + kTransactionTimeout) {
            done.push_back(call.get());
        }
    }
    for (SipCall* call : done) {
        if (!call->ending && call->invite) {
            log(2, "call " + std::to_string(call->id) + " timed out");
        }
        releaseSip(*call);
    }
    std::vector<RasAssociation*> idle;
    for (auto& [key, association] : rasAssociations_) {
        if (t >= association->lastSignalling + config_.registrationTimeout) {
            idle.push_back(association.get());
        }
    }
    for (RasAssociation* association : idle) {
        releaseRas(*association);
    }
}

std::string Proxy::countersText() const {
    const Counters& c = counters_;
    std::ostringstream text;
    text << "calls: sip " << c.sipCalls << ", h323 " << c.h323Calls << ", ras associations "
         << c.rasAssociations << ", sip transactions " << c.sipTransactions << ", active "
         << calls_.size() << "\n"
         << "messages: sip " << c.sipMessages << ", h225 " << c.h225Messages << ", h245 "
         << c.h245Messages << ", ras " << c.rasMessages << "\n"
         << "results: translated " << c.translated << ", forwarded " << c.forwarded << ", refused "
         << c.refused << ", unroutable " << c.unroutable << ", calls shut down " << c.callsShutDown
         << "\n"
         << "relays: opened " << relays_.opened() << ", open " << relays_.size() << ", timed out "
         << relays_.expired() << ", h245 " << c.h245Relays << ", ras mappings " << c.mappings
         << ", media packets " << c.mediaPackets << ", ports in use " << ports_.inUse() << "\n";
    return text.str();
}

// ---------------------------------------------------------------------------------------------
// SIP over UDP

void Proxy::onSip(Side side, const Endpoint& from, const uint8_t* data, size_t length) {
    ++counters_.sipMessages;
    const SipSummary summary = summarizeSip(reinterpret_cast<const char*>(data), length);
    if (!summary.valid) {
        ++counters_.refused;
        log(3, std::string("unreadable SIP datagram from ") + endpointText(from) + " dropped");
        return;
    }
    SipCall* call = nullptr;
    auto known = sipCalls_.find(summary.callId);
    if (known != sipCalls_.end()) {
        call = known->second.get();
    } else {
        const Endpoint destination = config_.sipPeer[otherSide(side)];
        if (summary.response || summary.method == "ACK" || summary.method == "CANCEL" ||
            destination.ip == 0) {
            ++counters_.unroutable;
            log(3, "SIP " + (summary.response ? std::to_string(summary.status) : summary.method) +
                       " from " + endpointText(from) + " has nowhere to go");
            return;
        }
        auto made = std::make_unique<SipCall>();
        made->id = ++nextCall_;
        made->originSide = side;
        made->callId = summary.callId;
        made->originator = from;
        made->destination = destination;
        sockaddr_type a = toLibraryAddress(from);
        sockaddr_type b = toLibraryAddress(destination);
        sockaddr_type c = toLibraryAddress(own(otherSide(side), config_.sipPort));
        sockaddr_type d = toLibraryAddress(own(side, config_.sipPort));
        made->sip = sipxlate_create(contextOf(made->id), &a, &b, &c, &d);
        call = made.get();
        calls_[call->id] = call;
        sipCalls_.emplace(summary.callId, std::move(made));
        ++counters_.sipTransactions;
    }
    if (!summary.response && summary.method == "INVITE" && !call->invite) {
        call->invite = true;
        --counters_.sipTransactions;
        ++counters_.sipCalls;
    }
    const bool fromOriginator = side == call->originSide;
    call->lastSignalling = now();
    auto outLength = static_cast<unsigned int>(scratch_.size() - 1);
    int result =
        sipxlate_udp_translate(call->sip, fromOriginator ? 1 : 0, data,
                               static_cast<unsigned int>(length), scratch_.data(), &outLength, 1);
    if (result < 0) {
        ++counters_.refused;
        log(2, "call " + std::to_string(call->id) + ": SIP " +
                   (summary.response ? std::to_string(summary.status) : summary.method) +
                   " refused");
        return;
    }
    const bool rewritten = result > 0;
    ++(rewritten ? counters_.translated : counters_.forwarded);
    sip_[otherSide(side)]->send(fromOriginator ? call->destination : call->originator,
                                rewritten ? scratch_.data() : data, rewritten ? outLength : length);
    // The dialog ends with the final answer to its BYE or to a failed INVITE; an exchange outside
    // a dialog with its final answer.
    if (summary.response && summary.status >= 200 &&
        ((summary.method == "BYE") || (summary.method == "INVITE" && summary.status >= 300) ||
         !call->invite) &&
        !call->ending) {
        call->ending = true;
        call->endingSince = now();
    }
}

void Proxy::releaseSip(SipCall& call) {
    if (call.invite) {
        // The library keeps a dialog until it sees the answer to a BYE. A call that ended
        // otherwise (a failed INVITE leaves no dialog, a timed-out or stopped call does) gets a
        // made-up answer that is never sent: the library closes the dialog's media channels
        // through closeRTPChannelFunction and forgets the dialog.
        const std::string end = dialogEndMessage(call.callId);
        auto outLength = static_cast<unsigned int>(scratch_.size() - 1);
        sipxlate_udp_translate(call.sip, 0, reinterpret_cast<const unsigned char*>(end.data()),
                               static_cast<unsigned int>(end.size()), scratch_.data(), &outLength,
                               1);
    }
    relays_.releaseCall(call.id);
    sipxlate_destroy(call.sip);
    calls_.erase(call.id);
    sipCalls_.erase(call.callId); // destroys call
}

// ---------------------------------------------------------------------------------------------
// H.323 call signalling (TPKT-framed Q.931 with H.225.0) and separate H.245

void Proxy::acceptH323(Side side, std::unique_ptr<TcpConnection> connection,
                       const Endpoint* target) {
    if (stopping_) {
        return;
    }
    const Side destinationSide = otherSide(side);
    const Endpoint destination = target != nullptr ? *target : config_.h323Peer[destinationSide];
    const Endpoint peer = connection->peer();
    if (destination.ip == 0) {
        ++counters_.unroutable;
        log(2, "H.323 call from " + endpointText(peer) + " has nowhere to go");
        return;
    }
    auto made = std::make_unique<H323Call>(config_.maxFrame);
    H323Call& call = *made;
    call.id = ++nextCall_;
    call.originSide = side;
    call.lastSignalling = now();
    call.destination = destination;
    call.caller = std::move(connection);
    // The SETUP comes from the peer's address and names the endpoint's call signalling port; the
    // originator dialled the proxy. Towards the destination the proxy's own signalling address
    // stands for the originator.
    sockaddr_type a = toLibraryAddress(Endpoint{peer.ip, htons(kCallSignallingPort)});
    sockaddr_type b = toLibraryAddress(call.caller->local());
    sockaddr_type c = toLibraryAddress(own(destinationSide, config_.h323Port));
    sockaddr_type d = toLibraryAddress(destination);
    call.h225 = h323xlate_h225_create(contextOf(call.id), &a, &b, &c, &d);
    const uint64_t id = call.id;
    calls_[id] = &call;
    h323Calls_.emplace(id, std::move(made));
    ++counters_.h323Calls;
    log(2, "call " + std::to_string(id) + ": H.323 from " + endpointText(peer) + " to " +
               endpointText(destination));

    call.callee = std::make_unique<TcpConnection>(loop_);
    bool connecting =
        call.callee->connect(own(destinationSide, 0), destination, [this, id](bool ok) {
            auto it = h323Calls_.find(id);
            if (it == h323Calls_.end()) {
                return;
            }
            H323Call& up = *it->second;
            if (!ok) {
                ++counters_.unroutable;
                endH323(id, "the destination cannot be reached");
                return;
            }
            up.calleeUp = true;
            up.callee->start(
                [this, id](const uint8_t* data, size_t length) {
                    auto found = h323Calls_.find(id);
                    if (found != h323Calls_.end()) {
                        onH225(*found->second, false, data, length);
                    }
                },
                [this, id] { endH323(id, "the destination hung up"); });
            if (!up.pendingToCallee.empty()) {
                std::vector<uint8_t> pending = std::move(up.pendingToCallee);
                if (!up.callee->write(pending.data(), pending.size())) {
                    endH323(id, "the destination does not keep up");
                }
            }
        });
    call.caller->start(
        [this, id](const uint8_t* data, size_t length) {
            auto found = h323Calls_.find(id);
            if (found != h323Calls_.end()) {
                onH225(*found->second, true, data, length);
            }
        },
        [this, id] { endH323(id, "the originator hung up"); });
    if (!connecting) {
        endH323(id, "cannot connect to the destination");
    }
}

void Proxy::onH225(H323Call& call, bool fromOriginator, const uint8_t* data, size_t length) {
    const uint64_t id = call.id;
    TpktReader& reader = fromOriginator ? call.fromCaller : call.fromCallee;
    reader.append(data, length);
    std::vector<uint8_t> pdu;
    for (;;) {
        TpktReader::Result next = reader.next(pdu);
        if (next == TpktReader::Result::NeedMore) {
            return;
        }
        if (next == TpktReader::Result::Error) {
            ++counters_.refused;
            endH323(id, "broken TPKT framing or a message larger than max_frame");
            return;
        }
        ++counters_.h225Messages;
        call.lastSignalling = now();
        const auto size = static_cast<unsigned int>(pdu.size());
        if (h323xlate_h225_decodeh225pdu(call.h225, pdu.data(), size) < 0) {
            ++counters_.refused;
            log(2, "call " + std::to_string(id) + ": unreadable H.225 message dropped");
            continue;
        }
        int status = -1;
        const int result =
            h323xlate_h225_translateh225pdu(call.h225, fromOriginator ? 1 : 0, &status);
        if (result == -2) {
            ++counters_.refused;
            ++counters_.callsShutDown;
            endH323(id, "the library refused a message");
            return;
        }
        if (result < 0) {
            ++counters_.refused;
            continue;
        }
        if (result == 1) {
            auto outLength = static_cast<unsigned int>(config_.maxFrame * 2);
            if (outLength > scratch_.size() - kTpktHeader) {
                outLength = static_cast<unsigned int>(scratch_.size() - kTpktHeader);
            }
            int encoded = h323xlate_h225_encodeh225pdu(call.h225, scratch_.data(), &outLength);
            if (encoded < 0) {
                ++counters_.refused;
                continue;
            }
            if (encoded == 1) {
                ++counters_.translated;
                sendH225(call, fromOriginator, scratch_.data(), outLength);
            } else {
                ++counters_.forwarded;
                sendH225(call, fromOriginator, pdu.data(), pdu.size());
            }
        } else {
            ++counters_.forwarded;
            sendH225(call, fromOriginator, pdu.data(), pdu.size());
        }
        if (h323Calls_.count(id) == 0) {
            return; // a failed send ended the call
        }
    }
}

void Proxy::sendH225(H323Call& call, bool toDestination, const uint8_t* data, size_t length) {
    std::vector<uint8_t> frame = tpktFrame(data, length);
    bool ok = true;
    if (!toDestination) {
        ok = call.caller->write(frame.data(), frame.size());
    } else if (call.calleeUp) {
        ok = call.callee->write(frame.data(), frame.size());
    } else {
        call.pendingToCallee.insert(call.pendingToCallee.end(), frame.begin(), frame.end());
        ok = call.pendingToCallee.size() <= 16 * static_cast<size_t>(config_.maxFrame);
    }
    if (!ok) {
        endH323(call.id, "a peer does not keep up");
    }
}

void Proxy::endH323(uint64_t id, const char* why) {
    auto it = h323Calls_.find(id);
    if (it == h323Calls_.end()) {
        return;
    }
    H323Call& call = *it->second;
    log(2, "call " + std::to_string(id) + " ended: " + why);
    for (auto& relay : call.h245) {
        endH245(*relay);
    }
    relays_.releaseCall(id);
    h323xlate_h225_destroy(call.h225);
    calls_.erase(id);
    h323Calls_.erase(it);
}

int Proxy::openH245(void* ctx, int direction, const sockaddr_type* announced,
                    sockaddr_type* replacement) {
    Proxy* self = active_;
    Call* found = self != nullptr ? self->findCall(ctx) : nullptr;
    if (found == nullptr || found->kind != Call::Kind::H323 || announced == nullptr ||
        replacement == nullptr) {
        return -1;
    }
    auto& call = static_cast<H323Call&>(*found);
    std::optional<Endpoint> address = fromLibraryAddress(*announced);
    std::optional<uint16_t> port = self->ports_.allocateOne();
    if (!address || !port) {
        self->log(1, "call " + std::to_string(call.id) +
                         (address ? ": no free port for an H.245 relay"
                                  : ": cannot relay H.245 to a non-IPv4 address"));
        if (port) {
            self->ports_.release(*port);
        }
        return -1;
    }
    auto relay = std::make_unique<H245Relay>(self->config_.maxFrame);
    relay->call = call.id;
    relay->number = call.h245.size() + 1;
    relay->announcerIsOriginator = direction != 0;
    relay->announcerSide =
        relay->announcerIsOriginator ? call.originSide : otherSide(call.originSide);
    relay->announced = *address;
    relay->port = *port;
    const Side listenSide = otherSide(relay->announcerSide);
    const uint64_t id = call.id;
    const uint64_t number = relay->number;
    relay->listener = std::make_unique<TcpListener>(
        self->loop_, self->own(listenSide, *port),
        [self, id, number](std::unique_ptr<TcpConnection> connection) {
            auto it = self->h323Calls_.find(id);
            if (it != self->h323Calls_.end() && number <= it->second->h245.size()) {
                self->acceptH245(*it->second->h245[number - 1], std::move(connection));
            }
        });
    if (!relay->listener->ok()) {
        self->log(1, "call " + std::to_string(id) +
                         ": cannot listen for H.245: " + relay->listener->error());
        self->ports_.release(*port);
        return -1;
    }
    *replacement = toLibraryAddress(self->own(listenSide, *port));
    self->log(3, "call " + std::to_string(id) + ": H.245 relay " +
                     endpointText(self->own(listenSide, *port)) + " -> " + endpointText(*address));
    call.h245.push_back(std::move(relay));
    ++self->counters_.h245Relays;
    return 0;
}

void Proxy::acceptH245(H245Relay& relay, std::unique_ptr<TcpConnection> connection) {
    if (relay.ended || relay.near) {
        return; // one connection per relay
    }
    relay.listener.reset();
    relay.near = std::move(connection);
    relay.far = std::make_unique<TcpConnection>(loop_);
    const uint64_t id = relay.call;
    const uint64_t number = relay.number;
    auto find = [this, id, number]() -> H245Relay* {
        auto it = h323Calls_.find(id);
        if (it == h323Calls_.end() || number > it->second->h245.size()) {
            return nullptr;
        }
        H245Relay* found = it->second->h245[number - 1].get();
        return found->ended ? nullptr : found;
    };
    bool connecting =
        relay.far->connect(own(relay.announcerSide, 0), relay.announced, [this, find](bool ok) {
            H245Relay* up = find();
            if (up == nullptr) {
                return;
            }
            if (!ok) {
                endH245(*up);
                return;
            }
            up->farUp = true;
            up->far->start(
                [this, find](const uint8_t* data, size_t length) {
                    if (H245Relay* r = find()) {
                        onH245(*r, true, data, length);
                    }
                },
                [this, find] {
                    if (H245Relay* r = find()) {
                        endH245(*r);
                    }
                });
            if (!up->pendingToFar.empty()) {
                std::vector<uint8_t> pending = std::move(up->pendingToFar);
                if (!up->far->write(pending.data(), pending.size())) {
                    endH245(*up);
                }
            }
        });
    relay.near->start(
        [this, find](const uint8_t* data, size_t length) {
            if (H245Relay* r = find()) {
                onH245(*r, false, data, length);
            }
        },
        [this, find] {
            if (H245Relay* r = find()) {
                endH245(*r);
            }
        });
    if (!connecting) {
        endH245(relay);
    }
}

void Proxy::onH245(H245Relay& relay, bool fromAnnouncer, const uint8_t* data, size_t length) {
    auto it = h323Calls_.find(relay.call);
    if (it == h323Calls_.end()) {
        return;
    }
    H323Call& call = *it->second;
    const bool fromOriginator =
        fromAnnouncer ? relay.announcerIsOriginator : !relay.announcerIsOriginator;
    TpktReader& reader = fromAnnouncer ? relay.fromFar : relay.fromNear;
    reader.append(data, length);
    std::vector<uint8_t> pdu;
    for (;;) {
        TpktReader::Result next = reader.next(pdu);
        if (next == TpktReader::Result::NeedMore) {
            return;
        }
        if (next == TpktReader::Result::Error) {
            ++counters_.refused;
            endH245(relay);
            return;
        }
        ++counters_.h245Messages;
        call.lastSignalling = now();
        auto outLength = static_cast<unsigned int>(config_.maxFrame * 2);
        const int result = h323xlate_h225_translateh245pdu(
            call.h225, fromOriginator ? 1 : 0, pdu.data(), static_cast<unsigned int>(pdu.size()),
            scratch_.data(), &outLength);
        if (result < 0) {
            ++counters_.refused;
            continue;
        }
        ++(result == 1 ? counters_.translated : counters_.forwarded);
        std::vector<uint8_t> frame =
            result == 1 ? tpktFrame(scratch_.data(), outLength) : tpktFrame(pdu.data(), pdu.size());
        bool ok = true;
        if (fromAnnouncer) {
            ok = relay.near->write(frame.data(), frame.size());
        } else if (relay.farUp) {
            ok = relay.far->write(frame.data(), frame.size());
        } else {
            relay.pendingToFar.insert(relay.pendingToFar.end(), frame.begin(), frame.end());
            ok = relay.pendingToFar.size() <= 16 * static_cast<size_t>(config_.maxFrame);
        }
        if (!ok) {
            endH245(relay);
            return;
        }
    }
}

void Proxy::endH245(H245Relay& relay) {
    if (relay.ended) {
        return;
    }
    relay.ended = true;
    relay.listener.reset();
    relay.near.reset();
    relay.far.reset();
    ports_.release(relay.port);
}

// ---------------------------------------------------------------------------------------------
// RAS over UDP

void Proxy::onRas(Side side, const Endpoint& from, const uint8_t* data, size_t length) {
    ++counters_.rasMessages;
    auto key = std::make_pair(static_cast<int>(side), from);
    auto known = rasAssociations_.find(key);
    RasAssociation* association = nullptr;
    if (known != rasAssociations_.end()) {
        association = known->second.get();
    } else {
        const Side gatekeeperSide = otherSide(side);
        const Endpoint gatekeeper = config_.gatekeeper[gatekeeperSide];
        std::optional<uint16_t> port;
        if (gatekeeper.ip == 0 || stopping_ || !(port = ports_.allocateOne())) {
            ++counters_.unroutable;
            log(3, "RAS from " + endpointText(from) + " has nowhere to go");
            return;
        }
        auto made = std::make_unique<RasAssociation>();
        made->id = ++nextCall_;
        made->originSide = side;
        made->endpoint = from;
        made->gatekeeper = gatekeeper;
        made->port = *port;
        made->socket = std::make_unique<UdpSocket>(
            loop_, own(gatekeeperSide, *port),
            [this, key](const Endpoint& source, const uint8_t* reply, size_t size) {
                auto it = rasAssociations_.find(key);
                if (it != rasAssociations_.end()) {
                    onRasReply(*it->second, source, reply, size);
                }
            });
        if (!made->socket->ok()) {
            ports_.release(*port);
            ++counters_.unroutable;
            return;
        }
        // The endpoint is announced to the gatekeeper under the association's own address.
        sockaddr_type a = toLibraryAddress(from);
        sockaddr_type b = toLibraryAddress(gatekeeper);
        sockaddr_type c = toLibraryAddress(own(gatekeeperSide, *port));
        sockaddr_type d = toLibraryAddress(own(side, config_.rasPort));
        made->ras = h323xlate_ras_create(contextOf(made->id), &a, &b, &c, &d);
        association = made.get();
        calls_[association->id] = association;
        rasAssociations_.emplace(key, std::move(made));
        ++counters_.rasAssociations;
    }
    association->lastSignalling = now();
    auto outLength = static_cast<unsigned int>(scratch_.size());
    int status = -1;
    int result =
        h323xlate_ras_translatepdu(association->ras, 1, data, static_cast<unsigned int>(length),
                                   scratch_.data(), &outLength, &status);
    if (result < 0) {
        ++counters_.refused;
        return;
    }
    ++(result == 1 ? counters_.translated : counters_.forwarded);
    association->socket->send(association->gatekeeper, result == 1 ? scratch_.data() : data,
                              result == 1 ? outLength : length);
}

void Proxy::onRasReply(RasAssociation& association, const Endpoint& from, const uint8_t* data,
                       size_t length) {
    ++counters_.rasMessages;
    if (from.ip != association.gatekeeper.ip) {
        ++counters_.unroutable;
        return;
    }
    association.lastSignalling = now();
    auto outLength = static_cast<unsigned int>(scratch_.size());
    int status = -1;
    int result =
        h323xlate_ras_translatepdu(association.ras, 0, data, static_cast<unsigned int>(length),
                                   scratch_.data(), &outLength, &status);
    if (result < 0) {
        ++counters_.refused;
        return;
    }
    ++(result == 1 ? counters_.translated : counters_.forwarded);
    ras_[association.originSide]->send(association.endpoint, result == 1 ? scratch_.data() : data,
                                       result == 1 ? outLength : length);
}

void Proxy::releaseRas(RasAssociation& association) {
    // The library does not withdraw the mappings of a destroyed association: the proxy does.
    for (auto& [number, mapping] : association.mappings) {
        ports_.release(mapping->port);
    }
    h323xlate_ras_destroy(association.ras);
    ports_.release(association.port);
    calls_.erase(association.id);
    rasAssociations_.erase(
        std::make_pair(static_cast<int>(association.originSide), association.endpoint));
}

void Proxy::translateAddr(void* ctx, int /*direction*/, const sockaddr_type* found,
                          sockaddr_type* replacement, void** mapping) {
    Proxy* self = active_;
    Call* call = self != nullptr ? self->findCall(ctx) : nullptr;
    if (call == nullptr || call->kind != Call::Kind::Ras || found == nullptr ||
        replacement == nullptr || mapping == nullptr) {
        return;
    }
    auto& association = static_cast<RasAssociation&>(*call);
    std::optional<Endpoint> registered = fromLibraryAddress(*found);
    if (!registered) {
        return;
    }
    const Side listenSide = otherSide(association.originSide);
    // Endpoints repeat their registration to keep it alive: the same address keeps its mapping.
    for (auto& [number, existing] : association.mappings) {
        if (existing->registered == *registered) {
            *replacement = toLibraryAddress(self->own(listenSide, existing->port));
            *mapping = reinterpret_cast<void*>(number);
            return;
        }
    }
    std::optional<uint16_t> port = self->ports_.allocateOne();
    if (!port) {
        self->log(1, "no free port to map " + endpointText(*registered));
        return;
    }
    auto made = std::make_unique<Mapping>();
    made->registered = *registered;
    made->port = *port;
    const Endpoint target = *registered;
    made->listener = std::make_unique<TcpListener>(
        self->loop_, self->own(listenSide, *port),
        [self, listenSide, target](std::unique_ptr<TcpConnection> connection) {
            self->acceptH323(listenSide, std::move(connection), &target);
        });
    if (!made->listener->ok()) {
        self->ports_.release(*port);
        return;
    }
    static uintptr_t lastMapping = 0;
    const uintptr_t number = ++lastMapping;
    *replacement = toLibraryAddress(self->own(listenSide, *port));
    *mapping = reinterpret_cast<void*>(number);
    self->log(3, "RAS mapping " + endpointText(self->own(listenSide, *port)) + " -> " +
                     endpointText(*registered));
    association.mappings.emplace(number, std::move(made));
    ++self->counters_.mappings;
}

void Proxy::removeMapping(void* ctx, void* mapping) {
    Proxy* self = active_;
    Call* call = self != nullptr ? self->findCall(ctx) : nullptr;
    if (call == nullptr || call->kind != Call::Kind::Ras) {
        return;
    }
    auto& association = static_cast<RasAssociation&>(*call);
    auto it = association.mappings.find(reinterpret_cast<uintptr_t>(mapping));
    if (it != association.mappings.end()) {
        self->ports_.release(it->second->port);
        association.mappings.erase(it);
    }
}

// ---------------------------------------------------------------------------------------------
// Media relays

bool Proxy::start(Relay& relay) {
    auto sockets = std::make_unique<RelaySockets>();
    const int32_t id = relay.id;
    for (Side side : {Inside, Outside}) {
        const uint16_t port = relay.port[side];
        if (port == 0) {
            continue;
        }
        if (relay.kind == RelayKind::Media) {
            sockets->rtp[side] = std::make_unique<UdpSocket>(
                loop_, own(side, port),
                [this, id, side](const Endpoint&, const uint8_t* data, size_t length) {
                    onMedia(id, side, false, data, length);
                });
            sockets->rtcp[side] = std::make_unique<UdpSocket>(
                loop_, own(side, static_cast<uint16_t>(port + 1)),
                [this, id, side](const Endpoint&, const uint8_t* data, size_t length) {
                    onMedia(id, side, true, data, length);
                });
            if (!sockets->rtp[side]->ok() || !sockets->rtcp[side]->ok()) {
                log(1, "cannot open a media relay on port " + std::to_string(port) + ": " +
                           (sockets->rtp[side]->ok() ? sockets->rtcp[side]->error()
                                                     : sockets->rtp[side]->error()));
                return false;
            }
            continue;
        }
        sockets->listener[side] = std::make_unique<TcpListener>(
            loop_, own(side, port), [this, id, side](std::unique_ptr<TcpConnection> connection) {
                Relay* relay = relays_.find(id);
                if (relay == nullptr) {
                    return;
                }
                // T.120 listens on one side for the one address it was given; a message session
                // listens on both, each side towards the endpoint on the other.
                Endpoint target;
                if (relay->kind == RelayKind::T120) {
                    target = relay->rtp[Forward];
                } else {
                    const Direction direction =
                        relay->sideOf(Forward) == otherSide(side) ? Forward : Reverse;
                    if (!relay->open[direction]) {
                        return;
                    }
                    target = relay->rtp[direction];
                }
                auto* io = static_cast<RelaySockets*>(relay->io);
                io->splices.push_back(std::make_unique<TcpSplice>(
                    loop_, std::move(connection), own(otherSide(side), 0), target,
                    [this, id] {
                        if (Relay* active = relays_.find(id)) {
                            active->lastActivity = now();
                        }
                    },
                    [] {}));
            });
        if (!sockets->listener[side]->ok()) {
            log(1, "cannot open a TCP relay on port " + std::to_string(port) + ": " +
                       sockets->listener[side]->error());
            return false;
        }
    }
    relay.io = sockets.release();
    return true;
}

void Proxy::stop(Relay& relay) {
    delete static_cast<RelaySockets*>(relay.io);
    relay.io = nullptr;
}

void Proxy::onMedia(int32_t id, Side side, bool control, const uint8_t* data, size_t length) {
    Relay* relay = relays_.find(id);
    if (relay == nullptr) {
        return;
    }
    relay->lastActivity = now();
    ++relay->packets;
    ++counters_.mediaPackets;
    // A packet from the endpoint on this side goes to the addresses the other one announced.
    const Direction direction = relay->sideOf(Forward) == otherSide(side) ? Forward : Reverse;
    if (!relay->open[direction]) {
        return;
    }
    auto* io = static_cast<RelaySockets*>(relay->io);
    const Side out = otherSide(side);
    UdpSocket& socket = control ? *io->rtcp[out] : *io->rtp[out];
    socket.send(control ? relay->rtcp[direction] : relay->rtp[direction], data, length);
}

// ---------------------------------------------------------------------------------------------
// Library callbacks

void Proxy::logLine(void* ctx, const char* /*file*/, int /*line*/, int level, const char* text) {
    std::string line = text != nullptr ? text : "";
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.pop_back();
    }
    const auto call = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(ctx));
    std::fprintf(stderr, "voipfilter-proxy[%d]: call %llu: %s\n", level,
                 static_cast<unsigned long long>(call), line.c_str());
}

int Proxy::openChannel(void* ctx, int direction, voipxlate_mediasessioninformation* session,
                       int32_t* handle) {
    Proxy* self = active_;
    Call* call = self != nullptr ? self->findCall(ctx) : nullptr;
    if (call == nullptr || session == nullptr || handle == nullptr) {
        return -1;
    }
    const Direction dir = direction != 0 ? Forward : Reverse;
    sockaddr_type& rtpOut =
        dir == Forward ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcpOut =
        dir == Forward ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    std::optional<Endpoint> rtp =
        fromLibraryAddress(dir == Forward ? session->forwardRTP : session->reverseRTP);
    std::optional<Endpoint> rtcp =
        fromLibraryAddress(dir == Forward ? session->forwardRTCP : session->reverseRTCP);
    if (!rtp) {
        self->log(1, "call " + std::to_string(call->id) +
                         ": cannot relay media to a non-IPv4 "
                         "address");
        return -1;
    }
    if (!rtcp) {
        rtcp = Endpoint{rtp->ip, htons(static_cast<uint16_t>(ntohs(rtp->port) + 1))};
    }
    const RelayKind kind =
        session->mediaKind == VOIPXLATE_MEDIA_MESSAGE ? RelayKind::Stream : RelayKind::Media;
    Relay* relay = self->relays_.open(call->id, session, kind, call->originSide, dir, *rtp, *rtcp,
                                      self->now(), *handle);
    if (relay == nullptr) {
        self->log(1, "call " + std::to_string(call->id) + ": no free ports for a media relay");
        return -1;
    }
    const Side leg = relay->legFor(dir);
    const uint16_t port = relay->port[leg];
    rtpOut = toLibraryAddress(self->own(leg, port));
    rtcpOut = toLibraryAddress(
        self->own(leg, kind == RelayKind::Media ? static_cast<uint16_t>(port + 1) : port));
    self->log(3, "call " + std::to_string(call->id) + ": relay " +
                     endpointText(self->own(leg, port)) + " -> " + endpointText(*rtp));
    return 0;
}

int Proxy::closeChannel(void* /*ctx*/, int32_t handle, int /*direction*/) {
    if (active_ != nullptr) {
        active_->relays_.close(handle);
    }
    return 0;
}

int Proxy::allowCodec(void* ctx, int /*kind*/, const char* codec) {
    Proxy* self = active_;
    if (self == nullptr || codec == nullptr) {
        return 1;
    }
    for (const std::string& denied : self->config_.deniedCodecs) {
        if (strcasecmp(denied.c_str(), codec) == 0) {
            self->log(2,
                      "call " +
                          std::to_string(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(ctx))) +
                          ": codec " + codec + " vetoed");
            return 0;
        }
    }
    return 1;
}

void Proxy::callInformation(voipxlate_callinformation* /*call*/) {
    if (active_ != nullptr) {
        active_->log(4, "new SIP dialog");
    }
}

int Proxy::translateMediaAddr(void* ctx, int direction, const sockaddr_type* found,
                              sockaddr_type* replacement, void* /*scratch*/) {
    Proxy* self = active_;
    Call* call = self != nullptr ? self->findCall(ctx) : nullptr;
    if (call == nullptr || found == nullptr || replacement == nullptr) {
        return -1;
    }
    std::optional<Endpoint> target = fromLibraryAddress(*found);
    if (!target) {
        return -1;
    }
    // The announcing endpoint listens; the other one connects to the proxy on its own side.
    const Side announcerSide = direction != 0 ? call->originSide : otherSide(call->originSide);
    const Side listenSide = otherSide(announcerSide);
    Relay* relay = self->relays_.openT120(call->id, listenSide, *target, self->now());
    if (relay == nullptr) {
        self->log(1, "call " + std::to_string(call->id) + ": no free port for a T.120 relay");
        return -1;
    }
    *replacement = toLibraryAddress(self->own(listenSide, relay->port[listenSide]));
    return 0;
}

int Proxy::callOnHold(void* ctx, int /*flag*/) {
    if (active_ != nullptr) {
        active_->log(
            2, "call " + std::to_string(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(ctx))) +
                   " put on hold");
    }
    return 0;
}

} // namespace proxy
