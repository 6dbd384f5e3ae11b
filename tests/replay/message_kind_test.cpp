#include <gtest/gtest.h>

#include <string>

#include "message_kind.h"

using namespace replay;

namespace {

bool sip(const std::string& s) {
    return looksLikeSip(reinterpret_cast<const uint8_t*>(s.data()), s.size());
}

std::string kind(const std::string& s) {
    return sipKind(reinterpret_cast<const uint8_t*>(s.data()), s.size());
}

TEST(Sip, RecognisedByItsStartLine) {
    EXPECT_TRUE(sip("INVITE sip:a@b SIP/2.0\r\n"));
    EXPECT_TRUE(sip("SIP/2.0 200 OK\r\n"));
    EXPECT_TRUE(sip("OPTIONS sip:x SIP/2.0"));
    EXPECT_FALSE(sip("GET / HTTP/1.1\r\n"));
    EXPECT_FALSE(sip("SIP/2.0"));
    EXPECT_FALSE(sip("INVITE sip:a@b SIP/2.0x\r\n"));
    EXPECT_FALSE(sip(std::string(4, '\0')));
    EXPECT_FALSE(sip(""));
}

TEST(Sip, KindAndHeaders) {
    const std::string response = "SIP/2.0 180 Ringing\r\nVia: x\r\ncseq:  7 INVITE \r\n"
                                 "i: abc@host\r\n\r\nCall-ID: body\r\n";
    EXPECT_EQ(kind(response), "SIP 180 (INVITE)");
    EXPECT_EQ(kind("BYE sip:a SIP/2.0\r\n"), "SIP BYE");
    const auto* data = reinterpret_cast<const uint8_t*>(response.data());
    EXPECT_EQ(sipHeader(data, response.size(), "Call-ID", "i"), "abc@host");
    EXPECT_EQ(sipHeader(data, response.size(), "CSeq", nullptr), "7 INVITE");
    EXPECT_EQ(sipHeader(data, response.size(), "From", "f"), ""); // not in the body either
}

TEST(H225, Q931Names) {
    const uint8_t setup[] = {8, 2, 0x12, 0x34, 0x05, 0x7E};
    EXPECT_EQ(q931MessageName(setup, sizeof setup), "SETUP");
    const uint8_t release[] = {8, 2, 0x92, 0x34, 0x5A};
    EXPECT_EQ(q931MessageName(release, sizeof release), "RELEASE COMPLETE");
    const uint8_t unknown[] = {8, 1, 0x01, 0x44};
    EXPECT_EQ(q931MessageName(unknown, sizeof unknown), "Q.931 type 0x44");
    const uint8_t cut[] = {8, 2, 0x00};
    EXPECT_EQ(q931MessageName(cut, sizeof cut), "Q.931 (short)");
    EXPECT_EQ(h225BodyName(0), "SETUP");
    EXPECT_EQ(h225BodyName(12), "NOTIFY");
    EXPECT_EQ(h225BodyName(13), "");
    EXPECT_EQ(h225BodyName(-1), "");
}

TEST(H225, TpktWithQ931) {
    const uint8_t good[] = {3, 0, 0, 9, 8, 2, 0, 1, 5};
    EXPECT_TRUE(looksLikeQ931Tpkt(good, sizeof good));
    const uint8_t h245[] = {3, 0, 0, 9, 0x02, 0x70};
    EXPECT_FALSE(looksLikeQ931Tpkt(h245, sizeof h245));
    EXPECT_FALSE(looksLikeQ931Tpkt(good, 4));
}

TEST(H245, MessageNamesFromTheFirstBits) {
    // request (00) + extension 0 + index 4 bits: 0 00 0 0010 = TCS
    const uint8_t tcs[] = {0x02, 0x70};
    EXPECT_EQ(h245MessageName(tcs, sizeof tcs), "H.245 TCS");
    const uint8_t olc[] = {0x03, 0x00};
    EXPECT_EQ(h245MessageName(olc, sizeof olc), "H.245 OLC");
    // response (01) + extension 0 + index 5 bits 00101 = OLCAck: 0 01 0 0010 | 1...
    const uint8_t olcAck[] = {0x22, 0x80};
    EXPECT_EQ(h245MessageName(olcAck, sizeof olcAck), "H.245 OLCAck");
    const uint8_t command[] = {0x40};
    EXPECT_EQ(h245MessageName(command, sizeof command), "H.245 command");
    const uint8_t extended[] = {0x80};
    EXPECT_EQ(h245MessageName(extended, sizeof extended), "H.245 (unknown)");
    EXPECT_EQ(h245MessageName(nullptr, 0), "H.245 (unknown)");
}

TEST(Ras, MessageNames) {
    const uint8_t rrq[] = {0x0C}; // 0 00011 ..
    EXPECT_EQ(rasMessageName(rrq, sizeof rrq), "RAS RRQ");
    const uint8_t irr[] = {0x58}; // 0 10110
    EXPECT_EQ(rasMessageName(irr, sizeof irr), "RAS IRR");
    const uint8_t extended[] = {0x80};
    EXPECT_EQ(rasMessageName(extended, sizeof extended), "RAS (extension)");
}

} // namespace
