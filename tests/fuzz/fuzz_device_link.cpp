// The device link's handling of what a device sends: the whole input as a
// status reply, then as a script of read completions (any status, any size up
// to and past the read buffer) and writes, run through the link with the USB
// fake of the unit tests and a real input parser. The link must never hand
// the parser more than its buffer, must keep a read outstanding exactly while
// it is linked, and must end the link on every status but success and
// overflow.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "driver/CVXDeviceLink.h"
#include "driver/CVXInputParser.h"
#include "driver/CVXRecordSink.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/VXDiagnostics.h"
#include "support/FakeUSB.h"

namespace {

class CheckingOutput : public CVXRecordSink, public CVXHostMIDIOut {
  public:
    void Service(const uint8_t* r) override {
        if (r[0] < 3 || r[0] > 127) __builtin_trap();
    }
    void Send(const uint8_t* bytes, size_t length) override {
        if (length < 2 || length > CVXInputParser::kMaxMessage) __builtin_trap();
        if (bytes[length - 1] != 0xF7) __builtin_trap();
    }
};

void CheckStatusParse(const uint8_t* data, size_t size) {
    CVXDeviceLink link(nullptr, nullptr);
    const bool found = link.ParseStatusMessage(data, size);
    static constexpr uint8_t kHeader[4] = {0xF0, 0x15, 0x26, 0x01};
    size_t at = size;
    for (size_t i = 0; i + 7 <= size; ++i) {
        if (std::memcmp(data + i, kHeader, 4) == 0) {
            at = i;
            break;
        }
    }
    if (found != (at < size)) __builtin_trap();
    if (found && link.FirmwareVers() != (data[at + 4] << 8 | data[at + 5])) __builtin_trap();
}

const std::vector<uint8_t> kReply = {0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckStatusParse(data, size);

    CVXDiagnosticCapture quiet;
    CEventLog log;
    CFakeUSBHost host(log);
    CheckingOutput out;
    CVXInputParser parser(&out, &out);
    CVXDeviceLink link(&host, [&parser](const uint8_t* inData, size_t inLength) {
        if (inLength > 4096) __builtin_trap();
        parser.ProcessVXData(inData, inLength);
    });
    link.RegisterHotplug();
    auto device = host.MakeDevice(0x0760, 0x0008, 0x0200);
    device->AnswerStatus(kReply);

    size_t pos = 0;
    std::vector<uint8_t> bytes;
    while (pos < size) {
        if (!link.Interface()) {
            host.Unplug(device);
            host.Plug(device);
            if (!link.Interface() || !device->ReadPending()) __builtin_trap();
        }
        log.Take();
        const uint8_t op = data[pos++];
        if (op & 0x80) {
            // A write of up to 63 bytes of the input.
            size_t length = std::min<size_t>(op & 0x3F, size - pos);
            link.WriteAsync(data + pos, length);
            pos += length;
            continue;
        }
        // A completion: status from the op (7 is none of libusb's), length
        // from the next two bytes (up to 8191), content from the input.
        const auto status = static_cast<EVXTransferStatus>(op % 8);
        size_t length = 0;
        if (pos + 2 <= size) {
            length = (size_t(data[pos]) << 8 | data[pos + 1]) & 0x1FFF;
            pos += 2;
        }
        const size_t given = std::min(length, size - pos);
        bytes.assign(data + pos, data + pos + given);
        bytes.resize(length, 0);
        pos += given;
        if (!device->CompleteRead(status, bytes)) __builtin_trap();
        const bool good = status == kVXTransferCompleted || status == kVXTransferOverflow;
        if ((link.Interface() != nullptr) != good) __builtin_trap();
        if (device->ReadPending() != good) __builtin_trap();
    }
    return 0;
}
