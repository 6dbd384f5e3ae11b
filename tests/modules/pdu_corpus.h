// Test helper: the PDUs of tests/data/modules (see its README) and byte formatting.
#ifndef VOIPFILTER_TESTS_MODULES_PDU_CORPUS_H
#define VOIPFILTER_TESTS_MODULES_PDU_CORPUS_H

#include <string>
#include <vector>

namespace modtest {

struct Pdu {
    std::string file; // name within tests/data/modules
    std::string kind; // "uuie", "ras" or "h245"
    std::string note;
    std::vector<unsigned char> bytes;
};

// Every PDU listed in pdus.tsv, in its order; an empty vector when the index cannot be read.
std::vector<Pdu> LoadCorpus();
// One PDU by file name; its bytes are empty when the file is missing.
Pdu LoadPdu(const std::string& file);
// "0a 1b ..." for failure messages.
std::string Hex(const std::vector<unsigned char>& bytes);

} // namespace modtest

#endif
