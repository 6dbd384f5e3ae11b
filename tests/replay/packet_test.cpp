#include <gtest/gtest.h>

#include "frames.h"
#include "packet.h"

using namespace replay;
using namespace replaytest;

namespace {

constexpr uint32_t kA = 0x0A000001; // 10.0.0.1
constexpr uint32_t kB = 0xC6336402; // 198.51.100.2

// tests/data/replay/decode-cases.txt: "LINK-TYPE STATUS: NAME HEX" a line.
TEST(Decode, LinkTypesAndDamagedHeaders) {
    for (const auto& [label, frame] : ReadHexRows("replay/decode-cases.txt")) {
        const std::string::size_type blank = label.find(' '), colon = label.find(':');
        const std::string expected = label.substr(blank + 1, colon - blank - 1);
        DecodedPacket p = decodePacket(std::stoi(label), frame.data(), frame.size());
        EXPECT_EQ(decodeStatusText(p.status), expected) << label;
        if (expected == "ok") {
            EXPECT_EQ(p.srcIp, kA) << label;
            EXPECT_EQ(p.dstIp, kB) << label;
            EXPECT_EQ(p.srcPort, 5060) << label;
            EXPECT_EQ(p.payloadLength, 4u) << label;
            EXPECT_EQ(frame[p.payloadOffset], 'a') << label;
        }
    }
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
