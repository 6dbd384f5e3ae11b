// SIP over UDP: an INVITE with SDP and its 200 OK, captured from real softphones (X-Lite and
// Verso), through sipxlate_udp_translate with logging off and a minimal host.
#include "bench_util.h"
#include "sip/translator.h"

namespace {

struct SipFixture {
    std::vector<unsigned char> invite = bench::ReadData("sip/g711/001.sip");
    std::vector<unsigned char> ok = bench::ReadData("sip/g711/006.sip");
    std::vector<unsigned char> out = std::vector<unsigned char>(8192);
    sockaddr_type a = bench::Ipv4(10, 0, 0, 5, 5060), b = bench::Ipv4(198, 51, 100, 9, 5060),
                  c = bench::Ipv4(203, 0, 113, 1, 5060), d = bench::Ipv4(198, 51, 100, 9, 5060);
    SIPConnection* connection = nullptr;

    SipFixture() {
        bench::InstallMinimalHost();
        connection = sipxlate_create(nullptr, &a, &b, &c, &d);
    }
    ~SipFixture() {
        sipxlate_udp_destroy(connection);
        sipxlate_destroy(connection);
    }
    int Translate(const std::vector<unsigned char>& message) {
        unsigned length = unsigned(out.size());
        return sipxlate_udp_translate(connection, 1, message.data(), unsigned(message.size()),
                                      out.data(), &length, 1);
    }
    bool Expect(benchmark::State& state, const char* name,
                const std::vector<unsigned char>& message) {
        unsigned length = unsigned(out.size());
        sipxlate_udp_translate(connection, 1, message.data(), unsigned(message.size()), out.data(),
                               &length, 1);
        return bench::ExpectOutput(state, name, out, length);
    }
};

// The INVITE of a dialog the translator already knows (a retransmission, or the steady cost of
// an offer whose media did not move).
void BM_SipInvite(benchmark::State& state) {
    SipFixture f;
    f.Translate(f.invite);
    if (!f.Expect(state, "SipInvite", f.invite))
        return;
    bench::AllocationMeter meter(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(f.Translate(f.invite));
    meter.Finish();
}
BENCHMARK(BM_SipInvite)->Apply(bench::FixedIterations);

// The 200 OK answer with SDP.
void BM_SipInvite200(benchmark::State& state) {
    SipFixture f;
    f.Translate(f.invite);
    f.Translate(f.ok);
    if (!f.Expect(state, "SipInvite200", f.ok))
        return;
    bench::AllocationMeter meter(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(f.Translate(f.ok));
    meter.Finish();
}
BENCHMARK(BM_SipInvite200)->Apply(bench::FixedIterations);

// Memory the translator keeps per dialog: dialogs whose INVITE is never answered stay in the
// table by design, so this is also the growth rate of a table fed by abandoned calls.
void BM_SipDialogMemory(benchmark::State& state) {
    SipFixture f;
    const std::string base(f.invite.begin(), f.invite.end());
    const std::string::size_type callId = base.find("Call-ID: ");
    int64_t bytes = 0;
    const int dialogs = 1000;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::string> messages;
        for (int i = 0; i < dialogs; ++i) {
            std::string m = base;
            m.insert(callId + 9,
                     "bench" + std::to_string(i) + "-" + std::to_string(state.iterations()) + "-");
            messages.push_back(m);
        }
        const int64_t before = CurrentAllocStats().liveBytes;
        state.ResumeTiming();
        for (const std::string& m : messages) {
            unsigned length = unsigned(f.out.size());
            sipxlate_udp_translate(f.connection, 1,
                                   reinterpret_cast<const unsigned char*>(m.data()),
                                   unsigned(m.size()), f.out.data(), &length, 1);
        }
        state.PauseTiming();
        bytes = CurrentAllocStats().liveBytes - before;
        SIPTranslator& translator = SIPTranslator::Instance();
        while (!translator.Dialogs().empty())
            translator.Destroy(translator.Dialogs().begin()->second);
        state.ResumeTiming();
    }
    state.counters["bytes/dialog"] = double(bytes) / dialogs;
}
BENCHMARK(BM_SipDialogMemory)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
