// H.225.0 call signalling: Q.931 framing (Q.931 4), the call context and the
// message dispatch, and the C entry points of the H.225 call family.
#include "h225/call.h"

#include "asn1/asn_codec.h"
#include "h225/q931.h"
#include "h225/transport_address.h"
#include "host/entry_guard.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <cstring>

namespace {

RefusalLog H225RefusalLog(const H225TranslatorContext& call) {
    return {call.HostContext(), logsource::kH225, "H.225\t"};
}

} // namespace

H225TranslatorContext::H225TranslatorContext(void* hostContext,
                                             const sockaddr_type& expectedOriginator,
                                             const sockaddr_type& expectedDestination,
                                             const sockaddr_type& announcedOriginator,
                                             const sockaddr_type& announcedDestination)
    : H323Call(hostContext), expectedOriginator_(expectedOriginator),
      announcedOriginator_(announcedOriginator), expectedDestination_(expectedDestination),
      announcedDestination_(announcedDestination), channels_(hostContext, callInfo_),
      fastStart_(channels_), h245_(channels_, this) {
    std::memset(&callInfo_, 0, sizeof callInfo_);
    std::memset(&peerH245_, 0, sizeof peerH245_);
    std::memset(&announcedH245_, 0, sizeof announcedH245_);
    std::memset(q931Header_, 0, sizeof q931Header_);
    std::memset(callIdentifier_, 0, sizeof callIdentifier_);
    InitialiseCallInfo(&callInfo_);
    callInfo_.status = 1;
}

H225TranslatorContext::~H225TranslatorContext() = default;

void H225TranslatorContext::OnOpenLogicalChannel(bool fromOriginator) {
    if (callInfo_.state != VOIPXLATE_H225_CONNECTED && !fromOriginator && fastStart_.Offered())
        fastStart_.RefuseFastStart();
}

// A fresh value is swapped in rather than copied over the held one, whose tree goes at once.
void H225TranslatorContext::ClearUserInformation() {
    H323_MESSAGES::H323_UserInformation fresh;
    userInformation_.swap(fresh);
}

// --- Q.931 framing
// --------------------------------------------------------------------------------

int H225TranslatorContext::DecodeH225(const unsigned char* pdu, unsigned int length) {
    keptElements_.clear();
    keptSize_ = 0;
    modified_ = false;
    inPlace_ = false;
    VF_LOG(HostContext(), logsource::kH225, 5) << "H.225\t Decoding the PDU ";

    // The PER decoder fills a value in place and keeps what an encoding does not mention (the
    // extension presence bits, an alternative already created), so every PDU starts from a
    // fresh value.
    ClearUserInformation();

    if (pdu == nullptr || length < q931::kHeaderSize)
        return -1;
    std::memcpy(q931Header_, pdu, q931::kHeaderSize);
    if (!q931::HasHeader(pdu, length))
        return -1;

    // Every element but user-user is kept as it stands; the user-user element (the last one,
    // when there are several) carries the PER payload. The kept elements are measured first so
    // that they take one block.
    unsigned int keptSize = 0;
    unsigned int userUserSize = 0;
    q931::WalkElements(pdu, length, [&](const q931::Element& element) {
        if (element.identifier != q931::kUserUserElement)
            keptSize += element.size;
        else
            userUserSize = element.contents;
        return true;
    });
    keptElements_.reserve(keptSize + userUserSize);
    const unsigned char* payload = nullptr;
    unsigned int payloadLength = 0;
    const bool complete = q931::WalkElements(pdu, length, [&](const q931::Element& element) {
        const unsigned char* const first = pdu + element.offset;
        if (element.identifier != q931::kUserUserElement) {
            keptElements_.insert(keptElements_.end(), first, first + element.size);
        } else if (element.contents > 0) {
            // The first content octet is the protocol discriminator (H.225.0: 5, X.208/X.209).
            userUserDiscriminator_ = first[3];
            payload = first + q931::kUserUserHeaderSize;
            payloadLength = element.contents - 1;
        } else {
            payload = nullptr;
            payloadLength = 0;
        }
        return true;
    });
    if (!complete)
        return -1;

    if (payload == nullptr || payloadLength == 0)
        return -1;
    keptSize_ = static_cast<unsigned int>(keptElements_.size());
    bool canonical = false;
    const int result =
        ASN1::ASNDecode(payload, payloadLength, userInformation_, positions_, canonical);
    // A failed decode leaves no half-filled message for a later translate call to act on.
    if (result != 1) {
        ClearUserInformation();
        return result;
    }
    inPlace_ = canonical && positions_.complete();
    if (inPlace_)
        keptElements_.insert(keptElements_.end(), payload, payload + payloadLength);
    return result;
}

void H225TranslatorContext::ForgetPDU() {
    keptElements_.clear();
    keptSize_ = 0;
    modified_ = false;
    inPlace_ = false;
    ClearUserInformation();
}

void H225TranslatorContext::WriteTransportAddress(const sockaddr_type& address,
                                                  H323_MESSAGES::TransportAddress& field) {
    if (!KeepsEncodingShape(address, field))
        inPlace_ = false;
    EncodeH225TransportAddress(address, field);
}

bool H225TranslatorContext::RewriteInPlace(unsigned char* out, unsigned int* length) const {
    const unsigned int size = static_cast<unsigned int>(keptElements_.size()) - keptSize_;
    if (!inPlace_ || size > *length)
        return false;
    std::memcpy(out, keptElements_.data() + keptSize_, size);
    if (!ASN1::OverwriteLeaves(positions_, reinterpret_cast<char*>(out)))
        return false;
    ASN1::VerifyRewrittenInPlace(userInformation_, out, size);
    *length = size;
    return true;
}

int H225TranslatorContext::EncodeH225(unsigned char* buffer, unsigned int* length) {
    if (!modified_)
        return 0;
    VF_LOG(HostContext(), logsource::kH225, 5) << "H.225\t Encoding the PDU ";
    if (buffer == nullptr || length == nullptr || *length < q931::kHeaderSize + 1)
        return -1;
    const unsigned int size = *length;
    std::memcpy(buffer, q931Header_, q931::kHeaderSize);
    unsigned int used = q931::kHeaderSize;
    const unsigned int keptSize = keptSize_;
    if (size - used < keptSize)
        return -1;
    if (keptSize != 0)
        std::memcpy(buffer + used, keptElements_.data(), keptSize);
    used += keptSize;
    if (size - used < q931::kUserUserHeaderSize)
        return -1;
    unsigned int encoded = size - used - q931::kUserUserHeaderSize;
    unsigned char* const payload = buffer + used + q931::kUserUserHeaderSize;
    if (!RewriteInPlace(payload, &encoded) &&
        ASN1::ASNEncode(userInformation_, payload, &encoded) != 1)
        return -1;
    // The element length counts the discriminator octet; it has to fit the 16-bit field.
    if (encoded + 1 > 0xFFFFu)
        return -1;
    buffer[used] = q931::kUserUserElement;
    buffer[used + 1] = static_cast<unsigned char>((encoded + 1) >> 8);
    buffer[used + 2] = static_cast<unsigned char>((encoded + 1) & 0xFF);
    buffer[used + 3] = userUserDiscriminator_;
    *length = used + q931::kUserUserHeaderSize + encoded;
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
    return new H225TranslatorContext(
        hostContext, CopyOrZero(expectedOriginator), CopyOrZero(expectedDestination),
        CopyOrZero(announcedOriginator), CopyOrZero(announcedDestination));
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
        return call->H245().TranslateH245(fromOriginator != 0, input, length, output, outputLength);
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
