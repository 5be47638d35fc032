#pragma once

#include <cstdint>

#include "driver/VXNotifyRecord.h"

// Receiver of the notify records that the input parser builds (their shapes
// are in VXNotifyRecord.h). The record lives in the parser's buffer and is
// reused for the next message, so a sink must not keep the pointer.
class CVXRecordSink {
  public:
    virtual ~CVXRecordSink() = default;
    virtual void Service(const uint8_t* record) = 0;
};
