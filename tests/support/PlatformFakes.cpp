#include "support/PlatformFakes.h"

#include <cstdio>

std::vector<std::string> CEventLog::Take() {
    std::vector<std::string> lines;
    lines.swap(mLines);
    return lines;
}

void CRecordingHostMIDI::Send(const uint8_t* inBytes, size_t inLength) {
    std::string line = "host";
    char hex[4];
    for (size_t i = 0; i < inLength; ++i) {
        std::snprintf(hex, sizeof hex, " %02X", inBytes[i]);
        line += hex;
    }
    mLog.Add(line);
}

CVXPlatformTest::CVXPlatformTest() {
    SVXPlatform platform;
    platform.loop = &mLoop;
    platform.poster = &mPoster;
    platform.notifier = &mNotifier;
    platform.frontApp = &mFrontApp;
    platform.hostMIDI = &mHostMIDI;
    SVXPlatform::Install(platform);
}

CVXPlatformTest::~CVXPlatformTest() {
    SVXPlatform::Uninstall();
}
