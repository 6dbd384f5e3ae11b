#include "pdu_corpus.h"

#include <sstream>

namespace modtest {

std::vector<Pdu> LoadCorpus() {
    std::vector<Pdu> pdus;
    std::istringstream index(ReadText(DataFile("modules/pdus.tsv")));
    std::string line;
    while (std::getline(index, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream fields(line);
        Pdu pdu;
        std::string source;
        std::getline(fields, pdu.file, '\t');
        std::getline(fields, pdu.kind, '\t');
        std::getline(fields, source, '\t');
        std::getline(fields, pdu.note, '\t');
        pdu.note = source + ", " + pdu.note;
        pdu.bytes = ReadFile(DataFile("modules/" + pdu.file));
        pdus.push_back(pdu);
    }
    return pdus;
}

Pdu LoadPdu(const std::string& file) {
    Pdu pdu;
    pdu.file = file;
    pdu.bytes = ReadFile(DataFile("modules/" + file));
    return pdu;
}

} // namespace modtest
