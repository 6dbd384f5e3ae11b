// SIP over UDP: the process-wide translator that reads each datagram, finds or creates its
// dialog and hands the message to it.
#ifndef VOIPFILTER_SIP_TRANSLATOR_H
#define VOIPFILTER_SIP_TRANSLATOR_H

#include "sdp/body.h"
#include "sip/dialog.h"
#include "sip/dialog_table.h"
#include "sip/message.h"

#include <voipfilter/voipfilter.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class SIPTranslator {
public:
    // lastMediaPort of a connection that has not carried a handled m= line: no port has it.
    static constexpr uint32_t kNoMediaPort = 100000;

    using DialogInfo = ::DialogInfo;

    SIPTranslator() = default;
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
    // Marks the dialog finished, for AgeDialogs.
    void Finish(DialogInfo& dialog) { dialogs_.Finish(dialog); }
    // Deletes every finished dialog; returns how many were deleted.
    int AgeDialogs() { return dialogs_.AgeDialogs(); }

    // The dialogs by key.
    const DialogTable::KeyIndex& Dialogs() const { return dialogs_.Keys(); }

private:
    // What names the dialog of a message: the From and To tags, the Call-ID, and Call-ID +
    // branch of the topmost Via.
    struct DialogKey {
        std::string fromTag;
        std::string toTag;
        const std::string* callId = nullptr;
        std::string key;
    };

    // Splits the datagram into its start line, its header block (into headers_) and its body.
    // False, after logging, when there is no start line or out cannot even hold it.
    bool ReadMessage(void* context, const unsigned char* in, unsigned inLength,
                     const unsigned char* out, const unsigned* outLength,
                     std::string_view& startLine, std::string_view& body);
    // The body's length from Content-Length, within the bytes present.
    unsigned BodyLength(void* context, unsigned present) const;
    // False, after logging, when a header that names the dialog is missing.
    bool ReadDialogKey(void* context, DialogKey& key) const;
    // The dialog of an INVITE: found by its transaction, by its Call-ID for a re-INVITE, or
    // created. *fromSrc tells whether the INVITE comes from the dialog creator's side.
    DialogInfo& InviteDialog(void* context, const DialogKey& key, bool* fromSrc);
    // The dialog of any other message, or null (after logging) for an unknown one.
    DialogInfo* FindDialog(void* context, const DialogKey& key) const;
    int TranslateInDialog(SIPConnection& connection, DialogInfo& dialog, const DialogKey& key,
                          const SIPMessageParts& message, SIPOutput out, int option);
    // A response: CSeq (RFC 3261 section 20.16) says which request it answers.
    int TranslateResponse(SIPConnection& connection, DialogInfo& dialog, bool fromSrc,
                          const std::string& fromTag, const SIPMessageParts& message, SIPOutput out,
                          int option);
    // Runs a translation that may walk SDP, then files the dialog under the media port it ends
    // with, also when the translation throws (an allocation failure the entry point reports).
    template <typename Translation> int ReindexAfter(DialogInfo& dialog, Translation translate) {
        int result;
        try {
            result = translate();
        } catch (...) {
            dialogs_.Reindex(dialog);
            throw;
        }
        dialogs_.Reindex(dialog);
        return result;
    }

    // Scratch reused from datagram to datagram, so that steady traffic does not reallocate it.
    SIPLineParser parser_;
    SIPMIMEType headers_;
    std::vector<std::string> tokens_;
    DialogKey key_;
    SdpScratch scratch_;

    DialogTable dialogs_;
};

#endif
