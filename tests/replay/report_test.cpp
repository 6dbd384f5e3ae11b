#include <gtest/gtest.h>

#include <sstream>

#include "report.h"

using namespace replay;

namespace {

TEST(JsonEscape, QuotesControlsAndBytesThatAreNotUtf8) {
    const std::pair<std::string, std::string> cases[] = {
        {"plain", "plain"},
        {"say \"hi\"", "say \\\"hi\\\""},
        {"back\\slash", "back\\\\slash"},
        {"line\r\nend\ttab", "line\\r\\nend\\ttab"},
        {std::string("nul\0byte", 8), "nul\\u0000byte"},
        {"\x01\x1f\x7f", "\\u0001\\u001f\\u007f"},
        {"caf\xc3\xa9", "caf\xc3\xa9"}, // UTF-8 kept
        {"\xe2\x82\xac and \xf0\x9f\x93\x9e", "\xe2\x82\xac and \xf0\x9f\x93\x9e"},
        {"latin\xe9", "latin\\u00e9"},             // a lone Latin-1 byte
        {"\xc3", "\\u00c3"},                       // cut-off sequence
        {"\xc0\xaf", "\\u00c0\\u00af"},            // overlong form
        {"\xed\xa0\x80", "\\u00ed\\u00a0\\u0080"}, // surrogate
    };
    for (const auto& [in, out] : cases) {
        EXPECT_EQ(jsonEscape(in), out) << in;
    }
}

CaptureReport sampleReport() {
    CaptureReport report;
    report.file = "a \"quoted\" name.pcap";
    report.linkType = "Ethernet, link type 1";
    CallRecord call;
    call.protocol = "SIP";
    call.id = "id\\1";
    MessageRecord message;
    message.frame = 7;
    message.kind = "SIP INVITE";
    message.outcome = Outcome::Refused;
    message.result = -1;
    message.log.push_back(LogLine{2, "SIP  line\n"});
    call.messages.push_back(message);
    call.holds.push_back(7);
    report.calls.push_back(call);
    report.counters.frames = 9;
    return report;
}

TEST(Report, JsonCarriesEscapedFieldsAndCounts) {
    std::ostringstream out;
    writeJson(out, {sampleReport()}, true);
    const std::string json = out.str();
    EXPECT_NE(json.find("\"file\":\"a \\\"quoted\\\" name.pcap\""), std::string::npos) << json;
    EXPECT_NE(json.find("\"id\":\"id\\\\1\""), std::string::npos);
    EXPECT_NE(json.find("\"frame\":7,\"direction\":\"orig->dest\""), std::string::npos);
    EXPECT_NE(json.find("\"result\":\"refused\",\"code\":-1"), std::string::npos);
    EXPECT_NE(json.find("\"log\":[{\"level\":2,\"text\":\"SIP  line\\n\"}]"), std::string::npos);
    EXPECT_NE(json.find("\"holds\":[7]"), std::string::npos);
    EXPECT_NE(json.find("\"frames\":9"), std::string::npos);
    std::ostringstream quiet;
    writeJson(quiet, {sampleReport()}, false);
    EXPECT_EQ(quiet.str().find("\"log\""), std::string::npos);
}

TEST(Report, TextListsMessagesAndOnlyNonZeroCounts) {
    std::ostringstream out;
    writeText(out, {sampleReport()}, true);
    const std::string text = out.str();
    EXPECT_NE(text.find("frame 7     orig->dest SIP INVITE"), std::string::npos) << text;
    EXPECT_NE(text.find("refused"), std::string::npos);
    EXPECT_NE(text.find("log 2: SIP  line\n"), std::string::npos);
    EXPECT_NE(text.find("on hold at frame 7"), std::string::npos);
    EXPECT_NE(text.find("counts: frames 9\n"), std::string::npos);
}

} // namespace
