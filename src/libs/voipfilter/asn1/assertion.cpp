// What a failed assertion or an incomplete encoding means, in the flavour this file is built for
// (VOIPFILTER_HARDENED defined: hardened). It is the only source that differs between the two
// flavours of the library; see assertionFailed in asn1.h.
#include "asn1/asn1.h"

#include <cstdio>
#include <cstdlib>

namespace ASN1 {

#ifdef VOIPFILTER_HARDENED

void assertionFailed(const char* expr, const char*, unsigned, const char*) {
    throw Refusal(expr);
}

void encodingIncomplete() {
    throw Refusal("incomplete PER encoding");
}

bool hardenedBuild() noexcept {
    return true;
}

#else

void assertionFailed(const char* expr, const char* file, unsigned line, const char* function) {
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, expr);
    std::fflush(stderr);
    std::abort();
}

void encodingIncomplete() {}

bool hardenedBuild() noexcept {
    return false;
}

#endif

} // namespace ASN1
