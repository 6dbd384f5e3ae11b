#include "host.h"

#include <cctype>
#include <cstdint>

#include "packet.h"

namespace replay {

Host* Host::active_ = nullptr;

sockaddr_type makeAddress(uint32_t ip, uint16_t port) {
    sockaddr_type address = {};
    address.family = VOIPXLATE_FAMILY_IPV4;
    // port is kept in network order: its first byte in memory is the high byte.
    auto* portBytes = reinterpret_cast<uint8_t*>(&address.port);
    writeBe16(portBytes, port);
    writeBe32(address.addr, ip);
    return address;
}

uint32_t addressIp(const sockaddr_type& address) {
    return readBe32(address.addr);
}

uint16_t addressPort(const sockaddr_type& address) {
    return readBe16(reinterpret_cast<const uint8_t*>(&address.port));
}

std::string addressText(const sockaddr_type& address) {
    if (address.family != VOIPXLATE_FAMILY_IPV4) {
        return "(family " + std::to_string(address.family) + ")";
    }
    return ipToString(addressIp(address)) + ":" + std::to_string(addressPort(address));
}

namespace {

const char* mediaKindName(int kind) {
    switch (kind) {
    case VOIPXLATE_MEDIA_AUDIO:
        return "audio";
    case VOIPXLATE_MEDIA_VIDEO:
        return "video";
    case VOIPXLATE_MEDIA_DATA:
        return "data";
    case VOIPXLATE_MEDIA_MESSAGE:
        return "message";
    default:
        return "unknown";
    }
}

bool sameIgnoringCase(const std::string& a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i] != '\0'; ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return i == a.size() && b[i] == '\0';
}

template <typename F> voipxlate_function slot(F* function) {
    return reinterpret_cast<voipxlate_function>(function);
}

} // namespace

Host::Host(const HostOptions& options, std::vector<CallRecord>& calls)
    : options_(options), calls_(calls), pool_(options.ports) {
    active_ = this;
    voipxlate_setfunction(VOIPXLATE_LOG, slot(&Host::logLine));
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, slot(&Host::openChannel));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL, slot(&Host::closeChannel));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, slot(&Host::allowCodec));
    voipxlate_setfunction(VOIPXLATE_OPEN_H245_CHANNEL, slot(&Host::openH245));
    voipxlate_setfunction(VOIPXLATE_CALL_INFORMATION, slot(&Host::callInformation));
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR, slot(&Host::translateAddr));
    voipxlate_setfunction(VOIPXLATE_REMOVE_MAPPING, slot(&Host::removeMapping));
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, slot(&Host::translateMediaAddr));
    voipxlate_setfunction(VOIPXLATE_CALL_ON_HOLD, slot(&Host::callOnHold));
    voipxlate_setfunction(VOIPXLATE_OPEN_IM_CHANNEL, slot(&Host::openChannel));
    voipxlate_setloglevel(options.logLevel);
}

Host::~Host() {
    for (int index = 0; index < VOIPXLATE_SLOT_COUNT; ++index) {
        voipxlate_setfunction(index, nullptr);
    }
    voipxlate_setloglevel(0);
    active_ = nullptr;
}

void Host::begin(size_t call, uint64_t frame) {
    attributing_ = true;
    call_ = call;
    frame_ = frame;
    log_.clear();
    notes_.clear();
}

std::vector<LogLine> Host::end(std::string& notes) {
    attributing_ = false;
    notes = std::move(notes_);
    notes_.clear();
    return std::move(log_);
}

std::vector<H245Announcement> Host::takeH245Announcements() {
    return std::move(announcements_);
}

CallRecord* Host::current() {
    return attributing_ && call_ < calls_.size() ? &calls_[call_] : nullptr;
}

uint32_t Host::peerOf(const CallContext* context, uint32_t ip, bool forward) const {
    if (ip == context->originatorIp) {
        return context->destinationIp;
    }
    if (ip == context->destinationIp) {
        return context->originatorIp;
    }
    return forward ? context->destinationIp : context->originatorIp;
}

bool Host::translates(uint32_t ip, uint32_t peer) const {
    return options_.nat.announce(ip, peer) != ip;
}

void Host::logLine(void* /*ctx*/, const char* /*file*/, int /*line*/, int level, const char* text) {
    if (active_ != nullptr && active_->attributing_) {
        active_->log_.push_back(LogLine{level, text != nullptr ? text : ""});
    }
}

int Host::openChannel(void* ctx, int direction, voipxlate_mediasessioninformation* session,
                      int32_t* handle) {
    Host* host = active_;
    if (host == nullptr || ctx == nullptr || session == nullptr || handle == nullptr) {
        return -1;
    }
    const bool forward = direction != 0;
    const sockaddr_type& rtp = forward ? session->forwardRTP : session->reverseRTP;
    const sockaddr_type& rtcp = forward ? session->forwardRTCP : session->reverseRTCP;
    sockaddr_type& rtpOut = forward ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcpOut =
        forward ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;

    Channel channel;
    CallRecord* call = host->current();
    if (rtp.family == VOIPXLATE_FAMILY_IPV4) {
        uint32_t ip = addressIp(rtp);
        uint32_t peer = host->peerOf(static_cast<const CallContext*>(ctx), ip, forward);
        if (host->translates(ip, peer)) {
            std::optional<uint16_t> port = host->pool_.allocatePair();
            if (!port) {
                if (call != nullptr) {
                    call->errors.push_back("frame " + std::to_string(host->frame_) +
                                           ": no free public port pair for media");
                }
                return -1;
            }
            uint32_t publicIp = host->options_.nat.announce(ip, peer);
            rtpOut = makeAddress(publicIp, *port);
            rtcpOut = makeAddress(publicIp, static_cast<uint16_t>(*port + 1));
            channel.publicPort = *port;
        }
    }
    *handle = ++host->nextHandle_;
    if (call != nullptr) {
        MediaRecord media;
        media.frame = host->frame_;
        media.kind = mediaKindName(session->mediaKind);
        media.codec = session->codecName != nullptr ? session->codecName : "";
        media.forward = forward;
        media.session = session->sessionID;
        media.announcedRtp = addressText(rtp);
        media.announcedRtcp = addressText(rtcp);
        media.translatedRtp = addressText(rtpOut);
        media.translatedRtcp = addressText(rtcpOut);
        channel.call = host->call_;
        channel.media = call->media.size();
        call->media.push_back(media);
    }
    host->channels_[*handle] = channel;
    return 0;
}

int Host::closeChannel(void* /*ctx*/, int32_t handle, int /*direction*/) {
    Host* host = active_;
    if (host == nullptr) {
        return -1;
    }
    auto it = host->channels_.find(handle);
    if (it == host->channels_.end()) {
        return -1;
    }
    const Channel& channel = it->second;
    if (channel.call < host->calls_.size() &&
        channel.media < host->calls_[channel.call].media.size()) {
        host->calls_[channel.call].media[channel.media].closed = true;
    }
    if (channel.publicPort != 0) {
        host->pool_.release(channel.publicPort);
        host->pool_.release(static_cast<uint16_t>(channel.publicPort + 1));
    }
    host->channels_.erase(it);
    return 0;
}

int Host::allowCodec(void* /*ctx*/, int kind, const char* codec) {
    Host* host = active_;
    if (host == nullptr || codec == nullptr) {
        return 1;
    }
    for (const std::string& denied : host->options_.deniedCodecs) {
        if (sameIgnoringCase(denied, codec)) {
            if (CallRecord* call = host->current()) {
                call->filteredCodecs.push_back(std::string(codec) + " (" + mediaKindName(kind) +
                                               ") at frame " + std::to_string(host->frame_));
            }
            return 0;
        }
    }
    return 1;
}

int Host::openH245(void* ctx, int direction, const sockaddr_type* announced,
                   sockaddr_type* replacement) {
    Host* host = active_;
    if (host == nullptr || ctx == nullptr || announced == nullptr || replacement == nullptr) {
        return -1;
    }
    auto* context = static_cast<const CallContext*>(ctx);
    const bool byOriginator = direction != 0;
    CallRecord* call = host->current();
    if (announced->family == VOIPXLATE_FAMILY_IPV4) {
        uint32_t ip = addressIp(*announced);
        uint32_t peer = byOriginator ? context->destinationIp : context->originatorIp;
        if (host->translates(ip, peer)) {
            std::optional<uint16_t> port = host->pool_.allocateOne();
            if (!port) {
                if (call != nullptr) {
                    call->errors.push_back("frame " + std::to_string(host->frame_) +
                                           ": no free public port for the H.245 relay");
                }
                return -1;
            }
            *replacement = makeAddress(host->options_.nat.announce(ip, peer), *port);
        }
        host->announcements_.push_back(
            H245Announcement{context, byOriginator, ip, addressPort(*announced)});
    }
    if (call != nullptr) {
        call->relays.push_back("H.245 " + addressText(*announced) + " announced as " +
                               addressText(*replacement) + " (frame " +
                               std::to_string(host->frame_) + ")");
    }
    return 0;
}

void Host::callInformation(voipxlate_callinformation* /*call*/) {
    if (active_ != nullptr && active_->attributing_) {
        active_->notes_ += active_->notes_.empty() ? "new dialog" : ", new dialog";
    }
}

void Host::translateAddr(void* ctx, int direction, const sockaddr_type* found,
                         sockaddr_type* replacement, void** mapping) {
    Host* host = active_;
    if (host == nullptr || ctx == nullptr || found == nullptr || replacement == nullptr) {
        return;
    }
    if (found->family == VOIPXLATE_FAMILY_IPV4) {
        uint32_t ip = addressIp(*found);
        uint32_t peer = host->peerOf(static_cast<const CallContext*>(ctx), ip, direction != 0);
        if (host->translates(ip, peer)) {
            *replacement = makeAddress(host->options_.nat.announce(ip, peer), addressPort(*found));
        }
    }
    int32_t id = ++host->nextHandle_;
    if (mapping != nullptr) {
        *mapping = reinterpret_cast<void*>(static_cast<intptr_t>(id));
    }
    if (CallRecord* call = host->current()) {
        call->relays.push_back("RAS mapping #" + std::to_string(id) + " " + addressText(*found) +
                               " -> " + addressText(*replacement) + " (frame " +
                               std::to_string(host->frame_) + ")");
    }
}

void Host::removeMapping(void* /*ctx*/, void* mapping) {
    Host* host = active_;
    if (host == nullptr) {
        return;
    }
    if (CallRecord* call = host->current()) {
        call->relays.push_back("RAS mapping #" +
                               std::to_string(reinterpret_cast<intptr_t>(mapping)) +
                               " removed (frame " + std::to_string(host->frame_) + ")");
    }
}

int Host::translateMediaAddr(void* ctx, int direction, const sockaddr_type* found,
                             sockaddr_type* replacement, void* /*scratch*/) {
    Host* host = active_;
    if (host == nullptr || ctx == nullptr || found == nullptr || replacement == nullptr) {
        return -1;
    }
    if (found->family == VOIPXLATE_FAMILY_IPV4) {
        uint32_t ip = addressIp(*found);
        uint32_t peer = host->peerOf(static_cast<const CallContext*>(ctx), ip, direction != 0);
        if (host->translates(ip, peer)) {
            std::optional<uint16_t> port = host->pool_.allocateOne();
            if (!port) {
                return -1;
            }
            *replacement = makeAddress(host->options_.nat.announce(ip, peer), *port);
        }
    }
    if (CallRecord* call = host->current()) {
        call->relays.push_back("T.120 " + addressText(*found) + " -> " + addressText(*replacement) +
                               " (frame " + std::to_string(host->frame_) + ")");
    }
    return 0;
}

int Host::callOnHold(void* /*ctx*/, int /*flag*/) {
    if (active_ != nullptr) {
        if (CallRecord* call = active_->current()) {
            call->holds.push_back(active_->frame_);
        }
    }
    return 0;
}

} // namespace replay
