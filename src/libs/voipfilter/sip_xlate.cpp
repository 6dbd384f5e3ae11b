#include "sip_xlate.h"

#include "entry_guard.h"
#include "sockaddr.h"
#include "voip_translator.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
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

SIPTranslator::DialogInfo::DialogInfo(std::string id, const std::string& tag, SdpScratch& scratch)
    : dialogId(std::move(id)), callInformation(), fromTag(tag), sdpLines(scratch.lines),
      sessionConnectionLine(scratch.sessionConnectionLine), sdpBody(scratch.body),
      tokens_(scratch.tokens) {}

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
    DialogInfo* dialog =
        new DialogInfo("z9hG4bK" + std::to_string(dialogCounter_++), fromTag, sdp_);
    VF_LOG(context, logsource::kSIP, 4) << "created dialog @" << static_cast<void*>(dialog);
    return dialog;
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
    // The start line opens every rewritten message; GetLine stops at NUL, so strlen(out) is its
    // length from here on.
    char* const text = reinterpret_cast<char*>(out);
    std::memcpy(text, startLine, startLength);
    text[startLength] = '\0';

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
    if (Tokenise<IsWhiteSpace>(tokens, text) < 2) {
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
            dialogs_.emplace(key, dialog);
            dialogs_.emplace(callIdValue, dialog);
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
                dialogs_.emplace(key, dialog);
            } else {
                dialog = CreateDialog(context, fromTag);
                dialogs_.emplace(key, dialog);
                dialogs_.emplace(callIdValue, dialog);
            }
            fromSrc = dialog->fromTag == fromTag;
        }
        dialog->hostContext = context;
        result = dialog->TranslateINVITE(connection, fromSrc, headers, body, bodyLength, text,
                                         outLength, option);
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
        *outLength = static_cast<unsigned>(std::strlen(text));
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
            dialog.finished = true;
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
    const int result = dialog.TranslateINVITEResponse(connection, !fromSrc, status, headers, body,
                                                      bodyLength, out, outLength, option);
    if (dialog.callInformation.state == VOIPXLATE_SIP_FAILED)
        Destroy(&dialog);
    return result;
}

int SIPTranslator::Destroy(DialogInfo* dialog) {
    if (dialog == nullptr)
        return -1;
    for (auto it = dialogs_.begin(); it != dialogs_.end();) {
        if (it->second == dialog)
            it = dialogs_.erase(it);
        else
            ++it;
    }
    dialog->CloseMedia();
    delete dialog;
    return 0;
}

int SIPTranslator::Destroy(SIPConnection& connection) {
    // The connection knows its dialog only by the port of the last media line it carried.
    if (connection.lastMediaPort == kNoMediaPort)
        return 0;
    std::vector<DialogInfo*> matched;
    for (auto it = dialogs_.begin(); it != dialogs_.end();) {
        DialogInfo* dialog = it->second;
        if (static_cast<uint32_t>(dialog->lastMediaPort) == connection.lastMediaPort) {
            if (std::find(matched.begin(), matched.end(), dialog) == matched.end())
                matched.push_back(dialog);
            it = dialogs_.erase(it);
        } else {
            ++it;
        }
    }
    // Dialogs whose media used the same port are not told apart: all of them go, rather than
    // staying unreachable with their channels open.
    for (DialogInfo* dialog : matched) {
        dialog->CloseMedia();
        delete dialog;
    }
    return 0;
}

int SIPTranslator::AgeDialogs() {
    // There are no timers: a dialog is old once its BYE was answered.
    int deleted = 0;
    for (auto it = dialogs_.begin(); it != dialogs_.end();) {
        if (it->second->finished) {
            Destroy(it->second);
            ++deleted;
            it = dialogs_.begin();
        } else {
            ++it;
        }
    }
    return deleted;
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
