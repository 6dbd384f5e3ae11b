// Test helpers for H.225.0 and H.245 PDUs read or written by tests: encoding and decoding
// through the library's codec.
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

template <class T> bool Decode(const Bytes& bytes, T& value) {
    return ASN1::ASNDecode(bytes.data(), static_cast<unsigned>(bytes.size()), value) == 1;
}

#endif
