// Recording fakes of the platform interfaces and a fixture that installs them,
// with a virtual loop, as the process-wide platform context. Every fake writes
// one line per call into a shared log, so that tests can check the order of
// key, mouse, notification and host-MIDI events across fakes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/UStreamReader.h"
#include "platform/CVXAppNotifier.h"
#include "platform/CVXDeviceWriter.h"
#include "platform/CVXEventPoster.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/CVXMIDISystem.h"
#include "platform/CVXTextPlatform.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "support/EventLog.h"

// Four characters as a signature or keyword: "QBtn" -> 'QBtn', and back.
inline uint32_t FourCC(const char (&inText)[5]) {
    return VXTag(inText);
}
inline std::string FourCCText(uint32_t inCode) {
    return VXFourCCText(inCode);
}

// Each byte as " XX", as the recording fakes log them.
std::string HexBytes(const uint8_t* inBytes, size_t inLength);

// The device bytes that the current keyset's unmapper makes of one host
// packet (room for 256 of them), as HexBytes writes them.
std::string CurrentUnmapperAnswer(const std::vector<uint8_t>& inHost);

// Key, mouse and notification lines in the formats of CVXTextPlatform.h.
class CRecordingPoster : public CVXTextPoster {
  public:
    explicit CRecordingPoster(CEventLog& inLog)
        : CVXTextPoster([&inLog](std::string inLine) { inLog.Add(std::move(inLine)); }) {}
};

class CRecordingNotifier : public CVXAppNotifier {
  public:
    explicit CRecordingNotifier(CEventLog& inLog)
        : mText([&inLog](std::string inLine) { inLog.Add(std::move(inLine)); }) {}
    bool SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                              const std::vector<SVXEventParam>& inParams) override {
        if (mFail) return false;
        return mText.SendApplicationEvent(inSignature, inEventID, inParams);
    }
    bool mFail = false;  // answer false instead of sending

  private:
    CVXTextNotifier mText;
};

class CFakeFrontApp : public CVXFrontAppSource {
  public:
    bool GetFrontSignature(uint32_t& outSignature) override {
        ++mQueries;
        if (!mKnown) return false;
        outSignature = mSignature;
        return true;
    }
    bool mKnown = true;
    uint32_t mSignature = 0x3F3F3F3F;
    int mQueries = 0;
};

// Logs "host <hex bytes>" for what is sent, "midi sign-in <client>|<source>|
// <destination>" and "midi sign-out"; a sign-in answers mSignInStatus and
// keeps the receiver, through which a test plays a host.
class CRecordingHostMIDI : public CVXMIDISystem {
  public:
    explicit CRecordingHostMIDI(CEventLog& inLog) : mLog(inLog) {}
    void Send(const uint8_t* inBytes, size_t inLength) override;
    int SignIn(const char* inClientName, const char* inSourceName, const char* inDestinationName,
               CVXHostMIDIIn* inReceiver) override;
    void SignOut() override;
    const char* Name() const override { return "recording"; }

    int mSignInStatus = 0;
    CVXHostMIDIIn* mReceiver = nullptr;  // while signed in

  private:
    CEventLog& mLog;
};

// Logs "device <hex bytes>" and answers mStatus.
class CRecordingDevice : public CVXDeviceWriter {
  public:
    explicit CRecordingDevice(CEventLog& inLog) : mLog(inLog) {}
    int WriteAsync(const uint8_t* inData, size_t inSize) override;
    int mStatus = 0;

  private:
    CEventLog& mLog;
};

// Installs a virtual loop and the recording fakes as the platform context for
// the test's lifetime.
class CVXPlatformTest : public ::testing::Test {
  protected:
    CEventLog mLog;
    CVXVirtualLoop mLoop;
    CRecordingPoster mPoster{mLog};
    CRecordingNotifier mNotifier{mLog};
    CFakeFrontApp mFrontApp;
    CRecordingHostMIDI mHostMIDI{mLog};
    CRecordingDevice mDevice{mLog};

  private:
    SVXPlatform Fakes();
    CVXPlatformScope mScope{Fakes()};
};
