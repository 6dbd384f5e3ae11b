// Torture and robustness: every message of the RFC 4475 and RFC 5118 suites and of the captures
// gets a defined result; truncated datagrams and short output buffers never lead to a read or
// write outside the buffers (exactly sized heap blocks, so AddressSanitizer sees any overrun).
#include "sip_test_host.h"

#include <gtest/gtest.h>

#include <map>
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

TEST_F(Corpus, EveryTortureMessageHasItsResult) {
    // Every message of both suites, 62 of them, has a result of 0 (nothing to translate) except
    // these. -1: an SDP line whose only rtpmap has no clock rate leaves that line without an
    // acceptable codec (wsinv, sdp01 and the other messages sharing that body), or a bogus media
    // port. 1: IPv4 media or an origin line was translated.
    const std::map<std::string, int> expected = {
        {"rfc4475/baddate.dat", -1},     {"rfc4475/badinv01.dat", -1},
        {"rfc4475/clerr.dat", -1},       {"rfc4475/escruri.dat", -1},
        {"rfc4475/ltgtruri.dat", -1},    {"rfc4475/lwsruri.dat", -1},
        {"rfc4475/lwsstart.dat", -1},    {"rfc4475/multi01.dat", -1},
        {"rfc4475/ncl.dat", -1},         {"rfc4475/quotbal.dat", -1},
        {"rfc4475/sdp01.dat", -1},       {"rfc4475/wsinv.dat", -1},
        {"rfc5118/ipv4-mapped-ipv6", 1}, {"rfc5118/ipv6-in-sdp", 1},
        {"rfc5118/mult-ip-in-sdp", 1},
    };
    SIPConnection* connection = Connect();
    std::size_t seen = 0;
    for (const char* dir : {"rfc4475", "rfc5118"}) {
        for (const std::string& file : ListSip(dir)) {
            const std::string message = LoadSip(file);
            ForgetMessage(message);
            std::string rewritten;
            const int result = TranslateExact(connection, message, 16384, &rewritten);
            ForgetMessage(message);
            const auto it = expected.find(file);
            EXPECT_EQ(result, it == expected.end() ? 0 : it->second) << file;
            ++seen;
            if (result != 1)
                continue;
            EXPECT_EQ(
                rewritten.compare(0, message.find('\n') - 1, message, 0, message.find('\n') - 1), 0)
                << file << ": the start line opens the rewritten message";
        }
    }
    EXPECT_EQ(seen, 62u);
}

TEST_F(Corpus, Ipv6MediaIsLeftAloneButTheOriginIsTranslated) {
    const std::string message = LoadSip("rfc5118/mult-ip-in-sdp");
    ForgetMessage(message);
    std::string out;
    ASSERT_EQ(TranslateExact(Connect(), message, 4096, &out), 1);
    ForgetMessage(message);
    ExpectLines(out, {"o=bob 280744730 28977631 IN IP4 198.51.100.7", "m=audio 32334 RTP/AVP 0",
                      "c=IN IP4 203.0.113.1", "m=video 6024 RTP/AVP 107",
                      "a=rtpmap:107 H263-1998/90000"});
    EXPECT_EQ(out.find("IP6"), std::string::npos) << "an IPv6 c= line is not carried over";
    EXPECT_TRUE(LogCapture::Has("SIP  Ignoring SDP m= line with unparseable c=\n"));
    EXPECT_EQ(HeaderValue(out, "Content-Length"), std::to_string(BodyOf(out).size()));
}

TEST_F(Corpus, EveryCapturedDatagramHasADefinedResult) {
    SIPConnection* connection = Connect();
    for (const char* dir : {"g711", "dvi4", "aaa", "fax", "dtmf2", "reqs", "sdp200", "badcl"}) {
        for (const std::string& file : ListSip(dir)) {
            const std::string message = LoadSip(file);
            std::string rewritten;
            const int result = TranslateExact(connection, message, 16384, &rewritten);
            EXPECT_TRUE(result >= -1 && result <= 1) << file << " " << result;
            if (result == 1) {
                EXPECT_EQ(HeaderValue(rewritten, "Content-Length"),
                          std::to_string(BodyOf(rewritten).size()))
                    << file;
            }
        }
        for (const std::string& file : ListSip(dir))
            ForgetMessage(LoadSip(file));
    }
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
    const struct {
        const char* name;
        std::string text;
        int result;
    } cases[] = {
        {"only a line end", "\r\n", 0},
        {"lone CR", "\r", 0},
        {"CR as last byte", "INVITE sip:x SIP/2.0\r", 0},
        {"no empty line", "OPTIONS sip:x SIP/2.0\r\nVia: a\r\nFrom: b", 0},
        {"NUL inside the start line", std::string("INV\0ITE sip:x SIP/2.0\r\n\r\n", 26), 0},
        {"NUL inside a header", std::string("INVITE sip:x SIP/2.0\r\nCall-\0ID: 1\r\n\r\n", 38), 0},
        {"binary", std::string("\x00\xff\xfe\x80 \x01:\x02\r\n\r\n\xff", 12), 0},
        {"colon only headers", "INVITE x SIP/2.0\r\n:\r\n:\r\n\r\n", 0},
        {"header without colon", "BYE x SIP/2.0\r\nno colon here\r\n\r\n", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TranslateExact(connection, c.text, 4096), c.result) << c.name;

    // Tens of thousands of headers: one datagram's worth of memory, no more.
    std::string many = "OPTIONS sip:x SIP/2.0\r\n";
    for (int i = 0; i < 20000; ++i)
        many += "X: y\r\n";
    EXPECT_EQ(TranslateExact(connection, many + "\r\n", 4096), 0);
    EXPECT_TRUE(
        LogCapture::Has("SIP  Ignoring message with insufficient fields to construct dialog ID\n"));

    // An INVITE whose body is cut in the middle of a line still translates what is there.
    ForgetMessage(invite);
    std::string out;
    EXPECT_EQ(TranslateExact(connection, invite.substr(0, invite.find("m=audio") + 24), 4096, &out),
              1);
    EXPECT_TRUE(HasLine(out, "m=audio 50376 RTP/AVP 8"));
    ForgetMessage(invite);
}

} // namespace
