// Cutting a byte stream into whole MIDI messages, as the MIDI systems carry
// them: a JACK event or an ALSA sequencer event holds one message, while what
// the driver sends to host applications is one packet that may hold several
// (two control changes in one go, say) or use running status.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

// Called once per message, in order; the bytes last only for the call.
using VXMIDIMessageFn = std::function<void(const uint8_t* inBytes, size_t inLength)>;

// Cuts inBytes into messages and hands each to inMessage:
//  - channel messages with their status byte, running status expanded (data
//    bytes after a complete message repeat the last channel status);
//  - system-exclusive messages from F0 up to and including F7, whole; one cut
//    short by another status byte, or by the end of the bytes, goes out as
//    far as it came;
//  - real-time bytes (F8 to FF) on their own, wherever they stand, even
//    inside a system-exclusive message, which then goes on;
//  - system common messages with their data bytes.
// Dropped: data bytes with no status to belong to, a stray F7, and a message
// still short of data bytes at the end (the bytes of one packet stand alone).
void VXCutMIDIMessages(const uint8_t* inBytes, size_t inLength, const VXMIDIMessageFn& inMessage);

// The number of data bytes that follow a status byte (0x80 to 0xFF); -1 for
// F0, whose message runs to F7.
int VXMIDIDataBytes(uint8_t inStatus);
