#include "driver/CVXDeviceLink.h"

#include <algorithm>
#include <cstring>

#include "platform/VXDiagnostics.h"

const SIDPair CVXDeviceLink::kVendorList[kVendorCount] = {
    {0x0760, 0x0008},
    {0x0760, 0x0002},
    {0x0403, 0x6001},
};

namespace {

// Only release 2.00 and later of the surface speaks the protocol the driver
// knows; an older one is ignored even with a matching identity.
constexpr uint16_t kOldestReleaseRefused = 0x01FF;

constexpr int kStatusPasses = 25;
constexpr int kStatusAttemptsPerPass = 50;
// A read that is only the bridge's status bytes (two per packet) is no answer.
constexpr size_t kStatusReplyMinimum = 8;
constexpr uint8_t kStatusReplyHeader[4] = {0xF0, 0x15, 0x26, 0x01};

// The bridge's latency timer: request 9, in milliseconds. The chip holds
// received bytes back until its 64-byte packet is full or the timer runs out,
// 16 ms by default; at 1 ms a fader move reaches the host without that delay.
constexpr uint8_t kFTDISetLatencyTimer = 9;
constexpr uint16_t kFTDILatencyMillis = 1;

// The surface's controllers that show state: a fader's two halves and the
// LEDs of Mute, Solo, Aux and Select.
constexpr uint8_t kFaderMSController = 0x07;
constexpr uint8_t kFaderLSController = 0x27;
constexpr uint8_t kFirstLEDController = 0x46;
constexpr uint8_t kLEDCount = 4;

// The libusb status as the diagnostics print it with "%08x".
unsigned StatusHex(int inStatus) {
    return static_cast<uint32_t>(inStatus);
}

}  // namespace

CVXDeviceLink::CVXDeviceLink(CVXUSBHost* inHost, ProcessFn inProcessVXData)
    : mHost(inHost),
      mProcessVXData(std::move(inProcessVXData)),
      mSelfToken(std::make_shared<CVXDeviceLink*>(this)) {}

CVXDeviceLink::~CVXDeviceLink() {
    mSelfToken.reset();
    if (mInterface) CloseInterface();
}

int CVXDeviceLink::RegisterHotplug() {
    if (!mHost) return 0;
    std::weak_ptr<CVXDeviceLink*> token = mSelfToken;
    int first = 0;
    for (const SIDPair& row : kVendorList) {
        int status = mHost->RegisterHotplug(
            static_cast<uint16_t>(row.vendor), static_cast<uint16_t>(row.product),
            [token](const std::shared_ptr<CVXUSBDevice>& inDevice) {
                if (auto self = token.lock()) (*self)->DeviceAdded(inDevice);
            },
            [token](const std::shared_ptr<CVXUSBDevice>& inDevice) {
                if (auto self = token.lock()) (*self)->DeviceRemoved(inDevice);
            });
        if (status != 0 && first == 0) first = status;
    }
    return first;
}

bool CVXDeviceLink::Accepts(uint16_t inVendor, uint16_t inProduct, uint16_t inRelease) {
    for (const SIDPair& row : kVendorList)
        if (inVendor == row.vendor && inProduct == row.product)
            return inRelease > kOldestReleaseRefused;
    return false;
}

bool CVXDeviceLink::IsBridgeDefaultIdentity(const CVXUSBDevice& inDevice) {
    const SIDPair& row = kVendorList[kBridgeDefaultRow];
    return inDevice.VendorID() == row.vendor && inDevice.ProductID() == row.product;
}

bool CVXDeviceLink::IsSetAside(const CVXUSBDevice* inDevice) const {
    for (const auto& weak : mSetAside) {
        auto device = weak.lock();
        if (device && device.get() == inDevice) return true;
    }
    return false;
}

void CVXDeviceLink::DeviceAdded(const std::shared_ptr<CVXUSBDevice>& inDevice) {
    if (!inDevice ||
        !Accepts(inDevice->VendorID(), inDevice->ProductID(), inDevice->ReleaseNumber()))
        return;
    // The link drives one surface. A second one (or a plain serial cable of
    // the default identity) is left alone while a surface is linked, instead
    // of taking the first one's place; so is the linked device reported again.
    if (mInterface) return;
    if (IsSetAside(inDevice.get())) return;

    int status = inDevice->Open();
    if (status != 0) {
        VXDiagnostic("unable to open device: %08x\n", StatusHex(status));
        return;
    }
    status = ConfigureDevice(*inDevice);
    if (status != 0) {
        VXDiagnostic("unable to configure device: %08x\n", StatusHex(status));
        inDevice->Close();
        return;
    }
    status = FindInterfaces(inDevice);
    if (status != 0) {
        VXDiagnostic("unable to find interfaces on device: %08x\n", StatusHex(status));
        inDevice->Close();
    }
}

void CVXDeviceLink::DeviceRemoved(const std::shared_ptr<CVXUSBDevice>& inDevice) {
    if (!inDevice) return;
    // The outstanding read normally fails when the device goes and ends the
    // link; a backend may report the removal first, and the handle of a
    // vanished device is of no use either way.
    if (mInterface == inDevice) CloseInterface();
    std::erase_if(mSetAside, [&](const std::weak_ptr<CVXUSBDevice>& weak) {
        auto device = weak.lock();
        return !device || device == inDevice;
    });
}

int CVXDeviceLink::ConfigureDevice(CVXUSBDevice& inDevice) {
    if (inDevice.NumberOfConfigurations() == 0) return -1;
    uint8_t value = 0;
    if (inDevice.GetConfigurationValue(0, value) != 0) return -1;
    // The kernel refuses to set a configuration while its serial driver holds
    // an interface, and setting the one already active changes nothing: only
    // a different one is set.
    int active = 0;
    if (inDevice.GetActiveConfiguration(active) == 0 && active == value) return 0;
    if (inDevice.SetConfiguration(value) != 0) return -1;
    return 0;
}

int CVXDeviceLink::FindInterfaces(const std::shared_ptr<CVXUSBDevice>& inDevice) {
    std::vector<SVXUSBInterface> interfaces;
    int status = inDevice->GetInterfaces(interfaces);
    if (status != 0) return status;

    for (const SVXUSBInterface& interface : interfaces) {
        status = inDevice->ClaimInterface(interface.number);
        if (status != 0) {
            VXDiagnostic("unable to open interface (%08x)\n", StatusHex(status));
            continue;
        }
        // A later endpoint of the same direction replaces an earlier one; the
        // transfer type is not looked at.
        for (const SVXUSBEndpoint& endpoint : interface.endpoints) {
            if (endpoint.address & 0x80)
                mInPipeRef = endpoint.address;
            else
                mOutPipeRef = endpoint.address;
        }
        mInterface = inDevice;
        mInterfaceNumber = interface.number;

        // The surface has one interface: the first one claimed is its link,
        // whether its set-up succeeds or not.
        if (!FTDISetup(*inDevice)) {
            VXDiagnostic("unable to setup USB<->Serial Chip\n");
            CloseInterface();
            return 0;
        }
        FTDISetLatencyTimer(*inDevice);
        if (!GetVXStatus()) {
            VXDiagnostic("FindInterface () - couldn't get vx status\n");
            CloseInterface();
            if (IsBridgeDefaultIdentity(*inDevice)) {
                // Any cable with this bridge has the identity. Releasing the
                // interface gave it back to the kernel's serial driver; it is
                // not probed again until it is plugged in again.
                mSetAside.push_back(inDevice);
                VXDiagnostic("no surface answered on %04x:%04x; left to the serial driver\n",
                             inDevice->VendorID(), inDevice->ProductID());
            }
            return 0;
        }
        // Before the first read: the surface shows its strips as the host left
        // them before any of its own input is taken, and no read is in flight
        // while these writes block.
        RestoreSurfaceState();
        status = SubmitRead();
        if (status != 0) {
            VXDiagnostic("unable to do async bulk read (%08x)\n", StatusHex(status));
            CloseInterface();
        }
        return 0;
    }
    // No interface could be claimed: nothing keeps the device open.
    inDevice->Close();
    return 0;
}

int CVXDeviceLink::FTDIRequest(CVXUSBDevice& inDevice, uint8_t inRequest, uint16_t inValue,
                               uint16_t inIndex) {
    return inDevice.ControlOut(kVXVendorRequestOut, inRequest, inValue, inIndex,
                               kControlTimeoutMillis);
}

bool CVXDeviceLink::FTDISetup(CVXUSBDevice& inDevice) {
    // Reset; 38400 baud (divisor 78 and one eighth: 3 000 000 / 78.125);
    // 8 data bits, odd parity, one stop bit; no flow control.
    static constexpr struct {
        uint8_t request;
        uint16_t value;
    } kSteps[] = {{0, 0x0000}, {3, 0xC04E}, {4, 0x0108}, {2, 0x0000}};
    for (const auto& step : kSteps)
        if (FTDIRequest(inDevice, step.request, step.value, 0) != 0) return false;
    return true;
}

void CVXDeviceLink::FTDISetLatencyTimer(CVXUSBDevice& inDevice) {
    int status = FTDIRequest(inDevice, kFTDISetLatencyTimer, kFTDILatencyMillis, 0);
    if (status != 0) VXDiagnostic("unable to set the latency timer (%08x)\n", StatusHex(status));
}

bool CVXDeviceLink::GetVXStatus() {
    if (!mInterface) return false;
    CVXUSBDevice& device = *mInterface;
    const auto inPipe = static_cast<uint8_t>(mInPipeRef);
    const auto outPipe = static_cast<uint8_t>(mOutPipeRef);

    size_t byteCount = 0;
    bool gotReply = false;
    int passes = 0;
    // Reads made in the current pass, the failing one included; a pass whose
    // request could not be written made none.
    int attempts = 0;
    while (!gotReply && passes < kStatusPasses) {
        ++passes;
        attempts = 0;
        CWriteBuffer* buffer = mWriteBuffers.GrabNext();
        buffer->SetData(kVXStatusRequest, sizeof kVXStatusRequest);
        size_t written = 0;
        int status = device.BulkWrite(outPipe, buffer->DataPtr(), buffer->DataSize(), written,
                                      kWriteTimeoutMillis);
        mWriteBuffers.PutBack(buffer);
        if (status != 0) continue;

        while (!gotReply && attempts < kStatusAttemptsPerPass) {
            ++attempts;
            size_t count = 0;
            status = device.BulkRead(inPipe, mReadBuffer, sizeof mReadBuffer, count,
                                     kStatusReadTimeoutMillis);
            // A read that ran out of time is one more attempt that brought
            // what it brought (usually nothing); the timeout is ours, not a
            // failure of the device.
            if (status != 0 && status != kVXUSBErrorTimeout) {
                VXDiagnostic("ReadPipe returned err %d\n", status);
                break;
            }
            byteCount = std::min(count, sizeof mReadBuffer);
            if (byteCount > kStatusReplyMinimum) gotReply = true;
        }
    }
    if (!gotReply) {
        VXDiagnostic("Couldn't get response in %ld attempts and %ld passes\n",
                     static_cast<long>(attempts), static_cast<long>(passes));
        return false;
    }
    if (!ParseStatusMessage(mReadBuffer, byteCount)) return false;
    mHaveVXStatus = true;
    // What the editor is told about the surface: one unit of 16 channels,
    // whatever the reply said.
    static constexpr uint32_t kStatusWords[kStatusWordCount] = {1, 16, 2, 0, 0, 0, 0};
    if (mUpdateStatus) mUpdateStatus(kStatusWords, kStatusWordCount);
    return true;
}

bool CVXDeviceLink::ParseStatusMessage(const uint8_t* data, size_t length) {
    // The header and the two version bytes must lie before the last byte
    // (offsets 0 to length - 7); a reply shorter than that has no match, and
    // the bound keeps the subtraction from wrapping.
    if (!data || length < 7) return false;
    for (size_t i = 0; i + 6 < length; ++i) {
        if (std::memcmp(data + i, kStatusReplyHeader, sizeof kStatusReplyHeader) != 0) continue;
        mHaveVXStatus = true;
        mUnitCount = 1;
        mChannelCount = 16;
        mPperipherals = 0;
        mFirmwareVers = static_cast<uint16_t>(data[i + 4] * 256 + data[i + 5]);
        return true;
    }
    return false;
}

int CVXDeviceLink::SubmitRead() {
    std::weak_ptr<CVXDeviceLink*> token = mSelfToken;
    CVXUSBDevice* device = mInterface.get();
    return mInterface->SubmitBulkRead(static_cast<uint8_t>(mInPipeRef), mReadBuffer,
                                      sizeof mReadBuffer,
                                      [token, device](EVXTransferStatus inStatus, size_t inLength) {
                                          if (auto self = token.lock())
                                              (*self)->ReadCompletion(device, inStatus, inLength);
                                      });
}

void CVXDeviceLink::ReadCompletion(CVXUSBDevice* inDevice, EVXTransferStatus inResult,
                                   size_t inByteCount) {
    // A read of a device that is no longer linked has nothing to deliver.
    if (!mInterface || mInterface.get() != inDevice) return;
    // An overflow delivered what fitted: that is used like a good read.
    if (inResult != kVXTransferCompleted && inResult != kVXTransferOverflow) {
        CloseInterface();
        return;
    }
    // A backend never reports more than the buffer holds; should one, only
    // the buffer is read.
    if (mProcessVXData) mProcessVXData(mReadBuffer, std::min(inByteCount, sizeof mReadBuffer));
    // What the bytes set off may have ended the link.
    if (!mInterface || mInterface.get() != inDevice) return;
    if (SubmitRead() != 0) CloseInterface();
}

void CVXDeviceLink::CloseInterface() {
    std::shared_ptr<CVXUSBDevice> device = std::move(mInterface);
    mInterface.reset();
    if (!device) return;
    device->ReleaseInterface(mInterfaceNumber);
    device->Close();
}

int CVXDeviceLink::WriteAsync(const uint8_t* inData, size_t inSize) {
    // Noted even when no surface is there to take it: a surface plugged in
    // later is shown what the host asked for last.
    NoteSurfaceState(inData, inSize);
    return WriteBytes(inData, inSize);
}

int CVXDeviceLink::WriteBytes(const uint8_t* inData, size_t inSize) {
    if (!mInterface) {
        VXDiagnostic("Tried to write while mInterface == NULL!?\n");
        return kVXUSBErrorNoDevice;
    }
    CWriteBuffer* buffer = mWriteBuffers.GrabNext();
    if (!buffer) {
        VXDiagnostic("couldn't allocate write buffer!\n");
        return kVXUSBErrorOther;
    }
    buffer->SetData(inData, inSize);
    size_t written = 0;
    int status = mInterface->BulkWrite(static_cast<uint8_t>(mOutPipeRef), buffer->DataPtr(),
                                       buffer->DataSize(), written, kWriteTimeoutMillis);
    mWriteBuffers.PutBack(buffer);
    if (status != 0) VXDiagnostic("unable to do async bulk write (%08x)\n", StatusHex(status));
    return status;
}

void CVXDeviceLink::NoteSurfaceState(const uint8_t* inData, size_t inSize) {
    if (!inData) return;
    // A small MIDI reader over this one write: running status is followed
    // within it but not across writes, since every writer sends whole
    // messages with their status byte.
    uint8_t status = 0;
    uint8_t data[2] = {};
    size_t have = 0;
    for (size_t i = 0; i < inSize; ++i) {
        uint8_t b = inData[i];
        if (b >= 0xF8) continue;  // real-time bytes may sit anywhere
        if (b & 0x80) {
            // System messages (sysex among them) carry no strip state and
            // cancel running status.
            status = b < 0xF0 ? b : 0;
            have = 0;
            continue;
        }
        if (!status) continue;
        data[have++] = b;
        const uint8_t kind = status & 0xF0;
        const size_t needed = (kind == 0xC0 || kind == 0xD0) ? 1 : 2;
        if (have < needed) continue;
        have = 0;
        if (kind != 0xB0) continue;
        SStripState& strip = mStripState[status & 0x0F];
        const uint8_t controller = data[0], value = data[1];
        if (controller == kFaderMSController) {
            strip.faderMS = value;
            strip.known |= 0x01;
        } else if (controller == kFaderLSController) {
            strip.faderLS = value;
            strip.known |= 0x02;
        } else if (controller >= kFirstLEDController &&
                   controller < kFirstLEDController + kLEDCount) {
            const size_t led = controller - kFirstLEDController;
            strip.led[led] = value;
            strip.known = static_cast<uint8_t>(strip.known | (0x04 << led));
        }
    }
}

void CVXDeviceLink::RestoreSurfaceState() {
    // At most 16 strips of two fader halves and four LEDs, three bytes each.
    uint8_t bytes[16 * 6 * 3];
    size_t length = 0;
    auto add = [&](uint8_t inStatus, uint8_t inController, uint8_t inValue) {
        bytes[length++] = inStatus;
        bytes[length++] = inController;
        bytes[length++] = inValue;
    };
    for (uint8_t channel = 0; channel < 16; ++channel) {
        const SStripState& strip = mStripState[channel];
        const auto status = static_cast<uint8_t>(0xB0 | channel);
        if (strip.known & 0x01) add(status, kFaderMSController, strip.faderMS);
        if (strip.known & 0x02) add(status, kFaderLSController, strip.faderLS);
        for (uint8_t led = 0; led < kLEDCount; ++led)
            if (strip.known & (0x04 << led))
                add(status, static_cast<uint8_t>(kFirstLEDController + led), strip.led[led]);
    }
    if (length) WriteBytes(bytes, length);
}
