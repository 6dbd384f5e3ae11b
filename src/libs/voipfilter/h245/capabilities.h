// Capabilities and the codec table: what kind of media a channel or capability carries and the
// name the host's codec lists know it by, and the host's codec veto on capability sets.
#ifndef VOIPFILTER_H245_CAPABILITIES_H
#define VOIPFILTER_H245_CAPABILITIES_H

#include "modules/multimedia_system_control.h"

// Media kinds of the codec table (H.245 capability families).
namespace mediakind {
constexpr int kUnknown = 0;
constexpr int kAudio = 1;
constexpr int kVideo = 2;
constexpr int kData = 3;
} // namespace mediakind

// The codec table's name for an alternative of a media kind's capability CHOICE (-1: none). A
// name is always found: every kind has a catch-all "(unknown)" row.
const char* CodecName(int kind, int alternative);

// Classifies a logical channel's data type into kind and codec name. A null data type, and every
// type that is not audio, video or a data application, is kind 0 "(unknown)".
const char* ClassifyDataType(const MULTIMEDIA_SYSTEM_CONTROL::DataType* dataType, int& kind);

// Removes the capabilities whose codec the host's allow-codec callback refuses, with their
// numbers in every alternative set; sets and descriptors left empty go too. Returns 1 when
// something was removed, 0 when the set stays as it is (or no callback is set).
int TranslateTerminalCapabilitySet(void* hostContext,
                                   MULTIMEDIA_SYSTEM_CONTROL::TerminalCapabilitySet& tcs);

#endif
