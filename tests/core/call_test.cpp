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
    const int64_t after = std::time(nullptr);
    EXPECT_GE(stored, before);
    EXPECT_LE(stored, after);
    EXPECT_EQ(info.startTime, stored);
    EXPECT_EQ(info.state, 0);
    for (uint8_t b : info.stateReserved)
        EXPECT_EQ(b, 0);
    EXPECT_EQ(info.reserved, 0u);
    EXPECT_EQ(info.status, 0x5A5A5A5A); // the status word is the caller's
}

TEST(VoIPCall, KeepsTheHostContext) {
    int host = 0;
    H323Call call(&host);
    EXPECT_EQ(call.HostContext(), &host);
    VoIPCall* base = &call;
    EXPECT_EQ(base->HostContext(), &host);
}

} // namespace
