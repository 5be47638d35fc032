// Names for the virtual key codes that keysets store, as a person writes them
// in a keyset text file: "Space", "F5", "KP_Enter", "Page_Up". Matching is
// case-insensitive and ignores '_', '-' and blanks, so "page up" and "PageUp"
// name the same key; a few common other names are taken too ("Enter", "Esc").
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// The name written for a virtual key code, or null for a code with no name.
const char* VXKeyName(uint8_t inVirtualKey);
// The virtual key code of a name, or nothing.
std::optional<uint8_t> VXKeyFromName(std::string_view inName);
