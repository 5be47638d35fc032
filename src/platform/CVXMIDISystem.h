// The driver's virtual MIDI ports on one MIDI system (the ALSA sequencer or
// JACK): a client with a source port, which host applications read (surface
// to host), and a destination port, which they write (host to surface).
#pragma once

#include "platform/CVXHostMIDIIn.h"
#include "platform/CVXHostMIDIOut.h"

class CVXMIDISystem : public CVXHostMIDIOut {
  public:
    // Creates the client and its two ports. Packet lists that hosts send to
    // the destination reach inReceiver on the loop thread. 0, or a negative
    // errno-style status when the client or a port could not be made (then
    // nothing is left behind).
    virtual int SignIn(const char* inClientName, const char* inSourceName,
                       const char* inDestinationName, CVXHostMIDIIn* inReceiver) = 0;
    // Removes the client with both ports; nothing is received after it, and
    // Send() drops what it is given, as it does before SignIn.
    virtual void SignOut() = 0;
    // "ALSA" or "JACK", for the line that says which one the driver uses.
    virtual const char* Name() const = 0;
};
