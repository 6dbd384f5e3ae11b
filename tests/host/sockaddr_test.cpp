#include "host/sockaddr.h"
#include "test_util.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

std::string PrintIpOnly(const sockaddr_type& s) {
    std::ostringstream os;
    iponly_to_strm(os, s);
    return os.str();
}

TEST(Sockaddr, ParsesAndPrintsTheTable) {
    for (const std::vector<std::string>& cells : TableRows("host/addresses.tsv", 3)) {
        sockaddr_type s;
        std::memset(&s, 0xAB, sizeof s); // every byte must be rewritten
        EXPECT_EQ(cells[1] == "yes", string_to_sockaddr_type(s, cells[0])) << cells[0];
        EXPECT_EQ(cells[2], Text(s)) << cells[0];
        EXPECT_EQ(VOIPXLATE_FAMILY_IPV4, s.family);
        for (int i = 4; i < 16; ++i)
            EXPECT_EQ(0, s.addr[i]) << cells[0] << ": byte " << i;
    }
}

TEST(Sockaddr, PrintsEveryFamily) {
    sockaddr_type s = Addr("192.168.0.1:5060");
    EXPECT_EQ("192.168.0.1", PrintIpOnly(s));
    s.family = VOIPXLATE_FAMILY_IPV6;
    s.addr[0] = 0xfe;
    s.addr[1] = 0x80;
    std::memset(s.addr + 2, 0, 13);
    s.addr[15] = 1;
    EXPECT_EQ("[254:128:0:0:0:0:0:0:0:0:0:0:0:0:0:1]:5060", Text(s));
    EXPECT_EQ("[254:128:0:0:0:0:0:0:0:0:0:0:0:0:0:1]", PrintIpOnly(s));
    s.family = 0;
    EXPECT_EQ("(unknown):5060", Text(s));
    EXPECT_EQ("(unknown)", PrintIpOnly(s));
}

TEST(Sockaddr, Equality) {
    const sockaddr_type a = Addr("10.0.0.1:1720");
    sockaddr_type b = a;
    b.addr[7] = 99; // IPv4 ignores bytes 4..15
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == Addr("10.0.0.1:1721"));
    EXPECT_FALSE(a == Addr("10.0.0.2:1720"));
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

} // namespace
