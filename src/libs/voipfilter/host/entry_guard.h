// The exported entry points' last line of defence. Each one that reads a peer's bytes runs its
// work through Guarded(), which turns what may end that work early into the entry point's
// refusal result:
//  - a Refusal, thrown only by the hardened flavour of the library: an assertion of the value
//    model that a peer's message reached, or an encoding that stopped half-way;
//  - running out of memory.
// The host then sees the message refused and one level-1 log line with the reason; the call
// object forgets the refused message (reset) and stays usable, and no exception reaches C code.
#ifndef VOIPFILTER_HOST_ENTRY_GUARD_H
#define VOIPFILTER_HOST_ENTRY_GUARD_H

#include "asn1/asn1.h"
#include "host/registry.h"

#include <new>

// Where a refusal is logged: the call's host context, the component's source path and the
// protocol tag its log lines begin with.
struct RefusalLog {
    void* context;
    const char* source;
    const char* tag;
};

template <class Result, class Work, class Reset>
Result Guarded(const RefusalLog& log, Result refusal, Work&& work, Reset&& reset) noexcept {
    const char* reason;
    try {
        return work();
    } catch (const ASN1::Refusal& failure) {
        reason = failure.reason();
    } catch (const std::bad_alloc&) {
        reason = "out of memory";
    }
    try {
        reset();
        VF_LOG(log.context, log.source, 1) << log.tag << "Message refused: " << reason;
    } catch (const std::bad_alloc&) {
        // Out of memory even for the log line: the refusal stands without it.
    }
    return refusal;
}

template <class Result, class Work>
Result Guarded(const RefusalLog& log, Result refusal, Work&& work) noexcept {
    return Guarded(log, refusal, static_cast<Work&&>(work), [] {});
}

#endif
