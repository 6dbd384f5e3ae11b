#include "host/call.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

namespace {

TEST(VoIPCall, InitialiseCallInfoSetsTimeAndClearsStateButNotStatus) {
    voipxlate_callinformation info;
    std::memset(&info, 0x5A, sizeof info);
    const int64_t before = std::time(nullptr);
    const int64_t stored = VoIPCall::InitialiseCallInfo(&info);
    EXPECT_GE(stored, before);
    EXPECT_LE(stored, std::time(nullptr));
    EXPECT_EQ(info.startTime, stored);
    EXPECT_EQ(info.state, 0);
    for (uint8_t b : info.stateReserved)
        EXPECT_EQ(b, 0);
    EXPECT_EQ(info.reserved, 0u);
    EXPECT_EQ(info.status, 0x5A5A5A5A); // the status word is the caller's
}

} // namespace
