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

std::vector<std::string> Lines(const std::string& data) {
    SIPLineParser parser;
    parser.Start(data.data(), static_cast<unsigned>(data.size()));
    std::vector<std::string> lines;
    std::string line;
    while (parser.GetLine(line))
        lines.push_back(line);
    return lines;
}

// What a text function makes of the input, as tests/data/text/functions.tsv writes it.
std::string Apply(const std::string& function, const std::string& in) {
    if (function == "lines") {
        std::string all;
        for (const std::string& line : Lines(in))
            all += line + "|";
        return all;
    }
    if (function == "url")
        return ExtractURL(in);
    if (function == "tag")
        return ExtractTag(in);
    if (function == "branch")
        return ExtractBranch(in);
    if (function == "decimal")
        return std::to_string(DecimalValue(in));
    std::string text = in;
    EXPECT_EQ("trim", function);
    TrimSpaces(text);
    return text;
}

TEST(SIPText, Functions) {
    std::istringstream table(ReadText(DataFile("text/functions.tsv")));
    int rows = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string> f;
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '\t');)
            f.push_back(field);
        f.resize(4);
        EXPECT_EQ(Unescape(f[2]), Apply(f[0], Unescape(f[1]))) << line;
        ++rows;
    }
    EXPECT_GT(rows, 40);
}

TEST(SIPLineParser, StopsAtTheEmptyLineWithTheCursorOnTheBody) {
    const std::string data = "INVITE sip:u1 SIP/2.0\r\nVia: x\r\n\r\nbody";
    SIPLineParser parser;
    parser.Start(data.data(), static_cast<unsigned>(data.size()));
    std::string line;
    ASSERT_TRUE(parser.GetLine(line));
    EXPECT_EQ(line, "INVITE sip:u1 SIP/2.0");
    ASSERT_TRUE(parser.GetLine(line));
    EXPECT_EQ(line, "Via: x");
    ASSERT_TRUE(parser.GetLine(line));
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

TEST(SIPLineParser, CrAsLastByteOfAnExactHeapBufferIsNotReadPast) {
    // An exactly sized heap block: AddressSanitizer reports any look-ahead beyond it.
    const std::string text = "INVITE x SIP/2.0\r";
    std::unique_ptr<char[]> buffer(new char[text.size()]);
    std::copy(text.begin(), text.end(), buffer.get());
    SIPLineParser parser;
    parser.Start(buffer.get(), static_cast<unsigned>(text.size()));
    std::string line;
    ASSERT_TRUE(parser.GetLine(line));
    EXPECT_EQ(line, "INVITE x SIP/2.0");
    EXPECT_FALSE(parser.GetLine(line));
}

SIPMIMEType Headers(std::initializer_list<std::pair<std::string, std::string>> entries) {
    SIPMIMEType headers;
    for (const auto& entry : entries)
        headers.Add(entry.first.data(), entry.first.size(), entry.second.data(),
                    entry.second.size());
    return headers;
}

std::string Output(const SIPMIMEType& headers) {
    std::ostringstream text;
    text << headers;
    return text.str();
}

TEST(SIPMIMEType, IsFieldIgnoresCaseButNotInTheCompactLetter) {
    const SIPMIMEType headers;
    const struct {
        const char* entryName;
        bool matches;
    } cases[] = {{"Call-ID", true}, {"call-id", true}, {"CALL-ID", true},  {"i", true},
                 {"I", false},      {"Call-I", false}, {"Call-IDs", false}};
    for (const auto& c : cases)
        EXPECT_EQ(headers.IsField(SIPMIMEEntry(c.entryName, "v"), "Call-ID", 'i'), c.matches)
            << c.entryName;
    EXPECT_FALSE(headers.IsField(SIPMIMEEntry("c", "v"), "CSeq", 0));
}

TEST(SIPMIMEType, GetFieldFindsTheFirstOfRepeatedHeaders) {
    SIPMIMEType headers = Headers({{"v", "first"}, {"Via", "second"}, {"To", "t"}});
    const auto via = headers.GetField("Via", 'v');
    ASSERT_NE(via, headers.end());
    EXPECT_EQ(via->value, "first");
    EXPECT_EQ(headers.GetField("Route", 0), headers.end());
    const SIPMIMEType& constant = headers;
    EXPECT_EQ(constant.GetField("to", 't')->value, "t");
}

TEST(SIPMIMEType, SetFieldReplacesOrAppends) {
    SIPMIMEType present = Headers({{"Content-Length", "10"}, {"l", "99"}});
    present.SetField("Content-Length", 'l', 42u);
    EXPECT_EQ(Output(present), "Content-Length:42\r\nl:99\r\n\r\n");

    SIPMIMEType compact = Headers({{"l", "10"}});
    compact.SetField("Content-Length", 'l', 0u);
    EXPECT_EQ(Output(compact), "l:0\r\n\r\n");

    SIPMIMEType missing = Headers({{"To", "x"}});
    missing.SetField("Content-Length", 'l', 42u);
    EXPECT_EQ(Output(missing), "To:x\r\nl:42\r\n\r\n");

    // Without a compact letter an added header loses its first character.
    SIPMIMEType noCompact;
    noCompact.SetField("Content-Type", 0, std::string("x"));
    EXPECT_EQ(Output(noCompact), "ontent-Type:x\r\n\r\n");
}

TEST(SIPMIMEType, OutputHasNoBlankAfterTheColonAndEndsWithAnEmptyLine) {
    const SIPMIMEType headers = Headers({{"Via ", "  SIP/2.0/UDP h"}, {" To", "<sip:u2> "}});
    EXPECT_EQ(Output(headers), "Via:SIP/2.0/UDP h\r\nTo:<sip:u2>\r\n\r\n");
    EXPECT_EQ(headers.OutputLength(), Output(headers).size());
    EXPECT_EQ(Output(SIPMIMEType()), "\r\n");
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
