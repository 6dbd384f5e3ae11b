// H.225.0 call signalling: Q.931 framing (Q.931 4), the call context and the
// message dispatch, and the C entry points of the H.225 call family.
#include "h225_xlate.h"

#include "asn1/asn_codec.h"
#include "entry_guard.h"
#include "sockaddr.h"
#include "voip_translator.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

// Q.931 4.5.1: an identifier with bit 8 set is a single-octet information element.
constexpr unsigned char kSingleOctetElement = 0x80;
// The user-user element, as H.225.0 uses it, has a two-octet length (unlike Q.931's one octet).
constexpr unsigned char kUserUserElement = 0x7E;
constexpr unsigned int kQ931HeaderSize = 5; // discriminator, call reference (2), message type
constexpr unsigned int kUserUserHeaderSize = 4;

RefusalLog H225RefusalLog(const H225TranslatorContext& call) {
    return {call.HostContext(), logsource::kH225, "H.225\t"};
}

void CopyAddress(sockaddr_type& to, const sockaddr_type* from) {
    if (from != nullptr)
        to = *from;
    else
        std::memset(&to, 0, sizeof to);
}

} // namespace

H225TranslatorContext::H225TranslatorContext(void* hostContext,
                                             const sockaddr_type& expectedOriginator,
                                             const sockaddr_type& expectedDestination,
                                             const sockaddr_type& announcedOriginator,
                                             const sockaddr_type& announcedDestination)
    : H323Call(hostContext), expectedOriginator_(expectedOriginator),
      announcedOriginator_(announcedOriginator), expectedDestination_(expectedDestination),
      announcedDestination_(announcedDestination) {
    std::memset(&callInfo_, 0, sizeof callInfo_);
    std::memset(&peerH245_, 0, sizeof peerH245_);
    std::memset(&announcedH245_, 0, sizeof announcedH245_);
    std::memset(q931Header_, 0, sizeof q931Header_);
    std::memset(callIdentifier_, 0, sizeof callIdentifier_);
    InitialiseCallInfo(&callInfo_);
    callInfo_.status = 1;
}

H225TranslatorContext::~H225TranslatorContext() = default;

// --- Transport addresses ------------------------------------------------------------------------

bool DecodeH225TransportAddress(const H323_MESSAGES::TransportAddress& in, sockaddr_type& out) {
    std::memset(&out, 0, sizeof out);
    if (in.ipAddress_isSelected()) {
        const auto& ip = in.get_ipAddress();
        const auto& octets = ip.get_ip();
        out.family = VOIPXLATE_FAMILY_IPV4;
        std::memcpy(out.addr, octets.data(), octets.size() < 4 ? octets.size() : 4);
        out.port = htons(static_cast<uint16_t>(ip.get_port().getValue()));
        return true;
    }
    if (in.ip6Address_isSelected()) {
        const auto& ip = in.get_ip6Address();
        const auto& octets = ip.get_ip();
        out.family = VOIPXLATE_FAMILY_IPV6;
        std::memcpy(out.addr, octets.data(), octets.size() < 16 ? octets.size() : 16);
        out.port = htons(static_cast<uint16_t>(ip.get_port().getValue()));
        return true;
    }
    return false;
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

// --- Q.931 framing
// --------------------------------------------------------------------------------

int H225TranslatorContext::DecodeH225(const unsigned char* pdu, unsigned int length) {
    keptElements_.clear();
    keptLengths_.clear();
    modified_ = false;
    VF_LOG(HostContext(), logsource::kH225, 5) << "H.225\t Decoding the PDU ";

    // The PER decoder fills a value in place and keeps what an encoding does not mention (the
    // extension presence bits, an alternative already created), so every PDU starts from a
    // fresh value.
    userInformation_ = H323_MESSAGES::H323_UserInformation();

    if (pdu == nullptr || length < kQ931HeaderSize)
        return -1;
    std::memcpy(q931Header_, pdu, kQ931HeaderSize);
    // Q.931 4.3: H.225.0 always uses a two-octet call reference.
    if (pdu[1] != 2)
        return -1;

    const unsigned char* payload = nullptr;
    unsigned int payloadLength = 0;
    unsigned int offset = kQ931HeaderSize;
    while (offset < length) {
        const unsigned char identifier = pdu[offset];
        const unsigned int remaining = length - offset;
        unsigned int elementLength;
        if (identifier == kUserUserElement) {
            if (remaining < 3)
                return -1;
            const unsigned int contents = (unsigned(pdu[offset + 1]) << 8) | pdu[offset + 2];
            elementLength = 3 + contents;
            if (elementLength > remaining)
                return -1;
            // The first content octet is the protocol discriminator (H.225.0: 5, X.208/X.209).
            if (contents > 0) {
                userUserDiscriminator_ = pdu[offset + 3];
                payload = pdu + offset + 4;
                payloadLength = contents - 1;
            } else {
                payload = nullptr;
                payloadLength = 0;
            }
        } else {
            if (identifier & kSingleOctetElement) {
                elementLength = 1;
            } else {
                if (remaining < 2)
                    return -1;
                elementLength = 2 + pdu[offset + 1];
            }
            if (elementLength > remaining)
                return -1;
            keptElements_.insert(keptElements_.end(), pdu + offset, pdu + offset + elementLength);
            keptLengths_.push_back(elementLength);
        }
        offset += elementLength;
    }

    if (payload == nullptr || payloadLength == 0)
        return -1;
    const int result = ASN1::ASNDecode(payload, payloadLength, userInformation_);
    // A failed decode leaves no half-filled message for a later translate call to act on.
    if (result != 1)
        userInformation_ = H323_MESSAGES::H323_UserInformation();
    return result;
}

void H225TranslatorContext::ForgetPDU() {
    keptElements_.clear();
    keptLengths_.clear();
    modified_ = false;
    userInformation_ = H323_MESSAGES::H323_UserInformation();
}

int H225TranslatorContext::EncodeH225(unsigned char* buffer, unsigned int* length) {
    if (!modified_)
        return 0;
    VF_LOG(HostContext(), logsource::kH225, 5) << "H.225\t Encoding the PDU ";
    if (buffer == nullptr || length == nullptr || *length < kQ931HeaderSize + 1)
        return -1;
    const unsigned int size = *length;
    std::memcpy(buffer, q931Header_, kQ931HeaderSize);
    unsigned int used = kQ931HeaderSize;
    const unsigned char* element = keptElements_.data();
    for (unsigned int elementLength : keptLengths_) {
        if (size - used < elementLength)
            return -1;
        std::memcpy(buffer + used, element, elementLength);
        used += elementLength;
        element += elementLength;
    }
    if (size - used < kUserUserHeaderSize)
        return -1;
    unsigned int encoded = size - used - kUserUserHeaderSize;
    if (ASN1::ASNEncode(userInformation_, buffer + used + kUserUserHeaderSize, &encoded) != 1)
        return -1;
    // The element length counts the discriminator octet; it has to fit the 16-bit field.
    if (encoded + 1 > 0xFFFFu)
        return -1;
    buffer[used] = kUserUserElement;
    buffer[used + 1] = static_cast<unsigned char>((encoded + 1) >> 8);
    buffer[used + 2] = static_cast<unsigned char>((encoded + 1) & 0xFF);
    buffer[used + 3] = userUserDiscriminator_;
    *length = used + kUserUserHeaderSize + encoded;
    return 1;
}

// --- Dispatch ------------------------------------------------------------------------------------

namespace {

using MessageTranslation = int (H225TranslatorContext::*)(bool, H323_MESSAGES::H323_UU_PDU&);

struct MessageRow {
    int tag; // alternative of H323-UU-PDU.h323-message-body
    const char* name;
    bool fromOriginator;
    bool fromDestination;
    MessageTranslation translate;
};

// Which leg may send what: SETUP only from the caller, its answers only from
// the callee, the rest from either side.
const MessageRow kMessageRows[] = {
    {0, "SETUP", true, false, &H225TranslatorContext::TranslateSetup},
    {11, "SETUP ACKNOWLEDGE", false, true, nullptr},
    {1, "CALL PROCEEDING", false, true, &H225TranslatorContext::TranslateProceeding},
    {7, "PROGRESS", false, true, &H225TranslatorContext::TranslateProgress},
    {3, "ALERTING", false, true, &H225TranslatorContext::TranslateAlerting},
    {2, "CONNECT", false, true, &H225TranslatorContext::TranslateConnect},
    {6, "FACILITY", true, true, &H225TranslatorContext::TranslateFacility},
    {4, "INFORMATION", true, true, &H225TranslatorContext::TranslateInformation},
    {5, "RELEASE COMPLETE", true, true, nullptr},
    {8, "EMPTY", true, true, &H225TranslatorContext::TranslateEmpty},
    {9, "STATUS", true, true, nullptr},
    {10, "STATUS INQUIRY", true, true, nullptr},
    {12, "NOTIFY", true, true, nullptr},
};

const char* CallSide(bool fromOriginator) {
    return fromOriginator ? "originator" : "destination";
}

} // namespace

int H225TranslatorContext::TranslateH225(bool fromOriginator, int* status) {
    VF_LOG(HostContext(), logsource::kH225, 5)
        << "H.225\tTranslating PDU from call " << CallSide(fromOriginator) << '\n'
        << userInformation_;

    H323_MESSAGES::H323_UU_PDU& pdu = userInformation_.ref_h323_uu_pdu();
    const int tag = pdu.get_h323_message_body().currentSelection();
    const MessageRow* row = nullptr;
    for (const MessageRow& candidate : kMessageRows) {
        if (candidate.tag == tag) {
            row = &candidate;
            break;
        }
    }
    if (row == nullptr) {
        VF_LOG(HostContext(), logsource::kH225, 2)
            << "H.225\tUnknown PDU with tag " << tag << " received\n";
        return 0;
    }

    if (fromOriginator ? !row->fromOriginator : !row->fromDestination) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\terror - " << row->name << " PDU received from wrong call leg";
        return -1;
    }

    int result = 0;
    if (row->translate == nullptr) {
        VF_LOG(HostContext(), logsource::kH225, 2)
            << "H.225\tNo translation for " << row->name << " PDU";
    } else {
        const int r = (this->*row->translate)(fromOriginator, pdu);
        if (r < 0) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\tCall shutdown by " << row->name << " PDU";
            return -2;
        }
        if (r > 0) {
            VF_LOG(HostContext(), logsource::kH225, 2)
                << "H.225\tTranslated " << row->name << " PDU";
            result = 1;
        } else {
            VF_LOG(HostContext(), logsource::kH225, 2)
                << "H.225\t" << row->name << " PDU not translated";
        }
    }
    if (status != nullptr)
        *status = tag;
    if (result == 1)
        modified_ = true;
    return result;
}

// --- C entry points ----------------------------------------------------------------------------

extern "C" {

VOIPXLATE_API H225TranslatorContext* h323xlate_h225_create(void* hostContext,
                                                           sockaddr_type* expectedOriginator,
                                                           sockaddr_type* expectedDestination,
                                                           sockaddr_type* announcedOriginator,
                                                           sockaddr_type* announcedDestination) {
    sockaddr_type addresses[4];
    CopyAddress(addresses[0], expectedOriginator);
    CopyAddress(addresses[1], expectedDestination);
    CopyAddress(addresses[2], announcedOriginator);
    CopyAddress(addresses[3], announcedDestination);
    return new H225TranslatorContext(hostContext, addresses[0], addresses[1], addresses[2],
                                     addresses[3]);
}

VOIPXLATE_API void h323xlate_h225_destroy(H225TranslatorContext* call) {
    delete call;
}

// A refused H.225 PDU shuts the call down (-2), as a failed translation does.
VOIPXLATE_API int h323xlate_h225_decodeh225pdu(H225TranslatorContext* call,
                                               const unsigned char* pdu, unsigned int length) {
    if (call == nullptr)
        return -1;
    return Guarded(
        H225RefusalLog(*call), -2, [&] { return call->DecodeH225(pdu, length); },
        [&] { call->ForgetPDU(); });
}

VOIPXLATE_API int h323xlate_h225_encodeh225pdu(H225TranslatorContext* call, unsigned char* buffer,
                                               unsigned int* length) {
    if (call == nullptr)
        return -1;
    return Guarded(
        H225RefusalLog(*call), -2, [&] { return call->EncodeH225(buffer, length); },
        [&] { call->ForgetPDU(); });
}

VOIPXLATE_API int h323xlate_h225_translateh225pdu(H225TranslatorContext* call, int fromOriginator,
                                                  int* status) {
    if (call == nullptr)
        return -1;
    if (status != nullptr)
        *status = -1;
    return Guarded(
        H225RefusalLog(*call), -2, [&] { return call->TranslateH225(fromOriginator != 0, status); },
        [&] { call->ForgetPDU(); });
}

VOIPXLATE_API int h323xlate_h225_translateh245pdu(H225TranslatorContext* call, int fromOriginator,
                                                  const unsigned char* input, unsigned int length,
                                                  unsigned char* output,
                                                  unsigned int* outputLength) {
    if (call == nullptr)
        return -1;
    return Guarded(RefusalLog{call->HostContext(), logsource::kH245, "H.245\t"}, -1, [&] {
        return call->TranslateH245(fromOriginator != 0, input, length, output, outputLength);
    });
}

VOIPXLATE_API voipxlate_callinformation* h323xlate_h225_getcallstatus(H225TranslatorContext* call) {
    return call == nullptr ? nullptr : call->CallInformation();
}

VOIPXLATE_API int h323xlate_h225_setheaderstring(H225TranslatorContext* call,
                                                 const unsigned char* pdu, unsigned int length,
                                                 int selector, char* value, unsigned char* output,
                                                 unsigned int* outputLength) {
    if (call == nullptr)
        return -1;
    return Guarded(H225RefusalLog(*call), -2, [&] {
        return call->setHeaderStringH225(pdu, length, selector, value, output, outputLength);
    });
}

VOIPXLATE_API const char* h323xlate_h225_getheaderstring(H225TranslatorContext* call,
                                                         const unsigned char* pdu,
                                                         unsigned int length, int selector) {
    if (call == nullptr)
        return nullptr;
    return Guarded(H225RefusalLog(*call), static_cast<const char*>(nullptr),
                   [&] { return call->getHeaderStringH225(pdu, length, selector); });
}

} // extern "C"
