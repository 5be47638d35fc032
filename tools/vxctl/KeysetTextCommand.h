#pragma once

#include <string>
#include <vector>

namespace vxctl {

// vxctl keyset export|import|install|sync: keysets as text, the user's keyset
// files in the config folder, and the transport-button records that only
// reach a running vxd one control at a time.
bool IsKeysetTextCommand(const std::string& inSubcommand);
int RunKeysetText(const std::vector<std::string>& inArgs);

}  // namespace vxctl
