// Q.931 framing of H.225.0 PDUs, transport address conversion, and the header string services.
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

class HeaderStringTest : public RegistryTest {
protected:
    const char* Get(const Bytes& pdu, int selector) {
        return h323xlate_h225_getheaderstring(call.handle, pdu.data(),
                                              static_cast<unsigned>(pdu.size()), selector);
    }
    // Sets the vendor to value with an output buffer of size octets; on success out holds the
    // frame written.
    int Set(const Bytes& pdu, std::string value, Bytes& out, unsigned size = 2048) {
        out.assign(std::max<std::size_t>(size, 1), 0);
        const int result = h323xlate_h225_setheaderstring(call.handle, pdu.data(),
                                                          static_cast<unsigned>(pdu.size()), 1,
                                                          &value[0], out.data(), &size);
        if (result == 1)
            out.resize(size);
        return result;
    }
    TestCall call;
};

TEST_F(HeaderStringTest, AliasOfSetup) {
    const Bytes pdu = ReadFile(DataFile("h323/synth-setup-faststart.q931.bin"));
    // sourceAddress: h323-ID "alice", then dialedDigits "1001".
    EXPECT_STREQ("1001", Get(pdu, 1));
    EXPECT_STREQ("1001", Get(pdu, 3));
    EXPECT_STREQ("2002", Get(pdu, 2));
    EXPECT_STREQ("2002", Get(pdu, 4));
    EXPECT_STREQ("", Get(pdu, 0));
    EXPECT_STREQ("", Get(pdu, 5));

    H225::H323_UserInformation ui = SynthSetup();
    auto& aliases = SetupOf(ui).ref_sourceAddress();
    aliases.resize(1); // only the h323-ID is left
    EXPECT_STREQ("", Get(Frame(Encode(ui)), 1));
    aliases.resize(2);
    aliases[1].select(H225::AliasAddress::email_ID::id_);
    aliases[1].ref_email_ID() = "alice@example.org";
    EXPECT_STREQ("alice@example.org", Get(Frame(Encode(ui)), 1));
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_sourceAddress);
    EXPECT_STREQ("", Get(Frame(Encode(ui)), 1));

    EXPECT_EQ(nullptr, Get(Frame(Encode(Message(Body::connect::id_)), 0x07), 1));
    EXPECT_EQ(nullptr, Get(Bytes(pdu.begin(), pdu.begin() + 20), 1));
    EXPECT_EQ(nullptr, Get(Bytes{0x08, 0x02, 0x00, 0x01, 0x05, 0x7E, 0x00, 0x02, 0x05, 0xFF}, 1));
    EXPECT_EQ(nullptr, h323xlate_h225_getheaderstring(call.handle, nullptr, 0, 1));
    EXPECT_EQ(VOIPXLATE_H225_IDLE, call.Info().state);
}

TEST_F(HeaderStringTest, VendorOfSetupIsReplacedInPlace) {
    const Bytes trailer = {0x28, 0x02, 'h', 'i'};
    const Bytes pdu = Frame(Encode(SynthSetup()), 0x05, {0xA1}, trailer);
    Bytes out;
    ASSERT_EQ(1, Set(pdu, "Gateway", out));
    const unsigned size = static_cast<unsigned>(out.size());
    // The user-user element stays before the element that followed it.
    EXPECT_EQ(trailer, Bytes(out.end() - 4, out.end()));
    EXPECT_EQ(Bytes(pdu.begin(), pdu.begin() + 7), Bytes(out.begin(), out.begin() + 7));
    H225::H323_UserInformation sent;
    ASSERT_EQ(1, ASN1::ASNDecode(out.data() + 10, size - 10 - 4, sent));
    auto& vendor = SetupOf(sent).ref_sourceInfo().ref_vendor();
    EXPECT_EQ(std::vector<char>({'G', 'a', 't', 'e', 'w', 'a', 'y'}),
              static_cast<const std::vector<char>&>(vendor.ref_productId()));
    EXPECT_EQ(std::vector<char>(1, '\0'),
              static_cast<const std::vector<char>&>(vendor.ref_versionId()));
    EXPECT_EQ(std::size_t(out[7]) << 8 | out[8], size - 10 - 4 + 1);

    // Too small for what comes before the payload, or for the whole.
    for (unsigned small : {9u, size - 1})
        EXPECT_EQ(-1, Set(pdu, "Gateway", out, small)) << small;
}

TEST_F(HeaderStringTest, OtherMessages) {
    // Messages that carry no vendor, and a SETUP whose endpoint announces none (as the ALERTING
    // of the ndpi capture and many real endpoints do), are re-encoded as they are.
    H225::H323_UserInformation noVendor = SynthSetup();
    SetupOf(noVendor).ref_sourceInfo().removeOptionalField(H225::EndpointType::e_vendor);
    const Bytes unchanged[] = {Frame(Encode(Message(Body::facility::id_)), 0x62),
                               Frame(Encode(Message(Body::releaseComplete::id_)), 0x62),
                               Frame(Encode(noVendor))};
    Bytes out;
    for (const Bytes& pdu : unchanged) {
        ASSERT_EQ(1, Set(pdu, "X", out)) << pdu.size();
        EXPECT_EQ(pdu, out);
    }
    H225::H323_UserInformation connect = Message(Body::connect::id_);
    ConnectOf(connect).ref_destinationInfo().set_vendor(H225::VendorIdentifier());
    ASSERT_EQ(1, Set(Frame(Encode(connect), 0x07), "X", out));
    H225::H323_UserInformation sent;
    ASSERT_TRUE(DecodeFrame(out, sent));
    EXPECT_EQ(1u, ConnectOf(sent).ref_destinationInfo().ref_vendor().ref_productId().size());

    EXPECT_EQ(0, Set({0x08, 0x02, 0x00, 0x01, 0x05, 0xA1}, "X", out)); // no user-user element
    EXPECT_EQ(-2, Set({0x08, 0x02, 0x00, 0x01, 0x05, 0x7E, 0x00, 0x02, 0x05, 0xFF}, "X", out));
}

} // namespace
