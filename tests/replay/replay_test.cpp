#include <gtest/gtest.h>

#include <fstream>

#include "capture.h"
#include "frames.h"
#include "message_kind.h"
#include "replay.h"
#include "tcp_stream.h"

using namespace replay;
using namespace replaytest;

namespace {

const std::string kSamples = VOIPFILTER_REPLAY_SAMPLES_DIR;
const std::string kData = VOIPFILTER_REPLAY_TEST_DATA;
const std::string kSipSample = kSamples + "/wireshark-sip-rtp-dvi4-sip.pcap";
const std::string kH323Sample = kSamples + "/wireshark-rtp_example-signalling.pcap";

ReplayOptions withNat(const std::vector<std::string>& rules) {
    ReplayOptions options;
    for (const std::string& text : rules) {
        std::string error;
        options.host.nat.add(*parseNatRule(text, error));
    }
    return options;
}

CaptureReport replay(const std::string& path, const ReplayOptions& options,
                     ReplayStatus expected = ReplayStatus::Ok) {
    ReplayStatus status = ReplayStatus::Ok;
    CaptureReport report = replayCapture(path, options, status);
    EXPECT_EQ(status, expected) << path;
    return report;
}

struct Expected {
    uint64_t frame;
    bool fromOriginator;
    const char* kind;
    Outcome outcome;
};

void expectMessages(const CallRecord& call, const std::vector<Expected>& expected) {
    ASSERT_EQ(call.messages.size(), expected.size()) << call.id;
    for (size_t i = 0; i < expected.size(); ++i) {
        const MessageRecord& m = call.messages[i];
        EXPECT_EQ(m.frame, expected[i].frame) << call.id << " #" << i;
        EXPECT_EQ(m.fromOriginator, expected[i].fromOriginator) << call.id << " #" << i;
        EXPECT_EQ(m.kind, expected[i].kind) << call.id << " #" << i;
        EXPECT_EQ(m.outcome, expected[i].outcome) << call.id << " #" << i << " " << m.kind << ": "
                                                  << outcomeName(m.outcome) << " " << m.note;
    }
}

TEST(ReplaySip, BundledCallsBehindTheNat) {
    CaptureReport report = replay(kSipSample, withNat({"10.0.2.20/32=203.0.113.2"}));
    ASSERT_EQ(report.calls.size(), 2u);
    EXPECT_EQ(report.counters.frames, 12u);
    EXPECT_EQ(report.counters.signallingMessages, 12u);
    const uint64_t firstFrame[] = {1, 7};
    const char* answerAddress[] = {"10.0.2.15:30490", "10.0.2.15:25146"};
    for (size_t c = 0; c < 2; ++c) {
        const CallRecord& call = report.calls[c];
        const uint64_t f = firstFrame[c];
        EXPECT_EQ(call.protocol, "SIP");
        EXPECT_EQ(call.id, c == 0 ? "1-2187@10.0.2.20" : "1-2189@10.0.2.20");
        EXPECT_EQ(call.originator, "10.0.2.20:5060");
        expectMessages(call, {{f, true, "SIP INVITE", Outcome::Rewritten},
                              {f + 1, false, "SIP 100 (INVITE)", Outcome::Forwarded},
                              {f + 2, false, "SIP 200 (INVITE)", Outcome::Rewritten},
                              {f + 3, true, "SIP ACK", Outcome::Forwarded},
                              {f + 4, false, "SIP BYE", Outcome::Forwarded},
                              {f + 5, true, "SIP 200 (BYE)", Outcome::Forwarded}});
        EXPECT_EQ(call.messages[0].note, "new dialog");
        ASSERT_EQ(call.media.size(), 2u);
        const MediaRecord& offer = call.media[0];
        EXPECT_TRUE(offer.forward);
        EXPECT_EQ(offer.kind, "audio");
        EXPECT_EQ(offer.announcedRtp, "10.0.2.20:6000");
        EXPECT_EQ(offer.translatedRtp, "203.0.113.2:20000");
        EXPECT_EQ(offer.translatedRtcp, "203.0.113.2:20001");
        const MediaRecord& answer = call.media[1];
        EXPECT_FALSE(answer.forward);
        EXPECT_EQ(answer.announcedRtp, answerAddress[c]);
        EXPECT_EQ(answer.translatedRtp, answerAddress[c]); // outside: no pinhole translation
        // The answer to the BYE ends the dialog, which closes both channels.
        EXPECT_TRUE(offer.closed);
        EXPECT_TRUE(answer.closed);
        // The offer says recvonly and the answer sendonly: both count as hold signals.
        EXPECT_EQ(call.holds, (std::vector<uint64_t>{f, f + 2}));
        EXPECT_TRUE(call.errors.empty());
    }
}

TEST(ReplaySip, VetoedCodecRefusesTheOffer) {
    ReplayOptions options = withNat({"10.0.2.20/32=203.0.113.2"});
    options.host.deniedCodecs = {"dvi4"};
    CaptureReport report = replay(kSipSample, options);
    ASSERT_EQ(report.calls.size(), 2u);
    const CallRecord& call = report.calls[0];
    ASSERT_FALSE(call.messages.empty());
    EXPECT_EQ(call.messages[0].outcome, Outcome::Refused);
    ASSERT_FALSE(call.filteredCodecs.empty());
    EXPECT_EQ(call.filteredCodecs[0], "DVI4 (audio) at frame 1");
}

// Reads a rewritten capture back and checks every frame as a receiver would.
TEST(ReplaySip, RewrittenCaptureHasConsistentFrames) {
    TempFile out("sip.pcap");
    ReplayOptions options = withNat({"10.0.2.20/32=203.0.113.2"});
    options.output = out.path();
    CaptureReport report = replay(kSipSample, options);
    EXPECT_EQ(report.output, out.path());
    Capture capture;
    std::string error;
    ASSERT_TRUE(readCapture(out.path(), capture, error)) << error;
    ASSERT_EQ(capture.frames.size(), 12u);
    size_t bodies = 0;
    for (size_t i = 0; i < capture.frames.size(); ++i) {
        const Bytes& frame = capture.frames[i].data;
        DecodedPacket p = decodePacket(capture.linkType, frame.data(), frame.size());
        ASSERT_TRUE(p.ok()) << "frame " << i + 1;
        Bytes copy = frame;
        fixChecksums(copy, p);
        EXPECT_EQ(copy, frame) << "frame " << i + 1 << " has a wrong checksum";
        const std::string message(
            frame.begin() + static_cast<std::ptrdiff_t>(p.payloadOffset),
            frame.begin() + static_cast<std::ptrdiff_t>(p.payloadOffset + p.payloadLength));
        const auto* data = reinterpret_cast<const uint8_t*>(message.data());
        std::string length = sipHeader(data, message.size(), "Content-Length", "l");
        size_t blank = message.find("\r\n\r\n");
        ASSERT_NE(blank, std::string::npos) << "frame " << i + 1;
        const std::string body = message.substr(blank + 4);
        EXPECT_EQ(std::to_string(body.size()), length) << "frame " << i + 1;
        if (!body.empty()) {
            ++bodies;
        }
        if (p.srcIp == *parseIpv4("10.0.2.20")) {
            EXPECT_EQ(body.find("10.0.2.20"), std::string::npos) << "frame " << i + 1 << body;
        }
    }
    EXPECT_EQ(bodies, 4u);
}

TEST(ReplayH323, BundledCallSignalling) {
    CaptureReport report = replay(kH323Sample, withNat({"10.1.3.0/24=203.0.113.1"}));
    ASSERT_FALSE(report.calls.empty());
    const CallRecord& call = report.calls[0];
    EXPECT_EQ(call.protocol, "H.323");
    EXPECT_EQ(call.originator, "10.1.3.143:32803");
    EXPECT_EQ(call.destination, "10.1.6.18:1720");
    EXPECT_EQ(report.counters.frames, 33u);
    ASSERT_EQ(call.relays.size(), 1u);
    EXPECT_EQ(call.relays[0], "H.245 10.1.6.18:1232 announced as 10.1.6.18:1232 (frame 10)");
    // The SETUP carries the caller's address, which the NAT hides; the callee is outside. Then
    // the H.245 connection the CONNECT announced: two PDUs share frame 22.
    expectMessages(call, {{4, true, "H.225 SETUP", Outcome::Rewritten},
                          {6, false, "H.225 CALL PROCEEDING", Outcome::Forwarded},
                          {8, false, "H.225 ALERTING", Outcome::Forwarded},
                          {10, false, "H.225 CONNECT", Outcome::Forwarded},
                          {15, false, "H.245 TCS", Outcome::Forwarded},
                          {17, false, "H.245 MSD", Outcome::Forwarded},
                          {19, true, "H.245 TCS", Outcome::Forwarded},
                          {20, true, "H.245 MSD", Outcome::Forwarded},
                          {22, true, "H.245 TCSAck", Outcome::Forwarded},
                          {22, true, "H.245 MSDAck", Outcome::Forwarded},
                          {24, false, "H.245 TCSAck", Outcome::Forwarded},
                          {26, false, "H.245 MSDAck", Outcome::Forwarded},
                          {28, true, "H.245 OLC", Outcome::Rewritten},
                          {29, false, "H.245 OLC", Outcome::Rewritten},
                          {31, true, "H.245 OLCAck", Outcome::Rewritten},
                          {32, false, "H.245 OLCAck", Outcome::Rewritten}});
    ASSERT_EQ(call.media.size(), 2u);
    EXPECT_EQ(call.media[0].codec, "PCMA");
    EXPECT_TRUE(call.media[0].forward);
    EXPECT_EQ(call.media[0].announcedRtp, "10.1.3.143:5000");
    EXPECT_EQ(call.media[0].translatedRtp, "203.0.113.1:20000");
    EXPECT_EQ(call.media[0].translatedRtcp, "203.0.113.1:20001");
    EXPECT_FALSE(call.media[1].forward);
    EXPECT_EQ(call.media[1].translatedRtp, "10.1.6.18:2006");
}

// Q.931 message of the given type (no user-user element: the library cannot decode it).
Bytes q931Tpkt(char type, size_t padding = 0) {
    return tpkt(std::string{8, 2, 0x00, 0x01, type} + std::string(padding, 0x04));
}

Bytes slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from),
                 b.begin() + static_cast<std::ptrdiff_t>(to));
}

TEST(ReplayTcp, MessagesInSplitCombinedRetransmittedAndReorderedSegments) {
    const uint32_t caller = *parseIpv4("10.1.3.5");
    const uint32_t callee = *parseIpv4("192.0.2.9");
    const uint32_t isn = 0xFFFFFF00u; // the stream wraps the sequence space
    const Bytes setup = q931Tpkt(0x05, 20);
    const Bytes proceeding = q931Tpkt(0x02);
    const Bytes alerting = q931Tpkt(0x01);
    const Bytes connect = q931Tpkt(0x07, 6);
    const Bytes release = q931Tpkt(0x5A);
    const Bytes stream = Cat({setup, proceeding, alerting, connect});
    const size_t s1 = 10;                                                 // SETUP split here
    const size_t s2 = setup.size() + proceeding.size() + alerting.size(); // end of ALERTING
    const size_t s3 = s2 + 5;                                             // CONNECT split here
    auto seg = [&](size_t from, size_t to, uint8_t flags = tcpflag::kAck) {
        return tcpFrame(caller, 40000, callee, 1720, isn + 1 + static_cast<uint32_t>(from), 1,
                        flags, slice(stream, from, to));
    };
    const std::vector<Bytes> frames = {
        tcpFrame(caller, 40000, callee, 1720, isn, 0, tcpflag::kSyn, {}), // 1
        tcpFrame(callee, 1720, caller, 40000, 0, isn + 1, tcpflag::kSyn | tcpflag::kAck, {}),
        seg(0, s1),             // 3 SETUP, part
        seg(0, s1),             // 4 retransmitted
        seg(s1, s2),            // 5 rest of SETUP + PROCEEDING + ALERTING
        seg(s3, stream.size()), // 6 end of CONNECT, out of order
        seg(s2, s3),            // 7 fills the hole
        tcpFrame(caller, 40000, callee, 1720, isn + 1 + static_cast<uint32_t>(stream.size() + 3), 1,
                 tcpflag::kAck,
                 release), // 8 beyond a hole that stays open
        tcpFrame(callee, 1720, caller, 40000, 1, isn + 1 + static_cast<uint32_t>(stream.size()),
                 tcpflag::kAck, {}), // 9 acknowledges everything up to the hole
    };
    TempFile file("tcp.pcap");
    writeCapture(file.path(), kLinkEthernet, frames);
    TempFile out("tcp-out.pcap");
    ReplayOptions options;
    options.output = out.path();
    CaptureReport report = replay(file.path(), options);
    ASSERT_EQ(report.calls.size(), 1u);
    const Outcome expected = Outcome::Refused;
    expectMessages(report.calls[0], {{5, true, "H.225 SETUP", expected},
                                     {5, true, "H.225 CALL PROCEEDING", expected},
                                     {5, true, "H.225 ALERTING", expected},
                                     {7, true, "H.225 CONNECT", expected}});
    EXPECT_EQ(report.counters.tcpRetransmitted, 1u);
    EXPECT_EQ(report.counters.tcpOutOfOrder, 2u);
    EXPECT_EQ(report.counters.tcpMissingBytes, release.size());
    ASSERT_EQ(report.calls[0].errors.size(), 1u);
    EXPECT_NE(report.calls[0].errors[0].find("after a missing segment"), std::string::npos);

    // The output stream, reassembled as the callee would, holds exactly the messages that were
    // passed on, and the callee's acknowledgement follows the shortened stream.
    Capture written;
    std::string error;
    ASSERT_TRUE(readCapture(out.path(), written, error)) << error;
    ASSERT_EQ(written.frames.size(), frames.size());
    TcpReassembler received;
    received.start(isn + 1);
    TpktFramer framer;
    size_t messages = 0;
    for (const CapturedFrame& frame : written.frames) {
        DecodedPacket p = decodePacket(written.linkType, frame.data.data(), frame.data.size());
        ASSERT_TRUE(p.ok());
        if (p.srcIp != caller) {
            continue;
        }
        Bytes delivered;
        uint32_t at = received.deliveredOffset();
        received.add(p.seq, frame.data.data() + p.payloadOffset, p.payloadLength, delivered);
        messages += framer.push(at, delivered.data(), delivered.size()).size();
    }
    EXPECT_EQ(messages, 0u);
    EXPECT_EQ(received.deliveredOffset(), 0u);
    EXPECT_EQ(framer.pending(), 0u);
    EXPECT_EQ(received.heldBytes(), release.size()); // still behind its hole of 3 bytes
    DecodedPacket ack = decodePacket(written.linkType, written.frames.back().data.data(),
                                     written.frames.back().data.size());
    EXPECT_EQ(ack.ack, isn + 1); // nothing of the refused call reached the callee
}

TEST(ReplayTcp, CallSignallingRecognisedByContentOnAnotherPort) {
    const uint32_t a = *parseIpv4("10.0.0.1");
    const uint32_t b = *parseIpv4("10.0.0.2");
    const std::vector<Bytes> frames = {
        tcpFrame(a, 3000, b, 11720, 100, 0, tcpflag::kAck, q931Tpkt(0x05)),
        tcpFrame(a, 3001, b, 11721, 100, 0, tcpflag::kAck, BytesOf("GET / HTTP/1.0\r\n\r\n")),
    };
    TempFile file("content.pcap");
    writeCapture(file.path(), kLinkEthernet, frames);
    CaptureReport report = replay(file.path(), ReplayOptions{});
    ASSERT_EQ(report.calls.size(), 1u);
    ASSERT_EQ(report.calls[0].messages.size(), 1u);
    EXPECT_EQ(report.calls[0].messages[0].kind, "H.225 SETUP");
    EXPECT_EQ(report.calls[0].originator, "10.0.0.1:3000");
}

TEST(ReplayBadInput, UnusableFramesAreCountedAndSkipped) {
    const uint32_t a = *parseIpv4("10.0.0.1");
    const uint32_t b = *parseIpv4("10.0.0.2");
    const Bytes invite = BytesOf("INVITE sip:x@y SIP/2.0\r\nCall-ID: c1\r\n\r\n");
    Bytes fragment = udpFrame(a, 5060, b, 5060, invite);
    fragment[14 + 6] = 0x20; // more fragments
    Bytes v6 = ethernet(Bytes(40, 0), 0x86DD);
    v6[14] = 0x60;
    const Bytes full = udpFrame(a, 5060, b, 5060, invite);
    const std::vector<Bytes> frames = {
        fragment,
        v6,
        ethernet(Bytes(28, 0), 0x0806),                 // ARP
        slice(full, 0, 30),                             // cut by the capture's snap length
        slice(full, 0, 20),                             // cut in the IP header, wire length equal
        udpFrame(a, 4000, b, 4001, BytesOf("not sip")), // unrelated UDP
        full,
    };
    const std::vector<uint32_t> wire = {0, 0, 0, static_cast<uint32_t>(full.size())};
    std::vector<uint32_t> wireLengths;
    for (size_t i = 0; i < frames.size(); ++i) {
        wireLengths.push_back(
            i < wire.size() && wire[i] != 0 ? wire[i] : static_cast<uint32_t>(frames[i].size()));
    }
    TempFile file("bad.pcap");
    writeCapture(file.path(), kLinkEthernet, frames, wireLengths);
    CaptureReport report = replay(file.path(), ReplayOptions{});
    EXPECT_EQ(report.counters.frames, 7u);
    EXPECT_EQ(report.counters.fragments, 1u);
    EXPECT_EQ(report.counters.ipv6, 1u);
    EXPECT_EQ(report.counters.notIp, 1u);
    EXPECT_EQ(report.counters.truncated, 2u);
    EXPECT_EQ(report.counters.signallingMessages, 1u);
    ASSERT_EQ(report.calls.size(), 1u);
    EXPECT_EQ(report.calls[0].messages[0].frame, 7u);
}

TEST(ReplayBadInput, CorpusCaptures) {
    struct Case {
        const char* file;
        size_t frames;
        size_t messages;
    };
    const Case cases[] = {
        {"ndpi-h323-overflow.pcap", 1, 0},          // bare TPKT header on port 80
        {"ndpi-http_on_sip_port.pcap", 4, 0},       // pcapng; TCP on 5060 is not SIP over UDP
        {"zeek-invalid-content-length.pcap", 2, 2}, // Content-Length: bad / xyz
        {"zeek-sip-junk-before-request.pcap", 2, 2},
        {"pcapplusplus-sip_reqs.pcap", 4, 4}, // malformed ACK and BYE
    };
    for (const Case& c : cases) {
        CaptureReport report = replay(kData + "/" + c.file, ReplayOptions{});
        EXPECT_EQ(report.counters.frames, c.frames) << c.file;
        EXPECT_EQ(report.counters.signallingMessages, c.messages) << c.file;
    }
}

TEST(ReplayBadInput, CutOffAndUnreadableFiles) {
    const std::string whole = ReadText(kSipSample);
    ASSERT_GT(whole.size(), 2000u);
    TempFile cut("cut.pcap");
    std::ofstream(cut.path(), std::ios::binary) << whole.substr(0, 1500);
    CaptureReport report = replay(cut.path(), ReplayOptions{}, ReplayStatus::Damaged);
    EXPECT_EQ(report.counters.frames, 2u); // 24 + (16 + 500) + (16 + 328) bytes, then a cut
    ASSERT_FALSE(report.errors.empty());
    EXPECT_NE(report.errors.back().find("damaged after frame 2"), std::string::npos);

    TempFile header("header.pcap");
    std::ofstream(header.path(), std::ios::binary) << whole.substr(0, 10);
    replay(header.path(), ReplayOptions{}, ReplayStatus::CannotOpen);
    replay("/nonexistent/capture.pcap", ReplayOptions{}, ReplayStatus::CannotOpen);

    TempFile wifi("wifi.pcap");
    writeCapture(wifi.path(), 105, {Bytes(40, 0)});
    CaptureReport unsupported = replay(wifi.path(), ReplayOptions{}, ReplayStatus::UnsupportedLink);
    EXPECT_EQ(unsupported.counters.frames, 1u);
}

} // namespace
