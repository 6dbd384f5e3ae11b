#include "sdp/session.h"

#include "host/registry.h"
#include "host/sockaddr.h"
#include "text/line_reader.h"
#include "text/tokens.h"
#include "text/trim.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string_view>

// The steps that have one caller each are defined inline: they stay apart in the source, and
// the per-message path pays no calls for the split.
namespace {

constexpr int kSectionNone = 0;
constexpr int kSectionKept = 1;
constexpr int kSectionRemoved = 2;

// A line of the form "<type>=<value>" (RFC 4566 section 5).
bool IsTypedLine(const std::string& line) {
    return line.size() >= 2 && line[1] == '=';
}

bool Contains(const std::string& text, const char* what) {
    return text.find(what) != std::string::npos;
}

uint32_t MediaKindOf(const std::string& media) {
    if (media == "audio")
        return VOIPXLATE_MEDIA_AUDIO;
    if (media == "video")
        return VOIPXLATE_MEDIA_VIDEO;
    if (media == "message")
        return VOIPXLATE_MEDIA_MESSAGE;
    return VOIPXLATE_MEDIA_UNKNOWN;
}

// Appends the address text without port: dotted quad for IPv4, the common text form otherwise.
void AppendAddress(SdpBodyText& text, const sockaddr_type& address) {
    if (address.family != VOIPXLATE_FAMILY_IPV4) {
        std::ostringstream other;
        iponly_to_strm(other, address);
        text += other.str();
        return;
    }
    for (int i = 0; i < 4; ++i) {
        if (i != 0)
            text += '.';
        text += std::to_string(address.addr[i]);
    }
}

} // namespace

bool ParseConnectionLine(sockaddr_type& address, const std::string& cLine) {
    // After "c=": the network type, the address type and the address, separated by white space;
    // more tokens may follow.
    const IsWhiteSpace isSpace;
    std::string_view tokens[3];
    unsigned count = 0;
    for (std::size_t i = 2; i < cLine.size() && count < 3;) {
        while (i < cLine.size() && isSpace(cLine[i]))
            ++i;
        const std::size_t first = i;
        while (i < cLine.size() && !isSpace(cLine[i]))
            ++i;
        if (i > first)
            tokens[count++] = std::string_view(cLine).substr(first, i - first);
    }
    return count == 3 && tokens[0] == "IN" && tokens[1] == "IP4" &&
           string_to_sockaddr_type(address, std::string(tokens[2]));
}

// The connection line of every media line is parsed here. Most name the session's line, which is
// parsed once per traversal rather than once per media line.
bool SdpTranslator::ParseMediaConnection(sockaddr_type& address, const std::string& cLine) {
    if (scratch_.parsedConnectionLine != &cLine) {
        scratch_.parsedConnectionOk = ParseConnectionLine(scratch_.parsedConnection, cLine);
        scratch_.parsedConnectionLine = &cLine;
    }
    address = scratch_.parsedConnection;
    return scratch_.parsedConnectionOk;
}

void SdpTranslator::Copy(int pass, const std::string& line) {
    if (pass == 2) {
        scratch_.body += line;
        scratch_.body += "\r\n";
    }
}

bool SdpTranslator::GetEntityBodyAsSDP(const std::string* contentType, const char* body,
                                       unsigned bodyLength) {
    scratch_.lines.clear();
    if (contentType == nullptr)
        return false;
    VF_LOG_NOEOL(HostContext(), logsource::kSIP, 2) << "Got thru content-type\n";
    // Only a bare application/sdp: a type with parameters is not taken for SDP.
    const std::string_view type = TrimmedSpaces(contentType->data(), contentType->size());
    if (type.size() != 15 || strncasecmp(type.data(), "application/sdp", 15) != 0)
        return false;
    VF_LOG_NOEOL(HostContext(), logsource::kSIP, 2) << "Got thru application/sdp\n";
    VF_LOG_NOEOL(HostContext(), logsource::kSIP, 2) << "Got thru more \n";

    SIPLineParser lines;
    lines.Start(body, bodyLength);
    const char* line = nullptr;
    unsigned length = 0;
    while (lines.GetLine(&line, &length)) {
        const std::string_view trimmed = TrimmedSpaces(line, length);
        if (trimmed.empty()) {
            VF_LOG(HostContext(), logsource::kSIP, 3) << "SIP  ignoring empty line in SDP body";
            continue;
        }
        scratch_.lines.emplace_back(trimmed.data(), trimmed.size());
    }
    scratch_.rtpMap.Clear();
    return true;
}

int SdpTranslator::Translate(bool fromSrc, bool isForward, std::size_t limit) {
    scratch_.body.SetLimit(limit);
    if (TraverseSDP(fromSrc, isForward, 1) < 0)
        return -1;
    const int result = TraverseSDP(fromSrc, isForward, 2);
    return result < 0 ? -1 : result;
}

// Pass 1 learns (media ports, allowed codecs, hold); pass 2 opens channels and writes the body.
int SdpTranslator::TraverseSDP(bool fromSrc, bool isForward, int pass) {
    state_.mediaSectionState = kSectionNone;
    if (pass == 1)
        state_.holdState = 0;
    scratch_.sessionConnectionLine.clear();
    scratch_.body.clear();
    scratch_.parsedConnectionLine = nullptr;
    if (pass == 2) {
        // The allowed payload lists are complete after the first pass; from here on they are
        // only asked whether they hold a payload type.
        scratch_.rtpMap.ForEach(
            [](std::vector<uint32_t>& types) { std::sort(types.begin(), types.end()); });
    }
    int result = 0;
    std::size_t searchedTo = 0;
    const SdpLines& lines = scratch_.lines;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (!IsTypedLine(line)) {
            VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring malformed line in SDP";
            Copy(pass, line);
            continue;
        }
        switch (line[0]) {
        case 'c':
            // Session-level connection data; each kept media section gets its own c= line.
            if (state_.mediaSectionState == kSectionNone)
                scratch_.sessionConnectionLine = line;
            break;
        case 'a':
            result |= HandleAttributeLine(pass, line);
            break;
        case 'm': {
            state_.mediaSectionState = kSectionKept;
            const std::string& connectionLine = MediaConnectionLine(i, searchedTo);
            if (connectionLine.empty()) {
                VF_LOG(HostContext(), logsource::kSIP, 2)
                    << "SIP  Ignoring m= line without matching c= line";
                Copy(pass, line);
                break;
            }
            const int handled = HandleMediaLine(isForward, pass, line, connectionLine);
            if (handled < 0)
                return handled;
            result |= handled;
            break;
        }
        case 'o':
            if (pass == 2 && state_.mediaSectionState != kSectionRemoved)
                result |= HandleOriginLine(fromSrc, isForward, line);
            break;
        default:
            if (state_.mediaSectionState != kSectionRemoved)
                Copy(pass, line);
            break;
        }
    }
    VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  TraverseSDP returned " << result;
    return result;
}

// A c= line inside the media section overrides the session-level one: the first c= line after
// the m= line, unless an m= line comes first. Lines of two characters or fewer are passed over,
// so a bare "m=" ends no section. searchedTo is where the last search stopped (the index of the
// c= or m= line it found, or the end); a search that passed over line i already holds the answer.
inline const std::string& SdpTranslator::MediaConnectionLine(std::size_t i,
                                                             std::size_t& searchedTo) const {
    const SdpLines& lines = scratch_.lines;
    if (i >= searchedTo) {
        std::size_t j = i + 1;
        for (; j < lines.size(); ++j) {
            const std::string& next = lines[j];
            if (next.size() > 2 && next[1] == '=' && (next[0] == 'm' || next[0] == 'c'))
                break;
        }
        searchedTo = j;
    }
    if (searchedTo < lines.size() && lines[searchedTo][0] == 'c')
        return lines[searchedTo];
    return scratch_.sessionConnectionLine;
}

// m=<media> <port> <proto> <fmt> ...: reads the kind and the port. @return 1 when the line is to
// be handled further, else its result (the line has been copied as it is).
inline int SdpTranslator::ReadMediaLine(int pass, const std::string& mLine,
                                        const std::string& cLine) {
    std::vector<std::string>& tokens = scratch_.tokens;
    tokens.clear();
    if (Tokenise<IsWhiteSpace>(tokens, mLine, 2) <= 2) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring SDP m= line < 4 tokens";
        Copy(pass, mLine);
        return 0;
    }
    state_.lastMediaPort = DecimalValue(tokens[1]);
    const uint32_t port = static_cast<uint32_t>(state_.lastMediaPort);
    if (port > 65535) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with bogus port";
        Copy(pass, mLine);
        return -1;
    }
    if (port == 0) {
        // A rejected or disabled stream (RFC 3264 section 6) stays as it is.
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with port 0";
        Copy(pass, mLine);
        Copy(pass, cLine);
        return 0;
    }
    endpoints_.lastMediaPort = port;
    state_.mediaKind = MediaKindOf(tokens[0]);
    return 1;
}

// The payload types the first pass allowed for port; an empty list is made for a port that had
// no rtpmap attribute (newlyAdded).
inline const std::vector<uint32_t>& SdpTranslator::AllowedPayloads(uint32_t port, bool isMessage,
                                                                   bool& newlyAdded) {
    const std::vector<uint32_t>* codecs = scratch_.rtpMap.Find(port);
    newlyAdded = codecs == nullptr;
    if (!newlyAdded)
        return *codecs;
    if (!isMessage) {
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << "SIP   Received a m line without a corresponding a= line";
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP   adding to the rtpmap";
    } else {
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << "SIP   Received a IM message with session type = message";
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << "SIP   Received a IM message adding to the rtpmap";
    }
    return scratch_.rtpMap.Add(port);
}

int SdpTranslator::HandleMediaLine(bool isForward, int pass, const std::string& mLine,
                                   const std::string& cLine) {
    const int read = ReadMediaLine(pass, mLine, cLine);
    if (read <= 0)
        return read;
    if (pass == 1)
        return 0;
    const uint32_t port = static_cast<uint32_t>(state_.lastMediaPort);
    const bool isMessage = state_.mediaKind == VOIPXLATE_MEDIA_MESSAGE;

    VF_LOG(HostContext(), logsource::kSIP, 5)
        << "SIP   Check to see if all codecs removed for this session";
    bool newlyAdded = false;
    const std::vector<uint32_t>& allowed = AllowedPayloads(port, isMessage, newlyAdded);
    if (port == 9) {
        // Port 9 (discard) is the placeholder of RFC 4145 / RFC 6337: nothing to relay.
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with port 9";
        Copy(pass, mLine);
        Copy(pass, cLine);
        return 0;
    }
    if (!isMessage && !newlyAdded && allowed.empty()) {
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << "SIP  Removing SDP for port " << port << " as it has no media left";
        state_.mediaSectionState = kSectionRemoved;
        return -1;
    }
    state_.mediaSectionState = kSectionKept;

    sockaddr_type address;
    if (!ParseMediaConnection(address, cLine)) {
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << "SIP  Ignoring SDP m= line with unparseable c=";
        Copy(pass, mLine);
        return 0;
    }
    address.port = htons(static_cast<uint16_t>(port));
    voipxlate_mediasessioninformation* session = MediaSessionOf(port);
    if (session == nullptr) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring excess SDP m= lines";
        Copy(pass, mLine);
        return 0;
    }
    if (OpenChannel(*session, isForward, address) < 0)
        return -1;
    WriteMediaLines(TranslatedAddress(*session, isForward, port), isMessage);
    return 1;
}

// One session record per media kind: a second audio line shares the first one's record.
inline voipxlate_mediasessioninformation* SdpTranslator::MediaSessionOf(uint32_t port) {
    const int32_t kind = static_cast<int32_t>(state_.mediaKind);
    if (voipxlate_mediasessioninformation* session = sessions_.FindIf(
            [kind](const voipxlate_mediasessioninformation& s) { return s.mediaKind == kind; }))
        return session;
    return sessions_.Create(static_cast<int32_t>(port), kind, nullptr);
}

// The address the new m= and c= lines announce.
inline const sockaddr_type&
SdpTranslator::TranslatedAddress(voipxlate_mediasessioninformation& session, bool isForward,
                                 uint32_t port) const {
    const sockaddr_type& received = isForward ? session.forwardRTP : session.reverseRTP;
    sockaddr_type& translated =
        isForward ? session.forwardRTPTranslated : session.reverseRTPTranslated;
    if (option_ == 0) {
        // Without proxy behaviour the endpoints reach each other directly.
        if (!isForward) {
            VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  No proxy behavior";
        }
        translated = received;
    }
    VF_LOG(HostContext(), logsource::kSIP, 2)
        << (isForward ? "SIP  INVITE media for session " : "SIP  INVITE reply media for session ")
        << port << " translated from " << received << " to " << translated;
    return translated;
}

inline void SdpTranslator::WriteMediaLines(const sockaddr_type& translated, bool isMessage) {
    const std::vector<std::string>& tokens = scratch_.tokens;
    SdpBodyText& body = scratch_.body;
    body += "m=";
    body += tokens[0];
    body += ' ';
    body += std::to_string(ntohs(translated.port));
    body += isMessage ? " TCP/MSRP" : " RTP/AVP";
    for (std::size_t i = 3; i < tokens.size(); ++i) {
        body += ' ';
        body += tokens[i];
    }
    body += "\r\nc=IN IP4 ";
    AppendAddress(body, translated);
    body += "\r\n";
}

// Opens (or re-opens) the channel of one direction of a session for the address just announced.
int SdpTranslator::OpenChannel(voipxlate_mediasessioninformation& session, bool forward,
                               const sockaddr_type& address) {
    const uint32_t openFlag =
        forward ? VOIPXLATE_SESSION_FORWARD_OPEN : VOIPXLATE_SESSION_REVERSE_OPEN;
    const bool open = (session.flags & openFlag) != 0;
    if (state_.holdState != 0 && open) {
        // Hold re-announces the same stream with another direction attribute: keep the channel.
        if (!forward) {
            VF_LOG_NOEOL(HostContext(), logsource::kSIP, 2)
                << "SIP   Doing nothing for holdState\n";
        }
        return 0;
    }
    if (open && address == (forward ? session.forwardRTP : session.reverseRTP))
        return 0; // a retransmission or a re-offer of the same address

    sockaddr_type control = address;
    control.port = htons(static_cast<uint16_t>(ntohs(address.port) + 1));
    MediaSessions::SetAddresses(session, forward, address, control);

    const bool isMessage = state_.mediaKind == VOIPXLATE_MEDIA_MESSAGE;
    const int slot = isMessage ? VOIPXLATE_OPEN_IM_CHANNEL : VOIPXLATE_OPEN_RTP_CHANNEL;
    const bool hostOpens = VoIPTranslator::Current().Function(slot) != nullptr;
    int32_t& userData = forward ? session.forwardUserData : session.reverseUserData;
    if (hostOpens && userData != 0) {
        VF_LOG(HostContext(), logsource::kSIP, 4)
            << (forward ? "closing down existing forward mctx @ " : "closing down existing mctx @ ")
            << userData;
        if (sessions_.CloseChannel(session, forward))
            userData = 0;
    }
    if (sessions_.OpenChannel(session, forward, slot) < 0) {
        VF_LOG(HostContext(), logsource::kSIP, 2)
            << (isMessage ? "openIMChannelFunction failed" : "openRTPChannelFunction failed");
        return -1;
    }
    if (hostOpens)
        LogChannelHandle(forward, userData);
    return 0;
}

inline void SdpTranslator::LogChannelHandle(bool forward, int32_t handle) const {
    if (!forward) {
        VF_LOG(HostContext(), logsource::kSIP, 4)
            << "setting sessionInfo->reverseUserData to new mctx @ " << handle;
    } else if (state_.mediaKind == VOIPXLATE_MEDIA_MESSAGE) {
        VF_LOG(HostContext(), logsource::kSIP, 4)
            << "setting sessionInfo->forwardUserData to new mctx @ " << handle;
    } else {
        VF_LOG(HostContext(), logsource::kSIP, 4)
            << "setting sessionInfo->forwardUserData to mctx @ " << handle;
    }
}

int SdpTranslator::HandleAttributeLine(int pass, const std::string& aLine) {
    if (pass == 2 && state_.mediaSectionState == kSectionRemoved)
        return 1;
    if (pass == 2 && Contains(aLine, "sendrecv")) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  addind sendrecv";
        Copy(pass, aLine);
        return 0;
    }
    if (pass == 2 && Contains(aLine, "setup")) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  adding setup:";
        Copy(pass, aLine);
        return 0;
    }
    if (pass == 1 && (Contains(aLine, "sendonly") || Contains(aLine, "recvonly")) &&
        state_.mediaKind != VOIPXLATE_MEDIA_MESSAGE && HandleHold() < 0)
        return -1;

    // Only rtpmap lines need tokens; the first token alone tells the others apart.
    const IsWhiteSpace isSpace;
    std::size_t first = 2;
    while (first < aLine.size() && isSpace(aLine[first]))
        ++first;
    if (first >= aLine.size()) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Ignoring SDP a= line < 1 token";
        Copy(pass, aLine);
        return 0;
    }
    return HandleRtpMap(pass, aLine, first);
}

[[gnu::always_inline]] inline int SdpTranslator::HandleHold() {
    VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  Got a hold signal";
    state_.holdState = 1;
    const auto onHold =
        VoIPTranslator::Current().Callback<voipxlate_call_on_hold_function>(VOIPXLATE_CALL_ON_HOLD);
    if (onHold == nullptr) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  callonhold cb is not set";
    } else if (onHold(HostContext(), 1) != 0) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP  callonhold returned -1";
        return -1;
    }
    return 0;
}

// a=rtpmap:<payload type> <encoding name>/<clock rate>[/<parameters>], its first token starting
// at first. The first pass asks the host about the codec; the second drops a vetoed one's line
// (the m= line's format list stays).
[[gnu::always_inline]] inline int SdpTranslator::HandleRtpMap(int pass, const std::string& aLine,
                                                              std::size_t first) {
    const IsWhiteSpace isSpace;
    std::size_t last = first;
    while (last < aLine.size() && !isSpace(aLine[last]))
        ++last;
    const std::size_t colon = aLine.find(':', first);
    if (colon >= last || aLine.compare(first, colon - first, "rtpmap") != 0) {
        Copy(pass, aLine);
        return 0;
    }
    std::size_t second = last;
    while (second < aLine.size() && isSpace(aLine[second]))
        ++second;
    if (second >= aLine.size()) {
        Copy(pass, aLine); // no encoding name
        return 0;
    }
    std::size_t secondEnd = second;
    while (secondEnd < aLine.size() && !isSpace(aLine[secondEnd]))
        ++secondEnd;

    // The payload type is read in place: DecimalValue stops at the white space after it. An empty
    // one ("rtpmap:" alone) reads as 0.
    const uint32_t payload =
        colon + 1 == last ? 0u : static_cast<uint32_t>(DecimalValue(aLine.c_str() + colon + 1));
    const uint32_t port = static_cast<uint32_t>(state_.lastMediaPort);
    std::vector<uint32_t>* codecs = scratch_.rtpMap.Find(port);
    if (codecs == nullptr) {
        VF_LOG(HostContext(), logsource::kSIP, 2) << "SIP   Handle_A_Line adding to the rtpmap";
        codecs = &scratch_.rtpMap.Add(port);
    }
    if (pass == 1) {
        const std::string::size_type slash = aLine.find('/', second);
        if (slash >= secondEnd)
            return 0;
        const std::string name = aLine.substr(second, slash - second);
        // Without the host's veto function no codec is known to be acceptable.
        const auto allow = VoIPTranslator::Current().Callback<voipxlate_allow_codec_function>(
            VOIPXLATE_ALLOW_CODEC);
        if (allow != nullptr &&
            allow(HostContext(), static_cast<int>(state_.mediaKind), name.c_str()) != 0)
            codecs->push_back(payload);
        return 0;
    }
    const std::vector<uint32_t>& allowed = *codecs; // sorted for the second pass
    if (std::binary_search(allowed.begin(), allowed.end(), payload)) {
        Copy(pass, aLine);
        return 0;
    }
    return 1;
}

int SdpTranslator::HandleOriginLine(bool fromSrc, bool isForward, const std::string& oLine) {
    VF_LOG(HostContext(), logsource::kSIP, 5) << "Handle_O_Line called fromSrc=" << fromSrc
                                              << " isForward=" << isForward << " line=" << oLine;
    VF_LOG(HostContext(), logsource::kSIP, 5)
        << "Handle_O_Line called dstTranslated=" << endpoints_.dstTranslated
        << " srcTranslated=" << endpoints_.srcTranslated;
    // o=<username> <sess-id> <sess-version> <nettype> <addrtype> <unicast-address>
    const sockaddr_type* replacement = nullptr;
    if (endpoints_.dstTranslated && !fromSrc)
        replacement = &endpoints_.destination;
    else if (endpoints_.srcTranslated && fromSrc)
        replacement = &endpoints_.translatedSource;
    if (replacement == nullptr) {
        VF_LOG(HostContext(), logsource::kSIP, 5) << "no o= translation";
        Copy(2, oLine);
        return 0;
    }
    std::vector<std::string>& tokens = scratch_.tokens;
    tokens.clear();
    const unsigned count = Tokenise<IsWhiteSpace>(tokens, oLine, 0);
    if (count != 6) {
        VF_LOG(HostContext(), logsource::kSIP, 3)
            << "SIP  Ignoring SDP o= line wth " << count << " tokens";
        Copy(2, oLine);
        return 0;
    }
    for (int i = 0; i < 5; ++i) {
        scratch_.body += tokens[i];
        scratch_.body += ' ';
    }
    AppendAddress(scratch_.body, *replacement);
    scratch_.body += "\r\n";
    return 1;
}

void CloseMedia(MediaSessions& sessions) {
    for (voipxlate_mediasessioninformation& session : sessions) {
        if ((session.flags & VOIPXLATE_SESSION_IN_USE) == 0)
            continue;
        if (session.forwardUserData != 0) {
            if (!sessions.CloseChannel(session, true))
                return;
            session.forwardUserData = 0;
        }
        if (session.reverseUserData != 0) {
            if (!sessions.CloseChannel(session, false))
                return;
            session.reverseUserData = 0;
        }
    }
}
