#include "host/sockaddr.h"
#include "test_util.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

sockaddr_type V4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port) {
    sockaddr_type s;
    std::memset(&s, 0, sizeof s);
    s.family = VOIPXLATE_FAMILY_IPV4;
    s.port = htons(port);
    s.addr[0] = a;
    s.addr[1] = b;
    s.addr[2] = c;
    s.addr[3] = d;
    return s;
}

std::string PrintIpOnly(const sockaddr_type& s) {
    std::ostringstream os;
    iponly_to_strm(os, s);
    return os.str();
}

struct ParseCase {
    const char* text;
    bool accepted;
    uint8_t addr[4];
    uint16_t port; // host order
};

class SockaddrParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(SockaddrParse, ParsesAsDocumented) {
    const ParseCase& c = GetParam();
    sockaddr_type s;
    std::memset(&s, 0xAB, sizeof s); // every byte must be rewritten
    EXPECT_EQ(string_to_sockaddr_type(s, c.text), c.accepted);
    EXPECT_EQ(s.family, VOIPXLATE_FAMILY_IPV4);
    EXPECT_EQ(ntohs(s.port), c.port);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(s.addr[i], c.addr[i]) << "byte " << i;
    for (int i = 4; i < 16; ++i)
        EXPECT_EQ(s.addr[i], 0) << "byte " << i;
}

INSTANTIATE_TEST_SUITE_P(
    Table, SockaddrParse,
    ::testing::Values(ParseCase{"10.0.0.1:1720", true, {10, 0, 0, 1}, 1720},
                      ParseCase{"10.0.0.1", true, {10, 0, 0, 1}, 0},
                      ParseCase{"10.0.0", false, {0, 0, 0, 0}, 0},
                      ParseCase{":5060", false, {0, 0, 0, 0}, 5060},
                      ParseCase{"1..2.3.4", true, {1, 2, 3, 4}, 0}, // runs of '.' are one separator
                      ParseCase{"300.1.2.3", true, {44, 1, 2, 3}, 0}, // low 8 bits kept
                      ParseCase{"1.2.3.4:70000", true, {1, 2, 3, 4}, 70000 & 0xFFFF},
                      ParseCase{"1.2.3.4:x", true, {1, 2, 3, 4}, 0}, // no digits: port 0
                      ParseCase{"1.2.3.4.5", false, {0, 0, 0, 0}, 0},
                      ParseCase{"", false, {0, 0, 0, 0}, 0},
                      ParseCase{"::1", false, {0, 0, 0, 0}, 0}, // no IPv6 text
                      ParseCase{"a.b.c.d:9", true, {0, 0, 0, 0}, 9}));

TEST(Sockaddr, PrintsIPv4WithAndWithoutPort) {
    EXPECT_EQ(Text(V4(10, 0, 0, 1, 1720)), "10.0.0.1:1720");
    EXPECT_EQ(Text(V4(10, 0, 0, 1, 0)), "10.0.0.1");
    EXPECT_EQ(Text(V4(255, 255, 255, 255, 65535)), "255.255.255.255:65535");
    EXPECT_EQ(PrintIpOnly(V4(192, 168, 0, 1, 5060)), "192.168.0.1");
}

TEST(Sockaddr, PrintsIPv6AsDecimalBytes) {
    sockaddr_type s;
    std::memset(&s, 0, sizeof s);
    s.family = VOIPXLATE_FAMILY_IPV6;
    s.addr[0] = 0xfe;
    s.addr[1] = 0x80;
    s.addr[15] = 1;
    EXPECT_EQ(Text(s), "[254:128:0:0:0:0:0:0:0:0:0:0:0:0:0:1]");
    s.port = htons(5004);
    EXPECT_EQ(Text(s), "[254:128:0:0:0:0:0:0:0:0:0:0:0:0:0:1]:5004");
    EXPECT_EQ(PrintIpOnly(s), "[254:128:0:0:0:0:0:0:0:0:0:0:0:0:0:1]");
}

TEST(Sockaddr, PrintsUnknownFamily) {
    sockaddr_type s = V4(1, 2, 3, 4, 80);
    s.family = 0;
    EXPECT_EQ(Text(s), "(unknown):80");
    EXPECT_EQ(PrintIpOnly(s), "(unknown)");
}

TEST(Sockaddr, Equality) {
    const sockaddr_type a = V4(10, 0, 0, 1, 1720);
    sockaddr_type b = a;
    b.addr[7] = 99; // IPv4 ignores bytes 4..15
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == V4(10, 0, 0, 1, 1721));
    EXPECT_FALSE(a == V4(10, 0, 0, 2, 1720));

    sockaddr_type v6 = a;
    v6.family = VOIPXLATE_FAMILY_IPV6;
    EXPECT_FALSE(a == v6); // families differ
    sockaddr_type v6b = v6;
    EXPECT_TRUE(v6 == v6b);
    v6b.addr[15] = 1; // IPv6 compares all 16 bytes
    EXPECT_FALSE(v6 == v6b);

    sockaddr_type unknown;
    std::memset(&unknown, 0, sizeof unknown);
    EXPECT_FALSE(unknown == unknown); // an unknown family is never equal, not even to itself
    EXPECT_TRUE(unknown != unknown);
}

TEST(Sockaddr, IsIpAddrSep) {
    IsIpAddrSep sep;
    EXPECT_TRUE(sep('.'));
    EXPECT_TRUE(sep('\0'));
    EXPECT_FALSE(sep(':'));
    EXPECT_FALSE(sep('1'));
}

} // namespace
