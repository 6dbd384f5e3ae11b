// Test helpers for letting tshark, an independent decoder, read what the library wrote: a
// classic pcap file of raw PDUs on link type DLT_USER0 (147), decoded with a chosen dissector.
// Tests that use it skip when tshark is not installed.
#ifndef VOIPFILTER_TESTS_TSHARK_SUPPORT_H
#define VOIPFILTER_TESTS_TSHARK_SUPPORT_H

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace tshark {

inline bool Available() {
    return std::system("tshark -v > /dev/null 2>&1") == 0;
}

// A temporary pcap file whose frames are bare PDUs. The header is written in host byte order
// with the magic number that tells readers which order that is.
class UserPcap {
public:
    UserPcap() {
        std::string pattern = ::testing::TempDir() + "voipfilter-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        const int fd = mkstemp(name.data());
        if (fd >= 0)
            close(fd);
        path_ = name.data();
    }
    ~UserPcap() { std::remove(path_.c_str()); }
    UserPcap(const UserPcap&) = delete;
    UserPcap& operator=(const UserPcap&) = delete;

    const std::string& path() const { return path_; }

    void Write(const std::vector<std::vector<unsigned char>>& pdus) const {
        std::ofstream out(path_, std::ios::binary);
        const unsigned header[] = {0xa1b2c3d4u, 0x00040002u, 0, 0, 65535, 147};
        out.write(reinterpret_cast<const char*>(header), sizeof header);
        for (const std::vector<unsigned char>& pdu : pdus) {
            const unsigned record[] = {0, 0, static_cast<unsigned>(pdu.size()),
                                       static_cast<unsigned>(pdu.size())};
            out.write(reinterpret_cast<const char*>(record), sizeof record);
            out.write(reinterpret_cast<const char*>(pdu.data()),
                      static_cast<std::streamsize>(pdu.size()));
        }
    }

private:
    std::string path_;
};

// tshark's fields for each frame, one line per frame, '|' between fields, ',' between repeated
// values. The first field is always the expert messages (empty for a clean frame). dissector is
// "h225", "h225.ras" or "h245dg".
inline std::vector<std::string> Fields(const UserPcap& file, const std::string& dissector,
                                       const std::vector<std::string>& fields) {
    std::string command = "tshark -n -r '" + file.path() +
                          "' -o 'uat:user_dlts:\"User 0 (DLT=147)\",\"" + dissector +
                          "\",\"0\",\"\",\"0\",\"\"' -T fields -E separator='|' "
                          "-E aggregator=',' -e _ws.expert.message";
    for (const std::string& f : fields)
        command += " -e " + f;
    command += " 2>/dev/null";
    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return lines;
    std::string line;
    for (int c; (c = std::fgetc(pipe)) != EOF;) {
        if (c == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(c);
        }
    }
    pclose(pipe);
    return lines;
}

} // namespace tshark

#endif
