#include "model/UVX_ControlClass.h"

#include <iterator>

// The names are copied verbatim into control records and reported to the editor,
// so every blank counts: channel-control names end in one, and entry 10 in two.
const cstr32 kControlNames[5] = {"Rewind", "Fast Forward", "Stop", "Play", "Record"};

const cstr32 kChannelControlNames[14] = {
    "Fader ",
    "Mute ",
    "Solo ",
    "Aux ",
    "Select ",
    "Touch Sense ",
    "Bridge Top Encoder Switch ",
    "Bridge Bottom Encoder Switch ",
    "Bridge LCD Switch ",
    "Track Arm ",
    "Bridge Top Encoder  ",
    "Bridge Bottom Encoder ",
    "Bridge Joystick X ",
    "Bridge Joystick Y ",
};

const bool kControlAcceptsMIDI[5] = {true, true, true, true, true};
const bool kChannelControlAcceptsMIDI[10] = {true,  true,  true,  true,  true,
                                             false, false, false, false, true};
const bool kChannelCtlHasLED[5] = {true, true, true, true, false};

const uint8_t kControlNumToModeCControlNum[5] = {2, 3, 4, 1, 0};
const uint8_t kModeCControlNumToControlNum[5] = {165, 164, 161, 162, 163};

const char kHex2ASCII[17] = "0123456789ABCDEF";

bool UVX_ControlClass::ControlAcceptsMIDI(uint32_t index) {
    if (index < kNumBankControls) return kControlAcceptsMIDI[index];
    return index == kNumBankControls;
}

bool UVX_ControlClass::ChannelControlAcceptsMIDI(uint32_t control) {
    constexpr uint32_t kEntries = std::size(kChannelControlAcceptsMIDI);
    if (control < kFirstChannelControl || control - kFirstChannelControl >= kEntries) return false;
    return kChannelControlAcceptsMIDI[control - kFirstChannelControl];
}

bool UVX_ControlClass::ChannelControlHasLED(uint32_t control) {
    if (!IsChannelButton(control)) return false;
    return kChannelCtlHasLED[control - kVXChannelMute];
}

void HexByteToCString(uint8_t byte, char* out) {
    out[0] = kHex2ASCII[byte >> 4];
    out[1] = kHex2ASCII[byte & 0x0F];
    out[2] = 0;
}

void HexDataToCString(const uint8_t* data, size_t length, char* out) {
    char* p = out;
    for (size_t i = 0; i < length; ++i) {
        HexByteToCString(data[i], p);
        p += 2;
        if (i + 1 < length) *p++ = ' ';
    }
    *p = 0;
}
