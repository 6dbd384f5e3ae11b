#include <gtest/gtest.h>

#include "frames.h"
#include "packet.h"

using namespace replay;
using namespace replaytest;

namespace {

constexpr uint32_t kA = 0x0A000001; // 10.0.0.1
constexpr uint32_t kB = 0xC6336402; // 198.51.100.2

struct DecodeCase {
    const char* name;
    int linkType;
    Bytes frame;
    DecodeStatus expected;
};

Bytes udpBody() {
    Bytes udp = {0x13, 0xC4, 0x13, 0xC4, 0x00, 0x0C, 0, 0, 'a', 'b', 'c', 'd'};
    return udp;
}

Bytes withIpByte(Bytes ip, size_t at, uint8_t value) {
    ip[at] = value;
    return ip;
}

std::vector<DecodeCase> decodeCases() {
    const Bytes ip = ipv4(kA, kB, kProtoUdp, udpBody());
    Bytes vlan = ethernet(ip, 0x8100);
    vlan.insert(vlan.begin() + 14, {0x00, 0x05, 0x08, 0x00});
    Bytes sll(16, 0);
    sll[14] = 0x08;
    sll.insert(sll.end(), ip.begin(), ip.end());
    Bytes pppoe = ethernet(ip, 0x8864);
    pppoe.insert(pppoe.begin() + 14, {0x11, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x21});
    writeBe16(&pppoe[18], static_cast<uint16_t>(ip.size() + 2));
    Bytes pppLcp = pppoe;
    pppLcp[21] = 0x23; // PPP protocol 0xc023, not IP
    pppLcp[20] = 0xC0;
    Bytes ipv6 = ip;
    ipv6[0] = 0x60;
    Bytes tcpBadOffset = ipv4(kA, kB, kProtoTcp, Bytes(20, 0));
    tcpBadOffset[20 + 12] = 0x40; // data offset 4 words
    Bytes udpTooLong = ipv4(kA, kB, kProtoUdp, udpBody());
    writeBe16(&udpTooLong[24], 200);
    return {
        {"ethernet", kLinkEthernet, ethernet(ip), DecodeStatus::Ok},
        {"vlan", kLinkEthernet, vlan, DecodeStatus::Ok},
        {"linux cooked", kLinkLinuxSll, sll, DecodeStatus::Ok},
        {"pppoe", kLinkEthernet, pppoe, DecodeStatus::Ok},
        {"pppoe without ip", kLinkEthernet, pppLcp, DecodeStatus::NotIp},
        {"raw", kLinkRaw, ip, DecodeStatus::Ok},
        {"raw linktype", kLinkRawLinktype, ip, DecodeStatus::Ok},
        {"ipv4 linktype", kLinkIpv4, ip, DecodeStatus::Ok},
        {"ethernet ipv6", kLinkEthernet, ethernet(ipv6, 0x86DD), DecodeStatus::Ipv6},
        {"raw ipv6", kLinkRaw, ipv6, DecodeStatus::Ipv6},
        {"arp", kLinkEthernet, ethernet(Bytes(28, 0), 0x0806), DecodeStatus::NotIp},
        {"more fragments", kLinkRaw, withIpByte(ip, 6, 0x20), DecodeStatus::Fragment},
        {"fragment offset", kLinkRaw, withIpByte(ip, 7, 0x10), DecodeStatus::Fragment},
        {"cut in link header", kLinkEthernet, Bytes(10, 0), DecodeStatus::Truncated},
        {"cut in ip header", kLinkRaw, Bytes(ip.begin(), ip.begin() + 12), DecodeStatus::Truncated},
        {"cut in payload", kLinkRaw, Bytes(ip.begin(), ip.end() - 1), DecodeStatus::Truncated},
        {"short ihl", kLinkRaw, withIpByte(ip, 0, 0x44), DecodeStatus::BadHeader},
        {"udp length beyond datagram", kLinkRaw, udpTooLong, DecodeStatus::BadHeader},
        {"tcp data offset below 5", kLinkRaw, tcpBadOffset, DecodeStatus::BadHeader},
        {"icmp", kLinkRaw, ipv4(kA, kB, 1, Bytes(8, 0)), DecodeStatus::OtherIp},
        {"802.11", 105, ethernet(ip), DecodeStatus::UnknownLink},
    };
}

TEST(Decode, LinkTypesAndDamagedHeaders) {
    for (const DecodeCase& c : decodeCases()) {
        DecodedPacket p = decodePacket(c.linkType, c.frame.data(), c.frame.size());
        EXPECT_EQ(p.status, c.expected) << c.name << ": " << decodeStatusText(p.status);
        if (c.expected == DecodeStatus::Ok) {
            EXPECT_EQ(p.srcIp, kA) << c.name;
            EXPECT_EQ(p.dstIp, kB) << c.name;
            EXPECT_EQ(p.srcPort, 5060) << c.name;
            EXPECT_EQ(p.payloadLength, 4u) << c.name;
            EXPECT_EQ(c.frame[p.payloadOffset], 'a') << c.name;
        }
    }
}

TEST(Decode, EthernetPaddingIsNotPayload) {
    Bytes frame = ethernet(ipv4(kA, kB, kProtoUdp, udpBody()));
    frame.resize(60, 0); // padded to the Ethernet minimum
    DecodedPacket p = decodePacket(kLinkEthernet, frame.data(), frame.size());
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(p.payloadLength, 4u);
}

TEST(Rebuild, PppoeLengthFollowsTheDatagram) {
    Bytes udp = {0x13, 0xC4, 0x13, 0xC4, 0x00, 0x0B, 0, 0, 'a', 'b', 'c'};
    Bytes frame = ethernet(ipv4(kA, kB, kProtoUdp, udp), 0x8864);
    frame.insert(frame.begin() + 14, {0x11, 0x00, 0x00, 0x01, 0x00, 33, 0x00, 0x21});
    DecodedPacket p = decodePacket(kLinkEthernet, frame.data(), frame.size());
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(p.pppoeLengthOffset, 18u);
    Bytes out = rebuildFrame(frame.data(), p, BytesOf("longer payload"), 0, 0);
    EXPECT_EQ(readBe16(&out[18]), 2 + 20 + 8 + 14);
}

} // namespace
