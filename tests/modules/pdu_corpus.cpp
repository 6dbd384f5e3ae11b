#include "pdu_corpus.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

namespace modtest {

namespace {

std::string DataPath(const std::string& file) {
    return std::string(VOIPFILTER_TEST_DATA_DIR) + "/modules/" + file;
}

std::vector<unsigned char> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

} // namespace

std::vector<Pdu> LoadCorpus() {
    std::vector<Pdu> pdus;
    std::ifstream index(DataPath("pdus.tsv"));
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
        pdu.bytes = ReadFile(DataPath(pdu.file));
        pdus.push_back(pdu);
    }
    return pdus;
}

Pdu LoadPdu(const std::string& file) {
    Pdu pdu;
    pdu.file = file;
    pdu.bytes = ReadFile(DataPath(file));
    return pdu;
}

std::string Hex(const std::vector<unsigned char>& bytes) {
    std::string out;
    char buf[4];
    for (unsigned char b : bytes) {
        std::snprintf(buf, sizeof buf, "%02x ", b);
        out += buf;
    }
    if (!out.empty())
        out.pop_back();
    return out;
}

} // namespace modtest
