// Which MIDI system the driver's ports go on, chosen at start-up by what the
// machine offers, without options: the ALSA sequencer when it opens, else a
// JACK server that answers (one is never started), else none.
#pragma once

#include <memory>

#include "platform/CVXEventLoop.h"
#include "platform/CVXMIDISystem.h"

// What each MIDI system answered: 0 when usable, else its negative status.
struct SVXMIDIOffer {
    int alsa;
    int jack;

    // "ALSA", "JACK", or nullptr for none, as VXOpenMIDISystem chooses.
    const char* Chosen() const { return alsa == 0 ? "ALSA" : jack == 0 ? "JACK" : nullptr; }
};

// Asks each system in turn; the JACK server is asked only when the sequencer
// did not open, unless inAskAll (for a tool that lists both).
SVXMIDIOffer VXProbeMIDISystems(bool inAskAll = false);

// The chosen system on inLoop, not yet signed in, or nullptr for none; says
// which in one line ("MIDI system: ALSA", "MIDI system: JACK" or
// "MIDI system: none").
std::unique_ptr<CVXMIDISystem> VXOpenMIDISystem(CVXEventLoop& inLoop);
