// SDP (RFC 4566) inside offers and answers: each media line makes the host open a channel, and
// the addresses it returns replace those of the m=, c= and o= lines. rtpmap attributes pass the
// host's codec veto; sendonly/recvonly (RFC 3264 section 8.4) tell it of hold.
#ifndef VOIPFILTER_SDP_SESSION_H
#define VOIPFILTER_SDP_SESSION_H

#include "host/media_sessions.h"
#include "sdp/body.h"

#include <voipfilter/voipfilter.h>

#include <cstddef>
#include <cstdint>
#include <string>

// What the SDP of one dialog keeps from one message to the next.
struct SdpState {
    // Port of the last m= line parsed; -1 (no port) until one is. The dialog is filed under it.
    int32_t lastMediaPort = -1;
    // Where the traversal stands: outside media sections, in a kept one or in a removed one.
    int32_t mediaSectionState = 0;
    // Set by a sendonly or recvonly attribute in the first pass over a body.
    uint32_t holdState = 0;
    // The VOIPXLATE_MEDIA_* kind of the last m= line parsed.
    uint32_t mediaKind = 0;
};

// The signalling association's part: the addresses an o= line may be given, and where the port
// of each media line handled is reported.
struct SdpEndpoints {
    const sockaddr_type& destination;
    const sockaddr_type& translatedSource;
    bool srcTranslated;
    bool dstTranslated;
    uint32_t& lastMediaPort;
};

// The translation of one body. fromSrc: the body comes from the dialog creator's side;
// isForward: it is an offer (the creator's media), not an answer. option 0 keeps the received
// media addresses (the endpoints reach each other directly).
class SdpTranslator {
public:
    SdpTranslator(SdpState& state, SdpScratch& scratch, MediaSessions sessions,
                  const SdpEndpoints& endpoints, int option)
        : state_(state), scratch_(scratch), sessions_(sessions), endpoints_(endpoints),
          option_(option) {}

    // Splits the body into trimmed lines when contentType (the Content-Type value, null when
    // there is none) is a bare application/sdp; false otherwise.
    bool GetEntityBodyAsSDP(const std::string* contentType, const char* body, unsigned bodyLength);
    // Both passes over the lines: the first learns the media ports, the allowed codecs and hold;
    // the second opens the channels and writes the new body, keeping no more than limit bytes.
    // @return -1 failed, 1 the body changed, 0 it did not.
    int Translate(bool fromSrc, bool isForward, std::size_t limit);
    // The body the second pass wrote.
    const SdpBodyText& Body() const { return scratch_.body; }

private:
    int TraverseSDP(bool fromSrc, bool isForward, int pass);
    // The connection line that applies to the media section starting at line i.
    const std::string& MediaConnectionLine(std::size_t i, std::size_t& searchedTo) const;
    int HandleMediaLine(bool isForward, int pass, const std::string& mLine,
                        const std::string& cLine);
    int ReadMediaLine(int pass, const std::string& mLine, const std::string& cLine);
    const std::vector<uint32_t>& AllowedPayloads(uint32_t port, bool isMessage, bool& newlyAdded);
    voipxlate_mediasessioninformation* MediaSessionOf(uint32_t port);
    int OpenChannel(voipxlate_mediasessioninformation& session, bool forward,
                    const sockaddr_type& address);
    void LogChannelHandle(bool forward, int32_t handle) const;
    const sockaddr_type& TranslatedAddress(voipxlate_mediasessioninformation& session,
                                           bool isForward, uint32_t port) const;
    void WriteMediaLines(const sockaddr_type& translated, bool isMessage);
    int HandleAttributeLine(int pass, const std::string& aLine);
    int HandleHold();
    int HandleRtpMap(int pass, const std::string& aLine, std::size_t first);
    int HandleOriginLine(bool fromSrc, bool isForward, const std::string& oLine);
    // Appends line and CR LF to the body in the second pass.
    void Copy(int pass, const std::string& line);
    // ParseConnectionLine, remembered for the rest of the traversal.
    bool ParseMediaConnection(sockaddr_type& address, const std::string& cLine);
    void* HostContext() const { return sessions_.HostContext(); }

    SdpState& state_;
    SdpScratch& scratch_;
    MediaSessions sessions_;
    SdpEndpoints endpoints_;
    int option_;
};

// Closes the open channels of every session in use and forgets their handles.
void CloseMedia(MediaSessions& sessions);

#endif
