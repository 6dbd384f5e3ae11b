// Small-block recycling for the value model. A decoded PDU is a tree of a few hundred small
// objects (nodes, field vectors, bit maps) that live for one message and are then freed
// together; the general-purpose heap spends more time on them than the codec spends on the
// octets. Freed blocks are kept on per-thread free lists, one per 16-byte size class, and handed
// out again for the next message. Larger blocks go straight to the heap.
#ifndef VOIPFILTER_ASN1_POOL_H
#define VOIPFILTER_ASN1_POOL_H

#include <cstddef>
#include <new>

namespace ASN1 {
namespace detail {

// Blocks of at most this many bytes are recycled.
constexpr std::size_t kPoolLargestBlock = 512;
// Bytes a thread keeps on its free lists at most; blocks freed beyond it go back to the heap,
// so a burst (one huge capability set) does not pin its memory for the life of the thread.
constexpr std::size_t kPoolCacheLimit = 256 * 1024;

// Under AddressSanitizer every block comes from the heap and goes back to it at once, so that a
// use after free or an overflow into a neighbouring block is still caught.
#if defined(__SANITIZE_ADDRESS__)
#define VOIPFILTER_POOL_DISABLED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOIPFILTER_POOL_DISABLED 1
#endif
#endif

// PoolAllocate(size): a block of at least size bytes, aligned for any object. Throws
// std::bad_alloc as new does.
// PoolRelease(block, size): returns a block from PoolAllocate; size must be the size it was asked
// for.
#ifdef VOIPFILTER_POOL_DISABLED
void* PoolAllocate(std::size_t size);
void PoolRelease(void* block, std::size_t size) noexcept;
#else
// The free lists of the calling thread, one per 16-byte size class. Trivially constructible and
// destructible, so that it stays usable for the whole life of its thread: a value freed by a
// later thread-exit or static destructor still finds it (and, the room being zero by then,
// returns its block to the heap).
constexpr std::size_t kPoolGranule = 16;
constexpr std::size_t kPoolClasses = kPoolLargestBlock / kPoolGranule;
struct PoolFreeBlock {
    PoolFreeBlock* next;
};
struct PoolFreeLists {
    PoolFreeBlock* head[kPoolClasses];
    std::size_t room; // bytes the lists may still take; zero until the drain is scheduled
    bool registered;  // the drain has been scheduled (or has run)
};
extern thread_local PoolFreeLists poolLists;

// The common cases, a cached block taken or a block cached, inline; the rest in pool.cpp. Size 0
// wraps round to a class past the last, so it is served by the heap.
void* PoolAllocateFresh(std::size_t size);
inline void* PoolAllocate(std::size_t size) {
    const std::size_t sizeClass = (size - 1) / kPoolGranule;
    if (sizeClass < kPoolClasses) {
        PoolFreeLists& local = poolLists;
        PoolFreeBlock* block = local.head[sizeClass];
        if (block != nullptr) {
            local.head[sizeClass] = block->next;
            local.room += (sizeClass + 1) * kPoolGranule;
            return block;
        }
    }
    return PoolAllocateFresh(size);
}
inline void PoolRelease(void* block, std::size_t size) noexcept {
    const std::size_t sizeClass = (size - 1) / kPoolGranule;
    const std::size_t rounded = (sizeClass + 1) * kPoolGranule;
    PoolFreeLists& local = poolLists;
    if (sizeClass < kPoolClasses && block != nullptr && rounded <= local.room) {
        PoolFreeBlock* freed = static_cast<PoolFreeBlock*>(block);
        freed->next = local.head[sizeClass];
        local.head[sizeClass] = freed;
        local.room -= rounded;
        return;
    }
    ::operator delete(block);
}
#endif
// Bytes the calling thread holds on its free lists (for tests and benchmarks).
std::size_t PoolCachedBytes() noexcept;
// False in builds that hand every block straight to the heap (AddressSanitizer builds, so that
// it still sees each block's life).
bool PoolRecycles() noexcept;

// Standard allocator over the pool, for the vectors inside values.
template <class T> class PoolAllocator {
public:
    typedef T value_type;

    PoolAllocator() noexcept = default;
    template <class U> PoolAllocator(const PoolAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) { return static_cast<T*>(PoolAllocate(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) noexcept { PoolRelease(p, n * sizeof(T)); }

    template <class U> bool operator==(const PoolAllocator<U>&) const noexcept { return true; }
    template <class U> bool operator!=(const PoolAllocator<U>&) const noexcept { return false; }
};

} // namespace detail
} // namespace ASN1

#endif
