// The control path from notify record to action: CVXService decoding, the
// front-application check, keyset lookup and the actions' own work, on a
// keyset filled as the editor fills it. Transport buttons carry three key
// actions each (loaded through single-control updates, as the editor sends
// them); every channel control carries a channel special action. The platform
// outputs only count what reaches them.
#include <benchmark/benchmark.h>

#include <vector>

#include "actions/CVX_Channel_Action.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "platform/CVXAppNotifier.h"
#include "platform/CVXEventPoster.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "service/CVXService.h"

namespace {

class CountingPoster : public CVXEventPoster {
  public:
    void PostKeyboardEvent(uint8_t, uint16_t, bool) override { ++mEvents; }
    void PostMouseEvent(double, double, bool) override { ++mEvents; }
    uint64_t mEvents = 0;
};

class CountingNotifier : public CVXAppNotifier {
  public:
    bool SendApplicationEvent(uint32_t, uint32_t, const std::vector<SVXEventParam>&) override {
        ++mEvents;
        return true;
    }
    uint64_t mEvents = 0;
};

class FixedFrontApp : public CVXFrontAppSource {
  public:
    bool GetFrontSignature(uint32_t& outSignature) override {
        outSignature = VXTag("DAW1");
        return true;
    }
};

// A single button-control update, as the editor sends it: keyset 0, bank 0,
// the control, then its record with three key actions and the filler.
std::vector<uint8_t> ButtonUpdate(uint32_t inControl) {
    CVXKeysetStreamWriter w;
    w.ControlUpdateHeader(0, 0, inControl).ButtonControl("Transport", "Keys", false, 3);
    w.KeyAction(inControl, "Key", 12, 'a');
    w.KeyAction(inControl, "Key", 13, 'b', 0x0100);  // command
    w.KeyAction(inControl, "Key", 14, 'c', 0x0200);  // shift
    w.SequenceFiller(3);
    return w.Take();
}

void BM_ServiceDispatch(benchmark::State& state) {
    CVXVirtualLoop loop;
    CountingPoster poster;
    CountingNotifier notifier;
    FixedFrontApp front;
    SVXPlatform platform;
    platform.loop = &loop;
    platform.poster = &poster;
    platform.notifier = &notifier;
    platform.frontApp = &front;
    CVXPlatformScope scope(platform);
    {
        CVXService service(std::vector<uint8_t>{});
        CVX_KeysetData* data = service.GetKeysetData();
        for (uint32_t control = 0; control < 5; ++control) {
            std::vector<uint8_t> update = ButtonUpdate(control);
            UStreamReader reader(update.data(), update.size());
            if (!data->UpdateControlFromStream(&reader)) {
                state.SkipWithError("button update failed");
                return;
            }
        }
        CVX_Keyset* keyset = data->GetKeysetAt(0);
        for (uint32_t channel = 0; channel < 16; ++channel) {
            for (uint32_t type = 160; type <= 165; ++type) {
                keyset->GetChannelControlAt(type, channel)
                    ->AddAction(std::make_unique<CVX_Channel_SpecialAction>(
                        VXTag("DAW1"), type == 160 ? 65 : 66, "notify", type,
                        static_cast<int32_t>(channel)));
            }
        }

        // A realistic burst: fader moves dominate, with button presses and
        // releases and transport taps between them.
        std::vector<std::vector<uint8_t>> records;
        for (uint8_t i = 0; i < 64; ++i) {
            uint8_t channel = i % 16;
            records.push_back({4, 160, channel, static_cast<uint8_t>(i * 4)});
            records.push_back({4, 160, channel, static_cast<uint8_t>(i * 4 + 1)});
            records.push_back({4, static_cast<uint8_t>(161 + i % 5), channel, 1});
            records.push_back({4, static_cast<uint8_t>(161 + i % 5), channel, 0});
            records.push_back({3, static_cast<uint8_t>(i % 5), 0x3F});
            records.push_back({3, static_cast<uint8_t>(i % 5), 0xBF});
        }
        for (auto _ : state) {
            for (const auto& r : records) service.Service(r.data());
            loop.AdvanceBy(1000);  // time moves on, so faders are let through again
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * records.size()));
        benchmark::DoNotOptimize(poster.mEvents + notifier.mEvents);
    }
}
BENCHMARK(BM_ServiceDispatch);

}  // namespace

BENCHMARK_MAIN();
