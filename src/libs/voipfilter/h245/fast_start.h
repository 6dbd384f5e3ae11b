// Fast connect (H.323 8.1.7): the caller proposes logical channels in SETUP, the callee accepts
// some in its answer (or refuses them all), and the channels open without H.245.
#ifndef VOIPFILTER_H245_FAST_START_H
#define VOIPFILTER_H245_FAST_START_H

#include "h245/channels.h"
#include "h245/session.h"
#include "modules/multimedia_system_control.h"

#include <cstdint>

// The parameters that describe a fast start element: a reverse element (one carrying
// reverseLogicalChannelParameters) by its reverse parameters, a forward one by its forward
// parameters. Both null when the chosen side has no H.225.0 multiplex parameters.
struct FastStartElement {
    bool reverse = false;
    MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters* parameters = nullptr;
    const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType = nullptr;
};
FastStartElement ClassifyFastStartElement(MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);

// Bits of a call's setup flags word that record the fast start procedure.
namespace setupflag {
constexpr uint32_t kFastStartOffered = 0x20000000u; // SETUP carried fastStart
constexpr uint32_t kFastStartRefused = 0x10000000u;
constexpr uint32_t kFastStartAccepted = 0x08000000u;
} // namespace setupflag

class FastStart {
public:
    explicit FastStart(LogicalChannels& channels) : channels_(channels) {}

    bool Offered() const { return (flags_ & setupflag::kFastStartOffered) != 0; }
    // Records whether the SETUP just seen carried a proposal.
    void SetOffered(bool offered) {
        flags_ = offered ? flags_ | setupflag::kFastStartOffered
                         : flags_ & ~setupflag::kFastStartOffered;
    }

    // The caller's proposal in SETUP: each element's addresses are handed to the host and
    // rewritten; elements that cannot be decoded or whose codec the host refuses leave the
    // list. @return 1 changed, 0 unchanged, -1 the host refused a channel.
    int TranslateFastStartRequest(OctetStringList& fastStart);
    // The callee's accepted channels, forward elements first. A retransmitted answer gets the
    // addresses of the first one. Sessions the first answer left out are released.
    int AcceptFastStartReply(bool fromOriginator, OctetStringList& fastStart);
    // The callee turned the proposal down (fastConnectRefused, or H.245 channels of its own):
    // every offered session is released, once.
    void RefuseFastStart();

private:
    // An element decoded for translation. A translation changes only its media addresses, so
    // when its octets are its own encoding (the decoder vouches for that) and those addresses
    // are unicast IPv4 already, the translated element is its octets with the new address
    // octets and ports written over the old: inPlace, and no encoding is needed.
    struct DecodedElement {
        MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel olc;
        ASN1::LeafPositions positions;
        bool inPlace = false;
    };
    // Decodes one element of a proposal ("request") or an answer ("reply"); false, after
    // logging, when it is not an OpenLogicalChannel.
    bool DecodeElement(const ASN1::OCTET_STRING& element, unsigned number, const char* list,
                       DecodedElement& decoded);
    // Writes a translated element back: in place when it can be, else its new encoding.
    static void WriteBack(DecodedElement& decoded, ASN1::OCTET_STRING& element);
    int TranslateFastStartOpenLogicalChannel(MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int TranslateFastStartReply(int pass, bool fromOriginator,
                                MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int RetranslateFastStartReply(int pass, bool fromOriginator,
                                  MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    // The first steps of both reply translations: classify the element, keep it only in its
    // own pass, find its offered session. Null (after logging) when the element is left as it
    // is; otherwise *parameters holds the element's session parameters.
    voipxlate_mediasessioninformation*
    MatchFastStartReply(int pass, MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc,
                        MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters** parameters);
    // Writes the session's translated reverse addresses into a reply element. Returns 1.
    int RewriteFastStartReply(const voipxlate_mediasessioninformation& session,
                              MULTIMEDIA_SYSTEM_CONTROL::H2250LogicalChannelParameters& parameters);
    // Closes the channels of the records the answer left free.
    void ReleaseUnofferedSessions();

    LogicalChannels& channels_;
    uint32_t flags_ = 0;
};

#endif
