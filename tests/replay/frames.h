// Builds frames for the replay tests.
#ifndef VOIPFILTER_TESTS_REPLAY_FRAMES_H
#define VOIPFILTER_TESTS_REPLAY_FRAMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "packet.h"
#include "test_util.h"

namespace replaytest {

// An IPv4 datagram (no options) around a transport header and payload.
inline Bytes ipv4(uint32_t src, uint32_t dst, uint8_t protocol, const Bytes& l4) {
    Bytes ip(20, 0);
    ip[0] = 0x45;
    replay::writeBe16(&ip[2], static_cast<uint16_t>(20 + l4.size()));
    ip[8] = 64;
    ip[9] = protocol;
    replay::writeBe32(&ip[12], src);
    replay::writeBe32(&ip[16], dst);
    ip.insert(ip.end(), l4.begin(), l4.end());
    return ip;
}

inline Bytes ethernet(const Bytes& ip, uint16_t etherType = 0x0800) {
    Bytes frame = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    frame.push_back(static_cast<uint8_t>(etherType >> 8));
    frame.push_back(static_cast<uint8_t>(etherType));
    frame.insert(frame.end(), ip.begin(), ip.end());
    return frame;
}

// A TPKT (RFC 1006) around a message.
inline Bytes tpkt(const std::string& body) {
    Bytes frame = {3, 0, 0, 0};
    replay::writeBe16(&frame[2], static_cast<uint16_t>(body.size() + 4));
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

} // namespace replaytest

#endif
