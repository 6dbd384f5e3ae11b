// Test helpers for H.225.0 and H.245 PDUs built or read by tests: encoding through the library's
// codec, and the transport addresses of both protocols as "a.b.c.d:port" text.
#ifndef VOIPFILTER_TESTS_PDU_UTIL_H
#define VOIPFILTER_TESTS_PDU_UTIL_H

#include "test_util.h"

#include "asn1/asn_codec.h"
#include "h225/call.h"
#include "h225/transport_address.h"
#include "h245/capabilities.h"
#include "h245/media_addresses.h"

#include <gtest/gtest.h>

#include <string>

namespace H225 = H323_MESSAGES;
namespace H245 = MULTIMEDIA_SYSTEM_CONTROL;

template <class T> Bytes Encode(T&& value) {
    Bytes bytes(8192);
    unsigned size = static_cast<unsigned>(bytes.size());
    EXPECT_EQ(1, ASN1::ASNEncode(value, bytes.data(), &size));
    bytes.resize(size);
    return bytes;
}

template <class T> ASN1::OCTET_STRING EncodeOctets(T&& value) {
    ASN1::OCTET_STRING octets;
    ASN1::ASNEncode(value, octets);
    return octets;
}

template <class T> bool Decode(const Bytes& bytes, T& value) {
    return ASN1::ASNDecode(bytes.data(), static_cast<unsigned>(bytes.size()), value) == 1;
}

inline void SetTransportAddress(H225::TransportAddress& address, const std::string& text) {
    EXPECT_TRUE(EncodeH225TransportAddress(Addr(text), address)) << text;
}

// An IPX address, which the translators cannot rewrite.
inline void SetIpx(H225::TransportAddress& address) {
    address.select(H225::TransportAddress::ipxAddress::id_);
    address.ref_ipxAddress().ref_node().assign(6, '\1');
    address.ref_ipxAddress().ref_netnum().assign(4, '\2');
    address.ref_ipxAddress().ref_port().assign(2, '\3');
}

inline std::string H225Text(const H225::TransportAddress& address) {
    sockaddr_type a;
    return DecodeH225TransportAddress(address, a) ? Text(a) : "(not IP)";
}

inline void SetH245Address(H245::TransportAddress& address, const std::string& text) {
    EncodeH245TransportAddress(Addr(text), address);
}

inline std::string H245Text(const H245::TransportAddress& address) {
    sockaddr_type a;
    DecodeH245TransportAddress(address, a);
    return Text(a);
}

// H.225.0 version 4.
inline void SetProtocol(ASN1::OBJECT_IDENTIFIER& oid) {
    oid = ASN1::OBJECT_IDENTIFIER({0, 0, 8, 2250, 0, 4});
}

#endif
