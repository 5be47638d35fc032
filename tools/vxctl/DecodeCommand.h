#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl decode [--midi] [--records] [FILE|-]`: runs a capture of surface reads
// through the real input parser and prints what it produced, in order. Lines
// "host HEX" go to the driver's host-MIDI read procedure instead, and what it
// writes to the surface is printed.
int RunDecode(const std::vector<std::string>& inArgs);

}  // namespace vxctl
