// The hardened flavour refuses every hostile message with one level-1 log line that says why,
// forgets it, and the call goes on.
#include "hostile_cases.h"
#include "log_capture.h"

#include <gtest/gtest.h>

namespace {

class HardenedFlavourTest : public H323HostTest,
                            public ::testing::WithParamInterface<HostileCase> {};

TEST_P(HardenedFlavourTest, RefusedAndTheCallGoesOn) {
    const HostileCase& c = GetParam();
    ConfigureHost(c.host);
    TestCall call;
    Bytes out;
    {
        LogCapture log(1);
        EXPECT_EQ(c.hardened, Send(c.entry, c.messages(), call, out));
        const std::string reason = c.assertion != nullptr ? c.assertion : "incomplete PER encoding";
        int refusals = 0;
        for (const LoggedLine& line : LogCapture::lines())
            if (line.text.find("Message refused: " + reason) != std::string::npos)
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

INSTANTIATE_TEST_SUITE_P(Hostile, HardenedFlavourTest, ::testing::ValuesIn(HostileCases()),
                         [](const ::testing::TestParamInfo<HostileCase>& info) {
                             return "case" + std::to_string(info.index);
                         });

} // namespace
