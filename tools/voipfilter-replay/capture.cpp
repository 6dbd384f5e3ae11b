#include "capture.h"

#include <pcap/pcap.h>

namespace replay {

namespace {

// Large enough for any rewritten frame: an IPv4 datagram plus a link header.
constexpr int kWriteSnapLength = 262144;

} // namespace

bool readCapture(const std::string& path, Capture& capture, std::string& error) {
    char message[PCAP_ERRBUF_SIZE] = {};
    pcap_t* pcap = pcap_open_offline(path.c_str(), message);
    if (pcap == nullptr) {
        error = message;
        return false;
    }
    capture.linkType = pcap_datalink(pcap);
    for (;;) {
        pcap_pkthdr* header = nullptr;
        const u_char* data = nullptr;
        int status = pcap_next_ex(pcap, &header, &data);
        if (status == PCAP_ERROR_BREAK) {
            break; // end of file
        }
        if (status != 1) {
            capture.readError = pcap_geterr(pcap);
            break;
        }
        CapturedFrame frame;
        frame.seconds = header->ts.tv_sec;
        frame.microseconds = header->ts.tv_usec;
        frame.wireLength = header->len;
        frame.data.assign(data, data + header->caplen);
        capture.frames.push_back(std::move(frame));
    }
    pcap_close(pcap);
    return true;
}

CaptureWriter::~CaptureWriter() {
    std::string ignored;
    close(ignored);
}

bool CaptureWriter::open(const std::string& path, int linkType, std::string& error) {
    pcap_t* pcap = pcap_open_dead(linkType, kWriteSnapLength);
    if (pcap == nullptr) {
        error = "cannot prepare a capture of link type " + std::to_string(linkType);
        return false;
    }
    pcap_dumper_t* dumper = pcap_dump_open(pcap, path.c_str());
    if (dumper == nullptr) {
        error = pcap_geterr(pcap);
        pcap_close(pcap);
        return false;
    }
    pcap_ = pcap;
    dumper_ = dumper;
    return true;
}

void CaptureWriter::write(const CapturedFrame& frame, const std::vector<uint8_t>& data,
                          uint32_t wireLength) {
    pcap_pkthdr header = {};
    header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(frame.seconds);
    header.ts.tv_usec = static_cast<decltype(header.ts.tv_usec)>(frame.microseconds);
    header.caplen = static_cast<bpf_u_int32>(data.size());
    header.len = wireLength < data.size() ? static_cast<bpf_u_int32>(data.size()) : wireLength;
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, data.data());
}

bool CaptureWriter::close(std::string& error) {
    bool ok = true;
    if (dumper_ != nullptr) {
        auto* dumper = static_cast<pcap_dumper_t*>(dumper_);
        if (pcap_dump_flush(dumper) != 0) {
            error = "writing the capture failed";
            ok = false;
        }
        pcap_dump_close(dumper);
        dumper_ = nullptr;
    }
    if (pcap_ != nullptr) {
        pcap_close(static_cast<pcap_t*>(pcap_));
        pcap_ = nullptr;
    }
    return ok;
}

} // namespace replay
