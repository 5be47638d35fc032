// The words of the keyset text format that its reader and writer share.
#pragma once

#include <array>
#include <cstdint>

#include "actions/CVX_Action.h"

namespace vxtext {

// Transport buttons by control number.
constexpr std::array<const char*, 5> kButtonKeys = {"rewind", "fast_forward", "stop", "play",
                                                    "record"};
// Channel controls by number - 160.
constexpr std::array<const char*, 6> kControlKeys = {"fader", "mute",   "solo",
                                                     "aux",   "select", "touch"};

struct SModifier {
    const char* name;
    uint16_t bit;
};
// In the order the modifier keys go down.
constexpr std::array<SModifier, 5> kModifiers = {{{"command", 0x0100},
                                                  {"shift", 0x0200},
                                                  {"caps lock", 0x0400},
                                                  {"option", 0x0800},
                                                  {"control", 0x1000}}};

constexpr uint32_t kNotifyCode = 191;  // a button's special action: tell the application
constexpr uint32_t kShuttleRewind = 4;
constexpr uint32_t kShuttleForward = 5;
constexpr uint32_t kMIDIOneWay = 1;
constexpr uint32_t kMIDITwoWay = 2;
constexpr uint32_t kModeB = 2;
constexpr uint32_t kModeC = 3;
constexpr int32_t kTicksPerSecond = 60;

}  // namespace vxtext
