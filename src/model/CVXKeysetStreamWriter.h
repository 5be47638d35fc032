// Writes keyset streams record by record, in the same grammar the readers
// take: the full set, keyset records with their channel strips, button and
// channel control records, and the action records. The driver never writes a
// keyset; vxctl, the tests, the fuzz seeds and the benchmarks do.
//
// Record writers that leave a count open (ButtonControl, ChannelControl)
// expect the caller to follow with exactly that many action records.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/UStreamWriter.h"

class CVXKeysetStreamWriter : public UStreamWriter {
  public:
    // "KstD" "CrKV" version "KsCt" count; 0x40000 is the first version read.
    CVXKeysetStreamWriter& FullSetHeader(uint32_t inCount, uint32_t inVersion = 0x40000);
    // "Kyst" name, signature and emulation mode; the strips follow.
    CVXKeysetStreamWriter& KeysetHeader(std::string_view inName, uint32_t inSignature,
                                        uint32_t inMode = 0);
    // "ChCT" and the index (n - 160) that opens the group of control n.
    CVXKeysetStreamWriter& StripGroupHeader(uint32_t inControl);
    // "CtlD" ... "CCnt" count for one channel control.
    CVXKeysetStreamWriter& ChannelControl(std::string_view inName, uint32_t inType,
                                          uint32_t inChannel, bool inLatched, uint32_t inCount);
    // A whole strip array of default-named controls without actions.
    CVXKeysetStreamWriter& EmptyStrips(uint32_t inChannels = 16);

    // Channel action records: the common header, then a body.
    CVXKeysetStreamWriter& ChannelActionHeader(uint32_t inType, std::string_view inName);
    CVXKeysetStreamWriter& ChannelSpecialAction(std::string_view inName);
    CVXKeysetStreamWriter& ChannelAppSpecificAction(std::string_view inName, uint32_t inCode);
    // inMessage: the 8 template bytes, all written whatever inLength says.
    CVXKeysetStreamWriter& ChannelMIDIAction(std::string_view inName, uint32_t inKind,
                                             uint16_t inLength, const uint8_t* inMessage);

    // inMessage: the 16 template bytes, all written whatever inLength says.
    CVXKeysetStreamWriter& ChannelEmulationAction(std::string_view inName, uint32_t inMode,
                                                  uint16_t inLength, const uint8_t* inMessage,
                                                  bool inAcceptsMIDI);

    // Names, latched setting and the action count of a button control.
    CVXKeysetStreamWriter& ButtonControl(std::string_view inName, std::string_view inAssigned,
                                         bool inLatched, uint32_t inCount);
    // The filler that pads a sequence of inCount records to twelve slots.
    CVXKeysetStreamWriter& SequenceFiller(uint32_t inCount);
    // Single-update headers of the editor's commands.
    CVXKeysetStreamWriter& ControlUpdateHeader(uint32_t inKeyset, uint32_t inBank,
                                               uint32_t inControl);
    CVXKeysetStreamWriter& ChannelControlUpdateHeader(uint32_t inKeyset, uint32_t inChannel,
                                                      uint32_t inType);

    // Button action records, each padded to its 156 bytes.
    CVXKeysetStreamWriter& KeyAction(uint32_t inControl, std::string_view inName,
                                     uint16_t inKeyCode, uint8_t inCharCode,
                                     uint16_t inModifiers = 0);
    CVXKeysetStreamWriter& MouseAction(uint32_t inControl, std::string_view inName, int16_t inX,
                                       int16_t inY, uint16_t inModifiers = 0);
    CVXKeysetStreamWriter& DelayAction(uint32_t inControl, std::string_view inName,
                                       uint32_t inTicks);
    CVXKeysetStreamWriter& SpecialAction(uint32_t inControl, std::string_view inName,
                                         uint32_t inCode = 191);
    CVXKeysetStreamWriter& AppSpecificAction(uint32_t inControl, std::string_view inName,
                                             uint16_t inSpeed, uint32_t inCode);
    // inMessage: the 8 template bytes, all written whatever inLength says.
    CVXKeysetStreamWriter& MIDIAction(uint32_t inControl, std::string_view inName, uint32_t inKind,
                                      uint16_t inLength, const uint8_t* inMessage);
    // Any record: the header, then inBody, then the filler up to 156 bytes.
    CVXKeysetStreamWriter& ButtonAction(uint32_t inType, uint32_t inControl,
                                        std::string_view inName, uint16_t inSpeed,
                                        const uint8_t* inBody, size_t inBodySize);
};
