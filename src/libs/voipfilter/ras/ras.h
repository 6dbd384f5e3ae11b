// RAS (H.225.0 registration, admission and status) translation for one endpoint-to-gatekeeper
// association that the host relays over UDP.
#ifndef VOIPFILTER_RAS_RAS_H
#define VOIPFILTER_RAS_RAS_H

#include "host/call.h"
#include "modules/h323_messages.h"

#include <voipfilter/voipfilter.h>

#include <cstdint>
#include <map>

class RASTranslatorContext : public H323Call {
public:
    // first: the endpoint's address as the host received it; third: the address to announce in
    // its place. second and fourth are kept for symmetry with the call translators.
    RASTranslatorContext(void* hostContext, const sockaddr_type& first, const sockaddr_type& second,
                         const sockaddr_type& third, const sockaddr_type& fourth);
    ~RASTranslatorContext() override;

    // Decodes a RAS message, translates it and, when it changed, encodes it into out
    // (*outLength: capacity in, size out). Returns the decode result when negative (-1 null
    // input, -2 undecodable), else the translation result, replaced by the encode result
    // (1, or -1 when out is too small) when the message changed.
    virtual int TranslateRAS(bool fromOriginator, const unsigned char* in, unsigned int inLength,
                             unsigned char* out, unsigned int* outLength, int* status);
    // Dispatches a decoded message; writes its alternative index to *status when given.
    virtual int TranslateRAS(bool fromOriginator, H323_MESSAGES::RasMessage& message, int* status);
    virtual int TranslateGatekeeperRequest(bool fromOriginator,
                                           H323_MESSAGES::GatekeeperRequest& request);
    virtual int TranslateRegistrationRequest(bool fromOriginator,
                                             H323_MESSAGES::RegistrationRequest& request);
    // Asks the host to withdraw every signalling mapping, lowest port first, and forgets them.
    virtual void RemoveSignallingMappings();

private:
    // Writes an address into a transport address of the message being translated, noting whether
    // that kept the shape of the message's encoding.
    void WriteTransportAddress(const sockaddr_type& address,
                               H323_MESSAGES::TransportAddress& field);

    // Signalling port (host order, read as a signed 16-bit number) -> the host's mapping handle.
    using SignallingMappings = std::map<int16_t, void*>;

    // The four addresses of the association, as the host passed them. The rules read the first
    // (the endpoint as the host sees it) and the third (what to announce for it); the other two
    // are kept with them, unread.
    sockaddr_type first_;
    [[maybe_unused]] sockaddr_type second_;
    sockaddr_type third_;
    [[maybe_unused]] sockaddr_type fourth_;
    SignallingMappings signallingMappings_;
    // Whether the translation so far changed only fixed-width fields (addresses and ports), so
    // that the message can be rewritten where it lies (see ASN1::LeafPositions).
    bool shapeKept_ = true;
};

#endif
