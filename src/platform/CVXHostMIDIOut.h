#pragma once

#include <cstddef>
#include <cstdint>

// The way to host applications: every MIDI message the driver publishes on its
// virtual source (forwarded sysex, pass-through records, what actions send)
// leaves through this one call, as one packet.
class CVXHostMIDIOut {
  public:
    virtual ~CVXHostMIDIOut() = default;
    virtual void Send(const uint8_t* bytes, size_t length) = 0;
};
