// The surface's inward wire format. Each completed bulk read arrives here with
// the bridge's status bytes in front of every 64-byte packet; the parser strips
// them, completes messages split across reads in a ring, cuts the MIDI stream
// into messages and turns each into a notify record for the control service.
// System-exclusive messages also go, unchanged, to host applications.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/CCircularBuffer.h"
#include "driver/VXNotifyRecord.h"

class CVXRecordSink;
class CVXHostMIDIOut;

class CVXInputParser {
  public:
    CVXInputParser(CVXRecordSink* inService = nullptr, CVXHostMIDIOut* inHost = nullptr)
        : mService(inService), mHost(inHost) {}

    // The driver builds its control service after the parser (devices are
    // brought up first) and hands it over here.
    void SetRecordSink(CVXRecordSink* inService) { mService = inService; }

    // Entry point: the bytes of one completed bulk read.
    void ProcessVXData(const uint8_t* data, size_t length);

    // Takes the next complete message out of the ring; `message` holds at least
    // kMaxMessage bytes.
    bool GetNextMIDIMessage(uint8_t* message, uint16_t* length);

    void HandleFaderMS(uint8_t channel, uint8_t value);
    void HandleFaderLS(uint8_t channel, uint8_t value);
    bool HandleSysexMessage(const uint8_t* message, size_t length);
    static bool GetMMCCommand(const uint8_t* message, size_t length, uint8_t& command);
    void SysexToHost(const uint8_t* message, size_t length);

    void NotifyClientOfButtonChange(uint32_t control, bool pressed);
    void NotifyClientOfFaderChange(uint8_t channel, uint8_t value);
    void NotifyClientOfChannelButtonChange(uint32_t control, uint8_t channel, bool on);
    void NotifyClientOfTouchSensorChange(uint8_t channel, bool touched);
    void NotifyClientOfRawMessage(const uint8_t* bytes, size_t length);

    uint32_t DebugErrorCount() const { return mDebugErrorCount; }
    uint8_t RunningStatus() const { return mRunningStatus; }
    const CCircularBuffer& IncompleteMessageBuffer() const { return mIncompleteMessageBuffer; }

    static constexpr size_t kMaxMessage = 64;
    static constexpr uint8_t kMMC_Command[6] = {0xF0, 0x7F, 0x7F, 0x06, 0xFD, 0xF7};

  private:
    void Notify();
    // The shape shared by faders, channel buttons and touch sensors.
    void NotifyChannelRecord(uint32_t control, uint8_t channel, uint8_t value);

    CCircularBuffer mIncompleteMessageBuffer;
    uint8_t mRunningStatus = 0xFF;
    // Set by nothing in the driver; a data byte where a status is expected would
    // continue a system-exclusive message while it is true. Kept so the
    // continuation path behaves as designed should a sender ever need it.
    bool mSysexActive = false;
    uint8_t mPendingFaderValue[16] = {};
    uint8_t mNotifyData[kVXMaxRecordLength + 1] = {};
    uint32_t mDebugErrorCount = 0;

    CVXRecordSink* mService;
    CVXHostMIDIOut* mHost;
};
