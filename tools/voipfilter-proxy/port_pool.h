// The proxy's own ports for relays, taken from one configured range. Allocation walks on from
// where the last one stopped, so a port just freed is the last to be taken again: late packets of
// an ended call do not reach the next call that would otherwise get the same port.
#ifndef VOIPFILTER_PROXY_PORT_POOL_H
#define VOIPFILTER_PROXY_PORT_POOL_H

#include <cstdint>
#include <optional>
#include <vector>

namespace proxy {

class PortPool {
public:
    PortPool(uint16_t low, uint16_t high);

    // An even port whose odd neighbour is free too (RTP on the even one, RTCP above it).
    std::optional<uint16_t> allocatePair();
    std::optional<uint16_t> allocateOne();
    // A port that is not in use or outside the range is ignored.
    void release(uint16_t port);
    void releasePair(uint16_t port);

    size_t inUse() const { return inUse_; }
    size_t size() const { return used_.size(); }

private:
    bool isFree(uint32_t port) const;
    void take(uint32_t port);

    uint16_t low_;
    std::vector<bool> used_;
    size_t next_ = 0;
    size_t inUse_ = 0;
};

} // namespace proxy

#endif
