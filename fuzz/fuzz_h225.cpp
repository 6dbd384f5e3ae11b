// One H.323 call: a short sequence of PDUs from either side, each H.225 PDU through
// h323xlate_h225_decodeh225pdu, _translateh225pdu and _encodeh225pdu, each separate-channel
// H.245 PDU through _translateh245pdu.
// Input: [policy][log level] then up to 8 records [flags][length][PDU]; record flags: bit 0 from
// the originator, bit 1 an output buffer smaller than needed, bit 2 a separate-channel H.245 PDU
// (otherwise a Q.931 message without its TPKT header).
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
        const bool fromOriginator = record.flags & 1;
        const unsigned capacity =
            (record.flags & 2) ? unsigned(record.size / 2) : unsigned(record.size * 2 + 1024);
        out.assign(capacity + 1, 0xEE);
        unsigned outLength = capacity;

        if (record.flags & 4) {
            const int result = h323xlate_h225_translateh245pdu(
                call, fromOriginator, record.data, unsigned(record.size), out.data(), &outLength);
            fuzzhost::Check(result >= -2 && result <= 1);
            if (result > 0)
                fuzzhost::Check(outLength <= capacity && out[capacity] == 0xEE);
            continue;
        }

        if (h323xlate_h225_decodeh225pdu(call, record.data, unsigned(record.size)) != 1)
            continue; // the host must not translate a PDU that did not decode
        int status = 0;
        const int result = h323xlate_h225_translateh225pdu(call, fromOriginator, &status);
        fuzzhost::Check(result >= -2 && result <= 1);
        const int encoded = h323xlate_h225_encodeh225pdu(call, out.data(), &outLength);
        // Nothing to encode unless the translation changed the PDU; a refused encoding (-2 in
        // the hardened flavour) shuts the call down like a refused translation.
        if (result != 1)
            fuzzhost::Check(encoded == 0);
        fuzzhost::Check(encoded >= -2 && encoded <= 1);
        if (encoded == 1)
            fuzzhost::Check(outLength <= capacity && out[capacity] == 0xEE);
        voipxlate_callinformation* info = h323xlate_h225_getcallstatus(call);
        fuzzhost::Check(info != nullptr && info->state <= VOIPXLATE_H225_CONNECTED);
    }
    h323xlate_h225_destroy(call);
    return 0;
}
