// Every capture of tests/data/replay/captures.tsv replayed: its report (as the tool prints it, as
// text and as JSON) and the frames of the rewritten capture that the replay changed are compared
// with the capture's golden file, tests/data/replay/<name>.txt. Every rewritten frame must also
// carry checksums a receiver accepts. Captures named "built-..." are made here, frame by frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "capture.h"
#include "golden.h"
#include "packet.h"
#include "replay.h"
#include "test_util.h"

using namespace replay;

namespace {

Bytes slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from),
                 b.begin() + static_cast<std::ptrdiff_t>(to));
}

// A capture named in captures.tsv: the bundled samples, the third-party corpus of the replay
// tests, or one of tests/data/replay.
std::string CapturePath(const std::string& name) {
    for (const auto& [prefix, folder] :
         {std::make_pair("samples/", VOIPFILTER_REPLAY_SAMPLES_DIR),
          std::make_pair("tests/replay/data/", VOIPFILTER_REPLAY_TEST_DATA)})
        if (name.compare(0, std::strlen(prefix), prefix) == 0)
            return std::string(folder) + "/" + name.substr(std::strlen(prefix));
    return DataFile("replay/" + name);
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
    for (const std::vector<std::string>& cells : TableRows("replay/captures.tsv", 4)) {
        SCOPED_TRACE(cells[1]);
        TempFile out("out.pcap");
        ReplayOptions options;
        std::istringstream rules(cells[2]);
        for (std::string rule, error; rules >> rule;)
            options.host.nat.add(*parseNatRule(rule, error));
        if (!cells[3].empty())
            options.host.deniedCodecs = {cells[3]};
        options.output = out.path();
        const std::string path = CapturePath(cells[1]);
        ReplayStatus status = ReplayStatus::Ok;
        CaptureReport report = replayCapture(path, options, status);
        report.file = cells[1];
        report.output.clear();
        std::ostringstream text;
        text << "status: " << statusNames[static_cast<int>(status)] << "\n";
        writeText(text, {report}, false);
        text << "\nJSON:\n";
        writeJson(text, {report}, false);
        text << "\nrewritten capture:\n" << FrameListing(path, out.path());
        std::string golden = text.str();
        for (std::size_t at; (at = golden.find(path)) != std::string::npos;)
            golden.replace(at, path.size(), cells[1]); // no folder of this machine in the file
        ExpectGolden("replay/" + cells[0] + ".txt", golden);
    }
}

} // namespace
