// Plays the firewall host on one capture: finds the signalling, hands every message to the
// library in stream order, and writes the capture as the far side would have received it.
#ifndef VOIPFILTER_REPLAY_REPLAY_H
#define VOIPFILTER_REPLAY_REPLAY_H

#include <string>

#include "host.h"
#include "report.h"

namespace replay {

struct ReplayOptions {
    HostOptions host;
    std::string output; // rewritten capture to write; empty for none
};

enum class ReplayStatus {
    Ok,
    CannotOpen,      // the capture could not be opened or is not a capture
    UnsupportedLink, // a link type the tool does not read
    CannotWrite,     // the rewritten capture could not be written
    Damaged,         // reading stopped early; the report covers the frames read
};

// Which translator families this build of the tool hands messages to.

CaptureReport replayCapture(const std::string& path, const ReplayOptions& options,
                            ReplayStatus& status);

} // namespace replay

#endif
