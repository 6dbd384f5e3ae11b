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
// freed by a later thread-exit or static destructor still finds it (and, the room being zero by
// then, returns its block to the heap).
struct FreeLists {
    FreeBlock* head[kClasses];
    std::size_t room; // bytes the lists may still take; zero until the drain is scheduled
    bool registered;  // the drain has been scheduled (or has run)
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
        lists.room = 0;
    }
};

thread_local Drain drain;

// Size 0 wraps round to a class past the last, so it is served by the heap.
std::size_t SizeClass(std::size_t size) {
    return (size - 1) / kGranule;
}

} // namespace

void* PoolAllocate(std::size_t size) {
    const std::size_t sizeClass = SizeClass(size);
    if (sizeClass >= kClasses)
        return ::operator new(size);
    FreeLists& local = lists;
    FreeBlock* block = local.head[sizeClass];
    if (block != nullptr) {
        local.head[sizeClass] = block->next;
        local.room += (sizeClass + 1) * kGranule;
        return block;
    }
    if (!local.registered) {
        local.registered = true;
        local.room = kPoolCacheLimit;
        drain.armed = true; // the first use schedules its destructor for this thread
    }
    return ::operator new((sizeClass + 1) * kGranule);
}

void PoolRelease(void* block, std::size_t size) noexcept {
    const std::size_t sizeClass = SizeClass(size);
    const std::size_t rounded = (sizeClass + 1) * kGranule;
    FreeLists& local = lists;
    if (sizeClass < kClasses && block != nullptr && rounded <= local.room) {
        FreeBlock* freed = static_cast<FreeBlock*>(block);
        freed->next = local.head[sizeClass];
        local.head[sizeClass] = freed;
        local.room -= rounded;
        return;
    }
    ::operator delete(block);
}

std::size_t PoolCachedBytes() noexcept {
    std::size_t bytes = 0;
    for (std::size_t sizeClass = 0; sizeClass < kClasses; ++sizeClass) {
        for (const FreeBlock* block = lists.head[sizeClass]; block != nullptr; block = block->next)
            bytes += (sizeClass + 1) * kGranule;
    }
    return bytes;
}

bool PoolRecycles() noexcept {
    return true;
}

#endif

} // namespace detail
} // namespace ASN1
