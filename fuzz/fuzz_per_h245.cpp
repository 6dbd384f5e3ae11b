// Round trip of MultimediaSystemControlMessage in aligned PER: see per_roundtrip.h.
#include "modules/multimedia_system_control.h"
#include "per_roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzper::RoundTrip<MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage>(data, size);
    return 0;
}
