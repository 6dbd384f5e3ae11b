// Capture files through libpcap: pcap and pcapng in, pcap out.
#ifndef VOIPFILTER_REPLAY_CAPTURE_H
#define VOIPFILTER_REPLAY_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

namespace replay {

struct CapturedFrame {
    int64_t seconds = 0;
    int64_t microseconds = 0;
    uint32_t wireLength = 0;
    std::vector<uint8_t> data; // the captured bytes (may be fewer than wireLength)
};

struct Capture {
    int linkType = -1;
    std::vector<CapturedFrame> frames;
    // Set when reading stopped before the end of the file (a damaged or cut-off capture); the
    // frames read until then are kept.
    std::string readError;
};

// Reads a whole capture. Returns false with error set when the file cannot be opened at all.
bool readCapture(const std::string& path, Capture& capture, std::string& error);

class CaptureWriter {
public:
    CaptureWriter() = default;
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;
    ~CaptureWriter();

    bool open(const std::string& path, int linkType, std::string& error);
    // wireLength below data.size() is raised to it.
    void write(const CapturedFrame& frame, const std::vector<uint8_t>& data, uint32_t wireLength);
    // Flushes and closes; false with error set when writing failed.
    bool close(std::string& error);

private:
    void* pcap_ = nullptr;   // pcap_t*
    void* dumper_ = nullptr; // pcap_dumper_t*
};

} // namespace replay

#endif
