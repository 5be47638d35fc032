// MIDI actions of the transport buttons: a button sends a user-defined MIDI
// message of up to eight bytes to the host, and a two-way one (kind 2) also
// recognises that message when the host sends it back. In the template the
// byte 0xFD stands for the value (an undefined status byte, so it cannot be
// mistaken for real MIDI).
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"
#include "actions/CVX_MIDITemplate.h"

class UStreamReader;

// MIDI action kinds as stored in the stream; any other value sends nothing.
constexpr uint32_t kVXMIDISendOnPress = 1;
constexpr uint32_t kVXMIDISendAndAnswer = 2;  // press and release, and answers host MIDI

constexpr uint32_t kVXMIDIMessageSize = kVXMIDITemplateSize;

class CVX_MIDIAction : public CVX_Action, public CVX_MIDITemplate {
  public:
    // inMessage points at kVXMIDIMessageSize template bytes; all of them are
    // copied whatever inMessageLength says.
    CVX_MIDIAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                   uint32_t inActionType, uint16_t inMessageLength, const uint8_t* inMessage);

    // Sending to the host comes with the MIDI path; until then nothing is
    // sent. Either way a MIDI action ends its chain: the actions after it in
    // the sequence do not run from this execution.
    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;

    // Body: 2 bytes skipped, the kind (long), the length (short), then all 8
    // template bytes. Null for a truncated body or a control that is no button.
    static std::unique_ptr<CVX_Action> CreateMIDIActionFromStream(uint32_t inControlNum,
                                                                  uint16_t inSpeed,
                                                                  const char* inName,
                                                                  UStreamReader* inReader);
};

// The only MIDI action ever built. A kind-2 one registers with the unmapper a
// second time on purpose (the MIDI path adds the registration).
class CVX_ButtonMIDIAction : public CVX_MIDIAction {
  public:
    using CVX_MIDIAction::CVX_MIDIAction;
};
