// Host MIDI to device bytes: the unmapper of a keyset whose 96 channel
// controls all carry two-way MIDI actions (80 of them answer host MIDI, each
// from both responder lists; Touch Sense never does). A packet mixes fader
// moves on every strip, button LEDs and messages that nobody answers, cut and
// matched against every responder, as a host's automation sends them.
#include <benchmark/benchmark.h>

#include <vector>

#include "actions/CMIDIUnmapper.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "support/MIDIKeysets.h"

namespace {

void BM_UnmapHostMIDI(benchmark::State& state) {
    CVXVirtualLoop loop;
    SVXPlatform platform;
    platform.loop = &loop;
    CVXPlatformScope scope(platform);
    CVX_KeysetData data;
    std::vector<uint8_t> stream = MIDIKeysets();
    UStreamReader reader(stream.data(), stream.size());
    if (!data.UpdateFromStream(&reader)) {
        state.SkipWithError("keyset stream failed");
        return;
    }
    data.SetCurrentKeyset(1);
    CMIDIUnmapper* unmapper = CVX_KeysetData::GetCurrentMIDIUnmapper();

    // 64 three-byte messages: per strip a fader move, a Mute and a Select
    // LED, and one note that no action answers.
    std::vector<uint8_t> packet;
    for (uint8_t channel = 0; channel < 16; ++channel) {
        const uint8_t messages[] = {
            static_cast<uint8_t>(0xB0 | channel), 0x07, static_cast<uint8_t>(channel * 8),
            static_cast<uint8_t>(0x90 | channel), 0x10, 0x7F,
            static_cast<uint8_t>(0x90 | channel), 0x13, 0x00,
            static_cast<uint8_t>(0x90 | channel), 0x3C, 0x40};
        packet.insert(packet.end(), messages, messages + sizeof messages);
    }
    const int64_t messagesPerPacket = static_cast<int64_t>(packet.size() / 3);

    uint8_t output[2048];
    for (auto _ : state) {
        size_t length = packet.size();
        unmapper->UnmapHostMIDI(packet.data(), output, &length, sizeof output);
        benchmark::DoNotOptimize(output);
        benchmark::DoNotOptimize(length);
    }
    state.SetItemsProcessed(state.iterations() * messagesPerPacket);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(packet.size()));
}
BENCHMARK(BM_UnmapHostMIDI);

}  // namespace

BENCHMARK_MAIN();
