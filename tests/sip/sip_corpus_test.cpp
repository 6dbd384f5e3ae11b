// Torture and robustness: every message of the RFC 4475 and RFC 5118 suites and of the captures
// gets its result; truncated datagrams and short output buffers never lead to a read or
// write outside the buffers (exactly sized heap blocks, so AddressSanitizer sees any overrun).
#include "golden.h"
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using Corpus = SipHostTest;

// Translates through exactly sized heap copies of input and output.
int TranslateExact(SIPConnection* connection, const std::string& message, unsigned capacity,
                   std::string* rewritten = nullptr) {
    std::unique_ptr<unsigned char[]> in(new unsigned char[message.size() + 1]);
    std::copy(message.begin(), message.end(), in.get());
    std::unique_ptr<unsigned char[]> out(new unsigned char[capacity + 1]);
    unsigned length = capacity;
    const int result = sipxlate_udp_translate(connection, 1, message.empty() ? nullptr : in.get(),
                                              static_cast<unsigned>(message.size()),
                                              capacity == 0 ? nullptr : out.get(), &length, 1);
    if (result > 0) {
        EXPECT_LT(length, capacity);
        if (rewritten != nullptr)
            rewritten->assign(reinterpret_cast<char*>(out.get()), length);
    }
    return result;
}

void ForgetMessage(const std::string& message) {
    std::string callId = HeaderValue(message, "Call-ID");
    if (callId.empty())
        callId = HeaderValue(message, "i");
    if (!callId.empty())
        SipHostTest::Forget(callId);
}

// Every message of the RFC 4475 and RFC 5118 torture suites and of the captures has its result
// in tests/data/sip/results.txt (-1 for the torture messages whose only rtpmap has no clock rate,
// or whose media port is bogus; 1 where IPv4 media or an origin line was translated). A rewritten
// message starts with the start line it came with and announces its own body length.
TEST_F(Corpus, EveryMessageHasItsResult) {
    SIPConnection* connection = Connect();
    std::string table;
    for (const char* dir :
         {"rfc4475", "rfc5118", "g711", "dvi4", "aaa", "fax", "dtmf2", "reqs", "sdp200", "badcl"}) {
        for (const std::string& name : ListData(std::string("sip/") + dir)) {
            const std::string file = std::string(dir) + "/" + name, message = LoadSip(file);
            ForgetMessage(message);
            std::string rewritten;
            const int result = TranslateExact(connection, message, 16384, &rewritten);
            table += file + " " + std::to_string(result) + "\n";
            if (result != 1)
                continue;
            const std::size_t start = message.find_first_of("\r\n");
            EXPECT_EQ(rewritten.compare(0, start, message, 0, start), 0) << file;
            EXPECT_EQ(HeaderValue(rewritten, "Content-Length") + HeaderValue(rewritten, "l"),
                      std::to_string(BodyOf(rewritten).size()))
                << file;
        }
        for (const std::string& name : ListData(std::string("sip/") + dir))
            ForgetMessage(LoadSip(std::string(dir) + "/" + name));
    }
    ExpectGolden("sip/results.txt", table);
}

TEST_F(Corpus, EveryTruncationOfRealMessagesIsHandled) {
    SIPConnection* connection = Connect();
    for (const char* file : {"g711/001.sip", "g711/006.sip", "dvi4/003.sip", "aaa/074.sip",
                             "rfc4475/esc01.dat", "rfc4475/mpart01.dat", "rfc5118/ipv6-in-sdp"}) {
        const std::string message = LoadSip(file);
        for (std::size_t length = 0; length <= message.size(); ++length) {
            ForgetMessage(message);
            const int result = TranslateExact(connection, message.substr(0, length), 8192);
            EXPECT_TRUE(result >= -1 && result <= 1) << file << " cut at " << length;
            if (length == 0) {
                EXPECT_EQ(result, -1) << file << ": an empty datagram is refused";
            }
        }
        ForgetMessage(message);
    }
}

TEST_F(Corpus, EveryOutputCapacityIsRespected) {
    SIPConnection* connection = Connect();
    const std::string message = LoadSip("g711/001.sip");
    ForgetMessage(message);
    std::string full;
    ASSERT_EQ(TranslateExact(connection, message, 8192, &full), 1);
    for (unsigned capacity = 0; capacity <= full.size() + 1; ++capacity) {
        ForgetMessage(message);
        const int result = TranslateExact(connection, message, capacity);
        EXPECT_EQ(result, capacity > full.size() ? 1 : -1) << capacity;
    }
    ForgetMessage(message);
}

TEST_F(Corpus, HostileDatagrams) {
    SIPConnection* connection = Connect();
    const std::string invite = LoadSip("g711/001.sip");
    for (const std::vector<std::string>& row : TableRows("sip/hostile-datagrams.tsv", 3))
        EXPECT_EQ(TranslateExact(connection, Unescape(row[1]), 4096), std::stoi(row[0])) << row[2];

    // Tens of thousands of headers: one datagram's worth of memory, no more.
    std::string many = "OPTIONS sip:x SIP/2.0\r\n";
    for (int i = 0; i < 20000; ++i)
        many += "X: y\r\n";
    EXPECT_EQ(TranslateExact(connection, many + "\r\n", 4096), 0);
    EXPECT_TRUE(
        log_->Logged("SIP  Ignoring message with insufficient fields to construct dialog ID"));

    // An INVITE whose body is cut in the middle of a line still translates what is there.
    ForgetMessage(invite);
    std::string out;
    EXPECT_EQ(TranslateExact(connection, invite.substr(0, invite.find("m=audio") + 24), 4096, &out),
              1);
    EXPECT_NE(out.find("\r\nm=audio 50376 RTP/AVP 8\r\n"), std::string::npos);
    ForgetMessage(invite);
}

} // namespace
