#include <gtest/gtest.h>

#include "nat.h"
#include "test_util.h"

using namespace replay;

namespace {

// tests/data/replay/nat-rules.tsv: a rule as given, and as printed ("refused" when it is not one).
TEST(NatRule, ParsingAndPrinting) {
    for (const std::vector<std::string>& row : TableRows("replay/nat-rules.tsv", 2)) {
        std::string error;
        std::optional<NatRule> rule = parseNatRule(row[0], error);
        EXPECT_EQ(rule ? rule->toString() : "refused", row[1]) << row[0];
        EXPECT_EQ(!rule, !error.empty()) << row[0];
    }
}

TEST(NatTable, MostSpecificRuleAndAnnouncement) {
    auto ip = [](const char* text) { return *parseIpv4(text); };
    NatTable nat;
    std::string error;
    nat.add(*parseNatRule("10.0.0.0/8=203.0.113.1", error));
    nat.add(*parseNatRule("10.1.3.0/24=203.0.113.2", error));
    EXPECT_EQ(nat.match(ip("10.9.9.9"))->publicIp, ip("203.0.113.1"));
    EXPECT_EQ(nat.match(ip("192.0.2.1")), nullptr);
    // Inside towards outside: the public address of the longest prefix. Outside, or a peer in
    // the same inside network: unchanged.
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("192.0.2.1")), ip("203.0.113.2"));
    EXPECT_EQ(nat.announce(ip("192.0.2.1"), ip("10.1.3.7")), ip("192.0.2.1"));
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("10.1.3.8")), ip("10.1.3.7"));
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("10.2.0.1")), ip("203.0.113.2"));
}

TEST(PortPool, EvenPairsUntilExhaustedThenReused) {
    std::string error;
    for (const char* bad : {"0-10", "10-9", "1-65536", "100", "a-b", "-5"})
        EXPECT_FALSE(parsePortRange(bad, error)) << bad;
    PortPool pool(*parsePortRange("20001-20006", error));
    EXPECT_EQ(pool.allocatePair(), std::optional<uint16_t>(20002));
    EXPECT_EQ(pool.allocatePair(), std::optional<uint16_t>(20004));
    EXPECT_EQ(pool.allocatePair(), std::nullopt); // 20006 has no RTCP port in the range
    EXPECT_EQ(pool.allocateOne(), std::optional<uint16_t>(20001));
    EXPECT_EQ(pool.allocateOne(), std::optional<uint16_t>(20006));
    EXPECT_EQ(pool.allocateOne(), std::nullopt);
    pool.release(20002);
    pool.release(20003);
    EXPECT_EQ(pool.allocatePair(), std::optional<uint16_t>(20002));
    PortPool top(PortRange{65534, 65535});
    EXPECT_EQ(top.allocatePair(), std::optional<uint16_t>(65534));
}

} // namespace
