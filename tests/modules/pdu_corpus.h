// Test helper: the PDUs of tests/data/modules (see its README).
#ifndef VOIPFILTER_TESTS_MODULES_PDU_CORPUS_H
#define VOIPFILTER_TESTS_MODULES_PDU_CORPUS_H

#include "test_util.h"

#include "modules/h323_messages.h"

#include <string>
#include <vector>

namespace modtest {

struct Pdu {
    std::string file; // name within tests/data/modules
    std::string kind; // "uuie", "ras" or "h245"
    std::string note;
    Bytes bytes;
};

// Every PDU listed in pdus.tsv, in its order; an empty vector when the index cannot be read.
std::vector<Pdu> LoadCorpus();
// One PDU by file name; its bytes are empty when the file is missing.
Pdu LoadPdu(const std::string& file);

// Calls f with a null pointer to the message type of the kind: H323_UserInformation,
// RasMessage or MultimediaSystemControlMessage.
template <class F> void WithType(const std::string& kind, F&& f) {
    if (kind == "uuie")
        f(static_cast<H323_MESSAGES::H323_UserInformation*>(nullptr));
    else if (kind == "ras")
        f(static_cast<H323_MESSAGES::RasMessage*>(nullptr));
    else
        f(static_cast<MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage*>(nullptr));
}

} // namespace modtest

#endif
