// Replaces the global allocation functions of the benchmark program so that each benchmark can
// report heap allocations per message and the bytes a translator keeps. Every block carries its
// size in a small header in front of it.
#include "alloc_counter.h"

#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kHeader = alignof(std::max_align_t);

AllocStats g_stats;

void* Allocate(std::size_t size) {
    void* block = std::malloc(size + kHeader);
    if (block == nullptr)
        throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    ++g_stats.allocations;
    g_stats.liveBytes += size;
    return static_cast<char*>(block) + kHeader;
}

void Release(void* p) noexcept {
    if (p == nullptr)
        return;
    void* block = static_cast<char*>(p) - kHeader;
    g_stats.liveBytes -= *static_cast<std::size_t*>(block);
    std::free(block);
}

} // namespace

const AllocStats& CurrentAllocStats() {
    return g_stats;
}

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* p) noexcept {
    Release(p);
}
void operator delete[](void* p) noexcept {
    Release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    Release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    Release(p);
}
