#include "asn1/pool.h"

#include <new>

namespace ASN1 {
namespace detail {

#ifdef VOIPFILTER_POOL_DISABLED

void* PoolAllocate(std::size_t size) {
    return ::operator new(size);
}

void PoolRelease(void* block, std::size_t) noexcept {
    ::operator delete(block);
}

std::size_t PoolCachedBytes() noexcept {
    return 0;
}

bool PoolRecycles() noexcept {
    return false;
}

#else

thread_local PoolFreeLists poolLists;

namespace {

// Gives every cached block back to the heap when the thread ends.
struct Drain {
    bool armed = false;
    ~Drain() {
        for (PoolFreeBlock*& head : poolLists.head) {
            while (head != nullptr) {
                PoolFreeBlock* block = head;
                head = block->next;
                ::operator delete(block);
            }
        }
        poolLists.room = 0;
    }
};

thread_local Drain drain;

} // namespace

// No cached block of the size: a new one from the heap, rounded up to its class.
void* PoolAllocateFresh(std::size_t size) {
    const std::size_t sizeClass = (size - 1) / kPoolGranule;
    if (sizeClass >= kPoolClasses)
        return ::operator new(size);
    PoolFreeLists& local = poolLists;
    if (!local.registered) {
        local.registered = true;
        local.room = kPoolCacheLimit;
        drain.armed = true; // the first use schedules its destructor for this thread
    }
    return ::operator new((sizeClass + 1) * kPoolGranule);
}

std::size_t PoolCachedBytes() noexcept {
    std::size_t bytes = 0;
    for (std::size_t sizeClass = 0; sizeClass < kPoolClasses; ++sizeClass) {
        for (const PoolFreeBlock* block = poolLists.head[sizeClass]; block != nullptr;
             block = block->next)
            bytes += (sizeClass + 1) * kPoolGranule;
    }
    return bytes;
}

bool PoolRecycles() noexcept {
    return true;
}

#endif

} // namespace detail
} // namespace ASN1
