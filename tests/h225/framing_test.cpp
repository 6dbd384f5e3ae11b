// Q.931 framing of H.225.0 PDUs, transport address conversion, and the header string services.
#include "golden.h"
#include "h323_test_support.h"
#include "log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using Body = H225::H323_UU_PDU_h323_message_body;

Bytes ReleaseCompleteInformation() {
    return Encode(Message(Body::releaseComplete::id_));
}

struct FramingCase {
    const char* name;
    Bytes pdu;
    int expected;
};

class FramingTest : public RegistryTest {};

TEST_F(FramingTest, DecodeResults) {
    const Bytes uu = ReleaseCompleteInformation();
    const Bytes header = {0x08, 0x02, 0x00, 0x01, 0x5a};
    const Bytes good = Frame(uu, 0x5a);
    Bytes truncated = good;
    truncated.pop_back();
    const FramingCase cases[] = {
        {"empty", {}, -1},
        {"four bytes", {0x08, 0x02, 0x00, 0x01}, -1},
        {"call reference length 1",
         Cat({{0x08, 0x01, 0x01, 0x5a, 0x00}, Bytes(good.begin() + 5, good.end())}), -1},
        {"call reference length 0",
         Cat({{0x08, 0x00, 0x5a, 0x00, 0x00}, Bytes(good.begin() + 5, good.end())}), -1},
        {"header only", header, -1},
        {"no user-user element", Cat({header, {0xA1, 0x28, 0x01, 'x'}}), -1},
        {"user-user length 1", Cat({header, {0x7E, 0x00, 0x01, 0x05}}), -1},
        {"user-user length 0", Cat({header, {0x7E, 0x00, 0x00}}), -1},
        {"user-user length cut off", Cat({header, {0x7E, 0x00}}), -1},
        {"user-user longer than the frame", truncated, -1},
        {"element overruns the frame", Cat({good, {0x28, 0x05, 'a', 'b'}}), -1},
        {"element without its length", Cat({good, {0x28}}), -1},
        {"undecodable user information", Cat({header, {0x7E, 0x00, 0x03, 0x05, 0xFF, 0xFF}}), -2},
        {"valid", good, 1},
        {"valid, single-octet element last", Cat({good, {0xA1}}), 1},
    };
    for (const FramingCase& c : cases) {
        H225TranslatorContext call(nullptr, {}, {}, {}, {});
        // A copy of exactly the PDU's length, so that ASan catches any read past its end.
        std::unique_ptr<unsigned char[]> exact(new unsigned char[c.pdu.size() + 1]);
        std::copy(c.pdu.begin(), c.pdu.end(), exact.get());
        EXPECT_EQ(c.expected, h323xlate_h225_decodeh225pdu(&call, exact.get(),
                                                           static_cast<unsigned>(c.pdu.size())))
            << c.name;
    }
}

TEST_F(FramingTest, RebuiltFrameKeepsElementsAndPutsUserUserLast) {
    TestHost::Get().Reset();
    const Bytes before = {0x04, 0x03, 0x80, 0x90, 0xA5, 0xA1};
    const Bytes display = {0x28, 0x03, 'b', 'o', 'b'};
    const Bytes pdu = Frame(Encode(SlowStartSetupMessage()), 0x05, before, display);

    TestCall call;
    int status;
    Bytes out;
    ASSERT_EQ(1, call.Send(true, pdu, &out, &status));
    // Header, the elements in their order, then the user-user element with its new length.
    const Bytes expectedStart = Cat({Bytes(pdu.begin(), pdu.begin() + 5), before, display});
    ASSERT_GT(out.size(), expectedStart.size() + 4);
    EXPECT_EQ(expectedStart, Bytes(out.begin(), out.begin() + expectedStart.size()));
    const std::size_t uu = expectedStart.size();
    EXPECT_EQ(0x7E, out[uu]);
    EXPECT_EQ(out.size() - uu - 3, (std::size_t(out[uu + 1]) << 8 | out[uu + 2]));
    EXPECT_EQ(0x05, out[uu + 3]);

    // Exactly the size fits; one byte less, and the 5-byte buffer, do not.
    for (unsigned size : {static_cast<unsigned>(out.size()) - 1, 5u, 0u}) {
        Bytes buffer(out.size());
        unsigned length = size;
        EXPECT_EQ(-1, h323xlate_h225_encodeh225pdu(call.handle, buffer.data(), &length)) << size;
    }
    Bytes exact(out.size());
    unsigned length = static_cast<unsigned>(exact.size());
    EXPECT_EQ(1, h323xlate_h225_encodeh225pdu(call.handle, exact.data(), &length));
    EXPECT_EQ(out, exact);
}

TEST_F(FramingTest, LastUserUserElementWins) {
    const Bytes first = ReleaseCompleteInformation();
    const Bytes second = Encode(Message(Body::empty::id_));
    Bytes pdu = Frame(first, 0x5a);
    pdu.push_back(0x7E);
    pdu.push_back(0x00);
    pdu.push_back(static_cast<unsigned char>(second.size() + 1));
    pdu.push_back(0x05);
    pdu.insert(pdu.end(), second.begin(), second.end());
    TestCall call;
    int status;
    EXPECT_EQ(-2, call.Send(true, pdu, nullptr, &status)); // EMPTY in the Idle state
    EXPECT_EQ(-1, status);
}

TEST_F(FramingTest, TransportAddressConversion) {
    H225::TransportAddress address;
    sockaddr_type a = Addr("10.1.2.3:1720");
    ASSERT_TRUE(EncodeH225TransportAddress(a, address));
    ASSERT_TRUE(address.ipAddress_isSelected());
    EXPECT_EQ(1720, address.get_ipAddress().get_port().getValue());
    sockaddr_type back;
    ASSERT_TRUE(DecodeH225TransportAddress(address, back));
    EXPECT_TRUE(back == a);

    // Family 3 writes ip6Address; the decoder reports such an address as family 6, which is
    // not written back.
    sockaddr_type v6 = {};
    v6.family = 3;
    v6.port = htons(1721);
    for (int i = 0; i < 16; ++i)
        v6.addr[i] = static_cast<uint8_t>(i + 1);
    ASSERT_TRUE(EncodeH225TransportAddress(v6, address));
    ASSERT_TRUE(address.ip6Address_isSelected());
    ASSERT_TRUE(DecodeH225TransportAddress(address, back));
    EXPECT_EQ(6, back.family);
    EXPECT_EQ(0, std::memcmp(back.addr, v6.addr, 16));
    EXPECT_EQ(htons(1721), back.port);
    EXPECT_FALSE(EncodeH225TransportAddress(back, address));
    EXPECT_TRUE(address.ip6Address_isSelected()); // left as it was

    address.select(H225::TransportAddress::ipxAddress::id_);
    back.family = 4;
    EXPECT_FALSE(DecodeH225TransportAddress(address, back));
    EXPECT_EQ(0, back.family);
}

// --- Header strings ------------------------------------------------------------------------------

// Selectors 0 to 5 read from each message, and the vendor set on it, as one golden table
// (tests/data/h225/header-strings.txt): the rewritten frame in hex, decoded again where it is a
// frame. The aliases of SETUP are its first dialedDigits or email-ID of each side; the vendor is
// replaced in place, before the elements that follow the user-user element; messages that carry
// no vendor, and a SETUP whose endpoint announces none, are re-encoded as they are.
TEST(HeaderStringTest, GetAndSet) {
    const Bytes synth = ReadFile(DataFile("h323/synth-setup-faststart.q931.bin"));
    H225::H323_UserInformation ui = SynthSetup();
    auto& aliases = SetupOf(ui).ref_sourceAddress();
    aliases.resize(1);
    const Bytes h323IdOnly = Frame(Encode(ui));
    aliases.resize(2);
    aliases[1].select(H225::AliasAddress::email_ID::id_);
    aliases[1].ref_email_ID() = "alice@example.org";
    const Bytes email = Frame(Encode(ui));
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_sourceAddress);
    SetupOf(ui).ref_sourceInfo().removeOptionalField(H225::EndpointType::e_vendor);
    const Bytes noAliasNoVendor = Frame(Encode(ui));
    H225::H323_UserInformation connect = Message(Body::connect::id_);
    ConnectOf(connect).ref_destinationInfo().set_vendor(H225::VendorIdentifier());
    const std::pair<const char*, Bytes> messages[] = {
        {"synthesized SETUP", synth},
        {"the same between elements",
         Frame(Encode(SynthSetup()), 0x05, {0xA1}, {0x28, 0x02, 'h', 'i'})},
        {"SETUP with an h323-ID only", h323IdOnly},
        {"SETUP with an email-ID", email},
        {"SETUP without aliases or vendor", noAliasNoVendor},
        {"CONNECT with a vendor", Frame(Encode(connect), 0x07)},
        {"FACILITY", Frame(Encode(Message(Body::facility::id_)), 0x62)},
        {"RELEASE COMPLETE", Frame(Encode(Message(Body::releaseComplete::id_)), 0x5a)},
        {"cut SETUP", Bytes(synth.begin(), synth.begin() + 20)},
        {"no user-user element", {0x08, 0x02, 0x00, 0x01, 0x05, 0xA1}},
        {"undecodable", {0x08, 0x02, 0x00, 0x01, 0x05, 0x7E, 0x00, 0x02, 0x05, 0xFF}},
    };
    TestCall call;
    std::string table;
    for (const auto& [name, pdu] : messages) {
        table += std::string("> ") + name + "\nget";
        for (int selector = 0; selector <= 5; ++selector) {
            const char* text = h323xlate_h225_getheaderstring(
                call.handle, pdu.data(), static_cast<unsigned>(pdu.size()), selector);
            table += text ? std::string(" \"") + text + "\"" : std::string(" null");
        }
        Bytes out(2048);
        unsigned size = static_cast<unsigned>(out.size());
        char vendor[] = "Gateway";
        const int result = h323xlate_h225_setheaderstring(call.handle, pdu.data(),
                                                          static_cast<unsigned>(pdu.size()), 1,
                                                          vendor, out.data(), &size);
        table += "\nset " + std::to_string(result);
        if (result == 1) {
            out.resize(size);
            H225::H323_UserInformation sent;
            table += " " + Hex(out) + (out == pdu ? " (unchanged)" : "") +
                     (DecodeFrame(out, sent) ? "\n" + sent.asValueNotation() : "");
        }
        table += "\n";
    }
    ExpectGolden("h225/header-strings.txt", table);
    EXPECT_EQ(nullptr, h323xlate_h225_getheaderstring(call.handle, nullptr, 0, 1));
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);

    // Too small for what comes before the payload, or for the whole.
    Bytes out(2048);
    unsigned size = static_cast<unsigned>(out.size());
    char vendor[] = "Gateway";
    ASSERT_EQ(1, h323xlate_h225_setheaderstring(call.handle, synth.data(),
                                                static_cast<unsigned>(synth.size()), 1, vendor,
                                                out.data(), &size));
    for (unsigned small : {9u, size - 1}) {
        unsigned length = small;
        EXPECT_EQ(-1, h323xlate_h225_setheaderstring(call.handle, synth.data(),
                                                     static_cast<unsigned>(synth.size()), 1, vendor,
                                                     out.data(), &length))
            << small;
    }
}

} // namespace
