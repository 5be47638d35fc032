// The preferences file "VX USB Prefs": the keyset stream the editor application
// saves, read once when the service starts. The driver never writes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Name of the file inside the preferences folder.
inline constexpr char kVXPrefsFileName[] = "VX USB Prefs";

// A keyset stream of a few hundred keysets is well under a megabyte; anything
// larger than this is not a preferences file, and reading it would only tie up
// memory the driver never uses.
inline constexpr uint64_t kVXPrefsMaxSize = uint64_t{64} * 1024 * 1024;

// The preferences folder with a trailing '/': "$XDG_CONFIG_HOME/velorix/", or
// "$HOME/.config/velorix/" when XDG_CONFIG_HOME is unset or empty. Empty when
// neither variable names a folder.
std::string VXPrefsFolder();

// The folder above plus kVXPrefsFileName; empty when there is no folder.
std::string VXPrefsFilePath();

// Opens the preferences file for reading and returns its descriptor (closed on
// exec), or -1 when there is no folder, no file, or the open fails.
int OpenPrefsFile();

// The whole file in outData. True only when the file was read whole and holds
// at least one byte; a missing, empty, unreadable or oversized file (or one that
// is not a regular file) gives false and leaves outData empty.
bool LoadPreferences(std::vector<uint8_t>& outData);
