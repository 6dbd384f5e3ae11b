// Link, IPv4, UDP and TCP headers of one captured frame: decoding, checksums, and rebuilding the
// frame around a new payload. Every multi-byte field is read and written byte by byte in network
// order, so nothing here depends on the host's byte order.
#ifndef VOIPFILTER_REPLAY_PACKET_H
#define VOIPFILTER_REPLAY_PACKET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace replay {

// libpcap link types the tool understands (the DLT_ values of pcap/dlt.h).
enum : int {
    kLinkEthernet = 1,
    kLinkRaw = 12,    // DLT_RAW on Linux
    kLinkRawAlt = 14, // DLT_RAW on some BSDs
    kLinkLinuxSll = 113,
    kLinkRawLinktype = 101, // LINKTYPE_RAW when libpcap does not map it
    kLinkIpv4 = 228,
    kLinkLinuxSll2 = 276,
};

bool linkTypeSupported(int linkType);
const char* linkTypeName(int linkType);

enum class DecodeStatus {
    Ok,
    Truncated,   // the frame ends before its headers or its IP datagram does
    UnknownLink, // a link type the tool does not read
    NotIp,       // a link-layer frame that carries something other than IP
    Ipv6,        // IPv6 is not translated
    Fragment,    // an IPv4 fragment (fragments are not reassembled)
    BadHeader,   // an IPv4, UDP or TCP header whose fields contradict each other
    OtherIp,     // IPv4 carrying neither UDP nor TCP
};

const char* decodeStatusText(DecodeStatus status);

namespace tcpflag {
constexpr uint8_t kFin = 0x01;
constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kRst = 0x04;
constexpr uint8_t kAck = 0x10;
} // namespace tcpflag

constexpr uint8_t kProtoTcp = 6;
constexpr uint8_t kProtoUdp = 17;

// Where the headers of a frame are and what they say. Offsets count from the frame's first byte.
struct DecodedPacket {
    DecodeStatus status = DecodeStatus::UnknownLink;
    size_t pppoeLengthOffset = 0; // PPPoE session length field, 0 without PPPoE
    size_t ipOffset = 0;
    size_t ipHeaderLength = 0;
    size_t l4Offset = 0;
    size_t payloadOffset = 0;
    size_t payloadLength = 0;
    uint8_t protocol = 0;
    uint32_t srcIp = 0; // host-order value of the address, most significant octet first
    uint32_t dstIp = 0;
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;
    uint32_t seq = 0; // TCP only
    uint32_t ack = 0;
    uint8_t tcpFlags = 0;

    bool ok() const { return status == DecodeStatus::Ok; }
    bool isTcp() const { return protocol == kProtoTcp; }
    bool isUdp() const { return protocol == kProtoUdp; }
};

DecodedPacket decodePacket(int linkType, const uint8_t* frame, size_t capturedLength);

uint16_t readBe16(const uint8_t* p);
uint32_t readBe32(const uint8_t* p);
void writeBe16(uint8_t* p, uint16_t value);
void writeBe32(uint8_t* p, uint32_t value);

// RFC 1071 one's complement sum of data (as big-endian 16-bit words, an odd byte padded with
// zero) added to sum; not yet folded or inverted.
uint32_t onesComplementSum(const uint8_t* data, size_t length, uint32_t sum);
uint16_t foldChecksum(uint32_t sum);

// Recomputes the IPv4 header checksum and the UDP or TCP checksum of a decoded frame in place.
void fixChecksums(std::vector<uint8_t>& frame, const DecodedPacket& packet);

// The frame with its payload replaced: IP total length, UDP length and both checksums fixed, TCP
// sequence and acknowledgement numbers set to the given values. Bytes after the IP datagram (link
// padding) are dropped.
std::vector<uint8_t> rebuildFrame(const uint8_t* frame, const DecodedPacket& packet,
                                  const std::vector<uint8_t>& payload, uint32_t seq, uint32_t ack);

std::string ipToString(uint32_t ip);

} // namespace replay

#endif
