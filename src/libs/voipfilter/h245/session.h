// The H.245 control of one call: a separate H.245 connection's PDUs, or the PDUs tunnelled in
// H.225.0 messages, dispatched to capability filtering and the logical channels.
#ifndef VOIPFILTER_H245_SESSION_H
#define VOIPFILTER_H245_SESSION_H

#include "asn1/PERDecoder.h"
#include "asn1/asn1.h"
#include "h245/channels.h"
#include "modules/multimedia_system_control.h"

// A list of PER-encoded PDUs inside an H.225.0 message: tunnelled H.245 (h245Control) and fast
// start proposals (fastStart) alike.
using OctetStringList = ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>;

class H245Session {
public:
    // Told of every OpenLogicalChannel before it is translated: the call signalling above may
    // have to drop the fast start offer that the channel replaces.
    class Observer {
    public:
        virtual void OnOpenLogicalChannel(bool fromOriginator) = 0;

    protected:
        ~Observer() = default;
    };

    explicit H245Session(LogicalChannels& channels, Observer* observer = nullptr)
        : channels_(channels), observer_(observer) {}

    // One PDU of a separate H.245 connection: decode, translate, re-encode into output.
    // @return the decode result when negative, else as TranslateH245 below, replaced by the
    // encode result when the message changed.
    int TranslateH245(bool fromOriginator, const unsigned char* input, unsigned int length,
                      unsigned char* output, unsigned int* outputLength);
    // Each tunnelled PDU in turn, re-encoded in place when it changed. @return 1 when one did.
    int TranslateTunnelledH245(bool fromOriginator, OctetStringList& h245Control);
    // One decoded message. @return 1 changed, 0 unchanged, -1 the host refused a channel.
    int TranslateH245(bool fromOriginator,
                      MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage& message);

private:
    // Writes a translated message over the size octets it was decoded from (source, copied to
    // octets first when they differ; positions noted by that decode) when the translation kept
    // its shape. False, with octets untouched, when it cannot be done.
    bool RewriteInPlace(const MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage& message,
                        bool canonical, const ASN1::LeafPositions& positions, const void* source,
                        void* octets, unsigned int size) const;

    LogicalChannels& channels_;
    Observer* observer_;
};

#endif
