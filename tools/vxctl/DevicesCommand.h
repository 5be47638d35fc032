#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl devices`: the USB devices of the surface's identities that are
// plugged in, with their release number and whether vxd takes them.
int RunDevices(const std::vector<std::string>& inArgs);

}  // namespace vxctl
