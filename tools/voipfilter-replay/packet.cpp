#include "packet.h"

namespace replay {

namespace {

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherIpv6 = 0x86DD;
constexpr uint16_t kEtherVlan = 0x8100;
constexpr uint16_t kEtherQinQ = 0x88A8;
constexpr uint16_t kEtherPppoeSession = 0x8864;
constexpr uint16_t kPppIpv4 = 0x0021;
constexpr uint16_t kPppIpv6 = 0x0057;

DecodedPacket fail(DecodeStatus status) {
    DecodedPacket packet;
    packet.status = status;
    return packet;
}

// Finds the network layer: returns its offset and the EtherType-style protocol through *type,
// and the offset of a PPPoE length field through *pppoeLength (0 when there is none).
DecodeStatus linkLayer(int linkType, const uint8_t* frame, size_t length, size_t* offset,
                       uint16_t* type, size_t* pppoeLength) {
    *pppoeLength = 0;
    switch (linkType) {
    case kLinkEthernet: {
        size_t at = 12;
        if (length < at + 2) {
            return DecodeStatus::Truncated;
        }
        uint16_t etherType = readBe16(frame + at);
        while (etherType == kEtherVlan || etherType == kEtherQinQ) {
            at += 4;
            if (length < at + 2) {
                return DecodeStatus::Truncated;
            }
            etherType = readBe16(frame + at);
        }
        if (etherType == kEtherPppoeSession) {
            // RFC 2516 session header (6 bytes), then the PPP protocol number.
            if (length < at + 2 + 8) {
                return DecodeStatus::Truncated;
            }
            *pppoeLength = at + 2 + 4;
            uint16_t ppp = readBe16(frame + at + 2 + 6);
            etherType = ppp == kPppIpv4 ? kEtherIpv4 : ppp == kPppIpv6 ? kEtherIpv6 : 0;
            at += 8;
        }
        *offset = at + 2;
        *type = etherType;
        return DecodeStatus::Ok;
    }
    case kLinkLinuxSll:
        if (length < 16) {
            return DecodeStatus::Truncated;
        }
        *offset = 16;
        *type = readBe16(frame + 14);
        return DecodeStatus::Ok;
    case kLinkLinuxSll2:
        if (length < 20) {
            return DecodeStatus::Truncated;
        }
        *offset = 20;
        *type = readBe16(frame);
        return DecodeStatus::Ok;
    case kLinkRaw:
    case kLinkRawAlt:
    case kLinkRawLinktype:
    case kLinkIpv4:
        if (length < 1) {
            return DecodeStatus::Truncated;
        }
        *offset = 0;
        *type = (frame[0] >> 4) == 6 ? kEtherIpv6 : kEtherIpv4;
        return DecodeStatus::Ok;
    default:
        return DecodeStatus::UnknownLink;
    }
}

} // namespace

bool linkTypeSupported(int linkType) {
    size_t offset = 0;
    size_t pppoe = 0;
    uint16_t type = 0;
    const uint8_t probe[32] = {};
    return linkLayer(linkType, probe, sizeof probe, &offset, &type, &pppoe) !=
           DecodeStatus::UnknownLink;
}

const char* linkTypeName(int linkType) {
    switch (linkType) {
    case kLinkEthernet:
        return "Ethernet";
    case kLinkLinuxSll:
        return "Linux cooked";
    case kLinkLinuxSll2:
        return "Linux cooked v2";
    case kLinkRaw:
    case kLinkRawAlt:
    case kLinkRawLinktype:
    case kLinkIpv4:
        return "raw IP";
    default:
        return "unsupported";
    }
}

const char* decodeStatusText(DecodeStatus status) {
    switch (status) {
    case DecodeStatus::Ok:
        return "ok";
    case DecodeStatus::Truncated:
        return "truncated frame";
    case DecodeStatus::UnknownLink:
        return "unknown link type";
    case DecodeStatus::NotIp:
        return "not IP";
    case DecodeStatus::Ipv6:
        return "IPv6";
    case DecodeStatus::Fragment:
        return "IP fragment";
    case DecodeStatus::BadHeader:
        return "bad header";
    case DecodeStatus::OtherIp:
        return "neither UDP nor TCP";
    }
    return "?";
}

uint16_t readBe16(const uint8_t* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

uint32_t readBe32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

void writeBe16(uint8_t* p, uint16_t value) {
    p[0] = static_cast<uint8_t>(value >> 8);
    p[1] = static_cast<uint8_t>(value);
}

void writeBe32(uint8_t* p, uint32_t value) {
    p[0] = static_cast<uint8_t>(value >> 24);
    p[1] = static_cast<uint8_t>(value >> 16);
    p[2] = static_cast<uint8_t>(value >> 8);
    p[3] = static_cast<uint8_t>(value);
}

DecodedPacket decodePacket(int linkType, const uint8_t* frame, size_t length) {
    size_t ip = 0;
    size_t pppoeLength = 0;
    uint16_t type = 0;
    DecodeStatus link = linkLayer(linkType, frame, length, &ip, &type, &pppoeLength);
    if (link != DecodeStatus::Ok) {
        return fail(link);
    }
    if (type == kEtherIpv6) {
        return fail(DecodeStatus::Ipv6);
    }
    if (type != kEtherIpv4) {
        return fail(DecodeStatus::NotIp);
    }
    if (length < ip + 20) {
        return fail(DecodeStatus::Truncated);
    }
    const uint8_t* h = frame + ip;
    if ((h[0] >> 4) != 4) {
        return fail(DecodeStatus::BadHeader);
    }
    size_t headerLength = size_t{h[0] & 0x0Fu} * 4;
    size_t totalLength = readBe16(h + 2);
    if (headerLength < 20 || totalLength < headerLength) {
        return fail(DecodeStatus::BadHeader);
    }
    if (length < ip + totalLength) {
        return fail(DecodeStatus::Truncated);
    }
    uint16_t fragment = readBe16(h + 6);
    if ((fragment & 0x2000u) != 0 || (fragment & 0x1FFFu) != 0) {
        return fail(DecodeStatus::Fragment);
    }

    DecodedPacket packet;
    packet.pppoeLengthOffset = pppoeLength;
    packet.ipOffset = ip;
    packet.ipHeaderLength = headerLength;
    packet.protocol = h[9];
    packet.srcIp = readBe32(h + 12);
    packet.dstIp = readBe32(h + 16);
    packet.l4Offset = ip + headerLength;
    size_t l4Length = totalLength - headerLength;
    const uint8_t* l4 = frame + packet.l4Offset;

    if (packet.protocol == kProtoUdp) {
        if (l4Length < 8) {
            packet.status = DecodeStatus::Truncated;
            return packet;
        }
        size_t udpLength = readBe16(l4 + 4);
        if (udpLength < 8 || udpLength > l4Length) {
            packet.status = DecodeStatus::BadHeader;
            return packet;
        }
        packet.srcPort = readBe16(l4);
        packet.dstPort = readBe16(l4 + 2);
        packet.payloadOffset = packet.l4Offset + 8;
        packet.payloadLength = udpLength - 8;
    } else if (packet.protocol == kProtoTcp) {
        if (l4Length < 20) {
            packet.status = DecodeStatus::Truncated;
            return packet;
        }
        size_t dataOffset = size_t{static_cast<uint8_t>(l4[12] >> 4)} * 4;
        if (dataOffset < 20 || dataOffset > l4Length) {
            packet.status = DecodeStatus::BadHeader;
            return packet;
        }
        packet.srcPort = readBe16(l4);
        packet.dstPort = readBe16(l4 + 2);
        packet.seq = readBe32(l4 + 4);
        packet.ack = readBe32(l4 + 8);
        packet.tcpFlags = l4[13];
        packet.payloadOffset = packet.l4Offset + dataOffset;
        packet.payloadLength = l4Length - dataOffset;
    } else {
        packet.status = DecodeStatus::OtherIp;
        return packet;
    }
    packet.status = DecodeStatus::Ok;
    return packet;
}

uint32_t onesComplementSum(const uint8_t* data, size_t length, uint32_t sum) {
    size_t i = 0;
    for (; i + 1 < length; i += 2) {
        sum += readBe16(data + i);
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    if (i < length) {
        sum += uint32_t{data[i]} << 8;
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    return sum;
}

uint16_t foldChecksum(uint32_t sum) {
    while ((sum >> 16) != 0) {
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum & 0xFFFFu);
}

void fixChecksums(std::vector<uint8_t>& frame, const DecodedPacket& packet) {
    uint8_t* ip = frame.data() + packet.ipOffset;
    writeBe16(ip + 10, 0);
    writeBe16(ip + 10, foldChecksum(onesComplementSum(ip, packet.ipHeaderLength, 0)));

    size_t l4Length = readBe16(ip + 2) - packet.ipHeaderLength;
    uint8_t* l4 = frame.data() + packet.l4Offset;
    size_t checksumAt = packet.isTcp() ? 16 : 6;
    writeBe16(l4 + checksumAt, 0);
    // Pseudo-header: source, destination, zero, protocol, transport length.
    uint32_t sum = onesComplementSum(ip + 12, 8, 0);
    sum += packet.protocol;
    sum += static_cast<uint32_t>(l4Length);
    sum = onesComplementSum(l4, l4Length, sum);
    uint16_t checksum = foldChecksum(sum);
    if (packet.isUdp() && checksum == 0) {
        checksum = 0xFFFF; // RFC 768: a computed zero is sent as all ones
    }
    writeBe16(l4 + checksumAt, checksum);
}

std::vector<uint8_t> rebuildFrame(const uint8_t* frame, const DecodedPacket& packet,
                                  const std::vector<uint8_t>& payload, uint32_t seq, uint32_t ack) {
    std::vector<uint8_t> out(frame, frame + packet.payloadOffset);
    out.insert(out.end(), payload.begin(), payload.end());
    uint8_t* ip = out.data() + packet.ipOffset;
    size_t total = out.size() - packet.ipOffset;
    writeBe16(ip + 2, static_cast<uint16_t>(total));
    if (packet.pppoeLengthOffset != 0) {
        writeBe16(out.data() + packet.pppoeLengthOffset, static_cast<uint16_t>(total + 2));
    }
    uint8_t* l4 = out.data() + packet.l4Offset;
    if (packet.isUdp()) {
        writeBe16(l4 + 4, static_cast<uint16_t>(8 + payload.size()));
    } else {
        writeBe32(l4 + 4, seq);
        writeBe32(l4 + 8, ack);
    }
    fixChecksums(out, packet);
    return out;
}

std::string ipToString(uint32_t ip) {
    return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." +
           std::to_string((ip >> 8) & 0xFF) + "." + std::to_string(ip & 0xFF);
}

} // namespace replay
