// The notify record: what the input parser tells the control service about
// one event of the surface, and the one place its shapes are defined. Byte 0
// is the record's length (itself included), byte 1 its kind: a control number
// (0 to 4 transport buttons, 160 to 165 channel controls) or kVXRawMIDIMessage.
//
//   transport button   3, control, kVXButtonPressed or kVXButtonReleased
//   fader              4, 160, channel, position (0 to 255)
//   channel button     4, 161 to 164, channel, 1 on or 0 off
//   touch sensor       4, 165, channel, 1 touched or 0 released
//   pass-through       message length + 2, 167, the MIDI message as received
#pragma once

#include <cstddef>
#include <cstdint>

#include "model/UVX_ControlClass.h"

constexpr size_t kVXRecordLength = 0;
constexpr size_t kVXRecordKind = 1;

// A transport button's record.
constexpr uint8_t kVXButtonRecordLength = 3;
constexpr size_t kVXRecordButtonState = 2;
constexpr uint8_t kVXButtonPressed = 0x3F;
constexpr uint8_t kVXButtonReleased = 0xBF;

// A channel control's record: fader, channel buttons and touch sensor.
constexpr uint8_t kVXChannelRecordLength = 4;
constexpr size_t kVXRecordChannel = 2;
constexpr size_t kVXRecordValue = 3;

// A pass-through record: the message follows the kind byte. The length byte
// is read as signed by the service, so a record never exceeds 127 bytes.
constexpr size_t kVXRecordMessage = 2;
constexpr size_t kVXMaxRawMessage = 125;
constexpr size_t kVXMaxRecordLength = kVXRecordMessage + kVXMaxRawMessage;
