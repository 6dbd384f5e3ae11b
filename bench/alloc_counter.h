// Heap use of the benchmark program, counted by its replaced operator new and delete.
#ifndef VOIPFILTER_BENCH_ALLOC_COUNTER_H
#define VOIPFILTER_BENCH_ALLOC_COUNTER_H

#include <cstddef>
#include <cstdint>

struct AllocStats {
    uint64_t allocations = 0; // blocks allocated since start-up
    int64_t liveBytes = 0;    // bytes currently allocated
};

const AllocStats& CurrentAllocStats();

#endif
