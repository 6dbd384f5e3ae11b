// Fast connect (H.323 8.1.7): the caller's proposed logical channels in SETUP, the callee's
// accepted ones in its answer, retransmitted answers, and refusal.
#include "h245/fast_start.h"

#include "asn1/asn_codec.h"
#include "h245/capabilities.h"
#include "h245/media_addresses.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <arpa/inet.h>

#include <vector>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

namespace {

// Log lines count fast start elements from 1.
constexpr unsigned kFirstElement = 1;

} // namespace

FastStartElement ClassifyFastStartElement(OpenLogicalChannel& olc) {
    FastStartElement element;
    if (olc.reverseLogicalChannelParameters_isPresent()) {
        element.reverse = true;
        auto& reverse = olc.ref_reverseLogicalChannelParameters();
        if (reverse.multiplexParameters_isPresent() &&
            reverse.ref_multiplexParameters().h2250LogicalChannelParameters_isSelected()) {
            element.parameters =
                &reverse.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
            element.dataType = &reverse.get_dataType();
        }
    } else {
        auto& forward = olc.ref_forwardLogicalChannelParameters();
        if (forward.ref_multiplexParameters().h2250LogicalChannelParameters_isSelected()) {
            element.parameters =
                &forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
            element.dataType = &forward.get_dataType();
        }
    }
    return element;
}

bool FastStart::DecodeElement(const ASN1::OCTET_STRING& element, unsigned number, const char* list,
                              DecodedElement& decoded) {
    bool canonical = false;
    if (ASN1::ASNDecode(element, decoded.olc, decoded.positions, canonical) < 0) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1)
            << "H.225\tcannot decode fastStart " << list << ' ' << number;
        return false;
    }
    const FastStartElement shape = ClassifyFastStartElement(decoded.olc);
    decoded.inPlace =
        canonical && shape.parameters != nullptr && HoldsIPv4MediaAddresses(*shape.parameters);
    return true;
}

void FastStart::WriteBack(DecodedElement& decoded, ASN1::OCTET_STRING& element) {
    const FastStartElement shape = ClassifyFastStartElement(decoded.olc);
    if (decoded.inPlace &&
        OverwriteMediaAddresses(decoded.positions, *shape.parameters, element.data())) {
        ASN1::VerifyRewrittenInPlace(decoded.olc, element.data(), element.size());
        return;
    }
    ASN1::ASNEncode(decoded.olc, element);
}

int FastStart::TranslateFastStartRequest(OctetStringList& fastStart) {
    auto allowCodec =
        VoIPTranslator::Current().Callback<voipxlate_allow_codec_function>(VOIPXLATE_ALLOW_CODEC);
    int result = 0;
    // Elements that are neither decodable nor allowed leave the proposal; they are removed at
    // the end, and only when the translation as a whole succeeds.
    std::vector<unsigned> dropped;
    for (unsigned i = 0; i < fastStart.size() && result >= 0; ++i) {
        const unsigned number = i + kFirstElement;
        ASN1::OCTET_STRING& element = fastStart[i];
        DecodedElement decoded;
        OpenLogicalChannel& olc = decoded.olc;
        if (!DecodeElement(element, number, "request", decoded)) {
            dropped.push_back(i);
            continue;
        }
        if (allowCodec != nullptr) {
            int kind;
            const char* name = ClassifyDataType(ClassifyFastStartElement(olc).dataType, kind);
            if (allowCodec(channels_.HostContext(), kind, name) == 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                    << "H.245\tCodec " << name << " in fastStart request was filtered out";
                dropped.push_back(i);
                continue;
            }
        }
        VF_LOG(channels_.HostContext(), logsource::kH245, 5)
            << "H.245\tTranslating fastStart request\n"
            << olc;
        const int r = TranslateFastStartOpenLogicalChannel(olc);
        if (r < 0) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                << "H.225\terror translating fastStart request " << number;
            result = -1;
            break;
        }
        if (r > 0) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                << "H.225\tfastStart request " << number << " translated";
            VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                << "H.245\tfastStart request translated :\n"
                << olc;
            WriteBack(decoded, element);
            result = 1;
        } else {
            VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                << "H.225\tfastStart request " << number << " not translated";
        }
    }
    if (result < 0 || dropped.empty())
        return result;
    for (auto it = dropped.rbegin(); it != dropped.rend(); ++it)
        fastStart.erase(fastStart.begin() + *it, fastStart.begin() + *it + 1);
    return 1;
}

int FastStart::TranslateFastStartOpenLogicalChannel(OpenLogicalChannel& olc) {
    FastStartElement element;
    if (olc.reverseLogicalChannelParameters_isPresent()) {
        element = ClassifyFastStartElement(olc);
    } else {
        // A forward element is taken to carry H.225.0 multiplex parameters; the accessor's
        // selection check stops an element of any other multiplex.
        auto& forward = olc.ref_forwardLogicalChannelParameters();
        element.parameters = &forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
        element.dataType = &forward.get_dataType();
    }
    if (element.parameters == nullptr || element.dataType == nullptr) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1) << "H.245\tMalformed fastStart OLC";
        return 0;
    }
    H2250LogicalChannelParameters& parameters = *element.parameters;
    const int sessionID = parameters.get_sessionID().getValue();
    voipxlate_mediasessioninformation* session =
        channels_.FindOrCreateSession(sessionID, element.dataType);
    if (session == nullptr) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1) << "H.245\ttoo many RTP sessions";
        return 0;
    }

    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }

    // Every proposal carries the caller's addresses, whichever way its media flows: the receive
    // channels say where the caller listens, the transmit channels where its RTCP goes.
    if (channels_.RequestMediaChannel(session, true, rtp, rtcp) < 0)
        return -1;
    VF_LOG(channels_.HostContext(), logsource::kH245, 5)
        << "H.245\tfastStart reverse OLC for session " << sessionID << " translated from "
        << session->forwardRTP << " to " << session->forwardRTPTranslated;
    WriteMediaAddresses(parameters, session->forwardRTPTranslated, session->forwardRTCPTranslated);
    return 1;
}

int FastStart::AcceptFastStartReply(bool fromOriginator, OctetStringList& fastStart) {
    const bool retranslating = (flags_ & setupflag::kFastStartAccepted) != 0;
    if (retranslating) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1)
            << "H.225\tfastStart already accepted - retranslating retransmission";
    }
    flags_ |= setupflag::kFastStartAccepted;

    // Forward elements first: a reverse element's addresses can only be rewritten once its
    // session's channel exists, whatever order the callee listed them in.
    int result = 0;
    for (int pass = 0; pass < 2 && result >= 0; ++pass) {
        for (unsigned i = 0; i < fastStart.size() && result >= 0; ++i) {
            const unsigned number = i + kFirstElement;
            ASN1::OCTET_STRING& element = fastStart[i];
            DecodedElement decoded;
            OpenLogicalChannel& olc = decoded.olc;
            if (!DecodeElement(element, number, "reply", decoded))
                continue;
            VF_LOG(channels_.HostContext(), logsource::kH245, 5)
                << "H.245\tTranslating fastStart reply\n"
                << olc;
            const int r = retranslating ? RetranslateFastStartReply(pass, fromOriginator, olc)
                                        : TranslateFastStartReply(pass, fromOriginator, olc);
            if (r < 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                    << "H.245\terror translating fastStart reply " << number;
                result = -1;
            } else if (r > 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                    << "H.245\tfastStart reply " << number << " translated";
                WriteBack(decoded, element);
                result = 1;
            } else {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                    << "H.245\tfastStart reply " << number << " not translated";
            }
        }
    }

    // Sessions the answer did not take up are released. The selection is by a clear in-use
    // bit, so the close calls go to records that no session holds (with whatever handles they
    // last had); in-use records keep their channels, answered or not.
    if (!retranslating && result >= 0)
        ReleaseUnofferedSessions();
    return result;
}

namespace {

// The reply element's session parameters for this pass: forward elements in pass 0, reverse
// ones in pass 1. Null when the element belongs to the other pass.
H2250LogicalChannelParameters* ReplyParameters(const FastStartElement& element, int pass) {
    if (pass == 0 ? element.reverse : !element.reverse)
        return nullptr;
    return element.parameters;
}

} // namespace

voipxlate_mediasessioninformation*
FastStart::MatchFastStartReply(int pass, OpenLogicalChannel& olc,
                               H2250LogicalChannelParameters** parameters) {
    const FastStartElement element = ClassifyFastStartElement(olc);
    if (element.parameters == nullptr || element.dataType == nullptr) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1) << "H.245\tMalformed fastStart reply";
        return nullptr;
    }
    *parameters = ReplyParameters(element, pass);
    if (*parameters == nullptr)
        return nullptr;
    voipxlate_mediasessioninformation* session =
        channels_.Sessions().Find((*parameters)->get_sessionID().getValue());
    if (session == nullptr) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 2)
            << "H.245\tfastStart reply not matched to offer";
    }
    return session;
}

int FastStart::RewriteFastStartReply(const voipxlate_mediasessioninformation& session,
                                     H2250LogicalChannelParameters& parameters) {
    VF_LOG(channels_.HostContext(), logsource::kH245, 3)
        << "H.245\tfastStart reply for session " << session.sessionID << " translated from "
        << session.reverseRTP << " to " << session.reverseRTPTranslated;
    WriteMediaAddresses(parameters, session.reverseRTPTranslated, session.reverseRTCPTranslated);
    return 1;
}

int FastStart::TranslateFastStartReply(int pass, bool /*fromOriginator: the reply
                                                                   always comes from the callee*/
                                       ,
                                       OpenLogicalChannel& olc) {
    H2250LogicalChannelParameters* parameters = nullptr;
    voipxlate_mediasessioninformation* session = MatchFastStartReply(pass, olc, &parameters);
    if (session == nullptr)
        return 0;
    session->flags |= VOIPXLATE_SESSION_ANSWERED;

    sockaddr_type rtp, rtcp;
    if (pass == 0) {
        // The callee's forward channel names where the callee receives RTP; its
        // RTCP address is the caller's concern and is not read.
        if (!parameters->mediaChannel_isPresent()) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 3)
                << "H.245\toutgoing OLC for " << session->sessionID << " contains no addresses";
            return 0;
        }
        DecodeH245TransportAddress(parameters->get_mediaChannel(), rtp);
        rtcp = rtp;
        SetPort(rtcp, ntohs(rtp.port) + 1u);
    } else {
        if (!(session->flags & VOIPXLATE_SESSION_REVERSE_OPEN)) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 3)
                << "H.245\treverse OLC found before translation has occurred";
            return 0;
        }
        rtp = session->reverseRTP;
        rtcp = session->reverseRTCP;
    }
    if (channels_.RequestMediaChannel(session, false, rtp, rtcp) < 0)
        return -1;
    return RewriteFastStartReply(*session, *parameters);
}

int FastStart::RetranslateFastStartReply(int pass, bool /*fromOriginator*/,
                                         OpenLogicalChannel& olc) {
    H2250LogicalChannelParameters* parameters = nullptr;
    voipxlate_mediasessioninformation* session = MatchFastStartReply(pass, olc, &parameters);
    if (session == nullptr)
        return 0;
    if (!(session->flags & VOIPXLATE_SESSION_ANSWERED)) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 2)
            << "H.245\tfastStart reply to offer that hasn't been accepted";
        return 0;
    }
    // A retransmitted answer gets the addresses of the first one; the host is not asked again.
    return RewriteFastStartReply(*session, *parameters);
}

void FastStart::RefuseFastStart() {
    if (flags_ & setupflag::kFastStartRefused)
        return;
    VF_LOG(channels_.HostContext(), logsource::kH245, 2) << "H245\tFastStart refused";
    flags_ |= setupflag::kFastStartRefused;
    MediaSessions& sessions = channels_.Sessions();
    for (voipxlate_mediasessioninformation& session : sessions) {
        if (!(session.flags & VOIPXLATE_SESSION_IN_USE))
            continue;
        VF_LOG(channels_.HostContext(), logsource::kH245, 2)
            << "H.245\treleasing media channel for session " << session.sessionID;
        session.flags &= ~VOIPXLATE_SESSION_IN_USE;
        sessions.CloseChannel(session, true);
    }
}

void FastStart::ReleaseUnofferedSessions() {
    // The selection is by a clear in-use bit, so the close calls go to records that no session
    // holds (with whatever handles they last had); in-use records keep their channels, answered
    // or not.
    MediaSessions& sessions = channels_.Sessions();
    for (const voipxlate_mediasessioninformation& session : sessions) {
        if (session.flags & VOIPXLATE_SESSION_IN_USE)
            continue;
        VF_LOG(channels_.HostContext(), logsource::kH245, 2)
            << "H.245\treleasing media channel for session " << session.sessionID;
        if (sessions.CloseChannel(session, true))
            sessions.CloseChannel(session, false);
    }
}
