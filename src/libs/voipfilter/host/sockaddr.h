// The address-and-port value exchanged between the host and every translator: text forms for log
// lines and SIP/SDP, the dotted-quad parser, and equality.
#ifndef VOIPFILTER_HOST_SOCKADDR_H
#define VOIPFILTER_HOST_SOCKADDR_H

#include <voipfilter/voipfilter.h>

#include <cstring>
#include <iosfwd>
#include <string>

static_assert(sizeof(sockaddr_type) == 20, "sockaddr_type crosses the C API and must be 20 bytes");

// Writes the address without its port. IPv6 is written as sixteen decimal bytes joined by ':'
// inside brackets; log readers and the SDP code rely on that form, so it is not the RFC 5952 one.
std::ostream& iponly_to_strm(std::ostream& os, const sockaddr_type& address);

// Writes the address and, when the port is non-zero, ':' and the port.
std::ostream& operator<<(std::ostream& os, const sockaddr_type& address);

// Parses "a.b.c.d[:port]". Returns true when the address part had exactly four parts; the port is
// read even when the address is not accepted. No IPv6 text is accepted and out-of-range numbers
// keep their low 8 (address) or 16 (port) bits.
bool string_to_sockaddr_type(sockaddr_type& address, const std::string& text);

// A copy of the address the host passed, or an all-zero one for a null pointer.
inline sockaddr_type CopyOrZero(const sockaddr_type* address) {
    if (address != nullptr)
        return *address;
    sockaddr_type zero;
    std::memset(&zero, 0, sizeof zero);
    return zero;
}

// The record of an address read from a PDU: the family, its octets (IPv4 4, IPv6 16; a shorter
// string leaves the rest zero, a longer one is cut) and the port, stored in network order.
sockaddr_type SockaddrFromOctets(int family, const char* octets, std::size_t size, unsigned port);

// Equal families and ports, then IPv4 compares 4 bytes and IPv6 all 16; an unknown family is
// never equal, not even to itself.
bool operator==(const sockaddr_type& a, const sockaddr_type& b);
inline bool operator!=(const sockaddr_type& a, const sockaddr_type& b) {
    return !(a == b);
}

// Separator predicate for the dotted-quad tokeniser: NUL and '.'.
struct IsIpAddrSep {
    bool operator()(char c) const { return c == '\0' || c == '.'; }
};

#endif
