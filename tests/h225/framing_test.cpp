// Q.931 framing of H.225.0 PDUs, transport address conversion, and the header string services.
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

class FramingTest : public RegistryTest {};

// tests/data/h225/decode-results.txt: the result of decodeh225pdu, what the frame is, the frame.
TEST_F(FramingTest, DecodeResults) {
    for (const auto& [label, pdu] : ReadHexRows("h225/decode-results.txt")) {
        H225TranslatorContext call(nullptr, {}, {}, {}, {});
        // A copy of exactly the PDU's length, so that ASan catches any read past its end.
        std::unique_ptr<unsigned char[]> exact(new unsigned char[pdu.size() + 1]);
        std::copy(pdu.begin(), pdu.end(), exact.get());
        EXPECT_EQ(std::stoi(label), h323xlate_h225_decodeh225pdu(&call, exact.get(),
                                                                 static_cast<unsigned>(pdu.size())))
            << label;
    }
}

TEST_F(FramingTest, RebuiltFrameKeepsElementsAndPutsUserUserLast) {
    TestHost::Get().Reset();
    // A slow-start SETUP with a Bearer capability and a Sending complete element before its
    // user-user element, and a Display after it.
    const Bytes before = {0x04, 0x03, 0x80, 0x90, 0xA5, 0xA1};
    const Bytes display = {0x28, 0x03, 'b', 'o', 'b'};
    const Bytes pdu = HexRow("h225/frames.txt", "slow-start SETUP between elements");

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
    const Bytes pdu = HexRow("h225/frames.txt", "RELEASE COMPLETE then EMPTY");
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
    TestCall call;
    std::string table;
    for (const auto& [name, pdu] : ReadHexRows("h225/header-string-messages.txt")) {
        table += "> " + name + "\nget";
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
