// Logical channels and the media sessions behind them: the RTP and RTCP addresses of
// OpenLogicalChannel and OpenLogicalChannelAck (H.225.0 H2250LogicalChannel(Ack)Parameters), the
// host's media channels, and T.120 separate-stack addresses.
#include "h245_xlate.h"

#include "h225_xlate.h"
#include "sockaddr.h"
#include "voip_translator.h"

#include <arpa/inet.h>

#include <cstring>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

bool DecodeH245TransportAddress(const TransportAddress& in, sockaddr_type& out) {
    std::memset(&out, 0, sizeof out);
    if (!in.unicastAddress_isSelected())
        return false;
    const UnicastAddress& unicast = in.get_unicastAddress();
    if (unicast.iPAddress_isSelected()) {
        const auto& ip = unicast.get_iPAddress();
        const auto& network = ip.get_network();
        out.family = VOIPXLATE_FAMILY_IPV4;
        std::memcpy(out.addr, network.data(), network.size() < 4 ? network.size() : 4);
        out.port = htons(static_cast<uint16_t>(ip.get_tsapIdentifier().getValue()));
        return true;
    }
    if (unicast.iP6Address_isSelected()) {
        const auto& ip = unicast.get_iP6Address();
        const auto& network = ip.get_network();
        out.family = VOIPXLATE_FAMILY_IPV6;
        std::memcpy(out.addr, network.data(), network.size() < 16 ? network.size() : 16);
        out.port = htons(static_cast<uint16_t>(ip.get_tsapIdentifier().getValue()));
        return true;
    }
    return false;
}

bool EncodeH245TransportAddress(const sockaddr_type& in, TransportAddress& out) {
    out.select(TransportAddress::unicastAddress::id_);
    UnicastAddress& unicast = out.ref_unicastAddress();
    const char* bytes = reinterpret_cast<const char*>(in.addr);
    switch (in.family) {
    case VOIPXLATE_FAMILY_IPV4: {
        unicast.select(UnicastAddress::iPAddress::id_);
        auto& ip = unicast.ref_iPAddress();
        ip.ref_network().assign(bytes, bytes + 4);
        ip.ref_tsapIdentifier() = ntohs(in.port);
        return true;
    }
    case VOIPXLATE_FAMILY_IPV6: {
        // The IPv6 alternative is filled through the IPv4 accessors, so the selection check
        // stops an IPv6 media address here rather than letting it be written half-way.
        unicast.select(UnicastAddress::iP6Address::id_);
        auto& ip = unicast.ref_iPAddress();
        ip.ref_network().assign(bytes, bytes + 16);
        ip.ref_tsapIdentifier() = ntohs(in.port);
        return true;
    }
    default:
        return false;
    }
}

namespace {

const char* Direction(bool fromOriginator) {
    return fromOriginator ? "forward" : "reverse";
}

} // namespace

voipxlate_mediasessioninformation* H225TranslatorContext::FindSession(int sessionID) {
    for (voipxlate_mediasessioninformation& session : callInfo_.sessions)
        if ((session.flags & VOIPXLATE_SESSION_IN_USE) && session.sessionID == sessionID)
            return &session;
    return nullptr;
}

voipxlate_mediasessioninformation*
H225TranslatorContext::FindOrCreateSession(int sessionID, const DataType* dataType) {
    if (voipxlate_mediasessioninformation* session = FindSession(sessionID))
        return session;
    for (voipxlate_mediasessioninformation& session : callInfo_.sessions) {
        if (session.flags & VOIPXLATE_SESSION_IN_USE)
            continue;
        std::memset(&session, 0, sizeof session);
        session.flags = VOIPXLATE_SESSION_IN_USE;
        session.sessionID = sessionID;
        int kind;
        session.codecName = ClassifyDataType(dataType, kind);
        session.mediaKind = kind;
        return &session;
    }
    return nullptr;
}

int H225TranslatorContext::RequestMediaChannel(voipxlate_mediasessioninformation* session,
                                               bool fromOriginator, const sockaddr_type& rtp,
                                               const sockaddr_type& rtcp) {
    const uint32_t opened =
        fromOriginator ? VOIPXLATE_SESSION_FORWARD_OPEN : VOIPXLATE_SESSION_REVERSE_OPEN;
    // The first addresses of a direction hold for the session's life; later channels of the
    // session are rewritten with what the host chose then.
    if (session->flags & opened)
        return 0;
    if (fromOriginator) {
        session->forwardRTP = session->forwardRTPTranslated = rtp;
        session->forwardRTCP = session->forwardRTCPTranslated = rtcp;
    } else {
        session->reverseRTP = session->reverseRTPTranslated = rtp;
        session->reverseRTCP = session->reverseRTCPTranslated = rtcp;
    }
    auto openChannel = VoIPTranslator::Current().Callback<voipxlate_open_channel_function>(
        VOIPXLATE_OPEN_RTP_CHANNEL);
    if (openChannel != nullptr) {
        int32_t handle = 0;
        if (openChannel(HostContext(), fromOriginator ? 1 : 0, session, &handle) != 0)
            return -1;
        (fromOriginator ? session->forwardUserData : session->reverseUserData) = handle;
    }
    session->flags |= opened;
    return 0;
}

int H225TranslatorContext::TranslateT120Address(bool fromOriginator,
                                                NetworkAccessParameters& separateStack,
                                                const char* offerText) {
    TransportAddress& address = separateStack.ref_networkAddress().ref_localAreaAddress();
    sockaddr_type found;
    DecodeH245TransportAddress(address, found);
    sockaddr_type translated = found;
    VF_LOG(HostContext(), logsource::kH245, 3) << offerText << found;
    auto translate = VoIPTranslator::Current().Callback<voipxlate_translate_media_addr_function>(
        VOIPXLATE_TRANSLATE_MEDIA_ADDR);
    if (translate != nullptr) {
        sockaddr_type scratch;
        std::memset(&scratch, 0, sizeof scratch);
        if (translate(HostContext(), fromOriginator ? 1 : 0, &found, &translated, &scratch) != 0) {
            VF_LOG(HostContext(), logsource::kH245, 1)
                << "H.245\tFailed to translate T.120 address";
            return -1;
        }
    }
    EncodeH245TransportAddress(translated, address);
    return 1;
}

namespace {

bool IsLocalAreaAddress(NetworkAccessParameters& separateStack) {
    return separateStack.ref_networkAddress().localAreaAddress_isSelected();
}

} // namespace

int H225TranslatorContext::TranslateOpenLogicalChannel(bool fromOriginator,
                                                       OpenLogicalChannel& olc) {
    auto& forward = olc.ref_forwardLogicalChannelParameters();
    const DataType& dataType = forward.get_dataType();

    // T.120 runs on its own TCP connection, announced in separateStack.
    if (dataType.data_isSelected() && dataType.get_data().get_application().t120_isSelected() &&
        olc.separateStack_isPresent() && IsLocalAreaAddress(olc.ref_separateStack()))
        return TranslateT120Address(fromOriginator, olc.ref_separateStack(),
                                    "H.245\tOffering T.120 address of ");

    // Only the forward parameters carry this sender's media addresses; the reverse parameters
    // of a bidirectional channel are the peer's to fill in its ack.
    if (!forward.ref_multiplexParameters().h2250LogicalChannelParameters_isSelected()) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tMalformed OLC";
        return 0;
    }
    H2250LogicalChannelParameters& parameters =
        forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
    const int sessionID = parameters.get_sessionID().getValue();
    voipxlate_mediasessioninformation* session = FindOrCreateSession(sessionID, &dataType);
    if (session == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\ttoo many RTP sessions";
        return 0;
    }
    const uint32_t channel =
        static_cast<uint32_t>(olc.get_forwardLogicalChannelNumber().getValue());
    (fromOriginator ? session->originatorChannel : session->destinationChannel) = channel;

    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }
    VF_LOG(HostContext(), logsource::kH245, 2)
        << "H.245\t" << Direction(fromOriginator) << " OLC for session " << sessionID << " of type "
        << session->codecName;
    if (RequestMediaChannel(session, fromOriginator, rtp, rtcp) < 0)
        return -1;
    const sockaddr_type& announced = fromOriginator ? session->forwardRTP : session->reverseRTP;
    const sockaddr_type& translatedRTP =
        fromOriginator ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    const sockaddr_type& translatedRTCP =
        fromOriginator ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    VF_LOG(HostContext(), logsource::kH245, 3)
        << "H.245\t" << Direction(fromOriginator) << " OLC for session " << sessionID
        << " translated from " << announced << " to " << translatedRTP;
    WriteMediaAddresses(parameters, translatedRTP, translatedRTCP);
    return 1;
}

int H225TranslatorContext::TranslateOpenLogicalChannelAck(bool fromOriginator,
                                                          OpenLogicalChannelAck& ack) {
    if (ack.separateStack_isPresent() && IsLocalAreaAddress(ack.ref_separateStack()))
        return TranslateT120Address(fromOriginator, ack.ref_separateStack(),
                                    "New H.245\tOffering T.120 address of ");

    // The ack names the channel by the number its opener chose: an ack from the destination
    // answers the originator's OLC and the other way round.
    const uint32_t channel =
        static_cast<uint32_t>(ack.get_forwardLogicalChannelNumber().getValue());
    const voipxlate_mediasessioninformation* opened = nullptr;
    for (const voipxlate_mediasessioninformation& session : callInfo_.sessions) {
        if (!(session.flags & VOIPXLATE_SESSION_IN_USE))
            continue;
        if ((fromOriginator ? session.destinationChannel : session.originatorChannel) == channel) {
            opened = &session;
            break;
        }
    }
    if (opened == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tcannot find matching OLC for OLCack";
        return 0;
    }
    const int sessionID = opened->sessionID;
    voipxlate_mediasessioninformation* session = FindSession(sessionID);
    if (session == nullptr) {
        VF_LOG(HostContext(), logsource::kH245, 1)
            << "H.245\tcannot find matching reverse RTP session";
        return 0;
    }
    if (!ack.forwardMultiplexAckParameters_isPresent() ||
        !ack.ref_forwardMultiplexAckParameters().h2250LogicalChannelAckParameters_isSelected()) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tMalformed OLCack";
        return 0;
    }
    H2250LogicalChannelAckParameters& parameters =
        ack.ref_forwardMultiplexAckParameters().ref_h2250LogicalChannelAckParameters();
    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }
    if (RequestMediaChannel(session, fromOriginator, rtp, rtcp) < 0)
        return -1;
    const sockaddr_type& announced = fromOriginator ? session->forwardRTP : session->reverseRTP;
    const sockaddr_type& translatedRTP =
        fromOriginator ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    const sockaddr_type& translatedRTCP =
        fromOriginator ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    VF_LOG(HostContext(), logsource::kH245, 3)
        << "H.245\t" << Direction(fromOriginator) << " OLC ack for session " << sessionID
        << " translated from " << announced << " to " << translatedRTP;
    WriteMediaAddresses(parameters, translatedRTP, translatedRTCP);
    return 1;
}
