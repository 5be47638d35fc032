// What button and channel MIDI actions share: the stored kind, the template of
// eight bytes with its length, and the matching of host MIDI against it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Every template holds this many bytes, whatever its length says.
constexpr uint32_t kVXMIDITemplateSize = 8;

// Template marker bytes: undefined or real-time status bytes, which a
// template's data positions never need literally.
constexpr uint8_t kVXMIDIValueMarker = 0xFD;      // the value; the one a host message carries
constexpr uint8_t kVXMIDIHalfBitMarker = 0xFE;    // channel actions: 40 when bit 0 is set
constexpr uint8_t kVXMIDIHalfValueMarker = 0xFF;  // channel actions: the value halved

class CVX_MIDITemplate {
  public:
    // inMessage points at kVXMIDITemplateSize bytes; all of them are copied
    // whatever inLength says.
    CVX_MIDITemplate(uint32_t inActionType, uint16_t inLength, const uint8_t* inMessage)
        : mActionType(inActionType), mMsgLength(inLength) {
        std::memcpy(mMessage, inMessage, kVXMIDITemplateSize);
    }

    uint32_t GetActionType() const { return mActionType; }
    // As stored: a length above 8 is kept here and bounded where bytes are used.
    uint16_t GetMsgLength() const { return mMsgLength; }
    const uint8_t* GetMessage() const { return mMessage; }

  protected:
    // The template bytes that are sent and matched. A stored length is never
    // checked when the action is built, and the template holds only 8 bytes:
    // a longer length is taken as 8, so that no byte past the template is
    // sent or compared.
    size_t UsedLength() const { return std::min<size_t>(mMsgLength, kVXMIDITemplateSize); }

    // Whether a host message is the template's: the same length, byte 0 equal
    // (the status byte, channel included, is never a wildcard), and every later
    // byte equal or facing a wildcard: 0xFD only, or with inAllMarkersMatch
    // any marker from 0xFD up. outValue is the host byte at the first 0xFD
    // after byte 0, or 0 when the template has none.
    bool Matches(const uint8_t* inMessage, size_t inLength, bool inAllMarkersMatch,
                 uint8_t* outValue) const {
        const size_t length = UsedLength();
        if (inLength != length || length == 0 || inMessage[0] != mMessage[0]) return false;
        for (size_t i = 1; i < length; ++i) {
            const uint8_t t = mMessage[i];
            const bool wildcard =
                inAllMarkersMatch ? t >= kVXMIDIValueMarker : t == kVXMIDIValueMarker;
            if (!wildcard && inMessage[i] != t) return false;
        }
        *outValue = 0;
        for (size_t i = 1; i < length; ++i) {
            if (mMessage[i] == kVXMIDIValueMarker) {
                *outValue = inMessage[i];
                break;
            }
        }
        return true;
    }

    uint32_t mActionType;
    uint16_t mMsgLength;
    uint8_t mMessage[kVXMIDITemplateSize];
};
