// Every capture of tests/data/replay/captures.tsv replayed: its report (as the tool prints it) and
// the frames of the rewritten capture (as hex, for frames the replay changed) are compared with
// the capture's golden file, tests/data/replay/<name>.txt. Every rewritten frame must also carry
// checksums a receiver accepts. Captures named "built-..." are made here, frame by frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>

#include "frames.h"
#include "golden.h"
#include "replay.h"

using namespace replay;
using namespace replaytest;

namespace {

// Q.931 message of the given type (no user-user element: the library cannot decode it).
Bytes q931Tpkt(char type, size_t padding = 0) {
    return tpkt(std::string{8, 2, 0x00, 0x01, type} + std::string(padding, 0x04));
}

Bytes slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from),
                 b.begin() + static_cast<std::ptrdiff_t>(to));
}

// H.225 messages in split, retransmitted and reordered segments, in a stream that wraps the
// sequence space, then a message behind a hole that stays open.
void TcpReassembly(const std::string& path) {
    const uint32_t caller = *parseIpv4("10.1.3.5"), callee = *parseIpv4("192.0.2.9");
    const uint32_t isn = 0xFFFFFF00u;
    const Bytes setup = q931Tpkt(0x05, 20), release = q931Tpkt(0x5A);
    const Bytes stream = Cat({setup, q931Tpkt(0x02), q931Tpkt(0x01), q931Tpkt(0x07, 6)});
    const size_t s1 = 10, s2 = setup.size() + 14, s3 = s2 + 5; // end of ALERTING: s2
    auto seg = [&](size_t from, size_t to) {
        return tcpFrame(caller, 40000, callee, 1720, isn + 1 + static_cast<uint32_t>(from), 1,
                        tcpflag::kAck, slice(stream, from, to));
    };
    const uint32_t end = isn + 1 + static_cast<uint32_t>(stream.size());
    writeCapture(
        path, kLinkEthernet,
        {tcpFrame(caller, 40000, callee, 1720, isn, 0, tcpflag::kSyn, {}),
         tcpFrame(callee, 1720, caller, 40000, 0, isn + 1, tcpflag::kSyn | tcpflag::kAck, {}),
         seg(0, s1), seg(0, s1), seg(s1, s2), seg(s3, stream.size()), seg(s2, s3),
         tcpFrame(caller, 40000, callee, 1720, end + 3, 1, tcpflag::kAck, release),
         tcpFrame(callee, 1720, caller, 40000, 1, end, tcpflag::kAck, {})});
}

// Frames the tool counts and skips, then one SIP message.
void BadFrames(const std::string& path) {
    const uint32_t a = *parseIpv4("10.0.0.1"), b = *parseIpv4("10.0.0.2");
    const Bytes full =
        udpFrame(a, 5060, b, 5060, BytesOf("INVITE sip:x@y SIP/2.0\r\nCall-ID: c1\r\n\r\n"));
    Bytes firstFragment = full;
    firstFragment[14 + 6] = 0x20; // more fragments, offset 0
    Bytes v6 = ethernet(Bytes(40, 0), 0x86DD);
    v6[14] = 0x60;
    const std::vector<Bytes> frames = {firstFragment,
                                       v6,
                                       ethernet(Bytes(28, 0), 0x0806), // ARP
                                       slice(full, 0, 30),
                                       slice(full, 0, 20), // cut in the IP header
                                       udpFrame(a, 4000, b, 4001, BytesOf("not sip")),
                                       full};
    std::vector<uint32_t> wire;
    for (const Bytes& frame : frames)
        wire.push_back(static_cast<uint32_t>(frame.size()));
    wire[3] = static_cast<uint32_t>(full.size()); // cut by the capture's snap length
    writeCapture(path, kLinkEthernet, frames, wire);
}

// Call signalling recognised by its content on a port other than 1720; HTTP is not.
void ContentOnAnotherPort(const std::string& path) {
    const uint32_t a = *parseIpv4("10.0.0.1"), b = *parseIpv4("10.0.0.2");
    writeCapture(
        path, kLinkEthernet,
        {tcpFrame(a, 3000, b, 11720, 100, 0, tcpflag::kAck, q931Tpkt(0x05)),
         tcpFrame(a, 3001, b, 11721, 100, 0, tcpflag::kAck, BytesOf("GET / HTTP/1.0\r\n\r\n"))});
}

// The first 1500 octets of the SIP sample: two frames, then a cut.
void CutOff(const std::string& path) {
    std::ofstream(path, std::ios::binary)
        << ReadText(std::string(VOIPFILTER_REPLAY_SAMPLES_DIR) + "/wireshark-sip-rtp-dvi4-sip.pcap")
               .substr(0, 1500);
}

std::string CapturePath(const std::string& name, const TempFile& built) {
    static const std::map<std::string, std::function<void(const std::string&)>> builders = {
        {"built-tcp-reassembly", TcpReassembly},
        {"built-bad-frames", BadFrames},
        {"built-content-on-another-port", ContentOnAnotherPort},
        {"built-cut-off", CutOff},
        {"built-wifi", [](const std::string& path) { writeCapture(path, 105, {Bytes(40, 0)}); }},
    };
    const auto builder = builders.find(name);
    if (builder == builders.end())
        return name.compare(0, 6, "tests:") == 0
                   ? std::string(VOIPFILTER_REPLAY_TEST_DATA) + "/" + name.substr(6)
                   : std::string(VOIPFILTER_REPLAY_SAMPLES_DIR) + "/" + name;
    builder->second(built.path());
    return built.path();
}

// Octets as hex, 32 to a line.
void HexLines(std::ostream& out, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size(); at += 32)
        out << "  " << Hex(slice(bytes, at, std::min(bytes.size(), at + 32)), " ") << "\n";
}

// The frames of the rewritten capture; those that differ from the original in full: headers as
// hex, a text payload (SIP) as its lines, any other payload as hex.
std::string FrameListing(const std::string& original, const std::string& rewritten) {
    Capture before, after;
    std::string error;
    if (!readCapture(rewritten, after, error))
        return "none\n";
    readCapture(original, before, error);
    std::ostringstream out;
    for (size_t i = 0; i < after.frames.size(); ++i) {
        const Bytes& frame = after.frames[i].data;
        out << "frame " << i + 1 << ", " << frame.size() << " octets";
        if (i < before.frames.size() && before.frames[i].data == frame) {
            out << ", unchanged\n";
            continue;
        }
        out << ":\n";
        const DecodedPacket p = decodePacket(after.linkType, frame.data(), frame.size());
        const size_t headers = p.ok() ? p.payloadOffset : frame.size();
        HexLines(out, slice(frame, 0, headers));
        const Bytes payload = slice(frame, headers, frame.size());
        const bool text = std::all_of(payload.begin(), payload.end(), [](unsigned char c) {
            return (c >= 0x20 && c < 0x7F) || c == '\r' || c == '\n';
        });
        if (text && !payload.empty()) {
            for (std::string line : SplitLines(std::string(payload.begin(), payload.end()))) {
                if (!line.empty() && line.back() == '\r')
                    line.pop_back(); // the checksum in the headers still covers every octet
                out << "  |" << (line.empty() ? "" : " ") << line << "\n";
            }
        } else {
            HexLines(out, payload);
        }
        Bytes fixed = frame;
        if (p.ok())
            fixChecksums(fixed, p);
        EXPECT_EQ(Hex(fixed), Hex(frame)) << rewritten << " frame " << i + 1 << ": bad checksum";
    }
    return out.str();
}

TEST(ReplayGolden, EveryCaptureReportsAndRewritesAsItsGoldenFile) {
    const char* statusNames[] = {"ok", "cannot open", "unsupported link", "cannot write",
                                 "damaged"};
    for (const std::string& line : SplitLines(ReadText(DataFile("replay/captures.tsv")))) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string> cells = SplitLines(line, '\t');
        cells.resize(4);
        SCOPED_TRACE(line);
        TempFile built("built.pcap"), out("out.pcap");
        ReplayOptions options;
        std::istringstream rules(cells[2]);
        for (std::string rule, error; rules >> rule;)
            options.host.nat.add(*parseNatRule(rule, error));
        if (!cells[3].empty())
            options.host.deniedCodecs = {cells[3]};
        options.output = out.path();
        const std::string path = CapturePath(cells[1], built);
        ReplayStatus status = ReplayStatus::Ok;
        CaptureReport report = replayCapture(path, options, status);
        report.file = cells[1];
        report.output.clear();
        std::ostringstream text;
        text << "status: " << statusNames[static_cast<int>(status)] << "\n";
        writeText(text, {report}, false);
        text << "\nrewritten capture:\n" << FrameListing(path, out.path());
        std::string golden = text.str();
        for (std::size_t at; (at = golden.find(path)) != std::string::npos;)
            golden.replace(at, path.size(), cells[1]); // no folder of this machine in the file
        ExpectGolden("replay/" + cells[0] + ".txt", golden);
    }
}

} // namespace
