// H.245 media control: the message dispatcher shared by a separate H.245 connection and H.245
// tunnelled in H.225.0 (H.323 8.2.1), the codec table, and capability set filtering.
#include "h245_xlate.h"

#include "asn1/asn_codec.h"
#include "h225_xlate.h"
#include "voip_translator.h"

#include <algorithm>
#include <type_traits>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

namespace {

struct CodecRow {
    int kind;
    int alternative; // index in the kind's capability CHOICE; -1 matches any
    const char* name;
};

// Alternatives of AudioCapability, VideoCapability and DataApplicationCapability.application
// (H.245 Annex A) as the host knows them. G.723.1 is "G723" and its Annex C form "G7231";
// g729Extensions shares "G729" with plain G.729 and both GSM rates are "GSM": hosts' codec lists
// use these names.
const CodecRow kCodecTable[] = {
    {1, 0, "non-standard"}, {1, 1, "PCMA"},       {1, 2, "PCMA"},         {1, 3, "PCMU"},
    {1, 4, "PCMU"},         {1, 5, "G722-64k"},   {1, 6, "G722-56k"},     {1, 7, "G722-48k"},
    {1, 8, "G723"},         {1, 9, "G728"},       {1, 10, "G729"},        {1, 11, "G729A"},
    {1, 12, "is11172"},     {1, 13, "is13818"},   {1, 14, "G729B"},       {1, 15, "G729AB"},
    {1, 16, "G7231"},       {1, 17, "GSM"},       {1, 18, "GSM"},         {1, 19, "GSM-EFR"},
    {1, 20, "generic"},     {1, 21, "G729"},      {2, 0, "non-standard"}, {2, 1, "H261"},
    {2, 2, "H262"},         {2, 3, "H263"},       {2, 4, "is11172"},      {2, 5, "generic"},
    {3, 0, "non-standard"}, {3, 1, "t120"},       {3, 12, "t38"},         {3, 6, "h224"},
    {3, 13, "generic"},     {1, -1, "(unknown)"}, {2, -1, "(unknown)"},   {3, -1, "(unknown)"},
    {0, -1, "(unknown)"},
};
static_assert(sizeof kCodecTable / sizeof kCodecTable[0] == 37, "the codec table has 37 rows");

const char* CallSide(bool fromOriginator) {
    return fromOriginator ? "originator" : "destination";
}

} // namespace

const char* CodecName(int kind, int alternative) {
    for (const CodecRow& row : kCodecTable)
        if (row.kind == kind && (row.alternative == -1 || row.alternative == alternative))
            return row.name;
    return "(unknown)";
}

const char* ClassifyDataType(const DataType* dataType, int& kind) {
    int alternative = -1;
    kind = mediakind::kUnknown;
    if (dataType != nullptr) {
        if (dataType->audioData_isSelected()) {
            kind = mediakind::kAudio;
            alternative = dataType->get_audioData().currentSelection();
        } else if (dataType->videoData_isSelected()) {
            kind = mediakind::kVideo;
            alternative = dataType->get_videoData().currentSelection();
        } else if (dataType->data_isSelected()) {
            kind = mediakind::kData;
            alternative = dataType->get_data().get_application().currentSelection();
        }
    }
    return CodecName(kind, alternative);
}

FastStartElement ClassifyFastStartElement(OpenLogicalChannel& olc) {
    FastStartElement element;
    if (olc.reverseLogicalChannelParameters_isPresent()) {
        element.reverse = true;
        auto& reverse = olc.ref_reverseLogicalChannelParameters();
        if (reverse.multiplexParameters_isPresent() &&
            reverse.ref_multiplexParameters().h2250LogicalChannelParameters_isSelected()) {
            element.parameters =
                &reverse.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
            element.dataType = &reverse.get_dataType();
        }
    } else {
        auto& forward = olc.ref_forwardLogicalChannelParameters();
        if (forward.ref_multiplexParameters().h2250LogicalChannelParameters_isSelected()) {
            element.parameters =
                &forward.ref_multiplexParameters().ref_h2250LogicalChannelParameters();
            element.dataType = &forward.get_dataType();
        }
    }
    return element;
}

// --- Separate channel and tunnelling
// --------------------------------------------------------------

int H225TranslatorContext::TranslateH245(bool fromOriginator, const unsigned char* input,
                                         unsigned int length, unsigned char* output,
                                         unsigned int* outputLength) {
    MultimediaSystemControlMessage message;
    const int decoded = ASN1::ASNDecode(input, length, message);
    if (decoded < 0) {
        VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tcannot decode H.245 element";
        return decoded;
    }
    const int result = TranslateH245(fromOriginator, message);
    if (result > 0)
        return ASN1::ASNEncode(message, output, outputLength);
    return result;
}

int H225TranslatorContext::TranslateTunnelledH245(bool fromOriginator,
                                                  OctetStringList& h245Control) {
    int changed = 0;
    for (unsigned i = 0; i < h245Control.size(); ++i) {
        ASN1::OCTET_STRING& element = h245Control[i];
        MultimediaSystemControlMessage message;
        if (ASN1::ASNDecode(element, message) < 0) {
            VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\tcannot decode H.245 element";
            continue;
        }
        const int result = TranslateH245(fromOriginator, message);
        if (result < 0) {
            VF_LOG(HostContext(), logsource::kH245, 1) << "H.245\terror translating H.245 element";
        } else if (result == 0) {
            VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tH.245 element not translated";
        } else {
            VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tTranslating H.245 element";
            ASN1::ASNEncode(message, element);
            changed = 1;
        }
    }
    return changed;
}

int H225TranslatorContext::TranslateH245(bool fromOriginator,
                                         MultimediaSystemControlMessage& message) {
    VF_LOG(HostContext(), logsource::kH245, 5)
        << "H.225\tTranslating H.245 from call " << CallSide(fromOriginator) << '\n'
        << message;

    int result = 0;
    if (message.request_isSelected()) {
        RequestMessage& request = message.ref_request();
        if (request.terminalCapabilitySet_isSelected()) {
            result = TranslateTerminalCapabilitySet(request.ref_terminalCapabilitySet());
        } else if (request.openLogicalChannel_isSelected()) {
            // H.323 8.1.7: a callee that opens channels with H.245 before CONNECT has turned
            // the fast start offer down.
            if (callInfo_.state != VOIPXLATE_H225_CONNECTED && !fromOriginator &&
                (setupFlags_ & setupflag::kFastStartOffered))
                RefuseFastStart();
            result = TranslateOpenLogicalChannel(fromOriginator, request.ref_openLogicalChannel());
            if (result < 0) {
                VF_LOG(HostContext(), logsource::kH245, 1)
                    << "H.245\tOLC translation failed for H.245 message";
            } else if (result > 0) {
                VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tOLC translated";
            } else {
                VF_LOG(HostContext(), logsource::kH245, 2)
                    << "H.245\tNo translation required for OLC";
            }
        }
    } else if (message.response_isSelected()) {
        ResponseMessage& response = message.ref_response();
        if (response.openLogicalChannelAck_isSelected()) {
            result = TranslateOpenLogicalChannelAck(fromOriginator,
                                                    response.ref_openLogicalChannelAck());
            if (result < 0) {
                VF_LOG(HostContext(), logsource::kH245, 1)
                    << "H.245\tOLCack translation failed for H.245 message";
            } else if (result > 0) {
                VF_LOG(HostContext(), logsource::kH245, 2) << "H.245\tOLCack translated";
            } else {
                VF_LOG(HostContext(), logsource::kH245, 2)
                    << "H.245\tNo translation required for OLCack";
            }
        }
    }
    return result;
}

// --- Capability set filtering --------------------------------------------------------------------

namespace {

// Kind and codec name of one capability table entry. Data applications are deliberately kind 0
// here: hosts filter capability sets on audio and video only.
const char* ClassifyCapability(const Capability& capability, int& kind) {
    int alternative = -1;
    kind = mediakind::kUnknown;
    if (capability.receiveVideoCapability_isSelected()) {
        kind = mediakind::kVideo;
        alternative = capability.get_receiveVideoCapability().currentSelection();
    } else if (capability.transmitVideoCapability_isSelected()) {
        kind = mediakind::kVideo;
        alternative = capability.get_transmitVideoCapability().currentSelection();
    } else if (capability.receiveAndTransmitVideoCapability_isSelected()) {
        kind = mediakind::kVideo;
        alternative = capability.get_receiveAndTransmitVideoCapability().currentSelection();
    } else if (capability.receiveAudioCapability_isSelected()) {
        kind = mediakind::kAudio;
        alternative = capability.get_receiveAudioCapability().currentSelection();
    } else if (capability.transmitAudioCapability_isSelected()) {
        kind = mediakind::kAudio;
        alternative = capability.get_transmitAudioCapability().currentSelection();
    } else if (capability.receiveAndTransmitAudioCapability_isSelected()) {
        kind = mediakind::kAudio;
        alternative = capability.get_receiveAndTransmitAudioCapability().currentSelection();
    }
    return CodecName(kind, alternative);
}

template <class T> using ElementOf = typename std::decay_t<T>::value_type;

} // namespace

int H225TranslatorContext::TranslateTerminalCapabilitySet(TerminalCapabilitySet& tcs) {
    auto allowCodec =
        VoIPTranslator::Current().Callback<voipxlate_allow_codec_function>(VOIPXLATE_ALLOW_CODEC);
    if (allowCodec == nullptr || !tcs.capabilityDescriptors_isPresent() ||
        !tcs.capabilityTable_isPresent())
        return 0;

    TerminalCapabilitySet filtered;
    filtered.ref_sequenceNumber() = tcs.get_sequenceNumber();
    filtered.ref_protocolIdentifier() = tcs.get_protocolIdentifier();
    if (tcs.multiplexCapability_isPresent())
        filtered.set_multiplexCapability(tcs.get_multiplexCapability());
    using Table = std::decay_t<decltype(tcs.ref_capabilityTable())>;
    using Descriptors = std::decay_t<decltype(tcs.ref_capabilityDescriptors())>;
    auto& table = filtered.set_capabilityTable(Table());
    auto& descriptors = filtered.set_capabilityDescriptors(Descriptors());

    const auto& received = tcs.get_capabilityTable();
    std::vector<int> removed;
    for (unsigned i = 0; i < received.size(); ++i) {
        const CapabilityTableEntry& entry = received[i];
        if (!entry.capability_isPresent()) {
            auto* kept = new CapabilityTableEntry;
            kept->ref_capabilityTableEntryNumber() = entry.get_capabilityTableEntryNumber();
            table.push_back(kept);
            continue;
        }
        int kind;
        const char* name = ClassifyCapability(entry.get_capability(), kind);
        if (allowCodec(HostContext(), kind, name) == 0) {
            removed.push_back(entry.get_capabilityTableEntryNumber().getValue());
            VF_LOG(HostContext(), logsource::kH245, 2)
                << "H.245\tCodec " << name << " in TCS was filtered out";
            continue;
        }
        table.push_back(entry);
    }
    if (table.size() == received.size())
        return 0;

    // Every alternative set names table entries; a removed entry leaves every
    // set it was in, and a set or descriptor left empty goes too. Numbers are not reassigned.
    const auto& receivedDescriptors = tcs.get_capabilityDescriptors();
    for (unsigned d = 0; d < receivedDescriptors.size(); ++d) {
        const CapabilityDescriptor& descriptor = receivedDescriptors[d];
        if (!descriptor.simultaneousCapabilities_isPresent()) {
            auto* kept = new CapabilityDescriptor;
            kept->ref_capabilityDescriptorNumber() = descriptor.get_capabilityDescriptorNumber();
            descriptors.push_back(kept);
            continue;
        }
        const auto& simultaneous = descriptor.get_simultaneousCapabilities();
        using Simultaneous = std::decay_t<decltype(simultaneous)>;
        using Alternatives = ElementOf<Simultaneous>;
        Simultaneous* newSimultaneous = nullptr;
        for (unsigned a = 0; a < simultaneous.size(); ++a) {
            const Alternatives& alternatives = simultaneous[a];
            Alternatives* newAlternatives = nullptr;
            for (unsigned n = 0; n < alternatives.size(); ++n) {
                const auto& number = alternatives[n];
                if (std::find(removed.begin(), removed.end(), number.getValue()) != removed.end())
                    continue;
                if (newSimultaneous == nullptr) {
                    auto* kept = new CapabilityDescriptor;
                    kept->ref_capabilityDescriptorNumber() =
                        descriptor.get_capabilityDescriptorNumber();
                    descriptors.push_back(kept);
                    newSimultaneous = &kept->set_simultaneousCapabilities(Simultaneous());
                }
                if (newAlternatives == nullptr) {
                    newAlternatives = new Alternatives;
                    newSimultaneous->push_back(newAlternatives);
                }
                newAlternatives->push_back(number);
            }
        }
    }
    tcs = filtered;
    return 1;
}
