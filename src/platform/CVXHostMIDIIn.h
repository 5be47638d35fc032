#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// One MIDI packet from a host application: one or more complete messages, as
// one event of the MIDI system delivered them. The bytes belong to the caller
// and last only for the call.
struct SVXMIDIPacket {
    const uint8_t* bytes;
    size_t length;
};

// Receiver of the MIDI that host applications send to the driver's input
// port: the driver implements it, the MIDI backend is given it and calls it on
// the loop thread, one packet list at a time (one ALSA sequencer event, or
// the events of one JACK cycle).
class CVXHostMIDIIn {
  public:
    virtual ~CVXHostMIDIIn() = default;
    virtual void DoMIDIReadProc(std::span<const SVXMIDIPacket> inPacketList) = 0;
};
