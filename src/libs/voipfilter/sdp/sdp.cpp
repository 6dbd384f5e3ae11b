// SDP (RFC 4566) inside INVITE offers and their answers: each media line makes the host open a
// channel, and the addresses it returns replace those of the m=, c= and o= lines. rtpmap
// attributes pass the host's codec veto; sendonly/recvonly (RFC 3264 section 8.4) tell it of hold.
#include "sip/translator.h"

#include "host/registry.h"
#include "host/sockaddr.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <sstream>

using DialogInfo = SIPTranslator::DialogInfo;

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
    std::vector<std::string> tokens;
    tokens.reserve(4);
    return Tokenise<IsWhiteSpace>(tokens, cLine, 2) > 2 && tokens[0] == "IN" &&
           tokens[1] == "IP4" && string_to_sockaddr_type(address, tokens[2]);
}

// The connection line of every media line is parsed here. Most name the session's line, which is
// parsed once per traversal rather than once per media line.
bool DialogInfo::ParseMediaConnection(sockaddr_type& address, const std::string& cLine) {
    if (scratch_.parsedConnectionLine != &cLine) {
        scratch_.parsedConnectionOk = ParseConnectionLine(scratch_.parsedConnection, cLine);
        scratch_.parsedConnectionLine = &cLine;
    }
    address = scratch_.parsedConnection;
    return scratch_.parsedConnectionOk;
}

void DialogInfo::Copy(int pass, const std::string& line) {
    if (pass == 2) {
        sdpBody += line;
        sdpBody += "\r\n";
    }
}

bool DialogInfo::GetEntityBodyAsSDP(const SIPMIMEType& headers, const char* body,
                                    unsigned bodyLength) {
    sdpLines.clear();
    const auto contentType = headers.GetField("Content-Type", 'c');
    if (contentType == headers.end())
        return false;
    VF_LOG_NOEOL(hostContext, logsource::kSIP, 2) << "Got thru content-type\n";
    // Only a bare application/sdp: a type with parameters is not taken for SDP.
    std::string type = contentType->value;
    TrimSpaces(type);
    if (strcasecmp(type.c_str(), "application/sdp") != 0)
        return false;
    VF_LOG_NOEOL(hostContext, logsource::kSIP, 2) << "Got thru application/sdp\n";
    VF_LOG_NOEOL(hostContext, logsource::kSIP, 2) << "Got thru more \n";

    SIPLineParser lines;
    lines.Start(body, bodyLength);
    const char* line = nullptr;
    unsigned length = 0;
    while (lines.GetLine(&line, &length)) {
        const std::string_view trimmed = TrimmedSpaces(line, length);
        if (trimmed.empty()) {
            VF_LOG(hostContext, logsource::kSIP, 3) << "SIP  ignoring empty line in SDP body";
            continue;
        }
        sdpLines.emplace_back(trimmed.data(), trimmed.size());
    }
    rtpMap.clear();
    return true;
}

// Pass 1 learns (media ports, allowed codecs, hold); pass 2 opens channels and writes sdpBody.
int DialogInfo::TraverseSDP(SIPConnection& connection, bool fromSrc, bool isForward, int pass,
                            int option) {
    mediaSectionState = kSectionNone;
    if (pass == 1)
        holdState = 0;
    sessionConnectionLine.clear();
    sdpBody.clear();
    scratch_.parsedConnectionLine = nullptr;
    if (pass == 2) {
        // The allowed payload lists are complete after the first pass; from here on they are
        // only asked whether they hold a payload type.
        for (auto& entry : rtpMap)
            std::sort(entry.second.begin(), entry.second.end());
    }
    int result = 0;
    // Where the last search for a media section's connection line stopped: the index of the c= or
    // m= line it found, or the end.
    std::size_t searchedTo = 0;

    for (std::size_t i = 0; i < sdpLines.size(); ++i) {
        const std::string& line = sdpLines[i];
        if (!IsTypedLine(line)) {
            VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring malformed line in SDP";
            Copy(pass, line);
            continue;
        }
        switch (line[0]) {
        case 'c':
            // Session-level connection data; each kept media section gets its own c= line.
            if (mediaSectionState == kSectionNone)
                sessionConnectionLine = line;
            break;
        case 'a':
            result |= Handle_A_Line(pass, line);
            break;
        case 'm': {
            mediaSectionState = kSectionKept;
            // A c= line inside the media section overrides the session-level one: the first c=
            // line after this one, unless an m= line comes first. Lines of two characters or
            // fewer are passed over, so a bare "m=" ends no section; the search that passed over
            // such lines already holds the answer for them.
            if (i >= searchedTo) {
                std::size_t j = i + 1;
                for (; j < sdpLines.size(); ++j) {
                    const std::string& next = sdpLines[j];
                    if (next.size() > 2 && next[1] == '=' && (next[0] == 'm' || next[0] == 'c'))
                        break;
                }
                searchedTo = j;
            }
            const std::string* connectionLine = &sessionConnectionLine;
            if (searchedTo < sdpLines.size() && sdpLines[searchedTo][0] == 'c')
                connectionLine = &sdpLines[searchedTo];
            if (connectionLine->empty()) {
                VF_LOG(hostContext, logsource::kSIP, 2)
                    << "SIP  Ignoring m= line without matching c= line";
                Copy(pass, line);
                break;
            }
            const int handled =
                Handle_M_Line(connection, fromSrc, isForward, pass, line, *connectionLine, option);
            if (handled < 0)
                return handled;
            result |= handled;
            break;
        }
        case 'o':
            if (pass == 2 && mediaSectionState != kSectionRemoved)
                result |= Handle_O_Line(connection, fromSrc, isForward, line);
            break;
        default:
            if (mediaSectionState != kSectionRemoved)
                Copy(pass, line);
            break;
        }
    }
    VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  TraverseSDP returned " << result;
    return result;
}

int DialogInfo::Handle_M_Line(SIPConnection& connection, bool /*fromSrc*/, bool isForward, int pass,
                              const std::string& mLine, const std::string& cLine, int option) {
    // m=<media> <port> <proto> <fmt> ...
    std::vector<std::string>& tokens = scratch_.tokens;
    tokens.clear();
    if (Tokenise<IsWhiteSpace>(tokens, mLine, 2) <= 2) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP m= line < 4 tokens";
        Copy(pass, mLine);
        return 0;
    }
    lastMediaPort = DecimalValue(tokens[1]);
    const uint32_t port = static_cast<uint32_t>(lastMediaPort);
    if (port > 65535) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with bogus port";
        Copy(pass, mLine);
        return -1;
    }
    if (port == 0) {
        // A rejected or disabled stream (RFC 3264 section 6) stays as it is.
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with port 0";
        Copy(pass, mLine);
        Copy(pass, cLine);
        return 0;
    }
    const bool discardPort = port == 9;
    connection.lastMediaPort = port;
    mediaKind = MediaKindOf(tokens[0]);
    const bool isMessage = mediaKind == VOIPXLATE_MEDIA_MESSAGE;
    if (pass == 1)
        return 0;

    VF_LOG(hostContext, logsource::kSIP, 5)
        << "SIP   Check to see if all codecs removed for this session";
    auto codecs = rtpMap.find(port);
    bool newlyAdded = false;
    if (codecs == rtpMap.end()) {
        if (!isMessage) {
            VF_LOG(hostContext, logsource::kSIP, 2)
                << "SIP   Received a m line without a corresponding a= line";
            VF_LOG(hostContext, logsource::kSIP, 2) << "SIP   adding to the rtpmap";
        } else {
            VF_LOG(hostContext, logsource::kSIP, 2)
                << "SIP   Received a IM message with session type = message";
            VF_LOG(hostContext, logsource::kSIP, 2)
                << "SIP   Received a IM message adding to the rtpmap";
        }
        codecs = rtpMap.emplace(port, std::vector<uint32_t>()).first;
        newlyAdded = true;
    }
    if (discardPort) {
        // Port 9 (discard) is the placeholder of RFC 4145 / RFC 6337: nothing to relay.
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with port 9";
        Copy(pass, mLine);
        Copy(pass, cLine);
        return 0;
    }
    if (!isMessage && !newlyAdded && codecs->second.empty()) {
        VF_LOG(hostContext, logsource::kSIP, 2)
            << "SIP  Removing SDP for port " << port << " as it has no media left";
        mediaSectionState = kSectionRemoved;
        return -1;
    }
    mediaSectionState = kSectionKept;

    sockaddr_type address;
    if (!ParseMediaConnection(address, cLine)) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP m= line with unparseable c=";
        Copy(pass, mLine);
        return 0;
    }
    address.port = htons(static_cast<uint16_t>(port));

    // One session record per media kind: a second audio line shares the first one's record.
    voipxlate_mediasessioninformation* session = nullptr;
    for (voipxlate_mediasessioninformation& candidate : callInformation.sessions) {
        if ((candidate.flags & VOIPXLATE_SESSION_IN_USE) != 0 &&
            candidate.mediaKind == static_cast<int32_t>(mediaKind)) {
            session = &candidate;
            break;
        }
    }
    if (session == nullptr) {
        for (voipxlate_mediasessioninformation& candidate : callInformation.sessions) {
            if ((candidate.flags & VOIPXLATE_SESSION_IN_USE) == 0) {
                session = &candidate;
                std::memset(session, 0, sizeof *session);
                session->flags = VOIPXLATE_SESSION_IN_USE;
                session->sessionID = static_cast<int32_t>(port);
                session->mediaKind = static_cast<int32_t>(mediaKind);
                break;
            }
        }
    }
    if (session == nullptr) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring excess SDP m= lines";
        Copy(pass, mLine);
        return 0;
    }

    if (OpenChannel(*session, isForward, address) < 0)
        return -1;
    sockaddr_type& received = isForward ? session->forwardRTP : session->reverseRTP;
    sockaddr_type& translated =
        isForward ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    if (option == 0) {
        // Without proxy behaviour the endpoints reach each other directly.
        if (!isForward) {
            VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  No proxy behavior";
        }
        translated = received;
    }
    VF_LOG(hostContext, logsource::kSIP, 2)
        << (isForward ? "SIP  INVITE media for session " : "SIP  INVITE reply media for session ")
        << port << " translated from " << received << " to " << translated;

    sdpBody += "m=";
    sdpBody += tokens[0];
    sdpBody += ' ';
    sdpBody += std::to_string(ntohs(translated.port));
    sdpBody += isMessage ? " TCP/MSRP" : " RTP/AVP";
    for (std::size_t i = 3; i < tokens.size(); ++i) {
        sdpBody += ' ';
        sdpBody += tokens[i];
    }
    sdpBody += "\r\nc=IN IP4 ";
    AppendAddress(sdpBody, translated);
    sdpBody += "\r\n";
    return 1;
}

// Opens (or re-opens) the channel of one direction of a session for the address just announced.
int DialogInfo::OpenChannel(voipxlate_mediasessioninformation& session, bool forward,
                            const sockaddr_type& address) {
    const uint32_t openFlag =
        forward ? VOIPXLATE_SESSION_FORWARD_OPEN : VOIPXLATE_SESSION_REVERSE_OPEN;
    sockaddr_type& rtp = forward ? session.forwardRTP : session.reverseRTP;
    const bool open = (session.flags & openFlag) != 0;
    if (holdState != 0 && open) {
        // Hold re-announces the same stream with another direction attribute: keep the channel.
        if (!forward) {
            VF_LOG_NOEOL(hostContext, logsource::kSIP, 2) << "SIP   Doing nothing for holdState\n";
        }
        return 0;
    }
    if (open && address == rtp)
        return 0; // a retransmission or a re-offer of the same address

    sockaddr_type control = address;
    control.port = htons(static_cast<uint16_t>(ntohs(address.port) + 1));
    rtp = address;
    (forward ? session.forwardRTPTranslated : session.reverseRTPTranslated) = address;
    (forward ? session.forwardRTCP : session.reverseRTCP) = control;
    (forward ? session.forwardRTCPTranslated : session.reverseRTCPTranslated) = control;

    const VoIPTranslator& registry = VoIPTranslator::Current();
    const bool isMessage = mediaKind == VOIPXLATE_MEDIA_MESSAGE;
    const auto openChannel = registry.Callback<voipxlate_open_channel_function>(
        isMessage ? VOIPXLATE_OPEN_IM_CHANNEL : VOIPXLATE_OPEN_RTP_CHANNEL);
    if (openChannel == nullptr) {
        session.flags |= openFlag;
        return 0;
    }
    int32_t& userData = forward ? session.forwardUserData : session.reverseUserData;
    if (userData != 0) {
        VF_LOG(hostContext, logsource::kSIP, 4)
            << (forward ? "closing down existing forward mctx @ " : "closing down existing mctx @ ")
            << userData;
        if (const auto close =
                registry.Callback<voipxlate_close_channel_function>(VOIPXLATE_CLOSE_RTP_CHANNEL)) {
            close(hostContext, userData, forward ? 1 : 0);
            userData = 0;
        }
    }
    int32_t handle = 0;
    if (openChannel(hostContext, forward ? 1 : 0, &session, &handle) != 0) {
        VF_LOG(hostContext, logsource::kSIP, 2)
            << (isMessage ? "openIMChannelFunction failed" : "openRTPChannelFunction failed");
        return -1;
    }
    if (!forward) {
        VF_LOG(hostContext, logsource::kSIP, 4)
            << "setting sessionInfo->reverseUserData to new mctx @ " << handle;
    } else if (isMessage) {
        VF_LOG(hostContext, logsource::kSIP, 4)
            << "setting sessionInfo->forwardUserData to new mctx @ " << handle;
    } else {
        VF_LOG(hostContext, logsource::kSIP, 4)
            << "setting sessionInfo->forwardUserData to mctx @ " << handle;
    }
    userData = handle;
    session.flags |= openFlag;
    return 0;
}

int DialogInfo::Handle_A_Line(int pass, const std::string& aLine) {
    if (pass == 2 && mediaSectionState == kSectionRemoved)
        return 1;
    if (pass == 2 && Contains(aLine, "sendrecv")) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  addind sendrecv";
        Copy(pass, aLine);
        return 0;
    }
    if (pass == 2 && Contains(aLine, "setup")) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  adding setup:";
        Copy(pass, aLine);
        return 0;
    }
    if (pass == 1 && (Contains(aLine, "sendonly") || Contains(aLine, "recvonly")) &&
        mediaKind != VOIPXLATE_MEDIA_MESSAGE) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Got a hold signal";
        holdState = 1;
        const auto onHold = VoIPTranslator::Current().Callback<voipxlate_call_on_hold_function>(
            VOIPXLATE_CALL_ON_HOLD);
        if (onHold == nullptr) {
            VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  callonhold cb is not set";
        } else if (onHold(hostContext, 1) != 0) {
            VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  callonhold returned -1";
            return -1;
        }
    }

    // a=rtpmap:<payload type> <encoding name>/<clock rate>[/<parameters>]. Only rtpmap lines need
    // tokens; the first token alone tells the others apart.
    const IsWhiteSpace isSpace;
    std::size_t first = 2;
    while (first < aLine.size() && isSpace(aLine[first]))
        ++first;
    if (first >= aLine.size()) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP  Ignoring SDP a= line < 1 token";
        Copy(pass, aLine);
        return 0;
    }
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
    const uint32_t port = static_cast<uint32_t>(lastMediaPort);
    auto codecs = rtpMap.find(port);
    if (codecs == rtpMap.end()) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP   Handle_A_Line adding to the rtpmap";
        codecs = rtpMap.emplace(port, std::vector<uint32_t>()).first;
    }
    if (pass == 1) {
        const std::string::size_type slash = aLine.find('/', second);
        if (slash >= secondEnd)
            return 0;
        const std::string name = aLine.substr(second, slash - second);
        // Without the host's veto function no codec is known to be acceptable.
        const auto allow = VoIPTranslator::Current().Callback<voipxlate_allow_codec_function>(
            VOIPXLATE_ALLOW_CODEC);
        if (allow != nullptr && allow(hostContext, static_cast<int>(mediaKind), name.c_str()) != 0)
            codecs->second.push_back(payload);
        return 0;
    }
    const std::vector<uint32_t>& allowed = codecs->second; // sorted for the second pass
    if (std::binary_search(allowed.begin(), allowed.end(), payload)) {
        Copy(pass, aLine);
        return 0;
    }
    return 1; // a vetoed codec: its rtpmap goes, the m= line's format list stays
}

int DialogInfo::Handle_O_Line(SIPConnection& connection, bool fromSrc, bool isForward,
                              const std::string& oLine) {
    VF_LOG(hostContext, logsource::kSIP, 5) << "Handle_O_Line called fromSrc=" << fromSrc
                                            << " isForward=" << isForward << " line=" << oLine;
    VF_LOG(hostContext, logsource::kSIP, 5)
        << "Handle_O_Line called dstTranslated=" << connection.dstTranslated
        << " srcTranslated=" << connection.srcTranslated;
    // o=<username> <sess-id> <sess-version> <nettype> <addrtype> <unicast-address>
    const sockaddr_type* replacement = nullptr;
    if (connection.dstTranslated && !fromSrc)
        replacement = &connection.destination;
    else if (connection.srcTranslated && fromSrc)
        replacement = &connection.translatedSource;
    if (replacement == nullptr) {
        VF_LOG(hostContext, logsource::kSIP, 5) << "no o= translation";
        Copy(2, oLine);
        return 0;
    }
    std::vector<std::string>& tokens = scratch_.tokens;
    tokens.clear();
    const unsigned count = Tokenise<IsWhiteSpace>(tokens, oLine, 0);
    if (count != 6) {
        VF_LOG(hostContext, logsource::kSIP, 3)
            << "SIP  Ignoring SDP o= line wth " << count << " tokens";
        Copy(2, oLine);
        return 0;
    }
    for (int i = 0; i < 5; ++i) {
        sdpBody += tokens[i];
        sdpBody += ' ';
    }
    AppendAddress(sdpBody, *replacement);
    sdpBody += "\r\n";
    return 1;
}

void DialogInfo::CloseMedia() {
    const auto close = VoIPTranslator::Current().Callback<voipxlate_close_channel_function>(
        VOIPXLATE_CLOSE_RTP_CHANNEL);
    if (close == nullptr)
        return;
    for (voipxlate_mediasessioninformation& session : callInformation.sessions) {
        if ((session.flags & VOIPXLATE_SESSION_IN_USE) == 0)
            continue;
        if (session.forwardUserData != 0) {
            close(hostContext, session.forwardUserData, 1);
            session.forwardUserData = 0;
        }
        if (session.reverseUserData != 0) {
            close(hostContext, session.reverseUserData, 0);
            session.reverseUserData = 0;
        }
    }
}
