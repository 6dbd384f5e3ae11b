// Test helper: the PDUs of tests/data/modules (see its README), listed in its pdus.tsv.
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
    Bytes bytes;
};

inline Pdu LoadPdu(const std::string& file, const std::string& kind = "") {
    return Pdu{file, kind, ReadFile(DataFile("modules/" + file))};
}

// Every PDU of pdus.tsv (file, kind, source, where), in its order.
inline std::vector<Pdu> LoadCorpus() {
    std::vector<Pdu> pdus;
    for (const std::string& line : SplitLines(ReadText(DataFile("modules/pdus.tsv")))) {
        const std::vector<std::string> cells = SplitLines(line, '\t');
        if (cells.size() >= 2 && line[0] != '#')
            pdus.push_back(LoadPdu(cells[0], cells[1]));
    }
    return pdus;
}

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
