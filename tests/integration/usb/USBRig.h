// What the tests on the emulated bridge share: the emulator, the real
// sd-event loop and libusb on it, a way to run the loop until something
// happened, and a count of the descriptors the process holds.
#pragma once

#include <dirent.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "integration/support/CEmulatedFTDI.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "platform/usb/CVXLibUSBHost.h"

using Bytes = std::vector<uint8_t>;
using DevicePtr = std::shared_ptr<CVXUSBDevice>;

// Descriptors but sockets. umockdev's preload library keeps a socket of
// every emulated node that is closed after its device was removed, so sockets
// cannot be counted; what the backend opens otherwise (device nodes, libusb's
// eventfd and timerfd, the loop's) is.
// What each one is, for the failure message.
inline std::vector<std::string> OpenFdsButSockets() {
    std::vector<std::string> fds;
    DIR* dir = opendir("/proc/self/fd");
    if (!dir) return fds;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == dirfd(dir)) continue;
        char target[256] = {};
        const std::string path = std::string("/proc/self/fd/") + entry->d_name;
        if (readlink(path.c_str(), target, sizeof target - 1) < 0) continue;
        if (std::string(target).rfind("socket:", 0) != 0)
            fds.push_back(std::string(entry->d_name) + " " + target);
    }
    closedir(dir);
    return fds;
}

// The emulator comes first: libusb looks for the device folder when it starts.
struct SRig {
    explicit SRig(CEmulatedFTDI::SIdentity inIdentity = {})
        : owned(std::make_unique<CEmulatedFTDI>(inIdentity)), ftdi(*owned) {}
    // With an emulator that outlives the rig; it must be plugged already.
    explicit SRig(CEmulatedFTDI& inFtdi) : ftdi(inFtdi) {}

    // Plugs the device (unless told not to), then starts libusb on the loop.
    bool Start(bool inPlugFirst = true) {
        if (!ftdi.Valid() || !loop.Valid()) return false;
        if (inPlugFirst && !ftdi.Plugged() && !ftdi.Plug()) return false;
        host = std::make_unique<CVXLibUSBHost>(loop);
        return host->Valid();
    }
    int Register(uint16_t inVendor = 0x0403, uint16_t inProduct = 0x6001) {
        return host->RegisterHotplug(
            inVendor, inProduct,
            [this](const DevicePtr& d) {
                arrived.push_back(d);
                events.push_back("arrived");
            },
            [this](const DevicePtr& d) {
                left.push_back(d);
                events.push_back("left");
            });
    }
    // Runs the loop until inDone() holds; false after a generous 10 s. The
    // deadline only ends a run that would otherwise hang.
    bool RunUntil(const std::function<bool()>& inDone) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!inDone()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            sd_event_run(loop.Native(), 10000);
        }
        return true;
    }
    bool OpenAndClaim(const DevicePtr& inDevice) {
        return inDevice->Open() == 0 && inDevice->ClaimInterface(0) == 0;
    }

    std::unique_ptr<CEmulatedFTDI> owned;
    CEmulatedFTDI& ftdi;
    CVXSdEventLoop loop;
    std::unique_ptr<CVXLibUSBHost> host;
    std::vector<DevicePtr> arrived, left;
    std::vector<std::string> events;
};
