// Fast connect (H.323 8.1.7): the caller's proposed logical channels in SETUP, the callee's
// accepted ones in its answer, retransmitted answers, and refusal.
#include "asn1/asn_codec.h"
#include "h225_xlate.h"
#include "h245_xlate.h"
#include "sockaddr.h"
#include "voip_translator.h"

#include <arpa/inet.h>
#include <vector>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

namespace {

// Log lines count fast start elements from 1.
constexpr unsigned kFirstElement = 1;

} // namespace

int H225TranslatorContext::TranslateFastStartRequest(OctetStringList& fastStart) {
    auto allowCodec =
        VoIPTranslator::Current().Callback<voipxlate_allow_codec_function>(VOIPXLATE_ALLOW_CODEC);
    int result = 0;
    // Elements that are neither decodable nor allowed leave the proposal; they are removed at
    // the end, and only when the translation as a whole succeeds.
    std::vector<unsigned> dropped;
    for (unsigned i = 0; i < fastStart.size() && result >= 0; ++i) {
        const unsigned number = i + kFirstElement;
        ASN1::OCTET_STRING& element = fastStart[i];
        OpenLogicalChannel olc;
        if (ASN1::ASNDecode(element, olc) < 0) {
            VF_LOG(HostContext(), logsource::kH245, 1)
                << "H.225\tcannot decode fastStart request " << number;
            dropped.push_back(i);
            continue;
        }
        if (allowCodec != nullptr) {
            int kind;
            const char* name = ClassifyDataType(ClassifyFastStartElement(olc).dataType, kind);
            if (allowCodec(HostContext(), kind, name) == 0) {
                VF_LOG(HostContext(), logsource::kH245, 2)
                    << "H.245\tCodec " << name << " in fastStart request was filtered out";
                dropped.push_back(i);
                continue;
            }
        }
        VF_LOG(HostContext(), logsource::kH245, 5) << "H.245\tTranslating fastStart request\n"
                                                   << olc;
        const int r = TranslateFastStartOpenLogicalChannel(olc);
        if (r < 0) {
            VF_LOG(HostContext(), logsource::kH245, 1)
                << "H.225\terror translating fastStart request " << number;
            result = -1;
            break;
        }
        if (r > 0) {
            VF_LOG(HostContext(), logsource::kH245, 2)
                << "H.225\tfastStart request " << number << " translated";
            VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tfastStart request translated :\n"
                                                       << olc;
            ASN1::ASNEncode(olc, element);
            result = 1;
        } else {
            VF_LOG(HostContext(), logsource::kH245, 2)
                << "H.225\tfastStart request " << number << " not translated";
        }
    }
    if (result < 0 || dropped.empty())
        return result;
    for (auto it = dropped.rbegin(); it != dropped.rend(); ++it)
        fastStart.erase(fastStart.begin() + *it, fastStart.begin() + *it + 1);
    return 1;
}

int H225TranslatorContext::TranslateFastStartOpenLogicalChannel(OpenLogicalChannel& olc) {
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
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tMalformed fastStart OLC";
        return 0;
    }
    H2250LogicalChannelParameters& parameters = *element.parameters;
    const int sessionID = parameters.get_sessionID().getValue();
    voipxlate_mediasessioninformation* session = FindOrCreateSession(sessionID, element.dataType);
    if (session == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\ttoo many RTP sessions";
        return 0;
    }

    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }

    // Every proposal carries the caller's addresses, whichever way its media flows: the receive
    // channels say where the caller listens, the transmit channels where its RTCP goes.
    if (RequestMediaChannel(session, true, rtp, rtcp) < 0)
        return -1;
    VF_LOG(HostContext(), logsource::kH245, 5)
        << "H.245\tfastStart reverse OLC for session " << sessionID << " translated from "
        << session->forwardRTP << " to " << session->forwardRTPTranslated;
    WriteMediaAddresses(parameters, session->forwardRTPTranslated, session->forwardRTCPTranslated);
    return 1;
}

int H225TranslatorContext::AcceptFastStartReply(bool fromOriginator, OctetStringList& fastStart) {
    const bool retranslating = (setupFlags_ & setupflag::kFastStartAccepted) != 0;
    if (retranslating) {
        VF_LOG(HostContext(), logsource::kH245, 1)
            << "H.225\tfastStart already accepted - retranslating retransmission";
    }
    setupFlags_ |= setupflag::kFastStartAccepted;

    // Forward elements first: a reverse element's addresses can only be rewritten once its
    // session's channel exists, whatever order the callee listed them in.
    int result = 0;
    for (int pass = 0; pass < 2 && result >= 0; ++pass) {
        for (unsigned i = 0; i < fastStart.size() && result >= 0; ++i) {
            const unsigned number = i + kFirstElement;
            ASN1::OCTET_STRING& element = fastStart[i];
            OpenLogicalChannel olc;
            if (ASN1::ASNDecode(element, olc) < 0) {
                VF_LOG(HostContext(), logsource::kH245, 1)
                    << "H.225\tcannot decode fastStart reply " << number;
                continue;
            }
            VF_LOG(HostContext(), logsource::kH245, 5) << "H.245\tTranslating fastStart reply\n"
                                                       << olc;
            const int r = retranslating ? RetranslateFastStartReply(pass, fromOriginator, olc)
                                        : TranslateFastStartReply(pass, fromOriginator, olc);
            if (r < 0) {
                VF_LOG(HostContext(), logsource::kH245, 1)
                    << "H.245\terror translating fastStart reply " << number;
                result = -1;
            } else if (r > 0) {
                VF_LOG(HostContext(), logsource::kH245, 2)
                    << "H.245\tfastStart reply " << number << " translated";
                ASN1::ASNEncode(olc, element);
                result = 1;
            } else {
                VF_LOG(HostContext(), logsource::kH245, 2)
                    << "H.245\tfastStart reply " << number << " not translated";
            }
        }
    }

    // Sessions the answer did not take up are released. The selection is by a clear in-use
    // bit, so the close calls go to records that no session holds (with whatever handles they
    // last had); in-use records keep their channels, answered or not.
    if (!retranslating && result >= 0) {
        auto closeChannel = VoIPTranslator::Current().Callback<voipxlate_close_channel_function>(
            VOIPXLATE_CLOSE_RTP_CHANNEL);
        for (voipxlate_mediasessioninformation& session : callInfo_.sessions) {
            if (session.flags & VOIPXLATE_SESSION_IN_USE)
                continue;
            VF_LOG(HostContext(), logsource::kH245, 2)
                << "H.245\treleasing media channel for session " << session.sessionID;
            if (closeChannel != nullptr) {
                closeChannel(HostContext(), session.forwardUserData, 1);
                closeChannel(HostContext(), session.reverseUserData, 0);
            }
        }
    }
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
H225TranslatorContext::MatchFastStartReply(int pass, OpenLogicalChannel& olc,
                                           H2250LogicalChannelParameters** parameters) {
    const FastStartElement element = ClassifyFastStartElement(olc);
    if (element.parameters == nullptr || element.dataType == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tMalformed fastStart reply";
        return nullptr;
    }
    *parameters = ReplyParameters(element, pass);
    if (*parameters == nullptr)
        return nullptr;
    voipxlate_mediasessioninformation* session =
        FindSession((*parameters)->get_sessionID().getValue());
    if (session == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tfastStart reply not matched to offer";
    }
    return session;
}

int H225TranslatorContext::RewriteFastStartReply(const voipxlate_mediasessioninformation& session,
                                                 H2250LogicalChannelParameters& parameters) {
    VF_LOG(HostContext(), logsource::kH245, 3)
        << "H.245\tfastStart reply for session " << session.sessionID << " translated from "
        << session.reverseRTP << " to " << session.reverseRTPTranslated;
    WriteMediaAddresses(parameters, session.reverseRTPTranslated, session.reverseRTCPTranslated);
    return 1;
}

int H225TranslatorContext::TranslateFastStartReply(int pass, bool /*fromOriginator: the reply
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
            VF_LOG(HostContext(), logsource::kH245, 3)
                << "H.245\toutgoing OLC for " << session->sessionID << " contains no addresses";
            return 0;
        }
        DecodeH245TransportAddress(parameters->get_mediaChannel(), rtp);
        rtcp = rtp;
        SetPort(rtcp, ntohs(rtp.port) + 1u);
    } else {
        if (!(session->flags & VOIPXLATE_SESSION_REVERSE_OPEN)) {
            VF_LOG(HostContext(), logsource::kH245, 3)
                << "H.245\treverse OLC found before translation has occurred";
            return 0;
        }
        rtp = session->reverseRTP;
        rtcp = session->reverseRTCP;
    }
    if (RequestMediaChannel(session, false, rtp, rtcp) < 0)
        return -1;
    return RewriteFastStartReply(*session, *parameters);
}

int H225TranslatorContext::RetranslateFastStartReply(int pass, bool /*fromOriginator*/,
                                                     OpenLogicalChannel& olc) {
    H2250LogicalChannelParameters* parameters = nullptr;
    voipxlate_mediasessioninformation* session = MatchFastStartReply(pass, olc, &parameters);
    if (session == nullptr)
        return 0;
    if (!(session->flags & VOIPXLATE_SESSION_ANSWERED)) {
        VF_LOG(HostContext(), logsource::kH245, 2)
            << "H.245\tfastStart reply to offer that hasn't been accepted";
        return 0;
    }
    // A retransmitted answer gets the addresses of the first one; the host is not asked again.
    return RewriteFastStartReply(*session, *parameters);
}

void H225TranslatorContext::RefuseFastStart() {
    if (setupFlags_ & setupflag::kFastStartRefused)
        return;
    VF_LOG(HostContext(), logsource::kH245, 2) << "H245\tFastStart refused";
    setupFlags_ |= setupflag::kFastStartRefused;
    auto closeChannel = VoIPTranslator::Current().Callback<voipxlate_close_channel_function>(
        VOIPXLATE_CLOSE_RTP_CHANNEL);
    for (voipxlate_mediasessioninformation& session : callInfo_.sessions) {
        if (!(session.flags & VOIPXLATE_SESSION_IN_USE))
            continue;
        VF_LOG(HostContext(), logsource::kH245, 2)
            << "H.245\treleasing media channel for session " << session.sessionID;
        session.flags &= ~VOIPXLATE_SESSION_IN_USE;
        if (closeChannel != nullptr)
            closeChannel(HostContext(), session.forwardUserData, 1);
    }
}

template <class UUIE>
int CheckFastStartReply(H225TranslatorContext& call, bool fromOriginator, UUIE& body, int result) {
    if (body.fastConnectRefused_isPresent()) {
        VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tfastStart refused";
        call.RefuseFastStart();
    } else if (body.fastStart_isPresent()) {
        const int r = call.AcceptFastStartReply(fromOriginator, body.ref_fastStart());
        if (r < 0) {
            VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tfastStart translation failed";
            result = -1;
        } else if (r > 0) {
            VF_LOG(call.HostContext(), logsource::kH225, 1)
                << "H225\tfastStart translation succeeded";
            result = 1;
        } else {
            VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tno fastStart translation";
        }
    }
    return result;
}

template int CheckFastStartReply(H225TranslatorContext&, bool, H323_MESSAGES::CallProceeding_UUIE&,
                                 int);
template int CheckFastStartReply(H225TranslatorContext&, bool, H323_MESSAGES::Progress_UUIE&, int);
template int CheckFastStartReply(H225TranslatorContext&, bool, H323_MESSAGES::Alerting_UUIE&, int);
template int CheckFastStartReply(H225TranslatorContext&, bool, H323_MESSAGES::Connect_UUIE&, int);
