// How soon what the driver sends reaches a host application over JACK, on a
// private jackd (dummy backend, 256-frame periods at 48 kHz) that the program
// starts and stops. The host is a second client connected to the driver's
// source. The goal: the message is in the first cycle that begins after the
// send, a delay of at most one period.
//
// Counters, averaged over the iterations:
//   periods      from the send to the start of the cycle that carried it, in
//                periods (JACK's frame clock; ideal: above 0, at most 1)
//   max_periods  the largest of those
//   late         the share of sends that missed the first cycle after them
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/midi/JackRig.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXJackMIDI.h"
#include "support/MIDIKeysets.h"

namespace {

constexpr int kIterations = 200;

// The application whose keyset has a two-way channel MIDI action on every
// fader (B<ch> 07 <position>).
class CDAWInFront : public CVXFrontAppSource {
  public:
    bool GetFrontSignature(uint32_t& outSignature) override {
        outSignature = VXTag("DAW1");
        return true;
    }
};

// The server, the driver's backend and the host, connected.
struct SRig {
    SRig() {
        if (!server.Start() ||
            jack.SignIn(CVXUserSpaceDriver::kMIDIClientName, CVXUserSpaceDriver::kMIDISourceName,
                        CVXUserSpaceDriver::kMIDIDestinationName, nullptr) != 0)
            return;
        if (!host.Open() || !host.Connect(jack.SourceName(), jack.DestinationName())) return;
        const uint64_t now = host.Cycles();
        ready = RunUntil(loop, [&] { return host.Cycles() >= now + 2; });
    }
    CJackServer server{"vx-bench-" + std::to_string(getpid()), false};  // as users run it
    CVXSdEventLoop loop;
    CVXJackMIDI jack{loop};
    CJackPeer host;
    bool ready = false;
};

// Sends with inSend, waits for the host to have it and records the delay.
template <class F>
void Measure(benchmark::State& state, SRig& rig, F inSend) {
    double total = 0, worst = 0, late = 0;
    for (auto _ : state) {
        const jack_nframes_t sentAt = jack_frame_time(rig.host.Native());
        inSend();
        std::vector<CJackPeer::SEvent> events;
        const bool arrived = RunUntil(rig.loop, [&] {
            events = rig.host.Take();
            return !events.empty();
        });
        if (!arrived) {
            state.SkipWithError("the message never arrived");
            break;
        }
        const double periods =
            double(int32_t(events.front().frame - sentAt)) / double(CJackServer::kPeriod);
        total += periods;
        worst = std::max(worst, periods);
        if (periods > 1.0) ++late;
    }
    state.counters["periods"] = benchmark::Counter(total, benchmark::Counter::kAvgIterations);
    state.counters["max_periods"] = worst;
    state.counters["late"] = benchmark::Counter(late, benchmark::Counter::kAvgIterations);
}

// A Send on the loop thread, as every action's MIDIToHost makes it.
void BM_JackSendToHost(benchmark::State& state) {
    SRig rig;
    if (!rig.ready) {
        state.SkipWithError("no JACK server");
        return;
    }
    const uint8_t message[] = {0xB2, 0x07, 0x40};
    Measure(state, rig, [&] { rig.jack.Send(message, sizeof message); });
}
BENCHMARK(BM_JackSendToHost)->Iterations(kIterations)->UseRealTime()->Unit(benchmark::kMillisecond);

// A fader record from the surface through the parser, the service and the
// fader's channel MIDI action. Strips take turns, as each action sends at
// most once every 1/30 s.
void BM_JackFaderToHost(benchmark::State& state) {
    SRig rig;
    if (!rig.ready) {
        state.SkipWithError("no JACK server");
        return;
    }
    CVXDiagnosticCapture quiet;
    CDAWInFront front;
    SVXPlatform platform{.loop = &rig.loop, .frontApp = &front, .hostMIDI = &rig.jack};
    CVXPlatformScope scope(platform);
    CVXUserSpaceDriver driver(nullptr, &rig.loop, nullptr, MIDIKeysets());
    uint8_t read[] = {0x11, 0x60, 0xB0, 0x07, 0x20, 0xB0, 0x27, 0x00};
    uint8_t channel = 0;
    Measure(state, rig, [&] {
        read[2] = read[5] = uint8_t(0xB0 | channel);
        channel = uint8_t((channel + 1) % 16);
        driver.ProcessVXData(read, sizeof read);
    });
}
BENCHMARK(BM_JackFaderToHost)
    ->Iterations(kIterations)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
