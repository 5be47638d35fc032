#include "driver/CVXUserSpaceDriver.h"

CVXUserSpaceDriver* CVXUserSpaceDriver::sSelf = nullptr;

CVXUserSpaceDriver::CVXUserSpaceDriver(CVXRecordSink* inService, CVXHostMIDIOut* inHost)
    : mParser(inService, inHost) {
    sSelf = this;
}

CVXUserSpaceDriver::~CVXUserSpaceDriver() {
    if (sSelf == this) sSelf = nullptr;
}
