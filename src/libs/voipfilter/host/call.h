// Base classes of the per-call translators.
#ifndef VOIPFILTER_HOST_CALL_H
#define VOIPFILTER_HOST_CALL_H

#include <voipfilter/voipfilter.h>

#include <cstdint>

class VoIPCall {
public:
    explicit VoIPCall(void* hostContext) : hostContext_(hostContext) {}
    virtual ~VoIPCall() = default;
    VoIPCall(const VoIPCall&) = delete;
    VoIPCall& operator=(const VoIPCall&) = delete;

    // The host's opaque context, handed back as the first argument of the callbacks.
    void* HostContext() const { return hostContext_; }

    // Zeroes the state word and the reserved word and stores the current time as the start time;
    // the status word is left alone. Returns the time stored.
    static int64_t InitialiseCallInfo(voipxlate_callinformation* info);

private:
    void* hostContext_;
};

class H323Call : public VoIPCall {
public:
    explicit H323Call(void* hostContext) : VoIPCall(hostContext) {}
    ~H323Call() override = default;
};

#endif
