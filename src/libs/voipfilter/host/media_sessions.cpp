#include "host/media_sessions.h"

#include "host/registry.h"

#include <cstring>

MediaSessions::Session* MediaSessions::Create(int32_t sessionID, int32_t mediaKind,
                                              const char* codecName) {
    for (Session& session : *this) {
        if (session.flags & VOIPXLATE_SESSION_IN_USE)
            continue;
        std::memset(&session, 0, sizeof session);
        session.flags = VOIPXLATE_SESSION_IN_USE;
        session.sessionID = sessionID;
        session.mediaKind = mediaKind;
        session.codecName = codecName;
        return &session;
    }
    return nullptr;
}

void MediaSessions::SetAddresses(Session& session, bool forward, const sockaddr_type& rtp,
                                 const sockaddr_type& rtcp) {
    if (forward) {
        session.forwardRTP = session.forwardRTPTranslated = rtp;
        session.forwardRTCP = session.forwardRTCPTranslated = rtcp;
    } else {
        session.reverseRTP = session.reverseRTPTranslated = rtp;
        session.reverseRTCP = session.reverseRTCPTranslated = rtcp;
    }
}

int MediaSessions::OpenChannel(Session& session, bool forward, int slot) const {
    const auto open = VoIPTranslator::Current().Callback<voipxlate_open_channel_function>(slot);
    if (open != nullptr) {
        int32_t handle = 0;
        if (open(hostContext_, forward ? 1 : 0, &session, &handle) != 0)
            return -1;
        (forward ? session.forwardUserData : session.reverseUserData) = handle;
    }
    session.flags |= forward ? VOIPXLATE_SESSION_FORWARD_OPEN : VOIPXLATE_SESSION_REVERSE_OPEN;
    return 0;
}

bool MediaSessions::CloseChannel(const Session& session, bool forward) const {
    const auto close = VoIPTranslator::Current().Callback<voipxlate_close_channel_function>(
        VOIPXLATE_CLOSE_RTP_CHANNEL);
    if (close == nullptr)
        return false;
    close(hostContext_, forward ? session.forwardUserData : session.reverseUserData,
          forward ? 1 : 0);
    return true;
}
