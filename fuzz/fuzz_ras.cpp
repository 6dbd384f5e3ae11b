// h323xlate_ras_translatepdu over a short sequence of RAS messages on one association (so that
// registrations build the mapping table that rejections and unregistrations then empty).
// Input: [policy][log level] then up to 8 records [flags][length][RAS message]; record flags:
// bit 0 from the endpoint side, bit 1 an output buffer smaller than needed, bit 2 the host
// translates signalling addresses (slots 10 and 11).
#include "fuzz_host.h"

#include <voipfilter/voipfilter.h>

#include <cstring>
#include <vector>

namespace {

void TranslateAddr(void*, int, const sockaddr_type* found, sockaddr_type* replacement,
                   void** mapping) {
    fuzzhost::Check(found != nullptr && replacement != nullptr && mapping != nullptr &&
                    *mapping == nullptr);
    replacement->addr[0] = 203;
    *mapping = reinterpret_cast<void*>(uintptr_t(1) + fuzzhost::NextHandle()++);
}

void RemoveMapping(void*, void*) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    fuzzhost::Configure(data[0], data[1]);

    sockaddr_type a = fuzzhost::Address(1, 1719), b = fuzzhost::Address(2, 1719),
                  c = fuzzhost::Address(3, 1719), d = fuzzhost::Address(4, 1719);
    RASTranslatorContext* ras = h323xlate_ras_create(nullptr, &a, &b, &c, &d);

    fuzzhost::RecordReader reader(data + 2, size - 2);
    fuzzhost::Record record;
    std::vector<unsigned char> out;
    for (int i = 0; i < 8 && reader.Next(record); ++i) {
        const bool host = record.flags & 4;
        voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR, fuzzhost::Slot(host, &TranslateAddr));
        voipxlate_setfunction(VOIPXLATE_REMOVE_MAPPING, fuzzhost::Slot(host, &RemoveMapping));

        const unsigned capacity =
            (record.flags & 2) ? unsigned(record.size / 2) : unsigned(record.size * 2 + 1024);
        out.assign(capacity + 1, 0xEE);
        unsigned outLength = capacity;
        int status = 0;
        const int result =
            h323xlate_ras_translatepdu(ras, record.flags & 1, record.data, unsigned(record.size),
                                       out.data(), &outLength, &status);
        fuzzhost::Check(result >= -2 && result <= 1);
        if (result == 1)
            fuzzhost::Check(outLength <= capacity && out[capacity] == 0xEE);
        if (result == -2)
            fuzzhost::Check(status == -1);
    }
    h323xlate_ras_destroy(ras);
    return 0;
}
