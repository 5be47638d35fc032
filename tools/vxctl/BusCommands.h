#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output/VX_AE_Handlers.h"

namespace vxctl {

// The subcommands that talk to a running vxd on the session bus: status,
// current, keyset add|replace|delete, control update, led, fader, raw,
// edit-mode, touch-sense-midi, monitor and focus-feed. Each exits 0 when it
// worked, 1 with the cause (no session bus, no driver on it, a malformed
// file) on standard error, 2 for wrong arguments.
bool IsBusCommand(const std::string& inCommand);
int RunBusCommand(const std::string& inCommand, const std::vector<std::string>& inArgs);
// The parameters of an upload: 'QDSz' the size, inKeyword the bytes.
VXAEParams UploadParams(const std::vector<uint8_t>& inData, const char (&inKeyword)[5]);
// The bytes of a keyset replacement ('QUpK'): the index, then the record.
std::vector<uint8_t> KeysetUpdateBytes(uint32_t inIndex, const std::vector<uint8_t>& inRecord);
// Their synopses, two-space indented, for vxctl's usage.
std::string BusUsage();

}  // namespace vxctl
