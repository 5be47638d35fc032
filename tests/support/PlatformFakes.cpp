#include "support/PlatformFakes.h"

#include <algorithm>
#include <cstdio>

#include "actions/CMIDIUnmapper.h"
#include "model/CVX_KeysetData.h"

// Each byte as " XX".
std::string HexBytes(const uint8_t* inBytes, size_t inLength) {
    std::string text;
    char hex[4];
    for (size_t i = 0; i < inLength; ++i) {
        std::snprintf(hex, sizeof hex, " %02X", inBytes[i]);
        text += hex;
    }
    return text;
}

std::string CurrentUnmapperAnswer(const std::vector<uint8_t>& inHost) {
    uint8_t out[256];
    size_t length = inHost.size();
    CMIDIUnmapper* unmapper = CVX_KeysetData::GetCurrentMIDIUnmapper();
    if (!unmapper || !unmapper->UnmapHostMIDI(inHost.data(), out, &length, sizeof out)) return "";
    return HexBytes(out, std::min(length, sizeof out));
}

void CRecordingHostMIDI::Send(const uint8_t* inBytes, size_t inLength) {
    mLog.Add("host" + HexBytes(inBytes, inLength));
}

int CRecordingHostMIDI::SignIn(const char* inClientName, const char* inSourceName,
                               const char* inDestinationName, CVXHostMIDIIn* inReceiver) {
    mLog.Add(std::string("midi sign-in ") + inClientName + "|" + inSourceName + "|" +
             inDestinationName);
    if (mSignInStatus == 0) mReceiver = inReceiver;
    return mSignInStatus;
}

void CRecordingHostMIDI::SignOut() {
    mLog.Add("midi sign-out");
    mReceiver = nullptr;
}

int CRecordingDevice::WriteAsync(const uint8_t* inData, size_t inSize) {
    mLog.Add("device" + HexBytes(inData, inSize));
    return mStatus;
}

SVXPlatform CVXPlatformTest::Fakes() {
    SVXPlatform platform;
    platform.loop = &mLoop;
    platform.poster = &mPoster;
    platform.notifier = &mNotifier;
    platform.frontApp = &mFrontApp;
    platform.hostMIDI = &mHostMIDI;
    platform.device = &mDevice;
    return platform;
}
