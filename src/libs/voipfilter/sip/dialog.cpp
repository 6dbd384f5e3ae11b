// Per-message translation of SIP requests and responses and the re-assembly of rewritten
// messages. Headers stay as received (apart from Content-Length when the body changed): the
// firewall's SIP proxy relays signalling on its own sockets, so only the SDP inside INVITE
// transactions names addresses that the NAT must translate.
#include "sip/translator.h"

#include "host/registry.h"

#include <cstring>
#include <string_view>

using DialogInfo = SIPTranslator::DialogInfo;

void DialogInfo::KeepBody(const char* body, unsigned bodyLength, bool emitSdpBody) {
    scratch_.receivedBody = std::string_view(body, bodyLength);
    scratch_.emitSdpBody = emitSdpBody;
}

int DialogInfo::TranslateINVITE(SIPConnection& connection, bool fromSrc, SIPMIMEType& headers,
                                const char* body, unsigned bodyLength, char* out,
                                unsigned* outLength, int option) {
    if (!GetEntityBodyAsSDP(headers, body, bodyLength)) {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Ignoring INVITE with unparseable entity body";
        return 0;
    }
    KeepBody(nullptr, 0, true);
    sdpBody.SetLimit(*outLength);
    uint8_t& state = callInformation.state;
    if (state != VOIPXLATE_SIP_NONE && state != VOIPXLATE_SIP_INVITED) {
        VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Handling ReINVITE, fromSrc=" << fromSrc;
    } else {
        // A retransmitted first INVITE is handled as a first INVITE again.
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling first INVITE, fromSrc=" << fromSrc;
        state = VOIPXLATE_SIP_INVITED;
    }
    if (TraverseSDP(connection, fromSrc, true, 1, option) < 0)
        return -1;
    int result = TraverseSDP(connection, fromSrc, true, 2, option);
    if (result < 0)
        return -1;
    if (result == 1)
        headers.SetField("Content-Length", 'l', static_cast<unsigned>(sdpBody.size()));
    result |= RewriteVia(connection, fromSrc, headers);
    return RewritePDU(result, connection, fromSrc, true, headers, out, outLength);
}

int DialogInfo::TranslateINVITEResponse(SIPConnection& connection, bool fromSrc, unsigned status,
                                        SIPMIMEType& headers, const char* body, unsigned bodyLength,
                                        char* out, unsigned* outLength, int option) {
    uint8_t& state = callInformation.state;
    if (state == VOIPXLATE_SIP_INVITED) {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling first INVITE response, fromSrc=" << fromSrc;
    } else {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Handling ReINVITE response, fromSrc=" << fromSrc;
    }

    int result = 0;
    KeepBody(body, bodyLength, false);
    const bool success = status >= 200 && status <= 299;
    if (status == 183 || success) {
        // Session progress (RFC 3262 early media) and 2xx carry the answer.
        if (!GetEntityBodyAsSDP(headers, body, bodyLength)) {
            VF_LOG(hostContext, logsource::kSIP, 1)
                << "SIP  Ignoring INVITE with unparseable entity body";
            return 0;
        }
        KeepBody(nullptr, 0, true);
        sdpBody.SetLimit(*outLength);
        if (TraverseSDP(connection, fromSrc, false, 1, option) < 0)
            return -1;
        result = TraverseSDP(connection, fromSrc, false, 2, option);
        if (result < 0)
            return -1;
        if (result == 1)
            headers.SetField("Content-Length", 'l', static_cast<unsigned>(sdpBody.size()));
        if (success) {
            if (state == VOIPXLATE_SIP_INVITED) {
                VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Call connected";
                state = VOIPXLATE_SIP_CONNECTED;
            } else {
                VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  Reinvite accepted";
            }
        }
    } else if (status >= 300) {
        VF_LOG(hostContext, logsource::kSIP, 1) << "SIP  INVITE failed with code " << status;
        state = VOIPXLATE_SIP_FAILED;
    }
    return RewritePDU(result, connection, fromSrc, false, headers, out, outLength);
}

int DialogInfo::TranslateACK(SIPConnection& connection, bool fromSrc,
                             const std::vector<std::string>& /*tokens*/, SIPMIMEType& headers,
                             const char* body, unsigned bodyLength, char* out,
                             unsigned* outLength) {
    KeepBody(body, bodyLength, false);
    uint8_t& state = callInformation.state;
    // Only the ACK of the first INVITE's final answer moves the dialog; an ACK to a re-INVITE's
    // 2xx passes unchanged.
    if (state != VOIPXLATE_SIP_CONNECTED && state != VOIPXLATE_SIP_FAILED)
        return 0;
    if (state == VOIPXLATE_SIP_CONNECTED)
        state = VOIPXLATE_SIP_ESTABLISHED;
    return RewritePDU(0, connection, fromSrc, true, headers, out, outLength);
}

int DialogInfo::TranslateBYE(SIPConnection& connection, bool fromSrc,
                             const std::vector<std::string>& /*tokens*/, SIPMIMEType& headers,
                             const char* body, unsigned bodyLength, char* out,
                             unsigned* outLength) {
    KeepBody(body, bodyLength, false);
    // The dialog ends when the BYE is answered, not here.
    VF_LOG(hostContext, logsource::kSIP, 2) << "SIP Translating BYE";
    return RewritePDU(0, connection, fromSrc, true, headers, out, outLength);
}

int DialogInfo::TranslateRequest(SIPConnection& connection, bool fromSrc,
                                 const std::vector<std::string>& /*tokens*/, SIPMIMEType& headers,
                                 const char* body, unsigned bodyLength, char* out,
                                 unsigned* outLength) {
    KeepBody(body, bodyLength, false);
    return RewritePDU(RewriteVia(connection, fromSrc, headers), connection, fromSrc, true, headers,
                      out, outLength);
}

int DialogInfo::TranslateResponse(SIPConnection& connection, bool fromSrc, unsigned /*status*/,
                                  const std::vector<std::string>& /*tokens*/, SIPMIMEType& headers,
                                  const char* body, unsigned bodyLength, char* out,
                                  unsigned* outLength) {
    KeepBody(body, bodyLength, false);
    return RewritePDU(0, connection, fromSrc, false, headers, out, outLength);
}

// Via stays as received: responses find their way back along it (RFC 3261 section 18.2.2), and
// the host's proxy answers for the firewall's own hop.
int DialogInfo::RewriteVia(SIPConnection& /*connection*/, bool /*fromSrc*/,
                           SIPMIMEType& /*headers*/) {
    return 0;
}

// Contact stays as received: the proxy relays in-dialog requests, so the remote target needs no
// translation here.
int DialogInfo::RewriteContact(SIPConnection& /*connection*/, bool /*fromSrc*/, bool /*isRequest*/,
                               SIPMIMEType& /*headers*/) {
    return 0;
}

int DialogInfo::RewritePDU(int result, SIPConnection& connection, bool fromSrc, bool isRequest,
                           SIPMIMEType& headers, char* out, unsigned* outLength) {
    if (result >= 0)
        result |= RewriteContact(connection, fromSrc, isRequest, headers);
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

    // Start line (already in out), CR LF, the header block, the body: the rewritten SDP when this
    // message's SDP was traversed, otherwise the body as received. Lengths are counted, never
    // taken from the text: a body may hold NUL bytes.
    const std::size_t startLength = scratch_.startLength;
    const uint64_t bodyLength =
        scratch_.emitSdpBody ? sdpBody.size() : scratch_.receivedBody.size();
    const uint64_t tailLength = 2 + uint64_t{headers.OutputLength()} + bodyLength;
    const uint64_t needed = startLength + tailLength + 1;
    if (*outLength < needed) {
        VF_LOG(hostContext, logsource::kSIP, 1)
            << "SIP  Output buffer too small for translated SIP of size " << needed;
        return -1;
    }
    // The SDP text is complete here: only a body larger than the buffer is cut short.
    const std::string_view bodyText =
        scratch_.emitSdpBody ? std::string_view(sdpBody.text()) : scratch_.receivedBody;
    char* const tail = out + startLength;
    tail[0] = '\r';
    tail[1] = '\n';
    char* const bodyStart = headers.WriteTo(tail + 2);
    if (!bodyText.empty())
        std::memcpy(bodyStart, bodyText.data(), bodyText.size());
    bodyStart[bodyText.size()] = '\0';
    *outLength = static_cast<unsigned>(startLength + tailLength);
    return result;
}
