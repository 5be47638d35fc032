// Arbitrary host packet lists through the driver's host-MIDI read procedure.
// The first byte picks the keyset that answers: the fall-back, which answers
// nothing; one whose 96 channel controls and five transport buttons all carry
// two-way MIDI actions; or a Mode B or Mode C emulation keyset (whose Mode C
// actions keep state from one input to the next, as they do from one message
// to the next). Then each packet is a 12-bit length and its bytes, so that
// lists of up to twice the driver's output buffer are tried. A write never
// exceeds the buffer, and with nothing to answer it is the packets' bytes
// exactly (or, when they do not fit, nothing).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "driver/CVXUserSpaceDriver.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "service/CVXService.h"
#include "support/MIDIKeysets.h"

namespace {

class CheckingDriver : public CVXUserSpaceDriver {
  public:
    using CVXUserSpaceDriver::CVXUserSpaceDriver;
    int WriteAsync(const uint8_t* inData, size_t inSize) override {
        if (inSize > kMIDIOutputSize) __builtin_trap();
        mWritten.assign(inData, inData + inSize);
        ++mWrites;
        return 0;
    }
    std::vector<uint8_t> mWritten;
    int mWrites = 0;
};

class NullHost : public CVXHostMIDIOut {
  public:
    void Send(const uint8_t*, size_t) override {}
};

struct SWorld {
    SWorld() {
        platform.loop = &loop;
        platform.hostMIDI = &host;
        scope = std::make_unique<CVXPlatformScope>(platform);
        service = std::make_unique<CVXService>(EmulationKeysets(true));
        CVX_KeysetData* data = service->GetKeysetData();
        for (uint32_t button = 0; button < 5; ++button) {
            const SVXTemplate note = {0x90, static_cast<uint8_t>(0x30 + button), 0xFD};
            std::vector<uint8_t> update = ButtonMIDIUpdate(1, button, 2, note);
            UStreamReader reader(update.data(), update.size());
            if (!data->UpdateControlFromStream(&reader)) __builtin_trap();
        }
        driver = std::make_unique<CheckingDriver>(nullptr, &host);
    }
    CVXVirtualLoop loop;
    NullHost host;
    SVXPlatform platform;
    std::unique_ptr<CVXPlatformScope> scope;
    std::unique_ptr<CVXService> service;
    std::unique_ptr<CheckingDriver> driver;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SWorld world;
    if (size == 0) return 0;
    const uint32_t keyset = data[0] & 3;  // 0 the fall-back, 1 MIDI, 2 Mode B, 3 Mode C
    const bool answering = keyset != 0;
    world.service->GetKeysetData()->SetCurrentKeyset(keyset);

    SVXMIDIPacket packets[64];
    size_t count = 0, pos = 1, total = 0;
    while (pos + 2 <= size && count < 64) {
        size_t length = ((data[pos] & 0x0F) << 8) | data[pos + 1];
        pos += 2;
        if (length > size - pos) length = size - pos;
        packets[count++] = {data + pos, length};
        pos += length;
        total += length;
    }
    CheckingDriver& driver = *world.driver;
    driver.mWrites = 0;
    driver.DoMIDIReadProc({packets, count});
    if (!answering) {
        const bool fits = total <= CVXUserSpaceDriver::kMIDIOutputSize;
        if (driver.mWrites != (fits ? 1 : 0)) __builtin_trap();
        if (fits) {
            size_t at = 0;
            for (size_t i = 0; i < count; ++i) {
                if (packets[i].length > 0 &&
                    std::memcmp(driver.mWritten.data() + at, packets[i].bytes, packets[i].length))
                    __builtin_trap();
                at += packets[i].length;
            }
            if (at != driver.mWritten.size()) __builtin_trap();
        }
    }
    return 0;
}
