// H.225.0 TransportAddress <-> sockaddr_type: the one conversion that the call signalling and RAS
// share.
#ifndef VOIPFILTER_H225_TRANSPORT_ADDRESS_H
#define VOIPFILTER_H225_TRANSPORT_ADDRESS_H

#include "modules/h323_messages.h"

#include <voipfilter/voipfilter.h>

// H.225.0 TransportAddress <-> sockaddr_type. Decoding accepts ipAddress and ip6Address only and
// leaves the record all zero otherwise. Encoding writes family 4 (and 0) as ipAddress and family
// 3 as ip6Address; every other family, 6 included, is refused and leaves the value as it was, so
// an IPv6 address read from a PDU is never written back.
bool DecodeH225TransportAddress(const H323_MESSAGES::TransportAddress& in, sockaddr_type& out);
bool EncodeH225TransportAddress(const sockaddr_type& in, H323_MESSAGES::TransportAddress& out);
// Whether EncodeH225TransportAddress(in, out) keeps every node of out and the width of its
// fields, so that the encoding changes only in the address octets and the port: an IPv4 address
// written over an ipAddress.
bool KeepsEncodingShape(const sockaddr_type& in, const H323_MESSAGES::TransportAddress& out);

#endif
