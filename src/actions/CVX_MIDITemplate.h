// What button and channel MIDI actions share: the stored kind, the template of
// eight bytes with its length, and whether the action answers host MIDI.
#pragma once

#include <cstdint>
#include <cstring>

// Every template holds this many bytes, whatever its length says.
constexpr uint32_t kVXMIDITemplateSize = 8;

class CVX_MIDITemplate {
  public:
    // inMessage points at kVXMIDITemplateSize bytes; all of them are copied
    // whatever inLength says.
    CVX_MIDITemplate(uint32_t inActionType, uint16_t inLength, const uint8_t* inMessage,
                     bool inAcceptsMIDI)
        : mAcceptsMIDI(inAcceptsMIDI), mActionType(inActionType), mMsgLength(inLength) {
        std::memcpy(mMessage, inMessage, kVXMIDITemplateSize);
    }

    uint32_t GetActionType() const { return mActionType; }
    // As stored: a length above 8 is kept here and bounded where bytes are used.
    uint16_t GetMsgLength() const { return mMsgLength; }
    const uint8_t* GetMessage() const { return mMessage; }
    bool AcceptsMIDI() const { return mAcceptsMIDI; }

  protected:
    // Whether the action takes part in matching host MIDI: a two-way kind on a
    // control whose table entry allows it. Registration with the keyset's
    // unmapper reads it once that exists.
    bool mAcceptsMIDI;
    uint32_t mActionType;
    uint16_t mMsgLength;
    uint8_t mMessage[kVXMIDITemplateSize];
};
