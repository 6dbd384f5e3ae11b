#include "sip/translator.h"

#include "host/entry_guard.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <strings.h>

#include <cstring>
#include <string>

// The steps that have one caller each are defined inline: they stay apart in the source, and
// the per-message path pays no calls for the split.
namespace {

bool EqualsNoCase(const std::string& a, const char* b) {
    return strcasecmp(a.c_str(), b) == 0;
}

// Cuts text before the first occurrence of c.
void CutAt(std::string& text, char c) {
    const std::string::size_type pos = text.find(c);
    if (pos != std::string::npos)
        text.erase(pos);
}

} // namespace

SIPTranslator& SIPTranslator::Instance() {
    VoIPTranslator& registry = VoIPTranslator::Current();
    if (registry.SipTranslator() == nullptr)
        registry.SetSipTranslator(new SIPTranslator());
    return *registry.SipTranslator();
}

int SIPTranslator::Translate(SIPConnection& connection, bool /*direction*/, const unsigned char* in,
                             unsigned inLength, unsigned char* out, unsigned* outLength,
                             int option) {
    void* const context = connection.context;
    VF_LOG(context, logsource::kSIP, 4) << "SIP  Translate PDU ";
    std::string_view startLine;
    std::string_view body;
    if (!ReadMessage(context, in, inLength, out, outLength, startLine, body))
        return -1;
    tokens_.clear();
    if (Tokenise<IsWhiteSpace>(tokens_, startLine) < 2) {
        VF_LOG(context, logsource::kSIP, 2)
            << "SIP  Ignoring message with < 2 tokens in header line";
        return 0;
    }
    DialogKey& key = key_;
    if (!ReadDialogKey(context, key))
        return 0;

    const SIPMessageParts message{startLine, tokens_, headers_, body};
    const SIPOutput output{reinterpret_cast<char*>(out), outLength};
    int result;
    if (EqualsNoCase(tokens_[0], "invite")) {
        bool fromSrc = true;
        DialogInfo& dialog = InviteDialog(context, key, &fromSrc);
        dialog.hostContext = context;
        result = ReindexAfter(dialog, [&] {
            return dialog.TranslateINVITE(connection, fromSrc, message, scratch_, output, option);
        });
    } else {
        DialogInfo* dialog = FindDialog(context, key);
        if (dialog == nullptr)
            return 0;
        result = TranslateInDialog(connection, *dialog, key, message, output, option);
    }
    if (result == 1) {
        // *outLength is what was written: the body may hold NUL bytes. The log line shows the
        // message as text, up to the first of them.
        VF_LOG(context, logsource::kSIP, 4) << "SIP  Translated PDU:\n" << output.text;
        return 1;
    }
    if (result == 0) {
        VF_LOG(context, logsource::kSIP, 4) << "SIP  PDU not translated";
    }
    return result;
}

inline bool SIPTranslator::ReadMessage(void* context, const unsigned char* in, unsigned inLength,
                                       const unsigned char* out, const unsigned* outLength,
                                       std::string_view& startLine, std::string_view& body) {
    if (in == nullptr)
        inLength = 0;
    parser_.Start(reinterpret_cast<const char*>(in), inLength);
    const char* line = nullptr;
    unsigned lineLength = 0;
    if (!parser_.GetLine(&line, &lineLength)) {
        VF_LOG(context, logsource::kSIP, 5) << "SIP  Malformed header line";
        return false;
    }
    // The start line opens every rewritten message.
    if (out == nullptr || outLength == nullptr || *outLength < lineLength + 3ull) {
        VF_LOG(context, logsource::kSIP, 1) << "SIP  Insufficient buffer space for SIP header";
        return false;
    }
    startLine = std::string_view(line, lineLength);

    // Header block (RFC 3261 section 7.3): up to the empty line or the end of the datagram. A
    // line without a colon is dropped; folded lines get no special treatment.
    headers_.Clear();
    while (parser_.GetLine(&line, &lineLength) && lineLength != 0) {
        const void* colon = std::memchr(line, ':', lineLength);
        if (colon == nullptr)
            continue;
        const std::size_t nameLength = static_cast<const char*>(colon) - line;
        headers_.Add(line, nameLength, line + nameLength + 1, lineLength - nameLength - 1);
    }
    const char* const bodyStart = parser_.Position();
    body = std::string_view(bodyStart, BodyLength(context, parser_.Remaining()));
    return true;
}

// Content-Length (section 20.14). More bytes than announced: the value is not trusted and the
// body is taken as empty. Fewer: the value stands, but nothing beyond the datagram is ever read,
// so the body handed on is clamped to the bytes present.
inline unsigned SIPTranslator::BodyLength(void* context, unsigned present) const {
    unsigned bodyLength = 0;
    const auto contentLength = headers_.GetField("Content-Length", 'l');
    if (contentLength != headers_.end()) {
        const int announced = DecimalValue(contentLength->value);
        bodyLength = static_cast<unsigned>(announced);
        if (present > bodyLength) {
            VF_LOG(context, logsource::kSIP, 2)
                << "SIP  Ignoring SIP Content-Length as mismatch between Content-Length "
                << announced << "and packet length" << present;
            bodyLength = 0;
        }
    }
    return bodyLength > present ? present : bodyLength;
}

[[gnu::always_inline]] inline bool SIPTranslator::ReadDialogKey(void* context,
                                                                DialogKey& key) const {
    const auto from = headers_.GetField("From", 'f');
    const auto to = headers_.GetField("To", 't');
    const auto callId = headers_.GetField("Call-ID", 'i');
    const auto via = headers_.GetField("Via", 'v');
    if (from == headers_.end() || to == headers_.end() || callId == headers_.end() ||
        via == headers_.end()) {
        VF_LOG(context, logsource::kSIP, 2)
            << "SIP  Ignoring message with insufficient fields to construct dialog ID";
        return false;
    }
    key.fromTag = ExtractTag(from->value);
    key.toTag = ExtractTag(to->value);
    // The branch of the topmost Via identifies the transaction (section 17.2.3). Only the first
    // Via line is looked at; a comma starts a second Via value within it.
    std::string branch = ExtractBranch(via->value);
    CutAt(branch, ';');
    CutAt(branch, ',');
    key.callId = &callId->value;
    key.key.assign(callId->value); // the key's buffer serves message after message
    key.key += branch;
    VF_LOG(context, logsource::kSIP, 2) << "SIP dialogFind by branch is " << key.key;
    return true;
}

inline DialogInfo& SIPTranslator::InviteDialog(void* context, const DialogKey& key, bool* fromSrc) {
    if (DialogInfo* retried = dialogs_.Find(key.key)) {
        VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing INVITE retry";
        *fromSrc = key.toTag.empty() || retried->fromTag == key.fromTag;
        return *retried;
    }
    if (key.toTag.empty()) {
        VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing new INVITE";
        DialogInfo& created = dialogs_.Create(context, key.fromTag);
        dialogs_.AddKey(key.key, created);
        dialogs_.AddKey(*key.callId, created);
        if (auto notify = VoIPTranslator::Current().Callback<voipxlate_call_information_function>(
                VOIPXLATE_CALL_INFORMATION))
            notify(&created.callInformation);
        *fromSrc = true;
        return created;
    }
    VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing RE INVITE";
    VF_LOG(context, logsource::kSIP, 2) << "SIP dialogFind by Call-ID is " << *key.callId;
    DialogInfo* dialog = dialogs_.Find(*key.callId);
    if (dialog != nullptr) {
        VF_LOG(context, logsource::kSIP, 2) << "Found existing dialog";
        dialogs_.AddKey(key.key, *dialog);
    } else {
        dialog = &dialogs_.Create(context, key.fromTag);
        dialogs_.AddKey(key.key, *dialog);
        dialogs_.AddKey(*key.callId, *dialog);
    }
    *fromSrc = dialog->fromTag == key.fromTag;
    return *dialog;
}

inline DialogInfo* SIPTranslator::FindDialog(void* context, const DialogKey& key) const {
    if (DialogInfo* dialog = dialogs_.Find(key.key))
        return dialog;
    VF_LOG(context, logsource::kSIP, 2) << "SIP  Not found with callId+branch, searching by CallId";
    DialogInfo* dialog = dialogs_.Find(*key.callId);
    if (dialog == nullptr) {
        VF_LOG(context, logsource::kSIP, 2) << "SIP  Passing though message for unknown dialog";
        return nullptr;
    }
    VF_LOG(context, logsource::kSIP, 2) << "SIP  Found with CallID";
    return dialog;
}

inline int SIPTranslator::TranslateInDialog(SIPConnection& connection, DialogInfo& dialog,
                                            const DialogKey& key, const SIPMessageParts& message,
                                            SIPOutput out, int option) {
    const bool fromSrc = dialog.fromTag == key.fromTag;
    const std::string& method = message.tokens[0];
    if (EqualsNoCase(method, "ack"))
        return dialog.TranslateACK(fromSrc, message, out);
    if (EqualsNoCase(method, "bye"))
        return dialog.TranslateBYE(fromSrc, message, out);
    if (!EqualsNoCase(method, "SIP/2.0"))
        return dialog.TranslateRequest(fromSrc, message, out);
    return TranslateResponse(connection, dialog, fromSrc, key.fromTag, message, out, option);
}

int SIPTranslator::TranslateResponse(SIPConnection& connection, DialogInfo& dialog, bool fromSrc,
                                     const std::string& fromTag, const SIPMessageParts& message,
                                     SIPOutput out, int option) {
    void* const context = connection.context;
    std::vector<std::string> cseq;
    const auto cseqField = headers_.GetField("CSeq", 0);
    if (cseqField == headers_.end() || Tokenise<IsWhiteSpace>(cseq, cseqField->value) != 2) {
        VF_LOG(context, logsource::kSIP, 2) << "SIP  Ignoring message with unparseable CSeq";
        return 0;
    }
    const unsigned status = static_cast<unsigned>(DecimalValue(message.tokens[1]));

    if (!EqualsNoCase(cseq[1], "invite")) {
        const int result = dialog.TranslateResponse(!fromSrc, message, out);
        if (EqualsNoCase(cseq[1], "bye")) {
            // The dialog ends with the answer to its BYE (section 15.1.2).
            dialogs_.Finish(dialog);
            dialogs_.Destroy(dialog);
        }
        return result;
    }

    if (fromTag != dialog.fromTag) {
        VF_LOG(context, logsource::kSIP, 2)
            << "SIP  Received INVITE response with unknown From tag";
    }
    // The first answer always travels towards the dialog's creator.
    if (dialog.firstInviteResponse) {
        dialog.firstInviteResponse = false;
        fromSrc = false;
    }
    const int result = ReindexAfter(dialog, [&] {
        return dialog.TranslateINVITEResponse(connection, !fromSrc, status, message, scratch_, out,
                                              option);
    });
    if (dialog.callInformation.state == VOIPXLATE_SIP_FAILED)
        dialogs_.Destroy(dialog);
    return result;
}

int SIPTranslator::Destroy(DialogInfo* dialog) {
    if (dialog == nullptr)
        return -1;
    dialogs_.Destroy(*dialog);
    return 0;
}

int SIPTranslator::Destroy(SIPConnection& connection) {
    // The connection knows its dialog only by the port of the last media line it carried; a
    // connection that carried none holds kNoMediaPort, which no dialog is filed under.
    dialogs_.DestroyOnPort(connection.lastMediaPort);
    return 0;
}

extern "C" {

VOIPXLATE_API SIPConnection* sipxlate_create(void* context, const sockaddr_type* a,
                                             const sockaddr_type* b, const sockaddr_type* c,
                                             const sockaddr_type* d) {
    SIPTranslator::Instance();
    if (a == nullptr || b == nullptr || c == nullptr || d == nullptr)
        return nullptr;
    SIPConnection* connection = new SIPConnection;
    connection->context = context;
    connection->source = *a;
    connection->translatedSource = *c;
    connection->srcTranslated = !(*a == *c);
    connection->destination = *b;
    connection->translatedDestination = *d;
    connection->dstTranslated = !(*b == *d);
    connection->lastMediaPort = SIPTranslator::kNoMediaPort;
    return connection;
}

VOIPXLATE_API void sipxlate_destroy(SIPConnection* connection) {
    delete connection;
}

VOIPXLATE_API int sipxlate_udp_translate(SIPConnection* connection, int direction,
                                         const unsigned char* in, unsigned int inLength,
                                         unsigned char* out, unsigned int* outLength, int option) {
    if (connection == nullptr)
        return -1;
    return Guarded(RefusalLog{connection->context, logsource::kSIP, "SIP  "}, -1, [&] {
        return SIPTranslator::Instance().Translate(*connection, direction != 0, in, inLength, out,
                                                   outLength, option);
    });
}

VOIPXLATE_API int sipxlate_udp_destroy(SIPConnection* connection) {
    if (connection == nullptr)
        return -1;
    return Guarded(RefusalLog{connection->context, logsource::kSIP, "SIP  "}, -1,
                   [&] { return SIPTranslator::Instance().Destroy(*connection); });
}

} // extern "C"
