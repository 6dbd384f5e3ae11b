// Small-block recycling for the value model. A decoded PDU is a tree of a few hundred small
// objects (nodes, field vectors, bit maps) that live for one message and are then freed
// together; the general-purpose heap spends more time on them than the codec spends on the
// octets. Freed blocks are kept on per-thread free lists, one per 16-byte size class, and handed
// out again for the next message. Larger blocks go straight to the heap.
#ifndef VOIPFILTER_ASN1_POOL_H
#define VOIPFILTER_ASN1_POOL_H

#include <cstddef>

namespace ASN1 {
namespace detail {

// Blocks of at most this many bytes are recycled.
constexpr std::size_t kPoolLargestBlock = 512;
// Bytes a thread keeps on its free lists at most; blocks freed beyond it go back to the heap,
// so a burst (one huge capability set) does not pin its memory for the life of the thread.
constexpr std::size_t kPoolCacheLimit = 256 * 1024;

// A block of at least size bytes, aligned for any object. Throws std::bad_alloc as new does.
void* PoolAllocate(std::size_t size);
// Returns a block from PoolAllocate; size must be the size it was asked for.
void PoolRelease(void* block, std::size_t size) noexcept;
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
