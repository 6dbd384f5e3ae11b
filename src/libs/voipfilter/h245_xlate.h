// H.245 helpers shared by the separate-channel and tunnelled translation, the logical channel
// and media session handling and fast start: codec classification and address conversion.
#ifndef VOIPFILTER_H245_XLATE_H
#define VOIPFILTER_H245_XLATE_H

#include "modules/multimedia_system_control.h"

#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>

// Media kinds of the codec table (H.245 capability families).
namespace mediakind {
constexpr int kUnknown = 0;
constexpr int kAudio = 1;
constexpr int kVideo = 2;
constexpr int kData = 3;
} // namespace mediakind

// The codec table's name for an alternative of a media kind's capability CHOICE (-1: none). A
// name is always found: every kind has a catch-all "(unknown)" row.
const char* CodecName(int kind, int alternative);

// Classifies a logical channel's data type into kind and codec name. A null data type, and every
// type that is not audio, video or a data application, is kind 0 "(unknown)".
const char* ClassifyDataType(const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType, int& kind);

// The parameters that describe a fast start element: a reverse element (one carrying
// reverseLogicalChannelParameters) by its reverse parameters, a forward one by its forward
// parameters. Both null when the chosen side has no H.225.0 multiplex parameters.
struct FastStartElement {
    bool reverse = false;
    MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters* parameters = nullptr;
    const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType = nullptr;
};
FastStartElement ClassifyFastStartElement(MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);

// H.245 TransportAddress <-> sockaddr_type. Reading accepts unicast iPAddress and iP6Address and
// leaves the record all zero otherwise.
bool DecodeH245TransportAddress(const MULTIMEDIA_SYSTEM_CONTROL::TransportAddress& in,
                                sockaddr_type& out);
bool EncodeH245TransportAddress(const sockaddr_type& in,
                                MULTIMEDIA_SYSTEM_CONTROL::TransportAddress& out);

// Sets a port given in host order.
inline void SetPort(sockaddr_type& address, unsigned port) {
    address.port = htons(static_cast<uint16_t>(port));
}

// RTP and RTCP of a channel (H.225.0 H2250LogicalChannel(Ack)Parameters). A missing one is
// derived from the other: RTP on an even port with RTCP on the next one (RFC 3550 11).
// @return false when neither is present.
template <class Parameters>
bool ReadMediaAddresses(const Parameters& parameters, sockaddr_type& rtp, sockaddr_type& rtcp) {
    const bool hasRTP = parameters.mediaChannel_isPresent();
    const bool hasRTCP = parameters.mediaControlChannel_isPresent();
    if (!hasRTP && !hasRTCP)
        return false;
    if (hasRTP)
        DecodeH245TransportAddress(parameters.get_mediaChannel(), rtp);
    if (hasRTCP)
        DecodeH245TransportAddress(parameters.get_mediaControlChannel(), rtcp);
    if (!hasRTP) {
        rtp = rtcp;
        SetPort(rtp, ntohs(rtcp.port) - 1u);
    } else if (!hasRTCP) {
        rtcp = rtp;
        SetPort(rtcp, ntohs(rtp.port) + 1u);
    }
    return true;
}

// Overwrites the media addresses the parameters carry; an absent one is not added.
template <class Parameters>
void WriteMediaAddresses(Parameters& parameters, const sockaddr_type& rtp,
                         const sockaddr_type& rtcp) {
    if (parameters.mediaChannel_isPresent())
        EncodeH245TransportAddress(rtp, parameters.ref_mediaChannel());
    if (parameters.mediaControlChannel_isPresent())
        EncodeH245TransportAddress(rtcp, parameters.ref_mediaControlChannel());
}

#endif
