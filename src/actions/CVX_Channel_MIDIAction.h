// Channel MIDI actions: a fader move or channel button press becomes a MIDI
// message built from a template of up to eight bytes, in which marker bytes
// (0xFD, 0xFE, 0xFF) stand for the control's value. A two-way action (kind 2)
// also recognises the message when the host sends it back, and moves the
// fader or sets the LED.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_MIDITemplate.h"

class UStreamReader;

// The one channel MIDI kind with a meaning of its own; any other sends only.
constexpr uint32_t kVXChannelMIDITwoWay = 2;

constexpr uint32_t kVXChannelMIDIMessageSize = kVXMIDITemplateSize;

class CVX_Channel_MIDIAction : public CVX_Channel_Action, public CVX_MIDITemplate {
  public:
    // inMessage points at kVXChannelMIDIMessageSize template bytes; all of
    // them are copied whatever inMsglength says.
    CVX_Channel_MIDIAction(uint32_t inControlType, uint32_t inChannel, const char* inName,
                           uint32_t inActionType, uint16_t inMsglength, const uint8_t* inMessage);

    // Sending to the host comes with the MIDI path; until then nothing is sent.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    // Body: "MidD", "CTyp" kind, "MDLn" length, "MDMs" and 8 template bytes.
    // A fader gets a fader action, a channel button a button action, anything
    // else null; so does a missing tag or a short read. Prints nothing.
    static std::unique_ptr<CVX_Channel_Action> CreateChannelMIDIActionFromStream(
        UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName);
};

// For the channel fader (160). A two-way one sends plain 7-bit values.
class CVX_Channel_FaderMIDIAction : public CVX_Channel_MIDIAction {
  public:
    using CVX_Channel_MIDIAction::CVX_Channel_MIDIAction;
};

// For the channel buttons (161 to 165).
class CVX_Channel_ButtonMIDIAction : public CVX_Channel_MIDIAction {
  public:
    using CVX_Channel_MIDIAction::CVX_Channel_MIDIAction;
};
