// Keysets as text a person can read, write, diff and share: TOML, read and
// written with toml++.
//
//   [[keyset]]                      one table per keyset, in keyset order
//   name = "Mixer"
//   signature = "MIX1"              the application's four characters
//   mode = "none"                   "none", "B", "C" (or the stored number)
//
//   [keyset.buttons.play]           rewind, fast_forward, stop, play, record
//   latched = false
//   actions = [ { type = "key", key = "Space", modifiers = ["shift"] } ]
//
//   [[keyset.strip]]                strip = 3, strips = [1, 2] or "all"
//   fader = { type = "midi", kind = "two-way", template = "Bn 07 FD" }
//   mute = { type = "notify" }
//
// Button actions: key, mouse, delay, notify, shuttle, app, midi. Channel
// actions (fader, mute, solo, aux, select, touch): notify, app, midi,
// emulation. Templates are hex bytes; in a strip entry the digit n stands for
// the strip's channel (0 to 15), and bytes after '|' are stored but not sent.
//
// The text is ASCII: other characters of a name are written as \u escapes
// (names hold 8-bit characters, U+0000 to U+00FF).
#pragma once

#include <string>
#include <string_view>

#include "text/VXKeysetModel.h"

// The text of a keyset file. Reading it back gives the same model.
std::string VXKeysetFileToText(const SVXKeysetFileModel& inFile);

// Reads keyset text. On an error outError reads "FILE:LINE:COLUMN: what was
// expected", with inFileName as FILE, and outFile is left alone.
bool VXKeysetFileFromText(std::string_view inText, std::string_view inFileName,
                          SVXKeysetFileModel& outFile, std::string& outError);
