// Writes the hostile messages as seed inputs of the fuzz targets, so that the fuzzers start from
// messages at the sizes and shapes that once reached an assertion (fuzz/corpus/README.md).
// Usage: hostile_seeds CORPUS_DIR
//   writes CORPUS_DIR/<target>/hostile-<case number>, and long-q931-elements: the synthesized
//   SETUP grown to just under 65 535 octets by Display elements before its user-user element.
#include "hostile_cases.h"

#include <fstream>
#include <iostream>

namespace {

// The policy byte of the fuzz hosts (fuzz/fuzz_host.h) closest to each test host.
unsigned char Policy(MediaHost host) {
    const unsigned char open = 0x01, veto = 0x04, vetoAll = 0x08, hold = 0x10, close = 0x80;
    switch (host) {
    case MediaHost::NoMediaCallbacks:
        return veto | hold | close;
    case MediaHost::VetoesEveryCodec:
        return open | veto | vetoAll | hold | close;
    default:
        return open | veto | hold | close;
    }
}

Bytes Record(unsigned char flags, const Bytes& pdu) {
    return Cat({{flags, static_cast<unsigned char>(pdu.size() >> 8),
                 static_cast<unsigned char>(pdu.size() & 0xFF)},
                pdu});
}

void Write(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: hostile_seeds CORPUS_DIR\n";
        return 1;
    }
    const std::string corpus = argv[1];
    const std::vector<HostileCase>& cases = HostileCases();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const HostileCase& c = cases[i];
        const std::string name = "/hostile-" + std::to_string(i);
        const std::vector<Step>& steps = c.steps;
        Bytes calls = {Policy(c.host), 5};
        Bytes channel = calls;
        for (const Step& step : steps) {
            const unsigned char side = step.fromOriginator ? 1 : 0;
            switch (c.entry) {
            case Entry::H225:
                calls = Cat({calls, Record(side, step.pdu)});
                // The user information alone (after the Q.931 header and the user-user element's
                // identifier, length and discriminator) for the round-trip target.
                Write(corpus + "/per_h225" + name, Bytes(step.pdu.begin() + 9, step.pdu.end()));
                break;
            case Entry::H245:
                calls = Cat({calls, Record(side | 4, step.pdu)});
                channel = Cat({channel, Record(side, step.pdu)});
                Write(corpus + "/per_h245" + name, step.pdu);
                break;
            case Entry::HeaderString: {
                const std::string vendor = step.vendor.substr(0, 255);
                Write(corpus + "/header" + name,
                      Cat({{Policy(c.host), 5, 1, 1, static_cast<unsigned char>(vendor.size())},
                           Bytes(vendor.begin(), vendor.end()),
                           step.pdu}));
                break;
            }
            }
        }
        if (calls.size() > 2)
            Write(corpus + "/h225" + name, calls);
        if (channel.size() > 2)
            Write(corpus + "/h245" + name, channel);
    }
    // Q.931 4.5.16: Display, identifier 0x28, up to 255 octets here.
    const Bytes setup = ReadFile(DataFile("h323/synth-setup-faststart.q931.bin"));
    Bytes grown(setup.begin(), setup.begin() + 5);
    while (grown.size() + 257 + setup.size() - 5 <= 0xFFFF)
        grown = Cat({grown, {0x28, 0xFF}, Bytes(255, 'D')});
    grown.insert(grown.end(), setup.begin() + 5, setup.end());
    Write(corpus + "/h225/long-q931-elements",
          Cat({{Policy(MediaHost::Recording), 5}, Record(1, grown)}));
    Write(corpus + "/header/long-q931-elements",
          Cat({{Policy(MediaHost::Recording), 5, 1, 1, 0}, grown}));
    return 0;
}
