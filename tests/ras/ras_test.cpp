// RAS translation through the C API with a recording host. Message sequences are compared whole
// with golden transcripts at level 5 (results, status words, host callbacks, log lines, rewritten
// messages in value notation); every captured RAS message's outcome is one golden table.
#include "ras/ras.h"

#include "golden.h"
#include "pdu_util.h"
#include "registry_guard.h"
#include "transcript.h"
#include "tshark_support.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace {

// --- The recording host ----------------------------------------------------------------------

int g_context;
uintptr_t g_nextHandle;

// Maps every signalling address to the public address 203.0.113.1 with the port + 10000.
void TranslateAddr(void* context, int direction, const sockaddr_type* found,
                   sockaddr_type* replacement, void** mapping) {
    EXPECT_EQ(context, &g_context);
    EXPECT_TRUE(*found == *replacement) << "pre-filled with a copy";
    EXPECT_EQ(*mapping, nullptr);
    *replacement = Addr("203.0.113.1");
    replacement->port = htons(uint16_t(ntohs(found->port) + 10000));
    *mapping = reinterpret_cast<void*>(++g_nextHandle);
    Transcript::Event("translateAddr dir=" + std::to_string(direction) + " " + Text(*found) +
                      " -> " + Text(*replacement) + " mapping=" + std::to_string(g_nextHandle));
}

void RemoveMapping(void* context, void* mapping) {
    EXPECT_EQ(context, &g_context);
    Transcript::Event("removeMapping " + std::to_string(reinterpret_cast<uintptr_t>(mapping)));
}

// The C entry point with out as the output buffer; out keeps the length the call reports back.
int TranslateInto(RASTranslatorContext* ras, int direction, const Bytes& in, Bytes& out,
                  int* status) {
    unsigned outLength = unsigned(out.size());
    const int result =
        h323xlate_ras_translatepdu(ras, direction, in.empty() ? out.data() : in.data(),
                                   unsigned(in.size()), out.data(), &outLength, status);
    EXPECT_LE(outLength, out.size());
    out.resize(outLength);
    return result;
}

// Translates the message into the transcript: result, status, rewritten message (returned, or
// nothing when the message was not rewritten).
Bytes Step(Transcript& t, RASTranslatorContext* ras, const std::string& what, const Bytes& message,
           int direction) {
    t.Note("> " + what);
    Bytes out(4096);
    int status = 99;
    const int result = TranslateInto(ras, direction, message, out, &status);
    t.Note("result " + std::to_string(result) + " status " + std::to_string(status));
    H225::RasMessage rewritten;
    if (result != 1 || !Decode(out, rewritten))
        return {};
    t.Note("sent " + rewritten.asValueNotation());
    return out;
}

void InstallHost() {
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR,
                          reinterpret_cast<voipxlate_function>(&TranslateAddr));
    voipxlate_setfunction(VOIPXLATE_REMOVE_MAPPING,
                          reinterpret_cast<voipxlate_function>(&RemoveMapping));
}

// A translator for the endpoint 192.168.1.10 behind the firewall, announced as 203.0.113.1.
class Ras : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        g_nextHandle = 0;
        const sockaddr_type first = Addr("192.168.1.10:1719"), second = Addr("198.51.100.1:1719"),
                            third = Addr("203.0.113.1:1719"), fourth = Addr("198.51.100.1:1719");
        handle_ = h323xlate_ras_create(&g_context, &first, &second, &third, &fourth);
    }
    void TearDown() override {
        h323xlate_ras_destroy(handle_);
        RegistryTest::TearDown();
    }
    RASTranslatorContext* handle_ = nullptr;
};

// The message sequences of tests/data/ras/<name>.flow, each compared whole with <name>.txt.
class RasFlow : public Ras, public ::testing::WithParamInterface<std::string> {};

TEST_P(RasFlow, MatchesItsTranscript) {
    Transcript t(5);
    for (const auto& [label, pdu] : ReadHexRows("ras/" + GetParam() + ".flow")) {
        if (label == "host")
            InstallHost();
        else
            Step(t, handle_, label.substr(2), pdu, std::stoi(label));
    }
    ExpectGolden("ras/" + GetParam() + ".txt", t.str());
}

INSTANTIATE_TEST_SUITE_P(Ras, RasFlow, ::testing::ValuesIn(FlowNames("ras")), TestName);

TEST_F(Ras, BadArgumentsAndInput) {
    const Bytes grq = HexRow("ras/gatekeeper-requests.flow", "1 GRQ from the endpoint");
    Bytes out(4096);
    unsigned outLength = unsigned(out.size());
    int status = 99;
    EXPECT_EQ(TranslateInto(nullptr, 1, grq, out, &status), -1);
    EXPECT_EQ(status, 99);
    h323xlate_ras_destroy(nullptr);
    EXPECT_EQ(h323xlate_ras_translatepdu(handle_, 1, nullptr, 10, out.data(), &outLength, &status),
              -1);
    EXPECT_EQ(status, -1);
    // Every truncation of a valid request either fails to decode or is a shorter valid message;
    // nothing reads past the input (checked under ASan).
    for (size_t n = 0; n < grq.size(); ++n) {
        out.resize(4096);
        const int r =
            TranslateInto(handle_, 1, Bytes(grq.begin(), grq.begin() + long(n)), out, &status);
        EXPECT_TRUE(r == -2 || r == 0 || r == 1) << n;
    }
    EXPECT_EQ(TranslateInto(handle_, 1, {0xFF, 0xFF, 0xFF, 0xFF}, out, &status), -2);
    // An output buffer one byte short of the encoding: -1, buffer and length untouched; exactly
    // big enough: rewritten.
    Bytes small(grq.size() - 1, 0xAB);
    EXPECT_EQ(TranslateInto(handle_, 1, grq, small, &status), -1);
    EXPECT_EQ(small, Bytes(grq.size() - 1, 0xAB));
    Bytes exact(grq.size());
    EXPECT_EQ(TranslateInto(handle_, 1, grq, exact, &status), 1);
    EXPECT_EQ(exact.size(), grq.size());
}

// Every captured RAS message (tests/data/ras/index.txt) goes through a translator created for its
// endpoint (first = the endpoint as seen on the wire, third = 203.0.113.7), with the recording
// host; its result, status, host calls and rewritten message form the golden table. tshark reads
// the rewritten messages as well formed, with the endpoints' own addresses gone.
TEST_F(Ras, CapturedMessages) {
    InstallHost();
    Transcript t(0);
    std::ifstream index(DataFile("ras/index.txt"));
    std::string file, source, destination;
    int alternative = 0;
    std::vector<Bytes> rewritten;
    while (index >> file >> source >> destination >> alternative) {
        const bool fromEndpoint = destination.find(":1719") != std::string::npos &&
                                  (alternative == 0 || alternative == 3 || alternative == 9 ||
                                   alternative == 15 || alternative == 21);
        const sockaddr_type endpoint = Addr(fromEndpoint ? source : destination);
        const sockaddr_type gatekeeper = Addr(fromEndpoint ? destination : source);
        const sockaddr_type announced = Addr("203.0.113.7:1719");
        RASTranslatorContext* ras =
            h323xlate_ras_create(&g_context, &endpoint, &gatekeeper, &announced, &gatekeeper);
        const Bytes out = Step(t, ras, file, ReadFile(DataFile("ras/" + file)), fromEndpoint);
        h323xlate_ras_destroy(ras);
        if (!out.empty())
            rewritten.push_back(out);
    }
    ExpectGolden("ras/captured.txt", t.str());

    if (!tshark::Available())
        GTEST_SKIP() << "tshark is not installed; the independent decoder check needs it";
    tshark::UserPcap pcap;
    pcap.Write(rewritten);
    const std::vector<std::string> lines =
        tshark::Fields(pcap, "h225.ras", {"h225.RasMessage", "h225.ipV4"});
    ASSERT_EQ(lines.size(), rewritten.size());
    for (const std::string& line : lines) {
        EXPECT_EQ(line.rfind("|", 0), 0u) << "expert message: " << line;
        EXPECT_NE(line.find("203.0.113."), std::string::npos) << line;
        EXPECT_EQ(line.find("17.2.0.124"), std::string::npos) << line;
        EXPECT_EQ(line.find("10.47.208.204"), std::string::npos) << line;
    }
}

} // namespace
