// Test helper: the registry is process-wide, so each test that touches it starts from an empty
// table with level 0 and leaves it that way.
#ifndef VOIPFILTER_TESTS_REGISTRY_GUARD_H
#define VOIPFILTER_TESTS_REGISTRY_GUARD_H

#include <voipfilter/voipfilter.h>

#include <gtest/gtest.h>

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override { Clear(); }
    void TearDown() override { Clear(); }

    static void Clear() {
        for (int i = 0; i < VOIPXLATE_SLOT_COUNT; ++i)
            voipxlate_setfunction(i, nullptr);
        voipxlate_setloglevel(0);
    }
};

#endif
