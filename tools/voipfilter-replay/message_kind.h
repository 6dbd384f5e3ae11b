// Recognising signalling in payloads and naming messages for the report. This is only a peek at
// the first bytes; all translation is the library's.
#ifndef VOIPFILTER_REPLAY_MESSAGE_KIND_H
#define VOIPFILTER_REPLAY_MESSAGE_KIND_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace replay {

// A start line ending in " SIP/2.0" or starting with "SIP/2.0 ".
bool looksLikeSip(const uint8_t* data, size_t length);

// "SIP INVITE" for a request, "SIP 200 (INVITE)" for a response (the CSeq method in brackets).
std::string sipKind(const uint8_t* data, size_t length);

// The value of a header (full or compact name, case-insensitive), trimmed; empty if absent.
std::string sipHeader(const uint8_t* data, size_t length, const char* name, const char* compact);

// TPKT version 3, reserved 0, followed by the Q.931 protocol discriminator 8.
bool looksLikeQ931Tpkt(const uint8_t* data, size_t length);

// Name of a Q.931 message (without TPKT header): "SETUP", "CONNECT", ...
std::string q931MessageName(const uint8_t* q931, size_t length);

// Name of the H.323 message body alternative with this tag (0 SETUP ... 12 NOTIFY), or "".
std::string h225BodyName(int tag);

// Short name of an aligned-PER H.245 MultimediaSystemControlMessage: "TCS", "OLC", "OLCAck", ...
std::string h245MessageName(const uint8_t* per, size_t length);

// Short name of an aligned-PER RasMessage: "GRQ", "RRQ", ...
std::string rasMessageName(const uint8_t* per, size_t length);

} // namespace replay

#endif
