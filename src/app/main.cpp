// vxd: the driver daemon. Builds the one driver on the real event loop and USB
// host and runs until SIGINT or SIGTERM. It reads no configuration of its own
// beyond the preferences file: the keysets come from there and from the
// editor, and every diagnostic goes to standard output, a line at a time, so
// that the journal gets each line as it happens.
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "driver/CVXUserSpaceDriver.h"
#include "platform/CVXFedFrontApp.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/bus/CVXBusObject.h"
#include "platform/desktop/VXDesktop.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "platform/midi/VXMIDISystems.h"
#include "platform/usb/CVXLibUSBHost.h"

namespace {

int Usage(FILE* inTo) {
    std::fprintf(inTo,
                 "usage: vxd [--version | --help]\n"
                 "Drives a Velorix Series surface on USB for the logged-in user. Keysets\n"
                 "come from the preferences file in $XDG_CONFIG_HOME/velorix/; run it as\n"
                 "the systemd user service vxd.service.\n");
    return inTo == stdout ? 0 : 2;
}

// The whole daemon once the arguments are settled. Returns the exit status:
// -1 only when there is no loop or no USB to run on (each says why).
int RunDriver() {
    // libusb starts its own threads (the hot-plug monitor among them), which
    // inherit this thread's signal mask. With the termination signals blocked
    // before any thread exists, only the loop's signal source receives them;
    // otherwise the kernel may hand one to such a thread, whose default
    // action ends the process without the driver being deleted.
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGINT);
    sigaddset(&termination, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    // A write to a peer that went away (the X server's socket, written by
    // xcb with plain writev) fails with EPIPE instead of ending the daemon;
    // the connection then reports itself broken and vxd runs on.
    std::signal(SIGPIPE, SIG_IGN);

    CVXSdEventLoop loop;
    if (!loop.Valid()) return -1;
    CVXLibUSBHost usb(loop);
    if (!usb.Valid()) return -1;

    // The MIDI system's threads (JACK's) start with the termination signals
    // blocked too. None on this machine: the driver says so and runs on.
    std::unique_ptr<CVXMIDISystem> midi = VXOpenMIDISystem(loop);
    // Key and mouse input and the focus, from what the desktop offers.
    SVXDesktop desktop = VXOpenDesktop(loop);

    // Actions made while the keysets load may already look at the context,
    // so the loop and the way to host applications are installed before the
    // driver is built, and the driver as the device writer once it exists.
    SVXPlatform platform{.loop = &loop, .poster = desktop.Poster(), .hostMIDI = midi.get()};

    // The editor's commands and what actions tell applications travel on the
    // session bus, where a focus helper may also say which application is in
    // front; once it does, it takes the place of the X11 tracker. Both map
    // applications through the same file. Without a session bus the driver
    // says so and runs on.
    CVXFedFrontApp focus(desktop.FrontApp(), &desktop.applications->Map());
    platform.frontApp = &focus;
    CVXBusObject bus(loop, &focus);
    if (bus.Open() == 0) {
        platform.notifier = &bus;
        platform.monitor = &bus;
    }
    CVXPlatformScope loopScope(platform);
    int status = 0;
    {
        CVXUserSpaceDriver driver(&usb, &loop, midi.get());
        platform.device = &driver;
        CVXPlatformScope driverScope(platform);
        status = loop.Run();
    }  // the driver goes (and signs out) before the MIDI system, the USB host
       // and the loop it is registered with
    return status < 0 ? -1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc > 1) {
        if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
            std::printf("vxd %s\n", VXD_VERSION);
            return 0;
        }
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) return Usage(stdout);
        return Usage(stderr);
    }
    return RunDriver();
}
