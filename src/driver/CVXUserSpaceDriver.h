// The one driver object. It is composed of parts, each testable alone; today it
// holds the input parser, and every completed read of the surface enters here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/CVXInputParser.h"

class CVXRecordSink;
class CVXHostMIDIOut;

class CVXUserSpaceDriver {
  public:
    CVXUserSpaceDriver(CVXRecordSink* inService, CVXHostMIDIOut* inHost);
    ~CVXUserSpaceDriver();
    CVXUserSpaceDriver(const CVXUserSpaceDriver&) = delete;
    CVXUserSpaceDriver& operator=(const CVXUserSpaceDriver&) = delete;

    // The one driver, or null.
    static CVXUserSpaceDriver* GetVXDriver() { return sSelf; }

    void ProcessVXData(const uint8_t* data, size_t length) { mParser.ProcessVXData(data, length); }

    CVXInputParser& Parser() { return mParser; }

  private:
    static CVXUserSpaceDriver* sSelf;

    CVXInputParser mParser;
};
