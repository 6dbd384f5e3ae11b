// voipfilter-replay: plays the firewall host on capture files and reports what the library did.
#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "replay.h"
#include "report.h"

namespace {

// The bundled captures and the NAT rules under which they show the translation: the H.323
// caller's network and the SIP caller sit behind the firewall.
const char* const kSamples[] = {"wireshark-rtp_example-signalling.pcap",
                                "wireshark-sip-rtp-dvi4-sip.pcap"};
const char* const kSampleRules[] = {"10.1.3.0/24=203.0.113.1", "10.0.2.20/32=203.0.113.2"};

enum ExitCode {
    kExitOk = 0,
    kExitUsage = 1,
    kExitUnreadable = 2,
    kExitCannotWrite = 3,
    kExitDamaged = 4,
};

void usage(std::ostream& out) {
    out << "usage: voipfilter-replay [options] [CAPTURE...]\n"
           "\n"
           "Plays the firewall host on pcap or pcapng captures (Ethernet, Linux cooked or raw\n"
           "IPv4): every SIP (UDP 5060 or recognised by its start line), RAS (UDP 1718/1719),\n"
           "H.225 call signalling (TCP 1720 or recognised as TPKT + Q.931) and announced H.245\n"
           "message is handed to the library, and the report shows what became of it.\n"
           "Without CAPTURE, the bundled sample calls are replayed with these NAT rules:\n"
           "  "
        << kSampleRules[0] << " " << kSampleRules[1]
        << "\n"
           "\n"
           "options:\n"
           "  --nat INSIDE_CIDR=PUBLIC_IP  the inside network is announced as the public\n"
           "                               address (repeatable), e.g. 10.0.0.0/8=203.0.113.1\n"
           "  --ports LOW-HIGH             public ports for media pinholes and H.245 relays\n"
           "                               (default 20000-29999)\n"
           "  --deny-codec NAME            codec the host vetoes (repeatable), e.g. PCMU\n"
           "  --log-level N                library log level 0..5 (default 0, or 2 with\n"
           "                               --show-log)\n"
           "  --show-log                   show the library's log lines under each message\n"
           "  -w, --write FILE             write the rewritten capture (pcap; one CAPTURE only)\n"
           "  --json                       write the report as JSON\n"
           "  --version                    the version\n"
           "  -h, --help                   this text\n"
           "\n"
           "translated: SIP, H.225 call signalling, H.245 and RAS (anything else is reported, and\n"
           "passed on untranslated)\n"
           "\n"
           "exit codes:\n"
           "  0  every capture was replayed\n"
           "  1  bad command line\n"
           "  2  a capture could not be read or has an unsupported link type\n"
           "  3  the rewritten capture could not be written\n"
           "  4  a capture is damaged; the report covers the frames before the damage\n";
}

int exitCodeOf(replay::ReplayStatus status) {
    switch (status) {
    case replay::ReplayStatus::Ok:
        return kExitOk;
    case replay::ReplayStatus::CannotOpen:
    case replay::ReplayStatus::UnsupportedLink:
        return kExitUnreadable;
    case replay::ReplayStatus::CannotWrite:
        return kExitCannotWrite;
    case replay::ReplayStatus::Damaged:
        return kExitDamaged;
    }
    return kExitUnreadable;
}

bool parseLevel(const std::string& text, int& level) {
    if (text.size() != 1 || text[0] < '0' || text[0] > '5') {
        return false;
    }
    level = text[0] - '0';
    return true;
}

} // namespace

int main(int argc, char** argv) {
    replay::ReplayOptions options;
    std::vector<std::string> captures;
    bool json = false;
    bool showLog = false;
    bool levelGiven = false;

    auto fail = [](const std::string& message) {
        std::cerr << "voipfilter-replay: " << message << "\n(see --help)\n";
        return kExitUsage;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                return false;
            }
            out = argv[++i];
            return true;
        };
        std::string text;
        std::string error;
        if (arg == "-h" || arg == "--help") {
            usage(std::cout);
            return kExitOk;
        } else if (arg == "--version") {
            std::cout << "voipfilter-replay " << VOIPFILTER_VERSION << "\n";
            return kExitOk;
        } else if (arg == "--json") {
            json = true;
        } else if (arg == "--show-log") {
            showLog = true;
        } else if (arg == "--nat") {
            if (!value(text)) {
                return fail("--nat needs INSIDE_CIDR=PUBLIC_IP");
            }
            std::optional<replay::NatRule> rule = replay::parseNatRule(text, error);
            if (!rule) {
                return fail(error);
            }
            options.host.nat.add(*rule);
        } else if (arg == "--ports") {
            if (!value(text)) {
                return fail("--ports needs LOW-HIGH");
            }
            std::optional<replay::PortRange> range = replay::parsePortRange(text, error);
            if (!range) {
                return fail(error);
            }
            options.host.ports = *range;
        } else if (arg == "--deny-codec") {
            if (!value(text) || text.empty()) {
                return fail("--deny-codec needs a codec name");
            }
            options.host.deniedCodecs.push_back(text);
        } else if (arg == "--log-level") {
            if (!value(text) || !parseLevel(text, options.host.logLevel)) {
                return fail("--log-level needs a level from 0 to 5");
            }
            levelGiven = true;
        } else if (arg == "-w" || arg == "--write") {
            if (!value(options.output) || options.output.empty()) {
                return fail(arg + " needs a file name");
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return fail("unknown option " + arg);
        } else {
            captures.push_back(arg);
        }
    }
    if (showLog && !levelGiven) {
        options.host.logLevel = 2;
    }
    if (captures.empty()) {
        for (const char* sample : kSamples) {
            captures.push_back(std::string(VOIPFILTER_REPLAY_SAMPLES_DIR) + "/" + sample);
        }
        if (options.host.nat.rules().empty()) {
            for (const char* text : kSampleRules) {
                std::string error;
                options.host.nat.add(*replay::parseNatRule(text, error));
            }
        }
    }
    if (!options.output.empty() && captures.size() != 1) {
        return fail("-w writes one capture; give exactly one CAPTURE");
    }

    std::vector<replay::CaptureReport> reports;
    int exitCode = kExitOk;
    for (const std::string& capture : captures) {
        replay::ReplayStatus status = replay::ReplayStatus::Ok;
        reports.push_back(replay::replayCapture(capture, options, status));
        exitCode = std::max(exitCode, exitCodeOf(status));
    }
    if (json) {
        replay::writeJson(std::cout, reports, showLog);
    } else {
        replay::writeText(std::cout, reports, showLog);
    }
    return exitCode;
}
