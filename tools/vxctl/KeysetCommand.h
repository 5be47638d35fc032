#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl keyset dump FILE`: loads a preferences file with the driver's own
// readers and lists every keyset, strip, control and action.
int RunKeyset(const std::vector<std::string>& inArgs);

}  // namespace vxctl
