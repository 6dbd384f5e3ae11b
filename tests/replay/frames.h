// Builds frames and capture files for the replay tests.
#ifndef VOIPFILTER_TESTS_REPLAY_FRAMES_H
#define VOIPFILTER_TESTS_REPLAY_FRAMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "capture.h"
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

// Fixes the checksums of an Ethernet frame built here.
inline Bytes withChecksums(Bytes frame, int linkType = replay::kLinkEthernet) {
    replay::DecodedPacket packet = replay::decodePacket(linkType, frame.data(), frame.size());
    if (packet.ok()) {
        replay::fixChecksums(frame, packet);
    }
    return frame;
}

inline Bytes udpFrame(uint32_t src, uint16_t sport, uint32_t dst, uint16_t dport,
                      const Bytes& payload) {
    Bytes udp(8, 0);
    replay::writeBe16(&udp[0], sport);
    replay::writeBe16(&udp[2], dport);
    replay::writeBe16(&udp[4], static_cast<uint16_t>(8 + payload.size()));
    udp.insert(udp.end(), payload.begin(), payload.end());
    return withChecksums(ethernet(ipv4(src, dst, replay::kProtoUdp, udp)));
}

inline Bytes tcpFrame(uint32_t src, uint16_t sport, uint32_t dst, uint16_t dport, uint32_t seq,
                      uint32_t ack, uint8_t flags, const Bytes& payload) {
    Bytes tcp(20, 0);
    replay::writeBe16(&tcp[0], sport);
    replay::writeBe16(&tcp[2], dport);
    replay::writeBe32(&tcp[4], seq);
    replay::writeBe32(&tcp[8], ack);
    tcp[12] = 0x50;
    tcp[13] = flags;
    replay::writeBe16(&tcp[14], 8192);
    tcp.insert(tcp.end(), payload.begin(), payload.end());
    return withChecksums(ethernet(ipv4(src, dst, replay::kProtoTcp, tcp)));
}

// A TPKT (RFC 1006) around a message.
inline Bytes tpkt(const std::string& body) {
    Bytes frame = {3, 0, 0, 0};
    replay::writeBe16(&frame[2], static_cast<uint16_t>(body.size() + 4));
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

// Writes frames (whole, with wire length = captured length unless given) as a pcap file.
inline void writeCapture(const std::string& path, int linkType, const std::vector<Bytes>& frames,
                         const std::vector<uint32_t>& wireLengths = {}) {
    replay::CaptureWriter writer;
    std::string error;
    if (!writer.open(path, linkType, error)) {
        return;
    }
    for (size_t i = 0; i < frames.size(); ++i) {
        replay::CapturedFrame header;
        header.seconds = static_cast<int64_t>(i);
        uint32_t wire =
            i < wireLengths.size() ? wireLengths[i] : static_cast<uint32_t>(frames[i].size());
        writer.write(header, frames[i], wire);
    }
    writer.close(error);
}

} // namespace replaytest

#endif
