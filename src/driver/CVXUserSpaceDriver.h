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
    virtual ~CVXUserSpaceDriver();
    CVXUserSpaceDriver(const CVXUserSpaceDriver&) = delete;
    CVXUserSpaceDriver& operator=(const CVXUserSpaceDriver&) = delete;

    static CVXUserSpaceDriver* sSelf;

    void ProcessVXData(const uint8_t* data, size_t length) { mParser.ProcessVXData(data, length); }

    CVXInputParser& Parser() { return mParser; }

  private:
    CVXInputParser mParser;
};
