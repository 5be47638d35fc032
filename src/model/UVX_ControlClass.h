// The control numbering of the surface: which number is which physical control,
// the default names, which controls may answer host MIDI, which buttons carry an
// LED, and the renumbering tables of the Mode C emulation. Constant data and pure
// functions only.
#pragma once

#include <cstddef>
#include <cstdint>

// A fixed 32-byte slot holding a NUL-terminated name.
typedef char cstr32[32];

// Control numbers as the parser produces them and the keysets store them.
enum : uint32_t {
    kVXRewind = 0,
    kVXFastForward = 1,
    kVXStop = 2,
    kVXPlay = 3,
    kVXRecord = 4,
    kVXChannelFader = 160,
    kVXChannelMute = 161,
    kVXChannelSolo = 162,
    kVXChannelAux = 163,
    kVXChannelSelect = 164,
    kVXChannelTouchSense = 165,
    kVXRawMIDIMessage = 167,  // notify-record kind of a pass-through message
};

constexpr uint32_t kNumBanks = 1;
constexpr uint32_t kNumBankControls = 5;
constexpr uint32_t kNumChannelStrips = 16;
constexpr uint32_t kNumChannelControls = 6;
constexpr uint32_t kFirstChannelControl = kVXChannelFader;

extern const cstr32 kControlNames[5];
extern const cstr32 kChannelControlNames[14];

extern const bool kControlAcceptsMIDI[5];
extern const bool kChannelControlAcceptsMIDI[10];
extern const bool kChannelCtlHasLED[5];

extern const uint8_t kControlNumToModeCControlNum[5];
extern const uint8_t kModeCControlNumToControlNum[5];

extern const char kHex2ASCII[17];

class UVX_ControlClass {
  public:
    // IsButton accepts 5 on purpose: actions for bank buttons are built for it,
    // while the bank holds no control under that number.
    static constexpr bool IsButton(uint32_t n) { return n <= kNumBankControls; }
    static constexpr bool IsTransportControl(uint32_t n) { return n < kNumBankControls; }
    static constexpr bool IsChannelControl(uint32_t n) {
        return n >= kVXChannelFader && n <= kVXChannelTouchSense;
    }
    static constexpr bool IsChannelFader(uint32_t n) { return n == kVXChannelFader; }
    static constexpr bool IsChannelButton(uint32_t n) {
        return n >= kVXChannelMute && n <= kVXChannelTouchSense;
    }

    // kControlAcceptsMIDI, readable one past its end: the channel emulation action
    // asks it with a channel index (0 to 5), and Touch Sense (index 5) must answer
    // true like the entries before it. Anything further out is no control and false.
    static bool ControlAcceptsMIDI(uint32_t index);
    // kChannelControlAcceptsMIDI by channel control number; false outside the table.
    static bool ChannelControlAcceptsMIDI(uint32_t control);
    // kChannelCtlHasLED by channel button number; false for anything but 161 to 165.
    static bool ChannelControlHasLED(uint32_t control);
};

// Two upper-case hex digits and a NUL: `out` takes 3 bytes.
void HexByteToCString(uint8_t byte, char* out);
// Each byte as two digits, a blank between bytes, then a NUL: `out` takes
// 3 * length bytes (at least 1).
void HexDataToCString(const uint8_t* data, size_t length, char* out);
