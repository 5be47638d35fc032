#pragma once

#include <string>
#include <vector>

namespace vxctl {

// `vxctl decode [--midi] [--records] [FILE|-]`: runs a capture of surface reads
// through the real input parser and prints what it produced, in order.
int RunDecode(const std::vector<std::string>& inArgs);

}  // namespace vxctl
