// Arbitrary USB reads into the input parser. The first byte of each read gives
// its length, so that the fuzzer explores how reads cut the stream as well as
// what they hold. Every record and host message must keep its shape.
#include <cstddef>
#include <cstdint>

#include "driver/CVXInputParser.h"
#include "driver/CVXRecordSink.h"
#include "platform/CVXHostMIDIOut.h"

namespace {

class CheckingOutput : public CVXRecordSink, public CVXHostMIDIOut {
  public:
    void Service(const uint8_t* r) override {
        uint8_t length = r[0], kind = r[1];
        bool ok = false;
        if (kind <= 4)
            ok = length == 3 && (r[2] == 0x3F || r[2] == 0xBF);
        else if (kind == 160)
            ok = length == 4 && r[2] < 16;
        else if (kind >= 161 && kind <= 165)
            ok = length == 4 && r[2] < 16 && r[3] <= 1;
        else if (kind == 167)
            ok = length >= 3 && length <= 127 && (r[2] & 0xF0) == 0xB0;
        if (!ok) __builtin_trap();
    }
    void Send(const uint8_t* bytes, size_t length) override {
        if (length < 2 || length > CVXInputParser::kMaxMessage) __builtin_trap();
        if (bytes[0] != 0xF0 && bytes[0] != 0xF7) __builtin_trap();
        if (bytes[length - 1] != 0xF7) __builtin_trap();
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckingOutput out;
    CVXInputParser parser(&out, &out);
    size_t pos = 0;
    while (pos < size) {
        // 0 means "the rest"; otherwise a read of up to 255 bytes.
        size_t length = data[pos++];
        if (length == 0 || length > size - pos) length = size - pos;
        parser.ProcessVXData(data + pos, length);
        pos += length;
    }
    return 0;
}
