#pragma once

#include <cstdint>

// Receiver of the notify records that the input parser builds: byte 0 is the
// record's length (itself included), byte 1 its kind (a control number, or 167
// for a pass-through MIDI message), the rest depends on the kind. The record
// lives in the parser's buffer and is reused for the next message, so a sink
// must not keep the pointer.
class CVXRecordSink {
  public:
    virtual ~CVXRecordSink() = default;
    virtual void Service(const uint8_t* record) = 0;
};
