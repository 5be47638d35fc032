// Keyset text and keyset streams from outside: whatever vxctl is given to
// import, install or export. Byte 0 chooses. Text that reads must write back
// to text that reads to the same keysets, and its stream must load whole in
// the driver's own readers; a stream the strict reader takes must write back
// to the same bytes. Any broken promise traps.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "text/VXKeysetText.h"

namespace {

void Check(bool inPromise) {
    if (!inPromise) __builtin_trap();
}

void Text(std::string_view inText) {
    SVXKeysetFileModel file;
    std::string error;
    if (!VXKeysetFileFromText(inText, "fuzz.toml", file, error)) {
        Check(!error.empty());
        return;
    }
    const std::string text = VXKeysetFileToText(file);
    SVXKeysetFileModel again;
    Check(VXKeysetFileFromText(text, "fuzz.toml", again, error));
    Check(again == file);

    const std::vector<uint8_t> bytes = VXWriteKeysetFile(file);
    CVXVirtualLoop loop;
    SVXPlatform platform;
    platform.loop = &loop;
    CVXPlatformScope scope(platform);
    CVXDiagnosticCapture capture;
    CVX_KeysetData data;
    UStreamReader reader(bytes.data(), bytes.size());
    Check(data.UpdateFromStream(&reader));
    Check(data.GetNumKeysets() == file.keysets.size());
    Check(capture.Text().empty());
    for (uint32_t n = 0; n < kVXModelButtons; ++n) {
        const std::vector<uint8_t> update = VXWriteButtonUpdate(0, n, file.keysets[0].buttons[n]);
        UStreamReader control(update.data(), update.size());
        data.UpdateControlFromStream(&control);
    }
}

void Stream(const uint8_t* inBytes, size_t inSize) {
    SVXKeysetFileModel file;
    size_t trailing = 0;
    std::string error;
    if (!VXReadKeysetFile(inBytes, inSize, file, trailing, error)) return;
    const std::vector<uint8_t> bytes = VXWriteKeysetFile(file);
    Check(bytes.size() + trailing == inSize);
    Check(std::equal(bytes.begin(), bytes.end(), inBytes));
    SVXKeysetFileModel fromText;
    Check(VXKeysetFileFromText(VXKeysetFileToText(file), "fuzz.toml", fromText, error));
    Check(fromText == file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
    if (inSize == 0) return 0;
    // Text most of the time: its reader is the larger surface.
    if (inData[0] % 4 == 0)
        Stream(inData + 1, inSize - 1);
    else
        Text(std::string_view(reinterpret_cast<const char*>(inData) + 1, inSize - 1));
    return 0;
}
