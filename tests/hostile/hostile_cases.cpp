#include "hostile_cases.h"

#include <initializer_list>
#include <sstream>
#include <utility>

namespace {

// The value a table column names; an unknown name fails the test.
template <class T>
T Named(const std::string& name, std::initializer_list<std::pair<const char*, T>> values) {
    for (const auto& [key, value] : values)
        if (name == key)
            return value;
    ADD_FAILURE() << "unknown name in the hostile cases table: " << name;
    return values.begin()->second;
}

std::string SendH225(TestCall& call, bool fromOriginator, const Bytes& pdu, Bytes& out) {
    const int decoded =
        h323xlate_h225_decodeh225pdu(call.handle, pdu.data(), static_cast<unsigned>(pdu.size()));
    std::string trace = "decode=" + std::to_string(decoded);
    if (decoded != 1)
        return trace;
    const int translated = h323xlate_h225_translateh225pdu(call.handle, fromOriginator, nullptr);
    trace += " translate=" + std::to_string(translated);
    if (translated != 1)
        return trace;
    out.assign(65536, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int encoded = h323xlate_h225_encodeh225pdu(call.handle, out.data(), &size);
    out.resize(encoded == 1 ? size : 0);
    return trace + " encode=" + std::to_string(encoded);
}

std::string SendH245(TestCall& call, bool fromOriginator, const Bytes& pdu, Bytes& out) {
    out.assign(4096, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int result =
        h323xlate_h225_translateh245pdu(call.handle, fromOriginator, pdu.data(),
                                        static_cast<unsigned>(pdu.size()), out.data(), &size);
    out.resize(result == 1 ? size : 0);
    return "h245=" + std::to_string(result);
}

std::string SetVendor(TestCall& call, const Bytes& pdu, std::string vendor, Bytes& out) {
    out.assign(65536, 0);
    unsigned size = static_cast<unsigned>(out.size());
    const int result =
        h323xlate_h225_setheaderstring(call.handle, pdu.data(), static_cast<unsigned>(pdu.size()),
                                       1, &vendor[0], out.data(), &size);
    out.resize(result == 1 ? size : 0);
    return "setheader=" + std::to_string(result);
}

} // namespace

// tests/data/hostile/cases.tsv, one case a line (its columns are described at its top).
const std::vector<HostileCase>& HostileCases() {
    static const std::vector<HostileCase> cases = [] {
        std::vector<HostileCase> all;
        for (const std::vector<std::string>& f : TableRows("hostile/cases.tsv", 8)) {
            HostileCase c{
                f[0],
                Named<MediaHost>(f[1], {{"recording", MediaHost::Recording},
                                        {"no-media-callbacks", MediaHost::NoMediaCallbacks},
                                        {"answers-ipv6", MediaHost::AnswersIPv6},
                                        {"vetoes-every-codec", MediaHost::VetoesEveryCodec}}),
                Named<Entry>(f[2], {{"h225", Entry::H225},
                                    {"h245", Entry::H245},
                                    {"header", Entry::HeaderString}}),
                {},
                f[5],
                f[6],
                f[7]};
            std::istringstream steps(f[3]);
            for (std::string step; steps >> step;)
                c.steps.push_back({step[0] == 'O', ReadFile(DataFile(step.substr(2))), f[4]});
            all.push_back(c);
        }
        return all;
    }();
    return cases;
}

void ConfigureHost(MediaHost host) {
    TestHost& recording = TestHost::Get();
    recording.Reset();
    recording.Install();
    switch (host) {
    case MediaHost::Recording:
        break;
    case MediaHost::NoMediaCallbacks:
        voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, nullptr);
        voipxlate_setfunction(VOIPXLATE_TRANSLATE_MEDIA_ADDR, nullptr);
        break;
    case MediaHost::AnswersIPv6:
        recording.answerIPv6 = true;
        break;
    case MediaHost::VetoesEveryCodec:
        for (const char* codec : {"PCMU", "PCMA", "G729A", "(unknown)"})
            recording.refusedCodecs.insert(codec);
        break;
    }
}

std::string Send(Entry entry, const std::vector<Step>& steps, TestCall& call, Bytes& out) {
    std::string trace;
    for (const Step& step : steps) {
        if (!trace.empty())
            trace += ' ';
        switch (entry) {
        case Entry::H225:
            trace += SendH225(call, step.fromOriginator, step.pdu, out);
            break;
        case Entry::H245:
            trace += SendH245(call, step.fromOriginator, step.pdu, out);
            break;
        case Entry::HeaderString:
            trace += SetVendor(call, step.pdu, step.vendor, out);
            break;
        }
    }
    return trace;
}

// A CONNECT announcing the H.245 address 192.0.2.10:1800 from the destination; an
// OpenLogicalChannel for session 2 from the originator; the synthesized SETUP with a vendor.
std::vector<Step> FollowUp(Entry entry) {
    static const char* const files[] = {"hostile/follow-up-h225.bin", "hostile/follow-up-h245.bin",
                                        "h323/synth-setup-faststart.q931.bin"};
    return {{entry != Entry::H225, ReadFile(DataFile(files[static_cast<int>(entry)])), "Firewall"}};
}
