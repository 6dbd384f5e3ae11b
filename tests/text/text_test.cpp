// The text layer under SIP and SDP: the line reader, the header table, URL, tag and branch
// extraction, the tokeniser, trimming and number reading.
#include "sip/message.h"
#include "test_util.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Headers written "NAME:VALUE|NAME:VALUE...", added one by one.
SIPMIMEType Headers(const std::string& text) {
    SIPMIMEType headers;
    for (const std::string& entry : SplitLines(text, '|')) {
        const std::string::size_type colon = entry.find(':');
        headers.Add(entry.data(), colon, entry.data() + colon + 1, entry.size() - colon - 1);
    }
    return headers;
}

std::string Output(const SIPMIMEType& headers) {
    std::ostringstream text;
    text << headers;
    EXPECT_EQ(headers.OutputLength(), text.str().size());
    return text.str();
}

// What a text function makes of the input, as tests/data/text/functions.tsv writes it.
std::string Apply(const std::string& function, const std::string& in) {
    std::istringstream words(function);
    std::string name, field, compact, value;
    words >> name >> field >> compact >> value;
    const char letter = compact == "-" ? 0 : compact[0];
    if (name == "lines") {
        // An exactly sized heap copy: AddressSanitizer reports any look-ahead beyond it.
        const std::unique_ptr<char[]> exact(new char[in.size()]);
        std::copy(in.begin(), in.end(), exact.get());
        SIPLineParser parser;
        parser.Start(exact.get(), static_cast<unsigned>(in.size()));
        std::string all;
        for (std::string line; parser.GetLine(line);)
            all += line + "|";
        return all;
    }
    if (name == "headers")
        return Output(Headers(in));
    if (name == "isfield")
        return std::to_string(SIPMIMEType().IsField(SIPMIMEEntry(in, "v"), field, letter));
    if (name == "getfield") {
        const SIPMIMEType headers = Headers(in);
        const auto found = headers.GetField(field, letter);
        return found == headers.end() ? "(none)" : found->value;
    }
    if (name == "set") {
        SIPMIMEType headers = Headers(in);
        if (value.find_first_not_of("0123456789") == std::string::npos)
            headers.SetField(field, letter, static_cast<unsigned>(std::stoul(value)));
        else
            headers.SetField(field, letter, value);
        return Output(headers);
    }
    if (name == "url")
        return ExtractURL(in);
    if (name == "tag")
        return ExtractTag(in);
    if (name == "branch")
        return ExtractBranch(in);
    if (name == "decimal")
        return std::to_string(DecimalValue(in));
    std::string text = in;
    EXPECT_EQ("trim", name);
    TrimSpaces(text);
    return text;
}

TEST(SIPText, Functions) {
    const auto rows = TableRows("text/functions.tsv", 4);
    for (const std::vector<std::string>& f : rows)
        EXPECT_EQ(Unescape(f[2]), Apply(f[0], Unescape(f[1]))) << f[0] << " " << f[1];
    EXPECT_GT(rows.size(), 60u);
}

TEST(SIPLineParser, StopsAtTheEmptyLineWithTheCursorOnTheBody) {
    const std::string data = "INVITE sip:u1 SIP/2.0\r\nVia: x\r\n\r\nbody";
    SIPLineParser parser;
    parser.Start(data.data(), static_cast<unsigned>(data.size()));
    std::string line;
    for (int i = 0; i < 3; ++i) // the lines themselves are the table's
        ASSERT_TRUE(parser.GetLine(line)) << i;
    EXPECT_EQ(line, "");
    EXPECT_EQ(parser.Position(), data.data() + data.size() - 4);
    EXPECT_EQ(parser.Remaining(), 4u);
    EXPECT_EQ(parser.Length(), data.size());
}

TEST(SIPLineParser, FalseLeavesTheOutputsAlone) {
    SIPLineParser parser;
    parser.Start("x", 0);
    const char* line = "unchanged";
    unsigned length = 77;
    EXPECT_FALSE(parser.GetLine(&line, &length));
    EXPECT_STREQ(line, "unchanged");
    EXPECT_EQ(length, 77u);
    std::string text = "kept";
    EXPECT_FALSE(parser.GetLine(text));
    EXPECT_EQ(text, "kept");
}

TEST(SIPText, TokeniseOnWhiteSpaceAndNul) {
    const std::string text = "  a\tb  ";
    std::vector<std::string> tokens;
    EXPECT_EQ(Tokenise<IsWhiteSpace>(tokens, text, 0), 2u);
    EXPECT_EQ(tokens, (std::vector<std::string>{"a", "b"}));
    tokens.clear();
    EXPECT_EQ(Tokenise<IsWhiteSpace>(tokens, text, 3), 1u);
    EXPECT_EQ(tokens, (std::vector<std::string>{"b"}));
    tokens.clear();
    EXPECT_EQ(Tokenise<IsWhiteSpace>(tokens, std::string("x\0y\r\n\v\fz", 8), 0), 3u);
    EXPECT_EQ(tokens, (std::vector<std::string>{"x", "y", "z"}));
    // Bytes above 127 are not white space (and must not reach isspace as negative values).
    tokens.clear();
    EXPECT_EQ(Tokenise<IsWhiteSpace>(tokens, "\xa0\xff x", 0), 2u);
    EXPECT_EQ(tokens[0], "\xa0\xff");
    // The vector is appended to, and the count includes what was there.
    EXPECT_EQ(Tokenise<IsWhiteSpace>(tokens, "q", 0), 3u);
}

} // namespace
