// The driver's link to the surface on USB: takes a matching device when it
// arrives, configures it, claims its interface, programs the serial bridge for
// the surface's serial format, asks the surface for its status, and keeps one
// bulk read outstanding whose bytes go to the input parser. Every byte for the
// surface leaves through WriteAsync.
//
// Everything runs on the loop thread: hot-plug callbacks, read completions and
// writes. The set-up and the status exchange block that thread while they run.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "driver/CWriteBuffer.h"
#include "platform/CVXDeviceWriter.h"
#include "platform/CVXUSB.h"

// libusb's status codes that the link tells apart or returns itself.
constexpr int kVXUSBErrorNoDevice = -4;
constexpr int kVXUSBErrorTimeout = -7;
constexpr int kVXUSBErrorOther = -99;

struct SIDPair {
    int32_t vendor;
    int32_t product;
};

class CVXDeviceLink : public CVXDeviceWriter {
  public:
    // Where the bytes of every completed read go (the input parser).
    using ProcessFn = std::function<void(const uint8_t* inData, size_t inLength)>;
    // Receives the seven status values after each successful status exchange.
    using StatusFn = std::function<void(const uint32_t* inValues, size_t inCount)>;

    static constexpr size_t kVendorCount = 3;
    static const SIDPair kVendorList[kVendorCount];
    // The serial bridge's own default identity: any cable with that chip has
    // it, so a device there may well not be a surface.
    static constexpr size_t kBridgeDefaultRow = 2;
    static constexpr uint8_t kVXStatusRequest[5] = {0xF0, 0x15, 0x26, 0x01, 0xF7};
    static constexpr size_t kStatusWordCount = 7;

    // Vendor requests and bulk writes are answered by the bridge itself within
    // a few milliseconds; a second means the device is gone or wedged.
    static constexpr unsigned kControlTimeoutMillis = 1000;
    static constexpr unsigned kWriteTimeoutMillis = 1000;
    // Each read of the status exchange. Up to 25 passes of 50 reads block the
    // loop, so a read must be short; the bridge, with its latency timer at
    // 1 ms, sends its two status bytes about every millisecond anyway, so a
    // read times out only on a device that is not such a bridge. 10 ms bound
    // the worst case at 12.5 s and give a pass half a second for the answer.
    static constexpr unsigned kStatusReadTimeoutMillis = 10;

    // Whether DeviceAdded takes a device of this identity: a vendor-list row
    // and release 2.00 or later. (On the bridge's default identity it keeps
    // the device only if a surface answers the status request.)
    static bool Accepts(uint16_t inVendor, uint16_t inProduct, uint16_t inRelease);

    // inHost may be null: the link then never sees a device, and every write
    // says so. Nothing happens until RegisterHotplug().
    CVXDeviceLink(CVXUSBHost* inHost, ProcessFn inProcessVXData);
    // Closes the device, if one is open; callbacks still held by the host do
    // nothing after this.
    ~CVXDeviceLink() override;
    CVXDeviceLink(const CVXDeviceLink&) = delete;
    CVXDeviceLink& operator=(const CVXDeviceLink&) = delete;

    // One registration per vendor-list row, in row order; devices already
    // present arrive before this returns. Returns 0 or the first failure.
    int RegisterHotplug();

    void DeviceAdded(const std::shared_ptr<CVXUSBDevice>& inDevice);
    void DeviceRemoved(const std::shared_ptr<CVXUSBDevice>& inDevice);

    // 0, or -1 when the device has no usable configuration.
    int ConfigureDevice(CVXUSBDevice& inDevice);
    // Claims the interface, finds its pipes, sets up the bridge, exchanges the
    // status and starts reading. A failing step says so and closes the device;
    // only a failure to list the interfaces is returned.
    int FindInterfaces(const std::shared_ptr<CVXUSBDevice>& inDevice);
    int FTDIRequest(CVXUSBDevice& inDevice, uint8_t inRequest, uint16_t inValue, uint16_t inIndex);
    bool FTDISetup(CVXUSBDevice& inDevice);
    // Not part of the bridge's required set-up: a failure is reported, and
    // the set-up goes on.
    void FTDISetLatencyTimer(CVXUSBDevice& inDevice);
    bool GetVXStatus();
    bool ParseStatusMessage(const uint8_t* data, size_t length);
    void ReadCompletion(CVXUSBDevice* inDevice, EVXTransferStatus inResult, size_t inByteCount);

    // A blocking bulk write: the bytes have left when it returns 0.
    int WriteAsync(const uint8_t* inData, size_t inSize) override;

    void SetStatusHandler(StatusFn inHandler) { mUpdateStatus = std::move(inHandler); }

    const std::shared_ptr<CVXUSBDevice>& Interface() const { return mInterface; }
    bool HaveVXStatus() const { return mHaveVXStatus; }
    uint16_t UnitCount() const { return mUnitCount; }
    uint16_t ChannelCount() const { return mChannelCount; }
    uint16_t Pperipherals() const { return mPperipherals; }
    uint16_t FirmwareVers() const { return mFirmwareVers; }
    int32_t InPipeRef() const { return mInPipeRef; }
    int32_t OutPipeRef() const { return mOutPipeRef; }
    CWriteBufferList& WriteBuffers() { return mWriteBuffers; }

  private:
    // The last state written to one strip's fader halves and LEDs.
    struct SStripState {
        uint8_t faderMS = 0;
        uint8_t faderLS = 0;
        uint8_t led[4] = {};  // Mute, Solo, Aux, Select
        uint8_t known = 0;    // bit 0 MS, bit 1 LS, bits 2 to 5 the LEDs
    };

    static bool IsBridgeDefaultIdentity(const CVXUSBDevice& inDevice);
    bool IsSetAside(const CVXUSBDevice* inDevice) const;
    // Posts the next read into mReadBuffer.
    int SubmitRead();
    // Releases the claimed interface (its kernel driver binds again), closes
    // the device and forgets it.
    void CloseInterface();
    // Writes through the pool without noting the bytes as surface state.
    int WriteBytes(const uint8_t* inData, size_t inSize);
    // Keeps the fader and LED controller changes among bytes for the surface.
    void NoteSurfaceState(const uint8_t* inData, size_t inSize);
    // Writes the noted state to a surface that has just been linked.
    void RestoreSurfaceState();

    CVXUSBHost* mHost;
    ProcessFn mProcessVXData;
    StatusFn mUpdateStatus;

    uint8_t mReadBuffer[4096] = {};
    CWriteBufferList mWriteBuffers;
    int32_t mInPipeRef = 0;   // bulk-in endpoint address
    int32_t mOutPipeRef = 0;  // bulk-out endpoint address
    uint16_t mUnitCount = 0;
    uint16_t mChannelCount = 0;
    uint16_t mPperipherals = 0;
    bool mHaveVXStatus = false;
    uint16_t mFirmwareVers = 0;
    std::shared_ptr<CVXUSBDevice> mInterface;  // the linked device, open and claimed
    uint8_t mInterfaceNumber = 0;              // its claimed interface
    // Devices of the bridge's default identity that did not answer as a
    // surface: left to the serial driver until they are unplugged.
    std::vector<std::weak_ptr<CVXUSBDevice>> mSetAside;
    SStripState mStripState[16];
    // Callbacks given to the host and the device hold this weakly, so that
    // one arriving after the link is gone finds nothing to call.
    std::shared_ptr<CVXDeviceLink*> mSelfToken;
};
