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

H225::RasMessage Grq(const std::string& rasAddress) {
    H225::RasMessage message;
    message.select(H225::RasMessage::gatekeeperRequest::id_);
    H225::GatekeeperRequest& grq = message.ref_gatekeeperRequest();
    grq.ref_requestSeqNum() = 1;
    SetProtocol(grq.ref_protocolIdentifier());
    SetTransportAddress(grq.ref_rasAddress(), rasAddress);
    return message;
}

// A GatekeeperRequest offering authentication (or not) with these algorithm OIDs.
H225::RasMessage GrqWithAlgorithms(bool authentication, std::vector<std::vector<unsigned>> oids) {
    H225::RasMessage message = Grq("192.168.1.10:1719");
    H225::GatekeeperRequest& grq = message.ref_gatekeeperRequest();
    if (authentication)
        grq.set_authenticationCapability(
            std::remove_reference_t<decltype(grq.ref_authenticationCapability())>());
    auto& list =
        grq.set_algorithmOIDs(std::remove_reference_t<decltype(grq.ref_algorithmOIDs())>());
    list.resize(unsigned(oids.size()));
    for (unsigned i = 0; i < oids.size(); ++i)
        for (unsigned arc : oids[i])
            list[i].append(arc);
    // An OBJECT IDENTIFIER that ends exactly at the end of the input is refused by the decoder,
    // so a later extension keeps the list off the end.
    grq.set_supportsAltGK(ASN1::Null());
    return message;
}

H225::RasMessage Rrq(const std::vector<std::string>& ras,
                     const std::vector<std::string>& signalling) {
    H225::RasMessage message;
    message.select(H225::RasMessage::registrationRequest::id_);
    H225::RegistrationRequest& rrq = message.ref_registrationRequest();
    rrq.ref_requestSeqNum() = 2;
    SetProtocol(rrq.ref_protocolIdentifier());
    rrq.ref_rasAddress().resize(unsigned(ras.size()));
    for (unsigned i = 0; i < ras.size(); ++i)
        SetTransportAddress(rrq.ref_rasAddress()[i], ras[i]);
    rrq.ref_callSignalAddress().resize(unsigned(signalling.size()));
    for (unsigned i = 0; i < signalling.size(); ++i)
        SetTransportAddress(rrq.ref_callSignalAddress()[i], signalling[i]);
    return message;
}

// A registration reject, or an unregistration request (for port 1720).
H225::RasMessage Removal(int alternative) {
    H225::RasMessage message;
    message.select(alternative);
    if (alternative == H225::RasMessage::registrationReject::id_) {
        message.ref_registrationReject().ref_requestSeqNum() = 3;
        SetProtocol(message.ref_registrationReject().ref_protocolIdentifier());
        message.ref_registrationReject().ref_rejectReason().select(0); // discoveryRequired
        return message;
    }
    message.ref_unregistrationRequest().ref_requestSeqNum() = 4;
    message.ref_unregistrationRequest().ref_callSignalAddress().resize(1);
    SetTransportAddress(message.ref_unregistrationRequest().ref_callSignalAddress()[0],
                        "192.168.1.10:1720");
    return message;
}

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
    // Translates the message into the transcript: result, status, rewritten message.
    void Step(Transcript& t, const std::string& what, const H225::RasMessage& message,
              int direction = 1) {
        t.Note("> " + what);
        Bytes out(4096);
        int status = 99;
        const int result = TranslateInto(handle_, direction, Encode(message), out, &status);
        t.Note("result " + std::to_string(result) + " status " + std::to_string(status));
        H225::RasMessage rewritten;
        if (result == 1 && Decode(out, rewritten))
            t.Note("sent " + rewritten.asValueNotation());
    }

    RASTranslatorContext* handle_ = nullptr;
};

// GatekeeperRequests: the endpoint's RAS address becomes the public one (a request that matches
// nothing is re-encoded all the same); with authentication offered the first algorithm is
// dropped; a RAS address that is not IP fails the message.
TEST_F(Ras, GatekeeperRequests) {
    Transcript t(5);
    Step(t, "GRQ from the endpoint", Grq("192.168.1.10:1719"));
    Step(t, "GRQ from another address", Grq("192.168.1.99:1719"));
    Step(t, "GRQ with authentication, three algorithms",
         GrqWithAlgorithms(true, {{1, 2, 3}, {1, 3, 4}, {1, 4, 5}}));
    Step(t, "GRQ with authentication, one algorithm", GrqWithAlgorithms(true, {{1, 2, 3}}));
    Step(t, "GRQ without authentication", GrqWithAlgorithms(false, {{1, 2, 3}, {1, 3, 4}}));
    H225::RasMessage noList = Grq("192.168.1.10:1719");
    noList.ref_gatekeeperRequest().set_authenticationCapability(
        std::remove_reference_t<
            decltype(noList.ref_gatekeeperRequest().ref_authenticationCapability())>());
    Step(t, "GRQ with authentication, no algorithm list", noList);
    H225::RasMessage ipx = Grq("192.168.1.10:1719");
    SetIpx(ipx.ref_gatekeeperRequest().ref_rasAddress());
    Step(t, "GRQ with an IPX address", ipx);
    ExpectGolden("ras/gatekeeper-requests.txt", t.str());
}

// RegistrationRequests: each signalling address goes through the host, whose mappings are kept
// by port (the first handle of a port stays) and removed by a reject or an unregistration, in
// the order of the port as a signed 16-bit number (40000 is -25536); without the callbacks the
// ports are still recorded and forgotten.
TEST_F(Ras, Registrations) {
    Transcript t(5);
    Step(t, "RRQ without the host", Rrq({"192.168.1.99:1719"}, {"192.168.1.10:1720"}));
    Step(t, "URQ without the host", Removal(H225::RasMessage::unregistrationRequest::id_));
    InstallHost();
    Step(
        t, "RRQ",
        Rrq({"192.168.1.10:1719", "192.168.1.11:1719"}, {"192.168.1.10:1720", "192.168.1.10:1721"}),
        0);
    Step(t, "RRQ with the same port again", Rrq({}, {"10.9.9.9:1720"}));
    Step(t, "RRQ", Rrq({}, {"192.168.1.10:5000", "192.168.1.10:40000"}));
    Step(t, "RRJ", Removal(H225::RasMessage::registrationReject::id_));
    Step(t, "RRQ", Rrq({}, {"192.168.1.10:5000", "192.168.1.10:40000", "192.168.1.10:1720"}));
    Step(t, "URQ", Removal(H225::RasMessage::unregistrationRequest::id_));
    H225::RasMessage ipx = Rrq({"192.168.1.10:1719"}, {"192.168.1.10:1720", "192.168.1.10:1721"});
    SetIpx(ipx.ref_registrationRequest().ref_callSignalAddress()[1]);
    Step(t, "RRQ with an IPX signalling address after an IP one", ipx);
    Step(t, "URQ", Removal(H225::RasMessage::unregistrationRequest::id_));
    ExpectGolden("ras/registrations.txt", t.str());
}

TEST_F(Ras, BadArgumentsAndInput) {
    const Bytes grq = Encode(Grq("192.168.1.10:1719"));
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
        Bytes out(4096);
        int status = 99;
        t.Note("> " + file);
        const int result =
            TranslateInto(ras, fromEndpoint, ReadFile(DataFile("ras/" + file)), out, &status);
        h323xlate_ras_destroy(ras);
        t.Note("result " + std::to_string(result) + " status " + std::to_string(status));
        H225::RasMessage message;
        if (result == 1 && Decode(out, message)) {
            t.Note("sent " + message.asValueNotation());
            rewritten.push_back(out);
        }
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
