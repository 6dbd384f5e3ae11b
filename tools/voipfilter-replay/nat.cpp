#include "nat.h"

#include "packet.h"

namespace replay {

namespace {

// A decimal number of 1..digits digits, at most max; nothing else.
std::optional<uint32_t> parseNumber(const std::string& text, size_t digits, uint32_t max) {
    if (text.empty() || text.size() > digits) {
        return std::nullopt;
    }
    uint32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (value > max) {
        return std::nullopt;
    }
    return value;
}

uint32_t maskOf(int prefixLength) {
    return prefixLength == 0 ? 0 : ~uint32_t{0} << (32 - prefixLength);
}

} // namespace

std::optional<uint32_t> parseIpv4(const std::string& text) {
    uint32_t ip = 0;
    size_t from = 0;
    for (int i = 0; i < 4; ++i) {
        size_t dot = text.find('.', from);
        if ((i < 3) != (dot != std::string::npos)) {
            return std::nullopt;
        }
        std::string part = text.substr(from, i < 3 ? dot - from : std::string::npos);
        std::optional<uint32_t> octet = parseNumber(part, 3, 255);
        if (!octet) {
            return std::nullopt;
        }
        ip = (ip << 8) | *octet;
        from = dot + 1;
    }
    return ip;
}

bool NatRule::contains(uint32_t ip) const {
    return (ip & maskOf(prefixLength)) == network;
}

std::string NatRule::toString() const {
    return ipToString(network) + "/" + std::to_string(prefixLength) + "=" + ipToString(publicIp);
}

std::optional<NatRule> parseNatRule(const std::string& text, std::string& error) {
    size_t equals = text.find('=');
    if (equals == std::string::npos) {
        error = "expected INSIDE_CIDR=PUBLIC_IP in '" + text + "'";
        return std::nullopt;
    }
    std::string inside = text.substr(0, equals);
    NatRule rule;
    size_t slash = inside.find('/');
    if (slash != std::string::npos) {
        std::optional<uint32_t> prefix = parseNumber(inside.substr(slash + 1), 2, 32);
        if (!prefix) {
            error = "bad prefix length in '" + text + "'";
            return std::nullopt;
        }
        rule.prefixLength = static_cast<int>(*prefix);
        inside.resize(slash);
    }
    std::optional<uint32_t> network = parseIpv4(inside);
    std::optional<uint32_t> publicIp = parseIpv4(text.substr(equals + 1));
    if (!network || !publicIp) {
        error = "bad IPv4 address in '" + text + "'";
        return std::nullopt;
    }
    if ((*network & ~maskOf(rule.prefixLength)) != 0) {
        error = "host bits set in the inside network of '" + text + "'";
        return std::nullopt;
    }
    rule.network = *network;
    rule.publicIp = *publicIp;
    return rule;
}

const NatRule* NatTable::match(uint32_t ip) const {
    const NatRule* best = nullptr;
    for (const NatRule& rule : rules_) {
        if (rule.contains(ip) && (best == nullptr || rule.prefixLength > best->prefixLength)) {
            best = &rule;
        }
    }
    return best;
}

uint32_t NatTable::announce(uint32_t endpoint, uint32_t peer) const {
    const NatRule* rule = match(endpoint);
    if (rule == nullptr || rule->contains(peer)) {
        return endpoint;
    }
    return rule->publicIp;
}

std::optional<PortRange> parsePortRange(const std::string& text, std::string& error) {
    size_t dash = text.find('-');
    std::optional<uint32_t> low, high;
    if (dash != std::string::npos) {
        low = parseNumber(text.substr(0, dash), 5, 65535);
        high = parseNumber(text.substr(dash + 1), 5, 65535);
    }
    if (!low || !high || *low == 0 || *low > *high) {
        error = "expected LOW-HIGH with 1 <= LOW <= HIGH <= 65535, got '" + text + "'";
        return std::nullopt;
    }
    return PortRange{static_cast<uint16_t>(*low), static_cast<uint16_t>(*high)};
}

std::optional<uint16_t> PortPool::allocatePair() {
    for (uint32_t port = range_.low + (range_.low & 1u); port + 1 <= range_.high; port += 2) {
        auto rtp = static_cast<uint16_t>(port);
        auto rtcp = static_cast<uint16_t>(port + 1);
        if (used_.count(rtp) == 0 && used_.count(rtcp) == 0) {
            used_.insert(rtp);
            used_.insert(rtcp);
            return rtp;
        }
    }
    return std::nullopt;
}

std::optional<uint16_t> PortPool::allocateOne() {
    for (uint32_t port = range_.low; port <= range_.high; ++port) {
        auto candidate = static_cast<uint16_t>(port);
        if (used_.insert(candidate).second) {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace replay
