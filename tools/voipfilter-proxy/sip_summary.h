// What the proxy itself reads from a SIP datagram to route it: the Call-ID that ties the datagram
// to its call, and, from the start line and CSeq, whether it is a request or which request a
// response answers. Everything else is the library's business.
#ifndef VOIPFILTER_PROXY_SIP_SUMMARY_H
#define VOIPFILTER_PROXY_SIP_SUMMARY_H

#include <cstddef>
#include <string>

namespace proxy {

struct SipSummary {
    bool valid = false; // a start line and a Call-ID were found
    bool response = false;
    int status = 0;     // responses: the status code
    std::string method; // requests: the method; responses: the CSeq method (upper case)
    std::string callId;
};

// Reads the start line and the header block (up to the first empty line); header names are
// matched without regard to case, compact forms included ("i" for Call-ID). Linear in the size.
SipSummary summarizeSip(const char* data, size_t length);

// The answer to a BYE that the library takes as the end of the dialog with this Call-ID: the
// proxy hands it to the library (and sends it nowhere) to end a dialog that it gives up on.
std::string dialogEndMessage(const std::string& callId);

} // namespace proxy

#endif
