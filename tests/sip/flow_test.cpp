// SIP calls written as flow files (tests/data/sip/flows/*.flow) and played through the C API, each
// compared whole with its golden transcript (*.txt beside it) at log level 5: every message's
// result, the host's callbacks, the log lines, the message sent on, and the dialog table after it.
//
// A flow file holds messages, each after a line "--- send" ("--- send option 0" for no media
// proxy, "--- send capacity N" for an output buffer of N octets, "--- send file DIR/NNN.sip" for a
// captured datagram). Lines end with CR LF on the wire; "Content-Length: *" (or "l: *") gets the
// length of the body. Other "--- " lines set the host up for the messages that follow: "refuse
// CODEC...", "open-result N", "hold-result N", "hook N" (a rewrite hook that adds a header and
// answers N), "unset SLOT", "destroy" (sipxlate_udp_destroy) and "connection" (a new connection;
// "connection untranslated" announces each side as it is).
// Lines starting with '#' are comments.
#include "golden.h"
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace {

struct Step {
    std::vector<std::string> words; // the directive
    std::vector<std::string> lines; // the message written in the file
};

std::vector<Step> ReadFlow(const std::string& path) {
    std::ifstream in(path);
    std::vector<Step> steps;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] == '#')
            continue;
        if (line.compare(0, 4, "--- ") == 0) {
            Step step;
            std::istringstream words(line.substr(4));
            for (std::string word; words >> word;)
                step.words.push_back(word);
            steps.push_back(step);
        } else if (!steps.empty()) {
            steps.back().lines.push_back(line);
        }
    }
    return steps;
}

// The rewritten message, one "| " line each; a line that does not end with CR LF says so.
std::string Render(const std::string& message) {
    std::string out;
    std::string::size_type at = 0;
    while (at < message.size()) {
        std::string::size_type end = message.find('\n', at);
        std::string line = message.substr(at, end == std::string::npos ? end : end - at);
        const bool crlf = end != std::string::npos && !line.empty() && line.back() == '\r';
        if (crlf)
            line.pop_back();
        out += "| " + line + (crlf ? "" : " [no CR LF]") + "\n";
        at = end == std::string::npos ? message.size() : end + 1;
    }
    return out;
}

int RewriteHook(bool fromSource, bool isRequest, SIPMIMEType* headers) {
    headers->SetField("X-Hook", 'x', std::string("seen"));
    Transcript::Event(std::string("rewriteNotify fromSource=") + (fromSource ? "1" : "0") +
                      " request=" + (isRequest ? "1" : "0"));
    return Host().rewriteResult;
}

class Flow : public SipHostTest, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        SipHostTest::SetUp();
        log_.reset();
    }
    // The dialog table's keys of the flow's calls, each with its dialog's state.
    std::string Dialogs() const {
        std::string text;
        for (const auto& entry : SIPTranslator::Instance().Dialogs())
            for (const std::string& callId : callIds_)
                if (entry.first.compare(0, callId.size(), callId) == 0)
                    text += " " + entry.first + "=" +
                            std::to_string(entry.second->callInformation.state);
        return text.empty() ? " none" : text;
    }
    std::set<std::string> callIds_;
};

// The datagram a "send" step sends.
std::string Datagram(const Step& step) {
    for (std::size_t i = 1; i + 1 < step.words.size(); ++i)
        if (step.words[i] == "file")
            return LoadSip(step.words[i + 1]);
    return SipDatagram(step.lines);
}

TEST_P(Flow, MatchesItsTranscript) {
    const std::vector<Step> steps = ReadFlow(DataFile("sip/flows/" + GetParam() + ".flow"));
    // The flow's calls start without dialogs of an earlier run, and leave none behind.
    for (const Step& step : steps) {
        const std::string message =
            step.words.empty() || step.words[0] != "send" ? "" : Datagram(step);
        SIPLineParser headers; // whatever the line ends
        headers.Start(message.data(), static_cast<unsigned>(message.size()));
        for (std::string line; headers.GetLine(line) && !line.empty();)
            for (const char* name : {"Call-ID:", "i:"})
                if (line.compare(0, std::strlen(name), name) == 0)
                    callIds_.insert(line.substr(line.find_first_not_of(' ', std::strlen(name))));
    }
    for (const std::string& callId : callIds_)
        Forget(callId);

    Transcript t(5);
    SIPConnection* connection = Connect(&Host());
    for (const Step& step : steps) {
        const std::vector<std::string>& w = step.words;
        const auto number = [&](std::size_t i) { return i < w.size() ? std::stoi(w[i]) : 0; };
        if (w.empty() || w[0] != "send") {
            std::string directive = "---";
            for (const std::string& word : w)
                directive += " " + word;
            t.Note(directive);
            if (w.empty())
                ADD_FAILURE() << "empty directive";
            else if (w[0] == "refuse")
                Host().refusedCodecs = std::set<std::string>(w.begin() + 1, w.end());
            else if (w[0] == "open-result")
                Host().openResult = number(1);
            else if (w[0] == "hold-result")
                Host().holdResult = number(1);
            else if (w[0] == "hook") {
                Host().rewriteResult = number(1);
                voipxlate_setfunction(VOIPXLATE_REWRITE_NOTIFY,
                                      reinterpret_cast<voipxlate_function>(&RewriteHook));
            } else if (w[0] == "unset")
                voipxlate_setfunction(number(1), nullptr);
            else if (w[0] == "destroy")
                t.Note("result " + std::to_string(sipxlate_udp_destroy(connection)));
            else if (w[0] == "connection" && w.size() == 1)
                connection = Connect(&Host());
            else if (w[0] == "connection") {
                const sockaddr_type a = Addr("10.0.0.5:5060"), b = Addr("192.0.2.10:5060");
                connection = sipxlate_create(&Host(), &a, &b, &a, &b);
                connections_.push_back(connection);
            } else
                ADD_FAILURE() << "unknown directive " << w[0];
            continue;
        }
        int option = 1;
        unsigned capacity = 8192;
        const std::string message = Datagram(step);
        for (std::size_t i = 1; i + 1 < w.size(); i += 2) {
            if (w[i] == "option")
                option = number(i + 1);
            else if (w[i] == "capacity")
                capacity = static_cast<unsigned>(number(i + 1));
        }
        t.Note("> " + message.substr(0, message.find_first_of(std::string("\r\n\0", 3))));
        const int result = Translate(connection, message, option, capacity);
        t.Note("result " + std::to_string(result));
        if (result > 0)
            t.Note(Render(out_).substr(0, Render(out_).size() - 1));
        t.Note("dialogs" + Dialogs());
    }
    // Dialog addresses differ from run to run.
    ExpectGolden("sip/flows/" + GetParam() + ".txt",
                 std::regex_replace(t.str(), std::regex("@0x[0-9a-f]+"), "@(address)"));
    for (const std::string& callId : callIds_)
        Forget(callId);
}

INSTANTIATE_TEST_SUITE_P(Sip, Flow, ::testing::ValuesIn(FlowNames("sip/flows")), TestName);

} // namespace
