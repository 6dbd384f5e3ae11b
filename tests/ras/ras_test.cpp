// RAS translation through the C API, with a recording host: GatekeeperRequest and
// RegistrationRequest rewriting, the signalling-port mapping table, and real RAS traffic.
#include "modules/h323_messages.h"
#include "ras/ras.h"

#include "log_capture.h"
#include "pdu_util.h"
#include "registry_guard.h"
#include "tshark_support.h"

#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

Bytes ReadBytes(const std::string& file) {
    return ReadFile(DataFile("ras/" + file));
}

H225::RasMessage Grq(const std::string& rasAddress) {
    H225::RasMessage message;
    message.select(H225::RasMessage::gatekeeperRequest::id_);
    H225::GatekeeperRequest& grq = message.ref_gatekeeperRequest();
    grq.ref_requestSeqNum() = 1;
    SetProtocol(grq.ref_protocolIdentifier());
    SetTransportAddress(grq.ref_rasAddress(), rasAddress);
    return message;
}

using Oids =
    std::remove_reference_t<decltype(std::declval<H225::GatekeeperRequest&>().ref_algorithmOIDs())>;
using AuthList = std::remove_reference_t<
    decltype(std::declval<H225::GatekeeperRequest&>().ref_authenticationCapability())>;

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

H225::RasMessage Rrj() {
    H225::RasMessage message;
    message.select(H225::RasMessage::registrationReject::id_);
    H225::RegistrationReject& rrj = message.ref_registrationReject();
    rrj.ref_requestSeqNum() = 3;
    SetProtocol(rrj.ref_protocolIdentifier());
    rrj.ref_rejectReason().select(0); // discoveryRequired
    return message;
}

H225::RasMessage Urq() {
    H225::RasMessage message;
    message.select(H225::RasMessage::unregistrationRequest::id_);
    H225::UnregistrationRequest& urq = message.ref_unregistrationRequest();
    urq.ref_requestSeqNum() = 4;
    urq.ref_callSignalAddress().resize(1);
    SetTransportAddress(urq.ref_callSignalAddress()[0], "192.168.1.10:1720");
    return message;
}

// --- The recording host ----------------------------------------------------------------------

struct HostCall {
    std::string what; // "translate" or "remove"
    int direction;
    std::string found;
    uintptr_t handle;
};

std::vector<HostCall>& Calls() {
    static std::vector<HostCall> calls;
    return calls;
}

int g_context;
uintptr_t g_nextHandle;

// Maps every signalling address to the public address 203.0.113.1 with the port + 10000.
void TranslateAddr(void* context, int direction, const sockaddr_type* found,
                   sockaddr_type* replacement, void** mapping) {
    EXPECT_EQ(context, &g_context);
    EXPECT_EQ(std::memcmp(found, replacement, sizeof *found), 0) << "pre-filled with a copy";
    EXPECT_EQ(*mapping, nullptr);
    Calls().push_back({"translate", direction, Text(*found), ++g_nextHandle});
    *replacement = Addr("203.0.113.1");
    replacement->port = htons(uint16_t(ntohs(found->port) + 10000));
    *mapping = reinterpret_cast<void*>(g_nextHandle);
}

void RemoveMapping(void* context, void* mapping) {
    EXPECT_EQ(context, &g_context);
    Calls().push_back({"remove", 0, "", reinterpret_cast<uintptr_t>(mapping)});
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

class Ras : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        Calls().clear();
        g_nextHandle = 0;
        const sockaddr_type first = Addr("192.168.1.10:1719"), second = Addr("198.51.100.1:1719"),
                            third = Addr("203.0.113.1:1719"), fourth = Addr("198.51.100.1:1719");
        handle_ = h323xlate_ras_create(&g_context, &first, &second, &third, &fourth);
    }
    void TearDown() override {
        h323xlate_ras_destroy(handle_);
        RegistryTest::TearDown();
    }
    void InstallHost() {
        voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR,
                              reinterpret_cast<voipxlate_function>(&TranslateAddr));
        voipxlate_setfunction(VOIPXLATE_REMOVE_MAPPING,
                              reinterpret_cast<voipxlate_function>(&RemoveMapping));
    }

    // Translates the message; on a rewrite, decodes the output into *rewritten.
    int Translate(const Bytes& in, int* status, H225::RasMessage* rewritten = nullptr,
                  int direction = 1) {
        Bytes out(4096);
        const int result = TranslateInto(handle_, direction, in, out, status);
        if (result == 1 && rewritten != nullptr) {
            EXPECT_TRUE(Decode(out, *rewritten));
        }
        return result;
    }
    template <class T>
    int Translate(T& message, int* status, H225::RasMessage* rewritten = nullptr,
                  int direction = 1) {
        return Translate(Encode(message), status, rewritten, direction);
    }

    RASTranslatorContext* handle_ = nullptr;
};

TEST_F(Ras, KeepsTheFourAddressesInArgumentOrder) {
    EXPECT_EQ(Text(handle_->Address(0)), "192.168.1.10:1719");
    EXPECT_EQ(Text(handle_->Address(1)), "198.51.100.1:1719");
    EXPECT_EQ(Text(handle_->Address(2)), "203.0.113.1:1719");
    EXPECT_EQ(Text(handle_->Address(3)), "198.51.100.1:1719");

    // A null address counts as all zero.
    RASTranslatorContext* ras = h323xlate_ras_create(nullptr, nullptr, nullptr, nullptr, nullptr);
    sockaddr_type zero;
    std::memset(&zero, 0, sizeof zero);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(std::memcmp(&ras->Address(i), &zero, sizeof zero), 0) << i;
    h323xlate_ras_destroy(ras);
}

// --- GatekeeperRequest -------------------------------------------------------------------------

TEST_F(Ras, GatekeeperRequestFromTheEndpointAnnouncesThePublicAddress) {
    H225::RasMessage grq = Grq("192.168.1.10:1719");
    int status = 99;
    H225::RasMessage out;
    EXPECT_EQ(Translate(grq, &status, &out), 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(H225Text(out.ref_gatekeeperRequest().ref_rasAddress()), "203.0.113.1:1719");
}

TEST_F(Ras, GatekeeperRequestIsReencodedEvenWhenNothingMatches) {
    H225::RasMessage grq = Grq("192.168.1.99:1719");
    const Bytes in = Encode(grq);
    Bytes out(4096);
    EXPECT_EQ(TranslateInto(handle_, 1, in, out, nullptr), 1);
    EXPECT_EQ(out, in);
}

TEST_F(Ras, AuthenticationCapabilityDropsTheFirstAlgorithm) {
    struct Case {
        bool authentication;
        std::vector<std::vector<unsigned>> oids;
        std::vector<unsigned> firstArcsAfter; // second arc of each remaining OID
    };
    const Case cases[] = {
        {true, {{1, 2, 3}, {1, 3, 4}, {1, 4, 5}}, {3, 4}},
        {true, {{1, 2, 3}}, {}},
        {false, {{1, 2, 3}, {1, 3, 4}}, {2, 3}}, // without the capability the list stays
    };
    for (const Case& c : cases) {
        H225::RasMessage message = Grq("192.168.1.10:1719");
        H225::GatekeeperRequest& grq = message.ref_gatekeeperRequest();
        if (c.authentication)
            grq.set_authenticationCapability(AuthList());
        Oids oids;
        oids.resize(unsigned(c.oids.size()));
        for (unsigned i = 0; i < c.oids.size(); ++i)
            for (unsigned arc : c.oids[i])
                oids[i].append(arc);
        grq.set_algorithmOIDs(oids);
        // An OBJECT IDENTIFIER that ends exactly at the end of the input is refused by the
        // decoder, so a later extension keeps the list off the end.
        grq.set_supportsAltGK(ASN1::Null());

        H225::RasMessage out;
        ASSERT_EQ(Translate(message, nullptr, &out), 1);
        const Oids& after = out.ref_gatekeeperRequest().ref_algorithmOIDs();
        ASSERT_EQ(after.size(), c.firstArcsAfter.size());
        for (unsigned i = 0; i < after.size(); ++i)
            EXPECT_EQ(after[i][1], c.firstArcsAfter[i]);
    }
}

TEST_F(Ras, AuthenticationCapabilityWithoutAlgorithmListPasses) {
    H225::RasMessage message = Grq("192.168.1.10:1719");
    message.ref_gatekeeperRequest().set_authenticationCapability(AuthList());
    H225::RasMessage out;
    EXPECT_EQ(Translate(message, nullptr, &out), 1);
    EXPECT_FALSE(out.ref_gatekeeperRequest().algorithmOIDs_isPresent());
}

TEST_F(Ras, NonIpRasAddressFails) {
    H225::RasMessage message = Grq("192.168.1.10:1719");
    SetIpx(message.ref_gatekeeperRequest().ref_rasAddress());
    int status = 99;
    EXPECT_EQ(Translate(message, &status), -1);
    EXPECT_EQ(status, 0) << "the message was identified before its address was refused";
}

// --- RegistrationRequest ---------------------------------------------------------------------

TEST_F(Ras, RegistrationRequestTranslatesEverySignallingAddressThroughTheHost) {
    InstallHost();
    LogCapture log(1);
    H225::RasMessage rrq =
        Rrq({"192.168.1.10:1719", "192.168.1.11:1719"}, {"192.168.1.10:1720", "192.168.1.10:1721"});
    int status = 99;
    H225::RasMessage out;
    ASSERT_EQ(Translate(rrq, &status, &out, 0), 1);
    EXPECT_EQ(status, 3);

    H225::RegistrationRequest& r = out.ref_registrationRequest();
    EXPECT_EQ(H225Text(r.ref_rasAddress()[0]), "203.0.113.1:1719");
    EXPECT_EQ(H225Text(r.ref_rasAddress()[1]), "192.168.1.11:1719") << "only the endpoint's own";
    EXPECT_EQ(H225Text(r.ref_callSignalAddress()[0]), "203.0.113.1:11720");
    EXPECT_EQ(H225Text(r.ref_callSignalAddress()[1]), "203.0.113.1:11721");

    ASSERT_EQ(Calls().size(), 2u);
    EXPECT_EQ(Calls()[0].found, "192.168.1.10:1720");
    EXPECT_EQ(Calls()[0].direction, 0);
    EXPECT_EQ(Calls()[1].found, "192.168.1.10:1721");

    EXPECT_TRUE(LogCapture::Has("translated RAS address 192.168.1.10:1720 to 203.0.113.1:11720\n"));
    EXPECT_TRUE(LogCapture::Has("adding RAS mapping for signalling port 1721\n"));
    for (const LoggedLine& line : LogCapture::lines()) {
        EXPECT_EQ(line.file, "src/libs/voipfilter/ras_xlate");
        EXPECT_EQ(line.context, &g_context);
    }
    ASSERT_EQ(handle_->Mappings().size(), 2u);
}

TEST_F(Ras, SamePortTwiceKeepsTheFirstHandle) {
    InstallHost();
    H225::RasMessage rrq = Rrq({}, {"192.168.1.10:1720", "10.9.9.9:1720"});
    ASSERT_EQ(Translate(rrq, nullptr), 1);
    ASSERT_EQ(Calls().size(), 2u);
    ASSERT_EQ(handle_->Mappings().size(), 1u);
    EXPECT_EQ(handle_->Mappings().at(1720), reinterpret_cast<void*>(uintptr_t(1)));
}

TEST_F(Ras, WithoutTranslateCallbackPortsAreStillRecorded) {
    LogCapture log(1);
    H225::RasMessage rrq = Rrq({"192.168.1.99:1719"}, {"192.168.1.10:1720"});
    int status = 99;
    EXPECT_EQ(Translate(rrq, &status), 0);
    EXPECT_EQ(status, 3);
    EXPECT_TRUE(LogCapture::Has("translateAddrFunction not set\n"));
    EXPECT_TRUE(LogCapture::Has("adding RAS mapping for signalling port 1720\n"));
    ASSERT_EQ(handle_->Mappings().size(), 1u);
    EXPECT_EQ(handle_->Mappings().at(1720), nullptr);
}

TEST_F(Ras, NonIpSignallingAddressFailsTheMessage) {
    InstallHost();
    H225::RasMessage rrq = Rrq({"192.168.1.10:1719"}, {"192.168.1.10:1720", "192.168.1.10:1721"});
    SetIpx(rrq.ref_registrationRequest().ref_callSignalAddress()[1]);
    EXPECT_EQ(Translate(rrq, nullptr), -1);
    EXPECT_EQ(Calls().size(), 1u) << "entries before the bad one were handled";
    EXPECT_EQ(handle_->Mappings().size(), 1u);
}

TEST_F(Ras, RejectAndUnregistrationRemoveMappingsInSignedPortOrder) {
    for (int alternative : {H225::RasMessage::registrationReject::id_,
                            H225::RasMessage::unregistrationRequest::id_}) {
        InstallHost();
        Calls().clear();
        LogCapture log(1);
        H225::RasMessage rrq =
            Rrq({}, {"192.168.1.10:5000", "192.168.1.10:40000", "192.168.1.10:1720"});
        ASSERT_EQ(Translate(rrq, nullptr), 1);
        const uintptr_t handle5000 = Calls()[0].handle, handle40000 = Calls()[1].handle,
                        handle1720 = Calls()[2].handle;
        Calls().clear();

        H225::RasMessage removal =
            alternative == H225::RasMessage::registrationReject::id_ ? Rrj() : Urq();
        int status = 99;
        EXPECT_EQ(Translate(Encode(removal), &status), 0);
        EXPECT_EQ(status, alternative);
        // Port 40000 is stored as the signed 16-bit number -25536, so it comes first.
        ASSERT_EQ(Calls().size(), 3u);
        EXPECT_EQ(Calls()[0].handle, handle40000);
        EXPECT_EQ(Calls()[1].handle, handle1720);
        EXPECT_EQ(Calls()[2].handle, handle5000);
        EXPECT_TRUE(LogCapture::Has("removing RAS mapping for signalling port -25536\n"));
        EXPECT_TRUE(LogCapture::Has("removing RAS mapping for signalling port 1720\n"));
        EXPECT_TRUE(handle_->Mappings().empty());
    }
}

TEST_F(Ras, RemovalWithoutCallbackStillEmptiesTheTable) {
    H225::RasMessage rrq = Rrq({}, {"192.168.1.10:1720"});
    Translate(rrq, nullptr);
    ASSERT_EQ(handle_->Mappings().size(), 1u);
    H225::RasMessage urq = Urq();
    EXPECT_EQ(Translate(urq, nullptr), 0);
    EXPECT_TRUE(handle_->Mappings().empty());
}

// --- Results of the C entry point ------------------------------------------------------------

TEST_F(Ras, OtherMessagesPassWithTheirStatus) {
    InstallHost();
    // GCF, RCF, RRJ, ARQ, ACF, DRQ and IRQ as real endpoints and gatekeepers sent them.
    const std::pair<const char*, int> messages[] = {
        {"ndpi-h323-060-1.bin", 1},
        {"ndpi-h323-062-4.bin", 4},
        {"wireshark-SIP_CALL_RTP_G711-ras-002-5.bin", 5},
        {"ndpi-h323-063-9.bin", 9},
        {"ndpi-h323-064-10.bin", 10},
        {"ndpi-h323-069-15.bin", 15},
        {"ndpi-h323-067-21.bin", 21}};
    for (const auto& [file, alternative] : messages) {
        const Bytes in = ReadBytes(file);
        ASSERT_FALSE(in.empty()) << file;
        int status = 99;
        Bytes out(4096, 0xAB);
        EXPECT_EQ(TranslateInto(handle_, 0, in, out, &status), 0) << file;
        EXPECT_EQ(status, alternative) << file;
        EXPECT_EQ(out, Bytes(4096, 0xAB)) << "nothing written";
    }
    EXPECT_TRUE(Calls().empty());
}

TEST_F(Ras, BadArgumentsAndInput) {
    const Bytes grq = [] {
        H225::RasMessage m = Grq("192.168.1.10:1719");
        return Encode(m);
    }();
    Bytes out(4096);
    unsigned outLength = unsigned(out.size());
    int status = 99;

    // Null handle: -1 and the status word untouched.
    EXPECT_EQ(TranslateInto(nullptr, 1, grq, out, &status), -1);
    EXPECT_EQ(status, 99);
    h323xlate_ras_destroy(nullptr);

    // Null input.
    EXPECT_EQ(h323xlate_ras_translatepdu(handle_, 1, nullptr, 10, out.data(), &outLength, &status),
              -1);
    EXPECT_EQ(status, -1);

    // Undecodable input: every truncation of a valid request either fails to decode or is a
    // shorter valid message; nothing reads past the input (checked under ASan).
    for (size_t n = 0; n < grq.size(); ++n) {
        out.resize(4096);
        const int r =
            TranslateInto(handle_, 1, Bytes(grq.begin(), grq.begin() + long(n)), out, &status);
        EXPECT_TRUE(r == -2 || r == 0 || r == 1) << n;
    }
    EXPECT_EQ(TranslateInto(handle_, 1, {0xFF, 0xFF, 0xFF, 0xFF}, out, &status), -2);

    // An output buffer one byte short of the encoding: -1, buffer and length untouched.
    Bytes small(grq.size() - 1, 0xAB);
    EXPECT_EQ(TranslateInto(handle_, 1, grq, small, &status), -1);
    EXPECT_EQ(small, Bytes(grq.size() - 1, 0xAB));
    // Exactly big enough: rewritten.
    Bytes exact(grq.size());
    EXPECT_EQ(TranslateInto(handle_, 1, grq, exact, &status), 1);
    EXPECT_EQ(exact.size(), grq.size());
}

TEST_F(Ras, InputAndOutputAreLoggedAtLevelFour) {
    LogCapture log(4);
    Translate(ReadBytes("ndpi-h323-062-4.bin"), nullptr);
    ASSERT_EQ(LogCapture::lines().size(), 2u);
    EXPECT_EQ(LogCapture::lines()[0].text.rfind("H225 RAS input PDU = registrationConfirm : {", 0),
              0u);
    EXPECT_EQ(LogCapture::lines()[1].text, "H225 RAS output PDU = unchanged\n");

    LogCapture::lines().clear();
    H225::RasMessage grq = Grq("192.168.1.10:1719");
    Translate(grq, nullptr);
    ASSERT_EQ(LogCapture::lines().size(), 2u);
    EXPECT_EQ(LogCapture::lines()[1].text.rfind("H225 RAS output PDU =\ngatekeeperRequest : {", 0),
              0u);
}

// --- Real traffic --------------------------------------------------------------------------------

struct CapturedRas {
    std::string file;
    std::string source;
    std::string destination;
    int alternative;
};

std::vector<CapturedRas> ReadIndex() {
    std::istringstream in(ReadText(DataFile("ras/index.txt")));
    std::vector<CapturedRas> entries;
    CapturedRas e;
    while (in >> e.file >> e.source >> e.destination >> e.alternative)
        entries.push_back(e);
    return entries;
}

// Every captured RAS message goes through a translator created for its endpoint (first = the
// endpoint's address as seen on the wire, third = a public address), with the recording host
// behind slots 10 and 11. GatekeeperRequests and RegistrationRequests are rewritten: RAS addresses
// equal to the endpoint's become the public one, call-signalling addresses become the host's
// translation. Lightweight RegistrationRequests (keep-alives with empty address lists) and every
// other message pass unchanged with their alternative as status.
using RasRealTraffic = Ras;

TEST_F(RasRealTraffic, CapturedMessagesTranslate) {
    InstallHost();
    const std::vector<CapturedRas> entries = ReadIndex();
    ASSERT_EQ(entries.size(), 39u);
    std::vector<Bytes> rewritten;
    for (const CapturedRas& e : entries) {
        SCOPED_TRACE(e.file);
        const Bytes in = ReadBytes(e.file);
        ASSERT_FALSE(in.empty());
        const bool fromEndpoint = e.destination.find(":1719") != std::string::npos &&
                                  (e.alternative == 0 || e.alternative == 3 || e.alternative == 9 ||
                                   e.alternative == 15 || e.alternative == 21);
        const sockaddr_type endpoint = Addr(fromEndpoint ? e.source : e.destination);
        const sockaddr_type gatekeeper = Addr(fromEndpoint ? e.destination : e.source);
        const sockaddr_type announced = Addr("203.0.113.7:1719");
        RASTranslatorContext* ras =
            h323xlate_ras_create(&g_context, &endpoint, &gatekeeper, &announced, &gatekeeper);
        Bytes out(4096);
        int status = 99;
        Calls().clear();
        const int result = TranslateInto(ras, fromEndpoint, in, out, &status);
        h323xlate_ras_destroy(ras);

        if (e.file == "ndpi-h323-059-0.bin") {
            // The Aselsan GatekeeperRequest that tshark also reports as malformed: our decoder
            // refuses it too, so the host forwards or drops it by its own policy.
            EXPECT_EQ(result, -2);
            EXPECT_EQ(status, -1);
            continue;
        }
        EXPECT_EQ(status, e.alternative);
        H225::RasMessage original;
        ASSERT_TRUE(Decode(in, original));
        if (e.alternative == 0) {
            ASSERT_EQ(result, 1);
            H225::RasMessage message;
            ASSERT_TRUE(Decode(out, message));
            EXPECT_EQ(H225Text(message.ref_gatekeeperRequest().ref_rasAddress()),
                      "203.0.113.7:1719");
            rewritten.push_back(out);
        } else if (e.alternative == 3) {
            auto& before = original.ref_registrationRequest();
            if (before.ref_callSignalAddress().size() == 0 && before.ref_rasAddress().size() == 0) {
                EXPECT_EQ(result, 0) << "a keep-alive has nothing to translate";
                continue;
            }
            ASSERT_EQ(result, 1);
            H225::RasMessage message;
            ASSERT_TRUE(Decode(out, message));
            auto& after = message.ref_registrationRequest();
            for (unsigned i = 0; i < after.ref_rasAddress().size(); ++i)
                EXPECT_EQ(H225Text(after.ref_rasAddress()[i]), "203.0.113.7:1719");
            ASSERT_EQ(Calls().size(), after.ref_callSignalAddress().size());
            for (unsigned i = 0; i < after.ref_callSignalAddress().size(); ++i) {
                EXPECT_EQ(Calls()[i].found, H225Text(before.ref_callSignalAddress()[i]));
                EXPECT_EQ(H225Text(after.ref_callSignalAddress()[i]).rfind("203.0.113.1:", 0), 0u);
            }
            rewritten.push_back(out);
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(Calls().empty());
        }
    }
    // One GatekeeperRequest and ten RegistrationRequests carry addresses; the other five
    // RegistrationRequests are keep-alives.
    EXPECT_EQ(rewritten.size(), 11u);

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
