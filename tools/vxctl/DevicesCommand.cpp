#include "DevicesCommand.h"

#include <cstdio>
#include <iostream>
#include <memory>

#include "driver/CVXDeviceLink.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "platform/usb/CVXLibUSBHost.h"

namespace vxctl {

namespace {

// What vxd does with a device of a listed identity, in words.
const char* Verdict(const CVXUSBDevice& inDevice) {
    if (!CVXDeviceLink::Accepts(inDevice.VendorID(), inDevice.ProductID(),
                                inDevice.ReleaseNumber()))
        return "ignored by vxd: release before 2.00";
    const SIDPair& bridge = CVXDeviceLink::kVendorList[CVXDeviceLink::kBridgeDefaultRow];
    if (inDevice.VendorID() == bridge.vendor && inDevice.ProductID() == bridge.product)
        return "taken by vxd if a surface answers on it (a plain serial adapter is left alone)";
    return "taken by vxd";
}

}  // namespace

int RunDevices(const std::vector<std::string>& inArgs) {
    if (!inArgs.empty()) {
        std::cerr << "usage: vxctl devices\n"
                     "  lists the plugged-in USB devices with the surface's identities, their\n"
                     "  release number and whether vxd takes them.\n";
        return 2;
    }
    // The backend runs on a loop, but devices already present arrive while
    // RegisterHotplug runs: the loop itself never needs to run.
    CVXSdEventLoop loop;
    if (!loop.Valid()) return 1;
    CVXLibUSBHost usb(loop);
    if (!usb.Valid()) return 1;
    std::vector<std::shared_ptr<CVXUSBDevice>> present;
    for (const SIDPair& row : CVXDeviceLink::kVendorList) {
        usb.RegisterHotplug(
            uint16_t(row.vendor), uint16_t(row.product),
            [&](const std::shared_ptr<CVXUSBDevice>& inDevice) { present.push_back(inDevice); },
            [](const std::shared_ptr<CVXUSBDevice>&) {});
    }
    if (present.empty()) {
        std::printf("no device with the surface's identities is plugged in\n");
        return 0;
    }
    for (const auto& device : present) {
        const uint16_t release = device->ReleaseNumber();
        std::printf("%04x:%04x release %x.%02x: %s\n", device->VendorID(), device->ProductID(),
                    release >> 8, release & 0xFF, Verdict(*device));
    }
    return 0;
}

}  // namespace vxctl
