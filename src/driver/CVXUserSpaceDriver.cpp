#include "driver/CVXUserSpaceDriver.h"

#include "service/CVXService.h"

CVXUserSpaceDriver* CVXUserSpaceDriver::sSelf = nullptr;

CVXUserSpaceDriver::CVXUserSpaceDriver(CVXUSBHost* inUSB, CVXEventLoop* inLoop,
                                       CVXHostMIDIOut* inHost,
                                       std::optional<std::vector<uint8_t>> inPrefs)
    : mLink(inUSB,
            [this](const uint8_t* inData, size_t inLength) { ProcessVXData(inData, inLength); }),
      mParser(nullptr, inHost),
      mLoop(inLoop) {
    sSelf = this;
    // Surfaces already plugged in are brought up right here. Their first reads
    // complete on the loop only later, when the service below is in place.
    mLink.RegisterHotplug();
    mService = inPrefs ? std::make_unique<CVXService>(std::move(*inPrefs))
                       : std::make_unique<CVXService>();
    mParser.SetRecordSink(mService.get());
    StartTimeoutCounter();
}

CVXUserSpaceDriver::CVXUserSpaceDriver(CVXRecordSink* inService, CVXHostMIDIOut* inHost)
    : mLink(nullptr,
            [this](const uint8_t* inData, size_t inLength) { ProcessVXData(inData, inLength); }),
      mParser(inService, inHost) {
    sSelf = this;
}

CVXUserSpaceDriver::~CVXUserSpaceDriver() {
    StopTimeoutCounter();
    // The parser forgets the service before it goes; nothing reads after this.
    mParser.SetRecordSink(nullptr);
    mService.reset();
    if (sSelf == this) sSelf = nullptr;
}

void CVXUserSpaceDriver::StartTimeoutCounter() {
    if (!mLoop || mTimer) return;
    // First firing a tenth of a second from now, then every hundredth: a
    // one-shot timer starts the repeating one on that grid.
    mTimer = mLoop->AddOneShotTimer(CVXEventLoop::SecondsToMicros(kOneTenthOfASecond), [this] {
        mTimer = mLoop->AddRepeatingTimer(CVXEventLoop::SecondsToMicros(kOneHundredthOfASecond),
                                          [this] { TimeoutCounter(); });
        TimeoutCounter();
    });
}

void CVXUserSpaceDriver::StopTimeoutCounter() {
    if (!mLoop || !mTimer) return;
    mLoop->CancelTimer(mTimer);
    mTimer = 0;
}

void CVXUserSpaceDriver::TimeoutCounter() {
    if (!mLoop) return;
    const double now = mLoop->Now();
    // Compared in the clock's whole microseconds: in seconds, ten firings of
    // 0.01 s can add up to a hair under 0.1 and skip a poll.
    if (CVXEventLoop::SecondsToMicros(now - mLastProcessSniff) >=
        CVXEventLoop::SecondsToMicros(kOneTenthOfASecond)) {
        mLastProcessSniff = now;
        if (mService) mService->CheckForProcessChange();
    }
    // Deferred host MIDI is delivered here too once its hand-off exists.
}
