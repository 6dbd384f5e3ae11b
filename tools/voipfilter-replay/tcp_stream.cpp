#include "tcp_stream.h"

#include <algorithm>

#include "packet.h"

namespace replay {

void TcpReassembler::start(uint32_t firstSequence) {
    started_ = true;
    first_ = firstSequence;
    next_ = 0;
    held_.clear();
}

int64_t TcpReassembler::offsetOf(uint32_t sequence) const {
    return static_cast<int32_t>(sequence - first_);
}

size_t TcpReassembler::heldBytes() const {
    size_t total = 0;
    for (const auto& [offset, bytes] : held_) {
        total += bytes.size();
    }
    return total;
}

SegmentVerdict TcpReassembler::add(uint32_t sequence, const uint8_t* data, size_t length,
                                   std::vector<uint8_t>& delivered) {
    if (length == 0) {
        return SegmentVerdict::Empty;
    }
    if (!started_) {
        start(sequence);
    }
    int64_t offset = offsetOf(sequence);
    bool cut = false;
    if (offset < 0) {
        if (offset + static_cast<int64_t>(length) <= 0) {
            return SegmentVerdict::BeforeStart;
        }
        data += -offset;
        length -= static_cast<size_t>(-offset);
        offset = 0;
        cut = true;
    }
    uint32_t begin = static_cast<uint32_t>(offset);
    uint32_t end = begin + static_cast<uint32_t>(length);
    if (end <= next_) {
        return SegmentVerdict::Retransmitted;
    }
    if (begin > next_) {
        std::vector<uint8_t>& slot = held_[begin];
        if (slot.size() < length) {
            slot.assign(data, data + length);
        }
        return SegmentVerdict::OutOfOrder;
    }
    SegmentVerdict verdict =
        (begin < next_ || cut) ? SegmentVerdict::Overlap : SegmentVerdict::InOrder;
    delivered.insert(delivered.end(), data + (next_ - begin), data + length);
    next_ = end;
    for (auto it = held_.begin(); it != held_.end() && it->first <= next_;) {
        uint32_t heldEnd = it->first + static_cast<uint32_t>(it->second.size());
        if (heldEnd > next_) {
            delivered.insert(delivered.end(), it->second.begin() + (next_ - it->first),
                             it->second.end());
            next_ = heldEnd;
        }
        it = held_.erase(it);
    }
    return verdict;
}

std::vector<TpktMessage> TpktFramer::push(uint32_t at, const uint8_t* data, size_t length) {
    std::vector<TpktMessage> frames;
    if (broken_ || length == 0) {
        return frames;
    }
    if (buffer_.empty()) {
        bufferStart_ = at;
    }
    buffer_.insert(buffer_.end(), data, data + length);
    size_t used = 0;
    while (buffer_.size() - used >= 4) {
        const uint8_t* header = buffer_.data() + used;
        size_t frameLength = readBe16(header + 2);
        if (header[0] != 3 || header[1] != 0 || frameLength < 4) {
            broken_ = true;
            buffer_.clear();
            return frames;
        }
        if (buffer_.size() - used < frameLength) {
            break;
        }
        TpktMessage frame;
        frame.start = bufferStart_ + static_cast<uint32_t>(used);
        frame.bytes.assign(header, header + frameLength);
        frames.push_back(std::move(frame));
        used += frameLength;
    }
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(used));
    bufferStart_ += static_cast<uint32_t>(used);
    return frames;
}

void StreamEdits::replace(uint32_t start, uint32_t end, std::vector<uint8_t> bytes) {
    edits_[start] = Edit{end, std::move(bytes)};
}

int64_t StreamEdits::mapOffset(int64_t offset) const {
    if (offset < 0) {
        return offset;
    }
    int64_t delta = 0;
    for (const auto& [start, edit] : edits_) {
        if (start >= offset) {
            break;
        }
        if (edit.end > offset) {
            return start + delta; // inside a replaced message: held back until its end
        }
        delta += static_cast<int64_t>(edit.bytes.size()) - (int64_t{edit.end} - start);
    }
    return offset + delta;
}

std::vector<uint8_t> StreamEdits::segmentPayload(int64_t offset, const uint8_t* data,
                                                 size_t length) const {
    if (offset < 0 || edits_.empty()) {
        return std::vector<uint8_t>(data, data + length);
    }
    std::vector<uint8_t> out;
    const int64_t end = offset + static_cast<int64_t>(length);
    int64_t pos = offset;
    auto it = edits_.upper_bound(static_cast<uint32_t>(offset));
    if (it != edits_.begin()) {
        --it;
    }
    for (; it != edits_.end() && it->first < end; ++it) {
        const int64_t editStart = it->first;
        const int64_t editEnd = it->second.end;
        if (editEnd <= offset) {
            continue;
        }
        if (pos < editStart) {
            out.insert(out.end(), data + (pos - offset), data + (editStart - offset));
            pos = editStart;
        }
        if (end >= editEnd) {
            out.insert(out.end(), it->second.bytes.begin(), it->second.bytes.end());
        }
        pos = std::min(editEnd, end);
    }
    out.insert(out.end(), data + (pos - offset), data + length);
    return out;
}

} // namespace replay
