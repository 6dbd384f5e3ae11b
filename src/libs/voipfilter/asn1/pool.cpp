#include "asn1/pool.h"

#include <new>

// Under AddressSanitizer every block comes from the heap and goes back to it at once, so that a
// use after free or an overflow into a neighbouring block is still caught.
#if defined(__SANITIZE_ADDRESS__)
#define VOIPFILTER_POOL_DISABLED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOIPFILTER_POOL_DISABLED 1
#endif
#endif

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

namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kClasses = kPoolLargestBlock / kGranule;

struct FreeBlock {
    FreeBlock* next;
};

// Trivially destructible, so that it stays usable for the whole life of its thread: a value
// freed by a later thread-exit or static destructor still finds it (and, the lists having been
// emptied and closed, returns its block to the heap).
struct FreeLists {
    FreeBlock* head[kClasses];
    std::size_t cachedBytes;
    bool registered; // the thread's drain is registered
    bool closed;     // the thread is exiting: no more caching
};

thread_local FreeLists lists;

// Gives every cached block back to the heap when the thread ends.
struct Drain {
    bool armed = false;
    ~Drain() {
        for (FreeBlock*& head : lists.head) {
            while (head != nullptr) {
                FreeBlock* block = head;
                head = block->next;
                ::operator delete(block);
            }
        }
        lists.cachedBytes = 0;
        lists.closed = true;
    }
};

thread_local Drain drain;

std::size_t SizeClass(std::size_t size) {
    return size == 0 ? 0 : (size - 1) / kGranule;
}

} // namespace

void* PoolAllocate(std::size_t size) {
    const std::size_t sizeClass = SizeClass(size);
    if (sizeClass < kClasses) {
        FreeBlock* block = lists.head[sizeClass];
        if (block != nullptr) {
            lists.head[sizeClass] = block->next;
            lists.cachedBytes -= (sizeClass + 1) * kGranule;
            return block;
        }
        if (!lists.registered && !lists.closed) {
            lists.registered = true;
            drain.armed = true; // the first use schedules its destructor for this thread
        }
        return ::operator new((sizeClass + 1) * kGranule);
    }
    return ::operator new(size);
}

void PoolRelease(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    const std::size_t sizeClass = SizeClass(size);
    const std::size_t rounded = (sizeClass + 1) * kGranule;
    if (sizeClass < kClasses && !lists.closed && lists.registered &&
        lists.cachedBytes + rounded <= kPoolCacheLimit) {
        FreeBlock* freed = static_cast<FreeBlock*>(block);
        freed->next = lists.head[sizeClass];
        lists.head[sizeClass] = freed;
        lists.cachedBytes += rounded;
        return;
    }
    ::operator delete(block);
}

std::size_t PoolCachedBytes() noexcept {
    return lists.cachedBytes;
}

bool PoolRecycles() noexcept {
    return true;
}

#endif

} // namespace detail
} // namespace ASN1
