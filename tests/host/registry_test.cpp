#include "host/registry.h"

#include "registry_guard.h"
#include "transcript.h"

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
    Transcript t(2);
    int other = 0;
    t.Ignore(&other); // the lines of another context are left out: the context reaches the writer
    VF_LOG(&g_composed, logsource::kSIP, 1) << "one";
    VF_LOG(&g_composed, logsource::kSIP, 2) << "two";
    VF_LOG(&g_composed, logsource::kSIP, 3) << "three";
    VF_LOG(&other, logsource::kSIP, 1) << "another context";
    // The stream's endl ends every line; the variant without it sends the text as composed.
    VF_LOG_NOEOL(nullptr, logsource::kH225, 2) << "H.225\t get header value from PDU \n";
    EXPECT_EQ(t.str(),
              "  log 1 src/libs/voipfilter/sip_xlate: one\\n\n"
              "  log 2 src/libs/voipfilter/sip_xlate: two\\n\n"
              "  log 2 src/libs/voipfilter/h225_xlate: H.225\t get header value from PDU \\n\n");
}

TEST_F(Registry, NothingIsComposedWhenNoLineIsSent) {
    g_composed = 0;
    {
        Transcript t(1); // the level is too low
        VF_LOG(nullptr, logsource::kH245, 2) << Expensive();
        EXPECT_EQ(t.str(), "");
    }
    voipxlate_setloglevel(5); // slot 0 is empty
    VF_LOG(nullptr, logsource::kH245, 1) << Expensive();
    EXPECT_EQ(g_composed, 0);
}

} // namespace
