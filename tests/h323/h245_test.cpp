// H.245 translation on one call context: codec classification, capability set filtering,
// tunnelled elements, logical channels and media sessions, fast start corner cases.
#include "h323_test_support.h"
#include "log_capture.h"

#include <gtest/gtest.h>

namespace {

class H245Test : public H323HostTest {
protected:
    static H245::MultimediaSystemControlMessage SynthTCS() {
        return DecodeH245(ReadFile(DataFile("h323/synth-h245-tcs.bin")));
    }

    H225TranslatorContext call{TestHost::this_call(), Addr("10.0.0.5:1720"),
                               Addr("192.0.2.10:1720"), Addr("198.51.100.1:1720"),
                               Addr("198.51.100.1:11720")};
};

struct CodecCase {
    int kind;
    int alternative;
    const char* name;
};

TEST(CodecTableTest, Names) {
    const CodecCase cases[] = {
        {1, 0, "non-standard"}, {1, 1, "PCMA"},      {1, 2, "PCMA"},       {1, 4, "PCMU"},
        {1, 8, "G723"},         {1, 11, "G729A"},    {1, 16, "G7231"},     {1, 18, "GSM"},
        {1, 19, "GSM-EFR"},     {1, 21, "G729"},     {1, 22, "(unknown)"}, {2, 0, "non-standard"},
        {2, 3, "H263"},         {2, 5, "generic"},   {2, 6, "(unknown)"},  {3, 1, "t120"},
        {3, 6, "h224"},         {3, 12, "t38"},      {3, 13, "generic"},   {3, 2, "(unknown)"},
        {0, -1, "(unknown)"},   {0, 1, "(unknown)"}, {7, 1, "(unknown)"},
    };
    for (const CodecCase& c : cases)
        EXPECT_STREQ(c.name, CodecName(c.kind, c.alternative)) << c.kind << "/" << c.alternative;

    int kind = 9;
    EXPECT_STREQ("(unknown)", ClassifyDataType(nullptr, kind));
    EXPECT_EQ(0, kind);
    H245::DataType dataType;
    dataType.select(H245::DataType::nullData::id_);
    EXPECT_STREQ("(unknown)", ClassifyDataType(&dataType, kind));
    EXPECT_EQ(0, kind);
    dataType.select(H245::DataType::data::id_);
    dataType.ref_data().ref_application().select(
        H245::DataApplicationCapability_application::t120::id_);
    EXPECT_STREQ("t120", ClassifyDataType(&dataType, kind));
    EXPECT_EQ(3, kind);
    dataType.select(H245::DataType::videoData::id_);
    dataType.ref_videoData().select(H245::VideoCapability::h261VideoCapability::id_);
    EXPECT_STREQ("H261", ClassifyDataType(&dataType, kind));
    EXPECT_EQ(2, kind);
}

TEST_F(H245Test, CapabilitySetUnchangedWithoutVetoOrWhenAllKept) {
    H245::MultimediaSystemControlMessage message = SynthTCS();
    H245::TerminalCapabilitySet& tcs = message.ref_request().ref_terminalCapabilitySet();
    const Bytes before = Encode(message);
    EXPECT_EQ(0, call.H245().TranslateH245(true, message)); // every codec kept
    EXPECT_EQ(4u, host().events.size());
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, nullptr);
    host().events.clear();
    EXPECT_EQ(0, TranslateTerminalCapabilitySet(call.HostContext(), tcs));
    EXPECT_TRUE(host().events.empty());
    EXPECT_EQ(before, Encode(message));
}

TEST_F(H245Test, CapabilitySetFilteringDropsEmptiedSetsAndDescriptors) {
    LogCapture log(2);
    H245::MultimediaSystemControlMessage message = SynthTCS();
    H245::TerminalCapabilitySet& tcs = message.ref_request().ref_terminalCapabilitySet();
    // A data capability and an entry without a capability join the table; a second
    // descriptor without simultaneous capabilities joins the descriptors.
    auto& table = tcs.ref_capabilityTable();
    auto* data = new H245::CapabilityTableEntry;
    data->ref_capabilityTableEntryNumber() = 9;
    auto& capability = data->set_capability(H245::Capability());
    capability.select(H245::Capability::receiveDataApplicationCapability::id_);
    auto& application = capability.ref_receiveDataApplicationCapability().ref_application();
    application.select(H245::DataApplicationCapability_application::t120::id_);
    application.ref_t120().select(H245::DataProtocolCapability::tcp::id_);
    table.push_back(data);
    auto* bare = new H245::CapabilityTableEntry;
    bare->ref_capabilityTableEntryNumber() = 10;
    table.push_back(bare);
    auto* plain = new H245::CapabilityDescriptor;
    plain->ref_capabilityDescriptorNumber() = 7;
    tcs.ref_capabilityDescriptors().push_back(plain);

    host().refusedCodecs = {"(unknown)"}; // the user input entry 4 and the T.120 entry 9
    ASSERT_EQ(1, TranslateTerminalCapabilitySet(call.HostContext(), tcs));
    EXPECT_EQ((std::vector<std::string>{"allowCodec kind=1 G729A", "allowCodec kind=1 PCMU",
                                        "allowCodec kind=1 PCMA", "allowCodec kind=0 (unknown)",
                                        "allowCodec kind=0 (unknown)"}),
              host().events);
    EXPECT_TRUE(LogCapture::Has("H.245\tCodec (unknown) in TCS was filtered out\n"));

    const auto& kept = tcs.get_capabilityTable();
    ASSERT_EQ(4u, kept.size());
    EXPECT_EQ(10, kept[3].get_capabilityTableEntryNumber().getValue());
    EXPECT_FALSE(kept[3].capability_isPresent());
    const auto& descriptors = tcs.get_capabilityDescriptors();
    ASSERT_EQ(2u, descriptors.size());
    ASSERT_EQ(1u, descriptors[0].get_simultaneousCapabilities().size()); // {4} is gone
    EXPECT_EQ(3u, descriptors[0].get_simultaneousCapabilities()[0].size());
    EXPECT_EQ(7, descriptors[1].get_capabilityDescriptorNumber().getValue());
    EXPECT_FALSE(descriptors[1].simultaneousCapabilities_isPresent());
    H245::MultimediaSystemControlMessage again;
    EXPECT_TRUE(Decode(Encode(message), again));

    // With every codec refused, the first descriptor loses all its numbers and goes.
    message = SynthTCS();
    host().refusedCodecs = {"(unknown)", "G729A", "PCMU", "PCMA"};
    ASSERT_EQ(1, TranslateTerminalCapabilitySet(call.HostContext(),
                                                message.ref_request().ref_terminalCapabilitySet()));
    EXPECT_EQ(0u,
              message.ref_request().ref_terminalCapabilitySet().get_capabilityDescriptors().size());
}

TEST_F(H245Test, TunnelledElementsAreTranslatedOneByOne) {
    LogCapture log(2);
    OctetStringList control;
    control.push_back(EncodeOctets(Request(AudioOLC(1, 1, "10.0.0.5:5000", "10.0.0.5:5001"))));
    ASN1::OCTET_STRING broken;
    broken.assign({'\x03', '\xFF'});
    control.push_back(broken);
    control.push_back(EncodeOctets(Request(AudioOLC(2, 2, "10.0.0.5:5002", ""))));
    EXPECT_EQ(1, call.H245().TranslateTunnelledH245(true, control));
    EXPECT_TRUE(LogCapture::Has("H.245\tcannot decode H.245 element\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\tTranslating H.245 element\n"));
    EXPECT_EQ(static_cast<const std::vector<char>&>(broken),
              static_cast<const std::vector<char>&>(control[1]));
    for (unsigned i : {0u, 2u}) {
        H245::MultimediaSystemControlMessage m;
        ASSERT_EQ(1, ASN1::ASNDecode(control[i], m));
        EXPECT_EQ(i == 0 ? "192.0.2.100:20000" : "192.0.2.100:20002",
                  H245Text(OlcParameters(m).get_mediaChannel()));
    }
    // An element the dispatcher does not touch, and one it fails on, leave the result at 0.
    host().failOpenRTP = true;
    OctetStringList others;
    // masterSlaveDeterminationAck, as captured.
    others.push_back(ASN1::OCTET_STRING(std::vector<char>{'\x20', '\x80'}));
    others.push_back(EncodeOctets(Request(AudioOLC(3, 3, "10.0.0.5:5004", ""))));
    EXPECT_EQ(0, call.H245().TranslateTunnelledH245(true, others));
    EXPECT_TRUE(LogCapture::Has("H.245\terror translating H.245 element\n"));
}

TEST_F(H245Test, MediaAddressesDerivedFromTheOneGiven) {
    // The synthesized OLC carries only mediaControlChannel 10.0.0.5:5001.
    Bytes out;
    const Bytes olc = ReadFile(DataFile("h323/synth-h245-olc.bin"));
    unsigned size = 256;
    out.resize(size);
    ASSERT_EQ(1, call.H245().TranslateH245(true, olc.data(), static_cast<unsigned>(olc.size()),
                                           out.data(), &size));
    ASSERT_EQ(1u, host().events.size());
    EXPECT_EQ("openRTP dir=1 session=1 codec=PCMU rtp=10.0.0.5:5000 rtcp=10.0.0.5:5001 "
              "pre=10.0.0.5:5000",
              host().events[0]);
    H245::MultimediaSystemControlMessage m = DecodeH245(Bytes(out.begin(), out.begin() + size));
    auto& p = OlcParameters(m);
    EXPECT_FALSE(p.mediaChannel_isPresent());
    EXPECT_EQ("192.0.2.100:20001", H245Text(p.get_mediaControlChannel()));

    // RTP only: RTCP one port higher.
    H245::MultimediaSystemControlMessage rtpOnly = Request(AudioOLC(102, 2, "10.0.0.5:6000", ""));
    ASSERT_EQ(1, call.H245().TranslateH245(true, rtpOnly));
    EXPECT_EQ("rtcp=10.0.0.5:6001", host().events[1].substr(host().events[1].find("rtcp="), 18));

    // The synthesized ack answers channel 101 from the destination.
    const Bytes ack = ReadFile(DataFile("h323/synth-h245-olcack.bin"));
    size = 256;
    ASSERT_EQ(1, call.H245().TranslateH245(false, ack.data(), static_cast<unsigned>(ack.size()),
                                           out.data(), &size));
    EXPECT_EQ(3u, host().events.size());
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN |
                  VOIPXLATE_SESSION_REVERSE_OPEN,
              call.CallInformation()->sessions[0].flags);
    // A buffer too small for the rewrite.
    size = 3;
    EXPECT_EQ(-1, call.H245().TranslateH245(false, ack.data(), static_cast<unsigned>(ack.size()),
                                            out.data(), &size));
    EXPECT_EQ(-2, call.H245().TranslateH245(false, ack.data(), 2, out.data(), &size));
}

TEST_F(H245Test, ChannelsWithoutAHost) {
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, nullptr);
    H245::MultimediaSystemControlMessage m = Request(AudioOLC(1, 1, "10.0.0.5:5000", ""));
    const Bytes before = Encode(m);
    EXPECT_EQ(1, call.H245().TranslateH245(true, m));
    EXPECT_EQ(before, Encode(m));
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN,
              call.CallInformation()->sessions[0].flags);
}

TEST_F(H245Test, HostRefusalLeavesTheDirectionToRetry) {
    host().failOpenRTP = true;
    H245::MultimediaSystemControlMessage m = Request(AudioOLC(1, 1, "10.0.0.5:5000", ""));
    EXPECT_EQ(-1, call.H245().TranslateH245(true, m));
    const voipxlate_mediasessioninformation& s = call.CallInformation()->sessions[0];
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE, s.flags);
    EXPECT_EQ("10.0.0.5:5000", Text(s.forwardRTP));
    host().failOpenRTP = false;
    EXPECT_EQ(1, call.H245().TranslateH245(true, m));
    EXPECT_EQ(2u, host().events.size());
}

TEST_F(H245Test, SessionTableAndMalformedChannels) {
    LogCapture log(3);
    for (int session = 1; session <= 10; ++session) {
        H245::MultimediaSystemControlMessage m = Request(
            AudioOLC(session, session, "10.0.0.5:" + std::to_string(5000 + 2 * session), ""));
        ASSERT_EQ(1, call.H245().TranslateH245(true, m)) << session;
    }
    H245::MultimediaSystemControlMessage eleventh = Request(AudioOLC(11, 11, "10.0.0.5:7000", ""));
    EXPECT_EQ(0, call.H245().TranslateH245(true, eleventh));
    EXPECT_TRUE(LogCapture::Has("H.245\ttoo many RTP sessions\n"));
    EXPECT_EQ(10u, host().events.size());

    H245::MultimediaSystemControlMessage noAddress = Request(AudioOLC(12, 1, "", ""));
    EXPECT_EQ(0, call.H245().TranslateH245(false, noAddress));
    EXPECT_TRUE(LogCapture::Has("H.245\toutgoing OLC for 1 contains no addresses\n"));
    EXPECT_EQ(12u, call.CallInformation()->sessions[0].destinationChannel);

    H245::OpenLogicalChannel h223 = AudioOLC(13, 1, "10.0.0.5:5000", "");
    h223.ref_forwardLogicalChannelParameters().ref_multiplexParameters().select(
        H245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters::none::id_);
    H245::MultimediaSystemControlMessage malformed = Request(h223);
    EXPECT_EQ(0, call.H245().TranslateH245(true, malformed));
    EXPECT_TRUE(LogCapture::Has("H.245\tMalformed OLC\n"));

    H245::OpenLogicalChannelAck ack = OLCAck(1, "192.0.2.10:6000", "");
    ack.removeOptionalField(H245::OpenLogicalChannelAck::e_forwardMultiplexAckParameters);
    H245::MultimediaSystemControlMessage badAck = Response(ack);
    EXPECT_EQ(0, call.H245().TranslateH245(false, badAck));
    EXPECT_TRUE(LogCapture::Has("H.245\tMalformed OLCack\n"));
    H245::MultimediaSystemControlMessage emptyAck = Response(OLCAck(1, "", ""));
    EXPECT_EQ(0, call.H245().TranslateH245(false, emptyAck));
    EXPECT_TRUE(LogCapture::Has("H.245\tNo translation required for OLCack\n"));

    // Messages other than TCS, OLC and OLCack pass.
    H245::MultimediaSystemControlMessage close;
    close.select(H245::MultimediaSystemControlMessage::request::id_);
    close.ref_request().select(H245::RequestMessage::closeLogicalChannel::id_);
    EXPECT_EQ(0, call.H245().TranslateH245(true, close));
}

// --- Fast start ----------------------------------------------------------------------------------

class FastStartTest : public H245Test {
protected:
    // Offer session 1 (mu-law) from the originator: receive at 10.0.0.5:5000.
    void Offer() {
        OctetStringList offer;
        offer.push_back(EncodeOctets(ReverseAudioOLC(1, 1, "10.0.0.5:5000", "10.0.0.5:5001")));
        offer.push_back(EncodeOctets(AudioOLC(2, 1, "", "10.0.0.5:5001")));
        ASSERT_EQ(1, call.FastStartProcedure().TranslateFastStartRequest(offer));
        host().events.clear();
    }
};

TEST_F(FastStartTest, OfferElementsThatCannotBeTranslated) {
    LogCapture log(5);
    OctetStringList offer;
    offer.push_back(ASN1::OCTET_STRING(std::vector<char>{'\x01'}));
    offer.push_back(EncodeOctets(AudioOLC(2, 1, "", "")));
    EXPECT_EQ(1, call.FastStartProcedure().TranslateFastStartRequest(
                     offer)); // the undecodable element is dropped
    ASSERT_EQ(1u, offer.size());
    EXPECT_TRUE(LogCapture::Has("H.225\tcannot decode fastStart request 1\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\toutgoing OLC for 1 contains no addresses\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\tfastStart request 2 not translated\n"));
    EXPECT_TRUE(LogCapture::HasPrefix(5, "H.245\tTranslating fastStart request\n"));

    // Without a codec veto every element is kept.
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, nullptr);
    host().events.clear();
    OctetStringList two;
    two.push_back(EncodeOctets(ReverseAudioOLC(1, 3, "10.0.0.5:7000", "10.0.0.5:7001")));
    two.push_back(EncodeOctets(AudioOLC(2, 3, "", "10.0.0.5:7001")));
    EXPECT_EQ(1, call.FastStartProcedure().TranslateFastStartRequest(two));
    EXPECT_EQ(2u, two.size());
    EXPECT_EQ(1u, host().events.size());
}

TEST_F(FastStartTest, DroppedElementsLeaveTheOthersInOrder) {
    host().refusedCodecs = {"PCMA"};
    OctetStringList offer;
    offer.push_back(EncodeOctets(AudioOLC(1, 1, "", "10.0.0.5:5001")));
    offer.push_back(ASN1::OCTET_STRING(std::vector<char>{'\x01'}));
    offer.push_back(
        EncodeOctets(AudioOLC(3, 1, "", "10.0.0.5:5001", H245::AudioCapability::g711Alaw64k::id_)));
    offer.push_back(EncodeOctets(AudioOLC(4, 1, "", "10.0.0.5:5001")));
    EXPECT_EQ(1, call.FastStartProcedure().TranslateFastStartRequest(offer));
    ASSERT_EQ(2u, offer.size());
    std::vector<unsigned> numbers;
    for (unsigned i = 0; i < offer.size(); ++i) {
        H245::OpenLogicalChannel olc;
        ASSERT_EQ(1, ASN1::ASNDecode(offer[i], olc));
        numbers.push_back(olc.get_forwardLogicalChannelNumber().getValue());
    }
    EXPECT_EQ((std::vector<unsigned>{1, 4}), numbers);
}

TEST_F(FastStartTest, HostRefusalFailsTheOfferWithoutRemovingElements) {
    host().failOpenRTP = true;
    host().refusedCodecs = {"PCMA"};
    OctetStringList offer;
    offer.push_back(
        EncodeOctets(AudioOLC(1, 1, "", "10.0.0.5:5001", H245::AudioCapability::g711Alaw64k::id_)));
    offer.push_back(EncodeOctets(AudioOLC(2, 1, "", "10.0.0.5:5001")));
    EXPECT_EQ(-1, call.FastStartProcedure().TranslateFastStartRequest(offer));
    EXPECT_EQ(2u, offer.size());
}

TEST_F(FastStartTest, ReplyCornerCases) {
    Offer();
    LogCapture log(3);
    OctetStringList reply;
    // A forward element with only an RTCP address; a reverse element for session 1 whose
    // reverse channel nothing opened; an element of an unknown session; an undecodable one.
    reply.push_back(EncodeOctets(AudioOLC(1, 1, "", "192.0.2.10:6001")));
    reply.push_back(EncodeOctets(ReverseAudioOLC(2, 1, "192.0.2.10:6000", "192.0.2.10:6001")));
    reply.push_back(EncodeOctets(AudioOLC(3, 5, "192.0.2.10:6100", "")));
    reply.push_back(ASN1::OCTET_STRING(std::vector<char>{'\x7f'}));
    const OctetStringList received = reply;
    EXPECT_EQ(0, call.FastStartProcedure().AcceptFastStartReply(false, reply));
    EXPECT_TRUE(LogCapture::Has("H.245\toutgoing OLC for 1 contains no addresses\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\treverse OLC found before translation has occurred\n"));
    EXPECT_TRUE(LogCapture::Has("H.245\tfastStart reply not matched to offer\n"));
    EXPECT_TRUE(LogCapture::Has("H.225\tcannot decode fastStart reply 4\n"));
    EXPECT_EQ(0, received.compare(reply));
    // The offer's session stays; the nine free records are released all the same.
    EXPECT_EQ(18u, host().Events("closeRTP").size());
    EXPECT_TRUE(call.CallInformation()->sessions[0].flags & VOIPXLATE_SESSION_ANSWERED);
    EXPECT_TRUE(host().Events("openRTP").empty());
}

TEST_F(FastStartTest, RetranslatingAnUnansweredOffer) {
    Offer();
    LogCapture log(2);
    OctetStringList first;
    first.push_back(ASN1::OCTET_STRING(std::vector<char>{'\x7f'}));
    EXPECT_EQ(0, call.FastStartProcedure().AcceptFastStartReply(false, first));
    OctetStringList second;
    second.push_back(EncodeOctets(AudioOLC(1, 1, "192.0.2.10:6000", "")));
    EXPECT_EQ(0, call.FastStartProcedure().AcceptFastStartReply(false, second));
    EXPECT_TRUE(LogCapture::Has("H.245\tfastStart reply to offer that hasn't been accepted\n"));
    EXPECT_TRUE(host().Events("openRTP").empty());
}

} // namespace
