// H.245 translation on one call context, below the C API: the codec table, capability set
// filtering, tunnelled elements, channels without a host or refused by it, and the corner cases
// of fast start offers and answers (their transcripts are golden files).
#include "golden.h"
#include "h323_test_support.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

class H245Test : public H323HostTest {
protected:
    void SetUp() override {
        H323HostTest::SetUp();
        t.Listen();
        t.Ignore(DecodeFrameContext());
    }
    static H245::MultimediaSystemControlMessage SynthTCS() {
        return Message(ReadFile(DataFile("h323/synth-h245-tcs.bin")));
    }
    // A message of tests/data/h245/messages.txt, decoded.
    static H245::MultimediaSystemControlMessage Message(const Bytes& pdu) {
        H245::MultimediaSystemControlMessage message;
        EXPECT_TRUE(Decode(pdu, message));
        return message;
    }
    static H245::MultimediaSystemControlMessage Message(const std::string& label) {
        return Message(HexRow("h245/messages.txt", label));
    }
    // A fast start element of that table.
    static ASN1::OCTET_STRING Element(const std::string& label) {
        const Bytes octets = HexRow("h245/messages.txt", label);
        return ASN1::OCTET_STRING(ASN1::OctetBuffer(octets.begin(), octets.end()));
    }
    // A fast start list in the transcript, one element a line.
    void NoteList(const std::string& what, const OctetStringList& list) {
        t.Note(what + ": " + std::to_string(list.size()) + " elements");
        for (unsigned i = 0; i < list.size(); ++i) {
            H245::OpenLogicalChannel olc;
            t.Note(ASN1::ASNDecode(list[i], olc) == 1 ? olc.asValueNotation() : "(undecodable)");
        }
    }
    static ASN1::OCTET_STRING Junk(char octet) {
        return ASN1::OCTET_STRING(ASN1::OctetBuffer{octet});
    }

    H225TranslatorContext call{TestHost::this_call(), Addr("10.0.0.5:1720"),
                               Addr("192.0.2.10:1720"), Addr("198.51.100.1:1720"),
                               Addr("198.51.100.1:11720")};
    Transcript t{5};
};

// tests/data/h245/codec-names.txt: kind, alternative and the name the host is given.
TEST(CodecTableTest, Names) {
    std::ifstream table(DataFile("h245/codec-names.txt"));
    int kind = 0, alternative = 0, rows = 0;
    std::string name;
    while (table >> kind >> alternative >> name) {
        EXPECT_EQ(name, CodecName(kind, alternative)) << kind << "/" << alternative;
        ++rows;
    }
    EXPECT_GT(rows, 20);
    H245::DataType dataType;
    dataType.select(H245::DataType::videoData::id_);
    dataType.ref_videoData().select(H245::VideoCapability::h261VideoCapability::id_);
    EXPECT_STREQ("H261", ClassifyDataType(&dataType, kind));
    EXPECT_EQ(2, kind);
    EXPECT_STREQ("(unknown)", ClassifyDataType(nullptr, kind));
    EXPECT_EQ(0, kind);
}

TEST_F(H245Test, CapabilitySetUnchangedWithoutVetoOrWhenAllKept) {
    H245::MultimediaSystemControlMessage message = SynthTCS();
    const Bytes before = Encode(message);
    EXPECT_EQ(0, call.H245().TranslateH245(true, message)); // every codec kept
    EXPECT_EQ(4u, host().events.size());
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, nullptr);
    EXPECT_EQ(0, TranslateTerminalCapabilitySet(call.HostContext(),
                                                message.ref_request().ref_terminalCapabilitySet()));
    EXPECT_EQ(4u, host().events.size());
    EXPECT_EQ(before, Encode(message));
}

// Entries without a capability stay; a descriptor's sets lose the removed numbers, and sets and
// descriptors left empty go.
TEST_F(H245Test, CapabilitySetFiltering) {
    H245::MultimediaSystemControlMessage message = Message(
        "synthesized TCS with a T.120 entry 9, an entry 10 without capability and a descriptor 7 "
        "without sets");
    H245::TerminalCapabilitySet& tcs = message.ref_request().ref_terminalCapabilitySet();
    host().refusedCodecs = {"(unknown)"}; // the user input entry 4 and the T.120 entry 9
    t.Note("> veto (unknown)\nresult " +
           std::to_string(TranslateTerminalCapabilitySet(call.HostContext(), tcs)));
    t.Note(tcs.asValueNotation());
    message = SynthTCS();
    host().refusedCodecs = {"(unknown)", "G729A", "PCMU", "PCMA"};
    t.Note("> veto all\nresult " +
           std::to_string(TranslateTerminalCapabilitySet(
               call.HostContext(), message.ref_request().ref_terminalCapabilitySet())));
    t.Note(message.asValueNotation());
    ExpectGolden("h245/tcs-filtering.txt", t.str());
}

TEST_F(H245Test, ChannelsWithoutAHostOrRefusedByIt) {
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, nullptr);
    H245::MultimediaSystemControlMessage m = Message("olc 1 session 1 rtp 10.0.0.5:5000");
    const Bytes before = Encode(m);
    EXPECT_EQ(1, call.H245().TranslateH245(true, m));
    EXPECT_EQ(before, Encode(m));
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE | VOIPXLATE_SESSION_FORWARD_OPEN,
              call.CallInformation()->sessions[0].flags);

    // A refusal leaves the direction closed, to be asked again with the next channel.
    host().Install();
    host().failOpenRTP = true;
    m = Message("olc 2 session 2 rtp 10.0.0.5:6000");
    EXPECT_EQ(-1, call.H245().TranslateH245(true, m));
    EXPECT_EQ(VOIPXLATE_SESSION_IN_USE, call.CallInformation()->sessions[1].flags);
    host().failOpenRTP = false;
    EXPECT_EQ(1, call.H245().TranslateH245(true, m));
    EXPECT_EQ(2u, host().events.size());

    // An output buffer too small for the rewrite; input too short to decode.
    const Bytes pdu = HexRow("h245/messages.txt", "olc 3 session 3 rtp 10.0.0.5:7000");
    Bytes out(3);
    unsigned size = 3;
    EXPECT_EQ(-1,
              call.H245().TranslateH245(true, pdu.data(), unsigned(pdu.size()), out.data(), &size));
    EXPECT_EQ(-2, call.H245().TranslateH245(true, pdu.data(), 2, out.data(), &size));
}

// Ten sessions at most; channels without addresses, with another multiplex or a malformed ack;
// messages other than TCS, OLC and OLC ack pass.
TEST_F(H245Test, SessionTableAndMalformedChannels) {
    for (int session = 1; session <= 11; ++session) {
        H245::MultimediaSystemControlMessage m = Message("session " + std::to_string(session));
        t.Note("session " + std::to_string(session) + ": " +
               std::to_string(call.H245().TranslateH245(true, m)));
    }
    H245::MultimediaSystemControlMessage noAddress = Message("no address");
    t.Note("no address: " + std::to_string(call.H245().TranslateH245(false, noAddress)));
    H245::MultimediaSystemControlMessage malformed = Message("no H.225.0 parameters");
    t.Note("no H.225.0 parameters: " + std::to_string(call.H245().TranslateH245(true, malformed)));
    // Without its parameters (an extension addition) the ack does not encode to anything that
    // decodes again, so the test takes them out of a decoded one.
    H245::MultimediaSystemControlMessage badAck = Message("ack without addresses");
    badAck.ref_response().ref_openLogicalChannelAck().removeOptionalField(
        H245::OpenLogicalChannelAck::e_forwardMultiplexAckParameters);
    t.Note("ack without parameters: " + std::to_string(call.H245().TranslateH245(false, badAck)));
    H245::MultimediaSystemControlMessage emptyAck = Message("ack without addresses");
    t.Note("ack without addresses: " + std::to_string(call.H245().TranslateH245(false, emptyAck)));
    H245::MultimediaSystemControlMessage close; // with its fields unset: it does not encode
    close.select(H245::MultimediaSystemControlMessage::request::id_);
    close.ref_request().select(H245::RequestMessage::closeLogicalChannel::id_);
    t.Note("close: " + std::to_string(call.H245().TranslateH245(true, close)));
    ExpectGolden("h245/session-table.txt", t.str());
    EXPECT_EQ(12u, call.CallInformation()->sessions[0].destinationChannel);
}

// Offers with elements that cannot be translated, vetoed or refused by the host; answers that
// match nothing, and an answer to an offer whose first answer did not decode.
TEST_F(H245Test, FastStartCorners) {
    host().refusedCodecs = {"PCMA"};
    OctetStringList offer;
    offer.push_back(Element("offer 1"));
    offer.push_back(Junk('\x01'));
    offer.push_back(Element("offer 3 A-law"));
    offer.push_back(Element("offer 4 no address"));
    t.Note("> offer: " +
           std::to_string(call.FastStartProcedure().TranslateFastStartRequest(offer)));
    NoteList("offer sent", offer);

    OctetStringList reply;
    reply.push_back(Element("reply 1"));
    reply.push_back(Element("reply 2 reverse"));
    reply.push_back(Element("reply 3 session 5"));
    reply.push_back(Junk('\x7f'));
    t.Note("> reply: " +
           std::to_string(call.FastStartProcedure().AcceptFastStartReply(false, reply)));
    NoteList("reply sent", reply);
    t.Note("session 1 flags " + std::to_string(call.CallInformation()->sessions[0].flags));

    H225TranslatorContext unanswered{TestHost::this_call(), {}, {}, {}, {}};
    OctetStringList second = offer;
    t.Note("> second offer: " +
           std::to_string(unanswered.FastStartProcedure().TranslateFastStartRequest(second)));
    OctetStringList junk;
    junk.push_back(Junk('\x7f'));
    t.Note("> undecodable reply: " +
           std::to_string(unanswered.FastStartProcedure().AcceptFastStartReply(false, junk)));
    OctetStringList late;
    late.push_back(Element("late reply"));
    t.Note("> reply: " +
           std::to_string(unanswered.FastStartProcedure().AcceptFastStartReply(false, late)));

    host().failOpenRTP = true;
    H225TranslatorContext refused{TestHost::this_call(), {}, {}, {}, {}};
    OctetStringList third;
    third.push_back(Element("third offer 1 A-law"));
    third.push_back(Element("third offer 2"));
    t.Note("> offer, the host refusing: " +
           std::to_string(refused.FastStartProcedure().TranslateFastStartRequest(third)));
    NoteList("offer kept", third);

    // An element is rewritten where it lies only when its octets are its value's encoding; with
    // an octet after the value it goes out encoded again, without that octet.
    host().failOpenRTP = false;
    H225TranslatorContext trailing{TestHost::this_call(), {}, {}, {}, {}};
    OctetStringList fourth;
    fourth.push_back(Element("offer 1"));
    fourth.push_back(Element("offer 1"));
    fourth[1].push_back('\0');
    t.Note("> offer, the second element with an octet after it: " +
           std::to_string(trailing.FastStartProcedure().TranslateFastStartRequest(fourth)));
    t.Note("elements sent: " + Hex(fourth[0]) + " " + Hex(fourth[1]));
    ExpectGolden("h245/fast-start-corners.txt", t.str());
}

// Whole calls: the flows of tests/data/h245/*.flow (fast start offered, answered, refused and
// filtered; channels on the separate H.245 connection; tunnelled capability sets; T.120), each
// compared whole with its golden transcript (see PlayFlow).
class FlowTest : public H323HostTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(FlowTest, MatchesItsTranscript) {
    PlayFlow("h245/" + GetParam());
}

INSTANTIATE_TEST_SUITE_P(H245, FlowTest, ::testing::ValuesIn(FlowNames("h245")), TestName);

} // namespace
