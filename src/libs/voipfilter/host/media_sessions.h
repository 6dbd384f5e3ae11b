// The media sessions of one call or dialog: the ten records of voipxlate_callinformation that the
// host reads, and the host's channel callbacks behind them. H.245 logical channels, fast start and
// SDP media lines all find, create, open and close sessions through this one view.
#ifndef VOIPFILTER_HOST_MEDIA_SESSIONS_H
#define VOIPFILTER_HOST_MEDIA_SESSIONS_H

#include <voipfilter/voipfilter.h>

#include <cstdint>

class MediaSessions {
public:
    using Session = voipxlate_mediasessioninformation;

    // A view of the records in call; the host context goes to every callback.
    MediaSessions(void* hostContext, voipxlate_callinformation& call)
        : hostContext_(hostContext), sessions_(call.sessions) {}

    void* HostContext() const { return hostContext_; }

    Session* begin() { return sessions_; }
    Session* end() { return sessions_ + VOIPXLATE_MAX_SESSIONS; }

    // The first record in use that match accepts, or null.
    template <class Match> Session* FindIf(Match match) {
        for (Session& session : *this)
            if ((session.flags & VOIPXLATE_SESSION_IN_USE) != 0 && match(session))
                return &session;
        return nullptr;
    }
    // The record in use with this session ID, or null.
    Session* Find(int32_t sessionID) {
        return FindIf([sessionID](const Session& s) { return s.sessionID == sessionID; });
    }
    // Takes the first free record: zeroed, in use, with the ID, kind and codec name given. Null
    // when all ten are in use.
    Session* Create(int32_t sessionID, int32_t mediaKind, const char* codecName);

    // Stores the addresses of one direction as announced and, until the host says otherwise,
    // as translated.
    static void SetAddresses(Session& session, bool forward, const sockaddr_type& rtp,
                             const sockaddr_type& rtcp);

    // Asks the host to open one direction's channel through the callback in slot (an
    // open-channel function). On success, or without a callback, the direction counts as open
    // and keeps the host's handle. Returns -1 when the host refuses, else 0.
    int OpenChannel(Session& session, bool forward, int slot) const;

    // Hands one direction's handle to the host's close callback. False when no close callback
    // is set (nothing was called).
    bool CloseChannel(const Session& session, bool forward) const;

private:
    void* hostContext_;
    Session* sessions_;
};

#endif
