#include "MidiCommand.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "driver/CVXUserSpaceDriver.h"
#include "platform/midi/VXMIDISystems.h"

namespace vxctl {

int RunMidi(const std::vector<std::string>& inArgs) {
    if (!inArgs.empty()) {
        std::cerr << "usage: vxctl midi\n"
                     "  lists the MIDI systems this machine offers (the ALSA sequencer, a JACK\n"
                     "  server), the one vxd would use and the ports it would create there.\n";
        return 2;
    }
    // Both are asked, though vxd stops at the first that answers.
    const SVXMIDIOffer offer = VXProbeMIDISystems(true);
    if (offer.alsa == 0)
        std::printf("ALSA sequencer: available\n");
    else
        std::printf("ALSA sequencer: not available (%s)\n", std::strerror(-offer.alsa));
    const char* server = std::getenv("JACK_DEFAULT_SERVER");
    std::printf("JACK server \"%s\": %s\n", server && *server ? server : "default",
                offer.jack == 0 ? "answering" : "not answering");

    const char* chosen = offer.Chosen();
    if (!chosen) {
        std::printf("vxd would run without MIDI ports\n");
        return 0;
    }
    std::printf("vxd would use %s, client \"%s\", with the ports\n", chosen,
                CVXUserSpaceDriver::kMIDIClientName);
    // JACK names a port by its client; the sequencer lists ports under it.
    const std::string prefix = std::strcmp(chosen, "JACK") == 0
                                   ? std::string(CVXUserSpaceDriver::kMIDIClientName) + ":"
                                   : "";
    std::printf("  %s%s  (surface to host: hosts read it)\n", prefix.c_str(),
                CVXUserSpaceDriver::kMIDISourceName);
    std::printf("  %s%s  (host to surface: hosts write to it)\n", prefix.c_str(),
                CVXUserSpaceDriver::kMIDIDestinationName);
    return 0;
}

}  // namespace vxctl
