// The small-block pool behind the value tree: size classes, reuse, the per-thread cache limit,
// and that values of every size come back through it.
#include "asn1_test_support.h"

#include "asn1/pool.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using namespace asn1test;
using ASN1::detail::PoolAllocate;
using ASN1::detail::PoolCachedBytes;
using ASN1::detail::PoolRelease;

namespace {

class Pool : public ::testing::Test {
protected:
    void SetUp() override {
        if (!ASN1::detail::PoolRecycles())
            GTEST_SKIP() << "this build hands every block to the heap (AddressSanitizer)";
    }
};

// Each case runs on a thread of its own, whose cache starts empty whatever earlier tests freed.
template <class F> void OnFreshThread(F body) {
    std::thread(body).join();
}

TEST_F(Pool, SizeClassesAndReuse) {
    OnFreshThread([] {
        struct Row {
            std::size_t size;
            std::size_t cached; // bytes kept once the block is released
        };
        const Row rows[] = {{1, 16},    {16, 16}, {17, 32}, {100, 112},
                            {512, 512}, {513, 0}, {4096, 0}};
        for (const Row& row : rows) {
            void* block = PoolAllocate(row.size);
            const std::size_t held = PoolCachedBytes();
            PoolRelease(block, row.size);
            EXPECT_EQ(held + row.cached, PoolCachedBytes()) << row.size;
            if (row.cached == 0)
                continue;
            // The block just released is the next one handed out for any size of its class.
            void* again = PoolAllocate(row.cached);
            EXPECT_EQ(block, again) << row.size;
            EXPECT_EQ(held, PoolCachedBytes()) << row.size;
            PoolRelease(again, row.cached);
        }
    });
}

TEST_F(Pool, EachThreadCachesUpToItsLimit) {
    OnFreshThread([] {
        std::vector<void*> blocks;
        for (std::size_t i = 0; i < 2 * ASN1::detail::kPoolCacheLimit / 64; ++i)
            blocks.push_back(PoolAllocate(64));
        for (void* block : blocks)
            PoolRelease(block, 64);
        EXPECT_LE(PoolCachedBytes(), ASN1::detail::kPoolCacheLimit);
        EXPECT_GT(PoolCachedBytes(), ASN1::detail::kPoolCacheLimit - 64);
        std::size_t elsewhere = 1;
        std::thread([&] { elsewhere = PoolCachedBytes(); }).join();
        EXPECT_EQ(0u, elsewhere); // another thread starts with a cache of its own
    });
}

TEST_F(Pool, ValuesReturnTheirBlocks) {
    // A decoded tree of nodes, field vectors and bit maps: freeing it fills the cache, and
    // decoding the same value again takes the blocks back.
    OnFreshThread([] {
        std::unique_ptr<AbstractData> first(AbstractData::create(&recInfo));
        ASSERT_TRUE(decodeHex("80 05 01 03 026869", *first));
        const std::size_t before = PoolCachedBytes();
        first.reset();
        const std::size_t freed = PoolCachedBytes() - before;
        EXPECT_GT(freed, 0u);
        std::unique_ptr<AbstractData> second(AbstractData::create(&recInfo));
        ASSERT_TRUE(decodeHex("80 05 01 03 026869", *second));
        EXPECT_EQ(before, PoolCachedBytes());
    });
}

} // namespace
