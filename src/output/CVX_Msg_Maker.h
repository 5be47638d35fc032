// The builders of what the driver writes to the surface: the whole outward
// wire format. Motor faders and channel-button LEDs are driven by short
// control changes on the strip's MIDI channel. A maker is a value object that
// builds its message in a fixed buffer in its constructor; the caller builds
// one on the stack, reads Message() and Length(), and sends nothing when the
// length is 0.
#pragma once

#include <cstddef>
#include <cstdint>

class CVX_Msg_Maker {
  public:
    // Room of every maker's buffer; no maker builds more.
    static constexpr size_t kMessageSize = 1024;

    CVX_Msg_Maker() = default;
    virtual ~CVX_Msg_Maker() = default;

    const uint8_t* Message() const { return mMessage; }
    uint32_t Length() const { return mLength; }

    // F0 15 26, the start of every sysex the surface takes (its status request
    // F0 15 26 01 F7 too), as bytes 0 to 2; the length becomes 3.
    void SysexHeader();

  protected:
    // Left uninitialised on purpose: only the first mLength bytes are ever
    // read, and makers are built on the host-MIDI path for every answer.
    uint8_t mMessage[kMessageSize];
    uint32_t mLength = 0;
};

// The LED of a transport button. These buttons have no LED that the driver
// can set: the message is always empty.
class CVX_LED_MsgMaker : public CVX_Msg_Maker {
  public:
    CVX_LED_MsgMaker(uint8_t inControl, bool inOn);
};

// The LED of one channel button: B0+channel, 46..49 (Mute, Solo, Aux,
// Select), 7F or 00. Touch Sense, the fader and any number outside the channel
// buttons give an empty message.
class CVX_Channel_LED_MsgMaker : public CVX_Msg_Maker {
  public:
    CVX_Channel_LED_MsgMaker(uint8_t inControlType, uint16_t inChannel, bool inOn);
};

// Moves one motor fader to an 8-bit position, in five bytes: B0+channel 07
// <value >> 1> 27 <40 when bit 0 is set, else 00>. No range check: callers keep
// the channel within 0..15 and the value within 0..255 (above it, byte 2
// passes 7F).
class CVX_Fader_MsgMaker : public CVX_Msg_Maker {
  public:
    CVX_Fader_MsgMaker(uint16_t inChannel, uint16_t inValue);
};
