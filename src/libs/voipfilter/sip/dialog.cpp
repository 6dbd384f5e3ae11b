// Per-message translation of SIP requests and responses and the re-assembly of rewritten
// messages. Headers stay as received (apart from Content-Length when the body changed): the
// firewall's SIP proxy relays signalling on its own sockets, so only the SDP inside INVITE
// transactions names addresses that the NAT must translate. Via stays as it is (responses find
// their way back along it, RFC 3261 section 18.2.2, and the host's proxy answers for the
// firewall's own hop), and so does Contact (the proxy relays in-dialog requests).
#include "sip/dialog.h"

#include "host/media_sessions.h"
#include "host/registry.h"

#include <cstring>

namespace {

// The Content-Type value, or null when the message has none.
const std::string* ContentType(const SIPMIMEType& headers) {
    const auto field = headers.GetField("Content-Type", 'c');
    return field == headers.end() ? nullptr : &field->value;
}

} // namespace

DialogInfo::DialogInfo(std::string id, const std::string& tag)
    : dialogId(std::move(id)), callInformation(), fromTag(tag) {}

SdpTranslator DialogInfo::Sdp(SIPConnection& connection, SdpScratch& scratch, int option) {
    return SdpTranslator(sdp_, scratch, MediaSessions(hostContext, callInformation),
                         SdpEndpoints{connection.destination, connection.translatedSource,
                                      connection.srcTranslated, connection.dstTranslated,
                                      connection.lastMediaPort},
                         option);
}

bool DialogInfo::ReadSdpBody(SdpTranslator& sdp, const SIPMessageParts& message) {
    if (sdp.GetEntityBodyAsSDP(ContentType(message.headers), message.body.data(),
                               static_cast<unsigned>(message.body.size())))
        return true;
    VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Ignoring INVITE with unparseable entity body";
    return false;
}

void DialogInfo::CloseMedia() {
    MediaSessions sessions(hostContext, callInformation);
    ::CloseMedia(sessions);
}

int DialogInfo::TranslateSdp(SdpTranslator& sdp, bool fromSrc, bool isForward,
                             const SIPMessageParts& message, unsigned limit) {
    const int result = sdp.Translate(fromSrc, isForward, limit);
    if (result == 1)
        message.headers.SetField("Content-Length", 'l', static_cast<unsigned>(sdp.Body().size()));
    return result;
}

int DialogInfo::TranslateINVITE(SIPConnection& connection, bool fromSrc,
                                const SIPMessageParts& message, SdpScratch& scratch, SIPOutput out,
                                int option) {
    SdpTranslator sdp = Sdp(connection, scratch, option);
    if (!ReadSdpBody(sdp, message))
        return 0;
    uint8_t& state = callInformation.state;
    if (state != VOIPXLATE_SIP_NONE && state != VOIPXLATE_SIP_INVITED) {
        VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Handling ReINVITE, fromSrc=" << fromSrc;
    } else {
        // A retransmitted first INVITE is handled as a first INVITE again.
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling first INVITE, fromSrc=" << fromSrc;
        state = VOIPXLATE_SIP_INVITED;
    }
    const int result = TranslateSdp(sdp, fromSrc, true, message, *out.length);
    if (result < 0)
        return -1;
    return RewritePDU(result, fromSrc, true, message, sdp, out);
}

int DialogInfo::TranslateINVITEResponse(SIPConnection& connection, bool fromSrc, unsigned status,
                                        const SIPMessageParts& message, SdpScratch& scratch,
                                        SIPOutput out, int option) {
    uint8_t& state = callInformation.state;
    if (state == VOIPXLATE_SIP_INVITED) {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling first INVITE response, fromSrc=" << fromSrc;
    } else {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling ReINVITE response, fromSrc=" << fromSrc;
    }
    const bool success = status >= 200 && status <= 299;
    if (status != 183 && !success) {
        if (status >= 300) {
            VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  INVITE failed with code " << status;
            state = VOIPXLATE_SIP_FAILED;
        }
        return RewritePDU(0, fromSrc, false, message, out);
    }
    // Session progress (RFC 3262 early media) and 2xx carry the answer.
    SdpTranslator sdp = Sdp(connection, scratch, option);
    if (!ReadSdpBody(sdp, message))
        return 0;
    const int result = TranslateSdp(sdp, fromSrc, false, message, *out.length);
    if (result < 0)
        return -1;
    if (success) {
        if (state == VOIPXLATE_SIP_INVITED) {
            VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Call connected";
            state = VOIPXLATE_SIP_CONNECTED;
        } else {
            VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Reinvite accepted";
        }
    }
    return RewritePDU(result, fromSrc, false, message, sdp, out);
}

int DialogInfo::TranslateACK(bool fromSrc, const SIPMessageParts& message, SIPOutput out) {
    uint8_t& state = callInformation.state;
    // Only the ACK of the first INVITE's final answer moves the dialog; an ACK to a re-INVITE's
    // 2xx passes unchanged.
    if (state != VOIPXLATE_SIP_CONNECTED && state != VOIPXLATE_SIP_FAILED)
        return 0;
    if (state == VOIPXLATE_SIP_CONNECTED)
        state = VOIPXLATE_SIP_ESTABLISHED;
    return RewritePDU(0, fromSrc, true, message, out);
}

int DialogInfo::TranslateBYE(bool fromSrc, const SIPMessageParts& message, SIPOutput out) {
    // The dialog ends when the BYE is answered, not here.
    VF_LOG(hostContext, logsource::kSIP, 2) << "SIP Translating BYE";
    return RewritePDU(0, fromSrc, true, message, out);
}

int DialogInfo::TranslateRequest(bool fromSrc, const SIPMessageParts& message, SIPOutput out) {
    return RewritePDU(0, fromSrc, true, message, out);
}

int DialogInfo::TranslateResponse(bool fromSrc, const SIPMessageParts& message, SIPOutput out) {
    return RewritePDU(0, fromSrc, false, message, out);
}

int DialogInfo::RewritePDU(int result, bool fromSrc, bool isRequest, const SIPMessageParts& message,
                           std::string_view body, uint64_t bodySize, SIPOutput out) {
    SIPMIMEType& headers = message.headers;
    // A pre-loaded route set (section 8.1.2) is left to the proxy.
    if (isRequest && headers.GetField("Route", 0) != headers.end()) {
        VF_LOG(hostContext, logsource::kSIP, 2) << "SIP not removing Route: header ";
    }
    if (result >= 0) {
        if (auto notify = VoIPTranslator::Current().Callback<voipxlate_rewrite_notify_function>(
                VOIPXLATE_REWRITE_NOTIFY))
            result |= notify(fromSrc, isRequest, &headers);
    }
    if (result <= 0)
        return result;

    // Start line, CR LF, the header block, the body. Lengths are counted, never taken from the
    // text: a body may hold NUL bytes. bodySize counts the whole body even where the text kept
    // less of it, so that a body larger than the buffer is refused rather than cut short.
    const std::string_view startLine = message.startLine;
    const uint64_t tailLength = 2 + uint64_t{headers.OutputLength()} + bodySize;
    const uint64_t needed = startLine.size() + tailLength + 1;
    if (*out.length < needed) {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Output buffer too small for translated SIP of size " << needed;
        return -1;
    }
    std::memcpy(out.text, startLine.data(), startLine.size());
    char* const tail = out.text + startLine.size();
    tail[0] = '\r';
    tail[1] = '\n';
    char* const bodyStart = headers.WriteTo(tail + 2);
    if (!body.empty())
        std::memcpy(bodyStart, body.data(), body.size());
    bodyStart[body.size()] = '\0';
    *out.length = static_cast<unsigned>(startLine.size() + tailLength);
    return result;
}
