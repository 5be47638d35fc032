#pragma once

#include <cstddef>
#include <cstdint>

// The way to the surface: every byte the driver sends it (host MIDI turned
// into device messages, the editor's raw writes and message makers) leaves
// through this one call. The bytes are copied before it returns.
class CVXDeviceWriter {
  public:
    virtual ~CVXDeviceWriter() = default;
    // 0 when the write was started, else the USB layer's (negative) status;
    // with no surface attached the write fails and says so.
    virtual int WriteAsync(const uint8_t* inData, size_t inSize) = 0;
};
