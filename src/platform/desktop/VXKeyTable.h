// The one table of keys. Keysets store the virtual key codes of the keyboard
// they were written on: the US ANSI layout of the original platform, where 0 is
// A, 49 Space, 122 F1, 55 to 59 the modifiers. Each is mapped by position to
// the Linux input (evdev) key on a US keyboard; an X server numbers the same
// key evdev code + 8. Character codes play no part: the key's position is what
// an application sees, under whatever layout the desktop has.
#pragma once

#include <cstdint>
#include <span>

struct SVXKey {
    uint16_t virtualKey;  // the keysets' code
    uint16_t evdevCode;   // KEY_* of <linux/input-event-codes.h>
};

// X servers number a key by its evdev code plus this offset.
constexpr uint16_t kVXXKeycodeOffset = 8;

// Every key of the table, in order of virtual key code.
std::span<const SVXKey> VXKeyTable();
// The evdev code of a virtual key, or -1 for a code no key has.
int VXEvdevCodeForVirtualKey(uint16_t inVirtualKey);
// The X keycode of a virtual key, or 0 for a code no key has.
uint8_t VXXKeycodeForVirtualKey(uint16_t inVirtualKey);
// The evdev name of a key ("KEY_A", "KEY_LEFTMETA"), or "?" for an unknown code.
const char* VXEvdevKeyName(uint16_t inEvdevCode);
