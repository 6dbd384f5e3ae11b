// One H.323 call as the firewall relays it: the Q.931 frame of the last H.225.0 call signalling
// PDU taken apart, the call state, and the H.245 control and fast start of the call.
#ifndef VOIPFILTER_H225_CALL_H
#define VOIPFILTER_H225_CALL_H

#include "h225/q931.h"
#include "h245/channels.h"
#include "h245/fast_start.h"
#include "h245/session.h"
#include "host/call.h"
#include "modules/h323_messages.h"

#include <cstdint>
#include <string>
#include <vector>

// Bits of the setup flags word of a call (with the fast start bits of setupflag).
namespace setupflag {
constexpr uint32_t kSourceCallSignalAddress = 0x80000000u; // SETUP carried one
constexpr uint32_t kCallIdentifier = 0x40000000u;          // SETUP carried one
constexpr uint32_t kTunnellingOff = 0x04000000u;
constexpr uint32_t kH245AddressHandled = 0x02000000u;
} // namespace setupflag

class H225TranslatorContext : public H323Call, private H245Session::Observer {
public:
    // The four addresses, as the host gave them: where the SETUP came from, what the originator
    // dialled, and what to announce towards the destination and towards the originator.
    H225TranslatorContext(void* hostContext, const sockaddr_type& expectedOriginator,
                          const sockaddr_type& expectedDestination,
                          const sockaddr_type& announcedOriginator,
                          const sockaddr_type& announcedDestination);
    ~H225TranslatorContext() override;

    // Q.931 framing. @return 1 decoded, -1 framing error, -2 undecodable user information.
    int DecodeH225(const unsigned char* pdu, unsigned int length);
    // @return 0 unchanged (nothing written), 1 written, -1 buffer too small or encode failure.
    int EncodeH225(unsigned char* buffer, unsigned int* length);
    // Drops the PDU decoded last, as after a failed decode: used when its translation was refused
    // half-way, so that nothing half-rewritten can be encoded later.
    void ForgetPDU();

    // Dispatches the PDU decoded last. @return 1 changed (encode it), 0 forward as received,
    // -1 wrong call leg, -2 shut the call down. *status gets the message tag once it is known.
    int TranslateH225(bool fromOriginator, int* status);

    int TranslateSetup(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateProceeding(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateProgress(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateAlerting(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateConnect(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateFacility(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateInformation(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    int TranslateEmpty(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);

    // The tunnelling state, then the tunnelled H.245 of a message. @return previous unless the
    // tunnelled H.245 changed (1) or failed (-1).
    int CheckH245(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu, int previous);
    // A separate H.245 channel announced in h245Address: the host opens the relay once per call.
    int TranslateH245ChannelRequest(bool fromOriginator,
                                    H323_MESSAGES::TransportAddress& h245Address,
                                    const char* messageName);

    // Header strings and vendor identity on a PDU the host passes in; the call state is not used.
    int setHeaderStringH225(const unsigned char* pdu, unsigned int length, int selector,
                            char* value, unsigned char* out, unsigned int* outLength);
    const char* getHeaderStringH225(const unsigned char* pdu, unsigned int length, int selector);

    // The call's H.245 control (separate connection or tunnelled) and its fast start.
    H245Session& H245() { return h245_; }
    FastStart& FastStartProcedure() { return fastStart_; }

    voipxlate_callinformation* CallInformation() { return &callInfo_; }

private:
    // An OpenLogicalChannel from the callee before CONNECT turns the fast start offer down
    // (H.323 8.1.7).
    void OnOpenLogicalChannel(bool fromOriginator) override;

    // Replaces the decoded message by a fresh, empty one.
    void ClearUserInformation();
    // Writes an address into a transport address of the decoded message. Only an IPv4 address
    // written over an IPv4 one keeps the shape of the message's encoding (see inPlace_).
    void WriteTransportAddress(const sockaddr_type& address,
                               H323_MESSAGES::TransportAddress& field);
    // The user information as received with every noted leaf's present code written over it,
    // into out (room for *length octets): what encoding it would give, when inPlace_ holds.
    // False when it cannot be done.
    bool RewriteInPlace(unsigned char* out, unsigned int* length) const;
    const char* getHeaderSetup(H323_MESSAGES::Setup_UUIE& setup, int selector);
    int setVendor(H323_MESSAGES::VendorIdentifier& vendor, char* value);
    // The call signalling address fields of SETUP, checked against the host's and rewritten.
    int TranslateSetupAddresses(H323_MESSAGES::Setup_UUIE& setup);
    // The fast start proposal of SETUP: -1 failed, -2 every element was filtered out (the call
    // is shut down), else 1 changed or 0.
    int TranslateSetupFastStart(OctetStringList& fastStart);

    voipxlate_callinformation callInfo_;
    uint32_t setupFlags_ = 0;
    sockaddr_type expectedOriginator_;
    sockaddr_type announcedOriginator_;
    sockaddr_type expectedDestination_;
    sockaddr_type announcedDestination_;
    sockaddr_type peerH245_;
    sockaddr_type announcedH245_;

    // Q.931 frame of the PDU decoded last.
    unsigned char q931Header_[q931::kHeaderSize];
    unsigned char userUserDiscriminator_ = 0;
    // Every element but user-user, back to back (the first keptSize_ octets); after them the
    // user information as received, when it may be rewritten in place.
    std::vector<unsigned char> keptElements_;
    unsigned int keptSize_ = 0;
    H323_MESSAGES::H323_UserInformation userInformation_;
    bool modified_ = false;
    // The translation changes fixed-width fields of the user information, and nearly always only
    // those (addresses, ports, fast start elements rewritten in place). While the received octets
    // are the message's own encoding and nothing else has changed, the rewritten message is those
    // octets with the noted leaves written over them; any other change clears inPlace_ and the
    // message is encoded.
    ASN1::LeafPositions positions_;
    bool inPlace_ = false;

    unsigned char callIdentifier_[16];
    std::string headerString_; // the text the last getHeaderStringH225 returned

    LogicalChannels channels_;
    FastStart fastStart_;
    H245Session h245_;
};

#endif
