#include "host/sockaddr.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <ostream>

std::ostream& iponly_to_strm(std::ostream& os, const sockaddr_type& address) {
    switch (address.family) {
    case VOIPXLATE_FAMILY_IPV4:
        os << unsigned(address.addr[0]) << '.' << unsigned(address.addr[1]) << '.'
           << unsigned(address.addr[2]) << '.' << unsigned(address.addr[3]);
        break;
    case VOIPXLATE_FAMILY_IPV6:
        // Decimal bytes, not hexadecimal groups: the form log consumers expect.
        os << '[';
        for (int i = 0; i < 16; ++i) {
            if (i != 0)
                os << ':';
            os << unsigned(address.addr[i]);
        }
        os << ']';
        break;
    default:
        os << "(unknown)";
        break;
    }
    return os;
}

std::ostream& operator<<(std::ostream& os, const sockaddr_type& address) {
    iponly_to_strm(os, address);
    if (address.port != 0)
        os << ':' << ntohs(address.port);
    return os;
}

bool string_to_sockaddr_type(sockaddr_type& address, const std::string& text) {
    std::memset(&address, 0, sizeof address);
    address.family = VOIPXLATE_FAMILY_IPV4;

    const char* const s = text.c_str();
    std::string::size_type end = text.find(':');
    if (end != std::string::npos)
        address.port = htons(static_cast<uint16_t>(std::strtol(s + end + 1, nullptr, 10)));
    else
        end = text.size();

    // The address part splits into runs of characters other than the separators. Each number is
    // read where its run starts: strtol stops at the separator, the colon or the end after it, so
    // no run needs a copy of its own.
    const IsIpAddrSep isSeparator;
    const char* parts[4];
    unsigned count = 0;
    for (std::string::size_type i = 0; i < end;) {
        while (i < end && isSeparator(s[i]))
            ++i;
        if (i == end)
            break;
        if (count == 4)
            return false;
        parts[count++] = s + i;
        while (i < end && !isSeparator(s[i]))
            ++i;
    }
    if (count != 4)
        return false;
    for (unsigned i = 0; i < 4; ++i)
        address.addr[i] = static_cast<uint8_t>(std::strtol(parts[i], nullptr, 10));
    return true;
}

bool operator==(const sockaddr_type& a, const sockaddr_type& b) {
    if (a.family != b.family || a.port != b.port)
        return false;
    switch (a.family) {
    case VOIPXLATE_FAMILY_IPV4:
        return std::memcmp(a.addr, b.addr, 4) == 0;
    case VOIPXLATE_FAMILY_IPV6:
        return std::memcmp(a.addr, b.addr, 16) == 0;
    default:
        return false;
    }
}

sockaddr_type SockaddrFromOctets(int family, const char* octets, std::size_t size, unsigned port) {
    sockaddr_type address = CopyOrZero(nullptr);
    const std::size_t length = family == VOIPXLATE_FAMILY_IPV4 ? 4 : 16;
    address.family = static_cast<decltype(address.family)>(family);
    std::memcpy(address.addr, octets, size < length ? size : length);
    address.port = htons(static_cast<uint16_t>(port));
    return address;
}
