// One SIP dialog (RFC 3261 section 12) and the translation of the messages inside it: requests
// and responses pass with their headers as received, and the SDP of INVITE transactions has its
// media addresses rewritten.
#ifndef VOIPFILTER_SIP_DIALOG_H
#define VOIPFILTER_SIP_DIALOG_H

#include "sdp/body.h"
#include "sdp/session.h"
#include "sip/message.h"

#include <voipfilter/voipfilter.h>

#include <cstdint>
#include <list>
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

// The message being translated: its start line and the tokens of it, the header block, and the
// body (as many bytes of it as the datagram holds). The text stays the host's.
struct SIPMessageParts {
    std::string_view startLine;
    const std::vector<std::string>& tokens;
    SIPMIMEType& headers;
    std::string_view body;
};

// Where a rewritten message goes: text has *length bytes of room; *length gets the size written.
struct SIPOutput {
    char* text;
    unsigned* length;
};

class DialogInfo {
public:
    DialogInfo(std::string id, const std::string& tag);
    DialogInfo(const DialogInfo&) = delete;
    DialogInfo& operator=(const DialogInfo&) = delete;

    // Per-message translators. fromSrc: for requests, the message comes from the dialog creator's
    // side; for responses, the response travels towards the creator. scratch is the SDP working
    // storage lent for this message. Results: > 0 rewritten into out, 0 forward unchanged,
    // < 0 failure.
    int TranslateINVITE(SIPConnection& connection, bool fromSrc, const SIPMessageParts& message,
                        SdpScratch& scratch, SIPOutput out, int option);
    int TranslateINVITEResponse(SIPConnection& connection, bool fromSrc, unsigned status,
                                const SIPMessageParts& message, SdpScratch& scratch, SIPOutput out,
                                int option);
    int TranslateACK(bool fromSrc, const SIPMessageParts& message, SIPOutput out);
    int TranslateBYE(bool fromSrc, const SIPMessageParts& message, SIPOutput out);
    int TranslateRequest(bool fromSrc, const SIPMessageParts& message, SIPOutput out);
    int TranslateResponse(bool fromSrc, const SIPMessageParts& message, SIPOutput out);

    // Closes the channels of the dialog's media sessions.
    void CloseMedia();

    // Port of the last m= line parsed; -1 (no port) until one is. The table files the dialog
    // under it after each message.
    int32_t LastMediaPort() const { return sdp_.lastMediaPort; }
    bool Finished() const { return finished_; }

    std::string dialogId;
    uint32_t reserved = 0;
    voipxlate_callinformation callInformation;
    std::string fromTag;
    bool firstInviteResponse = true;
    void* hostContext = nullptr;

private:
    friend class DialogTable;

    // The SDP translator of this dialog for one message.
    SdpTranslator Sdp(SIPConnection& connection, SdpScratch& scratch, int option);
    // Reads an offer or answer from the message's body; false (logged) when it is not SDP that
    // can be read, and the message then passes unchanged.
    bool ReadSdpBody(SdpTranslator& sdp, const SIPMessageParts& message);
    // Both passes over an offer or answer found in the body: -1 failed, else whether the body
    // changed (Content-Length then follows the new body).
    int TranslateSdp(SdpTranslator& sdp, bool fromSrc, bool isForward,
                     const SIPMessageParts& message, unsigned limit);
    // Writes the start line, the header block and body behind it into out when result > 0,
    // after the host's rewrite-notify callback had its say.
    int RewritePDU(int result, bool fromSrc, bool isRequest, const SIPMessageParts& message,
                   std::string_view body, uint64_t bodySize, SIPOutput out);
    // The same with the body as received.
    int RewritePDU(int result, bool fromSrc, bool isRequest, const SIPMessageParts& message,
                   SIPOutput out) {
        return RewritePDU(result, fromSrc, isRequest, message, message.body, message.body.size(),
                          out);
    }
    // The same with the SDP body that sdp wrote.
    int RewritePDU(int result, bool fromSrc, bool isRequest, const SIPMessageParts& message,
                   const SdpTranslator& sdp, SIPOutput out) {
        return RewritePDU(result, fromSrc, isRequest, message, sdp.Body().text(), sdp.Body().size(),
                          out);
    }

    SdpState sdp_;
    // Set when the response to a BYE is translated.
    bool finished_ = false;
    // The port it is filed under in the table's port index (0: none), and its neighbours there.
    uint16_t indexedPort_ = 0;
    DialogInfo* previousOnPort_ = nullptr;
    DialogInfo* nextOnPort_ = nullptr;
    // Its place in the table's lists, and the key entries that lead to it.
    std::list<DialogInfo>::iterator entry_;
    std::vector<std::map<std::string, DialogInfo*>::iterator> keys_;
};

#endif
