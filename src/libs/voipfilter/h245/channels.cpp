// Logical channels and the media sessions behind them: the RTP and RTCP addresses of
// OpenLogicalChannel and OpenLogicalChannelAck (H.225.0 H2250LogicalChannel(Ack)Parameters), the
// host's media channels, and T.120 separate-stack addresses.
#include "h245/channels.h"

#include "h245/capabilities.h"
#include "h245/media_addresses.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <cstring>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

namespace {

const char* Direction(bool fromOriginator) {
    return fromOriginator ? "forward" : "reverse";
}

// Writes the addresses the host gave one direction of a session into the channel's parameters
// (an OpenLogicalChannel's or its Ack's) and logs the translation; what names the message.
// @return whether the write kept the shape of the message's encoding.
template <class Parameters>
bool WriteTranslated(void* hostContext, Parameters& parameters,
                     const voipxlate_mediasessioninformation& session, bool fromOriginator,
                     int sessionID, const char* what) {
    const sockaddr_type& announced = fromOriginator ? session.forwardRTP : session.reverseRTP;
    const sockaddr_type& translatedRTP =
        fromOriginator ? session.forwardRTPTranslated : session.reverseRTPTranslated;
    const sockaddr_type& translatedRTCP =
        fromOriginator ? session.forwardRTCPTranslated : session.reverseRTCPTranslated;
    VF_LOG(hostContext, logsource::kH245, 3)
        << "H.245\t" << Direction(fromOriginator) << ' ' << what << " for session " << sessionID
        << " translated from " << announced << " to " << translatedRTP;
    const bool shapeKept = HoldsIPv4MediaAddresses(parameters);
    WriteMediaAddresses(parameters, translatedRTP, translatedRTCP);
    return shapeKept;
}

} // namespace

LogicalChannels::LogicalChannels(void* hostContext, voipxlate_callinformation& call)
    : sessions_(hostContext, call) {}

voipxlate_mediasessioninformation* LogicalChannels::FindOrCreateSession(int sessionID,
                                                                        const DataType* dataType) {
    if (voipxlate_mediasessioninformation* session = sessions_.Find(sessionID))
        return session;
    int kind;
    const char* codecName = ClassifyDataType(dataType, kind);
    return sessions_.Create(sessionID, kind, codecName);
}

int LogicalChannels::RequestMediaChannel(voipxlate_mediasessioninformation* session,
                                         bool fromOriginator, const sockaddr_type& rtp,
                                         const sockaddr_type& rtcp) {
    const uint32_t opened =
        fromOriginator ? VOIPXLATE_SESSION_FORWARD_OPEN : VOIPXLATE_SESSION_REVERSE_OPEN;
    // The first addresses of a direction hold for the session's life; later channels of the
    // session are rewritten with what the host chose then.
    if (session->flags & opened)
        return 0;
    MediaSessions::SetAddresses(*session, fromOriginator, rtp, rtcp);
    return sessions_.OpenChannel(*session, fromOriginator, VOIPXLATE_OPEN_RTP_CHANNEL);
}

int LogicalChannels::TranslateT120Address(bool fromOriginator,
                                          NetworkAccessParameters& separateStack,
                                          const char* offerText) {
    TransportAddress& address = separateStack.ref_networkAddress().ref_localAreaAddress();
    sockaddr_type found;
    DecodeH245TransportAddress(address, found);
    sockaddr_type translated = found;
    VF_LOG(sessions_.HostContext(), logsource::kH245, 3) << offerText << found;
    auto translate = VoIPTranslator::Current().Callback<voipxlate_translate_media_addr_function>(
        VOIPXLATE_TRANSLATE_MEDIA_ADDR);
    if (translate != nullptr) {
        sockaddr_type scratch;
        std::memset(&scratch, 0, sizeof scratch);
        if (translate(sessions_.HostContext(), fromOriginator ? 1 : 0, &found, &translated,
                      &scratch) != 0) {
            VF_LOG(sessions_.HostContext(), logsource::kH245, 1)
                << "H.245\tFailed to translate T.120 address";
            return -1;
        }
    }
    if (!HoldsUnicastIPv4(address))
        shapeKept_ = false;
    EncodeH245TransportAddress(translated, address);
    return 1;
}

namespace {

bool IsLocalAreaAddress(NetworkAccessParameters& separateStack) {
    return separateStack.ref_networkAddress().localAreaAddress_isSelected();
}

} // namespace

int LogicalChannels::TranslateOpenLogicalChannel(bool fromOriginator, OpenLogicalChannel& olc) {
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
        VF_LOG(sessions_.HostContext(), logsource::kH245, 1) << "H.245\tMalformed OLC";
        return 0;
    }
    H2250LogicalChannelParameters& parameters =
        forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
    const int sessionID = parameters.get_sessionID().getValue();
    voipxlate_mediasessioninformation* session = FindOrCreateSession(sessionID, &dataType);
    if (session == nullptr) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 1) << "H.245\ttoo many RTP sessions";
        return 0;
    }
    const uint32_t channel =
        static_cast<uint32_t>(olc.get_forwardLogicalChannelNumber().getValue());
    (fromOriginator ? session->originatorChannel : session->destinationChannel) = channel;

    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }
    VF_LOG(sessions_.HostContext(), logsource::kH245, 2)
        << "H.245\t" << Direction(fromOriginator) << " OLC for session " << sessionID << " of type "
        << session->codecName;
    if (RequestMediaChannel(session, fromOriginator, rtp, rtcp) < 0)
        return -1;
    if (!WriteTranslated(sessions_.HostContext(), parameters, *session, fromOriginator, sessionID,
                         "OLC"))
        shapeKept_ = false;
    return 1;
}

int LogicalChannels::TranslateOpenLogicalChannelAck(bool fromOriginator,
                                                    OpenLogicalChannelAck& ack) {
    if (ack.separateStack_isPresent() && IsLocalAreaAddress(ack.ref_separateStack()))
        return TranslateT120Address(fromOriginator, ack.ref_separateStack(),
                                    "New H.245\tOffering T.120 address of ");

    // The ack names the channel by the number its opener chose: an ack from the destination
    // answers the originator's OLC and the other way round.
    const uint32_t channel =
        static_cast<uint32_t>(ack.get_forwardLogicalChannelNumber().getValue());
    const voipxlate_mediasessioninformation* opened =
        sessions_.FindIf([fromOriginator, channel](const voipxlate_mediasessioninformation& s) {
            return (fromOriginator ? s.destinationChannel : s.originatorChannel) == channel;
        });
    if (opened == nullptr) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 1)
            << "H.245\tcannot find matching OLC for OLCack";
        return 0;
    }
    const int sessionID = opened->sessionID;
    voipxlate_mediasessioninformation* session = sessions_.Find(sessionID);
    if (session == nullptr) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 1)
            << "H.245\tcannot find matching reverse RTP session";
        return 0;
    }
    if (!ack.forwardMultiplexAckParameters_isPresent() ||
        !ack.ref_forwardMultiplexAckParameters().h2250LogicalChannelAckParameters_isSelected()) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 1) << "H.245\tMalformed OLCack";
        return 0;
    }
    H2250LogicalChannelAckParameters& parameters =
        ack.ref_forwardMultiplexAckParameters().ref_h2250LogicalChannelAckParameters();
    sockaddr_type rtp, rtcp;
    if (!ReadMediaAddresses(parameters, rtp, rtcp)) {
        VF_LOG(sessions_.HostContext(), logsource::kH245, 3)
            << "H.245\toutgoing OLC for " << sessionID << " contains no addresses";
        return 0;
    }
    if (RequestMediaChannel(session, fromOriginator, rtp, rtcp) < 0)
        return -1;
    if (!WriteTranslated(sessions_.HostContext(), parameters, *session, fromOriginator, sessionID,
                         "OLC ack"))
        shapeKept_ = false;
    return 1;
}
