// The codec table and capability set filtering (H.245 Annex A capability CHOICEs).
#include "h245/capabilities.h"

#include "host/registry.h"

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

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

using CapabilityTable =
    std::decay_t<decltype(std::declval<TerminalCapabilitySet&>().ref_capabilityTable())>;
using Descriptors =
    std::decay_t<decltype(std::declval<TerminalCapabilitySet&>().ref_capabilityDescriptors())>;
using Simultaneous =
    std::decay_t<decltype(std::declval<CapabilityDescriptor&>().ref_simultaneousCapabilities())>;
using Alternatives = ElementOf<Simultaneous>;

// Copies the entries of received that the host allows into table and lists the numbers of
// those it refuses in removed. An entry without a capability is kept by its number alone.
void FilterCapabilityTable(void* hostContext, voipxlate_allow_codec_function allowCodec,
                           const CapabilityTable& received, CapabilityTable& table,
                           std::vector<int>& removed) {
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
        if (allowCodec(hostContext, kind, name) == 0) {
            removed.push_back(entry.get_capabilityTableEntryNumber().getValue());
            VF_LOG(hostContext, logsource::kH245, 2)
                << "H.245\tCodec " << name << " in TCS was filtered out";
            continue;
        }
        table.push_back(entry);
    }
}

// Copies one descriptor into descriptors without the removed table entries. A descriptor
// without simultaneous capabilities is kept by its number; one whose sets all end up empty
// goes, and so does every empty set.
void FilterDescriptor(const CapabilityDescriptor& descriptor, const std::vector<int>& removed,
                      Descriptors& descriptors) {
    if (!descriptor.simultaneousCapabilities_isPresent()) {
        auto* kept = new CapabilityDescriptor;
        kept->ref_capabilityDescriptorNumber() = descriptor.get_capabilityDescriptorNumber();
        descriptors.push_back(kept);
        return;
    }
    const Simultaneous& simultaneous = descriptor.get_simultaneousCapabilities();
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

} // namespace

int TranslateTerminalCapabilitySet(void* hostContext, TerminalCapabilitySet& tcs) {
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
    CapabilityTable& table = filtered.set_capabilityTable(CapabilityTable());
    Descriptors& descriptors = filtered.set_capabilityDescriptors(Descriptors());

    std::vector<int> removed;
    FilterCapabilityTable(hostContext, allowCodec, tcs.get_capabilityTable(), table, removed);
    if (table.size() == tcs.get_capabilityTable().size())
        return 0;
    // Every alternative set names table entries; a removed entry leaves every set it was in.
    // Numbers are not reassigned.
    const Descriptors& received = tcs.get_capabilityDescriptors();
    for (unsigned d = 0; d < received.size(); ++d)
        FilterDescriptor(received[d], removed, descriptors);
    tcs = filtered;
    return 1;
}
