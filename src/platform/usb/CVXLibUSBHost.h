// The USB services on libusb-1.0, driven by the driver's event loop: libusb's
// file descriptors are loop watches, and every completion and hot-plug event
// is handled on the loop thread.
//
// No callback into the driver ever runs inside a libusb call. libusb refuses
// to handle events from inside its own callbacks (a blocking transfer made
// there fails or spins), and the device link answers an arrival or a read
// completion with blocking transfers. So libusb's own callbacks only record
// what happened, and the records are delivered in order from the loop, right
// after the libusb call that produced them has returned:
//  - arrivals of devices already present are delivered before RegisterHotplug
//    returns, once libusb's registration call has returned;
//  - later arrivals and removals, and read completions, from the loop on its
//    next turn (a zero-delay timer).
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "platform/CVXEventLoop.h"
#include "platform/CVXUSB.h"

struct libusb_context;
struct libusb_device;
struct libusb_device_handle;
struct libusb_transfer;

class CVXLibUSBHost;

// One device, from its arrival until nobody holds it. After its removal (or
// once the host is gone) every call on it fails with LIBUSB_ERROR_NO_DEVICE,
// but Close(), which always succeeds.
class CVXLibUSBDevice final : public CVXUSBDevice,
                              public std::enable_shared_from_this<CVXLibUSBDevice> {
  public:
    CVXLibUSBDevice(CVXLibUSBHost& inHost, libusb_device* inDevice);
    ~CVXLibUSBDevice() override;
    CVXLibUSBDevice(const CVXLibUSBDevice&) = delete;
    CVXLibUSBDevice& operator=(const CVXLibUSBDevice&) = delete;

    uint16_t VendorID() const override { return mVendor; }
    uint16_t ProductID() const override { return mProduct; }
    uint16_t ReleaseNumber() const override { return mRelease; }
    uint8_t NumberOfConfigurations() const override { return mConfigurations; }

    // Opens with the kernel driver detached automatically on claiming. 0 when
    // it is open already.
    int Open() override;
    // Cancels every pending read and handles libusb's events until each
    // cancellation is reaped, so that no buffer stays in libusb's hands and
    // no read callback comes after Close (not even one already completed but
    // not yet delivered). Then releases the claimed interfaces and closes.
    // Must not be called from another USB callback than the loop's: never
    // from inside libusb, which the backend never calls the driver from.
    void Close() override;

    int GetConfigurationValue(uint8_t inIndex, uint8_t& outValue) override;
    int GetActiveConfiguration(int& outValue) override;
    int SetConfiguration(uint8_t inValue) override;
    int GetInterfaces(std::vector<SVXUSBInterface>& outInterfaces) override;
    int ClaimInterface(uint8_t inNumber) override;
    int ReleaseInterface(uint8_t inNumber) override;

    int ControlOut(uint8_t inRequestType, uint8_t inRequest, uint16_t inValue, uint16_t inIndex,
                   unsigned inTimeoutMillis) override;
    int BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                  size_t& outTransferred, unsigned inTimeoutMillis) override;
    int BulkRead(uint8_t inEndpoint, uint8_t* outData, size_t inLength, size_t& outTransferred,
                 unsigned inTimeoutMillis) override;
    // The callback is delivered from the loop after libusb reaped the
    // transfer; libusb's status is passed through (LIBUSB_TRANSFER_NO_DEVICE
    // when the device went away). When a device is removed, the reads still
    // pending end (and their callbacks run) before its inLeft.
    int SubmitBulkRead(uint8_t inEndpoint, uint8_t* outBuffer, size_t inLength,
                       ReadCallback inCallback) override;

    bool IsOpen() const { return mHandle != nullptr; }
    size_t PendingReads() const;

  private:
    friend class CVXLibUSBHost;
    struct SRead;

    static void OnTransfer(libusb_transfer* inTransfer);
    void Deliver(uint64_t inRead);
    // Before a removal is delivered: ends the reads still pending, so that
    // their callbacks come before the device's inLeft.
    void Settle();
    // Cancels and reaps every read; false if libusb kept one past the limit.
    bool CancelReads();
    // The host is going: close and let go of libusb's device.
    void Detach();

    CVXLibUSBHost* mHost;
    libusb_device* mDevice;
    libusb_device_handle* mHandle = nullptr;
    uint16_t mVendor = 0;
    uint16_t mProduct = 0;
    uint16_t mRelease = 0;
    uint8_t mConfigurations = 0;
    std::set<uint8_t> mClaimed;
    uint64_t mNextRead = 1;
    std::map<uint64_t, std::unique_ptr<SRead>> mReads;  // submitted, or reaped and undelivered
};

class CVXLibUSBHost final : public CVXUSBHost {
  public:
    // Starts libusb and watches its descriptors on inLoop; Valid() says
    // whether that worked (the reason is printed when it did not).
    explicit CVXLibUSBHost(CVXEventLoop& inLoop);
    // Closes every device still open, which stays usable only for Close(),
    // and stops libusb.
    ~CVXLibUSBHost() override;
    CVXLibUSBHost(const CVXLibUSBHost&) = delete;
    CVXLibUSBHost& operator=(const CVXLibUSBHost&) = delete;

    bool Valid() const { return mContext != nullptr; }
    libusb_context* Native() const { return mContext; }

    // See the top of this file for when the callbacks run. A device that
    // matches several registrations is one object for all of them.
    int RegisterHotplug(uint16_t inVendor, uint16_t inProduct, DeviceCallback inArrived,
                        DeviceCallback inLeft) override;

    size_t Watches() const { return mWatches.size(); }

  private:
    friend class CVXLibUSBDevice;
    struct SRegistration;

    static int OnHotplug(libusb_context* inContext, libusb_device* inDevice, int inEvent,
                         void* inUserData);
    static void OnPollfdAdded(int inFd, short inEvents, void* inUserData);
    static void OnPollfdRemoved(int inFd, void* inUserData);

    void WatchFd(int inFd, short inEvents);
    void HandleEvents();
    void ArmTimeout();
    // Queues a delivery for the loop's next turn.
    void Post(std::function<void()> inDelivery);
    void DeliverPosted();
    std::shared_ptr<CVXLibUSBDevice> Arrived(SRegistration& inRegistration,
                                             libusb_device* inDevice);
    std::shared_ptr<CVXLibUSBDevice> Left(SRegistration& inRegistration, libusb_device* inDevice);

    CVXEventLoop& mLoop;
    libusb_context* mContext = nullptr;
    bool mHandlesTimeouts = true;
    std::map<int, CVXEventLoop::WatchId> mWatches;  // by fd
    CVXEventLoop::TimerId mTimeoutTimer = 0;
    CVXEventLoop::TimerId mDeliveryTimer = 0;
    std::set<int> mPolled;  // descriptors epoll cannot watch
    CVXEventLoop::TimerId mPollingTimer = 0;
    std::deque<std::function<void()>> mPosted;
    std::vector<std::unique_ptr<SRegistration>> mRegistrations;
    // While RegisterHotplug runs: its registration, whose arrivals are
    // collected there and delivered before it returns.
    SRegistration* mEnumerating = nullptr;
    std::vector<std::shared_ptr<CVXLibUSBDevice>> mEnumerated;
    // Devices between arrival and removal, with how many registrations
    // announced them.
    std::map<libusb_device*, std::pair<std::shared_ptr<CVXLibUSBDevice>, int>> mPresent;
    std::set<CVXLibUSBDevice*> mAlive;  // every device object not yet destroyed
};
