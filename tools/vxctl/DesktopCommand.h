#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl focus [--count N]`: follows the X11 focus and prints, for each
// change, the window's class and instance and the signature the applications
// file gives it, until SIGINT or SIGTERM (or N changes).
int RunFocus(const std::vector<std::string>& inArgs);

// `vxctl keys`: the key table, one key a line: virtual key code, evdev name,
// X keycode.
int RunKeys(const std::vector<std::string>& inArgs);

}  // namespace vxctl
