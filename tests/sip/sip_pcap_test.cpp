// Rewritten messages written to a capture file and read back by TShark: each must dissect as
// well-formed SIP, announce its own body length and carry the translated media addresses.
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Classic pcap (not pcapng), written byte by byte in big-endian order so that the file is the
// same on every host; readers recognise the byte order from the magic number.
class PcapWriter {
public:
    PcapWriter() {
        Put32(0xa1b2c3d4); // magic, microsecond timestamps
        Put16(2);          // version 2.4
        Put16(4);
        Put32(0); // thiszone
        Put32(0); // sigfigs
        Put32(65535);
        Put32(1); // LINKTYPE_ETHERNET
    }

    // One Ethernet/IPv4/UDP frame from 10.0.0.5:5060 to 192.0.2.10:5060.
    void Add(const std::string& payload) {
        const uint32_t udpLength = static_cast<uint32_t>(8 + payload.size());
        const uint32_t ipLength = 20 + udpLength;
        const uint32_t frameLength = 14 + ipLength;
        Put32(1700000000 + frames_); // seconds
        Put32(0);
        Put32(frameLength);
        Put32(frameLength);
        // Ethernet: destination, source, IPv4.
        for (uint8_t b : {0x02, 0, 0, 0, 0, 2, 0x02, 0, 0, 0, 0, 1})
            data_.push_back(static_cast<char>(b));
        Put16(0x0800);
        // IPv4 header with its checksum (RFC 791).
        std::vector<uint8_t> ip = {0x45,
                                   0,
                                   static_cast<uint8_t>(ipLength >> 8),
                                   static_cast<uint8_t>(ipLength),
                                   0,
                                   static_cast<uint8_t>(frames_),
                                   0x40,
                                   0,
                                   64,
                                   17,
                                   0,
                                   0,
                                   10,
                                   0,
                                   0,
                                   5,
                                   192,
                                   0,
                                   2,
                                   10};
        uint32_t sum = 0;
        for (std::size_t i = 0; i < ip.size(); i += 2)
            sum += (ip[i] << 8) | ip[i + 1];
        while (sum > 0xffff)
            sum = (sum & 0xffff) + (sum >> 16);
        ip[10] = static_cast<uint8_t>(~sum >> 8);
        ip[11] = static_cast<uint8_t>(~sum);
        data_.append(ip.begin(), ip.end());
        Put16(5060);
        Put16(5060);
        Put16(static_cast<uint16_t>(udpLength));
        Put16(0); // no UDP checksum
        data_ += payload;
        ++frames_;
    }

    bool Write(const std::string& path) const {
        std::ofstream file(path, std::ios::binary);
        file.write(data_.data(), static_cast<std::streamsize>(data_.size()));
        return file.good();
    }

private:
    void Put16(uint16_t v) {
        data_.push_back(static_cast<char>(v >> 8));
        data_.push_back(static_cast<char>(v));
    }
    void Put32(uint32_t v) {
        Put16(static_cast<uint16_t>(v >> 16));
        Put16(static_cast<uint16_t>(v));
    }

    std::string data_;
    uint32_t frames_ = 0;
};

bool HaveTshark() {
    return std::system("command -v tshark >/dev/null 2>&1") == 0;
}

std::string RunCommand(const std::string& command) {
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
            output.append(buffer, n);
        pclose(pipe);
    }
    return output;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream stream(text);
    while (std::getline(stream, part, separator))
        parts.push_back(part);
    return parts;
}

class RewrittenCapture : public SipHostTest {
protected:
    void Collect(SIPConnection* connection, const std::string& file) {
        if (Translate(connection, LoadSip(file)) == 1)
            messages_.push_back(out_);
    }
    std::vector<std::string> messages_;
};

TEST_F(RewrittenCapture, TsharkReadsWellFormedSipWithTranslatedMedia) {
    if (!HaveTshark())
        GTEST_SKIP() << "tshark is not installed; the capture check needs it";

    SIPConnection* connection = Connect();
    const struct {
        const char* callId;
        std::vector<const char*> files;
    } calls[] = {
        {"12013223@200.57.7.195", {"g711/001.sip", "g711/002.sip", "g711/006.sip"}},
        {"1-2187@10.0.2.20", {"dvi4/001.sip", "dvi4/002.sip", "dvi4/003.sip"}},
        {"11894297-4432a9f8@192.168.1.2", {"aaa/072.sip", "aaa/073.sip", "aaa/074.sip"}},
        {"00e9d4a500e9d48-0015-0001-0000-0000@10.35.40.25", {"fax/001.sip"}},
    };
    for (const auto& call : calls) {
        Forget(call.callId);
        for (const char* file : call.files)
            Collect(connection, file);
        Forget(call.callId);
    }
    ASSERT_EQ(messages_.size(), 7u);

    PcapWriter pcap;
    for (const std::string& message : messages_)
        pcap.Add(message);
    const std::string path = ::testing::TempDir() + "voipfilter_sip_rewritten.pcap";
    ASSERT_TRUE(pcap.Write(path));

    // Nothing malformed and no expert error.
    const std::string errors =
        RunCommand("tshark -n -r '" + path +
                   "' -Y '_ws.malformed || _ws.expert.severity >= \"error\"' "
                   "-T fields -e frame.number 2>/dev/null");
    EXPECT_EQ(errors, "") << "frames tshark finds malformed or in error";

    const std::string fields = RunCommand(
        "tshark -n -r '" + path +
        "' -T fields -E separator='|' -E occurrence=f -e frame.number -e sip.Content-Length "
        "-e sdp.connection_info.address -e sdp.media.port 2>/dev/null");
    const std::vector<std::string> rows = Split(fields, '\n');
    ASSERT_EQ(rows.size(), messages_.size()) << fields;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::vector<std::string> columns = Split(rows[i], '|');
        ASSERT_EQ(columns.size(), 4u) << rows[i];
        EXPECT_EQ(columns[1], std::to_string(BodyOf(messages_[i]).size())) << messages_[i];
        EXPECT_TRUE(columns[2] == "203.0.113.1" || columns[2] == "203.0.113.2") << rows[i];
        EXPECT_GE(std::atoi(columns[3].c_str()), 10000) << rows[i];
    }
    std::remove(path.c_str());
}

} // namespace
