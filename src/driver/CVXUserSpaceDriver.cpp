#include "driver/CVXUserSpaceDriver.h"

#include <cerrno>
#include <cstring>

#include "actions/CMIDIUnmapper.h"
#include "actions/CVX_MIDIResponderMixIn.h"
#include "model/CVX_Keyset.h"
#include "model/CVX_KeysetData.h"
#include "platform/CVXMIDISystem.h"
#include "platform/VXDiagnostics.h"
#include "service/CVXService.h"

CVXUserSpaceDriver* CVXUserSpaceDriver::sSelf = nullptr;

CVXUserSpaceDriver::CVXUserSpaceDriver(CVXUSBHost* inUSB, CVXEventLoop* inLoop,
                                       CVXMIDISystem* inMIDI,
                                       std::optional<std::vector<uint8_t>> inPrefs)
    : mLink(inUSB,
            [this](const uint8_t* inData, size_t inLength) { ProcessVXData(inData, inLength); }),
      mAEHandlers(this),
      mParser(nullptr, inMIDI),
      mMIDI(inMIDI),
      mLoop(inLoop) {
    sSelf = this;
    mAEHandlers.Install();
    mLink.SetStatusHandler([this](const uint32_t* inValues, size_t inCount) {
        if (inCount >= VX_AE_Handlers::kNumStatusWords) mAEHandlers.UpdateStatus(inValues);
    });
    // Surfaces already plugged in are brought up right here. Their first reads
    // complete on the loop only later, when the service below is in place.
    mLink.RegisterHotplug();
    mService = inPrefs ? std::make_unique<CVXService>(std::move(*inPrefs))
                       : std::make_unique<CVXService>();
    mParser.SetRecordSink(mService.get());
    MIDISignIn();
    StartTimeoutCounter();
}

CVXUserSpaceDriver::CVXUserSpaceDriver(CVXRecordSink* inService, CVXHostMIDIOut* inHost)
    : mLink(nullptr,
            [this](const uint8_t* inData, size_t inLength) { ProcessVXData(inData, inLength); }),
      mAEHandlers(this),
      mParser(inService, inHost) {
    sSelf = this;
    mAEHandlers.Install();
}

CVXUserSpaceDriver::~CVXUserSpaceDriver() {
    MIDISignOut();
    StopTimeoutCounter();
    // The parser forgets the service before it goes; nothing reads after this.
    mParser.SetRecordSink(nullptr);
    mService.reset();
    if (sSelf == this) sSelf = nullptr;
}

int CVXUserSpaceDriver::MIDISignIn() {
    // No MIDI system on this machine fails like a client that could not be
    // made, with the same message.
    const int status =
        mMIDI ? mMIDI->SignIn(kMIDIClientName, kMIDISourceName, kMIDIDestinationName, this)
              : -ENODEV;
    mMIDISignedIn = status == 0;
    if (!mMIDISignedIn) {
        VXDiagnostic("MIDIClientCreate() returned %ld\n", long{status});
        return status;
    }
    // An emulated surface opens its conversation when its keyset becomes
    // current; the keyset current now either did so before there were ports
    // or (the one current from the start) never did. It speaks now, where a
    // host can hear it.
    const CVX_KeysetData* data = CVX_KeysetData::GetKeysetData();
    if (CVX_Keyset* keyset = data ? data->GetCurrentKeyset() : nullptr) keyset->Wakeup();
    return status;
}

void CVXUserSpaceDriver::MIDISignOut() {
    if (!mMIDISignedIn) return;
    mMIDI->SignOut();
    mMIDISignedIn = false;
}

void CVXUserSpaceDriver::DoMIDIReadProc(std::span<const SVXMIDIPacket> inPacketList) {
    // The keyset that answers is the front application's, checked for every
    // packet list, without the timer's tenth-of-a-second limit.
    if (mService) mService->CheckForProcessChange();
    CMIDIUnmapper* unmapper = CVX_KeysetData::GetCurrentMIDIUnmapper();
    uint8_t output[kMIDIOutputSize];
    size_t position = 0;
    for (const SVXMIDIPacket& packet : inPacketList) {
        // The unmapper is given the room that is left and reports what its
        // answers need even beyond it: a list whose device bytes would not fit
        // is refused whole, like one whose raw bytes would not.
        const size_t room = sizeof output - position;
        size_t length = packet.length;
        const bool mapped =
            unmapper && unmapper->UnmapHostMIDI(packet.bytes, output + position, &length, room);
        if (!mapped) length = packet.length;  // no unmapper, or nothing came of it: as it is
        if (length > room) {
            VXDiagnostic("host MIDI of more than %zu bytes refused\n", sizeof output);
            return;
        }
        if (!mapped && length > 0) std::memcpy(output + position, packet.bytes, length);
        position += length;
    }
    if (position == 0) VXDiagnostic("bufsize == 0\n");
    WriteAsync(output, position);
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
    // Every firing: host MIDI that was deferred, at most one unit of it.
    CVX_MIDIResponderMixIn::HandleDeferedMIDI();
}
