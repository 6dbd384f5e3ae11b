// Rewritten messages written to a capture file and read back by TShark: each must dissect as
// well-formed SIP, announce its own body length and carry the translated media addresses.
#include "pcap_file.h"
#include "sip_test_host.h"
#include "tshark_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

class RewrittenCapture : public SipHostTest {
protected:
    void Collect(SIPConnection* connection, const std::string& file) {
        if (Translate(connection, LoadSip(file)) == 1)
            messages_.push_back(out_);
    }
    std::vector<std::string> messages_;
};

TEST_F(RewrittenCapture, TsharkReadsWellFormedSipWithTranslatedMedia) {
    if (!tshark::Available())
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

    // Each in a UDP datagram from 10.0.0.5:5060 to 192.0.2.10:5060.
    pcap::Writer writer(pcap::kEthernet);
    for (const std::string& message : messages_)
        writer.Add(
            pcap::UdpFrame(Addr("10.0.0.5:5060"), Addr("192.0.2.10:5060"), BytesOf(message)));
    TempFile file("sip.pcap");
    ASSERT_TRUE(writer.Save(file.path()));

    // Nothing malformed and no expert error.
    EXPECT_TRUE(tshark::Run(file.path(), "-Y '_ws.malformed || _ws.expert.severity >= \"error\"' "
                                         "-T fields -e frame.number")
                    .empty())
        << "frames tshark finds malformed or in error";

    const std::vector<std::string> rows = tshark::Run(
        file.path(), "-T fields -E separator='|' -E occurrence=f -e frame.number "
                     "-e sip.Content-Length -e sdp.connection_info.address -e sdp.media.port");
    ASSERT_EQ(rows.size(), messages_.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::vector<std::string> columns = SplitLines(rows[i], '|');
        ASSERT_EQ(columns.size(), 4u) << rows[i];
        EXPECT_EQ(columns[1], std::to_string(BodyOf(messages_[i]).size())) << messages_[i];
        EXPECT_TRUE(columns[2] == "203.0.113.1" || columns[2] == "203.0.113.2") << rows[i];
        EXPECT_GE(std::atoi(columns[3].c_str()), 10000) << rows[i];
    }
}

} // namespace
