// sipxlate_udp_translate over a short sequence of datagrams on one connection.
// Input: [policy][log level] then up to 8 records [flags][length][datagram]; record flags:
// bit 0 direction, bit 1 option (proxy behaviour), bit 2 an output buffer smaller than needed.
#include "fuzz_host.h"
#include "sip/translator.h"

#include <voipfilter/voipfilter.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Dialogs that never see a BYE answer stay in the table by design; between inputs the harness
// removes them so that a long run measures the translator, not an ever-growing table.
void ForgetDialogs() {
    SIPTranslator& translator = SIPTranslator::Instance();
    while (!translator.Dialogs().empty())
        translator.Destroy(translator.Dialogs().begin()->second);
}

// Bytes before the first LF, CR or NUL: the start line.
std::size_t StartLineLength(const uint8_t* data, std::size_t size) {
    std::size_t length = 0;
    while (length < size && data[length] != '\n' && data[length] != '\r' && data[length] != 0)
        ++length;
    return length;
}

const char kEmptyLine[] = "\r\n\r\n";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    fuzzhost::Configure(data[0], data[1]);

    sockaddr_type a = fuzzhost::Address(1, 5060), b = fuzzhost::Address(2, 5060),
                  c = fuzzhost::Address(3, 5060), d = fuzzhost::Address(4, 5060);
    SIPConnection* connection = sipxlate_create(nullptr, &a, &b, &c, &d);

    fuzzhost::RecordReader reader(data + 2, size - 2);
    fuzzhost::Record record;
    std::vector<unsigned char> out;
    for (int i = 0; i < 8 && reader.Next(record); ++i) {
        const unsigned capacity =
            (record.flags & 4) ? unsigned(record.size / 2) : unsigned(record.size * 2 + 4096);
        out.assign(capacity, 0xEE);
        unsigned outLength = capacity;
        const int result = sipxlate_udp_translate(
            connection, record.flags & 1, record.data, unsigned(record.size),
            out.empty() ? nullptr : out.data(), &outLength, (record.flags & 2) ? 1 : 0);
        if (result == 1) {
            // A rewritten message fits the buffer with its terminating NUL, starts with the
            // datagram's start line and ends its header block with an empty line. Its body may
            // hold NUL bytes of its own, so the text may end before the length reported.
            fuzzhost::Check(outLength < capacity);
            fuzzhost::Check(out[outLength] == '\0');
            const char* const text = reinterpret_cast<const char*>(out.data());
            const std::size_t startLength = StartLineLength(record.data, record.size);
            fuzzhost::Check(startLength + 4 <= outLength);
            fuzzhost::Check(std::memcmp(text, record.data, startLength) == 0);
            fuzzhost::Check(std::memcmp(text + startLength, "\r\n", 2) == 0);
            fuzzhost::Check(std::search(text, text + outLength, kEmptyLine, kEmptyLine + 4) !=
                            text + outLength);
        }
    }
    sipxlate_udp_destroy(connection);
    sipxlate_destroy(connection);
    ForgetDialogs();
    return 0;
}
