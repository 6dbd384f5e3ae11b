#include "ras/ras.h"

#include "asn1/asn_codec.h"
#include "h225/transport_address.h"
#include "host/entry_guard.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

// RasMessage alternatives this translator acts on (H.225.0 RasMessage CHOICE order).
constexpr int kGatekeeperRequest = 0;
constexpr int kRegistrationRequest = 3;
constexpr int kRegistrationReject = 5;
constexpr int kUnregistrationRequest = 6;

} // namespace

RASTranslatorContext::RASTranslatorContext(void* hostContext, const sockaddr_type& first,
                                           const sockaddr_type& second, const sockaddr_type& third,
                                           const sockaddr_type& fourth)
    : H323Call(hostContext), first_(first), second_(second), third_(third), fourth_(fourth) {}

// The host withdraws mappings of a destroyed context itself: no removeMappingFunction here.
RASTranslatorContext::~RASTranslatorContext() = default;

int RASTranslatorContext::TranslateRAS(bool fromOriginator, const unsigned char* in,
                                       unsigned int inLength, unsigned char* out,
                                       unsigned int* outLength, int* status) {
    H323_MESSAGES::RasMessage message;
    ASN1::LeafPositions positions;
    bool canonical = false;
    const int decoded = ASN1::ASNDecode(in, inLength, message, positions, canonical);
    if (decoded < 0)
        return decoded;
    const int result = TranslateRAS(fromOriginator, message, status);
    if (result <= 0)
        return result;
    // A message whose octets are its encoding and whose translation changed only addresses and
    // ports is its octets with those written over them.
    if (canonical && shapeKept_ && positions.complete() && out != nullptr && outLength != nullptr &&
        inLength <= *outLength) {
        if (out != in)
            std::memmove(out, in, inLength);
        if (ASN1::OverwriteLeaves(positions, reinterpret_cast<char*>(out))) {
            ASN1::VerifyRewrittenInPlace(message, out, inLength);
            *outLength = inLength;
            return 1;
        }
    }
    return ASN1::ASNEncode(message, out, outLength);
}

void RASTranslatorContext::WriteTransportAddress(const sockaddr_type& address,
                                                 H323_MESSAGES::TransportAddress& field) {
    if (!KeepsEncodingShape(address, field))
        shapeKept_ = false;
    EncodeH225TransportAddress(address, field);
}

int RASTranslatorContext::TranslateRAS(bool fromOriginator, H323_MESSAGES::RasMessage& message,
                                       int* status) {
    void* const context = HostContext();
    shapeKept_ = true;
    VF_LOG(context, logsource::kRAS, 4) << "H225 RAS input PDU = " << message;

    int result = 0;
    const int tag = message.currentSelection();
    switch (tag) {
    case kGatekeeperRequest:
        result = TranslateGatekeeperRequest(fromOriginator, message.ref_gatekeeperRequest());
        break;
    case kRegistrationRequest:
        result = TranslateRegistrationRequest(fromOriginator, message.ref_registrationRequest());
        break;
    case kRegistrationReject:
    case kUnregistrationRequest:
        RemoveSignallingMappings();
        break;
    default:
        break;
    }
    if (status != nullptr)
        *status = tag;

    if (result != 0)
        VF_LOG(context, logsource::kRAS, 4) << "H225 RAS output PDU =\n" << message;
    else
        VF_LOG(context, logsource::kRAS, 4) << "H225 RAS output PDU = unchanged";
    return result;
}

int RASTranslatorContext::TranslateGatekeeperRequest(bool,
                                                     H323_MESSAGES::GatekeeperRequest& request) {
    sockaddr_type found;
    if (!DecodeH225TransportAddress(request.ref_rasAddress(), found))
        return -1;
    if (found == first_)
        WriteTransportAddress(third_, request.ref_rasAddress());

    // An endpoint that offers authentication lists the algorithms it supports; the first one is
    // always withdrawn from the request as it passes the firewall.
    if (request.authenticationCapability_isPresent() && request.algorithmOIDs_isPresent()) {
        auto& oids = request.ref_algorithmOIDs();
        if (oids.size() > 0) {
            oids.erase(oids.begin(), oids.begin() + 1);
            shapeKept_ = false;
        }
    }
    // Every request with an IP RAS address is re-encoded, changed or not.
    return 1;
}

int RASTranslatorContext::TranslateRegistrationRequest(
    bool fromOriginator, H323_MESSAGES::RegistrationRequest& request) {
    void* const context = HostContext();
    int result = 0;

    auto& rasAddresses = request.ref_rasAddress();
    for (unsigned i = 0; i < rasAddresses.size(); ++i) {
        sockaddr_type found;
        if (!DecodeH225TransportAddress(rasAddresses[i], found))
            return -1;
        if (found == first_) {
            WriteTransportAddress(third_, rasAddresses[i]);
            result |= 1;
        }
    }

    auto translate = VoIPTranslator::Current().Callback<voipxlate_translate_addr_function>(
        VOIPXLATE_TRANSLATE_ADDR);
    auto& signalAddresses = request.ref_callSignalAddress();
    for (unsigned i = 0; i < signalAddresses.size(); ++i) {
        sockaddr_type found;
        if (!DecodeH225TransportAddress(signalAddresses[i], found))
            return -1;
        sockaddr_type translated = found;
        void* mapping = nullptr;
        if (translate != nullptr) {
            translate(context, fromOriginator ? 1 : 0, &found, &translated, &mapping);
            WriteTransportAddress(translated, signalAddresses[i]);
            result |= 1;
            VF_LOG(context, logsource::kRAS, 1)
                << "translated RAS address " << found << " to " << translated;
        } else {
            VF_LOG(context, logsource::kRAS, 1) << "translateAddrFunction not set";
        }
        const uint16_t port = ntohs(found.port);
        VF_LOG(context, logsource::kRAS, 1) << "adding RAS mapping for signalling port " << port;
        // A port already mapped keeps its first handle; the new one is not stored.
        signallingMappings_.emplace(static_cast<int16_t>(port), mapping);
    }
    return result;
}

void RASTranslatorContext::RemoveSignallingMappings() {
    void* const context = HostContext();
    auto remove = VoIPTranslator::Current().Callback<voipxlate_remove_mapping_function>(
        VOIPXLATE_REMOVE_MAPPING);
    while (!signallingMappings_.empty()) {
        auto first = signallingMappings_.begin();
        // The key is printed as the signed number it is stored as: ports from 32768 up show
        // as negative numbers in this line.
        VF_LOG(context, logsource::kRAS, 1)
            << "removing RAS mapping for signalling port " << static_cast<int>(first->first);
        if (remove != nullptr)
            remove(context, first->second);
        signallingMappings_.erase(first);
    }
}

extern "C" {

VOIPXLATE_API RASTranslatorContext* h323xlate_ras_create(void* context, const sockaddr_type* first,
                                                         const sockaddr_type* second,
                                                         const sockaddr_type* third,
                                                         const sockaddr_type* fourth) {
    return new RASTranslatorContext(context, CopyOrZero(first), CopyOrZero(second),
                                    CopyOrZero(third), CopyOrZero(fourth));
}

VOIPXLATE_API void h323xlate_ras_destroy(RASTranslatorContext* handle) {
    delete handle;
}

VOIPXLATE_API int h323xlate_ras_translatepdu(RASTranslatorContext* handle, int direction,
                                             const unsigned char* in, unsigned int inLength,
                                             unsigned char* out, unsigned int* outLength,
                                             int* status) {
    if (handle == nullptr)
        return -1;
    if (status != nullptr)
        *status = -1;
    return Guarded(RefusalLog{handle->HostContext(), logsource::kRAS, "H225 RAS "}, -1, [&] {
        return handle->TranslateRAS(direction != 0, in, inLength, out, outLength, status);
    });
}

} // extern "C"
