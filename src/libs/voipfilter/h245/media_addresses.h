// Media addresses in H.245: TransportAddress conversion and the RTP/RTCP pair of a logical
// channel's H.225.0 parameters.
#ifndef VOIPFILTER_H245_MEDIA_ADDRESSES_H
#define VOIPFILTER_H245_MEDIA_ADDRESSES_H

#include "asn1/PERDecoder.h"
#include "modules/multimedia_system_control.h"

#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>

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

// Writing an IPv4 address into a TransportAddress that holds a unicast IPv4 address already keeps
// every node of it (the selections stay) and the width of every field, so the new encoding
// differs from the old only in the address octets and the port. OverwriteH245TransportAddress
// writes those over the octets the address was decoded from (see ASN1::LeafPositions); false when
// the address is of another kind or its fields were not noted.
bool HoldsUnicastIPv4(const MULTIMEDIA_SYSTEM_CONTROL::TransportAddress& address);
bool OverwriteH245TransportAddress(const ASN1::LeafPositions& positions,
                                   const MULTIMEDIA_SYSTEM_CONTROL::TransportAddress& address,
                                   char* octets);

// Whether every media address the parameters carry is a unicast IPv4 one, so that writing IPv4
// addresses with WriteMediaAddresses keeps the shape of their encoding. To be asked before the
// write: an address of another kind is replaced by new nodes.
template <class Parameters> bool HoldsIPv4MediaAddresses(const Parameters& parameters) {
    return (!parameters.mediaChannel_isPresent() ||
            HoldsUnicastIPv4(parameters.get_mediaChannel())) &&
           (!parameters.mediaControlChannel_isPresent() ||
            HoldsUnicastIPv4(parameters.get_mediaControlChannel()));
}

// After WriteMediaAddresses on parameters that HoldsIPv4MediaAddresses approved: writes the
// addresses over the octets they were decoded from. False when one cannot be.
template <class Parameters>
bool OverwriteMediaAddresses(const ASN1::LeafPositions& positions, const Parameters& parameters,
                             char* octets) {
    return (!parameters.mediaChannel_isPresent() ||
            OverwriteH245TransportAddress(positions, parameters.get_mediaChannel(), octets)) &&
           (!parameters.mediaControlChannel_isPresent() ||
            OverwriteH245TransportAddress(positions, parameters.get_mediaControlChannel(), octets));
}

#endif
