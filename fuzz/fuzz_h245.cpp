// h323xlate_h225_translateh245pdu: H.245 PDUs of a separate H.245 channel on one call.
// Input: [policy][log level] then up to 8 records [flags][length][H.245 PDU]; record flags: bit 0
// from the originator, bit 1 an output buffer smaller than needed.
#include "fuzz_host.h"

#include <voipfilter/voipfilter.h>

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    fuzzhost::Configure(data[0], data[1]);

    sockaddr_type a = fuzzhost::Address(1, 1720), b = fuzzhost::Address(2, 1720),
                  c = fuzzhost::Address(3, 1720), d = fuzzhost::Address(4, 1720);
    H225TranslatorContext* call = h323xlate_h225_create(nullptr, &a, &b, &c, &d);

    fuzzhost::RecordReader reader(data + 2, size - 2);
    fuzzhost::Record record;
    std::vector<unsigned char> out;
    for (int i = 0; i < 8 && reader.Next(record); ++i) {
        const unsigned capacity =
            (record.flags & 2) ? unsigned(record.size / 2) : unsigned(record.size * 2 + 1024);
        out.assign(capacity + 1, 0xEE);
        unsigned outLength = capacity;
        const int result = h323xlate_h225_translateh245pdu(
            call, record.flags & 1, record.data, unsigned(record.size), out.data(), &outLength);
        fuzzhost::Check(result >= -2 && result <= 1);
        if (result == 1)
            fuzzhost::Check(outLength <= capacity && out[capacity] == 0xEE);
    }
    h323xlate_h225_destroy(call);
    return 0;
}
