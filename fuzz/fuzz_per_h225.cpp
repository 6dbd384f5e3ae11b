// Round trip of H323_UserInformation in aligned PER: see per_roundtrip.h.
#include "modules/h323_messages.h"
#include "per_roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzper::RoundTrip<H323_MESSAGES::H323_UserInformation>(data, size);
    return 0;
}
