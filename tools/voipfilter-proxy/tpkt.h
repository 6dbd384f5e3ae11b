// TPKT framing (RFC 1006) of H.225.0 call signalling and H.245 on TCP: a 4-byte header, version
// 3, a reserved byte, and the length of the whole packet, header included, in two bytes.
#ifndef VOIPFILTER_PROXY_TPKT_H
#define VOIPFILTER_PROXY_TPKT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace proxy {

constexpr size_t kTpktHeader = 4;

class TpktReader {
public:
    explicit TpktReader(size_t maxPayload) : maxPayload_(maxPayload) {}

    enum class Result { Frame, NeedMore, Error };
    // Appends received bytes.
    void append(const uint8_t* data, size_t length);
    // Takes the next whole frame's payload (without its header) off the front. Error: not a TPKT
    // header, or a payload that is empty or larger than the proxy carries; the stream cannot be
    // resynchronised after that.
    Result next(std::vector<uint8_t>& payload);

private:
    size_t maxPayload_;
    std::vector<uint8_t> buffer_;
    size_t start_ = 0; // consumed bytes at the front of buffer_
};

// The payload with its TPKT header in front.
std::vector<uint8_t> tpktFrame(const uint8_t* payload, size_t length);

} // namespace proxy

#endif
