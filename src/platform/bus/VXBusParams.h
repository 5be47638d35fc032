// Command parameters and replies as the bus carries them: a{sv}, keywords as
// four-character strings, 'magn' as u, 'long' as i, 'TEXT' as ay.
#pragma once

#include "output/VX_AE_Handlers.h"

struct sd_bus_message;

// Reads an a{sv} into outParams, in order. An entry whose key is not four
// bytes long or whose value has another type is skipped: the command then
// finds that parameter missing, as it would a malformed one. 0 or a negative
// errno (the message itself is malformed).
int VXReadParams(sd_bus_message* inMessage, VXAEParams& outParams);
// Appends inParams as a{sv}; 0 or a negative errno.
int VXAppendParams(sd_bus_message* inMessage, const VXAEParams& inParams);
