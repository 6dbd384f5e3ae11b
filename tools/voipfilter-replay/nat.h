// The simulated firewall's address translation: rules mapping an inside network to a public
// address, and the pool of public ports handed out for media pinholes and H.245 relays.
#ifndef VOIPFILTER_REPLAY_NAT_H
#define VOIPFILTER_REPLAY_NAT_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace replay {

// "a.b.c.d" with four decimal octets of at most three digits each.
std::optional<uint32_t> parseIpv4(const std::string& text);

struct NatRule {
    uint32_t network = 0;
    int prefixLength = 32;
    uint32_t publicIp = 0;

    bool contains(uint32_t ip) const;
    std::string toString() const;
};

// "INSIDE_CIDR=PUBLIC_IP", for example "10.1.3.0/24=203.0.113.1"; a bare address means /32.
// Host bits set in the network are an error. On failure returns nothing and sets error.
std::optional<NatRule> parseNatRule(const std::string& text, std::string& error);

class NatTable {
public:
    void add(const NatRule& rule) { rules_.push_back(rule); }
    const std::vector<NatRule>& rules() const { return rules_; }
    // The most specific rule whose inside network holds ip, or null.
    const NatRule* match(uint32_t ip) const;
    // The address under which endpoint is to be announced to peer: the public address of its rule
    // when endpoint is inside and peer is not in the same inside network; else endpoint itself.
    uint32_t announce(uint32_t endpoint, uint32_t peer) const;

private:
    std::vector<NatRule> rules_;
};

struct PortRange {
    uint16_t low = 0;
    uint16_t high = 0;
};

// "LOW-HIGH" with 1 <= LOW <= HIGH <= 65535. On failure returns nothing and sets error.
std::optional<PortRange> parsePortRange(const std::string& text, std::string& error);

// Public ports in use. Media takes an even RTP port with the RTCP port after it.
class PortPool {
public:
    explicit PortPool(PortRange range) : range_(range) {}
    std::optional<uint16_t> allocatePair();
    std::optional<uint16_t> allocateOne();
    void release(uint16_t port) { used_.erase(port); }

private:
    PortRange range_;
    std::set<uint16_t> used_;
};

} // namespace replay

#endif
