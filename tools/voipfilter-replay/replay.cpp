#include "replay.h"

#include <list>
#include <map>
#include <memory>
#include <tuple>

#include <voipfilter/voipfilter.h>

#include "capture.h"
#include "message_kind.h"
#include "packet.h"
#include "tcp_stream.h"

namespace replay {

namespace {

constexpr uint16_t kSipPort = 5060;
constexpr uint16_t kRasDiscoveryPort = 1718;
constexpr uint16_t kRasPort = 1719;
constexpr uint16_t kCallSignallingPort = 1720;
constexpr size_t kMaxUdpPayload = 65507;
constexpr size_t kMaxTpktPayload = 65535 - 4;

using SipHandle = SIPConnection*;
using H225Handle = H225TranslatorContext*;
using RasHandle = RASTranslatorContext*;

struct Endpoint {
    uint32_t ip = 0;
    uint16_t port = 0;

    bool operator<(const Endpoint& other) const {
        return std::tie(ip, port) < std::tie(other.ip, other.port);
    }
    bool operator==(const Endpoint& other) const { return ip == other.ip && port == other.port; }
    std::string text() const { return ipToString(ip) + ":" + std::to_string(port); }
    sockaddr_type address() const { return makeAddress(ip, port); }
};

using PairKey = std::pair<Endpoint, Endpoint>;

PairKey pairKey(const Endpoint& a, const Endpoint& b) {
    return a < b ? PairKey{a, b} : PairKey{b, a};
}

// One call or association the library knows: its endpoints, handle and report entry.
struct Association {
    CallContext context;
    Endpoint originator;
    Endpoint destination;
    bool hasCall = false; // SIP associations report by Call-ID and need no record of their own
    size_t callIndex = 0;
    bool shutDown = false;
    SipHandle sip = nullptr;
    H225Handle h225 = nullptr;
    RasHandle ras = nullptr;
};

enum class StreamKind { Undecided, CallSignalling, H245, Other };

struct TcpConnection {
    Endpoint side[2]; // side[0] opened the connection when that was seen
    StreamKind kind = StreamKind::Undecided;
    int originatorSide = 0;
    Association* call = nullptr;
    bool sawData = false;
    TcpReassembler streams[2];
    TpktFramer framers[2];
    StreamEdits edits[2];
};

// What pass two does with a frame.
struct FramePlan {
    enum class Action { Keep, Replace, Drop, Tcp } action = Action::Keep;
    std::vector<uint8_t> payload;
    TcpConnection* connection = nullptr;
    int side = 0;
};

class Replayer {
public:
    Replayer(const ReplayOptions& options, CaptureReport& report)
        : options_(options), report_(report), host_(options.host, report.calls) {}
    ~Replayer();

    void run(const Capture& capture);
    bool write(const Capture& capture, std::string& error);
    static void writeForwarded(CaptureWriter& writer, const CapturedFrame& frame,
                               const DecodedPacket& packet);

private:
    void udp(size_t index, const CapturedFrame& frame, const DecodedPacket& packet);
    void tcp(size_t index, const CapturedFrame& frame, const DecodedPacket& packet);
    // Decides from the well-known port or an announced H.245 address; else leaves it undecided.
    void classify(TcpConnection& connection);
    void tcpMessage(TcpConnection& connection, int side, const TpktMessage& message);
    void callSignalling(TcpConnection& connection, int side, const TpktMessage& message,
                        MessageRecord& record, std::vector<uint8_t>& replacement);
    void h245(TcpConnection& connection, int side, const TpktMessage& message,
              MessageRecord& record, std::vector<uint8_t>& replacement);
    void learnH245Channels();
    void finishStreams();

    size_t newCall(const std::string& protocol, const std::string& id, const Endpoint& originator,
                   const Endpoint& destination);
    Association& association(std::map<PairKey, std::unique_ptr<Association>>& table,
                             const char* protocol, const Endpoint& source,
                             const Endpoint& destination, bool withCall);
    void record(size_t callIndex, MessageRecord message);
    void translated(MessageRecord& record, Outcome outcome, int result, const char* note);

    const ReplayOptions& options_;
    CaptureReport& report_;
    Host host_;
    std::vector<FramePlan> plans_;
    uint64_t frame_ = 0;

    std::map<PairKey, std::unique_ptr<Association>> sip_;
    std::map<PairKey, std::unique_ptr<Association>> ras_;
    std::map<std::string, size_t> sipCalls_; // Call-ID -> call record
    std::list<Association> h323Calls_;
    std::map<PairKey, TcpConnection*> connections_;
    std::list<TcpConnection> allConnections_;
    std::map<Endpoint, H245Announcement> h245Expected_;
};

Replayer::~Replayer() {
    for (auto& [key, association] : sip_) {
        sipxlate_udp_destroy(association->sip);
        sipxlate_destroy(association->sip);
    }
    for (auto& [key, association] : ras_) {
        h323xlate_ras_destroy(association->ras);
    }
    for (Association& call : h323Calls_) {
        h323xlate_h225_destroy(call.h225);
    }
}

size_t Replayer::newCall(const std::string& protocol, const std::string& id,
                         const Endpoint& originator, const Endpoint& destination) {
    CallRecord call;
    call.protocol = protocol;
    call.id = id;
    call.originator = originator.text();
    call.destination = destination.text();
    report_.calls.push_back(std::move(call));
    return report_.calls.size() - 1;
}

Association& Replayer::association(std::map<PairKey, std::unique_ptr<Association>>& table,
                                   const char* protocol, const Endpoint& source,
                                   const Endpoint& destination, bool withCall) {
    std::unique_ptr<Association>& slot = table[pairKey(source, destination)];
    if (!slot) {
        slot = std::make_unique<Association>();
        slot->originator = source;
        slot->destination = destination;
        slot->context.originatorIp = source.ip;
        slot->context.destinationIp = destination.ip;
    }
    if (withCall && !slot->hasCall) {
        slot->callIndex =
            newCall(protocol, slot->originator.text() + " -> " + slot->destination.text(),
                    slot->originator, slot->destination);
        slot->hasCall = true;
    }
    return *slot;
}

void Replayer::record(size_t callIndex, MessageRecord message) {
    ++report_.counters.signallingMessages;
    report_.calls[callIndex].messages.push_back(std::move(message));
}

void Replayer::translated(MessageRecord& record, Outcome outcome, int result, const char* note) {
    std::string hostNotes;
    record.log = host_.end(hostNotes);
    record.outcome = outcome;
    record.result = result;
    std::string text = note != nullptr ? note : "";
    if (!hostNotes.empty()) {
        text += text.empty() ? hostNotes : ", " + hostNotes;
    }
    record.note = text;
}

void Replayer::run(const Capture& capture) {
    plans_.assign(capture.frames.size(), FramePlan{});
    for (size_t i = 0; i < capture.frames.size(); ++i) {
        frame_ = i + 1;
        const CapturedFrame& frame = capture.frames[i];
        ++report_.counters.frames;
        if (frame.data.size() < frame.wireLength) {
            ++report_.counters.truncated;
            continue;
        }
        DecodedPacket packet = decodePacket(capture.linkType, frame.data.data(), frame.data.size());
        switch (packet.status) {
        case DecodeStatus::Ok:
            break;
        case DecodeStatus::Truncated:
            ++report_.counters.truncated;
            continue;
        case DecodeStatus::NotIp:
            ++report_.counters.notIp;
            continue;
        case DecodeStatus::Ipv6:
            ++report_.counters.ipv6;
            continue;
        case DecodeStatus::Fragment:
            ++report_.counters.fragments;
            continue;
        case DecodeStatus::BadHeader:
            ++report_.counters.badHeaders;
            continue;
        case DecodeStatus::UnknownLink:
        case DecodeStatus::OtherIp:
            continue;
        }
        if (packet.isUdp()) {
            udp(i, frame, packet);
        } else {
            tcp(i, frame, packet);
        }
    }
    finishStreams();
}

void Replayer::udp([[maybe_unused]] size_t index, const CapturedFrame& frame,
                   const DecodedPacket& packet) {
    const uint8_t* payload = frame.data.data() + packet.payloadOffset;
    const size_t length = packet.payloadLength;
    const Endpoint source{packet.srcIp, packet.srcPort};
    const Endpoint destination{packet.dstIp, packet.dstPort};
    const bool sipPort = packet.srcPort == kSipPort || packet.dstPort == kSipPort;
    const bool sipText = looksLikeSip(payload, length);
    const bool rasPort = packet.srcPort == kRasPort || packet.dstPort == kRasPort ||
                         packet.dstPort == kRasDiscoveryPort;

    if (sipText || (sipPort && length > 0)) {
        std::string callId = sipHeader(payload, length, "Call-ID", "i");
        Association& link = association(sip_, "SIP", source, destination, callId.empty());
        MessageRecord message;
        message.frame = frame_;
        message.fromOriginator = source == link.originator;
        message.from = source.text();
        message.to = destination.text();
        message.kind = sipText ? sipKind(payload, length) : "SIP (not a SIP message)";
        size_t callIndex = link.callIndex;
        if (!callId.empty()) {
            auto found = sipCalls_.find(callId);
            if (found == sipCalls_.end()) {
                found =
                    sipCalls_.emplace(callId, newCall("SIP", callId, source, destination)).first;
            }
            callIndex = found->second;
        }
        host_.begin(callIndex, frame_);
        if (link.sip == nullptr) {
            sockaddr_type a = link.originator.address();
            sockaddr_type b = link.destination.address();
            sockaddr_type c =
                makeAddress(host_.nat().announce(link.originator.ip, link.destination.ip),
                            link.originator.port);
            sockaddr_type d =
                makeAddress(host_.nat().announce(link.destination.ip, link.originator.ip),
                            link.destination.port);
            link.sip = sipxlate_create(&link.context, &a, &b, &c, &d);
        }
        std::vector<uint8_t> out(kMaxUdpPayload + 1);
        auto outLength = static_cast<unsigned int>(kMaxUdpPayload);
        // Option 1: write the addresses the host's open callbacks returned (media proxying).
        int result =
            sipxlate_udp_translate(link.sip, message.fromOriginator ? 1 : 0, payload,
                                   static_cast<unsigned int>(length), out.data(), &outLength, 1);
        if (result > 0 && outLength <= kMaxUdpPayload) {
            out.resize(outLength);
            plans_[index].action = FramePlan::Action::Replace;
            plans_[index].payload = std::move(out);
            translated(message, Outcome::Rewritten, result, nullptr);
        } else if (result > 0) {
            translated(message, Outcome::Forwarded, result, "rewritten message too long");
        } else if (result == 0) {
            translated(message, Outcome::Forwarded, result, nullptr);
        } else {
            plans_[index].action = FramePlan::Action::Drop;
            translated(message, Outcome::Refused, result, nullptr);
        }
        record(callIndex, std::move(message));
        return;
    }

    if (rasPort && length > 0) {
        Association& link = association(ras_, "RAS", source, destination, true);
        MessageRecord message;
        message.frame = frame_;
        message.fromOriginator = source == link.originator;
        message.from = source.text();
        message.to = destination.text();
        message.kind = rasMessageName(payload, length);
        host_.begin(link.callIndex, frame_);
        if (link.ras == nullptr) {
            sockaddr_type a = link.originator.address();
            sockaddr_type b = link.destination.address();
            sockaddr_type c =
                makeAddress(host_.nat().announce(link.originator.ip, link.destination.ip),
                            link.originator.port);
            sockaddr_type d =
                makeAddress(host_.nat().announce(link.destination.ip, link.originator.ip),
                            link.destination.port);
            link.ras = h323xlate_ras_create(&link.context, &a, &b, &c, &d);
        }
        std::vector<uint8_t> out(kMaxUdpPayload);
        auto outLength = static_cast<unsigned int>(out.size());
        int status = -1;
        int result = h323xlate_ras_translatepdu(link.ras, message.fromOriginator ? 1 : 0, payload,
                                                static_cast<unsigned int>(length), out.data(),
                                                &outLength, &status);
        if (result > 0) {
            out.resize(outLength);
            plans_[index].action = FramePlan::Action::Replace;
            plans_[index].payload = std::move(out);
            translated(message, Outcome::Rewritten, result, nullptr);
        } else if (result == 0) {
            translated(message, Outcome::Forwarded, result, nullptr);
        } else {
            plans_[index].action = FramePlan::Action::Drop;
            translated(message, Outcome::Refused, result, nullptr);
        }
        record(link.callIndex, std::move(message));
    }
}

void Replayer::classify(TcpConnection& connection) {
    if (connection.side[0].port == kCallSignallingPort ||
        connection.side[1].port == kCallSignallingPort) {
        connection.kind = StreamKind::CallSignalling;
        connection.originatorSide = connection.side[0].port == kCallSignallingPort ? 1 : 0;
        return;
    }
    for (int s = 0; s < 2; ++s) {
        auto expected = h245Expected_.find(connection.side[s]);
        if (expected == h245Expected_.end()) {
            continue;
        }
        for (Association& call : h323Calls_) {
            if (&call.context == expected->second.context) {
                connection.kind = StreamKind::H245;
                connection.call = &call;
                // Side s is the endpoint that announced the address.
                connection.originatorSide = expected->second.byOriginator ? s : 1 - s;
                return;
            }
        }
    }
}

void Replayer::tcp(size_t index, const CapturedFrame& frame, const DecodedPacket& packet) {
    const Endpoint source{packet.srcIp, packet.srcPort};
    const Endpoint destination{packet.dstIp, packet.dstPort};
    const bool synOnly = (packet.tcpFlags & (tcpflag::kSyn | tcpflag::kAck)) == tcpflag::kSyn;
    TcpConnection*& slot = connections_[pairKey(source, destination)];
    if (slot == nullptr || (synOnly && slot->sawData)) {
        allConnections_.emplace_back();
        slot = &allConnections_.back();
        slot->side[0] = source;
        slot->side[1] = destination;
        if ((packet.tcpFlags & (tcpflag::kSyn | tcpflag::kAck)) ==
            (tcpflag::kSyn | tcpflag::kAck)) {
            // The SYN was not captured; the SYN-ACK tells who opened the connection.
            std::swap(slot->side[0], slot->side[1]);
        }
    }
    TcpConnection& connection = *slot;
    const int side = source == connection.side[0] ? 0 : 1;
    const uint8_t* payload = frame.data.data() + packet.payloadOffset;

    if ((packet.tcpFlags & tcpflag::kSyn) != 0 && !connection.streams[side].started()) {
        connection.streams[side].start(packet.seq + 1);
    }
    if (connection.kind == StreamKind::Undecided) {
        classify(connection);
        if (connection.kind == StreamKind::Undecided && packet.payloadLength > 0) {
            if (looksLikeQ931Tpkt(payload, packet.payloadLength)) {
                connection.kind = StreamKind::CallSignalling;
                // The opener of the connection places the call; without its SYN, the first
                // sender of call signalling is taken for the originator.
                connection.originatorSide = connection.streams[0].started() ? 0 : side;
            } else {
                connection.kind = StreamKind::Other;
            }
        }
    }
    if (connection.kind != StreamKind::CallSignalling && connection.kind != StreamKind::H245) {
        return;
    }
    plans_[index].action = FramePlan::Action::Tcp;
    plans_[index].connection = &connection;
    plans_[index].side = side;
    if (packet.payloadLength == 0) {
        return;
    }
    connection.sawData = true;

    TcpReassembler& stream = connection.streams[side];
    std::vector<uint8_t> delivered;
    uint32_t at = stream.deliveredOffset();
    SegmentVerdict verdict = stream.add(packet.seq, payload, packet.payloadLength, delivered);
    switch (verdict) {
    case SegmentVerdict::Retransmitted:
    case SegmentVerdict::BeforeStart:
        ++report_.counters.tcpRetransmitted;
        break;
    case SegmentVerdict::Overlap:
        ++report_.counters.tcpOverlapping;
        break;
    case SegmentVerdict::OutOfOrder:
        ++report_.counters.tcpOutOfOrder;
        break;
    case SegmentVerdict::Empty:
    case SegmentVerdict::InOrder:
        break;
    }
    if (delivered.empty()) {
        return;
    }
    TpktFramer& framer = connection.framers[side];
    const bool wasBroken = framer.broken();
    std::vector<TpktMessage> messages = framer.push(at, delivered.data(), delivered.size());
    for (const TpktMessage& message : messages) {
        tcpMessage(connection, side, message);
    }
    if (framer.broken() && !wasBroken) {
        ++report_.counters.tpktBroken;
        report_.errors.push_back("frame " + std::to_string(frame_) + ": " +
                                 connection.side[side].text() + " -> " +
                                 connection.side[1 - side].text() +
                                 ": not TPKT framed; the rest of this stream passes unexamined");
    }
}

void Replayer::tcpMessage(TcpConnection& connection, int side, const TpktMessage& message) {
    MessageRecord entry;
    entry.frame = frame_;
    entry.fromOriginator = side == connection.originatorSide;
    entry.from = connection.side[side].text();
    entry.to = connection.side[1 - side].text();
    std::vector<uint8_t> replacement;
    if (connection.kind == StreamKind::CallSignalling) {
        if (connection.call == nullptr) {
            const int o = connection.originatorSide;
            Association call;
            call.originator = connection.side[o];
            call.destination = connection.side[1 - o];
            call.context.originatorIp = call.originator.ip;
            call.context.destinationIp = call.destination.ip;
            call.callIndex =
                newCall("H.323", call.originator.text() + " -> " + call.destination.text(),
                        call.originator, call.destination);
            call.hasCall = true;
            h323Calls_.push_back(call);
            connection.call = &h323Calls_.back();
        }
        callSignalling(connection, side, message, entry, replacement);
    } else {
        h245(connection, side, message, entry, replacement);
    }
    const size_t callIndex = connection.call->callIndex;
    const bool replace = entry.outcome == Outcome::Rewritten || entry.outcome == Outcome::Refused ||
                         entry.outcome == Outcome::Dropped;
    if (replace) {
        connection.edits[side].replace(message.start,
                                       message.start + static_cast<uint32_t>(message.bytes.size()),
                                       std::move(replacement));
    }
    record(callIndex, std::move(entry));
    learnH245Channels();
}

void Replayer::callSignalling(TcpConnection& connection, [[maybe_unused]] int side,
                              const TpktMessage& message, MessageRecord& record,
                              [[maybe_unused]] std::vector<uint8_t>& replacement) {
    const uint8_t* pdu = message.bytes.data() + 4;
    const size_t length = message.bytes.size() - 4;
    record.kind = "H.225 " + q931MessageName(pdu, length);
    Association& call = *connection.call;
    host_.begin(call.callIndex, frame_);
    if (length == 0) {
        translated(record, Outcome::Forwarded, 0, "empty TPKT");
        return;
    }
    if (call.shutDown) {
        translated(record, Outcome::Dropped, 0, "the call was shut down");
        return;
    }
    if (call.h225 == nullptr) {
        sockaddr_type a = call.originator.address();
        sockaddr_type b = call.destination.address();
        sockaddr_type c = makeAddress(host_.nat().announce(call.originator.ip, call.destination.ip),
                                      call.originator.port);
        sockaddr_type d = makeAddress(host_.nat().announce(call.destination.ip, call.originator.ip),
                                      call.destination.port);
        call.h225 = h323xlate_h225_create(&call.context, &a, &b, &c, &d);
    }
    int decoded = h323xlate_h225_decodeh225pdu(call.h225, pdu, static_cast<unsigned int>(length));
    if (decoded < 0) {
        translated(record, Outcome::Refused, decoded, "not a readable H.225 message");
        return;
    }
    int status = -1;
    int result =
        h323xlate_h225_translateh225pdu(call.h225, side == connection.originatorSide, &status);
    if (!h225BodyName(status).empty()) {
        record.kind = "H.225 " + h225BodyName(status);
    }
    if (result == 1) {
        std::vector<uint8_t> out(4 + kMaxTpktPayload);
        auto outLength = static_cast<unsigned int>(kMaxTpktPayload);
        int encoded = h323xlate_h225_encodeh225pdu(call.h225, out.data() + 4, &outLength);
        if (encoded == 1) {
            out.resize(4 + outLength);
            out[0] = 3;
            out[1] = 0;
            writeBe16(out.data() + 2, static_cast<uint16_t>(out.size()));
            replacement = std::move(out);
            translated(record, Outcome::Rewritten, result, nullptr);
        } else {
            translated(record, Outcome::Forwarded, result,
                       encoded == 0 ? nullptr : "re-encoding failed; sent as received");
        }
    } else if (result == 0) {
        translated(record, Outcome::Forwarded, result, nullptr);
    } else if (result == -1) {
        translated(record, Outcome::Dropped, result, "from the wrong call leg");
    } else {
        call.shutDown = true;
        translated(record, Outcome::Refused, result, "call shut down");
    }
}

void Replayer::h245(TcpConnection& connection, [[maybe_unused]] int side,
                    const TpktMessage& message, MessageRecord& record,
                    [[maybe_unused]] std::vector<uint8_t>& replacement) {
    const uint8_t* pdu = message.bytes.data() + 4;
    const size_t length = message.bytes.size() - 4;
    record.kind = h245MessageName(pdu, length);
    Association& call = *connection.call;
    host_.begin(call.callIndex, frame_);
    if (call.shutDown) {
        translated(record, Outcome::Dropped, 0, "the call was shut down");
        return;
    }
    std::vector<uint8_t> out(4 + kMaxTpktPayload);
    auto outLength = static_cast<unsigned int>(kMaxTpktPayload);
    int result = h323xlate_h225_translateh245pdu(call.h225, side == connection.originatorSide, pdu,
                                                 static_cast<unsigned int>(length), out.data() + 4,
                                                 &outLength);
    if (result > 0) {
        out.resize(4 + outLength);
        out[0] = 3;
        out[1] = 0;
        writeBe16(out.data() + 2, static_cast<uint16_t>(out.size()));
        replacement = std::move(out);
        translated(record, Outcome::Rewritten, result, nullptr);
    } else if (result == 0) {
        translated(record, Outcome::Forwarded, result, nullptr);
    } else {
        translated(record, Outcome::Refused, result, nullptr);
    }
}

void Replayer::learnH245Channels() {
    for (const H245Announcement& announcement : host_.takeH245Announcements()) {
        h245Expected_[Endpoint{announcement.ip, announcement.port}] = announcement;
    }
}

void Replayer::finishStreams() {
    for (TcpConnection& connection : allConnections_) {
        if (connection.kind != StreamKind::CallSignalling && connection.kind != StreamKind::H245) {
            continue;
        }
        for (int side = 0; side < 2; ++side) {
            size_t held = connection.streams[side].heldBytes();
            size_t pending = connection.framers[side].pending();
            if (connection.call == nullptr) {
                continue;
            }
            CallRecord& call = report_.calls[connection.call->callIndex];
            const std::string direction =
                connection.side[side].text() + " -> " + connection.side[1 - side].text();
            if (held != 0) {
                report_.counters.tcpMissingBytes += held;
                call.errors.push_back(direction + ": " + std::to_string(held) +
                                      " bytes after a missing segment were not examined");
            }
            if (pending != 0) {
                call.errors.push_back(direction + ": " + std::to_string(pending) +
                                      " bytes of an incomplete TPKT at the end of the capture");
            }
        }
    }
}

// Frames pass the firewall with their checksums recomputed, as a NAT device sends them; captures
// taken on a sending host often hold checksums its network card was to fill in.
void Replayer::writeForwarded(CaptureWriter& writer, const CapturedFrame& frame,
                              const DecodedPacket& packet) {
    if (!packet.ok() || frame.data.size() < frame.wireLength) {
        writer.write(frame, frame.data, frame.wireLength);
        return;
    }
    std::vector<uint8_t> data = frame.data;
    fixChecksums(data, packet);
    writer.write(frame, data, frame.wireLength);
}

bool Replayer::write(const Capture& capture, std::string& error) {
    CaptureWriter writer;
    if (!writer.open(options_.output, capture.linkType, error)) {
        return false;
    }
    for (size_t i = 0; i < capture.frames.size(); ++i) {
        const CapturedFrame& frame = capture.frames[i];
        const FramePlan& plan = plans_[i];
        if (plan.action == FramePlan::Action::Drop) {
            continue;
        }
        DecodedPacket packet = decodePacket(capture.linkType, frame.data.data(), frame.data.size());
        if (plan.action == FramePlan::Action::Keep ||
            (plan.action == FramePlan::Action::Tcp && plan.connection->edits[0].empty() &&
             plan.connection->edits[1].empty())) {
            writeForwarded(writer, frame, packet);
            continue;
        }
        std::vector<uint8_t> payload;
        uint32_t seq = packet.seq;
        uint32_t ack = packet.ack;
        if (plan.action == FramePlan::Action::Replace) {
            payload = plan.payload;
        } else {
            const TcpConnection& connection = *plan.connection;
            const int side = plan.side;
            const TcpReassembler& own = connection.streams[side];
            const TcpReassembler& other = connection.streams[1 - side];
            const uint8_t* data = frame.data.data() + packet.payloadOffset;
            if (own.started()) {
                int64_t offset = own.offsetOf(packet.seq);
                payload = connection.edits[side].segmentPayload(offset, data, packet.payloadLength);
                seq = own.firstSequence() +
                      static_cast<uint32_t>(connection.edits[side].mapOffset(offset));
            } else {
                payload.assign(data, data + packet.payloadLength);
            }
            if ((packet.tcpFlags & tcpflag::kAck) != 0 && other.started()) {
                ack = other.firstSequence() +
                      static_cast<uint32_t>(
                          connection.edits[1 - side].mapOffset(other.offsetOf(packet.ack)));
            }
        }
        if (packet.payloadOffset - packet.ipOffset + payload.size() > 65535) {
            ++report_.counters.rewriteTooLong;
            writeForwarded(writer, frame, packet);
            continue;
        }
        std::vector<uint8_t> rebuilt = rebuildFrame(frame.data.data(), packet, payload, seq, ack);
        writer.write(frame, rebuilt, static_cast<uint32_t>(rebuilt.size()));
    }
    return writer.close(error);
}

} // namespace

CaptureReport replayCapture(const std::string& path, const ReplayOptions& options,
                            ReplayStatus& status) {
    CaptureReport report;
    report.file = path;
    for (const NatRule& rule : options.host.nat.rules()) {
        report.natRules.push_back(rule.toString());
    }
    Capture capture;
    std::string error;
    if (!readCapture(path, capture, error)) {
        report.linkType = "unreadable";
        report.errors.push_back("cannot read " + path + ": " + error);
        status = ReplayStatus::CannotOpen;
        return report;
    }
    report.linkType = std::string(linkTypeName(capture.linkType)) + ", link type " +
                      std::to_string(capture.linkType);
    if (!linkTypeSupported(capture.linkType)) {
        report.counters.frames = capture.frames.size();
        report.errors.push_back("link type " + std::to_string(capture.linkType) +
                                " is not supported (Ethernet, Linux cooked and raw IPv4 are)");
        status = ReplayStatus::UnsupportedLink;
        return report;
    }
    status = ReplayStatus::Ok;
    {
        Replayer replayer(options, report);
        replayer.run(capture);
        if (!options.output.empty()) {
            if (replayer.write(capture, error)) {
                report.output = options.output;
            } else {
                report.errors.push_back("cannot write " + options.output + ": " + error);
                status = ReplayStatus::CannotWrite;
            }
        }
    }
    if (!capture.readError.empty()) {
        report.errors.push_back("the capture is damaged after frame " +
                                std::to_string(capture.frames.size()) + ": " + capture.readError);
        if (status == ReplayStatus::Ok) {
            status = ReplayStatus::Damaged;
        }
    }
    return report;
}

} // namespace replay
