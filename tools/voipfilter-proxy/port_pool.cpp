#include "port_pool.h"

namespace proxy {

PortPool::PortPool(uint16_t low, uint16_t high)
    : low_(low), used_(high >= low ? static_cast<size_t>(high - low) + 1 : 0, false) {}

bool PortPool::isFree(uint32_t port) const {
    return port >= low_ && port - low_ < used_.size() && !used_[port - low_];
}

void PortPool::take(uint32_t port) {
    used_[port - low_] = true;
    ++inUse_;
}

std::optional<uint16_t> PortPool::allocatePair() {
    const size_t count = used_.size();
    for (size_t step = 0; step < count; ++step) {
        uint32_t port = low_ + static_cast<uint32_t>((next_ + step) % count);
        if (port % 2 == 0 && isFree(port) && isFree(port + 1)) {
            take(port);
            take(port + 1);
            next_ = (port + 2 - low_) % count;
            return static_cast<uint16_t>(port);
        }
    }
    return std::nullopt;
}

std::optional<uint16_t> PortPool::allocateOne() {
    const size_t count = used_.size();
    for (size_t step = 0; step < count; ++step) {
        uint32_t port = low_ + static_cast<uint32_t>((next_ + step) % count);
        if (isFree(port)) {
            take(port);
            next_ = (port + 1 - low_) % count;
            return static_cast<uint16_t>(port);
        }
    }
    return std::nullopt;
}

void PortPool::release(uint16_t port) {
    if (port >= low_ && static_cast<size_t>(port - low_) < used_.size() && used_[port - low_]) {
        used_[port - low_] = false;
        --inUse_;
    }
}

void PortPool::releasePair(uint16_t port) {
    release(port);
    release(static_cast<uint16_t>(port + 1));
}

} // namespace proxy
