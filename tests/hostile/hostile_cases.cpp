#include "hostile_cases.h"

#include "per_splice.h"

#include <cstring>

namespace {

using Mux = H245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters;
using Body = H225::H323_UU_PDU_h323_message_body;

// Spliced so that the result is as the library's own encoder cannot write it, and the splice
// must have happened.
Bytes Spliced(const Bytes& encoding, const Bytes& from, const Bytes& to) {
    const Bytes out = persplice::Splice(encoding, from, to);
    EXPECT_NE(out, encoding) << "contents to splice not found";
    return out;
}

Bytes ToBytes(const ASN1::OCTET_STRING& octets) {
    return Bytes(octets.begin(), octets.end());
}

// Includes an optional field with its default value: Include(&Type::set_field, value).
template <class Owner, class Field>
Field& Include(Field& (Owner::*setter)(const Field&), Owner& owner) {
    return (owner.*setter)(Field());
}

// A new last element of a SEQUENCE OF.
template <class Sequence> auto& Append(Sequence& sequence) {
    sequence.resize(sequence.size() + 1);
    return sequence[sequence.size() - 1];
}

H245::H2250LogicalChannelParameters& OlcParametersOf(H245::OpenLogicalChannel& olc) {
    return olc.ref_forwardLogicalChannelParameters()
        .ref_multiplexParameters()
        .ref_h2250LogicalChannelParameters();
}

// --- Messages -----------------------------------------------------------------------------------

void SetIPv6(H245::TransportAddress& address, unsigned port) {
    address.select(H245::TransportAddress::unicastAddress::id_);
    auto& unicast = address.ref_unicastAddress();
    unicast.select(H245::UnicastAddress::iP6Address::id_);
    unicast.ref_iP6Address().ref_network().assign(16, '\x20');
    unicast.ref_iP6Address().ref_tsapIdentifier() = port;
}

H245::OpenLogicalChannel IPv6AudioOLC(int channel, int session) {
    H245::OpenLogicalChannel olc = AudioOLC(channel, session, "", "");
    SetIPv6(OlcParametersOf(olc).set_mediaControlChannel(H245::TransportAddress()), 5001);
    return olc;
}

// A forward proposal padded with non-standard data to about 200 octets.
H245::OpenLogicalChannel LargeProposal() {
    H245::OpenLogicalChannel olc = AudioOLC(1, 1, "", "10.0.0.5:5001");
    auto& padding = Append(
        Include(&H245::H2250LogicalChannelParameters::set_nonStandard, OlcParametersOf(olc)));
    padding.ref_nonStandardIdentifier().select(H245::NonStandardIdentifier::object::id_);
    padding.ref_nonStandardIdentifier().ref_object() = ASN1::OBJECT_IDENTIFIER({1, 3, 6, 1, 4});
    padding.ref_data().assign(180, 'P');
    return olc;
}

// A capability set listing 40 G.711 capabilities in one alternative set.
H245::MultimediaSystemControlMessage LargeCapabilitySet() {
    H245::MultimediaSystemControlMessage message;
    message.select(H245::MultimediaSystemControlMessage::request::id_);
    message.ref_request().select(H245::RequestMessage::terminalCapabilitySet::id_);
    auto& tcs = message.ref_request().ref_terminalCapabilitySet();
    tcs.ref_sequenceNumber() = 1;
    tcs.ref_protocolIdentifier() = ASN1::OBJECT_IDENTIFIER({0, 0, 8, 245, 0, 7});
    auto& table = Include(&H245::TerminalCapabilitySet::set_capabilityTable, tcs);
    auto& descriptor =
        Append(Include(&H245::TerminalCapabilitySet::set_capabilityDescriptors, tcs));
    descriptor.ref_capabilityDescriptorNumber() = 0;
    auto& alternatives =
        Append(Include(&H245::CapabilityDescriptor::set_simultaneousCapabilities, descriptor));
    for (int number = 1; number <= 40; ++number) {
        auto& entry = Append(table);
        entry.ref_capabilityTableEntryNumber() = number;
        auto& capability = Include(&H245::CapabilityTableEntry::set_capability, entry);
        capability.select(H245::Capability::receiveAudioCapability::id_);
        capability.ref_receiveAudioCapability().select(H245::AudioCapability::g711Ulaw64k::id_);
        static_cast<ASN1::INTEGER&>(*capability.ref_receiveAudioCapability().getSelection()) = 20;
        Append(alternatives) = number;
    }
    return message;
}

// The synthesized fast-start SETUP with its first proposal replaced.
Bytes SetupWithProposal(const Bytes& proposal) {
    H225::H323_UserInformation ui = SynthSetup();
    SetupOf(ui).ref_fastStart()[0].assign(proposal.begin(), proposal.end());
    return Frame(Encode(ui));
}

Bytes SetupWithNonStandardData(std::size_t octets) {
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    auto& data = Include(&H225::H323_UU_PDU::set_nonStandardData, ui.ref_h323_uu_pdu());
    data.ref_nonStandardIdentifier().select(H225::NonStandardIdentifier::object::id_);
    data.ref_nonStandardIdentifier().ref_object() = ASN1::OBJECT_IDENTIFIER({1, 3, 6, 1, 4});
    data.ref_data().assign(200, 'N');
    return Frame(Spliced(Encode(ui), Bytes(200, 'N'), Bytes(octets, 'N')));
}

Bytes SetupWithProposals(std::size_t count) {
    H225::H323_UserInformation ui = SynthSetup();
    const Bytes proposal = ToBytes(EncodeOctets(LargeProposal()));
    auto& fastStart = SetupOf(ui).ref_fastStart();
    fastStart.clear();
    for (int i = 0; i < 3; ++i)
        Append(fastStart).assign(proposal.begin(), proposal.end());
    return Frame(Spliced(Encode(ui), persplice::SequenceOfOctets(proposal, 3),
                         persplice::SequenceOfOctets(proposal, count)));
}

Bytes SetupWithTunnelledSets(std::size_t count) {
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    const Bytes tcs = Encode(LargeCapabilitySet());
    auto& control = Include(&H225::H323_UU_PDU::set_h245Control, ui.ref_h323_uu_pdu());
    for (int i = 0; i < 2; ++i)
        Append(control).assign(tcs.begin(), tcs.end());
    ui.ref_h323_uu_pdu().set_h245Tunneling(ASN1::BOOLEAN(true));
    return Frame(Spliced(Encode(ui), persplice::SequenceOfOctets(tcs, 2),
                         persplice::SequenceOfOctets(tcs, count)));
}

Bytes SetupWithTunnelledOLC(const H245::OpenLogicalChannel& olc) {
    H225::H323_UserInformation ui = SlowStartSetupMessage();
    const Bytes request = Encode(Request(olc));
    Append(Include(&H225::H323_UU_PDU::set_h245Control, ui.ref_h323_uu_pdu()))
        .assign(request.begin(), request.end());
    ui.ref_h323_uu_pdu().set_h245Tunneling(ASN1::BOOLEAN(true));
    return Frame(Encode(ui));
}

H245::OpenLogicalChannel T120OLC() {
    H245::OpenLogicalChannel olc;
    olc.ref_forwardLogicalChannelNumber() = 3;
    auto& forward = olc.ref_forwardLogicalChannelParameters();
    forward.ref_dataType().select(H245::DataType::data::id_);
    auto& application = forward.ref_dataType().ref_data().ref_application();
    application.select(H245::DataApplicationCapability_application::t120::id_);
    application.ref_t120().select(H245::DataProtocolCapability::transparent::id_);
    forward.ref_multiplexParameters().select(Mux::h2250LogicalChannelParameters::id_);
    forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters().ref_sessionID() = 3;
    auto& stack = Include(&H245::OpenLogicalChannel::set_separateStack, olc);
    stack.ref_networkAddress().select(
        H245::NetworkAccessParameters_networkAddress::localAreaAddress::id_);
    SetIPv6(stack.ref_networkAddress().ref_localAreaAddress(), 1503);
    return olc;
}

// --- Sending ------------------------------------------------------------------------------------

std::vector<Step> Steps(bool fromOriginator, Bytes pdu) {
    return {{fromOriginator, std::move(pdu), ""}};
}

std::vector<Step> VendorSteps(Bytes pdu, std::string vendor) {
    return {{true, std::move(pdu), std::move(vendor)}};
}

std::string SendH225(TestCall& call, bool fromOriginator, const Bytes& pdu, Bytes& out) {
    const int decoded =
        h323xlate_h225_decodeh225pdu(call.handle, pdu.data(), static_cast<unsigned>(pdu.size()));
    std::string trace = "decode=" + std::to_string(decoded);
    if (decoded != 1)
        return trace;
    const int translated = h323xlate_h225_translateh225pdu(call.handle, fromOriginator, nullptr);
    trace += " translate=" + std::to_string(translated);
    if (translated != 1)
        return trace;
    out.assign(65536, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int encoded = h323xlate_h225_encodeh225pdu(call.handle, out.data(), &size);
    out.resize(encoded == 1 ? size : 0);
    return trace + " encode=" + std::to_string(encoded);
}

std::string SendH245(TestCall& call, bool fromOriginator, const Bytes& pdu, Bytes& out) {
    out.assign(4096, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int result =
        h323xlate_h225_translateh245pdu(call.handle, fromOriginator, pdu.data(),
                                        static_cast<unsigned>(pdu.size()), out.data(), &size);
    out.resize(result == 1 ? size : 0);
    return "h245=" + std::to_string(result);
}

std::string SetVendor(TestCall& call, const Bytes& pdu, std::string vendor, Bytes& out) {
    out.assign(65536, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int result =
        h323xlate_h225_setheaderstring(call.handle, pdu.data(), static_cast<unsigned>(pdu.size()),
                                       1, &vendor[0], out.data(), &size);
    out.resize(result == 1 ? size : 0);
    return "setheader=" + std::to_string(result);
}

constexpr const char kMultiplexCheck[] = "currentSelection() ==h2250LogicalChannelParameters::id_";
constexpr const char kLengthLimit[] = "len < 0x2000";
constexpr const char kIPv4Check[] = "currentSelection() ==iPAddress::id_";
// The synthesized SETUP re-encoded up to its vendor's product identifier, which does not fit
// OCTET STRING (SIZE (1..256)).
constexpr const char kSetupCutAtVendor[] =
    "080200010504038890a52805616c696365700581323030327e00210520b8060008914a00040240040061006c00"
    "69006300650180433422c00900003d";

} // namespace

const std::vector<HostileCase>& HostileCases() {
    static const std::vector<HostileCase> cases = {
        {"fast-start forward proposal with multiplex none", MediaHost::Recording, Entry::H225,
         [] {
             H245::OpenLogicalChannel olc = AudioOLC(1, 1, "10.0.0.5:5000", "");
             olc.ref_forwardLogicalChannelParameters().ref_multiplexParameters().select(
                 Mux::none::id_);
             return Steps(true, SetupWithProposal(ToBytes(EncodeOctets(olc))));
         },
         kMultiplexCheck, nullptr, "decode=1 translate=-2"},
        {"fast-start forward proposal with H.222 multiplex", MediaHost::Recording, Entry::H225,
         [] {
             H245::OpenLogicalChannel olc = AudioOLC(1, 1, "10.0.0.5:5000", "");
             olc.ref_forwardLogicalChannelParameters().ref_multiplexParameters().select(
                 Mux::h222LogicalChannelParameters::id_);
             return Steps(true, SetupWithProposal(ToBytes(EncodeOctets(olc))));
         },
         kMultiplexCheck, nullptr, "decode=1 translate=-2"},
        {"OpenLogicalChannelAck message as a fast-start proposal", MediaHost::Recording,
         Entry::H225,
         [] {
             return Steps(true,
                          SetupWithProposal(ReadFile(DataFile("h323/synth-h245-olcack.bin"))));
         },
         kMultiplexCheck, nullptr, "decode=1 translate=-2"},
        {"IPv6 address in a fast-start proposal", MediaHost::NoMediaCallbacks, Entry::H225,
         [] { return Steps(true, SetupWithProposal(ToBytes(EncodeOctets(IPv6AudioOLC(1, 1))))); },
         kIPv4Check, nullptr, "decode=1 translate=-2"},
        {"IPv6 address in a tunnelled OpenLogicalChannel", MediaHost::NoMediaCallbacks, Entry::H225,
         [] { return Steps(true, SetupWithTunnelledOLC(IPv6AudioOLC(1, 1))); }, kIPv4Check, nullptr,
         "decode=1 translate=-2"},
        {"SETUP with 9000 octets of non-standard data", MediaHost::Recording, Entry::H225,
         [] { return Steps(true, SetupWithNonStandardData(9000)); }, kLengthLimit, nullptr,
         "decode=1 translate=1 encode=-2"},
        {"SETUP with 41 fast-start proposals of 200 octets", MediaHost::Recording, Entry::H225,
         [] { return Steps(true, SetupWithProposals(41)); }, kLengthLimit, nullptr,
         "decode=1 translate=1 encode=-2"},
        {"SETUP with 35 tunnelled capability sets", MediaHost::Recording, Entry::H225,
         [] { return Steps(true, SetupWithTunnelledSets(35)); }, kLengthLimit, nullptr,
         "decode=1 translate=1 encode=-2"},
        {"vendor set on a SETUP with 9000 octets of non-standard data", MediaHost::Recording,
         Entry::HeaderString,
         [] { return VendorSteps(SetupWithNonStandardData(9000), "Firewall"); }, kLengthLimit,
         nullptr, "setheader=-2"},
        {"IPv6 address in an OpenLogicalChannel", MediaHost::NoMediaCallbacks, Entry::H245,
         [] { return Steps(true, Encode(Request(IPv6AudioOLC(1, 1)))); }, kIPv4Check, nullptr,
         "h245=-1"},
        {"IPv6 pinhole answered by the host", MediaHost::AnswersIPv6, Entry::H245,
         [] { return Steps(true, Encode(Request(AudioOLC(1, 1, "", "10.0.0.5:5001")))); },
         kIPv4Check, nullptr, "h245=-1"},
        {"IPv6 address in an OpenLogicalChannelAck", MediaHost::NoMediaCallbacks, Entry::H245,
         [] {
             H245::OpenLogicalChannelAck ack = OLCAck(1, "", "");
             auto& parameters =
                 ack.ref_forwardMultiplexAckParameters().ref_h2250LogicalChannelAckParameters();
             SetIPv6(parameters.set_mediaChannel(H245::TransportAddress()), 6000);
             return std::vector<Step>{
                 {true, Encode(Request(AudioOLC(1, 1, "", "10.0.0.5:5001"))), ""},
                 {false, Encode(Response(ack)), ""}};
         },
         kIPv4Check, nullptr, "h245=1 h245=-1"},
        {"IPv6 T.120 separate-stack address", MediaHost::NoMediaCallbacks, Entry::H245,
         [] { return Steps(true, Encode(Request(T120OLC()))); }, kIPv4Check, nullptr, "h245=-1"},
        // Rewritten messages whose new contents break a constraint: the encoder stops half-way.
        {"capability set with every codec vetoed", MediaHost::VetoesEveryCodec, Entry::H245,
         [] { return Steps(true, ReadFile(DataFile("h323/synth-h245-tcs.bin"))); }, nullptr,
         "02300106000881750007", "h245=-1"},
        {"empty vendor", MediaHost::Recording, Entry::HeaderString,
         [] { return VendorSteps(ReadFile(DataFile("h323/synth-setup-faststart.q931.bin")), ""); },
         nullptr, kSetupCutAtVendor, "setheader=-2"},
        {"vendor of 300 characters", MediaHost::Recording, Entry::HeaderString,
         [] {
             return VendorSteps(ReadFile(DataFile("h323/synth-setup-faststart.q931.bin")),
                                std::string(300, 'v'));
         },
         nullptr, kSetupCutAtVendor, "setheader=-2"},
    };
    return cases;
}

void ConfigureHost(MediaHost host) {
    TestHost& recording = TestHost::Get();
    recording.Reset();
    recording.Install();
    switch (host) {
    case MediaHost::Recording:
        break;
    case MediaHost::NoMediaCallbacks:
        voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, nullptr);
        voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, nullptr);
        break;
    case MediaHost::AnswersIPv6:
        recording.answerIPv6 = true;
        break;
    case MediaHost::VetoesEveryCodec:
        for (const char* codec : {"PCMU", "PCMA", "G729A", "(unknown)"})
            recording.refusedCodecs.insert(codec);
        break;
    }
}

std::string Send(Entry entry, const std::vector<Step>& steps, TestCall& call, Bytes& out) {
    std::string trace;
    for (const Step& step : steps) {
        if (!trace.empty())
            trace += ' ';
        switch (entry) {
        case Entry::H225:
            trace += SendH225(call, step.fromOriginator, step.pdu, out);
            break;
        case Entry::H245:
            trace += SendH245(call, step.fromOriginator, step.pdu, out);
            break;
        case Entry::HeaderString:
            trace += SetVendor(call, step.pdu, step.vendor, out);
            break;
        }
    }
    return trace;
}

std::vector<Step> FollowUp(Entry entry) {
    switch (entry) {
    case Entry::H225:
        return Steps(false, ConnectWithH245Address("192.0.2.10:1800"));
    case Entry::H245:
        return Steps(true, Encode(Request(AudioOLC(5, 2, "", "10.0.0.5:5003"))));
    case Entry::HeaderString:
        return VendorSteps(ReadFile(DataFile("h323/synth-setup-faststart.q931.bin")), "Firewall");
    }
    return {};
}
