#include "integration/support/CEmulatedFTDI.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>

const std::vector<CEmulatedFTDI::SControlRequest> CEmulatedFTDI::kSurfaceSetUp = {
    {0x40, 0, 0x0000, 0},
    {0x40, 3, 0xC04E, 0},
    {0x40, 4, 0x0108, 0},
    {0x40, 2, 0x0000, 0},
    {0x40, 9, 0x0001, 0}};
const std::vector<uint8_t> CEmulatedFTDI::kStatusRequest = {0xF0, 0x15, 0x26, 0x01, 0xF7};
const std::vector<uint8_t> CEmulatedFTDI::kStatusReply = {0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};

// One URB the host submitted: its struct and its buffer, both copied from the
// client's memory by umockdev and written back when the URB is reaped.
struct CEmulatedFTDI::SUrb {
    UMockdevIoctlData* urb = nullptr;
    UMockdevIoctlData* buffer = nullptr;  // null for a zero-length URB
    unsigned long clientAddress = 0;      // what DISCARDURB names it by

    ~SUrb() {
        if (buffer) g_object_unref(buffer);
        if (urb) g_object_unref(urb);
    }
    usbdevfs_urb& Urb() const { return *reinterpret_cast<usbdevfs_urb*>(urb->data); }
    uint8_t* Data() const { return buffer ? buffer->data : nullptr; }
    size_t Length() const { return buffer ? static_cast<size_t>(buffer->data_len) : 0; }
};

// One connection of the device: a device node with its own handler. A device
// plugged again is a new connection under a new device number.
struct CEmulatedFTDI::SConnection {
    CEmulatedFTDI* owner = nullptr;
    std::string devnode;
    UMockdevIoctlBase* handler = nullptr;
    bool present = true;
    std::deque<std::unique_ptr<SUrb>> reads;        // bulk-in URBs waiting for input
    std::deque<std::unique_ptr<SUrb>> reapable;     // completed, not yet reaped
    std::deque<UMockdevIoctlClient*> waitingReaps;  // blocking REAPURBs (referenced)
    std::vector<uint8_t> claimed;
    int clients = 0;  // open descriptors of its node
};

namespace {

std::vector<uint8_t> Descriptors(const CEmulatedFTDI::SIdentity& inIdentity) {
    const auto lo = [](uint16_t v) { return static_cast<uint8_t>(v & 0xFF); };
    const auto hi = [](uint16_t v) { return static_cast<uint8_t>(v >> 8); };
    return {// Device: USB 2.0, vendor-specific, 64-byte control packets, one configuration.
            18, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 64, lo(inIdentity.vendor),
            hi(inIdentity.vendor), lo(inIdentity.product), hi(inIdentity.product),
            lo(inIdentity.release), hi(inIdentity.release), 1, 2, 3, 1,
            // Configuration 1: 32 bytes in all, one interface, bus powered, 90 mA.
            9, 0x02, 32, 0, 1, 1, 0, 0x80, 45,
            // Interface 0: two endpoints, vendor-specific.
            9, 0x04, 0, 0, 2, 0xFF, 0xFF, 0xFF, 2,
            // Bulk in 0x81 and bulk out 0x02, 64-byte packets.
            7, 0x05, CEmulatedFTDI::kInEndpoint, 0x02, 64, 0, 0, 7, 0x05,
            CEmulatedFTDI::kOutEndpoint, 0x02, 64, 0, 0};
}

std::string Hex(const std::vector<uint8_t>& inBytes) {
    std::string out;
    char digits[3];
    for (uint8_t b : inBytes) {
        std::snprintf(digits, sizeof digits, "%02X", b);
        out += digits;
    }
    return out;
}

bool Contains(const std::vector<uint8_t>& inHaystack, const std::vector<uint8_t>& inNeedle) {
    return !inNeedle.empty() && std::search(inHaystack.begin(), inHaystack.end(), inNeedle.begin(),
                                            inNeedle.end()) != inHaystack.end();
}

// Resolves the ioctl's argument as a pointer to a T in the client.
template <typename T>
T* ResolveArgument(UMockdevIoctlClient* inClient, UMockdevIoctlData*& outData) {
    outData =
        umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(inClient), 0, sizeof(T), nullptr);
    return outData ? reinterpret_cast<T*>(outData->data) : nullptr;
}

unsigned long ArgumentValue(UMockdevIoctlClient* inClient) {
    unsigned long value = 0;
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(inClient);
    std::memcpy(&value, arg->data, std::min(sizeof value, static_cast<size_t>(arg->data_len)));
    return value;
}

void Fail(UMockdevIoctlClient* inClient, int inErrno) {
    umockdev_ioctl_client_complete(inClient, -1, inErrno);
}

}  // namespace

// A reap's argument points at the client's pointer variable: that variable is
// made to point at the URB, whose struct and buffer umockdev writes back.
void CEmulatedFTDI::HandBack(UMockdevIoctlClient* inClient, SUrb& inUrb) {
    UMockdevIoctlData* slot;
    if (!ResolveArgument<void*>(inClient, slot)) {
        Fail(inClient, EFAULT);
        return;
    }
    umockdev_ioctl_data_set_ptr(slot, 0, inUrb.urb);
    umockdev_ioctl_client_complete(inClient, 0, 0);
    g_object_unref(slot);
}

CEmulatedFTDI::CEmulatedFTDI() : CEmulatedFTDI(SIdentity{}) {}

CEmulatedFTDI::CEmulatedFTDI(SIdentity inIdentity) : mIdentity(inIdentity) {
    mTestbed = umockdev_testbed_new();
    AddResponse(kStatusRequest, kStatusReply);
}

CEmulatedFTDI::~CEmulatedFTDI() {
    if (Plugged()) Unplug();
    for (auto& connection : mConnections) {
        // Detached first: no handler call may reach a connection being freed.
        umockdev_testbed_detach_ioctl(mTestbed, connection->devnode.c_str(), nullptr);
        g_object_unref(connection->handler);
        for (UMockdevIoctlClient* client : connection->waitingReaps) g_object_unref(client);
    }
    mConnections.clear();
    if (mTestbed) g_object_unref(mTestbed);
}

bool CEmulatedFTDI::Plug() {
    if (!mTestbed || Plugged()) return false;
    ReleaseUnused();
    SIdentity identity;
    uint8_t number = 0;
    {
        std::lock_guard lock(mMutex);
        identity = mIdentity;
        number = mNextDeviceNumber++;
    }
    char devnum[4];
    std::snprintf(devnum, sizeof devnum, "%03u", number);
    const std::string sysPath = "/devices/pci0000:00/0000:00:14.0/usb1/1-1";
    const std::string devnode = std::string("/dev/bus/usb/001/") + devnum;
    char text[1024];
    std::snprintf(text, sizeof text,
                  "P: %s\n"
                  "N: bus/usb/001/%s\n"
                  "E: DEVNAME=%s\n"
                  "E: DEVTYPE=usb_device\n"
                  "E: DRIVER=usb\n"
                  "E: SUBSYSTEM=usb\n"
                  "E: BUSNUM=001\n"
                  "E: DEVNUM=%s\n"
                  "A: busnum=%u\\n\n"
                  "A: devnum=%u\\n\n"
                  "A: idVendor=%04x\\n\n"
                  "A: idProduct=%04x\\n\n"
                  "A: bcdDevice=%04x\\n\n"
                  "A: bConfigurationValue=1\\n\n"
                  "A: bNumConfigurations=1\\n\n"
                  "A: speed=12\\n\n"
                  "H: descriptors=%s\n",
                  sysPath.c_str(), devnum, devnode.c_str(), devnum, kBus, number, identity.vendor,
                  identity.product, identity.release, Hex(Descriptors(identity)).c_str());
    // The ioctl handler is in place before the device appears: another
    // process (vxd under test) may open the node the moment it is announced.
    auto connection = std::make_unique<SConnection>();
    connection->owner = this;
    connection->devnode = devnode;
    connection->handler = umockdev_ioctl_base_new();
    g_signal_connect(connection->handler, "handle-ioctl", G_CALLBACK(&CEmulatedFTDI::OnIoctl),
                     connection.get());
    g_signal_connect(connection->handler, "client-connected",
                     G_CALLBACK(&CEmulatedFTDI::OnClientConnected), connection.get());
    g_signal_connect(connection->handler, "client-vanished",
                     G_CALLBACK(&CEmulatedFTDI::OnClientVanished), connection.get());
    GError* error = nullptr;
    if (!umockdev_testbed_attach_ioctl(mTestbed, devnode.c_str(), connection->handler, &error)) {
        std::fprintf(stderr, "CEmulatedFTDI: cannot attach to %s: %s\n", devnode.c_str(),
                     error->message);
        g_error_free(error);
        g_object_unref(connection->handler);
        return false;
    }
    {
        std::lock_guard lock(mMutex);
        mConnections.push_back(std::move(connection));
        mConfiguration = 1;
        mDeviceNumber = number;
        mSysPath = "/sys" + sysPath;
    }
    if (!umockdev_testbed_add_from_string(mTestbed, text, &error)) {
        std::fprintf(stderr, "CEmulatedFTDI: cannot add the device: %s\n", error->message);
        g_error_free(error);
        std::lock_guard lock(mMutex);
        mConnections.back()->present = false;
        mSysPath.clear();
        return false;
    }
    // umockdev announced the device as soon as its folder existed, perhaps
    // before the descriptors were written; this one comes with everything in
    // place (libusb ignores an "add" for a device it knows already).
    umockdev_testbed_uevent(mTestbed, ("/sys" + sysPath).c_str(), "add");
    return true;
}

void CEmulatedFTDI::Unplug() {
    std::string sysPath;
    {
        std::lock_guard lock(mMutex);
        if (mSysPath.empty()) return;
        sysPath = mSysPath;
        mSysPath.clear();
        SConnection& connection = *mConnections.back();
        connection.present = false;
        connection.claimed.clear();
        while (!connection.reads.empty()) {
            std::unique_ptr<SUrb> urb = std::move(connection.reads.front());
            connection.reads.pop_front();
            CompleteLocked(connection, std::move(urb), -ESHUTDOWN, 0);
        }
        for (UMockdevIoctlClient* client : connection.waitingReaps) {
            Fail(client, ENODEV);
            g_object_unref(client);
        }
        connection.waitingReaps.clear();
        mInput.clear();
    }
    umockdev_testbed_uevent(mTestbed, sysPath.c_str(), "remove");
    umockdev_testbed_remove_device(mTestbed, sysPath.c_str());
}

bool CEmulatedFTDI::Plugged() const {
    std::lock_guard lock(mMutex);
    return !mSysPath.empty();
}

uint8_t CEmulatedFTDI::DeviceNumber() const {
    std::lock_guard lock(mMutex);
    return mDeviceNumber;
}

void CEmulatedFTDI::SetIdentity(SIdentity inIdentity) {
    std::lock_guard lock(mMutex);
    mIdentity = inIdentity;
}

void CEmulatedFTDI::QueueInput(const std::vector<uint8_t>& inBytes) {
    std::lock_guard lock(mMutex);
    QueueInputLocked(inBytes);
    if (!mSysPath.empty()) ServeReadsLocked(*mConnections.back());
}

void CEmulatedFTDI::QueueInputLocked(const std::vector<uint8_t>& inBytes) {
    constexpr size_t kPayload = kPacketSize - 2;
    for (size_t at = 0; at < inBytes.size(); at += kPayload) {
        const size_t n = std::min(kPayload, inBytes.size() - at);
        std::vector<uint8_t> packet = {mModemStatus, kStatus1};
        packet.insert(packet.end(), inBytes.begin() + static_cast<std::ptrdiff_t>(at),
                      inBytes.begin() + static_cast<std::ptrdiff_t>(at + n));
        mInput.push_back(std::move(packet));
    }
}

void CEmulatedFTDI::AddResponse(std::vector<uint8_t> inRequest, std::vector<uint8_t> inReply) {
    std::lock_guard lock(mMutex);
    mResponses.emplace_back(std::move(inRequest), std::move(inReply));
}

void CEmulatedFTDI::ClearResponses() {
    std::lock_guard lock(mMutex);
    mResponses.clear();
}

void CEmulatedFTDI::FailControlRequest(uint8_t inRequest) {
    std::lock_guard lock(mMutex);
    mFailedRequests.push_back(inRequest);
}

void CEmulatedFTDI::SetModemStatus(uint8_t inStatus) {
    std::lock_guard lock(mMutex);
    mModemStatus = inStatus;
}

std::vector<CEmulatedFTDI::SControlRequest> CEmulatedFTDI::ControlRequests() const {
    std::lock_guard lock(mMutex);
    return mControl;
}

std::vector<std::vector<uint8_t>> CEmulatedFTDI::BulkWrites() const {
    std::lock_guard lock(mMutex);
    return mWrites;
}

std::vector<uint8_t> CEmulatedFTDI::ClaimedInterfaces() const {
    std::lock_guard lock(mMutex);
    return mConnections.empty() ? std::vector<uint8_t>{} : mConnections.back()->claimed;
}

uint8_t CEmulatedFTDI::Configuration() const {
    std::lock_guard lock(mMutex);
    return mConfiguration;
}

size_t CEmulatedFTDI::PendingReads() const {
    std::lock_guard lock(mMutex);
    return mConnections.empty() ? 0 : mConnections.back()->reads.size();
}

size_t CEmulatedFTDI::QueuedPackets() const {
    std::lock_guard lock(mMutex);
    return mInput.size();
}

std::vector<uint8_t> CEmulatedFTDI::StripStatus(const uint8_t* inData, size_t inLength) {
    std::vector<uint8_t> out;
    for (size_t at = 0; at < inLength; at += kPacketSize) {
        const size_t end = std::min(inLength, at + kPacketSize);
        if (end > at + 2) out.insert(out.end(), inData + at + 2, inData + end);
    }
    return out;
}

void CEmulatedFTDI::OnClientConnected(UMockdevIoctlBase*, UMockdevIoctlClient*, void* inUserData) {
    auto* connection = static_cast<SConnection*>(inUserData);
    std::lock_guard lock(connection->owner->mMutex);
    ++connection->clients;
}

void CEmulatedFTDI::OnClientVanished(UMockdevIoctlBase*, UMockdevIoctlClient*, void* inUserData) {
    auto* connection = static_cast<SConnection*>(inUserData);
    std::lock_guard lock(connection->owner->mMutex);
    --connection->clients;
}

void CEmulatedFTDI::ReleaseUnused() {
    // Connections of a device gone whose node nobody holds open any more:
    // their handlers and sockets go, so that a long run of plugging does not
    // pile them up.
    std::vector<std::unique_ptr<SConnection>> unused;
    {
        std::lock_guard lock(mMutex);
        for (auto it = mConnections.begin(); it != mConnections.end();) {
            if (!(*it)->present && (*it)->clients == 0 && (*it)->waitingReaps.empty()) {
                unused.push_back(std::move(*it));
                it = mConnections.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& connection : unused) {
        umockdev_testbed_detach_ioctl(mTestbed, connection->devnode.c_str(), nullptr);
        g_object_unref(connection->handler);
    }
}

int CEmulatedFTDI::OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* inClient, void* inUserData) {
    auto* connection = static_cast<SConnection*>(inUserData);
    std::lock_guard lock(connection->owner->mMutex);
    return connection->owner->HandleIoctl(*connection, inClient) ? TRUE : FALSE;
}

bool CEmulatedFTDI::HandleIoctl(SConnection& inConnection, UMockdevIoctlClient* inClient) {
    const unsigned long request = umockdev_ioctl_client_get_request(inClient);
    UMockdevIoctlData* data = nullptr;

    if (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY) {
        // A gone device still hands back the URBs it failed, then says so.
        if (inConnection.reapable.empty()) {
            if (!inConnection.present || request == USBDEVFS_REAPURBNDELAY) {
                Fail(inClient, inConnection.present ? EAGAIN : ENODEV);
            } else {
                inConnection.waitingReaps.push_back(
                    static_cast<UMockdevIoctlClient*>(g_object_ref(inClient)));
            }
            return true;
        }
        std::unique_ptr<SUrb> urb = std::move(inConnection.reapable.front());
        inConnection.reapable.pop_front();
        HandBack(inClient, *urb);
        return true;
    }
    if (!inConnection.present) {
        Fail(inClient, ENODEV);
        return true;
    }

    if (request == USBDEVFS_SUBMITURB) {
        SubmitLocked(inConnection, inClient);
    } else if (request == USBDEVFS_DISCARDURB) {
        // Only a bulk-in URB can still be pending; the others complete at once.
        const unsigned long address = ArgumentValue(inClient);
        auto it = std::find_if(inConnection.reads.begin(), inConnection.reads.end(),
                               [address](const auto& u) { return u->clientAddress == address; });
        if (it == inConnection.reads.end()) {
            Fail(inClient, EINVAL);
        } else {
            std::unique_ptr<SUrb> urb = std::move(*it);
            inConnection.reads.erase(it);
            CompleteLocked(inConnection, std::move(urb), -ENOENT, 0);
            umockdev_ioctl_client_complete(inClient, 0, 0);
        }
    } else if (request == USBDEVFS_GET_CAPABILITIES) {
        auto* caps = ResolveArgument<uint32_t>(inClient, data);
        if (caps)
            *caps = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                    USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        umockdev_ioctl_client_complete(inClient, caps ? 0 : -1, caps ? 0 : EFAULT);
    } else if (request == USBDEVFS_GET_SPEED) {
        umockdev_ioctl_client_complete(inClient, USB_SPEED_FULL, 0);
    } else if (request == USBDEVFS_SETCONFIGURATION) {
        auto* value = ResolveArgument<unsigned int>(inClient, data);
        if (!value || (*value != 1 && *value != 0)) {
            Fail(inClient, EINVAL);
        } else if (!inConnection.claimed.empty()) {
            Fail(inClient, EBUSY);  // as the kernel refuses it under a claimed interface
        } else {
            mConfiguration = static_cast<uint8_t>(*value);
            umockdev_testbed_set_attribute(mTestbed, mSysPath.c_str(), "bConfigurationValue",
                                           mConfiguration ? "1\n" : "\n");
            umockdev_ioctl_client_complete(inClient, 0, 0);
        }
    } else if (request == USBDEVFS_CLAIMINTERFACE || request == USBDEVFS_RELEASEINTERFACE ||
               request == USBDEVFS_DISCONNECT_CLAIM) {
        // The interface number is the first field of a disconnect-claim too.
        auto* number = ResolveArgument<unsigned int>(inClient, data);
        auto& claimed = inConnection.claimed;
        const bool known = number && *number == 0 && mConfiguration == 1;
        const bool held = known && std::find(claimed.begin(), claimed.end(), 0) != claimed.end();
        if (!known) {
            Fail(inClient, EINVAL);
        } else if (request == USBDEVFS_RELEASEINTERFACE) {
            if (!held) {
                Fail(inClient, EINVAL);
            } else {
                claimed.erase(std::remove(claimed.begin(), claimed.end(), 0), claimed.end());
                umockdev_ioctl_client_complete(inClient, 0, 0);
            }
        } else {
            if (!held) claimed.push_back(0);
            umockdev_ioctl_client_complete(inClient, 0, 0);
        }
    } else if (request == USBDEVFS_GETDRIVER) {
        // No kernel driver is bound to the emulated interface.
        Fail(inClient, ENODATA);
    } else if (request == USBDEVFS_IOCTL) {
        // Connecting or disconnecting a kernel driver: there is none, and
        // nothing to connect.
        auto* command = ResolveArgument<usbdevfs_ioctl>(inClient, data);
        if (command && command->ioctl_code == static_cast<int>(USBDEVFS_CONNECT))
            umockdev_ioctl_client_complete(inClient, 0, 0);
        else
            Fail(inClient, ENODATA);
    } else {
        Fail(inClient, ENOTTY);
    }
    if (data) g_object_unref(data);
    return true;
}

void CEmulatedFTDI::SubmitLocked(SConnection& inConnection, UMockdevIoctlClient* inClient) {
    auto urb = std::make_unique<SUrb>();
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(inClient);
    urb->clientAddress = ArgumentValue(inClient);
    urb->urb = umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr);
    if (!urb->urb) {
        Fail(inClient, EFAULT);
        return;
    }
    const usbdevfs_urb& header = urb->Urb();
    if (header.buffer_length < 0) {
        Fail(inClient, EINVAL);
        return;
    }
    if (header.buffer_length > 0) {
        urb->buffer =
            umockdev_ioctl_data_resolve(urb->urb, offsetof(usbdevfs_urb, buffer),
                                        static_cast<size_t>(header.buffer_length), nullptr);
        if (!urb->buffer) {
            Fail(inClient, EFAULT);
            return;
        }
    }
    const uint8_t type = header.type;
    const uint8_t endpoint = header.endpoint;
    if (type == USBDEVFS_URB_TYPE_CONTROL && urb->Length() >= 8) {
        umockdev_ioctl_client_complete(inClient, 0, 0);
        AnswerControlLocked(inConnection, std::move(urb));
    } else if (type == USBDEVFS_URB_TYPE_BULK && endpoint == kOutEndpoint) {
        umockdev_ioctl_client_complete(inClient, 0, 0);
        std::vector<uint8_t> payload(urb->Data(), urb->Data() + urb->Length());
        const size_t length = urb->Length();
        CompleteLocked(inConnection, std::move(urb), 0, length);
        for (const auto& [request, reply] : mResponses)
            if (Contains(payload, request)) QueueInputLocked(reply);
        mWrites.push_back(std::move(payload));
        ServeReadsLocked(inConnection);
    } else if (type == USBDEVFS_URB_TYPE_BULK && endpoint == kInEndpoint) {
        umockdev_ioctl_client_complete(inClient, 0, 0);
        inConnection.reads.push_back(std::move(urb));
        ServeReadsLocked(inConnection);
    } else {
        Fail(inClient, EINVAL);  // no such endpoint
    }
}

void CEmulatedFTDI::AnswerControlLocked(SConnection& inConnection, std::unique_ptr<SUrb> inUrb) {
    uint8_t* setup = inUrb->Data();
    const SControlRequest request{setup[0], setup[1],
                                  static_cast<uint16_t>(setup[2] | setup[3] << 8),
                                  static_cast<uint16_t>(setup[4] | setup[5] << 8)};
    const size_t wanted =
        std::min<size_t>(static_cast<size_t>(setup[6] | setup[7] << 8), inUrb->Length() - 8);
    mControl.push_back(request);
    if ((request.requestType & USB_TYPE_MASK) == USB_TYPE_VENDOR &&
        std::find(mFailedRequests.begin(), mFailedRequests.end(), request.request) !=
            mFailedRequests.end()) {
        CompleteLocked(inConnection, std::move(inUrb), -EPIPE, 0);
        return;
    }
    size_t delivered = 0;
    if (request.requestType & USB_DIR_IN) {
        std::vector<uint8_t> answer(wanted, 0);
        if (request.requestType == USB_DIR_IN && request.request == USB_REQ_GET_CONFIGURATION &&
            wanted > 0) {
            answer[0] = mConfiguration;
        } else if (request.requestType == USB_DIR_IN && request.request == USB_REQ_GET_DESCRIPTOR) {
            const std::vector<uint8_t> all = Descriptors(mIdentity);
            const bool device = request.value >> 8 == USB_DT_DEVICE;
            answer.assign(all.begin() + (device ? 0 : 18), device ? all.begin() + 18 : all.end());
            if (answer.size() > wanted) answer.resize(wanted);
        }
        std::copy(answer.begin(), answer.end(), setup + 8);
        delivered = answer.size();
    }
    CompleteLocked(inConnection, std::move(inUrb), 0, delivered);
}

void CEmulatedFTDI::ServeReadsLocked(SConnection& inConnection) {
    while (!inConnection.reads.empty() && !mInput.empty()) {
        std::unique_ptr<SUrb> urb = std::move(inConnection.reads.front());
        inConnection.reads.pop_front();
        size_t filled = 0;
        int status = 0;
        // Packets until a short one or a full buffer, as usbfs completes a
        // bulk URB. A queue that runs dry after full packets completes the
        // URB too: the chip ends its transfer within its latency time.
        while (!mInput.empty()) {
            std::vector<uint8_t>& packet = mInput.front();
            const size_t room = urb->Length() - filled;
            if (packet.size() > room) {
                if (filled == 0) {
                    // Too small for even one packet: what fits, and the overflow.
                    std::copy(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(room),
                              urb->Data());
                    filled = room;
                    status = -EOVERFLOW;
                    mInput.erase(mInput.begin());
                }
                break;
            }
            std::copy(packet.begin(), packet.end(), urb->Data() + filled);
            filled += packet.size();
            const bool shortPacket = packet.size() < kPacketSize;
            mInput.erase(mInput.begin());
            if (shortPacket) break;
        }
        CompleteLocked(inConnection, std::move(urb), status, filled);
    }
}

void CEmulatedFTDI::CompleteLocked(SConnection& inConnection, std::unique_ptr<SUrb> inUrb,
                                   int inStatus, size_t inActual) {
    inUrb->Urb().status = inStatus;
    inUrb->Urb().actual_length = static_cast<int>(inActual);
    inConnection.reapable.push_back(std::move(inUrb));
    ReapWaitingLocked(inConnection);
}

void CEmulatedFTDI::ReapWaitingLocked(SConnection& inConnection) {
    while (!inConnection.waitingReaps.empty() && !inConnection.reapable.empty()) {
        UMockdevIoctlClient* client = inConnection.waitingReaps.front();
        inConnection.waitingReaps.pop_front();
        std::unique_ptr<SUrb> urb = std::move(inConnection.reapable.front());
        inConnection.reapable.pop_front();
        HandBack(client, *urb);
        g_object_unref(client);
    }
}
