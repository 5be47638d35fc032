#include "platform/usb/CVXLibUSBHost.h"

#include <libusb.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <climits>
#include <utility>

#include "platform/VXDiagnostics.h"

namespace {

// How long Close waits, in all, for libusb to reap cancelled reads. The
// kernel gives a cancelled URB back at once; this bound only keeps a broken
// device from hanging the driver.
constexpr int kCancelWaitMillis = 5000;
constexpr int kCancelStepMillis = 50;
// How long a removal waits for the reads of the vanished device to end.
constexpr int kSettleWaitMillis = 1000;
// How often descriptors that epoll cannot watch are served.
constexpr uint64_t kPollingMicros = 1000;

int Length(size_t inLength) {
    // libusb counts in int; a longer buffer moves at most that much.
    return inLength > INT_MAX ? INT_MAX : static_cast<int>(inLength);
}

}  // namespace

// One asynchronous read. The record outlives libusb's transfer: it carries
// the outcome from libusb's callback to the delivery on the loop.
struct CVXLibUSBDevice::SRead {
    CVXLibUSBDevice* device = nullptr;
    uint64_t id = 0;
    libusb_transfer* transfer = nullptr;  // null once libusb gave it back
    CVXUSBDevice::ReadCallback callback;
    EVXTransferStatus status = kVXTransferError;
    size_t length = 0;
};

struct CVXLibUSBHost::SRegistration {
    CVXLibUSBHost* host = nullptr;
    DeviceCallback arrived;
    DeviceCallback left;
    int handle = 0;
    bool registered = false;
    // What this registration announced: libusb may report a device twice
    // (once by enumeration, once by the event that was queued meanwhile).
    std::set<libusb_device*> announced;
};

// ---------------------------------------------------------------- device

CVXLibUSBDevice::CVXLibUSBDevice(CVXLibUSBHost& inHost, libusb_device* inDevice)
    : mHost(&inHost), mDevice(libusb_ref_device(inDevice)) {
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(mDevice, &descriptor) == 0) {
        mVendor = descriptor.idVendor;
        mProduct = descriptor.idProduct;
        mRelease = descriptor.bcdDevice;
        mConfigurations = descriptor.bNumConfigurations;
    }
    mHost->mAlive.insert(this);
}

CVXLibUSBDevice::~CVXLibUSBDevice() {
    // Once the host has gone, Detach() already ran.
    if (mHost) Detach();
}

void CVXLibUSBDevice::Detach() {
    CVXLibUSBHost* host = mHost;
    Close();
    if (mHandle) {
        // A read libusb never gave back: the handle cannot be closed under it.
        VXDiagnostic("CVXLibUSBHost: a device was released with a transfer in flight\n");
    }
    libusb_unref_device(mDevice);
    mDevice = nullptr;
    mHost = nullptr;
    host->mAlive.erase(this);
}

size_t CVXLibUSBDevice::PendingReads() const {
    size_t n = 0;
    for (const auto& entry : mReads)
        if (entry.second->transfer) ++n;
    return n;
}

int CVXLibUSBDevice::Open() {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (mHandle) return 0;
    int r = libusb_open(mDevice, &mHandle);
    if (r != 0) {
        mHandle = nullptr;
        return r;
    }
    // Not supported means there is no kernel driver to detach anyway.
    libusb_set_auto_detach_kernel_driver(mHandle, 1);
    return 0;
}

bool CVXLibUSBDevice::CancelReads() {
    bool any = false;
    for (auto& entry : mReads) {
        if (!entry.second->transfer) continue;
        any = true;
        // Fails only for a transfer already completing: it is reaped below.
        libusb_cancel_transfer(entry.second->transfer);
    }
    if (!any) return true;
    // Events are handled here, outside any libusb callback (Close is never
    // called from one), until libusb gave every transfer back.
    for (int waited = 0; PendingReads() > 0 && waited < kCancelWaitMillis;
         waited += kCancelStepMillis) {
        timeval step{0, kCancelStepMillis * 1000};
        libusb_handle_events_timeout_completed(mHost->mContext, &step, nullptr);
    }
    return PendingReads() == 0;
}

void CVXLibUSBDevice::Close() {
    if (!mHost || !mHandle) return;
    if (!CancelReads()) {
        // Freeing the handle or the record under libusb would corrupt it:
        // keep both, without the callbacks. The transfer frees itself when it
        // ends; the handle stays open, and the host closes it at the end.
        VXDiagnostic("CVXLibUSBHost: a cancelled transfer was not given back\n");
        for (auto& entry : mReads) entry.second->callback = nullptr;
        return;
    }
    // Reaped but not yet delivered: dropped, their deliveries find nothing.
    mReads.clear();
    for (uint8_t number : mClaimed) libusb_release_interface(mHandle, number);
    mClaimed.clear();
    libusb_close(mHandle);
    mHandle = nullptr;
}

int CVXLibUSBDevice::GetConfigurationValue(uint8_t inIndex, uint8_t& outValue) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    libusb_config_descriptor* config = nullptr;
    int r = libusb_get_config_descriptor(mDevice, inIndex, &config);
    if (r != 0) return r;
    outValue = config->bConfigurationValue;
    libusb_free_config_descriptor(config);
    return 0;
}

int CVXLibUSBDevice::GetActiveConfiguration(int& outValue) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    return libusb_get_configuration(mHandle, &outValue);
}

int CVXLibUSBDevice::SetConfiguration(uint8_t inValue) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    return libusb_set_configuration(mHandle, inValue);
}

int CVXLibUSBDevice::GetInterfaces(std::vector<SVXUSBInterface>& outInterfaces) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    libusb_config_descriptor* config = nullptr;
    int r = libusb_get_active_config_descriptor(mDevice, &config);
    if (r != 0) return r;
    outInterfaces.clear();
    for (uint8_t i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface& interface = config->interface[i];
        if (interface.num_altsetting < 1) continue;
        const libusb_interface_descriptor& setting = interface.altsetting[0];
        SVXUSBInterface out;
        out.number = setting.bInterfaceNumber;
        for (uint8_t e = 0; e < setting.bNumEndpoints; ++e) {
            const libusb_endpoint_descriptor& endpoint = setting.endpoint[e];
            out.endpoints.push_back(
                {endpoint.bEndpointAddress, endpoint.bmAttributes, endpoint.wMaxPacketSize});
        }
        outInterfaces.push_back(std::move(out));
    }
    libusb_free_config_descriptor(config);
    return 0;
}

int CVXLibUSBDevice::ClaimInterface(uint8_t inNumber) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    int r = libusb_claim_interface(mHandle, inNumber);
    if (r == 0) mClaimed.insert(inNumber);
    return r;
}

int CVXLibUSBDevice::ReleaseInterface(uint8_t inNumber) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    mClaimed.erase(inNumber);
    return libusb_release_interface(mHandle, inNumber);
}

int CVXLibUSBDevice::ControlOut(uint8_t inRequestType, uint8_t inRequest, uint16_t inValue,
                                uint16_t inIndex, unsigned inTimeoutMillis) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    int r = libusb_control_transfer(mHandle, inRequestType, inRequest, inValue, inIndex, nullptr, 0,
                                    inTimeoutMillis);
    return r < 0 ? r : 0;
}

int CVXLibUSBDevice::BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                               size_t& outTransferred, unsigned inTimeoutMillis) {
    outTransferred = 0;
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    int moved = 0;
    // libusb takes a mutable pointer for both directions; it only reads here.
    int r = libusb_bulk_transfer(mHandle, inEndpoint, const_cast<uint8_t*>(inData),
                                 Length(inLength), &moved, inTimeoutMillis);
    outTransferred = moved > 0 ? static_cast<size_t>(moved) : 0;
    return r;
}

int CVXLibUSBDevice::BulkRead(uint8_t inEndpoint, uint8_t* outData, size_t inLength,
                              size_t& outTransferred, unsigned inTimeoutMillis) {
    outTransferred = 0;
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    int moved = 0;
    int r = libusb_bulk_transfer(mHandle, inEndpoint, outData, Length(inLength), &moved,
                                 inTimeoutMillis);
    outTransferred = moved > 0 ? static_cast<size_t>(moved) : 0;
    return r;
}

int CVXLibUSBDevice::SubmitBulkRead(uint8_t inEndpoint, uint8_t* outBuffer, size_t inLength,
                                    ReadCallback inCallback) {
    if (!mHost) return LIBUSB_ERROR_NO_DEVICE;
    if (!mHandle) return LIBUSB_ERROR_INVALID_PARAM;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    if (!transfer) return LIBUSB_ERROR_NO_MEM;
    auto read = std::make_unique<SRead>();
    read->device = this;
    read->id = mNextRead++;
    read->transfer = transfer;
    read->callback = std::move(inCallback);
    libusb_fill_bulk_transfer(transfer, mHandle, inEndpoint, outBuffer, Length(inLength),
                              &CVXLibUSBDevice::OnTransfer, read.get(), 0);
    int r = libusb_submit_transfer(transfer);
    if (r != 0) {
        libusb_free_transfer(transfer);
        return r;
    }
    mReads.emplace(read->id, std::move(read));
    return 0;
}

void CVXLibUSBDevice::OnTransfer(libusb_transfer* inTransfer) {
    // Inside libusb's event handling: record, free, and leave the delivery
    // to the loop.
    auto* read = static_cast<SRead*>(inTransfer->user_data);
    read->status = static_cast<EVXTransferStatus>(inTransfer->status);
    read->length =
        inTransfer->actual_length > 0 ? static_cast<size_t>(inTransfer->actual_length) : 0;
    read->transfer = nullptr;
    libusb_free_transfer(inTransfer);
    CVXLibUSBDevice* device = read->device;
    if (!read->callback) {
        // Given up by a Close that could not wait for it.
        device->mReads.erase(read->id);
        return;
    }
    std::weak_ptr<CVXLibUSBDevice> weak = device->weak_from_this();
    const uint64_t id = read->id;
    device->mHost->Post([weak, id] {
        if (auto self = weak.lock()) self->Deliver(id);
    });
}

void CVXLibUSBDevice::Settle() {
    if (!mHost || !mHandle) return;
    // The kernel fails a vanished device's URBs at once, but libusb may learn
    // of the removal first: reap them now, so that the reads end before the
    // device leaves.
    for (int waited = 0; PendingReads() > 0 && waited < kSettleWaitMillis;
         waited += kCancelStepMillis) {
        timeval step{0, kCancelStepMillis * 1000};
        libusb_handle_events_timeout_completed(mHost->mContext, &step, nullptr);
    }
    std::vector<uint64_t> ended;
    for (const auto& entry : mReads)
        if (!entry.second->transfer) ended.push_back(entry.first);
    // In the order they were submitted; their queued deliveries find nothing.
    for (uint64_t id : ended) Deliver(id);
}

void CVXLibUSBDevice::Deliver(uint64_t inRead) {
    auto it = mReads.find(inRead);
    if (it == mReads.end() || it->second->transfer) return;  // closed since
    std::unique_ptr<SRead> read = std::move(it->second);
    mReads.erase(it);
    if (read->callback) read->callback(read->status, read->length);
}

// ---------------------------------------------------------------- host

CVXLibUSBHost::CVXLibUSBHost(CVXEventLoop& inLoop) : mLoop(inLoop) {
    int r = libusb_init(&mContext);
    if (r != 0) {
        VXDiagnostic("CVXLibUSBHost: libusb cannot start: %s\n", libusb_strerror(r));
        mContext = nullptr;
        return;
    }
    // The descriptors libusb polls now, then every change as it happens.
    libusb_set_pollfd_notifiers(mContext, &CVXLibUSBHost::OnPollfdAdded,
                                &CVXLibUSBHost::OnPollfdRemoved, this);
    const libusb_pollfd** fds = libusb_get_pollfds(mContext);
    if (fds) {
        for (const libusb_pollfd** fd = fds; *fd; ++fd) WatchFd((*fd)->fd, (*fd)->events);
        libusb_free_pollfds(fds);
    }
    // Where libusb has no timer descriptor of its own, a loop timer stands in.
    mHandlesTimeouts = libusb_pollfds_handle_timeouts(mContext) != 0;
}

CVXLibUSBHost::~CVXLibUSBHost() {
    if (!mContext) return;
    mLoop.CancelTimer(mDeliveryTimer);
    mLoop.CancelTimer(mTimeoutTimer);
    mLoop.CancelTimer(mPollingTimer);
    mPolled.clear();
    mPosted.clear();
    for (auto& registration : mRegistrations)
        if (registration->registered)
            libusb_hotplug_deregister_callback(mContext, registration->handle);
    // Devices may outlive the host in the driver's hands: closed and cut off
    // from libusb now, they only fail from here on.
    while (!mAlive.empty()) (*mAlive.begin())->Detach();
    mPresent.clear();
    mEnumerated.clear();
    libusb_set_pollfd_notifiers(mContext, nullptr, nullptr, nullptr);
    for (auto& entry : mWatches) mLoop.RemoveIOWatch(entry.second);
    mWatches.clear();
    libusb_exit(mContext);
    mRegistrations.clear();
}

void CVXLibUSBHost::OnPollfdAdded(int inFd, short inEvents, void* inUserData) {
    static_cast<CVXLibUSBHost*>(inUserData)->WatchFd(inFd, inEvents);
}

void CVXLibUSBHost::OnPollfdRemoved(int inFd, void* inUserData) {
    auto* self = static_cast<CVXLibUSBHost*>(inUserData);
    if (self->mPolled.erase(inFd) && self->mPolled.empty()) {
        self->mLoop.CancelTimer(self->mPollingTimer);
        self->mPollingTimer = 0;
    }
    auto it = self->mWatches.find(inFd);
    if (it == self->mWatches.end()) return;
    self->mLoop.RemoveIOWatch(it->second);
    self->mWatches.erase(it);
}

void CVXLibUSBHost::WatchFd(int inFd, short inEvents) {
    // poll's POLLIN and POLLOUT have epoll's values.
    const auto events = static_cast<uint32_t>(static_cast<unsigned short>(inEvents));
    auto it = mWatches.find(inFd);
    if (it != mWatches.end()) {
        mLoop.SetIOWatchEvents(it->second, events);
        return;
    }
    struct stat status {};
    if (fstat(inFd, &status) == 0 && S_ISREG(status.st_mode)) {
        // epoll refuses regular files, which poll always finds ready (a
        // device node emulated for tests is one): served on a short period
        // instead, as long as libusb keeps it.
        if (mPolled.insert(inFd).second && mPollingTimer == 0)
            mPollingTimer = mLoop.AddRepeatingTimer(kPollingMicros, [this] { HandleEvents(); });
        return;
    }
    CVXEventLoop::WatchId watch =
        mLoop.AddIOWatch(inFd, events, [this](uint32_t) { HandleEvents(); });
    if (watch == 0) {
        VXDiagnostic("CVXLibUSBHost: cannot watch libusb's descriptor %d\n", inFd);
        return;
    }
    mWatches.emplace(inFd, watch);
}

void CVXLibUSBHost::HandleEvents() {
    timeval zero{0, 0};
    int r = libusb_handle_events_timeout_completed(mContext, &zero, nullptr);
    if (r != 0 && r != LIBUSB_ERROR_INTERRUPTED && r != LIBUSB_ERROR_BUSY)
        VXDiagnostic("CVXLibUSBHost: handling events failed: %s\n", libusb_strerror(r));
    if (!mHandlesTimeouts) ArmTimeout();
}

void CVXLibUSBHost::ArmTimeout() {
    mLoop.CancelTimer(mTimeoutTimer);
    mTimeoutTimer = 0;
    timeval next{};
    if (libusb_get_next_timeout(mContext, &next) != 1) return;
    const uint64_t micros =
        static_cast<uint64_t>(next.tv_sec) * 1000000u + static_cast<uint64_t>(next.tv_usec);
    mTimeoutTimer = mLoop.AddOneShotTimer(micros, [this] {
        mTimeoutTimer = 0;
        HandleEvents();
    });
}

void CVXLibUSBHost::Post(std::function<void()> inDelivery) {
    mPosted.push_back(std::move(inDelivery));
    if (mDeliveryTimer != 0) return;
    mDeliveryTimer = mLoop.AddOneShotTimer(0, [this] {
        mDeliveryTimer = 0;
        DeliverPosted();
    });
}

void CVXLibUSBHost::DeliverPosted() {
    // Deliveries made meanwhile (a Close handles events) join this pass.
    while (!mPosted.empty()) {
        std::function<void()> delivery = std::move(mPosted.front());
        mPosted.pop_front();
        delivery();
    }
}

std::shared_ptr<CVXLibUSBDevice> CVXLibUSBHost::Arrived(SRegistration& inRegistration,
                                                        libusb_device* inDevice) {
    if (!inRegistration.announced.insert(inDevice).second) return nullptr;
    auto& entry = mPresent[inDevice];
    if (!entry.first) entry.first = std::make_shared<CVXLibUSBDevice>(*this, inDevice);
    ++entry.second;
    return entry.first;
}

std::shared_ptr<CVXLibUSBDevice> CVXLibUSBHost::Left(SRegistration& inRegistration,
                                                     libusb_device* inDevice) {
    if (inRegistration.announced.erase(inDevice) == 0) return nullptr;
    auto it = mPresent.find(inDevice);
    if (it == mPresent.end()) return nullptr;
    std::shared_ptr<CVXLibUSBDevice> device = it->second.first;
    if (--it->second.second == 0) mPresent.erase(it);
    return device;
}

int CVXLibUSBHost::OnHotplug(libusb_context*, libusb_device* inDevice, int inEvent,
                             void* inUserData) {
    auto* registration = static_cast<SRegistration*>(inUserData);
    CVXLibUSBHost* host = registration->host;
    if (inEvent == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED) {
        std::shared_ptr<CVXLibUSBDevice> device = host->Arrived(*registration, inDevice);
        if (!device) return 0;
        if (registration == host->mEnumerating) {
            host->mEnumerated.push_back(std::move(device));
        } else {
            host->Post([registration, device] { registration->arrived(device); });
        }
    } else if (inEvent == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) {
        std::shared_ptr<CVXLibUSBDevice> device = host->Left(*registration, inDevice);
        if (device)
            host->Post([registration, device] {
                device->Settle();
                registration->left(device);
            });
    }
    return 0;  // stay registered
}

int CVXLibUSBHost::RegisterHotplug(uint16_t inVendor, uint16_t inProduct, DeviceCallback inArrived,
                                   DeviceCallback inLeft) {
    if (!mContext) return LIBUSB_ERROR_NOT_SUPPORTED;
    if (!libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG)) return LIBUSB_ERROR_NOT_SUPPORTED;
    auto registration = std::make_unique<SRegistration>();
    registration->host = this;
    registration->arrived = std::move(inArrived);
    registration->left = std::move(inLeft);
    SRegistration* raw = registration.get();
    mRegistrations.push_back(std::move(registration));

    libusb_hotplug_callback_fn trampoline = [](libusb_context* inContext, libusb_device* inDevice,
                                               libusb_hotplug_event inEvent, void* inUserData) {
        return OnHotplug(inContext, inDevice, static_cast<int>(inEvent), inUserData);
    };
    mEnumerating = raw;
    int r = libusb_hotplug_register_callback(
        mContext, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
        LIBUSB_HOTPLUG_ENUMERATE, inVendor, inProduct, LIBUSB_HOTPLUG_MATCH_ANY, trampoline, raw,
        &raw->handle);
    mEnumerating = nullptr;
    std::vector<std::shared_ptr<CVXLibUSBDevice>> present = std::move(mEnumerated);
    mEnumerated.clear();
    if (r != 0) {
        VXDiagnostic("CVXLibUSBHost: cannot register for hot-plug: %s\n", libusb_strerror(r));
        for (auto& device : present) Left(*raw, device->mDevice);
        mRegistrations.pop_back();
        return r;
    }
    raw->registered = true;
    // libusb's call has returned: the devices already present arrive now.
    for (auto& device : present) raw->arrived(device);
    return 0;
}
