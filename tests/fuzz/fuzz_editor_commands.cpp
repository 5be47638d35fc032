// Arbitrary editor commands below any transport: event IDs (mostly those of
// the table, some arbitrary) with parameter lists of any keywords, types and
// sizes, against a keyset set with MIDI actions. Each input is a fresh
// service; the first byte says whether the device has reported its status.
// Commands are:
//   selector (< 0xF0: the table's ID number selector % 17 + 1; else the next
//   four bytes), a parameter count (0..7), then per parameter a keyword
//   selector (< 0xF0: one of the commands' keywords; else four bytes), a type
//   (0 'magn', 1 'long', else 'TEXT') and its value: four bytes, or a 16-bit
//   length and that many bytes.
// Every command answers 0 exactly when its ID is installed, writes at most
// the raw buffer's size, and replies only with the keywords it may.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "model/CVX_KeysetData.h"
#include "output/VX_AE_Handlers.h"
#include "platform/CVXDeviceWriter.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "service/CVXService.h"
#include "support/MIDIKeysets.h"

namespace {

constexpr uint32_t kKeywords[] = {VXTag("QRaw"), VXTag("CtlN"), VXTag("CVal"),
                                  VXTag("Chnl"), VXTag("QEdM"), VXTag("QDSz"),
                                  VXTag("QKys"), VXTag("QCtD"), VXTag("QTSt")};
constexpr uint32_t kReplyKeywords[] = {VXTag("StDt"), VXTag("QKyN"), VXTag("QBkN"), VXTag("CtlN"),
                                       VXTag("Chnl")};

class CheckingDevice : public CVXDeviceWriter {
  public:
    int WriteAsync(const uint8_t* inData, size_t inSize) override {
        if (inSize == 0 || inSize > VX_AE_Handlers::kRawBufferSize) __builtin_trap();
        // Touch every byte: a write past the data shows under ASan.
        for (size_t i = 0; i < inSize; ++i) mSum += inData[i];
        return 0;
    }
    uint32_t mSum = 0;
};

class NullHost : public CVXHostMIDIOut {
  public:
    void Send(const uint8_t*, size_t) override {}
};

struct SWorld {
    SWorld() {
        platform.loop = &loop;
        platform.hostMIDI = &host;
        platform.device = &device;
        scope = std::make_unique<CVXPlatformScope>(platform);
    }
    CVXVirtualLoop loop;
    NullHost host;
    CheckingDevice device;
    SVXPlatform platform;
    std::unique_ptr<CVXPlatformScope> scope;
    std::unique_ptr<CVXService> service;
    std::unique_ptr<VX_AE_Handlers> handlers;
};

class CInput {
  public:
    CInput(const uint8_t* inData, size_t inSize) : mData(inData), mSize(inSize) {}
    bool More() const { return mPos < mSize; }
    uint8_t Byte() { return mPos < mSize ? mData[mPos++] : 0; }
    uint32_t Long() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | Byte();
        return v;
    }
    std::vector<uint8_t> Bytes() {
        size_t length = (size_t{Byte()} << 8) | Byte();
        if (length > mSize - mPos) length = mSize - mPos;
        std::vector<uint8_t> bytes(mData + mPos, mData + mPos + length);
        mPos += length;
        return bytes;
    }

  private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPos = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SWorld world;
    if (size == 0) return 0;
    world.handlers.reset();
    world.service.reset();
    world.service = std::make_unique<CVXService>(MIDIKeysets());
    world.handlers = std::make_unique<VX_AE_Handlers>(&world.device);
    world.handlers->Install();

    CInput in(data, size);
    if (in.Byte() & 1) {
        const uint32_t status[7] = {1, 16, 2, 0, 0, 0, 0};
        world.handlers->UpdateStatus(status);
    }
    while (in.More()) {
        const uint8_t selector = in.Byte();
        const uint32_t id =
            selector < 0xF0 ? VX_AE_Handlers::kHandlerDescTypes[selector % 17 + 1] : in.Long();
        VXAEParams params;
        for (int n = in.Byte() % 8; n > 0; --n) {
            const uint8_t k = in.Byte();
            const uint32_t keyword = k < 0xF0 ? kKeywords[k % std::size(kKeywords)] : in.Long();
            const uint8_t type = in.Byte();
            if (type == 0)
                params.push_back({keyword, in.Long()});
            else if (type == 1)
                params.push_back({keyword, static_cast<int32_t>(in.Long())});
            else
                params.push_back({keyword, in.Bytes()});
        }
        VXAEParams reply;
        const int32_t result = VX_AE_Handlers::HandleEvent(id, params, &reply);
        const bool installed = VX_AE_Handlers::IndexForEvent(id) != 0;
        if (result != (installed ? 0 : VX_AE_Handlers::kErrAEEventNotHandled)) __builtin_trap();
        if (reply.size() > 3) __builtin_trap();
        for (const SVXAEParam& p : reply) {
            if (std::find(std::begin(kReplyKeywords), std::end(kReplyKeywords), p.keyword) ==
                std::end(kReplyKeywords))
                __builtin_trap();
        }
    }
    return 0;
}
