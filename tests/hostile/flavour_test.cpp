// Hostile messages, once per flavour of the library (HOSTILE_HARDENED is defined for the hardened
// one). The default flavour keeps the designed behaviour: the assertions stop the process with
// their texts, and a half-encoded rewrite is sent as far as it was written. The hardened flavour
// refuses every one with one level-1 log line that says why, forgets it, and the call goes on.
#include "hostile_cases.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

class FlavourTest : public H323HostTest, public ::testing::WithParamInterface<HostileCase> {};

#ifndef HOSTILE_HARDENED
std::string AssertionPattern(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return "Assertion `" + std::regex_replace(text, special, R"(\$&)") + "' failed";
}

TEST_P(FlavourTest, Outcome) {
    const HostileCase& c = GetParam();
    ConfigureHost(c.host);
    TestCall call;
    Bytes out;
    if (!c.assertion.empty()) {
        EXPECT_DEATH(Send(c.entry, c.steps, call, out), AssertionPattern(c.assertion));
        return;
    }
    // Rewritten, and reported as such, but the receiver cannot read what goes out.
    const std::string trace = Send(c.entry, c.steps, call, out);
    EXPECT_EQ('1', trace.back()) << trace;
    EXPECT_EQ(c.designedBytes, Hex(out));
    H245::MultimediaSystemControlMessage message;
    H225::H323_UserInformation ui;
    EXPECT_FALSE(c.entry == Entry::H245 ? Decode(out, message) : DecodeFrame(out, ui)) << Hex(out);
}
#else
TEST_P(FlavourTest, RefusedAndTheCallGoesOn) {
    const HostileCase& c = GetParam();
    ConfigureHost(c.host);
    TestCall call;
    Bytes out;
    {
        Transcript log(1);
        EXPECT_EQ(c.hardened, Send(c.entry, c.steps, call, out));
        const std::string reason = c.assertion.empty() ? "incomplete PER encoding" : c.assertion;
        int refusals = 0;
        for (auto at = log.str().find("Message refused: " + reason); at != std::string::npos;
             at = log.str().find("Message refused: " + reason, at + 1))
            ++refusals;
        EXPECT_EQ(1, refusals);
    }
    // The refused message is forgotten straight away: nothing is left to encode or translate.
    if (c.entry == Entry::H225) {
        Bytes buffer(65536);
        unsigned size = static_cast<unsigned>(buffer.size());
        int status = 0;
        EXPECT_EQ(0, h323xlate_h225_encodeh225pdu(call.handle, buffer.data(), &size));
        EXPECT_EQ(0, h323xlate_h225_translateh225pdu(call.handle, true, &status));
        EXPECT_EQ(-1, status);
    }
    ConfigureHost(MediaHost::Recording);
    const std::string next = Send(c.entry, FollowUp(c.entry), call, out);
    EXPECT_EQ('1', next.back()) << next;
}
#endif

INSTANTIATE_TEST_SUITE_P(Hostile, FlavourTest, ::testing::ValuesIn(HostileCases()),
                         [](const ::testing::TestParamInfo<HostileCase>& info) {
                             return "case" + std::to_string(info.index);
                         });

} // namespace
