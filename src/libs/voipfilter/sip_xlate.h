// SIP over UDP: the process-wide translator, its dialog table and the per-dialog translation of
// requests, responses and SDP bodies.
#ifndef VOIPFILTER_SIP_XLATE_H
#define VOIPFILTER_SIP_XLATE_H

#include "sip_text.h"

#include <voipfilter/voipfilter.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// One host-side SIP association, as handed to sipxlate_create. (A struct: C hosts hold it through
// an opaque `struct SIPConnection` pointer.)
struct SIPConnection {
    void* context;                       // host context, stored into every dialog it touches
    sockaddr_type source;                // the originator as the host sees it
    sockaddr_type translatedSource;      // the originator as announced towards the destination
    bool srcTranslated;                  // source differs from translatedSource
    sockaddr_type destination;           // the destination as the host sees it
    sockaddr_type translatedDestination; // the destination as announced towards the originator
    bool dstTranslated;                  // destination differs from translatedDestination
    uint32_t lastMediaPort;              // port of the last SDP m= line handled, or kNoMediaPort
};

// Lines of an SDP body. Kept by the translator and lent to the dialog being translated, so that
// the strings' buffers serve message after message instead of being allocated for each dialog.
class SdpLines {
public:
    void clear() { used_ = 0; }
    void emplace_back(const char* text, std::size_t length) {
        if (used_ == lines_.size())
            lines_.emplace_back();
        lines_[used_++].assign(text, length);
    }
    std::size_t size() const { return used_; }
    bool empty() const { return used_ == 0; }
    const std::string& operator[](std::size_t i) const { return lines_[i]; }

private:
    std::vector<std::string> lines_;
    std::size_t used_ = 0;
};

// Working texts of one SDP translation. A dialog uses them only while one of its messages is
// being translated, so a single set serves every dialog.
struct SdpScratch {
    SdpLines lines;
    std::string sessionConnectionLine;
    std::string body;
    std::vector<std::string> tokens;
};

class SIPTranslator {
public:
    // lastMediaPort of a connection that has not carried a handled m= line: no port has it.
    static constexpr uint32_t kNoMediaPort = 100000;

    class DialogInfo;
    using DialogTable = std::map<std::string, DialogInfo*>;

    SIPTranslator() = default;
    virtual ~SIPTranslator();
    SIPTranslator(const SIPTranslator&) = delete;
    SIPTranslator& operator=(const SIPTranslator&) = delete;

    // The translator stored in the registry, created on first use and never destroyed.
    static SIPTranslator& Instance();

    // Translates one datagram. *outLength is the capacity of out on entry and the length of the
    // rewritten message when the result is 1. Results: 1 = out holds the rewritten message
    // (NUL-terminated); 0 = forward the datagram unchanged; negative = drop it. direction is
    // accepted for the interface's sake: the side of a message follows from its From tag.
    int Translate(SIPConnection& connection, bool direction, const unsigned char* in,
                  unsigned inLength, unsigned char* out, unsigned* outLength, int option);

    // Removes the dialog(s) whose last SDP media port is the connection's, closing their media.
    int Destroy(SIPConnection& connection);
    // Unlinks the dialog from every key, closes its media and deletes it. -1 for null.
    int Destroy(DialogInfo* dialog);
    // Deletes every finished dialog; returns how many were deleted.
    int AgeDialogs();

    const DialogTable& Dialogs() const { return dialogs_; }

private:
    DialogInfo* CreateDialog(void* context, const std::string& fromTag);
    int TranslateResponse(SIPConnection& connection, DialogInfo& dialog, bool fromSrc,
                          const std::string& fromTag, const char* body, unsigned bodyLength,
                          char* out, unsigned* outLength, int option);

    SIPLineParser parser_;
    DialogTable dialogs_;
    uint32_t dialogCounter_ = 1;

    // Scratch reused from datagram to datagram, so that steady traffic does not reallocate it.
    SIPMIMEType headers_;
    std::vector<std::string> tokens_;
    SdpScratch sdp_;
};

// One SIP dialog (RFC 3261 section 12) with the media sessions its offers and answers opened.
class SIPTranslator::DialogInfo {
public:
    DialogInfo(std::string id, const std::string& tag, SdpScratch& scratch);
    DialogInfo(const DialogInfo&) = delete;
    DialogInfo& operator=(const DialogInfo&) = delete;

    // Per-message translators. fromSrc: for requests, the message comes from the dialog creator's
    // side; for responses, the response travels towards the creator. Results: > 0 rewritten into
    // out, 0 forward unchanged, < 0 failure.
    int TranslateINVITE(SIPConnection& connection, bool fromSrc, SIPMIMEType& headers,
                        const char* body, unsigned bodyLength, char* out, unsigned* outLength,
                        int option);
    int TranslateINVITEResponse(SIPConnection& connection, bool fromSrc, unsigned status,
                                SIPMIMEType& headers, const char* body, unsigned bodyLength,
                                char* out, unsigned* outLength, int option);
    int TranslateACK(SIPConnection& connection, bool fromSrc,
                     const std::vector<std::string>& tokens, SIPMIMEType& headers, const char* body,
                     unsigned bodyLength, char* out, unsigned* outLength);
    int TranslateBYE(SIPConnection& connection, bool fromSrc,
                     const std::vector<std::string>& tokens, SIPMIMEType& headers, const char* body,
                     unsigned bodyLength, char* out, unsigned* outLength);
    int TranslateRequest(SIPConnection& connection, bool fromSrc,
                         const std::vector<std::string>& tokens, SIPMIMEType& headers,
                         const char* body, unsigned bodyLength, char* out, unsigned* outLength);
    int TranslateResponse(SIPConnection& connection, bool fromSrc, unsigned status,
                          const std::vector<std::string>& tokens, SIPMIMEType& headers,
                          const char* body, unsigned bodyLength, char* out, unsigned* outLength);

    // Re-assembles the message behind the start line already in out when result > 0.
    int RewritePDU(int result, SIPConnection& connection, bool fromSrc, bool isRequest,
                   SIPMIMEType& headers, char* out, unsigned* outLength);
    int RewriteVia(SIPConnection& connection, bool fromSrc, SIPMIMEType& headers);
    int RewriteContact(SIPConnection& connection, bool fromSrc, bool isRequest,
                       SIPMIMEType& headers);

    // SDP (RFC 4566).
    bool GetEntityBodyAsSDP(const SIPMIMEType& headers, const char* body, unsigned bodyLength);
    int TraverseSDP(SIPConnection& connection, bool fromSrc, bool isForward, int pass, int option);
    int Handle_M_Line(SIPConnection& connection, bool fromSrc, bool isForward, int pass,
                      const std::string& mLine, const std::string& cLine, int option);
    int Handle_A_Line(int pass, const std::string& aLine);
    int Handle_O_Line(SIPConnection& connection, bool fromSrc, bool isForward,
                      const std::string& oLine);
    void CloseMedia();

    std::string dialogId;
    uint32_t reserved = 0;
    voipxlate_callinformation callInformation;
    std::string fromTag;
    bool firstInviteResponse = true;
    bool finished = false;
    void* hostContext = nullptr;
    // The body being translated, its session-level c= line and the rewritten body; valid while a
    // message of this dialog is translated.
    SdpLines& sdpLines;
    std::string& sessionConnectionLine;
    std::string& sdpBody;
    // Port of the last m= line parsed; -1 (no port) until one is.
    int32_t lastMediaPort = -1;
    std::map<uint32_t, std::vector<uint32_t>> rtpMap;

    // Scratch of one SDP traversal.
    int32_t mediaSectionState = 0;
    uint32_t holdState = 0;
    uint32_t mediaKind = 0;

private:
    // Chooses the body that RewritePDU emits: the SDP built for this message, or the received one.
    void KeepBody(const char* body, unsigned bodyLength, bool emitSdpBody);
    // Appends line and CR LF to sdpBody in the second pass.
    void Copy(int pass, const std::string& line);
    int OpenChannel(voipxlate_mediasessioninformation& session, bool forward,
                    const sockaddr_type& address);

    std::string_view receivedBody_;
    bool emitSdpBody_ = false;
    std::vector<std::string>& tokens_; // scratch of the line handlers
};

// Reads "c=IN IP4 a.b.c.d" into address; false for any other network or address type.
bool ParseConnectionLine(sockaddr_type& address, const std::string& cLine);

#endif
