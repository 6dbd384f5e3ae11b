// Test helper: classic pcap files (not pcapng) for tshark to read what the library wrote, and the
// Ethernet, IPv4, UDP and TCP headers around a payload. Everything is written byte by byte in
// big-endian order, so a file is the same on every host; readers tell the byte order from the
// magic number.
#ifndef VOIPFILTER_TESTS_PCAP_FILE_H
#define VOIPFILTER_TESTS_PCAP_FILE_H

#include "test_util.h"

#include <arpa/inet.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace pcap {

constexpr uint32_t kEthernet = 1;
constexpr uint32_t kUser0 = 147; // DLT_USER0: bare PDUs, decoded with a dissector named to tshark

inline void Put16(Bytes& out, unsigned v) {
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v));
}

inline void Put32(Bytes& out, uint32_t v) {
    Put16(out, v >> 16);
    Put16(out, v & 0xFFFF);
}

class Writer {
public:
    explicit Writer(uint32_t linkType) {
        Put32(data_, 0xa1b2c3d4); // microsecond timestamps
        Put16(data_, 2);          // version 2.4
        Put16(data_, 4);
        Put32(data_, 0); // thiszone
        Put32(data_, 0); // sigfigs
        Put32(data_, 65535);
        Put32(data_, linkType);
    }

    // One record a second.
    void Add(const Bytes& frame) {
        Put32(data_, 1700000000 + records_++);
        Put32(data_, 0);
        Put32(data_, static_cast<uint32_t>(frame.size()));
        Put32(data_, static_cast<uint32_t>(frame.size()));
        data_.insert(data_.end(), frame.begin(), frame.end());
    }

    bool Save(const std::string& path) const {
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(data_.data()),
                   static_cast<std::streamsize>(data_.size()));
        return file.good();
    }

private:
    Bytes data_;
    uint32_t records_ = 0;
};

// An Ethernet frame holding an IPv4 datagram (no options, checksum as RFC 791 computes it) from
// source to destination with the transport header and payload given.
inline Bytes Ipv4Frame(const sockaddr_type& source, const sockaddr_type& destination,
                       uint8_t protocol, const Bytes& transport) {
    static const unsigned char ethernet[] = {0x02, 0, 0, 0, 0, 2, 0x02, 0, 0, 0, 0, 1, 0x08, 0x00};
    Bytes ip;
    Put16(ip, 0x4500);
    Put16(ip, static_cast<unsigned>(20 + transport.size()));
    Put16(ip, 0);
    Put16(ip, 0x4000); // don't fragment
    Put16(ip, 64u << 8 | protocol);
    Put16(ip, 0);
    ip.insert(ip.end(), source.addr, source.addr + 4);
    ip.insert(ip.end(), destination.addr, destination.addr + 4);
    uint32_t sum = 0;
    for (std::size_t i = 0; i < ip.size(); i += 2)
        sum += (ip[i] << 8) | ip[i + 1];
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    ip[10] = static_cast<unsigned char>(~sum >> 8);
    ip[11] = static_cast<unsigned char>(~sum);
    Bytes frame;
    for (const Bytes& part : {Bytes(std::begin(ethernet), std::end(ethernet)), ip, transport})
        frame.insert(frame.end(), part.begin(), part.end());
    return frame;
}

// A TCP segment with PSH and ACK set and no checksum.
inline Bytes TcpFrame(const sockaddr_type& source, const sockaddr_type& destination, uint32_t seq,
                      uint32_t ack, const Bytes& payload) {
    Bytes tcp;
    Put16(tcp, ntohs(source.port));
    Put16(tcp, ntohs(destination.port));
    Put32(tcp, seq);
    Put32(tcp, ack);
    tcp.push_back(0x50);
    tcp.push_back(0x18);
    Put16(tcp, 65535);
    Put16(tcp, 0);
    Put16(tcp, 0);
    tcp.insert(tcp.end(), payload.begin(), payload.end());
    return Ipv4Frame(source, destination, 6, tcp);
}

} // namespace pcap

#endif
