// The command-line tool as a user runs it, and its output capture as tshark reads it.
#include <gtest/gtest.h>

#include "test_util.h"
#include "tshark_support.h"

namespace {

const std::string kTool = VOIPFILTER_REPLAY_TOOL;
const std::string kSamples = VOIPFILTER_REPLAY_SAMPLES_DIR;

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
    for (const auto& [arguments, code] : cases)
        EXPECT_EQ(RunCommand(kTool + " " + arguments).exitCode, code) << arguments;
}

// tshark reads both rewritten samples with every checksum verified good (1; never bad 0 or
// unverified 2), no malformed packet, no expert warning, no TCP analysis flag, and finds only the
// public address in what the inside endpoint announces.
TEST(ToolTshark, RewrittenSamplesDecodeCleanly) {
    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed";
    const struct {
        const char *file, *nat;
        size_t frames;
        const char *announced, *inside, *outside;
    } runs[] = {{"wireshark-sip-rtp-dvi4-sip.pcap", "10.0.2.20=203.0.113.2", 12,
                 "-Y 'sdp && ip.src == 10.0.2.20' -e sdp.connection_info -e sdp.owner", "10.0.2.20",
                 "IN IP4 203.0.113.2"},
                {"wireshark-rtp_example-signalling.pcap", "10.1.3.0/24=203.0.113.1", 33,
                 "-Y '(h225 || h245) && ip.src == 10.1.3.143' -e h225.ipV4 -e h245.ip4_network",
                 "10.1.3.143", "203.0.113.1"}};
    const std::string checks = "-o ip.check_checksum:TRUE -o tcp.check_checksum:TRUE "
                               "-o udp.check_checksum:TRUE ";
    const std::string fields = checks + "-T fields -E occurrence=a ";
    for (const auto& run : runs) {
        SCOPED_TRACE(run.file);
        TempFile out("tshark.pcap");
        ASSERT_EQ(0, RunCommand(kTool + " --nat " + run.nat + " -w " + out.path() + " " + kSamples +
                                "/" + run.file)
                         .exitCode);
        const std::vector<std::string> statuses = tshark::Run(
            out.path(),
            fields + "-e ip.checksum.status -e tcp.checksum.status -e udp.checksum.status");
        EXPECT_EQ(run.frames, statuses.size());
        for (const std::string& line : statuses)
            EXPECT_EQ(std::string::npos, line.find_first_not_of("1\t,")) << line;
        EXPECT_TRUE(tshark::Run(out.path(), checks + "-Y '_ws.malformed || _ws.expert.severity "
                                                     ">= \"warning\" || tcp.analysis.flags'")
                        .empty());
        std::string announced;
        for (const std::string& line : tshark::Run(out.path(), fields + run.announced))
            announced += line + "\n";
        EXPECT_EQ(announced.find(run.inside), std::string::npos) << announced;
        EXPECT_NE(announced.find(run.outside), std::string::npos) << announced;
    }
}

} // namespace
