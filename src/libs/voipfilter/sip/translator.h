// SIP over UDP: the process-wide translator, its dialog table and the per-dialog translation of
// requests, responses and SDP bodies.
#ifndef VOIPFILTER_SIP_TRANSLATOR_H
#define VOIPFILTER_SIP_TRANSLATOR_H

#include "sip/message.h"

#include <voipfilter/voipfilter.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
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

// The rewritten SDP body of the message being translated. size() counts every byte appended,
// but the text keeps no more than the limit: a longer body can never reach the output buffer, and
// the session's connection line, copied under each of many disabled media lines, would otherwise
// grow the text with the square of the body's size.
class SdpBodyText {
public:
    // No more than limit bytes are kept from the next clear() on.
    void SetLimit(std::size_t limit) { limit_ = limit; }
    void clear() {
        text_.clear();
        size_ = 0;
    }
    void Append(const char* text, std::size_t length) {
        size_ += length; // cannot wrap: the bytes copied are bounded by the body's size squared
        if (text_.size() < limit_)
            text_.append(text, std::min(length, limit_ - text_.size()));
    }
    SdpBodyText& operator+=(const std::string& text) {
        Append(text.data(), text.size());
        return *this;
    }
    SdpBodyText& operator+=(const char* text) {
        Append(text, std::char_traits<char>::length(text));
        return *this;
    }
    SdpBodyText& operator+=(char c) {
        Append(&c, 1);
        return *this;
    }
    // Bytes appended since clear().
    uint64_t size() const { return size_; }
    // The body as far as it was kept: all of it while size() is within the limit.
    const std::string& text() const { return text_; }

private:
    std::string text_;
    uint64_t size_ = 0;
    std::size_t limit_ = std::string::npos;
};

// Working state of the message being translated. A dialog uses it only while one of its messages
// is being translated, so a single set serves every dialog, and the buffers serve message after
// message.
struct MessageScratch {
    // Length of the start line that opens the output buffer.
    std::size_t startLength = 0;
    // The body that RewritePDU emits: the SDP built for this message, or the received one.
    bool emitSdpBody = false;
    std::string_view receivedBody;

    SdpLines lines;
    std::string sessionConnectionLine;
    SdpBodyText body;
    std::map<uint32_t, std::vector<uint32_t>> rtpMap;
    std::vector<std::string> tokens;
    // The connection line parsed last in this traversal, with its result: every media line of a
    // body may name the session's one.
    const std::string* parsedConnectionLine = nullptr;
    bool parsedConnectionOk = false;
    sockaddr_type parsedConnection{};
};

class SIPTranslator {
public:
    // lastMediaPort of a connection that has not carried a handled m= line: no port has it.
    static constexpr uint32_t kNoMediaPort = 100000;

    class DialogInfo;
    // The text keys of the dialogs: Call-ID + branch of each INVITE transaction and Call-ID. A key
    // leads to one dialog; several keys may lead to the same one. The dialogs themselves are owned
    // by the translator's two DialogLists.
    using DialogTable = std::map<std::string, DialogInfo*>;
    using DialogList = std::list<DialogInfo>;

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
    // Marks the dialog finished, for AgeDialogs.
    void Finish(DialogInfo& dialog);
    // Deletes every finished dialog; returns how many were deleted.
    int AgeDialogs();

    const DialogTable& Dialogs() const { return dialogs_; }

private:
    DialogInfo* CreateDialog(void* context, const std::string& fromTag);
    // Enters the dialog under key unless the key is taken (map insertion semantics).
    void AddKey(const std::string& key, DialogInfo& dialog);
    // Files the dialog under the port of its last media line, which a translation may change.
    void Reindex(DialogInfo& dialog);
    // Runs a translation that may walk SDP, then files the dialog under the media port it ends
    // with, also when the translation throws (an allocation failure the entry point reports).
    template <typename Translation> int TranslateSdp(DialogInfo& dialog, Translation translate) {
        int result;
        try {
            result = translate();
        } catch (...) {
            Reindex(dialog);
            throw;
        }
        Reindex(dialog);
        return result;
    }
    // Removes the dialog from the key table and the port index; it stays owned.
    void Unlink(DialogInfo& dialog);
    // Closes the media of an unlinked dialog and deletes it.
    void Delete(DialogInfo& dialog);
    // Sorts dialogs into the order in which a walk over the table in key order meets them.
    static void SortByFirstKey(std::vector<DialogInfo*>& dialogs);
    int TranslateResponse(SIPConnection& connection, DialogInfo& dialog, bool fromSrc,
                          const std::string& fromTag, const char* body, unsigned bodyLength,
                          char* out, unsigned* outLength, int option);

    // Scratch reused from datagram to datagram, so that steady traffic does not reallocate it.
    // (Declared before the dialogs, which refer to it.)
    SIPMIMEType headers_;
    std::vector<std::string> tokens_;
    MessageScratch scratch_;

    // The dialogs by the port of their last media line (1 to 65535), each port's dialogs in a list
    // linked through them. A table of 256 pages of 256 ports, a page made when a port of it is
    // first used and kept (all of them: 256 KB with 4-byte pointers): a look-up is two reads,
    // whatever the dialogs and their ports, where a tree of 20 000 dialogs would take a dozen
    // cache misses.
    class MediaPortIndex {
    public:
        DialogInfo* First(uint32_t port) const;
        void Insert(DialogInfo& dialog, uint16_t port);
        void Remove(DialogInfo& dialog);

    private:
        using Page = std::array<DialogInfo*, 256>;
        std::array<std::unique_ptr<Page>, 256> pages_;
    };

    SIPLineParser parser_;
    DialogTable dialogs_;
    MediaPortIndex byMediaPort_;
    // Dialogs in use, and those marked finished that AgeDialogs has yet to delete.
    DialogList live_;
    DialogList finished_;
    uint32_t dialogCounter_ = 1;
};

// One SIP dialog (RFC 3261 section 12) with the media sessions its offers and answers opened.
class SIPTranslator::DialogInfo {
public:
    DialogInfo(std::string id, const std::string& tag, MessageScratch& scratch);
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
    void* hostContext = nullptr;
    // The body being translated, its session-level c= line, the rewritten body and the payload
    // types the host allowed per media port: valid while a message of this dialog is translated.
    SdpLines& sdpLines;
    std::string& sessionConnectionLine;
    SdpBodyText& sdpBody;
    std::map<uint32_t, std::vector<uint32_t>>& rtpMap;
    // Port of the last m= line parsed; -1 (no port) until one is. The translator files the dialog
    // under it after each message.
    int32_t lastMediaPort = -1;

    // Scratch of one SDP traversal.
    int32_t mediaSectionState = 0;
    uint32_t holdState = 0;
    uint32_t mediaKind = 0;

private:
    friend class SIPTranslator;

    // Chooses the body that RewritePDU emits: the SDP built for this message, or the received one.
    void KeepBody(const char* body, unsigned bodyLength, bool emitSdpBody);
    // Appends line and CR LF to sdpBody in the second pass.
    void Copy(int pass, const std::string& line);
    // ParseConnectionLine, remembered for the rest of the traversal.
    bool ParseMediaConnection(sockaddr_type& address, const std::string& cLine);
    int OpenChannel(voipxlate_mediasessioninformation& session, bool forward,
                    const sockaddr_type& address);

    MessageScratch& scratch_;
    // Set when the response to a BYE is translated (SIPTranslator::Finish).
    bool finished = false;
    // The port it is filed under in the port index (0: none), and its neighbours there.
    uint16_t indexedPort_ = 0;
    DialogInfo* previousOnPort_ = nullptr;
    DialogInfo* nextOnPort_ = nullptr;
    // Its place in the translator's lists, and the table entries that lead to it.
    DialogList::iterator entry_;
    std::vector<DialogTable::iterator> keys_;
};

// Reads "c=IN IP4 a.b.c.d" into address; false for any other network or address type.
bool ParseConnectionLine(sockaddr_type& address, const std::string& cLine);

#endif
