// Real traffic through the generated modules: every H.225.0 user-information element, RAS message
// and H.245 PDU of the corpus (tests/data/modules, see its README) decodes and re-encodes to the
// same octets, and so do the PDUs nested inside them (fast-start proposals, tunnelled H.245). None
// of the codec's departures from X.691 applies to these PDUs, so every one comes back byte for
// byte.
#include "golden.h"
#include "pdu_corpus.h"

#include "modules/h323_messages.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>

using namespace modtest;
using namespace H323_MESSAGES;
using MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage;
using MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel;

namespace {

// tshark 4.0.17 reports these two frames as malformed; this decoder refuses them as well.
bool TsharkMalformed(const std::string& file) {
    return file == "ndpi-h323.pcap-f59-ras.bin" || file == "ndpi-h323.pcap-f65-uuie.bin";
}

// Decodes the octets as a T and encodes the value again: "" when the same octets come back.
template <class T, class Octets> std::string RoundTrip(const Octets& in) {
    T value;
    if (ASN1::ASNDecode(ASN1::OCTET_STRING(ASN1::OctetBuffer(in.begin(), in.end())), value) != 1)
        return "does not decode";
    ASN1::OCTET_STRING out;
    ASN1::ASNEncode(value, out);
    return Hex(out) == Hex(in) ? "" : "re-encoded as " + Hex(out, " ");
}

int Decode(const Pdu& pdu, H323_UserInformation& value) {
    return ASN1::ASNDecode(pdu.bytes.data(), static_cast<unsigned>(pdu.bytes.size()), value);
}

TEST(RealTraffic, EveryPduDecodesAndReencodesToTheSameOctets) {
    unsigned checked = 0;
    const std::vector<Pdu> corpus = LoadCorpus();
    ASSERT_EQ(corpus.size(), 81u);
    for (const Pdu& pdu : corpus) {
        SCOPED_TRACE(pdu.file);
        ASSERT_FALSE(pdu.bytes.empty());
        if (TsharkMalformed(pdu.file))
            continue;
        WithType(pdu.kind, [&](auto* type) {
            EXPECT_EQ("", RoundTrip<std::remove_pointer_t<decltype(type)>>(pdu.bytes));
        });
        ++checked;
    }
    EXPECT_EQ(checked, 79u);
}

// The PDUs nested in the two SETUPs, cut out of their value notation below (nested.py): Ekiga's 14
// fast-start proposals and its TCS + MSD as parallel H.245; the synthetic SETUP's 6 proposals and
// its TCS + MSD tunnelled in h245Control.
TEST(RealTraffic, NestedFastStartAndTunnelledPdusRoundTrip) {
    const auto rows = ReadHexRows("modules/nested.txt");
    EXPECT_EQ(rows.size(), 24u);
    for (const auto& [label, octets] : rows) {
        if (label.compare(0, 4, "olc ") == 0)
            EXPECT_EQ("", RoundTrip<OpenLogicalChannel>(octets)) << label;
        else
            EXPECT_EQ("", RoundTrip<MultimediaSystemControlMessage>(octets)) << label;
    }
}

// Frame 59 of ndpi-h323.pcap, the Aselsan GRQ, gives the OBJECT IDENTIFIER of its integrity
// mechanism a length octet of 0 as the last octet of the datagram: tshark stops there ("unexpected
// length"), and this decoder refuses an identifier that ends at the very end of the input. With
// one more octet the identifier reads as empty and the message decodes.
// Frame 65, the Aselsan SETUP: tshark (which knows later editions) gives up in
// additionalSourceAddresses, the last extension this edition knows, and so does this decoder:
// the peer's extension map has exactly this edition's 26 bits, the last one set, and its one
// element failed (a failed element is erased).
TEST(RealTraffic, AselsanMessagesAreRefusedWhereTsharkStops) {
    Pdu grqPdu = LoadPdu("ndpi-h323.pcap-f59-ras.bin");
    RasMessage grq;
    EXPECT_EQ(ASN1::ASNDecode(grqPdu.bytes.data(), 38, grq), -2);
    EXPECT_EQ(grq.ref_gatekeeperRequest().ref_rasAddress().get_ipAddress().get_port(), 2034);
    grqPdu.bytes.push_back(0);
    RasMessage padded;
    ASSERT_EQ(ASN1::ASNDecode(grqPdu.bytes.data(), 39, padded), 1);
    EXPECT_EQ(padded.ref_gatekeeperRequest().get_integrity()[0].get_iso9797().levels(), 0u);

    H323_UserInformation info;
    EXPECT_EQ(Decode(LoadPdu("ndpi-h323.pcap-f65-uuie.bin"), info), -2);
    Setup_UUIE& setup = info.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
    EXPECT_EQ(Hex(setup.get_callIdentifier().get_guid(), " "),
              "00 40 91 fb 72 89 f9 11 80 2a 05 04 03 02 01 00");
    EXPECT_EQ(setup.extensionMap().size(), 26u);
    ASSERT_TRUE(setup.additionalSourceAddresses_isPresent());
    EXPECT_EQ(setup.ref_additionalSourceAddresses().size(), 0u);
    EXPECT_EQ(info.ref_h323_uu_pdu().extensionMap().size(), 0u); // nothing after the body read
}

// The whole decoded tree of two SETUPs in value notation: Ekiga's (14 fast-start proposals, TCS and
// MSD as parallel H.245, vendor "ekiga") and the synthetic one (call signalling addresses
// 192.0.2.10:1720 and 10.0.0.5, 6 proposals).
TEST(RealTraffic, SetupsInValueNotation) {
    for (const char* file : {"ekiga-setup-uuie.bin", "synth-setup_faststart-uuie.bin"}) {
        H323_UserInformation info;
        ASSERT_EQ(Decode(LoadPdu(file), info), 1) << file;
        std::ostringstream text;
        ASSERT_EQ(info.print_on(text), 0);
        EXPECT_EQ(text.str(), info.asValueNotation());
        ExpectGolden(std::string("modules/") + file + ".txt", text.str() + "\n");
    }
}

} // namespace
