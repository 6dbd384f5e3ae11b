// H.323: the 357-octet fast-start SETUP (H.225.0 v4, six fast-start proposals, tunnelled TCS and
// MSD, built by an independent encoder), a real call's SETUP and CONNECT (Callgen323 to a 310i),
// H.245 OpenLogicalChannel, its Ack and a TerminalCapabilitySet, and a RAS RegistrationRequest.
// Each is measured decode only, encode only, and through the C API as a host calls it.
#include "asn1/asn_codec.h"
#include "bench_util.h"
#include "h225/call.h"
#include "modules/h323_messages.h"
#include "modules/multimedia_system_control.h"

#include <fstream>
#include <sstream>

namespace {

using Bytes = std::vector<unsigned char>;

// A PDU of a call file (lines "frame side kind hex") by frame number and kind.
Bytes CallPdu(const std::string& file, int frame, const std::string& kind) {
    std::ifstream in(std::string(VOIPFILTER_TEST_DATA_DIR) + "/" + file);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        int number;
        std::string side, what, hex;
        if (fields >> number >> side >> what >> hex && number == frame && what == kind) {
            Bytes pdu;
            for (size_t i = 0; i + 1 < hex.size(); i += 2)
                pdu.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
            return pdu;
        }
    }
    std::fprintf(stderr, "no frame %d in %s\n", frame, file.c_str());
    std::exit(1);
}

// The PER payload of a Q.931 message's user-user element.
Bytes UserUserPayload(const Bytes& q931) {
    size_t offset = 5;
    while (offset + 4 <= q931.size()) {
        const unsigned char id = q931[offset];
        if (id == 0x7E) {
            const size_t length = (size_t(q931[offset + 1]) << 8) | q931[offset + 2];
            return Bytes(q931.begin() + long(offset + 4), q931.begin() + long(offset + 3 + length));
        }
        offset += (id & 0x80) ? 1 : 2 + q931[offset + 1];
    }
    std::fprintf(stderr, "no user-user element\n");
    std::exit(1);
}

const Bytes& FastStartSetup() {
    static const Bytes pdu = bench::ReadData("h323/synth-setup-faststart.q931.bin");
    return pdu;
}
const Bytes& RealSetup() {
    static const Bytes pdu = CallPdu("h323/rtp-example-1.txt", 4, "h225");
    return pdu;
}
const Bytes& RealConnect() {
    static const Bytes pdu = CallPdu("h323/rtp-example-1.txt", 10, "h225");
    return pdu;
}

struct Addresses {
    sockaddr_type originator = bench::Ipv4(10, 0, 0, 5, 1720);
    sockaddr_type destination = bench::Ipv4(198, 51, 100, 9, 1720);
    sockaddr_type announcedOriginator = bench::Ipv4(203, 0, 113, 1, 1720);
    sockaddr_type announcedDestination = bench::Ipv4(192, 168, 1, 1, 1720);

    H225TranslatorContext* NewCall() {
        return h323xlate_h225_create(nullptr, &originator, &destination, &announcedOriginator,
                                     &announcedDestination);
    }
};

// The encoding of a decoded value: what decode-only and encode-only benchmarks check.
template <class T> Bytes Reencoded(const Bytes& pdu) {
    T value;
    Bytes out(4096);
    unsigned size = unsigned(out.size());
    if (ASN1::ASNDecode(pdu.data(), unsigned(pdu.size()), value) != 1 ||
        ASN1::ASNEncode(value, out.data(), &size) != 1)
        size = 0;
    out.resize(size);
    return out;
}

template <class T> void DecodeOnly(benchmark::State& state, const char* name, const Bytes& pdu) {
    const Bytes expected = Reencoded<T>(pdu);
    if (!bench::ExpectOutput(state, name, expected, expected.size()))
        return;
    bench::AllocationMeter meter(state);
    for (auto _ : state) {
        T value;
        benchmark::DoNotOptimize(ASN1::ASNDecode(pdu.data(), unsigned(pdu.size()), value));
    }
    meter.Finish();
}

template <class T> void EncodeOnly(benchmark::State& state, const char* name, const Bytes& pdu) {
    T value;
    const Bytes expected = Reencoded<T>(pdu);
    if (ASN1::ASNDecode(pdu.data(), unsigned(pdu.size()), value) != 1 ||
        !bench::ExpectOutput(state, name, expected, expected.size()))
        return;
    Bytes out(4096);
    bench::AllocationMeter meter(state);
    for (auto _ : state) {
        unsigned size = unsigned(out.size());
        benchmark::DoNotOptimize(ASN1::ASNEncode(value, out.data(), &size));
    }
    meter.Finish();
}

void BM_SetupFastStart_Decode(benchmark::State& state) {
    DecodeOnly<H323_MESSAGES::H323_UserInformation>(state, "SetupFastStart_Decode",
                                                    UserUserPayload(FastStartSetup()));
}
BENCHMARK(BM_SetupFastStart_Decode)->Apply(bench::FixedIterations);

void BM_SetupFastStart_Encode(benchmark::State& state) {
    EncodeOnly<H323_MESSAGES::H323_UserInformation>(state, "SetupFastStart_Encode",
                                                    UserUserPayload(FastStartSetup()));
}
BENCHMARK(BM_SetupFastStart_Encode)->Apply(bench::FixedIterations);

// A SETUP only passes a call in the Idle state, so each iteration is a new call: create,
// decode, translate (addresses, six fast-start proposals through the codec veto and the media
// pinholes, tunnelled H.245), encode, destroy.
unsigned SetupOnce(Addresses& addresses, const Bytes& setup, Bytes& out) {
    H225TranslatorContext* call = addresses.NewCall();
    int status;
    h323xlate_h225_decodeh225pdu(call, setup.data(), unsigned(setup.size()));
    const int result = h323xlate_h225_translateh225pdu(call, 1, &status);
    unsigned length = unsigned(out.size());
    benchmark::DoNotOptimize(h323xlate_h225_encodeh225pdu(call, out.data(), &length));
    benchmark::DoNotOptimize(result);
    h323xlate_h225_destroy(call);
    return length;
}

void SetupFullPath(benchmark::State& state, const char* name, const Bytes& setup) {
    bench::InstallMinimalHost();
    Addresses addresses;
    Bytes out(4096);
    if (!bench::ExpectOutput(state, name, out, SetupOnce(addresses, setup, out)))
        return;
    bench::AllocationMeter meter(state);
    for (auto _ : state)
        SetupOnce(addresses, setup, out);
    meter.Finish();
}

void BM_SetupFastStart_FullPath(benchmark::State& state) {
    SetupFullPath(state, "SetupFastStart_FullPath", FastStartSetup());
}
BENCHMARK(BM_SetupFastStart_FullPath)->Apply(bench::FixedIterations);

void BM_RealSetup_Decode(benchmark::State& state) {
    DecodeOnly<H323_MESSAGES::H323_UserInformation>(state, "RealSetup_Decode",
                                                    UserUserPayload(RealSetup()));
}
BENCHMARK(BM_RealSetup_Decode)->Apply(bench::FixedIterations);

void BM_RealSetup_Encode(benchmark::State& state) {
    EncodeOnly<H323_MESSAGES::H323_UserInformation>(state, "RealSetup_Encode",
                                                    UserUserPayload(RealSetup()));
}
BENCHMARK(BM_RealSetup_Encode)->Apply(bench::FixedIterations);

void BM_RealSetup_FullPath(benchmark::State& state) {
    SetupFullPath(state, "RealSetup_FullPath", RealSetup());
}
BENCHMARK(BM_RealSetup_FullPath)->Apply(bench::FixedIterations);

// CONNECT on a call past its SETUP: decode, translate (the H.245 address through the host),
// encode.
void BM_RealConnect_FullPath(benchmark::State& state) {
    bench::InstallMinimalHost();
    Addresses addresses;
    H225TranslatorContext* call = addresses.NewCall();
    int status;
    h323xlate_h225_decodeh225pdu(call, RealSetup().data(), unsigned(RealSetup().size()));
    h323xlate_h225_translateh225pdu(call, 1, &status);
    const Bytes& connect = RealConnect();
    Bytes out(4096);
    const auto once = [&] {
        h323xlate_h225_decodeh225pdu(call, connect.data(), unsigned(connect.size()));
        benchmark::DoNotOptimize(h323xlate_h225_translateh225pdu(call, 0, &status));
        unsigned length = unsigned(out.size());
        benchmark::DoNotOptimize(h323xlate_h225_encodeh225pdu(call, out.data(), &length));
        return length;
    };
    if (bench::ExpectOutput(state, "RealConnect_FullPath", out, once())) {
        bench::AllocationMeter meter(state);
        for (auto _ : state)
            once();
        meter.Finish();
    }
    h323xlate_h225_destroy(call);
}
BENCHMARK(BM_RealConnect_FullPath)->Apply(bench::FixedIterations);

// H.245 on the separate channel of a connected call.
void H245(benchmark::State& state, const char* name, const std::string& file, bool fromOriginator) {
    const Bytes pdu = bench::ReadData(file);
    bench::InstallMinimalHost();
    Addresses addresses;
    H225TranslatorContext* call = addresses.NewCall();
    Bytes out(4096);
    unsigned length = unsigned(out.size());
    // The channel's first OLC opens the session; the ack then finds it.
    const Bytes olc = bench::ReadData("h323/synth-h245-olc.bin");
    h323xlate_h225_translateh245pdu(call, 1, olc.data(), unsigned(olc.size()), out.data(), &length);
    const auto once = [&] {
        length = unsigned(out.size());
        benchmark::DoNotOptimize(h323xlate_h225_translateh245pdu(
            call, fromOriginator, pdu.data(), unsigned(pdu.size()), out.data(), &length));
        return length;
    };
    if (bench::ExpectOutput(state, name, out, once())) {
        bench::AllocationMeter meter(state);
        for (auto _ : state)
            once();
        meter.Finish();
    }
    h323xlate_h225_destroy(call);
}

void BM_H245_OLC_Decode(benchmark::State& state) {
    DecodeOnly<MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage>(
        state, "H245_OLC_Decode", bench::ReadData("h323/synth-h245-olc.bin"));
}
BENCHMARK(BM_H245_OLC_Decode)->Apply(bench::FixedIterations);

void BM_H245_OLC_Encode(benchmark::State& state) {
    EncodeOnly<MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage>(
        state, "H245_OLC_Encode", bench::ReadData("h323/synth-h245-olc.bin"));
}
BENCHMARK(BM_H245_OLC_Encode)->Apply(bench::FixedIterations);

void BM_H245_OLC_Translate(benchmark::State& state) {
    H245(state, "H245_OLC_Translate", "h323/synth-h245-olc.bin", true);
}
BENCHMARK(BM_H245_OLC_Translate)->Apply(bench::FixedIterations);

void BM_H245_OLCAck_Translate(benchmark::State& state) {
    H245(state, "H245_OLCAck_Translate", "h323/synth-h245-olcack.bin", false);
}
BENCHMARK(BM_H245_OLCAck_Translate)->Apply(bench::FixedIterations);

void BM_H245_TCS_Translate(benchmark::State& state) {
    H245(state, "H245_TCS_Translate", "h323/synth-h245-tcs.bin", true);
}
BENCHMARK(BM_H245_TCS_Translate)->Apply(bench::FixedIterations);

// RAS RegistrationRequest with the host translating its call-signalling address.
void TranslateAddr(void*, int, const sockaddr_type*, sockaddr_type* replacement, void** mapping) {
    *replacement = bench::Ipv4(203, 0, 113, 1, 11720);
    *mapping = nullptr;
}

void BM_RasRRQ_Decode(benchmark::State& state) {
    DecodeOnly<H323_MESSAGES::RasMessage>(state, "RasRRQ_Decode",
                                          bench::ReadData("modules/synth-ras_rrq-ras.bin"));
}
BENCHMARK(BM_RasRRQ_Decode)->Apply(bench::FixedIterations);

void BM_RasRRQ_Translate(benchmark::State& state) {
    const Bytes rrq = bench::ReadData("modules/synth-ras_rrq-ras.bin");
    bench::InstallMinimalHost();
    voipxlate_setfunction(VOIPXLATE_TRANSLATE_ADDR,
                          reinterpret_cast<voipxlate_function>(&TranslateAddr));
    Addresses addresses;
    RASTranslatorContext* ras =
        h323xlate_ras_create(nullptr, &addresses.originator, &addresses.destination,
                             &addresses.announcedOriginator, &addresses.announcedDestination);
    Bytes out(4096);
    const auto once = [&] {
        unsigned length = unsigned(out.size());
        int status;
        benchmark::DoNotOptimize(h323xlate_ras_translatepdu(
            ras, 1, rrq.data(), unsigned(rrq.size()), out.data(), &length, &status));
        return length;
    };
    if (bench::ExpectOutput(state, "RasRRQ_Translate", out, once())) {
        bench::AllocationMeter meter(state);
        for (auto _ : state)
            once();
        meter.Finish();
    }
    h323xlate_ras_destroy(ras);
}
BENCHMARK(BM_RasRRQ_Translate)->Apply(bench::FixedIterations);

// Memory a call context holds: the object itself and what it keeps on the heap after the
// fast-start SETUP (the decoded message, the kept information elements).
void BM_H323CallMemory(benchmark::State& state) {
    bench::InstallMinimalHost();
    Addresses addresses;
    const Bytes& setup = FastStartSetup();
    const int calls = 1000;
    std::vector<H225TranslatorContext*> live;
    int64_t bytes = 0;
    for (auto _ : state) {
        const int64_t before = CurrentAllocStats().liveBytes;
        for (int i = 0; i < calls; ++i) {
            H225TranslatorContext* call = addresses.NewCall();
            int status;
            h323xlate_h225_decodeh225pdu(call, setup.data(), unsigned(setup.size()));
            h323xlate_h225_translateh225pdu(call, 1, &status);
            live.push_back(call);
        }
        bytes = CurrentAllocStats().liveBytes - before;
        state.PauseTiming();
        for (H225TranslatorContext* call : live)
            h323xlate_h225_destroy(call);
        live.clear();
        state.ResumeTiming();
    }
    state.counters["bytes/call"] = double(bytes) / calls;
    state.counters["sizeof"] = double(sizeof(H225TranslatorContext));
}
BENCHMARK(BM_H323CallMemory)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
