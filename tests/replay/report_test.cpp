#include <gtest/gtest.h>

#include "report.h"

namespace {

// The JSON report escapes quotes and controls, keeps UTF-8 and writes each byte that is not
// UTF-8 as the Latin-1 character of its value.
TEST(JsonEscape, QuotesControlsAndBytesThatAreNotUtf8) {
    const std::pair<std::string, std::string> cases[] = {
        {"say \"hi\" \\", "say \\\"hi\\\" \\\\"},
        {"line\r\nend\ttab", "line\\r\\nend\\ttab"},
        {std::string("nul\0\x1f\x7f", 6), "nul\\u0000\\u001f\\u007f"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9e", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9e"},
        {"latin\xe9", "latin\\u00e9"},             // a lone Latin-1 byte
        {"\xc3", "\\u00c3"},                       // cut-off sequence
        {"\xc0\xaf", "\\u00c0\\u00af"},            // overlong form
        {"\xed\xa0\x80", "\\u00ed\\u00a0\\u0080"}, // surrogate
    };
    for (const auto& [in, out] : cases)
        EXPECT_EQ(replay::jsonEscape(in), out) << in;
}

} // namespace
