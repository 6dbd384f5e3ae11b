// The command-line tool as a user runs it, and its output capture as tshark reads it.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "test_util.h"
#include "tshark_support.h"

namespace {

const std::string kTool = VOIPFILTER_REPLAY_TOOL;
const std::string kSamples = VOIPFILTER_REPLAY_SAMPLES_DIR;

TEST(Tool, WithoutArgumentsReplaysTheBundledSamples) {
    CommandResult r = RunCommand(kTool);
    ASSERT_EQ(r.exitCode, 0) << r.out;
    EXPECT_NE(r.out.find("NAT rules: 10.1.3.0/24=203.0.113.1 10.0.2.20/32=203.0.113.2"),
              std::string::npos);
    EXPECT_NE(r.out.find("frame 4     orig->dest H.225 SETUP"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("frame 1     orig->dest SIP INVITE"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("announced 10.0.2.20:6000 rtcp 10.0.2.20:6001 -> translated "
                         "203.0.113.2:20000 rtcp 203.0.113.2:20001"),
              std::string::npos)
        << r.out;
}

TEST(Tool, ExitCodes) {
    const std::pair<std::string, int> cases[] = {
        {"--help", 0},
        {"--version", 0},
        {"--bogus", 1},
        {"--nat 10.0.0.1/24=203.0.113.1", 1},
        {"--ports 9-8", 1},
        {"--log-level 6", 1},
        {"-w", 1},
        {"-w /tmp/x.pcap a.pcap b.pcap", 1},
        {"/nonexistent.pcap", 2},
        {"-w /nonexistent/dir/out.pcap " + kSamples + "/wireshark-rtp_example-signalling.pcap", 3},
    };
    for (const auto& [arguments, code] : cases) {
        EXPECT_EQ(RunCommand(kTool + " " + arguments).exitCode, code) << arguments;
    }
}

TEST(Tool, JsonReportParses) {
    CommandResult r = RunCommand(kTool + " --json --show-log");
    ASSERT_EQ(r.exitCode, 0);
    ASSERT_EQ(r.out.rfind("{\"captures\":[", 0), 0u);
    if (RunCommand("python3 -c 'pass'").exitCode != 0) {
        GTEST_SKIP() << "python3 is not installed to parse the JSON";
    }
    TempFile json("report.json");
    std::ofstream(json.path()) << r.out;
    CommandResult parsed =
        RunCommand("python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
                   "print(d[\"captures\"][0][\"calls\"][0][\"messages\"][0][\"kind\"])' " +
                   json.path());
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_EQ(parsed.out, "H.225 SETUP\n");
}

// tshark's view of the rewritten capture, checksums verified: field values per frame.
std::vector<std::string> tshark(const std::string& file, const std::string& arguments) {
    return tshark::Run(file, "-o ip.check_checksum:TRUE -o tcp.check_checksum:TRUE "
                             "-o udp.check_checksum:TRUE " +
                                 arguments);
}

void expectCleanCapture(const std::string& file, size_t frames) {
    // Every checksum verified good (1); none bad (0) or unverified (2).
    std::vector<std::string> statuses =
        tshark(file, "-T fields -E occurrence=a -e ip.checksum.status -e tcp.checksum.status "
                     "-e udp.checksum.status");
    ASSERT_EQ(statuses.size(), frames) << file;
    for (size_t i = 0; i < statuses.size(); ++i) {
        std::string values = statuses[i];
        for (char& c : values) {
            c = (c == '\t' || c == ',') ? ' ' : c;
        }
        std::istringstream in(values);
        for (std::string value; in >> value;) {
            EXPECT_EQ(value, "1") << file << " frame " << i + 1;
        }
    }
    // No malformed packet and no expert error or warning.
    EXPECT_TRUE(tshark(file, "-Y '_ws.malformed || _ws.expert.severity >= \"warning\"'").empty())
        << file;
}

TEST(ToolTshark, RewrittenSipCaptureDecodesCleanly) {
    if (!tshark::Available()) {
        GTEST_SKIP() << "tshark is not installed";
    }
    TempFile out("tshark-sip.pcap");
    ASSERT_EQ(RunCommand(kTool + " --nat 10.0.2.20=203.0.113.2 -w " + out.path() + " " + kSamples +
                         "/wireshark-sip-rtp-dvi4-sip.pcap")
                  .exitCode,
              0);
    expectCleanCapture(out.path(), 12);
    // Every SDP from the inside caller now names the public address only.
    std::vector<std::string> sdp =
        tshark(out.path(), "-Y 'sdp && ip.src == 10.0.2.20' -T fields -e sdp.connection_info -e "
                           "sdp.owner -e sdp.media.port");
    ASSERT_EQ(sdp.size(), 2u);
    for (const std::string& line : sdp) {
        EXPECT_EQ(line.find("10.0.2.20"), std::string::npos) << line;
        EXPECT_NE(line.find("IN IP4 203.0.113.2"), std::string::npos) << line;
        EXPECT_NE(line.find("20000"), std::string::npos) << line;
    }
    // tshark reads every message as SIP, with as many body bytes as Content-Length says.
    std::vector<std::string> sip =
        tshark(out.path(), "-Y sip -T fields -e sip.Content-Length -e sdp.version");
    EXPECT_EQ(sip.size(), 12u);
}

TEST(ToolTshark, H323CaptureStillReassembles) {
    if (!tshark::Available()) {
        GTEST_SKIP() << "tshark is not installed";
    }
    TempFile out("tshark-h323.pcap");
    ASSERT_EQ(RunCommand(kTool + " --nat 10.1.3.0/24=203.0.113.1 -w " + out.path() + " " +
                         kSamples + "/wireshark-rtp_example-signalling.pcap")
                  .exitCode,
              0);
    expectCleanCapture(out.path(), 33);
    EXPECT_TRUE(tshark(out.path(), "-Y tcp.analysis.flags").empty());
    std::vector<std::string> h225 =
        tshark(out.path(), "-Y h225 -T fields -e h225.h323_message_body");
    EXPECT_EQ(h225.size(), 4u);
    // Every address the inside caller announces, in H.225 and H.245, is the public one.
    std::vector<std::string> announced =
        tshark(out.path(), "-Y '(h225 || h245) && ip.src == 10.1.3.143' -T fields "
                           "-E occurrence=a -e h225.ipV4 -e h245.ip4_network");
    std::string all;
    for (const std::string& line : announced) {
        all += line + "\n";
    }
    EXPECT_EQ(all.find("10.1.3.143"), std::string::npos) << all;
    EXPECT_NE(all.find("203.0.113.1"), std::string::npos) << all;
}

} // namespace
