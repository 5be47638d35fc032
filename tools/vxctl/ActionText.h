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
