#include "sip/translator.h"

#include "host/entry_guard.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

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

SIPTranslator::DialogInfo::DialogInfo(std::string id, const std::string& tag,
                                      MessageScratch& scratch)
    : dialogId(std::move(id)), callInformation(), fromTag(tag), sdpLines(scratch.lines),
      sessionConnectionLine(scratch.sessionConnectionLine), sdpBody(scratch.body),
      rtpMap(scratch.rtpMap), scratch_(scratch) {}

SIPTranslator::~SIPTranslator() {
    while (!dialogs_.empty())
        Destroy(dialogs_.begin()->second);
}

SIPTranslator& SIPTranslator::Instance() {
    VoIPTranslator& registry = VoIPTranslator::Current();
    if (registry.SipTranslator() == nullptr)
        registry.SetSipTranslator(new SIPTranslator());
    return *registry.SipTranslator();
}

SIPTranslator::DialogInfo* SIPTranslator::CreateDialog(void* context, const std::string& fromTag) {
    DialogInfo& dialog =
        live_.emplace_back("z9hG4bK" + std::to_string(dialogCounter_++), fromTag, scratch_);
    dialog.entry_ = std::prev(live_.end());
    VF_LOG(context, logsource::kSIP, 4) << "created dialog @" << static_cast<void*>(&dialog);
    return &dialog;
}

void SIPTranslator::AddKey(const std::string& key, DialogInfo& dialog) {
    dialog.keys_.reserve(dialog.keys_.size() + 1); // nothing can fail once the key is in
    const auto added = dialogs_.emplace(key, &dialog);
    if (added.second)
        dialog.keys_.push_back(added.first);
}

SIPTranslator::DialogInfo* SIPTranslator::MediaPortIndex::First(uint32_t port) const {
    if (port == 0 || port > 65535 || pages_[port >> 8] == nullptr)
        return nullptr;
    return (*pages_[port >> 8])[port & 255];
}

void SIPTranslator::MediaPortIndex::Insert(DialogInfo& dialog, uint16_t port) {
    std::unique_ptr<Page>& page = pages_[port >> 8];
    if (page == nullptr)
        page = std::make_unique<Page>(Page{});
    DialogInfo*& first = (*page)[port & 255];
    dialog.indexedPort_ = port;
    dialog.previousOnPort_ = nullptr;
    dialog.nextOnPort_ = first;
    if (first != nullptr)
        first->previousOnPort_ = &dialog;
    first = &dialog;
}

void SIPTranslator::MediaPortIndex::Remove(DialogInfo& dialog) {
    if (dialog.indexedPort_ == 0)
        return;
    if (dialog.previousOnPort_ != nullptr)
        dialog.previousOnPort_->nextOnPort_ = dialog.nextOnPort_;
    else
        (*pages_[dialog.indexedPort_ >> 8])[dialog.indexedPort_ & 255] = dialog.nextOnPort_;
    if (dialog.nextOnPort_ != nullptr)
        dialog.nextOnPort_->previousOnPort_ = dialog.previousOnPort_;
    dialog.indexedPort_ = 0;
    dialog.previousOnPort_ = dialog.nextOnPort_ = nullptr;
}

void SIPTranslator::Reindex(DialogInfo& dialog) {
    // Only a port that a connection can carry is filed: the last media port of a connection is
    // always one (or kNoMediaPort, which matches nothing).
    const int32_t last = dialog.lastMediaPort;
    const uint16_t port = last >= 1 && last <= 65535 ? static_cast<uint16_t>(last) : 0;
    if (port == dialog.indexedPort_)
        return;
    byMediaPort_.Remove(dialog);
    if (port != 0)
        byMediaPort_.Insert(dialog, port);
}

void SIPTranslator::Finish(DialogInfo& dialog) {
    if (dialog.finished)
        return;
    dialog.finished = true;
    finished_.splice(finished_.end(), live_, dialog.entry_);
}

void SIPTranslator::Unlink(DialogInfo& dialog) {
    for (const DialogTable::iterator key : dialog.keys_)
        dialogs_.erase(key);
    dialog.keys_.clear();
    byMediaPort_.Remove(dialog);
}

void SIPTranslator::Delete(DialogInfo& dialog) {
    dialog.CloseMedia();
    (dialog.finished ? finished_ : live_).erase(dialog.entry_);
}

void SIPTranslator::SortByFirstKey(std::vector<DialogInfo*>& dialogs) {
    if (dialogs.size() < 2)
        return;
    std::vector<std::pair<std::string_view, DialogInfo*>> byKey;
    byKey.reserve(dialogs.size());
    for (DialogInfo* dialog : dialogs) {
        std::string_view first;
        for (std::size_t i = 0; i < dialog->keys_.size(); ++i) {
            const std::string_view key = dialog->keys_[i]->first;
            if (i == 0 || key < first)
                first = key;
        }
        byKey.emplace_back(first, dialog);
    }
    std::sort(byKey.begin(), byKey.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 0; i < dialogs.size(); ++i)
        dialogs[i] = byKey[i].second;
}

int SIPTranslator::Translate(SIPConnection& connection, bool /*direction*/, const unsigned char* in,
                             unsigned inLength, unsigned char* out, unsigned* outLength,
                             int option) {
    void* const context = connection.context;
    VF_LOG(context, logsource::kSIP, 4) << "SIP  Translate PDU ";

    if (in == nullptr)
        inLength = 0;
    parser_.Start(reinterpret_cast<const char*>(in), inLength);
    const char* startLine = nullptr;
    unsigned startLength = 0;
    if (!parser_.GetLine(&startLine, &startLength)) {
        VF_LOG(context, logsource::kSIP, 5) << "SIP  Malformed header line";
        return -1;
    }
    if (out == nullptr || outLength == nullptr || *outLength < startLength + 3ull) {
        VF_LOG(context, logsource::kSIP, 1) << "SIP  Insufficient buffer space for SIP header";
        return -1;
    }
    // The start line opens every rewritten message.
    char* const text = reinterpret_cast<char*>(out);
    std::memcpy(text, startLine, startLength);
    text[startLength] = '\0';
    scratch_.startLength = startLength;

    // Header block (RFC 3261 section 7.3): up to the empty line or the end of the datagram. A
    // line without a colon is dropped; folded lines get no special treatment.
    SIPMIMEType& headers = headers_;
    headers.Clear();
    const char* line = nullptr;
    unsigned lineLength = 0;
    while (parser_.GetLine(&line, &lineLength) && lineLength != 0) {
        const void* colon = std::memchr(line, ':', lineLength);
        if (colon == nullptr)
            continue;
        const std::size_t nameLength = static_cast<const char*>(colon) - line;
        headers.Add(line, nameLength, line + nameLength + 1, lineLength - nameLength - 1);
    }

    // Body length from Content-Length (section 20.14). More bytes than announced: the value is
    // not trusted and the body is taken as empty. Fewer: the value stands, but nothing beyond the
    // datagram is ever read, so the body handed on is clamped to the bytes present.
    const char* const body = parser_.Position();
    const unsigned present = parser_.Remaining();
    unsigned bodyLength = 0;
    const auto contentLength = headers.GetField("Content-Length", 'l');
    if (contentLength != headers.end()) {
        const int announced = DecimalValue(contentLength->value);
        bodyLength = static_cast<unsigned>(announced);
        if (present > bodyLength) {
            VF_LOG(context, logsource::kSIP, 2)
                << "SIP  Ignoring SIP Content-Length as mismatch between Content-Length "
                << announced << "and packet length" << present;
            bodyLength = 0;
        }
    }
    if (bodyLength > present)
        bodyLength = present;

    std::vector<std::string>& tokens = tokens_;
    tokens.clear();
    if (Tokenise<IsWhiteSpace>(tokens, std::string(startLine, startLength)) < 2) {
        VF_LOG(context, logsource::kSIP, 2)
            << "SIP  Ignoring message with < 2 tokens in header line";
        return 0;
    }

    const auto from = headers.GetField("From", 'f');
    const auto to = headers.GetField("To", 't');
    const auto callId = headers.GetField("Call-ID", 'i');
    const auto via = headers.GetField("Via", 'v');
    if (from == headers.end() || to == headers.end() || callId == headers.end() ||
        via == headers.end()) {
        VF_LOG(context, logsource::kSIP, 2)
            << "SIP  Ignoring message with insufficient fields to construct dialog ID";
        return 0;
    }
    const std::string fromTag = ExtractTag(from->value);
    const std::string toTag = ExtractTag(to->value);
    // The branch of the topmost Via identifies the transaction (section 17.2.3). Only the first
    // Via line is looked at; a comma starts a second Via value within it.
    std::string branch = ExtractBranch(via->value);
    CutAt(branch, ';');
    CutAt(branch, ',');
    const std::string& callIdValue = callId->value;
    const std::string key = callIdValue + branch;
    VF_LOG(context, logsource::kSIP, 2) << "SIP dialogFind by branch is " << key;

    DialogInfo* dialog = nullptr;
    const auto byKey = dialogs_.find(key);
    int result;
    if (strcasecmp(tokens[0].c_str(), "invite") == 0) {
        bool fromSrc;
        if (byKey != dialogs_.end()) {
            VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing INVITE retry";
            dialog = byKey->second;
            fromSrc = toTag.empty() || dialog->fromTag == fromTag;
        } else if (toTag.empty()) {
            VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing new INVITE";
            dialog = CreateDialog(context, fromTag);
            AddKey(key, *dialog);
            AddKey(callIdValue, *dialog);
            if (auto notify =
                    VoIPTranslator::Current().Callback<voipxlate_call_information_function>(
                        VOIPXLATE_CALL_INFORMATION))
                notify(&dialog->callInformation);
            fromSrc = true;
        } else {
            VF_LOG(context, logsource::kSIP, 2) << "SIP  Processing RE INVITE";
            VF_LOG(context, logsource::kSIP, 2) << "SIP dialogFind by Call-ID is " << callIdValue;
            const auto byCallId = dialogs_.find(callIdValue);
            if (byCallId != dialogs_.end()) {
                VF_LOG(context, logsource::kSIP, 2) << "Found existing dialog";
                dialog = byCallId->second;
                AddKey(key, *dialog);
            } else {
                dialog = CreateDialog(context, fromTag);
                AddKey(key, *dialog);
                AddKey(callIdValue, *dialog);
            }
            fromSrc = dialog->fromTag == fromTag;
        }
        dialog->hostContext = context;
        result = TranslateSdp(*dialog, [&] {
            return dialog->TranslateINVITE(connection, fromSrc, headers, body, bodyLength, text,
                                           outLength, option);
        });
    } else {
        if (byKey != dialogs_.end()) {
            dialog = byKey->second;
        } else {
            VF_LOG(context, logsource::kSIP, 2)
                << "SIP  Not found with callId+branch, searching by CallId";
            const auto byCallId = dialogs_.find(callIdValue);
            if (byCallId == dialogs_.end()) {
                VF_LOG(context, logsource::kSIP, 2)
                    << "SIP  Passing though message for unknown dialog";
                return 0;
            }
            VF_LOG(context, logsource::kSIP, 2) << "SIP  Found with CallID";
            dialog = byCallId->second;
        }
        const bool fromSrc = dialog->fromTag == fromTag;
        const std::string& method = tokens[0];
        if (EqualsNoCase(method, "ack"))
            result = dialog->TranslateACK(connection, fromSrc, tokens, headers, body, bodyLength,
                                          text, outLength);
        else if (EqualsNoCase(method, "bye"))
            result = dialog->TranslateBYE(connection, fromSrc, tokens, headers, body, bodyLength,
                                          text, outLength);
        else if (!EqualsNoCase(method, "SIP/2.0"))
            result = dialog->TranslateRequest(connection, fromSrc, tokens, headers, body,
                                              bodyLength, text, outLength);
        else
            result = TranslateResponse(connection, *dialog, fromSrc, fromTag, body, bodyLength,
                                       text, outLength, option);
    }

    if (result == 1) {
        // *outLength is what RewritePDU wrote: the body may hold NUL bytes. The log line shows
        // the message as text, up to the first of them.
        VF_LOG(context, logsource::kSIP, 4) << "SIP  Translated PDU:\n" << text;
        return 1;
    }
    if (result == 0) {
        VF_LOG(context, logsource::kSIP, 4) << "SIP  PDU not translated";
    }
    return result;
}

// A response: CSeq (section 20.16) says which request it answers.
int SIPTranslator::TranslateResponse(SIPConnection& connection, DialogInfo& dialog, bool fromSrc,
                                     const std::string& fromTag, const char* body,
                                     unsigned bodyLength, char* out, unsigned* outLength,
                                     int option) {
    void* const context = connection.context;
    SIPMIMEType& headers = headers_;
    std::vector<std::string> cseq;
    const auto cseqField = headers.GetField("CSeq", 0);
    if (cseqField == headers.end() || Tokenise<IsWhiteSpace>(cseq, cseqField->value) != 2) {
        VF_LOG(context, logsource::kSIP, 2) << "SIP  Ignoring message with unparseable CSeq";
        return 0;
    }
    const unsigned status = static_cast<unsigned>(DecimalValue(tokens_[1]));

    if (!EqualsNoCase(cseq[1], "invite")) {
        const int result = dialog.TranslateResponse(connection, !fromSrc, status, tokens_, headers,
                                                    body, bodyLength, out, outLength);
        if (EqualsNoCase(cseq[1], "bye")) {
            // The dialog ends with the answer to its BYE (section 15.1.2).
            Finish(dialog);
            Destroy(&dialog);
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
    const int result = TranslateSdp(dialog, [&] {
        return dialog.TranslateINVITEResponse(connection, !fromSrc, status, headers, body,
                                              bodyLength, out, outLength, option);
    });
    if (dialog.callInformation.state == VOIPXLATE_SIP_FAILED)
        Destroy(&dialog);
    return result;
}

int SIPTranslator::Destroy(DialogInfo* dialog) {
    if (dialog == nullptr)
        return -1;
    Unlink(*dialog);
    Delete(*dialog);
    return 0;
}

int SIPTranslator::Destroy(SIPConnection& connection) {
    // The connection knows its dialog only by the port of the last media line it carried; a
    // connection that carried none holds kNoMediaPort, which no dialog is filed under.
    std::vector<DialogInfo*> matched;
    for (DialogInfo* dialog = byMediaPort_.First(connection.lastMediaPort); dialog != nullptr;
         dialog = dialog->nextOnPort_)
        matched.push_back(dialog);
    // Dialogs whose media used the same port are not told apart: all of them go, rather than
    // staying unreachable with their channels open. All leave the table first; then their media
    // is closed in the order of their keys.
    SortByFirstKey(matched);
    for (DialogInfo* dialog : matched)
        Unlink(*dialog);
    for (DialogInfo* dialog : matched)
        Delete(*dialog);
    return 0;
}

int SIPTranslator::AgeDialogs() {
    // There are no timers: a dialog is old once its BYE was answered.
    std::vector<DialogInfo*> finished;
    finished.reserve(finished_.size());
    for (DialogInfo& dialog : finished_)
        finished.push_back(&dialog);
    SortByFirstKey(finished);
    for (DialogInfo* dialog : finished)
        Destroy(dialog);
    return static_cast<int>(finished.size());
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
