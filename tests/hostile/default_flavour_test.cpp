// The default flavour keeps the designed behaviour on hostile messages: the assertions stop the
// process with their texts, and a half-encoded rewrite is sent as far as it was written.
#include "hostile_cases.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

class DefaultFlavourTest : public H323HostTest,
                           public ::testing::WithParamInterface<HostileCase> {};

std::string AssertionPattern(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return "Assertion `" + std::regex_replace(text, special, R"(\$&)") + "' failed";
}

TEST_P(DefaultFlavourTest, Outcome) {
    const HostileCase& c = GetParam();
    ConfigureHost(c.host);
    TestCall call;
    Bytes out;
    if (c.assertion != nullptr) {
        EXPECT_DEATH(Send(c.entry, c.messages(), call, out), AssertionPattern(c.assertion));
        return;
    }
    // Rewritten, and reported as such, but the receiver cannot read what goes out.
    const std::string trace = Send(c.entry, c.messages(), call, out);
    EXPECT_EQ('1', trace.back()) << trace;
    EXPECT_EQ(c.designedBytes, Hex(out));
    if (c.entry == Entry::H245) {
        H245::MultimediaSystemControlMessage message;
        EXPECT_FALSE(Decode(out, message)) << Hex(out);
    } else {
        H225::H323_UserInformation ui;
        EXPECT_FALSE(DecodeFrame(out, ui)) << Hex(out);
    }
}

INSTANTIATE_TEST_SUITE_P(Hostile, DefaultFlavourTest, ::testing::ValuesIn(HostileCases()),
                         [](const ::testing::TestParamInfo<HostileCase>& info) {
                             return "case" + std::to_string(info.index);
                         });

} // namespace
