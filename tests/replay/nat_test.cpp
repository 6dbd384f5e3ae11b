#include <gtest/gtest.h>

#include "nat.h"

using namespace replay;

namespace {

struct RuleCase {
    const char* text;
    bool ok;
    const char* normalised; // when ok
};

TEST(NatRule, Parsing) {
    const RuleCase cases[] = {
        {"10.1.3.0/24=203.0.113.1", true, "10.1.3.0/24=203.0.113.1"},
        {"10.0.2.20=203.0.113.2", true, "10.0.2.20/32=203.0.113.2"},
        {"0.0.0.0/0=198.51.100.7", true, "0.0.0.0/0=198.51.100.7"},
        {"10.1.3.1/24=203.0.113.1", false, ""}, // host bits set
        {"10.1.3.0/33=203.0.113.1", false, ""},
        {"10.1.3.0/=203.0.113.1", false, ""},
        {"10.1.3.0/24", false, ""},
        {"10.1.3.0/24=203.0.113", false, ""},
        {"10.1.3.256=203.0.113.1", false, ""},
        {"10.1.3.0/24=203.0.113.1.5", false, ""},
        {"10.1..0/24=203.0.113.1", false, ""},
        {" 10.1.3.0/24=203.0.113.1", false, ""},
        {"=", false, ""},
    };
    for (const RuleCase& c : cases) {
        std::string error;
        std::optional<NatRule> rule = parseNatRule(c.text, error);
        EXPECT_EQ(rule.has_value(), c.ok) << c.text;
        if (rule) {
            EXPECT_EQ(rule->toString(), c.normalised);
        } else {
            EXPECT_FALSE(error.empty()) << c.text;
        }
    }
}

uint32_t ip(const char* text) {
    return *parseIpv4(text);
}

TEST(NatTable, MostSpecificRuleAndAnnouncement) {
    NatTable nat;
    std::string error;
    nat.add(*parseNatRule("10.0.0.0/8=203.0.113.1", error));
    nat.add(*parseNatRule("10.1.3.0/24=203.0.113.2", error));
    EXPECT_EQ(nat.match(ip("10.1.3.7"))->publicIp, ip("203.0.113.2"));
    EXPECT_EQ(nat.match(ip("10.9.9.9"))->publicIp, ip("203.0.113.1"));
    EXPECT_EQ(nat.match(ip("192.0.2.1")), nullptr);

    // Inside towards outside: the public address. Outside, or a peer in the same inside
    // network: unchanged.
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("192.0.2.1")), ip("203.0.113.2"));
    EXPECT_EQ(nat.announce(ip("192.0.2.1"), ip("10.1.3.7")), ip("192.0.2.1"));
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("10.1.3.8")), ip("10.1.3.7"));
    EXPECT_EQ(nat.announce(ip("10.1.3.7"), ip("10.2.0.1")), ip("203.0.113.2"));
}

TEST(PortRange, Parsing) {
    const std::pair<const char*, bool> cases[] = {
        {"20000-29999", true}, {"1-1", true},      {"0-10", false},
        {"10-9", false},       {"1-65536", false}, {"100", false},
        {"a-b", false},        {"-5", false},      {"100000-100001", false},
    };
    for (const auto& [text, ok] : cases) {
        std::string error;
        EXPECT_EQ(parsePortRange(text, error).has_value(), ok) << text;
    }
}

TEST(PortPool, EvenPairsUntilExhaustedThenReused) {
    PortPool pool(PortRange{20001, 20006});
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
    EXPECT_EQ(top.allocatePair(), std::nullopt);
}

} // namespace
