#include "platform/midi/VXMIDISystems.h"

#include <cerrno>

#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXAlsaMIDI.h"
#include "platform/midi/CVXJackMIDI.h"

SVXMIDIOffer VXProbeMIDISystems(bool inAskAll) {
    SVXMIDIOffer offer{CVXAlsaMIDI::Probe(), 0};
    // Asking a JACK server costs a client's round trip; it is not done when
    // the answer cannot change the choice.
    offer.jack = offer.alsa == 0 && !inAskAll ? -ECANCELED : CVXJackMIDI::Probe();
    return offer;
}

std::unique_ptr<CVXMIDISystem> VXOpenMIDISystem(CVXEventLoop& inLoop) {
    const SVXMIDIOffer offer = VXProbeMIDISystems();
    std::unique_ptr<CVXMIDISystem> system;
    if (offer.alsa == 0) {
        system = std::make_unique<CVXAlsaMIDI>(inLoop);
    } else if (offer.jack == 0) {
        system = std::make_unique<CVXJackMIDI>(inLoop);
    }
    VXDiagnostic("MIDI system: %s\n", system ? system->Name() : "none");
    return system;
}
