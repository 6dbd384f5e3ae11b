// Test helpers for letting tshark, an independent decoder, read what the library wrote: a
// classic pcap file of raw PDUs on link type DLT_USER0 (147), decoded with a chosen dissector.
// Tests that use it skip when tshark is not installed.
#ifndef VOIPFILTER_TESTS_TSHARK_SUPPORT_H
#define VOIPFILTER_TESTS_TSHARK_SUPPORT_H

#include "test_util.h"

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace tshark {

inline bool Available() {
    return RunCommand("tshark -v").exitCode == 0;
}

// tshark run over a capture file, one output line per element.
inline std::vector<std::string> Run(const std::string& path, const std::string& arguments) {
    return SplitLines(RunCommand("tshark -n -r '" + path + "' " + arguments).out);
}

// A temporary pcap file whose frames are bare PDUs.
class UserPcap {
public:
    const std::string& path() const { return file_.path(); }

    // A classic pcap file (not pcapng) written byte by byte in big-endian order, so that it is the
    // same on every host (readers tell the byte order from the magic number); a record a second.
    void Write(const std::vector<Bytes>& pdus) const {
        Bytes data;
        const auto put32 = [&data](uint32_t v) {
            for (int shift = 24; shift >= 0; shift -= 8)
                data.push_back(static_cast<unsigned char>(v >> shift));
        };
        // Magic (microsecond timestamps), version 2.4, zone, accuracy, snapshot length, link type.
        for (uint32_t v : {0xa1b2c3d4u, 0x00020004u, 0u, 0u, 65535u, 147u})
            put32(v);
        uint32_t second = 1700000000;
        for (const Bytes& pdu : pdus) {
            for (uint32_t v : {second++, 0u, uint32_t(pdu.size()), uint32_t(pdu.size())})
                put32(v);
            data.insert(data.end(), pdu.begin(), pdu.end());
        }
        std::ofstream(path(), std::ios::binary)
            .write(reinterpret_cast<const char*>(data.data()),
                   static_cast<std::streamsize>(data.size()));
    }

private:
    TempFile file_{"user0"};
};

// tshark's fields for each frame, one line per frame, '|' between fields, ',' between repeated
// values. The first field is always the expert messages (empty for a clean frame). dissector is
// "h225", "h225.ras" or "h245dg".
inline std::vector<std::string> Fields(const UserPcap& file, const std::string& dissector,
                                       const std::vector<std::string>& fields) {
    std::string arguments = "-o 'uat:user_dlts:\"User 0 (DLT=147)\",\"" + dissector +
                            "\",\"0\",\"\",\"0\",\"\"' -T fields -E separator='|' "
                            "-E aggregator=',' -e _ws.expert.message";
    for (const std::string& f : fields)
        arguments += " -e " + f;
    return Run(file.path(), arguments);
}

} // namespace tshark

#endif
