// One H.323 call as the firewall relays it: the Q.931 frame of the last H.225.0 call signalling
// PDU taken apart, the call state, the separate or tunnelled H.245 control, fast start and the
// media sessions that the host opens for the call.
#ifndef VOIPFILTER_H225_XLATE_H
#define VOIPFILTER_H225_XLATE_H

#include "modules/h323_messages.h"
#include "modules/multimedia_system_control.h"
#include "voip_call.h"

#include <cstdint>
#include <string>
#include <vector>

// A list of PER-encoded PDUs inside an H.225.0 message: tunnelled H.245 (h245Control) and fast
// start proposals (fastStart) alike.
using OctetStringList = ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>;

// H.225.0 TransportAddress <-> sockaddr_type. Decoding accepts ipAddress and ip6Address only and
// leaves the record all zero otherwise. Encoding writes family 4 (and 0) as ipAddress and family
// 3 as ip6Address; every other family, 6 included, is refused and leaves the value as it was, so
// an IPv6 address read from a PDU is never written back.
bool DecodeH225TransportAddress(const H323_MESSAGES::TransportAddress& in, sockaddr_type& out);
bool EncodeH225TransportAddress(const sockaddr_type& in, H323_MESSAGES::TransportAddress& out);

// Bits of the setup flags word of a call.
namespace setupflag {
constexpr uint32_t kSourceCallSignalAddress = 0x80000000u; // SETUP carried one
constexpr uint32_t kCallIdentifier = 0x40000000u;          // SETUP carried one
constexpr uint32_t kFastStartOffered = 0x20000000u;        // SETUP carried fastStart
constexpr uint32_t kFastStartRefused = 0x10000000u;
constexpr uint32_t kFastStartAccepted = 0x08000000u;
constexpr uint32_t kTunnellingOff = 0x04000000u;
constexpr uint32_t kH245AddressHandled = 0x02000000u;
} // namespace setupflag

class H225TranslatorContext : public H323Call {
public:
    // The four addresses, as the host gave them: where the SETUP came from, what the originator
    // dialled, and what to announce towards the destination and towards the originator.
    H225TranslatorContext(void* hostContext, const sockaddr_type& expectedOriginator,
                          const sockaddr_type& expectedDestination,
                          const sockaddr_type& announcedOriginator,
                          const sockaddr_type& announcedDestination);
    ~H225TranslatorContext() override;

    // Dispatches the PDU decoded last. @return 1 changed (encode it), 0 forward as received,
    // -1 wrong call leg, -2 shut the call down. *status gets the message tag once it is known.
    virtual int TranslateH225(bool fromOriginator, int* status);
    // One PDU of a separate H.245 connection: decode, translate, re-encode into output.
    virtual int TranslateH245(bool fromOriginator, const unsigned char* input, unsigned int length,
                              unsigned char* output, unsigned int* outputLength);
    // The H.245 dispatcher shared by the separate channel and tunnelling.
    virtual int TranslateH245(bool fromOriginator,
                              MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage& message);

    virtual int TranslateSetup(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateProceeding(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateProgress(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateAlerting(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateConnect(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateFacility(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateInformation(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);
    virtual int TranslateEmpty(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu);

    // Header strings and vendor identity on a PDU the host passes in; the call state is not used.
    virtual int setHeaderStringH225(const unsigned char* pdu, unsigned int length, int selector,
                                    char* value, unsigned char* out, unsigned int* outLength);
    virtual const char* getHeaderStringH225(const unsigned char* pdu, unsigned int length,
                                            int selector);
    virtual int setVendor(H323_MESSAGES::VendorIdentifier& vendor, char* value);
    virtual const char* getHeaderSetup(H323_MESSAGES::Setup_UUIE setup, int selector);

    virtual int TranslateH245ChannelRequest(bool fromOriginator,
                                            H323_MESSAGES::TransportAddress& h245Address,
                                            const char* messageName);

    virtual int TranslateFastStartRequest(OctetStringList& fastStart);
    virtual int AcceptFastStartReply(bool fromOriginator, OctetStringList& fastStart);
    virtual void RefuseFastStart();

    // Q.931 framing. @return 1 decoded, -1 framing error, -2 undecodable user information.
    int DecodeH225(const unsigned char* pdu, unsigned int length);
    // @return 0 unchanged (nothing written), 1 written, -1 buffer too small or encode failure.
    int EncodeH225(unsigned char* buffer, unsigned int* length);
    // Drops the PDU decoded last, as after a failed decode: used when its translation was refused
    // half-way, so that nothing half-rewritten can be encoded later.
    void ForgetPDU();

    int CheckH245(bool fromOriginator, H323_MESSAGES::H323_UU_PDU& pdu, int previous);
    int TranslateTunnelledH245(bool fromOriginator, OctetStringList& h245Control);
    int TranslateTerminalCapabilitySet(MULTIMEDIA_SYSTEM_CONTROL::TerminalCapabilitySet& tcs);

    int TranslateOpenLogicalChannel(bool fromOriginator,
                                    MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int TranslateOpenLogicalChannelAck(bool fromOriginator,
                                       MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannelAck& ack);
    int RequestMediaChannel(voipxlate_mediasessioninformation* session, bool fromOriginator,
                            const sockaddr_type& rtp, const sockaddr_type& rtcp);

    int TranslateFastStartOpenLogicalChannel(MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int TranslateFastStartReply(int pass, bool fromOriginator,
                                MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int RetranslateFastStartReply(int pass, bool fromOriginator,
                                  MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);

    voipxlate_callinformation* CallInformation() { return &callInfo_; }
    uint8_t CallState() const { return callInfo_.state; }
    uint32_t SetupFlags() const { return setupFlags_; }
    const unsigned char* CallIdentifier() const { return callIdentifier_; }
    const sockaddr_type& PeerH245Address() const { return peerH245_; }
    const sockaddr_type& AnnouncedH245Address() const { return announcedH245_; }
    H323_MESSAGES::H323_UserInformation& UserInformation() { return userInformation_; }

private:
    // The in-use record for this session ID, else a fresh one classified by dataType; null when
    // all ten are taken.
    voipxlate_mediasessioninformation*
    FindOrCreateSession(int sessionID, const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType);
    voipxlate_mediasessioninformation* FindSession(int sessionID);
    // The first steps of both fast-start reply translations: classify the element, keep it only
    // in its own pass, find its offered session. Null (after logging) when the element is left
    // as it is; otherwise *parameters holds the element's session parameters.
    voipxlate_mediasessioninformation*
    MatchFastStartReply(int pass, MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc,
                        MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters** parameters);
    // Writes the session's translated reverse addresses into a reply element. Returns 1.
    int RewriteFastStartReply(const voipxlate_mediasessioninformation& session,
                              MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters& parameters);
    // Hands a T.120 separate-stack address to the host and writes the answer back.
    int TranslateT120Address(bool fromOriginator,
                             MULTIMEDIA_SYSTEM_CONTROL::NetworkAccessParameters& separateStack,
                             const char* offerText);

    voipxlate_callinformation callInfo_;
    uint32_t setupFlags_ = 0;
    sockaddr_type expectedOriginator_;
    sockaddr_type announcedOriginator_;
    sockaddr_type expectedDestination_;
    sockaddr_type announcedDestination_;
    sockaddr_type peerH245_;
    sockaddr_type announcedH245_;

    // Q.931 frame of the PDU decoded last.
    unsigned char q931Header_[5];
    unsigned char userUserDiscriminator_ = 0;
    std::vector<unsigned char> keptElements_; // every element but user-user, back to back
    std::vector<unsigned int> keptLengths_;   // the length of each, in order
    H323_MESSAGES::H323_UserInformation userInformation_;
    bool modified_ = false;

    unsigned char callIdentifier_[16];
    std::string headerString_; // the text the last getHeaderStringH225 returned
};

// The fast start answer in CALL PROCEEDING, PROGRESS, ALERTING or CONNECT (H.323 8.1.7):
// fastConnectRefused, or the accepted channels. Folds the outcome into result.
template <class UUIE>
int CheckFastStartReply(H225TranslatorContext& call, bool fromOriginator, UUIE& body, int result);

#endif
