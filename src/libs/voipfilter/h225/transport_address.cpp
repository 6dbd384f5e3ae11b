#include "h225/transport_address.h"

#include "host/sockaddr.h"

#include <arpa/inet.h>

bool DecodeH225TransportAddress(const H323_MESSAGES::TransportAddress& in, sockaddr_type& out) {
    if (in.ipAddress_isSelected()) {
        const auto& ip = in.get_ipAddress();
        out = SockaddrFromOctets(VOIPXLATE_FAMILY_IPV4, ip.get_ip().data(), ip.get_ip().size(),
                                 ip.get_port().getValue());
        return true;
    }
    if (in.ip6Address_isSelected()) {
        const auto& ip = in.get_ip6Address();
        out = SockaddrFromOctets(VOIPXLATE_FAMILY_IPV6, ip.get_ip().data(), ip.get_ip().size(),
                                 ip.get_port().getValue());
        return true;
    }
    out = CopyOrZero(nullptr);
    return false;
}

bool KeepsEncodingShape(const sockaddr_type& in, const H323_MESSAGES::TransportAddress& out) {
    return out.ipAddress_isSelected() && (in.family == 0 || in.family == VOIPXLATE_FAMILY_IPV4);
}

bool EncodeH225TransportAddress(const sockaddr_type& in, H323_MESSAGES::TransportAddress& out) {
    const char* bytes = reinterpret_cast<const char*>(in.addr);
    switch (in.family) {
    case 0:
    case VOIPXLATE_FAMILY_IPV4: {
        out.select(H323_MESSAGES::TransportAddress::ipAddress::id_);
        auto& ip = out.ref_ipAddress();
        ip.ref_ip().assign(bytes, bytes + 4);
        ip.ref_port() = ntohs(in.port);
        return true;
    }
    case 3: {
        // Family 3, not 6, selects ip6Address: records decoded from a PDU (family 6) are not
        // written back. Hosts rely on that to keep IPv6 addresses out of rewritten PDUs.
        out.select(H323_MESSAGES::TransportAddress::ip6Address::id_);
        auto& ip = out.ref_ip6Address();
        ip.ref_ip().assign(bytes, bytes + 16);
        ip.ref_port() = ntohs(in.port);
        return true;
    }
    default:
        return false;
    }
}
