// Logical channels (H.245 OpenLogicalChannel and its ack) and the media sessions behind them:
// the RTP and RTCP addresses of the H.225.0 multiplex parameters, the host's media channels, and
// T.120 separate-stack addresses.
#ifndef VOIPFILTER_H245_CHANNELS_H
#define VOIPFILTER_H245_CHANNELS_H

#include "host/media_sessions.h"
#include "modules/multimedia_system_control.h"

#include <voipfilter/voipfilter.h>

class LogicalChannels {
public:
    // The channels of the call whose media sessions are call's records.
    LogicalChannels(void* hostContext, voipxlate_callinformation& call);

    void* HostContext() const { return sessions_.HostContext(); }
    MediaSessions& Sessions() { return sessions_; }

    // The in-use record for this session ID, else a fresh one classified by dataType; null when
    // all ten are taken.
    voipxlate_mediasessioninformation*
    FindOrCreateSession(int sessionID, const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType);

    // Opens one direction of a session for the addresses a channel announced, unless that
    // direction is open already. -1 when the host refuses the channel, else 0.
    int RequestMediaChannel(voipxlate_mediasessioninformation* session, bool fromOriginator,
                            const sockaddr_type& rtp, const sockaddr_type& rtcp);

    // @return 1 rewritten, 0 left as it is, -1 the host refused.
    int TranslateOpenLogicalChannel(bool fromOriginator,
                                    MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel& olc);
    int TranslateOpenLogicalChannelAck(bool fromOriginator,
                                       MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannelAck& ack);

    // Whether every address written since ResetShape kept the shape of the message's encoding:
    // an IPv4 address over a unicast IPv4 one changes only fixed-width fields, so the message
    // can be rewritten where it lies (see ASN1::LeafPositions). ShapeChanged records a change
    // of any other kind made elsewhere.
    void ResetShape() { shapeKept_ = true; }
    void ShapeChanged() { shapeKept_ = false; }
    bool ShapeKept() const { return shapeKept_; }

private:
    // Hands a T.120 separate-stack address to the host and writes the answer back.
    int TranslateT120Address(bool fromOriginator,
                             MULTIMEDIA_SYSTEM_CONTROL::NetworkAccessParameters& separateStack,
                             const char* offerText);

    MediaSessions sessions_;
    bool shapeKept_ = true;
};

#endif
