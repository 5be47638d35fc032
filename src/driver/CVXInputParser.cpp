#include "driver/CVXInputParser.h"

#include <algorithm>
#include <cstring>

#include "driver/CVXRecordSink.h"
#include "driver/VXBridgeFraming.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXHostMIDIOut.h"

namespace {

// Modem-status byte of a bridge packet: low nibble 0001.
bool IsModemStatus(uint8_t b) {
    return (b & 0x0F) == 0x01;
}
// Line-status byte of a healthy packet: both of bits 0x60 set.
bool IsLineStatusOK(uint8_t b) {
    return (b & 0x60) == 0x60;
}
// Overrun, parity, framing and receive-FIFO error bits of the line status.
constexpr uint8_t kLineErrorBits = 0x8E;

// The surface's controllers: a fader's two halves, the four channel buttons
// (Mute, Solo, Aux, Select in order) and the touch sensor.
constexpr uint8_t kFaderMSController = 7;
constexpr uint8_t kFaderLSController = 39;
constexpr uint8_t kMuteController = 70;
constexpr uint8_t kSelectController = 73;
constexpr uint8_t kTouchController = 74;
// From a channel button's controller to its control number (70 -> 161).
constexpr uint32_t kButtonControllerToControl = kVXChannelMute - kMuteController;

}  // namespace

void CVXInputParser::ProcessVXData(const uint8_t* data, size_t length) {
    if (length <= 2) {
        // Status bytes only. A read of one byte is judged by the same rule,
        // its missing line status taken as free of errors: only that second
        // byte needs the bound. An empty read has nothing to judge.
        if (length == 0) return;
        uint8_t lineStatus = length == 2 ? data[1] : 0;
        if (!(IsModemStatus(data[0]) && (lineStatus & kLineErrorBits) == 0)) ++mDebugErrorCount;
        return;
    }
    if (!IsModemStatus(data[0]) || !IsLineStatusOK(data[1])) return;

    for (size_t offset = 0; offset < length; offset += kVXBridgePacketSize) {
        size_t chunk = std::min(kVXBridgePacketSize, length - offset);
        const uint8_t* p = data + offset;
        // Only an exact 0x11 header is stripped, stricter than the acceptance
        // test above: a packet headed 0x01 passes it yet keeps its two status
        // bytes in the MIDI stream. A chunk of one byte has no pair to strip.
        if (chunk >= 2 && p[0] == kVXBridgeModemStatus && IsLineStatusOK(p[1])) {
            p += 2;
            chunk -= 2;
        }
        mIncompleteMessageBuffer.AddBytes(p, chunk);
    }

    uint8_t message[kMaxMessage];
    uint16_t len = 0;
    while (GetNextMIDIMessage(message, &len)) {
        uint8_t status = message[0];
        if (status == 0xF0 || status == 0xF7 || (status < 0x80 && mSysexActive)) {
            HandleSysexMessage(message, len);
            SysexToHost(message, len);
            continue;
        }
        mSysexActive = false;
        if ((status & 0xF0) != 0xB0) continue;  // the surface's other messages are dropped
        uint8_t channel = status & 0x0F;
        uint8_t controller = message[1];
        uint8_t value = message[2];
        if (controller == kFaderMSController) {
            HandleFaderMS(channel, value);
        } else if (controller == kFaderLSController) {
            HandleFaderLS(channel, value);
        } else if (controller >= kMuteController && controller <= kSelectController) {
            NotifyClientOfChannelButtonChange(controller + kButtonControllerToControl, channel,
                                              value != 0);
        } else if (controller == kTouchController) {
            NotifyClientOfTouchSensorChange(channel, value != 0);
        } else {
            NotifyClientOfRawMessage(message, len);
        }
    }
}

bool CVXInputParser::GetNextMIDIMessage(uint8_t* message, uint16_t* length) {
    uint32_t in = mIncompleteMessageBuffer.GetBufferIn();
    uint32_t out = mIncompleteMessageBuffer.GetBufferOut();
    if (!mIncompleteMessageBuffer.GetByte(&message[0])) return false;

    bool sysex = false;
    if (!mSysexActive && message[0] < 0x80) {
        // A stray data byte: without running status it is consumed and lost,
        // which also ends this read's loop.
        if (mRunningStatus == 0xFF) return false;
        message[0] = mRunningStatus;
        mIncompleteMessageBuffer.Reset(in, out);  // read it again as the first data byte
    } else if (message[0] == 0xF0 || message[0] == 0xF7 || message[0] < 0x80) {
        sysex = true;
    }

    if (sysex) {
        mRunningStatus = 0xFF;
        // The waiting count is cut to 8 bits before the comparison: 300 bytes
        // waiting give 44, 256 give 0. A message that does not fit in 64 bytes
        // therefore never completes.
        uint32_t n = mIncompleteMessageBuffer.BytesRemaining() & 0xFF;
        if (n > 62) n = 63;
        if (mIncompleteMessageBuffer.GetBytes(message + 1, n) != n) {
            mRunningStatus = 0xFF;
            return false;
        }
        uint32_t k = 0;
        for (uint32_t i = 1; i <= n; ++i) {
            if (message[i] == 0xF7) {
                k = i;
                break;
            }
        }
        if (k == 0) {
            mIncompleteMessageBuffer.Reset(in, out);  // wait for the rest
            return false;
        }
        if (k < n) {
            mIncompleteMessageBuffer.Reset(in, out);
            mIncompleteMessageBuffer.MoveOutMarkBy(k + 1);
        }
        *length = static_cast<uint16_t>(k + 1);
        return true;
    }

    uint8_t status = message[0];
    if (status >= 0x80 && status <= 0xEF) {
        mRunningStatus = status;
        status &= 0xF0;
    } else if (status >= 0xF1) {
        mRunningStatus = 0xFF;
    }

    uint32_t count = 0;
    switch (status) {
        case 0x80:
        case 0x90:
        case 0xA0:
        case 0xB0:
        case 0xE0:
            count = 2;
            break;
        case 0xC0:
        case 0xD0:
        case 0xF1:
        case 0xF3:
            count = 1;
            break;
        default:
            // 0xF2 included: its two data bytes then arrive as stray data bytes.
            return true;
    }
    if (mIncompleteMessageBuffer.BytesRemaining() < count) {
        mIncompleteMessageBuffer.Reset(in, out);  // the whole message waits
        return false;
    }
    if (mIncompleteMessageBuffer.GetBytes(message + 1, count) != count) return false;
    *length = static_cast<uint16_t>(count + 1);
    return true;
}

void CVXInputParser::HandleFaderMS(uint8_t channel, uint8_t value) {
    mPendingFaderValue[channel & 0x0F] = static_cast<uint8_t>(value << 1);
}

void CVXInputParser::HandleFaderLS(uint8_t channel, uint8_t value) {
    channel &= 0x0F;
    uint8_t position = static_cast<uint8_t>(mPendingFaderValue[channel] | (value >> 6));
    mPendingFaderValue[channel] = 0;
    NotifyClientOfFaderChange(channel, position);
}

bool CVXInputParser::GetMMCCommand(const uint8_t* message, size_t length, uint8_t& command) {
    command = 1;
    if (length != sizeof(kMMC_Command)) return false;
    for (size_t i = 0; i < length; ++i) {
        if (kMMC_Command[i] == 0xFD) {
            command = message[i];
        } else if (kMMC_Command[i] != message[i]) {
            return false;
        }
    }
    return true;
}

bool CVXInputParser::HandleSysexMessage(const uint8_t* message, size_t length) {
    uint8_t command;
    if (!GetMMCCommand(message, length, command)) return true;
    switch (command) {
        case 0x01:
            NotifyClientOfButtonChange(kVXStop, true);
            break;
        case 0x02:
            NotifyClientOfButtonChange(kVXPlay, true);
            break;
        case 0x04:
            NotifyClientOfButtonChange(kVXFastForward, true);
            break;
        case 0x05:
            NotifyClientOfButtonChange(kVXRewind, true);
            break;
        case 0x06:
            NotifyClientOfButtonChange(kVXRecord, true);
            break;
        default:
            break;
    }
    return true;
}

void CVXInputParser::SysexToHost(const uint8_t* message, size_t length) {
    if (mHost) mHost->Send(message, length);
}

void CVXInputParser::Notify() {
    if (mService) mService->Service(mNotifyData);
}

void CVXInputParser::NotifyChannelRecord(uint32_t control, uint8_t channel, uint8_t value) {
    mNotifyData[kVXRecordLength] = kVXChannelRecordLength;
    mNotifyData[kVXRecordKind] = static_cast<uint8_t>(control);
    mNotifyData[kVXRecordChannel] = channel;
    mNotifyData[kVXRecordValue] = value;
    Notify();
}

void CVXInputParser::NotifyClientOfButtonChange(uint32_t control, bool pressed) {
    mNotifyData[kVXRecordLength] = kVXButtonRecordLength;
    mNotifyData[kVXRecordKind] = static_cast<uint8_t>(control);
    mNotifyData[kVXRecordButtonState] = pressed ? kVXButtonPressed : kVXButtonReleased;
    Notify();
}

void CVXInputParser::NotifyClientOfFaderChange(uint8_t channel, uint8_t value) {
    NotifyChannelRecord(kVXChannelFader, channel, value);
}

void CVXInputParser::NotifyClientOfChannelButtonChange(uint32_t control, uint8_t channel, bool on) {
    NotifyChannelRecord(control, channel, on ? 1 : 0);
}

void CVXInputParser::NotifyClientOfTouchSensorChange(uint8_t channel, bool touched) {
    NotifyClientOfChannelButtonChange(kVXChannelTouchSense, channel, touched);
}

void CVXInputParser::NotifyClientOfRawMessage(const uint8_t* bytes, size_t length) {
    if (length > kVXMaxRawMessage) return;  // does not fit a record: dropped without a word
    mNotifyData[kVXRecordLength] = static_cast<uint8_t>(length + kVXRecordMessage);
    mNotifyData[kVXRecordKind] = kVXRawMIDIMessage;
    std::memcpy(mNotifyData + kVXRecordMessage, bytes, length);
    Notify();
}
