#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl midi`: the MIDI systems this machine offers, the one vxd would take,
// and the ports it would create there. It creates none.
int RunMidi(const std::vector<std::string>& inArgs);

}  // namespace vxctl
