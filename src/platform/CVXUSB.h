// The USB services the device link needs, shaped after libusb so that its
// backend is a thin wrapper, and small enough for a fake: hot-plug arrival and
// removal by identity, and on one device the descriptors, configuration,
// interface claiming, vendor control requests, blocking bulk transfers and one
// kind of asynchronous transfer (a bulk-in read).
//
// Status codes are libusb's: 0 for success, a negative LIBUSB_ERROR_* value
// otherwise. Every call and every callback happens on the loop thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

// How an asynchronous transfer ended; the values are libusb's
// LIBUSB_TRANSFER_* so that the backend passes them through unchanged.
enum EVXTransferStatus : int {
    kVXTransferCompleted = 0,
    kVXTransferError = 1,
    kVXTransferTimedOut = 2,
    kVXTransferCancelled = 3,
    kVXTransferStall = 4,
    kVXTransferNoDevice = 5,
    // The device sent more than the buffer holds; what fits is delivered.
    kVXTransferOverflow = 6,
};

// Control request type of the bridge's vendor requests: vendor, host to
// device, device recipient.
constexpr uint8_t kVXVendorRequestOut = 0x40;

// An endpoint of an interface: bit 7 of the address set for IN, the low two
// bits of the attributes the transfer type (0 control, 1 isochronous, 2 bulk,
// 3 interrupt).
struct SVXUSBEndpoint {
    uint8_t address = 0;
    uint8_t attributes = 0;
    uint16_t maxPacketSize = 0;
};

struct SVXUSBInterface {
    uint8_t number = 0;
    std::vector<SVXUSBEndpoint> endpoints;
};

class CVXUSBDevice {
  public:
    using ReadCallback = std::function<void(EVXTransferStatus inStatus, size_t inLength)>;

    virtual ~CVXUSBDevice() = default;

    // From the device descriptor; readable without opening the device.
    virtual uint16_t VendorID() const = 0;
    virtual uint16_t ProductID() const = 0;
    virtual uint16_t ReleaseNumber() const = 0;  // bcdDevice
    virtual uint8_t NumberOfConfigurations() const = 0;

    virtual int Open() = 0;
    // Cancels any transfer still pending (its callback is not called), releases
    // what was claimed and closes. Safe when not open.
    virtual void Close() = 0;

    // The bConfigurationValue of the configuration descriptor at inIndex.
    virtual int GetConfigurationValue(uint8_t inIndex, uint8_t& outValue) = 0;
    // 0 in outValue when the device is unconfigured.
    virtual int GetActiveConfiguration(int& outValue) = 0;
    virtual int SetConfiguration(uint8_t inValue) = 0;
    // The interfaces (first alternate setting) of the active configuration.
    virtual int GetInterfaces(std::vector<SVXUSBInterface>& outInterfaces) = 0;
    // Claims with the kernel driver detached, if one was bound; releasing
    // lets that driver bind again.
    virtual int ClaimInterface(uint8_t inNumber) = 0;
    virtual int ReleaseInterface(uint8_t inNumber) = 0;

    // A control request without a data stage.
    virtual int ControlOut(uint8_t inRequestType, uint8_t inRequest, uint16_t inValue,
                           uint16_t inIndex, unsigned inTimeoutMillis) = 0;
    // Blocking bulk transfers; outTransferred says how much moved, also on
    // failure.
    virtual int BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                          size_t& outTransferred, unsigned inTimeoutMillis) = 0;
    virtual int BulkRead(uint8_t inEndpoint, uint8_t* outData, size_t inLength,
                         size_t& outTransferred, unsigned inTimeoutMillis) = 0;
    // Starts an asynchronous bulk-in read into outBuffer, which must stay
    // valid until the callback ran or the device was closed. The callback runs
    // once, on the loop thread, never from inside this call.
    virtual int SubmitBulkRead(uint8_t inEndpoint, uint8_t* outBuffer, size_t inLength,
                               ReadCallback inCallback) = 0;
};

class CVXUSBHost {
  public:
    using DeviceCallback = std::function<void(const std::shared_ptr<CVXUSBDevice>& inDevice)>;

    virtual ~CVXUSBHost() = default;
    // Calls inArrived for every device of this identity that appears, and at
    // once (before returning) for those already present; inLeft when one goes.
    // The same object stands for a device from its arrival to its removal.
    // Returns 0 or a status.
    virtual int RegisterHotplug(uint16_t inVendor, uint16_t inProduct, DeviceCallback inArrived,
                                DeviceCallback inLeft) = 0;
};
