// Time per byte of hostile message shapes, at about 1 KB and about 64 KB of the same shape, through
// the C API. A path that reads a message in linear time costs the same per byte at both sizes; a
// ratio well above 1 between the two rows of a shape is a quadratic path that a flood of large
// datagrams could use to stall the firewall. Plus the cost of ending one dialog beside 20 000
// dialogs that stay (INVITEs never answered), which must not depend on the dialogs that stay.
//
// Each row of kShapes is (name, family, builder of a message of about N bytes); the runner of the
// family (RunShape) feeds the message through that family's entry point and returns the CPU time
// of its timed loop. Another family needs a Family value, its name and its runner.
//
// The program runs on the hardened flavour of the library, so that H.323 shapes can grow past the
// encoder's 8192-octet length limit: such a message is refused after all the work of reading and
// translating it, which is what is measured.
#include "asn1/asn_codec.h"
#include "bench_util.h"
#include "h225/call.h"
#include "h225/q931.h"
#include "modules/h323_messages.h"
#include "modules/multimedia_system_control.h"
#include "per_splice.h"
#include "sip/translator.h"

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

namespace {

enum class Family { Sip, H225, H245, Ras };

const char* FamilyName(Family family) {
    switch (family) {
    case Family::Sip:
        return "SIP";
    case Family::H225:
        return "H.225";
    case Family::H245:
        return "H.245";
    case Family::Ras:
        return "RAS";
    }
    return "?";
}

struct Shape {
    const char* name;
    Family family;
    std::string (*build)(std::size_t bytes);
    // The largest message of this shape, when smaller than kLarge: an open type (fast start,
    // tunnelled H.245) holds at most 16383 octets, the largest length the decoder reads.
    std::size_t largest = 0;
};

constexpr std::size_t kSmall = 1024;
constexpr std::size_t kLarge = 64 * 1024;
constexpr std::size_t kLargestOpenType = 16 * 1024;

// ---- SIP messages ----------------------------------------------------------------------------

// Lines joined with a terminator: the SIP and SDP line reader accepts CR LF, LF, a bare CR and NUL.
std::string Join(const std::vector<std::string>& lines, const std::string& end) {
    std::string text;
    for (const std::string& line : lines)
        text += line + end;
    return text;
}

// Appends line(i) for i = 0, 1, ... while the lines fit in bytes.
template <typename Line>
void Fill(std::vector<std::string>& lines, std::size_t bytes, std::size_t lineEnd, Line line) {
    std::size_t size = 0;
    for (int i = 0;; ++i) {
        std::string next = line(i);
        size += next.size() + lineEnd;
        if (size > bytes)
            return;
        lines.push_back(std::move(next));
    }
}

// An INVITE from 10.0.0.5 with an SDP body; extra header lines go before Content-Type.
std::string Invite(const std::vector<std::string>& headers, const std::vector<std::string>& sdp,
                   const std::string& end = "\r\n",
                   const std::string& start = "INVITE sip:bob@192.0.2.10 SIP/2.0") {
    const std::string body = Join(sdp, end);
    std::vector<std::string> lines = {start,
                                      "Via: SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bK-scaling",
                                      "From: Alice <sip:alice@10.0.0.5>;tag=a1",
                                      "To: <sip:bob@192.0.2.10>",
                                      "Call-ID: scaling@10.0.0.5",
                                      "CSeq: 1 INVITE"};
    lines.insert(lines.end(), headers.begin(), headers.end());
    lines.push_back("Content-Type: application/sdp");
    lines.push_back("Content-Length: " + std::to_string(body.size()));
    lines.push_back("");
    return Join(lines, end) + body;
}

// The usual session part and one audio stream.
std::vector<std::string> AudioSdp() {
    return {"v=0",
            "o=- 1 1 IN IP4 10.0.0.5",
            "s=-",
            "c=IN IP4 10.0.0.5",
            "t=0 0",
            "m=audio 4000 RTP/AVP 0",
            "a=rtpmap:0 PCMU/8000"};
}

std::string Number(int i) {
    return std::to_string(i);
}

// The message is about `bytes` long: fillers are added until the next would not fit (the fixed
// part, about 300 bytes, comes on top).
std::string BareMLines(std::size_t bytes) {
    std::vector<std::string> sdp = AudioSdp();
    Fill(sdp, bytes, 2, [](int) { return std::string("m="); });
    return Invite({}, sdp);
}

// Half the fillers are header lines, half SDP attributes, every line ended by `end`.
std::string FillerWithLineEnd(std::size_t bytes, const std::string& end) {
    std::vector<std::string> headers, sdp = AudioSdp();
    Fill(headers, bytes / 2, end.size(), [](int i) { return "X-Filler: " + Number(i); });
    Fill(sdp, bytes / 2, end.size(), [](int i) { return "a=x-filler:" + Number(i); });
    return Invite(headers, sdp, end);
}
std::string BareCrLineEnds(std::size_t bytes) {
    return FillerWithLineEnd(bytes, "\r");
}
std::string NulLineEnds(std::size_t bytes) {
    return FillerWithLineEnd(bytes, std::string(1, '\0'));
}

std::string ManyHeaders(std::size_t bytes) {
    std::vector<std::string> headers;
    Fill(headers, bytes, 2, [](int i) { return "X-Header-" + Number(i) + ": value " + Number(i); });
    return Invite(headers, AudioSdp());
}

std::string ManyVias(std::size_t bytes) {
    std::vector<std::string> headers;
    Fill(headers, bytes, 2, [](int i) {
        return "Via: SIP/2.0/UDP 10.0.1." + Number(i % 250) + ":5060;branch=z9hG4bK-" + Number(i);
    });
    return Invite(headers, AudioSdp());
}

// Every payload type is different, so the list of allowed payloads grows with the lines.
std::string ManyRtpmaps(std::size_t bytes) {
    std::vector<std::string> sdp = AudioSdp();
    Fill(sdp, bytes, 2, [](int i) { return "a=rtpmap:" + Number(96 + i) + " PCMU/8000"; });
    return Invite({}, sdp);
}

std::string ManyMediaLines(std::size_t bytes) {
    std::vector<std::string> sdp = AudioSdp();
    Fill(sdp, bytes, 2,
         [](int i) { return "m=audio " + Number(4002 + 2 * (i % 30000)) + " RTP/AVP 0"; });
    return Invite({}, sdp);
}

// One media line with a format list as long as the message.
std::string ManyFormats(std::size_t bytes) {
    std::vector<std::string> sdp = AudioSdp();
    std::string formats = "m=audio 4000 RTP/AVP";
    for (int i = 0; formats.size() + 300 < bytes; ++i)
        formats += " " + Number(i % 128);
    sdp[5] = formats;
    return Invite({}, sdp);
}

// A session-level c= line of half the message, used by every media line after it (each media
// line has a port of its own: a second line on a port whose codecs are known to be empty would
// end the traversal).
std::string LongConnectionLine(std::size_t bytes, bool port0) {
    std::vector<std::string> sdp = {"v=0", "o=- 1 1 IN IP4 10.0.0.5", "s=-",
                                    "c=IN IP4 10.0.0.5 " + std::string(bytes / 2, 'x'), "t=0 0"};
    Fill(sdp, bytes / 2, 2, [port0](int i) {
        return "m=audio " + (port0 ? std::string("0") : Number(4000 + 2 * i)) + " RTP/AVP 0";
    });
    return Invite({}, sdp);
}
std::string MediaLinesUnderLongC(std::size_t bytes) {
    return LongConnectionLine(bytes, false);
}
std::string Port0LinesUnderLongC(std::size_t bytes) {
    return LongConnectionLine(bytes, true);
}

std::string ManyStartLineTokens(std::size_t bytes) {
    std::string start = "INVITE sip:bob@192.0.2.10";
    while (start.size() + 10 < bytes)
        start += " t";
    return Invite({}, AudioSdp(), "\r\n", start + " SIP/2.0");
}

std::string LongHeaderValues(std::size_t bytes) {
    const std::string filler(bytes / 3, 'x');
    return Invite({"Subject: " + filler, "Contact: \"" + filler + "\" <sip:alice@10.0.0.5>",
                   "User-Agent: " + std::string(bytes / 3, '=')},
                  AudioSdp());
}

std::string RepeatedContentLength(std::size_t bytes) {
    std::vector<std::string> headers;
    Fill(headers, bytes, 2, [](int) { return std::string("Content-Length: 175"); });
    return Invite(headers, AudioSdp());
}

std::string ManyOriginLines(std::size_t bytes) {
    std::vector<std::string> sdp = AudioSdp();
    Fill(sdp, bytes, 2, [](int i) { return "o=- " + Number(i) + " 1 IN IP4 10.0.0.5"; });
    return Invite({}, sdp);
}

std::string ManyConnectionLines(std::size_t bytes) {
    std::vector<std::string> sdp = {"v=0", "o=- 1 1 IN IP4 10.0.0.5", "s=-"};
    Fill(sdp, bytes, 2, [](int i) { return "c=IN IP4 10.0.2." + Number(i % 250); });
    sdp.push_back("t=0 0");
    sdp.push_back("m=audio 4000 RTP/AVP 0");
    return Invite({}, sdp);
}

// ---- H.225.0, H.245 and RAS messages -----------------------------------------------------------

namespace H225 = H323_MESSAGES;
namespace H245 = MULTIMEDIA_SYSTEM_CONTROL;
using Octets = persplice::Octets;

std::string Text(const Octets& octets) {
    return std::string(octets.begin(), octets.end());
}

template <class T> Octets Encoded(const T& value) {
    Octets out(1 << 20);
    unsigned size = unsigned(out.size());
    ASN1::ASNEncode(const_cast<T&>(value), out.data(), &size);
    out.resize(size);
    return out;
}

// A new last element of a SEQUENCE OF.
template <class Sequence> auto& Append(Sequence& sequence) {
    sequence.resize(sequence.size() + 1);
    return sequence[sequence.size() - 1];
}

// Q.931 SETUP (call reference 1) around user information, with Display elements (Q.931 4.5.16)
// of `displays` octets in all before the user-user element.
std::string SetupFrame(const Octets& userInformation, std::size_t displays = 0) {
    Octets frame = {0x08, 0x02, 0x00, 0x01, 0x05};
    for (std::size_t left = displays; left >= 3;) {
        const std::size_t n = std::min<std::size_t>(left - 2, 255);
        frame.push_back(0x28);
        frame.push_back(static_cast<unsigned char>(n));
        frame.insert(frame.end(), n, 'D');
        left -= n + 2;
    }
    const std::size_t length = userInformation.size() + 1;
    frame.insert(frame.end(), {0x7E, static_cast<unsigned char>(length >> 8),
                               static_cast<unsigned char>(length & 0xFF), 0x05});
    frame.insert(frame.end(), userInformation.begin(), userInformation.end());
    return Text(frame);
}

// The synthesized fast-start SETUP's user information: 10.0.0.5 calls 192.0.2.10.
H225::H323_UserInformation SynthSetup() {
    const Octets frame = bench::ReadData("h323/synth-setup-faststart.q931.bin");
    q931::UserUserPayload payload;
    H225::H323_UserInformation information;
    if (q931::FindUserUser(frame.data(), unsigned(frame.size()), payload) == 1)
        ASN1::ASNDecode(frame.data() + payload.offset, payload.length, information);
    return information;
}

H225::Setup_UUIE& SetupOf(H225::H323_UserInformation& ui) {
    return ui.ref_h323_uu_pdu().ref_h323_message_body().ref_setup();
}

std::string SetupWithDisplays(std::size_t bytes) {
    const Octets ui = Encoded(SynthSetup());
    const std::size_t frame = 16 + ui.size(); // header, user-user element, slack
    return SetupFrame(ui, bytes > frame ? bytes - frame : 0);
}

// Source aliases of 512 characters (url-ID) until the message is about `bytes` long (at most 128:
// the decoder's limit for a SEQUENCE OF).
std::string SetupWithAliases(std::size_t bytes) {
    H225::H323_UserInformation ui = SynthSetup();
    auto& aliases = SetupOf(ui).ref_sourceAddress();
    for (std::size_t size = 400; size + 515 < bytes && aliases.size() < 128; size += 515) {
        auto& alias = Append(aliases);
        alias.select(H225::AliasAddress::url_ID::id_);
        alias.ref_url_ID() = "sip:" + std::string(508, 'a');
    }
    return SetupFrame(Encoded(ui));
}

// The H.225.0 parameters of a fast-start proposal: the reverse ones of a receive proposal, else
// the forward ones.
H245::H2250LogicalChannelParameters& ProposalParameters(H245::OpenLogicalChannel& olc) {
    if (olc.reverseLogicalChannelParameters_isPresent())
        return olc.ref_reverseLogicalChannelParameters()
            .ref_multiplexParameters()
            .ref_h2250LogicalChannelParameters();
    return olc.ref_forwardLogicalChannelParameters()
        .ref_multiplexParameters()
        .ref_h2250LogicalChannelParameters();
}

// The synthesized SETUP's first proposal padded with non-standard data to about 500 octets.
Octets LargeProposal() {
    H225::H323_UserInformation ui = SynthSetup();
    H245::OpenLogicalChannel olc;
    ASN1::ASNDecode(SetupOf(ui).ref_fastStart()[0], olc);
    auto& padding = Append(ProposalParameters(olc).set_nonStandard(
        ASN1::SEQUENCE_OF<H245::NonStandardParameter, ASN1::EmptyConstraint>()));
    padding.ref_nonStandardIdentifier().select(H245::NonStandardIdentifier::object::id_);
    padding.ref_nonStandardIdentifier().ref_object() = ASN1::OBJECT_IDENTIFIER({1, 3, 6, 1});
    padding.ref_data().assign(470, 'P');
    ASN1::OCTET_STRING octets;
    ASN1::ASNEncode(olc, octets);
    return Octets(octets.begin(), octets.end());
}

// `count` copies of one element in a SEQUENCE OF OCTET STRING of the user information, spliced
// in place of the two the encoder wrote (so that the whole may pass 8192 octets).
std::string SetupWithCopies(H225::H323_UserInformation& ui,
                            ASN1::SEQUENCE_OF<ASN1::OCTET_STRING>& list, const Octets& element,
                            std::size_t bytes) {
    list.clear();
    for (int i = 0; i < 2; ++i)
        Append(list).assign(element.begin(), element.end());
    const Octets encoded = Encoded(ui);
    const std::size_t room = bytes > encoded.size() ? bytes - encoded.size() : 0;
    const std::size_t count = std::min<std::size_t>(127, room / (element.size() + 2) + 2);
    return SetupFrame(persplice::Splice(encoded, persplice::SequenceOfOctets(element, 2),
                                        persplice::SequenceOfOctets(element, count)));
}

std::string SetupWithProposals(std::size_t bytes) {
    H225::H323_UserInformation ui = SynthSetup();
    return SetupWithCopies(ui, SetupOf(ui).ref_fastStart(), LargeProposal(), bytes);
}

// A capability set whose `entries` table entries are non-standard capabilities of `padding`
// octets, listed in one alternative set each by descriptor.
H245::MultimediaSystemControlMessage CapabilitySet(unsigned entries, std::size_t padding) {
    H245::MultimediaSystemControlMessage message;
    message.select(H245::MultimediaSystemControlMessage::request::id_);
    message.ref_request().select(H245::RequestMessage::terminalCapabilitySet::id_);
    auto& tcs = message.ref_request().ref_terminalCapabilitySet();
    tcs.ref_sequenceNumber() = 1;
    tcs.ref_protocolIdentifier() = ASN1::OBJECT_IDENTIFIER({0, 0, 8, 245, 0, 7});
    using Table = std::decay_t<decltype(tcs.ref_capabilityTable())>;
    using Descriptors = std::decay_t<decltype(tcs.ref_capabilityDescriptors())>;
    auto& table = tcs.set_capabilityTable(Table());
    auto& descriptors = tcs.set_capabilityDescriptors(Descriptors());
    for (unsigned number = 1; number <= entries; ++number) {
        auto& entry = Append(table);
        entry.ref_capabilityTableEntryNumber() = number;
        auto& capability = entry.set_capability(H245::Capability());
        if (number % 2) {
            // G.711 mu-law, which the benchmark host vetoes, padded by a non-standard neighbour.
            capability.select(H245::Capability::receiveAudioCapability::id_);
            capability.ref_receiveAudioCapability().select(H245::AudioCapability::g711Ulaw64k::id_);
            static_cast<ASN1::INTEGER&>(*capability.ref_receiveAudioCapability().getSelection()) =
                20;
        } else {
            capability.select(H245::Capability::nonStandard::id_);
            auto& data = capability.ref_nonStandard();
            data.ref_nonStandardIdentifier().select(H245::NonStandardIdentifier::object::id_);
            data.ref_nonStandardIdentifier().ref_object() = ASN1::OBJECT_IDENTIFIER({1, 3, 6, 1});
            data.ref_data().assign(2 * padding, 'C');
        }
    }
    for (unsigned number = 1; number <= entries; ++number) {
        auto& descriptor = Append(descriptors);
        descriptor.ref_capabilityDescriptorNumber() = number - 1;
        using Simultaneous = std::decay_t<decltype(descriptor.ref_simultaneousCapabilities())>;
        auto& alternatives = Append(descriptor.set_simultaneousCapabilities(Simultaneous()));
        for (unsigned listed = 1; listed <= entries; ++listed)
            Append(alternatives) = listed;
    }
    return message;
}

// As many entries as the size allows (at most 128), each listed by every descriptor: the
// filtering looks up every listed number among the removed ones.
std::string CapabilitySetOf(std::size_t bytes) {
    unsigned entries = 4;
    while (entries < 128 && Encoded(CapabilitySet(entries * 2, 0)).size() < bytes)
        entries *= 2;
    const std::size_t used = Encoded(CapabilitySet(entries, 0)).size() + 3 * entries;
    const std::size_t padding = bytes > used ? (bytes - used) / entries : 0;
    return Text(Encoded(CapabilitySet(entries, padding)));
}

std::string SetupWithTunnelledSets(std::size_t bytes) {
    H225::H323_UserInformation ui = SynthSetup();
    SetupOf(ui).removeOptionalField(H225::Setup_UUIE::e_fastStart);
    auto& control = ui.ref_h323_uu_pdu().ref_h245Control();
    const std::string tcs = CapabilitySetOf(std::min<std::size_t>(bytes / 8, 2000));
    return SetupWithCopies(ui, control, Octets(tcs.begin(), tcs.end()), bytes);
}

// A RegistrationRequest with terminal aliases of 512 characters.
std::string RegistrationWithAliases(std::size_t bytes) {
    const Octets rrq = bench::ReadData("modules/synth-ras_rrq-ras.bin");
    H225::RasMessage message;
    ASN1::ASNDecode(rrq.data(), unsigned(rrq.size()), message);
    auto& request = message.ref_registrationRequest();
    auto& aliases = request.set_terminalAlias(ASN1::SEQUENCE_OF<H225::AliasAddress>());
    for (std::size_t size = rrq.size(); size + 515 < bytes && aliases.size() < 128; size += 515) {
        auto& alias = Append(aliases);
        alias.select(H225::AliasAddress::url_ID::id_);
        alias.ref_url_ID() = "sip:" + std::string(508, 'r');
    }
    return Text(Encoded(message));
}

const Shape kShapes[] = {
    {"bare m= lines", Family::Sip, BareMLines},
    {"bare CR line ends", Family::Sip, BareCrLineEnds},
    {"NUL line ends", Family::Sip, NulLineEnds},
    {"many headers", Family::Sip, ManyHeaders},
    {"many Via lines", Family::Sip, ManyVias},
    {"many a=rtpmap lines", Family::Sip, ManyRtpmaps},
    {"many m= lines with ports", Family::Sip, ManyMediaLines},
    {"one m= line with many formats", Family::Sip, ManyFormats},
    {"m= lines under a long c= line", Family::Sip, MediaLinesUnderLongC},
    {"port 0 m= lines under a long c= line", Family::Sip, Port0LinesUnderLongC},
    {"many start-line tokens", Family::Sip, ManyStartLineTokens},
    {"long header values", Family::Sip, LongHeaderValues},
    {"repeated Content-Length", Family::Sip, RepeatedContentLength},
    {"many o= lines", Family::Sip, ManyOriginLines},
    {"many c= lines", Family::Sip, ManyConnectionLines},
    {"SETUP, many Q.931 elements", Family::H225, SetupWithDisplays},
    {"SETUP, many aliases", Family::H225, SetupWithAliases},
    {"SETUP, many fast-start proposals", Family::H225, SetupWithProposals, kLargestOpenType},
    {"SETUP, many tunnelled capability sets", Family::H225, SetupWithTunnelledSets,
     kLargestOpenType},
    {"capability set, entries listed by every descriptor", Family::H245, CapabilitySetOf},
    {"RegistrationRequest, many aliases", Family::Ras, RegistrationWithAliases},
};

// ---- Runners ---------------------------------------------------------------------------------

sockaddr_type Caller() {
    return bench::Ipv4(10, 0, 0, 5, 5060);
}
sockaddr_type Callee() {
    return bench::Ipv4(192, 0, 2, 10, 5060);
}
sockaddr_type CallerPublic() {
    return bench::Ipv4(203, 0, 113, 1, 5060);
}

SIPConnection* NewSipConnection() {
    const sockaddr_type a = Caller(), b = Callee(), c = CallerPublic();
    return sipxlate_create(nullptr, &a, &b, &c, &b);
}

int SipTranslate(SIPConnection* connection, const std::string& message,
                 std::vector<unsigned char>& out) {
    unsigned length = unsigned(out.size());
    return sipxlate_udp_translate(connection, 1,
                                  reinterpret_cast<const unsigned char*>(message.data()),
                                  unsigned(message.size()), out.data(), &length, 1);
}

// Removes the dialogs a benchmark left under this Call-ID.
void ForgetSipCall(const std::string& callId) {
    SIPTranslator& translator = SIPTranslator::Instance();
    for (auto it = translator.Dialogs().find(callId); it != translator.Dialogs().end();
         it = translator.Dialogs().find(callId))
        translator.Destroy(it->second);
}

using Clock = std::chrono::steady_clock;

double Nanoseconds(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// CPU time of the calling thread in nanoseconds: on a shared machine it does not count the
// time the thread waited for a core.
double ThreadNanoseconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

// The first translation creates the dialog; the timed ones are its retransmissions, which take
// the same path through the message (headers, SDP traversal, re-assembly). Returns the CPU time
// of the timed loop in nanoseconds.
double RunSip(benchmark::State& state, const std::string& message) {
    bench::InstallMinimalHost();
    SIPConnection* connection = NewSipConnection();
    std::vector<unsigned char> out(2 * message.size() + 4096);
    SipTranslate(connection, message, out);
    const double start = ThreadNanoseconds();
    for (auto _ : state)
        benchmark::DoNotOptimize(SipTranslate(connection, message, out));
    const double elapsed = ThreadNanoseconds() - start;
    sipxlate_destroy(connection);
    ForgetSipCall("scaling@10.0.0.5");
    return elapsed;
}

// A SETUP through a fresh call each time (a call takes one SETUP): decode, translate, encode.
double RunH225(benchmark::State& state, const std::string& message) {
    bench::InstallMinimalHost();
    sockaddr_type a = Caller(), b = Callee(), c = CallerPublic();
    std::vector<unsigned char> out(2 * message.size() + 1024);
    const auto* pdu = reinterpret_cast<const unsigned char*>(message.data());
    // The outcome, shown as a counter: decode, translate and encode results as three digits
    // offset by 3 (so 141 is decoded, translated, refused with -2 at encoding).
    int outcome = 0;
    const double start = ThreadNanoseconds();
    for (auto _ : state) {
        H225TranslatorContext* call = h323xlate_h225_create(nullptr, &a, &b, &c, &b);
        const int decoded = h323xlate_h225_decodeh225pdu(call, pdu, unsigned(message.size()));
        const int translated = h323xlate_h225_translateh225pdu(call, 1, nullptr);
        int encoded = 0;
        if (translated == 1) {
            unsigned length = unsigned(out.size());
            encoded = h323xlate_h225_encodeh225pdu(call, out.data(), &length);
        }
        outcome = (decoded + 3) * 100 + (translated + 3) * 10 + (encoded + 3);
        h323xlate_h225_destroy(call);
    }
    const double elapsed = ThreadNanoseconds() - start;
    state.counters["outcome"] = outcome;
    return elapsed;
}

// An H.245 message on a call's separate channel, with the host vetoing G.711 mu-law.
double RunH245(benchmark::State& state, const std::string& message) {
    bench::InstallMinimalHost();
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC,
                          reinterpret_cast<voipxlate_function>(+[](void*, int, const char* codec) {
                              return std::strcmp(codec, "PCMU") != 0 ? 1 : 0;
                          }));
    sockaddr_type a = Caller(), b = Callee(), c = CallerPublic();
    H225TranslatorContext* call = h323xlate_h225_create(nullptr, &a, &b, &c, &b);
    std::vector<unsigned char> out(2 * message.size() + 1024);
    const auto* pdu = reinterpret_cast<const unsigned char*>(message.data());
    int result = 0;
    const double start = ThreadNanoseconds();
    for (auto _ : state) {
        unsigned length = unsigned(out.size());
        result = h323xlate_h225_translateh245pdu(call, 1, pdu, unsigned(message.size()), out.data(),
                                                 &length);
    }
    const double elapsed = ThreadNanoseconds() - start;
    state.counters["outcome"] = result;
    h323xlate_h225_destroy(call);
    return elapsed;
}

double RunRas(benchmark::State& state, const std::string& message) {
    bench::InstallMinimalHost();
    const sockaddr_type a = Caller(), b = Callee(), c = CallerPublic();
    RASTranslatorContext* ras = h323xlate_ras_create(nullptr, &a, &b, &c, &b);
    std::vector<unsigned char> out(2 * message.size() + 1024);
    const auto* pdu = reinterpret_cast<const unsigned char*>(message.data());
    int result = 0;
    const double start = ThreadNanoseconds();
    for (auto _ : state) {
        unsigned length = unsigned(out.size());
        result = h323xlate_ras_translatepdu(ras, 1, pdu, unsigned(message.size()), out.data(),
                                            &length, nullptr);
    }
    const double elapsed = ThreadNanoseconds() - start;
    state.counters["outcome"] = result;
    h323xlate_ras_destroy(ras);
    return elapsed;
}

void RunShape(benchmark::State& state, const Shape& shape, std::size_t bytes) {
    const std::string message = shape.build(bytes);
    double elapsed = 0;
    switch (shape.family) {
    case Family::Sip:
        elapsed = RunSip(state, message);
        break;
    case Family::H225:
        elapsed = RunH225(state, message);
        break;
    case Family::H245:
        elapsed = RunH245(state, message);
        break;
    case Family::Ras:
        elapsed = RunRas(state, message);
        break;
    }
    const double size = double(message.size());
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(message.size()));
    state.counters["bytes"] = size;
    state.counters["ns/byte"] = elapsed / (double(state.iterations()) * size); // CPU time
}

const bool kShapesRegistered = [] {
    for (const Shape& shape : kShapes) {
        const std::size_t large = shape.largest != 0 ? shape.largest : kLarge;
        for (const std::size_t bytes : {kSmall, large}) {
            const std::string name = std::string("Scaling/") + FamilyName(shape.family) + "/" +
                                     shape.name + "/" + std::to_string(bytes);
            benchmark::RegisterBenchmark(name.c_str(), [&shape, bytes](benchmark::State& state) {
                RunShape(state, shape, bytes);
            });
        }
    }
    return true;
}();

// ---- Teardown beside dialogs that stay -------------------------------------------------------

constexpr int kStaying = 20000;

// A dialog per unanswered INVITE, each on its own connection with its own media port (10000 and
// up), as a host relaying calls that are never picked up would leave them.
class StayingDialogs {
public:
    explicit StayingDialogs(int count) {
        std::vector<unsigned char> out(8192);
        for (int i = 0; i < count; ++i) {
            connections_.push_back(NewSipConnection());
            std::vector<std::string> sdp = AudioSdp();
            sdp[5] = "m=audio " + Number(10000 + i) + " RTP/AVP 0";
            std::string invite = Invite({}, sdp);
            invite.replace(invite.find("scaling@"), 8, "staying-" + Number(i) + "@");
            SipTranslate(connections_.back(), invite, out);
        }
    }
    ~StayingDialogs() {
        for (SIPConnection* connection : connections_) {
            sipxlate_udp_destroy(connection);
            sipxlate_destroy(connection);
        }
    }

private:
    std::vector<SIPConnection*> connections_;
};

// The INVITE of call n, with its media on port 40000.
std::string TeardownInvite(long n) {
    std::vector<std::string> sdp = AudioSdp();
    sdp[5] = "m=audio 40000 RTP/AVP 0";
    std::string invite = Invite({}, sdp);
    invite.replace(invite.find("scaling@"), 8, "teardown-" + std::to_string(n) + "@");
    return invite;
}

// Replaces the start line and the CSeq of a message of call n.
std::string Reframe(long n, const std::string& start, const std::string& cseq, bool toTag) {
    std::vector<std::string> lines = {start,
                                      "Via: SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bK-bye",
                                      "From: Alice <sip:alice@10.0.0.5>;tag=a1",
                                      toTag ? "To: <sip:bob@192.0.2.10>;tag=b1"
                                            : "To: <sip:bob@192.0.2.10>",
                                      "Call-ID: teardown-" + std::to_string(n) + "@10.0.0.5",
                                      "CSeq: " + cseq,
                                      "Content-Length: 0",
                                      ""};
    return Join(lines, "\r\n");
}

// The 200 answering a BYE ends the dialog (timed); the INVITE and the BYE before it are not.
void TeardownByeAnswer(benchmark::State& state, int staying) {
    bench::InstallMinimalHost();
    StayingDialogs stay(staying);
    SIPConnection* connection = NewSipConnection();
    std::vector<unsigned char> out(8192);
    long n = 0;
    for (auto _ : state) {
        ++n;
        SipTranslate(connection, TeardownInvite(n), out);
        SipTranslate(connection, Reframe(n, "BYE sip:bob@192.0.2.10 SIP/2.0", "2 BYE", true), out);
        const std::string ok = Reframe(n, "SIP/2.0 200 OK", "2 BYE", true);
        const Clock::time_point start = Clock::now();
        benchmark::DoNotOptimize(SipTranslate(connection, ok, out));
        state.SetIterationTime(Nanoseconds(start) * 1e-9);
    }
    sipxlate_destroy(connection);
}

// sipxlate_udp_destroy of a connection whose INVITE left one dialog (timed).
void TeardownUdpDestroy(benchmark::State& state, int staying) {
    bench::InstallMinimalHost();
    StayingDialogs stay(staying);
    std::vector<unsigned char> out(8192);
    long n = 0;
    for (auto _ : state) {
        SIPConnection* connection = NewSipConnection();
        SipTranslate(connection, TeardownInvite(++n), out);
        const Clock::time_point start = Clock::now();
        benchmark::DoNotOptimize(sipxlate_udp_destroy(connection));
        state.SetIterationTime(Nanoseconds(start) * 1e-9);
        sipxlate_destroy(connection);
    }
}

void BM_Teardown_ByeAnswer_Alone(benchmark::State& state) {
    TeardownByeAnswer(state, 0);
}
void BM_Teardown_ByeAnswer_Beside20000(benchmark::State& state) {
    TeardownByeAnswer(state, kStaying);
}
void BM_Teardown_UdpDestroy_Alone(benchmark::State& state) {
    TeardownUdpDestroy(state, 0);
}
void BM_Teardown_UdpDestroy_Beside20000(benchmark::State& state) {
    TeardownUdpDestroy(state, kStaying);
}
BENCHMARK(BM_Teardown_ByeAnswer_Alone)->UseManualTime();
BENCHMARK(BM_Teardown_ByeAnswer_Beside20000)->UseManualTime();
BENCHMARK(BM_Teardown_UdpDestroy_Alone)->UseManualTime();
BENCHMARK(BM_Teardown_UdpDestroy_Beside20000)->UseManualTime();

} // namespace
