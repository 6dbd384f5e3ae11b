#include "tpkt.h"

namespace proxy {

void TpktReader::append(const uint8_t* data, size_t length) {
    if (start_ > 0 && start_ == buffer_.size()) {
        buffer_.clear();
        start_ = 0;
    }
    buffer_.insert(buffer_.end(), data, data + length);
}

TpktReader::Result TpktReader::next(std::vector<uint8_t>& payload) {
    const size_t available = buffer_.size() - start_;
    if (available < kTpktHeader) {
        return Result::NeedMore;
    }
    const uint8_t* header = buffer_.data() + start_;
    const size_t total = static_cast<size_t>(header[2]) << 8 | header[3];
    if (header[0] != 3 || header[1] != 0 || total <= kTpktHeader ||
        total - kTpktHeader > maxPayload_) {
        return Result::Error;
    }
    if (available < total) {
        return Result::NeedMore;
    }
    payload.assign(header + kTpktHeader, header + total);
    start_ += total;
    // Keep the buffer from growing with every frame: drop the consumed front once it dominates.
    if (start_ > 65536 && start_ * 2 > buffer_.size()) {
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
        start_ = 0;
    }
    return Result::Frame;
}

std::vector<uint8_t> tpktFrame(const uint8_t* payload, size_t length) {
    const size_t total = length + kTpktHeader;
    std::vector<uint8_t> frame;
    frame.reserve(total);
    frame.push_back(3);
    frame.push_back(0);
    frame.push_back(static_cast<uint8_t>(total >> 8));
    frame.push_back(static_cast<uint8_t>(total & 0xff));
    frame.insert(frame.end(), payload, payload + length);
    return frame;
}

} // namespace proxy
