// Whole H.225.0 calls through the C API: the flows of tests/data/h225/*.flow, each compared whole
// with its golden transcript at level 5 (every step's result, status word and call state, the
// host's callbacks in order, every log line with its source path, each PDU sent on in value
// notation); and the entry points' answers without a message or a call.
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

class CallTest : public H323HostTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(CallTest, FlowMatchesItsTranscript) {
    PlayFlow("h225/" + GetParam());
}

INSTANTIATE_TEST_SUITE_P(H225, CallTest, ::testing::ValuesIn(FlowNames("h225")), TestName);

TEST(CallEntryTest, TranslateAndEncodeBeforeAnyDecode) {
    TestCall call;
    int status = -5;
    EXPECT_EQ(0, h323xlate_h225_translateh225pdu(call.handle, 1, &status));
    EXPECT_EQ(-1, status);
    unsigned char buffer[16];
    unsigned size = sizeof buffer;
    EXPECT_EQ(0, h323xlate_h225_encodeh225pdu(call.handle, buffer, &size));
    // A failed decode leaves nothing to translate either.
    const unsigned char bad[] = {0x08, 0x02, 0x00, 0x01, 0x05, 0x7E, 0x00, 0x03, 0x05, 0xFF, 0xFF};
    EXPECT_EQ(-2, h323xlate_h225_decodeh225pdu(call.handle, bad, sizeof bad));
    EXPECT_EQ(0, h323xlate_h225_translateh225pdu(call.handle, 1, &status));
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);
}

TEST(CallEntryTest, NullHandlesAndAFreshCallRecord) {
    int status = 7;
    unsigned size = 4;
    unsigned char buffer[4];
    EXPECT_EQ(-1, h323xlate_h225_translateh225pdu(nullptr, 1, &status));
    EXPECT_EQ(7, status);
    EXPECT_EQ(-1, h323xlate_h225_decodeh225pdu(nullptr, buffer, 4));
    EXPECT_EQ(-1, h323xlate_h225_encodeh225pdu(nullptr, buffer, &size));
    EXPECT_EQ(-1, h323xlate_h225_translateh245pdu(nullptr, 1, buffer, 4, buffer, &size));
    EXPECT_EQ(nullptr, h323xlate_h225_getcallstatus(nullptr));
    EXPECT_EQ(-1, h323xlate_h225_setheaderstring(nullptr, buffer, 4, 1, nullptr, buffer, &size));
    EXPECT_EQ(nullptr, h323xlate_h225_getheaderstring(nullptr, buffer, 4, 1));
    h323xlate_h225_destroy(nullptr);

    const int64_t before = static_cast<int64_t>(std::time(nullptr));
    TestCall call;
    EXPECT_EQ(1, call.Info().status);
    EXPECT_GE(call.Info().startTime, before);
    EXPECT_LE(call.Info().startTime, before + 5);
    for (const voipxlate_mediasessioninformation& session : call.Info().sessions)
        EXPECT_EQ(0u, session.flags);
}

} // namespace
