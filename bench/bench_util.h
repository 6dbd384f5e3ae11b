// Shared pieces of the benchmarks: test data, addresses, a minimal host, allocation counters, the
// check of each benchmarked message's output against its expected bytes, and fixed iteration
// counts for instruction counting.
#ifndef VOIPFILTER_BENCH_BENCH_UTIL_H
#define VOIPFILTER_BENCH_BENCH_UTIL_H

#include "alloc_counter.h"

#include <voipfilter/voipfilter.h>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace bench {

inline std::vector<unsigned char> ReadData(const std::string& relative) {
    const std::string path = std::string(VOIPFILTER_TEST_DATA_DIR) + "/" + relative;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "missing benchmark input %s\n", path.c_str());
        std::exit(1);
    }
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
}

inline sockaddr_type Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port) {
    sockaddr_type s;
    std::memset(&s, 0, sizeof s);
    s.family = VOIPXLATE_FAMILY_IPV4;
    s.addr[0] = a;
    s.addr[1] = b;
    s.addr[2] = c;
    s.addr[3] = d;
    s.port = htons(port);
    return s;
}

// The cheapest host a firewall could have: pinholes on one public address, every codec allowed,
// logging off.
inline int OpenChannel(void*, int direction, voipxlate_mediasessioninformation* session,
                       int32_t* handle) {
    sockaddr_type& rtp = direction ? session->forwardRTPTranslated : session->reverseRTPTranslated;
    sockaddr_type& rtcp =
        direction ? session->forwardRTCPTranslated : session->reverseRTCPTranslated;
    rtp = Ipv4(203, 0, 113, 1, 40000);
    rtcp = Ipv4(203, 0, 113, 1, 40001);
    *handle = 1;
    return 0;
}
inline int CloseChannel(void*, int32_t, int) {
    return 0;
}
inline int AllowCodec(void*, int, const char*) {
    return 1;
}

inline void InstallMinimalHost() {
    for (int i = 0; i < VOIPXLATE_SLOT_COUNT; ++i)
        voipxlate_setfunction(i, nullptr);
    voipxlate_setloglevel(0);
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL,
                          reinterpret_cast<voipxlate_function>(&OpenChannel));
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL,
                          reinterpret_cast<voipxlate_function>(&CloseChannel));
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, reinterpret_cast<voipxlate_function>(&AllowCodec));
}

// Before a benchmark measures anything it checks that the message it measures still comes out
// as committed in bench/expected/<name>.hex (what goes out on the wire must not change by one bit
// for the sake of speed). VOIPFILTER_UPDATE_GOLDENS=1 writes the file instead.
inline bool ExpectOutput(benchmark::State& state, const std::string& name,
                         const unsigned char* data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        hex += digits[data[i] >> 4];
        hex += digits[data[i] & 15];
        hex += (i % 32 == 31 || i + 1 == size) ? '\n' : ' ';
    }
    const std::string path = std::string(VOIPFILTER_BENCH_EXPECTED_DIR) + "/" + name + ".hex";
    const char* update = std::getenv("VOIPFILTER_UPDATE_GOLDENS");
    if (update != nullptr && update[0] == '1') {
        std::ofstream(path, std::ios::binary) << hex;
        return true;
    }
    std::ifstream in(path, std::ios::binary);
    const std::string expected((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    if (expected == hex)
        return true;
    state.SkipWithError(("output differs from " + path).c_str());
    return false;
}

inline bool ExpectOutput(benchmark::State& state, const std::string& name,
                         const std::vector<unsigned char>& bytes, size_t size) {
    return ExpectOutput(state, name, bytes.data(), size);
}

// Registration hook of every per-message benchmark: with VOIPFILTER_BENCH_ITERATIONS=N in the
// environment each runs exactly N iterations, once, so that two runs under callgrind with
// different N give the exact instruction count of one message (scripts/bench.sh).
inline void FixedIterations(benchmark::internal::Benchmark* b) {
    if (const char* n = std::getenv("VOIPFILTER_BENCH_ITERATIONS"))
        b->Iterations(std::atoll(n));
}

// Reports heap allocations per iteration between construction and Finish().
class AllocationMeter {
public:
    explicit AllocationMeter(benchmark::State& state)
        : state_(state), start_(CurrentAllocStats().allocations) {}
    void Finish() {
        const double count = double(CurrentAllocStats().allocations - start_);
        state_.counters["allocs/msg"] =
            benchmark::Counter(count / double(state_.iterations() * messagesPerIteration),
                               benchmark::Counter::kDefaults);
    }
    int messagesPerIteration = 1;

private:
    benchmark::State& state_;
    uint64_t start_;
};

} // namespace bench

#endif
