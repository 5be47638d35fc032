#include "support/PlatformFakes.h"

#include <cstdio>

std::string FourCCText(uint32_t inCode) {
    std::string s;
    for (int shift = 24; shift >= 0; shift -= 8) s += char((inCode >> shift) & 0xFF);
    return s;
}

std::vector<std::string> CEventLog::Take() {
    std::vector<std::string> lines;
    lines.swap(mLines);
    return lines;
}

void CRecordingPoster::PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey,
                                         bool inKeyDown) {
    std::string line = "key " + std::to_string(inVirtualKey) + (inKeyDown ? " down" : " up");
    if (inCharCode != 0) line += " char " + std::to_string(inCharCode);
    mLog.Add(line);
}

void CRecordingPoster::PostMouseEvent(double inX, double inY, bool inButtonDown) {
    char line[96];
    std::snprintf(line, sizeof line, "mouse %g,%g %s", inX, inY, inButtonDown ? "down" : "up");
    mLog.Add(line);
}

bool CRecordingNotifier::SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                                              const std::vector<SVXEventParam>& inParams) {
    if (mFail) return false;
    std::string line = "event " + FourCCText(inSignature) + " " + FourCCText(inEventID);
    for (const auto& p : inParams)
        line += " " + FourCCText(p.keyword) + "=" + std::to_string(p.value);
    mLog.Add(line);
    return true;
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
