// The device input parser on a realistic mix of what the surface sends: fader
// moves (two controllers each, often in running status), channel buttons, touch
// sensors and machine-control sysex, framed in bridge packets as USB reads of
// the sizes the driver sees.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "driver/CVXInputParser.h"
#include "driver/CVXRecordSink.h"
#include "driver/VXBridgeFraming.h"
#include "platform/CVXHostMIDIOut.h"

namespace {

class CountingOutput : public CVXRecordSink, public CVXHostMIDIOut {
  public:
    void Service(const uint8_t* record) override { mRecords += record[0]; }
    void Send(const uint8_t*, size_t length) override { mHost += length; }
    size_t mRecords = 0;
    size_t mHost = 0;
};

std::vector<std::vector<uint8_t>> MakeReads() {
    std::mt19937 rng(38400);
    std::vector<uint8_t> midi;
    uint8_t running = 0;
    auto cc = [&](uint8_t channel, uint8_t controller, uint8_t value) {
        uint8_t status = static_cast<uint8_t>(0xB0 | channel);
        if (status != running) midi.push_back(status);
        running = status;
        midi.push_back(controller);
        midi.push_back(value);
    };
    while (midi.size() < 64 * 1024) {
        auto pick = rng() % 100;
        uint8_t channel = static_cast<uint8_t>(rng() % 16);
        if (pick < 70) {  // a fader sweep of a few steps
            for (int i = 0; i < 4; ++i) {
                uint16_t pos = static_cast<uint16_t>(rng() % 256);
                cc(channel, 7, static_cast<uint8_t>(pos >> 1));
                cc(channel, 39, static_cast<uint8_t>((pos & 1) << 6));
            }
        } else if (pick < 85) {  // a channel button press and release
            uint8_t button = static_cast<uint8_t>(70 + rng() % 4);
            cc(channel, button, 0x7F);
            cc(channel, button, 0x00);
        } else if (pick < 95) {  // touch and release
            cc(channel, 74, 1);
            cc(channel, 74, 0);
        } else {  // a transport button
            static const uint8_t commands[] = {1, 2, 4, 5, 6};
            const uint8_t sysex[] = {0xF0, 0x7F, 0x7F, 0x06, commands[rng() % 5], 0xF7};
            midi.insert(midi.end(), sysex, sysex + 6);
            running = 0;
        }
    }
    // Reads of one to three packets, as a busy surface delivers them.
    std::vector<std::vector<uint8_t>> reads;
    for (size_t off = 0; off < midi.size();) {
        size_t n = std::min(midi.size() - off, kVXBridgePacketPayload * (1 + rng() % 3));
        reads.push_back(VXFrameBridgeRead(midi.data() + off, n));
        off += n;
    }
    return reads;
}

void BM_ParserMix(benchmark::State& state) {
    const auto reads = MakeReads();
    size_t bytes = 0;
    for (const auto& r : reads) bytes += r.size();
    CountingOutput out;
    CVXInputParser parser(&out, &out);
    for (auto _ : state) {
        for (const auto& r : reads) parser.ProcessVXData(r.data(), r.size());
        benchmark::DoNotOptimize(out.mRecords);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_ParserMix);

}  // namespace

BENCHMARK_MAIN();
