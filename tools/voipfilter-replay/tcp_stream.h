// One direction of a TCP connection: reassembly of the byte stream from segments, TPKT framing of
// that stream (RFC 1006: version 3, reserved 0, 16-bit length including the 4-byte header), and
// the edits that replace whole messages, with the sequence number mapping that follows from them.
//
// Positions are offsets from the first data byte of the direction (its initial sequence number
// plus one when the SYN was seen). Streams longer than 2 GiB are not supported.
#ifndef VOIPFILTER_REPLAY_TCP_STREAM_H
#define VOIPFILTER_REPLAY_TCP_STREAM_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace replay {

enum class SegmentVerdict {
    Empty,         // no payload
    InOrder,       // the next bytes of the stream (possibly filling a hole)
    Retransmitted, // every byte was seen before
    Overlap,       // partly seen before; the new bytes were taken
    OutOfOrder,    // beyond a hole; kept until the hole is filled
    BeforeStart,   // lies before the first data byte
};

class TcpReassembler {
public:
    // The sequence number of the first data byte of this direction.
    void start(uint32_t firstSequence);
    bool started() const { return started_; }
    uint32_t firstSequence() const { return first_; }

    // Offset of a sequence number from the first data byte; negative before it.
    int64_t offsetOf(uint32_t sequence) const;

    // Adds a segment. Bytes that became contiguous are appended to delivered (the first of them
    // is at deliveredOffset() as it was before the call).
    SegmentVerdict add(uint32_t sequence, const uint8_t* data, size_t length,
                       std::vector<uint8_t>& delivered);

    // The offset up to which the stream is complete.
    uint32_t deliveredOffset() const { return next_; }
    // Bytes held beyond a hole (out-of-order segments not yet usable).
    size_t heldBytes() const;

private:
    bool started_ = false;
    uint32_t first_ = 0;
    uint32_t next_ = 0;
    std::map<uint32_t, std::vector<uint8_t>> held_; // offset -> bytes beyond next_
};

// A whole TPKT frame found in the stream: [start, start + bytes.size()).
struct TpktMessage {
    uint32_t start = 0;
    std::vector<uint8_t> bytes; // header included
};

class TpktFramer {
public:
    // Appends stream bytes that begin at offset at (which must continue the previous push) and
    // returns the frames completed by them. After a bad header the rest of the stream is not
    // framed: broken() turns true and nothing more is returned.
    std::vector<TpktMessage> push(uint32_t at, const uint8_t* data, size_t length);
    bool broken() const { return broken_; }
    // Bytes of an incomplete frame still waiting for more data.
    size_t pending() const { return buffer_.size(); }

private:
    std::vector<uint8_t> buffer_;
    uint32_t bufferStart_ = 0;
    bool broken_ = false;
};

// Replacements of whole messages in one direction, and what they do to the segments that carry
// them. A replaced message is sent in full by the segment that carries its last byte (as a proxy
// that holds a message until it is complete would send it); segments carrying only earlier parts
// of it lose those bytes. Unchanged bytes keep their segments.
class StreamEdits {
public:
    // Replaces [start, end) by bytes. Replacements must not overlap.
    void replace(uint32_t start, uint32_t end, std::vector<uint8_t> bytes);
    bool empty() const { return edits_.empty(); }

    // Where the byte at offset (or the end of the stream at that offset) lies after the edits.
    // Negative offsets (the SYN) map to themselves.
    int64_t mapOffset(int64_t offset) const;

    // The payload of a segment that carried length bytes at offset.
    std::vector<uint8_t> segmentPayload(int64_t offset, const uint8_t* data, size_t length) const;

private:
    struct Edit {
        uint32_t end;
        std::vector<uint8_t> bytes;
    };
    std::map<uint32_t, Edit> edits_; // by start
};

} // namespace replay

#endif
