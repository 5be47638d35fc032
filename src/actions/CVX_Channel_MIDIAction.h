// Channel MIDI actions: a fader move or channel button press becomes a MIDI
// message built from a template of up to eight bytes, in which marker bytes
// (0xFD, 0xFE, 0xFF) stand for the control's value. A two-way action (kind 2)
// also recognises the message when the host sends it back, and moves the
// fader or sets the LED.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_MIDIResponderMixIn.h"
#include "actions/CVX_MIDITemplate.h"

class UStreamReader;

// The one channel MIDI kind with a meaning of its own; any other sends only.
constexpr uint32_t kVXChannelMIDITwoWay = 2;

constexpr uint32_t kVXChannelMIDIMessageSize = kVXMIDITemplateSize;

class CVX_Channel_MIDIAction : public CVX_Channel_Action,
                               public CVX_MIDIResponderMixIn,
                               public CVX_MIDITemplate {
  public:
    // inMessage points at kVXChannelMIDIMessageSize template bytes; all of
    // them are copied whatever inMsglength says. A two-way action on a control
    // that may answer host MIDI registers with the keyset under construction.
    CVX_Channel_MIDIAction(uint32_t inControlType, uint32_t inChannel, const char* inName,
                           uint32_t inActionType, uint16_t inMsglength, const uint8_t* inMessage);

    // The generic send: 0xFD becomes the value's low seven bits, 0xFE 40 when
    // bit 0 of the value is set (else 00), 0xFF the value's low byte halved;
    // other bytes go as they are. Always false: the sequence ends here.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    // A two-way action's host message (byte 0 equal, every other byte equal
    // or facing a marker): the device bytes of GetNativeMessage for the value
    // at the template's first 0xFD (0 without one).
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                        size_t inLength) override;

    // Body: "MidD", "CTyp" kind, "MDLn" length, "MDMs" and 8 template bytes.
    // A fader gets a fader action, a channel button a button action, anything
    // else null; so does a missing tag or a short read. Prints nothing.
    static std::unique_ptr<CVX_Channel_Action> CreateChannelMIDIActionFromStream(
        UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName);

  protected:
    bool TwoWay() const { return mActionType == kVXChannelMIDITwoWay && mAcceptsMIDI; }
};

// For the channel fader (160). Moves are rate-limited to 30 a second. A
// two-way one sends plain 7-bit values, the same ones it recognises coming
// back, and moves the motor fader to twice the host's value.
class CVX_Channel_FaderMIDIAction : public CVX_Channel_MIDIAction {
  public:
    CVX_Channel_FaderMIDIAction(uint32_t inControlType, uint32_t inChannel, const char* inName,
                                uint32_t inActionType, uint16_t inMsglength,
                                const uint8_t* inMessage);

    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;
    void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength) override;
};

// For the channel buttons (161 to 165). Changes are rate-limited to 30 a
// second and sent as 7F or 00; Touch Sense sends nothing while touch-sense
// MIDI is switched off. A two-way one sets the button's LED.
class CVX_Channel_ButtonMIDIAction : public CVX_Channel_MIDIAction {
  public:
    CVX_Channel_ButtonMIDIAction(uint32_t inControlType, uint32_t inChannel, const char* inName,
                                 uint32_t inActionType, uint16_t inMsglength,
                                 const uint8_t* inMessage);

    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;
    void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength) override;
};
