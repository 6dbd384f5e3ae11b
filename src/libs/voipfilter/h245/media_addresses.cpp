#include "h245/media_addresses.h"

#include "host/sockaddr.h"

using namespace MULTIMEDIA_SYSTEM_CONTROL;

bool DecodeH245TransportAddress(const TransportAddress& in, sockaddr_type& out) {
    out = CopyOrZero(nullptr);
    if (!in.unicastAddress_isSelected())
        return false;
    const UnicastAddress& unicast = in.get_unicastAddress();
    if (unicast.iPAddress_isSelected()) {
        const auto& ip = unicast.get_iPAddress();
        out = SockaddrFromOctets(VOIPXLATE_FAMILY_IPV4, ip.get_network().data(),
                                 ip.get_network().size(), ip.get_tsapIdentifier().getValue());
        return true;
    }
    if (unicast.iP6Address_isSelected()) {
        const auto& ip = unicast.get_iP6Address();
        out = SockaddrFromOctets(VOIPXLATE_FAMILY_IPV6, ip.get_network().data(),
                                 ip.get_network().size(), ip.get_tsapIdentifier().getValue());
        return true;
    }
    return false;
}

bool EncodeH245TransportAddress(const sockaddr_type& in, TransportAddress& out) {
    out.select(TransportAddress::unicastAddress::id_);
    UnicastAddress& unicast = out.ref_unicastAddress();
    const char* bytes = reinterpret_cast<const char*>(in.addr);
    switch (in.family) {
    case VOIPXLATE_FAMILY_IPV4: {
        unicast.select(UnicastAddress::iPAddress::id_);
        auto& ip = unicast.ref_iPAddress();
        ip.ref_network().assign(bytes, bytes + 4);
        ip.ref_tsapIdentifier() = ntohs(in.port);
        return true;
    }
    case VOIPXLATE_FAMILY_IPV6: {
        // The IPv6 alternative is filled through the IPv4 accessors, so the selection check
        // stops an IPv6 media address here rather than letting it be written half-way.
        unicast.select(UnicastAddress::iP6Address::id_);
        auto& ip = unicast.ref_iPAddress();
        ip.ref_network().assign(bytes, bytes + 16);
        ip.ref_tsapIdentifier() = ntohs(in.port);
        return true;
    }
    default:
        return false;
    }
}

bool HoldsUnicastIPv4(const TransportAddress& address) {
    return address.unicastAddress_isSelected() &&
           address.get_unicastAddress().iPAddress_isSelected();
}

bool OverwriteH245TransportAddress(const ASN1::LeafPositions& positions,
                                   const TransportAddress& address, char* octets) {
    if (!HoldsUnicastIPv4(address))
        return false;
    const auto& ip = address.get_unicastAddress().get_iPAddress();
    return ASN1::OverwriteLeaf(positions, ip.get_network(), octets) &&
           ASN1::OverwriteLeaf(positions, ip.get_tsapIdentifier(), octets);
}
