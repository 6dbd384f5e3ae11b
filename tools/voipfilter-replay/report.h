// What a replay found: per call, each signalling message with what the library made of it, the
// media channels the host opened, codecs filtered, holds, relays and errors; per capture, the
// frames that could not be used. Written as text for people or as JSON for programs.
#ifndef VOIPFILTER_REPLAY_REPORT_H
#define VOIPFILTER_REPLAY_REPORT_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace replay {

enum class Outcome {
    Rewritten, // the library returned new bytes, which were sent instead
    Forwarded, // sent as received
    Refused,   // the library said no (or could not read it); not sent
    Dropped,   // not sent: wrong call leg, or the call was already shut down
};

const char* outcomeName(Outcome outcome);

struct LogLine {
    int level = 0;
    std::string text;
};

struct MessageRecord {
    uint64_t frame = 0;
    bool fromOriginator = true;
    std::string from;
    std::string to;
    std::string kind; // e.g. "SIP INVITE", "H.225 SETUP", "H.245 OLC"
    Outcome outcome = Outcome::Forwarded;
    int result = 0; // the library's result code
    std::string note;
    std::vector<LogLine> log;
};

struct MediaRecord {
    uint64_t frame = 0;
    std::string kind;  // audio, video, data, message
    std::string codec; // empty when the library names none
    bool forward = true;
    int32_t session = 0;
    std::string announcedRtp;
    std::string announcedRtcp;
    std::string translatedRtp;
    std::string translatedRtcp;
    bool closed = false;
};

struct CallRecord {
    std::string protocol; // "SIP", "H.323", "RAS"
    std::string id;
    std::string originator;
    std::string destination;
    std::vector<MessageRecord> messages;
    std::vector<MediaRecord> media;
    std::vector<std::string> filteredCodecs;
    std::vector<uint64_t> holds; // frames that put the call on hold
    std::vector<std::string> relays;
    std::vector<std::string> errors;
};

struct Counters {
    uint64_t frames = 0;
    uint64_t signallingMessages = 0;
    uint64_t truncated = 0;
    uint64_t notIp = 0;
    uint64_t ipv6 = 0;
    uint64_t fragments = 0;
    uint64_t badHeaders = 0;
    uint64_t tcpRetransmitted = 0;
    uint64_t tcpOverlapping = 0;
    uint64_t tcpOutOfOrder = 0;
    uint64_t tcpMissingBytes = 0; // held beyond a hole that was never filled
    uint64_t tpktBroken = 0;      // streams whose TPKT framing broke off
    uint64_t rewriteTooLong = 0;  // rewritten frames that would exceed an IP datagram

    std::vector<std::pair<const char*, uint64_t>> list() const;
};

struct CaptureReport {
    std::string file;
    std::string linkType;
    std::string output; // the rewritten capture, if any
    std::vector<std::string> natRules;
    std::vector<CallRecord> calls;
    Counters counters;
    std::vector<std::string> errors;
};

std::string jsonEscape(const std::string& text);

void writeText(std::ostream& out, const std::vector<CaptureReport>& reports, bool showLog);
void writeJson(std::ostream& out, const std::vector<CaptureReport>& reports, bool showLog);

} // namespace replay

#endif
