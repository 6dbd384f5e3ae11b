#include "host/registry.h"

#include "log_capture.h"
#include "registry_guard.h"

#include <gtest/gtest.h>

#include <string>

namespace {

int g_composed = 0;

// Stands for an expensive text (a whole message in value notation): counts how often it is built.
std::string Expensive() {
    ++g_composed;
    return "payload";
}

int DummyOpen(void*, int, voipxlate_mediasessioninformation*, int32_t*) {
    return 0;
}

using Registry = RegistryTest;

TEST_F(Registry, SetFunctionMapsEveryIndexToItsOwnSlot) {
    auto fn = reinterpret_cast<voipxlate_function>(&DummyOpen);
    for (int i = 0; i < VOIPXLATE_SLOT_COUNT; ++i) {
        EXPECT_EQ(voipxlate_setfunction(i, fn), 0);
        for (int j = 0; j < VOIPXLATE_SLOT_COUNT; ++j)
            EXPECT_EQ(VoIPTranslator::Current().Function(j), j == i ? fn : nullptr)
                << "set " << i << " read " << j;
        voipxlate_setfunction(i, nullptr);
    }
}

TEST_F(Registry, IndicesOutsideTheTableChangeNothing) {
    auto fn = reinterpret_cast<voipxlate_function>(&DummyOpen);
    for (int index : {16, 17, -1, -16, 1 << 30}) {
        EXPECT_EQ(voipxlate_setfunction(index, fn), 0) << index;
        for (int j = 0; j < VOIPXLATE_SLOT_COUNT; ++j)
            EXPECT_EQ(VoIPTranslator::Current().Function(j), nullptr) << index << " " << j;
    }
}

TEST_F(Registry, SetLogLevelReturnsTheLevelStored) {
    EXPECT_EQ(voipxlate_setloglevel(3), 3);
    EXPECT_EQ(VoIPTranslator::Current().LogLevel(), 3);
    EXPECT_EQ(voipxlate_setloglevel(-7), -7);
}

TEST_F(Registry, LineIsSentOnlyAtOrAboveItsLevel) {
    LogCapture capture(2);
    void* context = &g_composed;
    VF_LOG(context, logsource::kSIP, 1) << "one";
    VF_LOG(context, logsource::kSIP, 2) << "two";
    VF_LOG(context, logsource::kSIP, 3) << "three";
    ASSERT_EQ(LogCapture::lines().size(), 2u);
    EXPECT_EQ(LogCapture::lines()[0].text, "one\n"); // the stream's endl ends every line
    EXPECT_EQ(LogCapture::lines()[0].level, 1);
    EXPECT_EQ(LogCapture::lines()[0].file, "src/libs/voipfilter/sip_xlate");
    EXPECT_EQ(LogCapture::lines()[0].context, context);
    EXPECT_EQ(LogCapture::lines()[1].text, "two\n");
}

TEST_F(Registry, NoEndOfLineVariantSendsTheTextAsComposed) {
    LogCapture capture(5);
    VF_LOG_NOEOL(nullptr, logsource::kH225, 5) << "H.225\t get header value from PDU \n";
    ASSERT_EQ(LogCapture::lines().size(), 1u);
    EXPECT_EQ(LogCapture::lines()[0].text, "H.225\t get header value from PDU \n");
}

TEST_F(Registry, NothingIsComposedWhenNoLineIsSent) {
    g_composed = 0;
    {
        LogCapture capture(1); // the level is too low
        VF_LOG(nullptr, logsource::kH245, 2) << Expensive();
        EXPECT_TRUE(LogCapture::lines().empty());
    }
    voipxlate_setloglevel(5); // slot 0 is empty
    VF_LOG(nullptr, logsource::kH245, 1) << Expensive();
    EXPECT_EQ(g_composed, 0);
}

TEST_F(Registry, LogStatementIsOneStatementInsideIfElse) {
    // The macro must not capture a following else.
    LogCapture capture(1);
    bool elseTaken = false;
    if (LogCapture::lines().empty())
        VF_LOG(nullptr, logsource::kRAS, 1) << "if";
    else
        elseTaken = true;
    EXPECT_FALSE(elseTaken);
    ASSERT_EQ(LogCapture::lines().size(), 1u);
}

} // namespace
