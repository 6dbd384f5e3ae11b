#include "host/call.h"

#include <cstring>
#include <ctime>

int64_t VoIPCall::InitialiseCallInfo(voipxlate_callinformation* info) {
    const int64_t now = static_cast<int64_t>(std::time(nullptr));
    info->state = 0;
    std::memset(info->stateReserved, 0, sizeof info->stateReserved);
    info->startTime = now;
    info->reserved = 0;
    return now;
}
