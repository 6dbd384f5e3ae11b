// Real traffic through the generated modules: every H.225.0 user-information element, RAS message
// and H.245 PDU of the corpus (tests/data/modules, see its README) decodes, and re-encodes to the
// same octets. So do the PDUs nested inside them: the fast-start proposals (OpenLogicalChannel)
// and the tunnelled H.245 messages, which travel as OCTET STRINGs.
//
// The codec departs from X.691 in a few documented ways (no fragmentation, unaligned one- and
// two-octet strings, its own form for ENUMERATED extension values, unknown SEQUENCE extensions
// re-encoded without their contents, negative unconstrained INTEGERs one octet short, named-number
// INTEGERs refused). None of them applies to these PDUs: no length reaches 16384, every one- and
// two-octet string in them sits where X.691 also leaves it unaligned (fixed sizes) or is absent,
// no ENUMERATED value lies beyond its root, no PDU carries an extension these editions do not
// know, and no INTEGER is negative. So every PDU must come back byte for byte.
#include "pdu_corpus.h"

#include "modules/h323_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include <sstream>
#include <string>

using namespace modtest;
using namespace H323_MESSAGES;
using MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage;
using MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel;

namespace {

// tshark 4.0.17 reports these two frames as malformed; this decoder refuses them as well.
bool TsharkMalformed(const std::string& file) {
    return file == "ndpi-h323.pcap-f59-ras.bin" || file == "ndpi-h323.pcap-f65-uuie.bin";
}

template <class T>::testing::AssertionResult RoundTrip(const std::vector<unsigned char>& in) {
    T value;
    int decoded = ASN1::ASNDecode(in.data(), static_cast<unsigned>(in.size()), value);
    if (decoded != 1)
        return ::testing::AssertionFailure() << "ASNDecode gave " << decoded;
    std::vector<unsigned char> out(in.size() + 64);
    unsigned size = static_cast<unsigned>(out.size());
    int encoded = ASN1::ASNEncode(value, out.data(), &size);
    if (encoded != 1)
        return ::testing::AssertionFailure() << "ASNEncode gave " << encoded;
    out.resize(size);
    if (out != in)
        return ::testing::AssertionFailure()
               << "re-encoded differently\n  in : " << Hex(in, " ") << "\n  out: " << Hex(out, " ");
    return ::testing::AssertionSuccess();
}

template <class T>::testing::AssertionResult OctetsRoundTrip(const ASN1::OCTET_STRING& in) {
    T value;
    int decoded = ASN1::ASNDecode(in, value);
    if (decoded != 1)
        return ::testing::AssertionFailure() << "ASNDecode gave " << decoded;
    ASN1::OCTET_STRING out;
    EXPECT_EQ(ASN1::ASNEncode(value, out), 1);
    if (static_cast<const std::vector<char>&>(out) != static_cast<const std::vector<char>&>(in))
        return ::testing::AssertionFailure() << "nested PDU re-encoded differently";
    return ::testing::AssertionSuccess();
}

int Decode(const Pdu& pdu, H323_UserInformation& value) {
    return ASN1::ASNDecode(pdu.bytes.data(), static_cast<unsigned>(pdu.bytes.size()), value);
}

// The fast-start element list of the message bodies that may carry one, or null.
const ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>* FastStart(H323_UU_PDU_h323_message_body& body) {
    if (body.setup_isSelected() && body.ref_setup().fastStart_isPresent())
        return &body.ref_setup().ref_fastStart();
    if (body.callProceeding_isSelected() && body.ref_callProceeding().fastStart_isPresent())
        return &body.ref_callProceeding().ref_fastStart();
    if (body.alerting_isSelected() && body.ref_alerting().fastStart_isPresent())
        return &body.ref_alerting().ref_fastStart();
    if (body.connect_isSelected() && body.ref_connect().fastStart_isPresent())
        return &body.ref_connect().ref_fastStart();
    return nullptr;
}

TEST(RealTraffic, CorpusIsThere) {
    std::vector<Pdu> pdus = LoadCorpus();
    ASSERT_EQ(pdus.size(), 81u);
    for (const Pdu& pdu : pdus)
        EXPECT_FALSE(pdu.bytes.empty()) << pdu.file;
}

TEST(RealTraffic, EveryPduDecodesAndReencodesToTheSameOctets) {
    unsigned checked = 0;
    for (const Pdu& pdu : LoadCorpus()) {
        SCOPED_TRACE(pdu.file + " (" + pdu.note + ")");
        if (TsharkMalformed(pdu.file))
            continue;
        WithType(pdu.kind, [&](auto* type) {
            EXPECT_TRUE(RoundTrip<std::remove_pointer_t<decltype(type)>>(pdu.bytes));
        });
        ++checked;
    }
    EXPECT_EQ(checked, 79u);
}

// An output buffer one octet shorter than the encoding is refused and left as it was.
template <class T> void ExpectShortBufferRefused(const std::vector<unsigned char>& in) {
    T value;
    ASSERT_EQ(ASN1::ASNDecode(in.data(), static_cast<unsigned>(in.size()), value), 1);
    std::vector<unsigned char> out(in.size() - 1, 0xA5);
    unsigned size = static_cast<unsigned>(out.size());
    EXPECT_EQ(ASN1::ASNEncode(value, out.data(), &size), -1);
    EXPECT_EQ(size, in.size() - 1);
    EXPECT_EQ(std::count(out.begin(), out.end(), 0xA5), static_cast<long>(out.size()));
}

TEST(RealTraffic, BufferOneOctetShortIsRefused) {
    for (const Pdu& pdu : LoadCorpus()) {
        SCOPED_TRACE(pdu.file);
        if (TsharkMalformed(pdu.file))
            continue;
        WithType(pdu.kind, [&](auto* type) {
            ExpectShortBufferRefused<std::remove_pointer_t<decltype(type)>>(pdu.bytes);
        });
    }
}

TEST(RealTraffic, NestedFastStartAndTunnelledPdusRoundTrip) {
    unsigned fastStart = 0, tunnelled = 0;
    for (const Pdu& pdu : LoadCorpus()) {
        if (pdu.kind != "uuie" || TsharkMalformed(pdu.file))
            continue;
        SCOPED_TRACE(pdu.file);
        H323_UserInformation info;
        ASSERT_EQ(Decode(pdu, info), 1);
        H323_UU_PDU& uu = info.ref_h323_uu_pdu();
        if (const ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>* list =
                FastStart(uu.ref_h323_message_body())) {
            for (unsigned i = 0; i < list->size(); ++i, ++fastStart)
                EXPECT_TRUE(OctetsRoundTrip<OpenLogicalChannel>((*list)[i])) << "element " << i;
        }
        H323_UU_PDU_h323_message_body& body = uu.ref_h323_message_body();
        if (body.setup_isSelected() && body.ref_setup().parallelH245Control_isPresent()) {
            const ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>& list =
                body.ref_setup().ref_parallelH245Control();
            for (unsigned i = 0; i < list.size(); ++i, ++tunnelled)
                EXPECT_TRUE(OctetsRoundTrip<MultimediaSystemControlMessage>(list[i]))
                    << "parallel element " << i;
        }
        if (uu.h245Control_isPresent()) {
            for (unsigned i = 0; i < uu.ref_h245Control().size(); ++i, ++tunnelled)
                EXPECT_TRUE(
                    OctetsRoundTrip<MultimediaSystemControlMessage>(uu.ref_h245Control()[i]))
                    << "element " << i;
        }
    }
    // Ekiga: 14 proposals, TCS + MSD as parallel H.245; the synthetic SETUP: 6 proposals, TCS +
    // MSD tunnelled in h245Control.
    EXPECT_EQ(fastStart, 20u);
    EXPECT_EQ(tunnelled, 4u);
}

TEST(RealTraffic, EkigaSetupFields) {
    H323_UserInformation info;
    ASSERT_EQ(Decode(LoadPdu("ekiga-setup-uuie.bin"), info), 1);
    H323_UU_PDU_h323_message_body& body = info.ref_h323_uu_pdu().ref_h323_message_body();
    ASSERT_TRUE(body.setup_isSelected());
    Setup_UUIE& setup = body.ref_setup();
    ASSERT_TRUE(setup.fastStart_isPresent());
    EXPECT_EQ(setup.ref_fastStart().size(), 14u);
    EXPECT_TRUE(setup.callIdentifier_isPresent());
    EXPECT_EQ(setup.get_callIdentifier().get_guid().size(), 16u);
    ASSERT_TRUE(setup.ref_sourceInfo().vendor_isPresent());
    const VendorIdentifier& vendor = setup.ref_sourceInfo().ref_vendor();
    ASSERT_TRUE(vendor.productId_isPresent());
    EXPECT_EQ(std::string(vendor.get_productId().begin(), vendor.get_productId().end()),
              std::string("ekiga\0\0", 7));
    EXPECT_TRUE(info.ref_h323_uu_pdu().get_h245Tunneling());

    OpenLogicalChannel olc;
    ASSERT_EQ(ASN1::ASNDecode(setup.ref_fastStart()[0], olc), 1);
    EXPECT_EQ(olc.get_forwardLogicalChannelNumber(), 1);
}

TEST(RealTraffic, SyntheticSetupAddresses) {
    H323_UserInformation info;
    ASSERT_EQ(Decode(LoadPdu("synth-setup_faststart-uuie.bin"), info), 1);
    Setup_UUIE& setup = info.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
    ASSERT_TRUE(setup.destCallSignalAddress_isPresent());
    const TransportAddress_ipAddress& dest = setup.get_destCallSignalAddress().get_ipAddress();
    EXPECT_EQ(Hex(dest.get_ip(), " "), "c0 00 02 0a");
    EXPECT_EQ(dest.get_port(), 1720);
    const TransportAddress_ipAddress& src = setup.get_sourceCallSignalAddress().get_ipAddress();
    EXPECT_EQ(Hex(src.get_ip(), " "), "0a 00 00 05");
    EXPECT_EQ(setup.ref_fastStart().size(), 6u);
}

// Frame 59 of ndpi-h323.pcap, the Aselsan GRQ: its single integrity mechanism selects iso9797
// and then gives its OBJECT IDENTIFIER a length octet of 0 as the last octet of the datagram.
// tshark stops there ("unexpected length"); this decoder refuses an identifier that ends at the
// very end of the input, so the whole message fails.
TEST(RealTraffic, AselsanGatekeeperRequestIsRefused) {
    Pdu pdu = LoadPdu("ndpi-h323.pcap-f59-ras.bin");
    ASSERT_EQ(pdu.bytes.size(), 38u);
    RasMessage ras;
    EXPECT_EQ(ASN1::ASNDecode(pdu.bytes.data(), 38, ras), -2);
    // What came before the integrity list was read as tshark reads it.
    ASSERT_TRUE(ras.gatekeeperRequest_isSelected());
    GatekeeperRequest& grq = ras.ref_gatekeeperRequest();
    EXPECT_EQ(grq.get_requestSeqNum(), 1);
    EXPECT_EQ(grq.ref_rasAddress().get_ipAddress().get_port(), 2034);
    EXPECT_TRUE(grq.integrity_isPresent());

    // One more octet after the length, and the same bytes decode: the identifier is then read
    // as empty, and the message ends in the spare octet.
    pdu.bytes.push_back(0);
    RasMessage padded;
    ASSERT_EQ(ASN1::ASNDecode(pdu.bytes.data(), 39, padded), 1);
    const IntegrityMechanism& mechanism = padded.ref_gatekeeperRequest().get_integrity()[0];
    ASSERT_TRUE(mechanism.iso9797_isSelected());
    EXPECT_EQ(mechanism.get_iso9797().levels(), 0u);
}

// Frame 65 of ndpi-h323.pcap, the Aselsan SETUP: tshark (which knows later editions) gives up in
// additionalSourceAddresses, the last extension this edition knows. This decoder fails in the same
// extension: everything before it is read as tshark reads it, and the message is refused.
TEST(RealTraffic, AselsanSetupIsRefused) {
    H323_UserInformation info;
    EXPECT_EQ(Decode(LoadPdu("ndpi-h323.pcap-f65-uuie.bin"), info), -2);
    H323_UU_PDU_h323_message_body& body = info.ref_h323_uu_pdu().ref_h323_message_body();
    ASSERT_TRUE(body.setup_isSelected());
    Setup_UUIE& setup = body.ref_setup();
    ASSERT_TRUE(setup.callIdentifier_isPresent());
    const ASN1::OCTET_STRING& guid = setup.get_callIdentifier().get_guid();
    EXPECT_EQ(Hex(guid, " "), "00 40 91 fb 72 89 f9 11 80 2a 05 04 03 02 01 00");
    EXPECT_EQ(setup.get_sourceCallSignalAddress().get_ipAddress().get_port(), 1720);
    // The peer's extension map has exactly this edition's 26 bits; the last one,
    // additionalSourceAddresses, is set, and its one element failed (a failed element is erased).
    EXPECT_EQ(setup.extensionMap().size(), 26u);
    ASSERT_TRUE(setup.additionalSourceAddresses_isPresent());
    EXPECT_EQ(setup.ref_additionalSourceAddresses().size(), 0u);
    // Nothing after the SETUP body was read.
    EXPECT_EQ(info.ref_h323_uu_pdu().extensionMap().size(), 0u);
}

TEST(RealTraffic, ValueNotationOfARealSetupIsComplete) {
    H323_UserInformation info;
    ASSERT_EQ(Decode(LoadPdu("ekiga-setup-uuie.bin"), info), 1);
    std::ostringstream text;
    ASSERT_EQ(info.print_on(text), 0);
    const std::string s = text.str();
    EXPECT_EQ(s, info.asValueNotation());
    EXPECT_EQ(s.compare(0, 36, "{\n  h323-uu-pdu {\n    h323-message-b"), 0) << s.substr(0, 80);
    EXPECT_EQ(s.substr(s.size() - 2), "\n}");
    // Root fields, extensions and nested values all appear, the last extension of the PDU too.
    for (const char* part :
         {"h323-message-body setup : {", "protocolIdentifier { 0 0 8 2250 0 4 }", "fastStart {",
          "callIdentifier {", "h245Tunneling TRUE", "parallelH245Control {",
          "productId '65 6b 69 67 61 00 00'H", "h323-ID : \"Jon Oberheide\""})
        EXPECT_NE(s.find(part), std::string::npos) << part;
    unsigned opening = 0, closing = 0;
    for (char c : s) {
        opening += c == '{';
        closing += c == '}';
    }
    EXPECT_EQ(opening, closing);
}

} // namespace
