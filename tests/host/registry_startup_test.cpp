// The registry's state before the host changes anything. Runs in its own process.
#include "host/registry.h"

#include <gtest/gtest.h>

namespace {

TEST(RegistryStartup, LevelZeroAndOnlyTheBuiltInWriter) {
    VoIPTranslator& registry = VoIPTranslator::Current();
    EXPECT_EQ(&registry, &VoIPTranslator::Current());
    EXPECT_NE(registry.Function(0), nullptr);
    for (int i = 1; i < VOIPXLATE_SLOT_COUNT; ++i)
        EXPECT_EQ(registry.Function(i), nullptr) << i;
    EXPECT_EQ(registry.SipTranslator(), nullptr);

    // Level 0 suppresses everything, even level 1.
    testing::internal::CaptureStderr();
    VF_LOG(nullptr, logsource::kH225, 1) << "hidden";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // Raised, the built-in writer prints the level, " - ", the text and a line end.
    voipxlate_setloglevel(2);
    testing::internal::CaptureStderr();
    VF_LOG(nullptr, logsource::kH225, 2) << "H.225\tTranslated SETUP PDU";
    VF_LOG(nullptr, logsource::kH225, 3) << "too detailed";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "2 - H.225\tTranslated SETUP PDU\n\n");

    // Switching slot 0 off silences even the built-in writer.
    voipxlate_setfunction(0, nullptr);
    testing::internal::CaptureStderr();
    VF_LOG(nullptr, logsource::kH225, 1) << "silenced";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
