// Readable one-line descriptions of actions, for vxctl's listings.
#pragma once

#include <cstdint>
#include <string>

class CVX_Action;
class CVX_Channel_Action;

namespace vxctl {

std::string DescribeModifiers(int16_t inModifiers);  // "command+shift", or "" for none
std::string DescribeAction(const CVX_Action& inAction);
std::string DescribeChannelAction(const CVX_Channel_Action& inAction);

}  // namespace vxctl

namespace vxctl {

// A control event as decode and monitor print it: "button Play pressed",
// "fader channel 3 position 129", "Mute channel 0 on", "touch channel 2
// touched"; "control N channel C value V" for a number outside the surface.
std::string DescribeControlEvent(uint32_t inControl, uint32_t inChannel, int32_t inValue);

}  // namespace vxctl
