// h323xlate_h225_getheaderstring and h323xlate_h225_setheaderstring on a raw Q.931 message.
// Input: [policy][log level][operation][selector][value length] value PDU; operation bit 0 set
// (otherwise get), bit 1 an output buffer smaller than needed.
#include "fuzz_host.h"

#include <voipfilter/voipfilter.h>

#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5)
        return 0;
    fuzzhost::Configure(data[0], data[1]);
    const uint8_t operation = data[2];
    const int selector = int(int8_t(data[3]));
    size_t valueLength = data[4];
    const uint8_t* rest = data + 5;
    size_t restSize = size - 5;
    if (valueLength > restSize)
        valueLength = restSize;
    std::string value(reinterpret_cast<const char*>(rest), valueLength);
    const uint8_t* pdu = rest + valueLength;
    const unsigned pduLength = unsigned(restSize - valueLength);

    sockaddr_type zero;
    std::memset(&zero, 0, sizeof zero);
    H225TranslatorContext* call = h323xlate_h225_create(nullptr, &zero, &zero, &zero, &zero);
    if (operation & 1) {
        const unsigned capacity = (operation & 2) ? pduLength / 2 : pduLength + 1024;
        std::vector<unsigned char> out(capacity + 1, 0xEE);
        unsigned outLength = capacity;
        const int result = h323xlate_h225_setheaderstring(call, pdu, pduLength, selector, &value[0],
                                                          out.data(), &outLength);
        if (result == 1)
            fuzzhost::Check(outLength <= capacity && out[capacity] == 0xEE);
    } else {
        const char* text = h323xlate_h225_getheaderstring(call, pdu, pduLength, selector);
        if (text != nullptr) {
            volatile size_t n = std::strlen(text);
            (void)n;
        }
    }
    h323xlate_h225_destroy(call);
    return 0;
}
