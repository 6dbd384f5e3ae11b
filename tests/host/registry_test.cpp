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

// Every index in the table reaches its own slot; one outside it changes nothing.
TEST_F(Registry, SetFunctionMapsEveryIndexToItsOwnSlot) {
    auto fn = reinterpret_cast<voipxlate_function>(&DummyOpen);
    for (int index : {0, 1, 7, 15, 16, 17, -1, -16, 1 << 30}) {
        EXPECT_EQ(voipxlate_setfunction(index, fn), 0) << index;
        for (int j = 0; j < VOIPXLATE_SLOT_COUNT; ++j)
            EXPECT_EQ(VoIPTranslator::Current().Function(j), j == index ? fn : nullptr)
                << "set " << index << " read " << j;
        voipxlate_setfunction(index, nullptr);
    }
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
    // The variant without a line end sends the text as composed.
    VF_LOG_NOEOL(nullptr, logsource::kH225, 2) << "H.225\t get header value from PDU \n";
    ASSERT_EQ(LogCapture::lines().size(), 3u);
    EXPECT_EQ(LogCapture::lines()[2].text, "H.225\t get header value from PDU \n");
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

} // namespace
