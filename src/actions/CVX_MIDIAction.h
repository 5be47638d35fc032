// MIDI actions of the transport buttons: a button sends a user-defined MIDI
// message of up to eight bytes to the host, and a two-way one (kind 2) also
// recognises that message when the host sends it back. In the template the
// byte 0xFD stands for the value (an undefined status byte, so it cannot be
// mistaken for real MIDI).
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"
#include "actions/CVX_MIDIResponderMixIn.h"
#include "actions/CVX_MIDITemplate.h"

class UStreamReader;

// MIDI action kinds as stored in the stream; any other value sends nothing.
constexpr uint32_t kVXMIDISendOnPress = 1;
constexpr uint32_t kVXMIDISendAndAnswer = 2;  // press and release, and answers host MIDI

constexpr uint32_t kVXMIDIMessageSize = kVXMIDITemplateSize;

class CVX_MIDIAction : public CVX_Action, public CVX_MIDIResponderMixIn, public CVX_MIDITemplate {
  public:
    // inMessage points at kVXMIDIMessageSize template bytes; all of them are
    // copied whatever inMessageLength says. A kind-2 action on a control that
    // may answer host MIDI registers with the keyset under construction.
    CVX_MIDIAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                   uint32_t inActionType, uint16_t inMessageLength, const uint8_t* inMessage);

    // Sends the template to the host with every 0xFD replaced by the value's
    // low byte. Returns false: a MIDI action ends its chain, and the actions
    // after it in the sequence do not run from this execution.
    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;

    // A kind-2 action's host message: the device bytes of GetNativeMessage
    // for the value at the template's first 0xFD (0 without one).
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                        size_t inLength) override;

    // Body: 2 bytes skipped, the kind (long), the length (short), then all 8
    // template bytes. Null for a truncated body or a control that is no button.
    static std::unique_ptr<CVX_Action> CreateMIDIActionFromStream(uint32_t inControlNum,
                                                                  uint16_t inSpeed,
                                                                  const char* inName,
                                                                  UStreamReader* inReader);
};

// The only MIDI action ever built. A kind-2 one that answers host MIDI stands
// twice in its unmapper's list, and so answers each of its messages twice.
class CVX_ButtonMIDIAction : public CVX_MIDIAction {
  public:
    CVX_ButtonMIDIAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                         uint32_t inActionType, uint16_t inMessageLength, const uint8_t* inMessage);

    // Kind 2 sends 7F on the press and 00 on the release; kind 1 sends the
    // value on the press only; any other kind sends nothing. Always false.
    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;

    // The button's LED message, which is empty for every button: a matching
    // host message then reaches the surface unchanged.
    void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength) override;
};
