// A USB serial bridge of the FTDI kind, emulated live under umockdev: the
// device appears in a umockdev testbed (sysfs attributes, descriptors, a
// device node) and every usbfs ioctl that libusb makes on its node is answered
// here, so that the real libusb backend talks to it as to a device.
//
// The process must run under umockdev-wrapper (its preload library redirects
// /sys and /dev to the testbed and carries the uevents to libudev), and the
// emulator must exist before libusb_init: libusb looks for /dev/bus/usb once,
// when it starts.
//
// What the device does:
//  - control requests are recorded (standard IN requests get zeros, or the
//    configuration and descriptors they ask for); vendor requests named by
//    FailControlRequest stall;
//  - every bulk-out URB's payload is recorded, in order;
//  - bulk-in URBs take packets from a queue the test fills. Each packet is at
//    most 64 bytes and begins with the bridge's two status bytes (01 60, or
//    what SetModemStatus chose, then 60), as the chip sends them; an empty
//    queue leaves the URB pending, as the chip would with nothing to say. A
//    URB completes on a short packet or when full, as usbfs completes it;
//  - a bulk-out payload that contains a request registered with AddResponse
//    queues that response as input (the surface's status request is
//    registered by default);
//  - unplugging fails every pending URB with -ESHUTDOWN and every later ioctl
//    with -ENODEV, as the kernel does for a device that has gone.
//
// The ioctls are answered on umockdev's worker thread; every member here is
// safe to call from the test's thread meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

struct _UMockdevTestbed;
struct _UMockdevIoctlBase;
struct _UMockdevIoctlClient;

class CEmulatedFTDI {
  public:
    struct SControlRequest {
        uint8_t requestType;
        uint8_t request;
        uint16_t value;
        uint16_t index;
        bool operator==(const SControlRequest&) const = default;
    };

    struct SIdentity {
        uint16_t vendor = 0x0403;
        uint16_t product = 0x6001;
        uint16_t release = 0x0200;  // bcdDevice
    };

    static constexpr uint8_t kBus = 1;
    static constexpr uint8_t kInEndpoint = 0x81;
    static constexpr uint8_t kOutEndpoint = 0x02;
    static constexpr size_t kPacketSize = 64;
    static constexpr uint8_t kStatus0 = 0x01;  // the status bytes before every packet
    static constexpr uint8_t kStatus1 = 0x60;

    // What a host sends to set the bridge up for the surface, in order: reset,
    // 38400 baud, 8 data bits with odd parity and one stop bit, no flow
    // control, then the 1 ms latency timer. All vendor requests.
    static const std::vector<SControlRequest> kSurfaceSetUp;
    // The surface's status request and a reply to it.
    static const std::vector<uint8_t> kStatusRequest;
    static const std::vector<uint8_t> kStatusReply;

    // Creates the testbed, with no device in it yet.
    CEmulatedFTDI();
    explicit CEmulatedFTDI(SIdentity inIdentity);
    ~CEmulatedFTDI();
    CEmulatedFTDI(const CEmulatedFTDI&) = delete;
    CEmulatedFTDI& operator=(const CEmulatedFTDI&) = delete;

    bool Valid() const { return mTestbed != nullptr; }

    // Connects the device under the next device number of bus 1 (2, 3, ...,
    // as a kernel numbers a device plugged again) and announces it with an
    // "add" uevent. False if it is already plugged or umockdev refused.
    bool Plug();
    // Fails the pending URBs, announces "remove" and takes the device out;
    // from then on every ioctl on a node still open fails.
    void Unplug();
    bool Plugged() const;
    uint8_t DeviceNumber() const;  // of the current (or last) connection
    // The identity the next Plug() uses.
    void SetIdentity(SIdentity inIdentity);

    // Bytes the device sends, split into packets of at most 62 payload bytes,
    // each behind the two status bytes.
    void QueueInput(const std::vector<uint8_t>& inBytes);
    // The first status byte of the packets queued from now on (kStatus0, all
    // modem lines down, until set). A surface holds CTS up: 0x11.
    void SetModemStatus(uint8_t inStatus);
    // When a bulk-out payload contains inRequest, inReply is queued as input.
    void AddResponse(std::vector<uint8_t> inRequest, std::vector<uint8_t> inReply);
    void ClearResponses();
    // Vendor control requests with this request number stall from now on, as
    // a chip refusing them does; they are recorded all the same.
    void FailControlRequest(uint8_t inRequest);

    // What the host did, in order, across connections.
    std::vector<SControlRequest> ControlRequests() const;
    std::vector<std::vector<uint8_t>> BulkWrites() const;
    // The interfaces claimed now, and the configuration set last (the first
    // connection's configuration is 1).
    std::vector<uint8_t> ClaimedInterfaces() const;
    uint8_t Configuration() const;
    // Bulk-in URBs waiting for input.
    size_t PendingReads() const;
    // Input packets not yet taken by a URB.
    size_t QueuedPackets() const;

    // Removes the payload's status bytes: the bytes of every packet of a
    // bulk-in transfer without its first two, packets being 64 bytes long.
    static std::vector<uint8_t> StripStatus(const uint8_t* inData, size_t inLength);

  private:
    struct SUrb;
    struct SConnection;

    static int OnIoctl(_UMockdevIoctlBase* inHandler, _UMockdevIoctlClient* inClient,
                       void* inUserData);
    static void OnClientConnected(_UMockdevIoctlBase* inHandler, _UMockdevIoctlClient* inClient,
                                  void* inUserData);
    static void OnClientVanished(_UMockdevIoctlBase* inHandler, _UMockdevIoctlClient* inClient,
                                 void* inUserData);
    void ReleaseUnused();
    bool HandleIoctl(SConnection& inConnection, _UMockdevIoctlClient* inClient);
    void SubmitLocked(SConnection& inConnection, _UMockdevIoctlClient* inClient);
    void CompleteLocked(SConnection& inConnection, std::unique_ptr<SUrb> inUrb, int inStatus,
                        size_t inActual);
    void AnswerControlLocked(SConnection& inConnection, std::unique_ptr<SUrb> inUrb);
    void ServeReadsLocked(SConnection& inConnection);
    void ReapWaitingLocked(SConnection& inConnection);
    static void HandBack(_UMockdevIoctlClient* inClient, SUrb& inUrb);
    void QueueInputLocked(const std::vector<uint8_t>& inBytes);

    _UMockdevTestbed* mTestbed = nullptr;
    mutable std::mutex mMutex;
    SIdentity mIdentity;
    uint8_t mNextDeviceNumber = 2;
    uint8_t mDeviceNumber = 0;
    std::string mSysPath;  // of the current connection, empty when unplugged
    // Every connection still in use: libusb may hold the node of an
    // unplugged one open, and its ioctls must keep their answers. Plug()
    // releases those whose node nobody holds any more (umockdev's preload
    // library keeps a socket of a node closed after it was removed, and so
    // the connection, until the testbed goes).
    std::vector<std::unique_ptr<SConnection>> mConnections;
    std::vector<std::vector<uint8_t>> mInput;  // packets, status bytes included
    std::vector<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> mResponses;
    std::vector<uint8_t> mFailedRequests;
    uint8_t mModemStatus = kStatus0;
    std::vector<SControlRequest> mControl;
    std::vector<std::vector<uint8_t>> mWrites;
    uint8_t mConfiguration = 1;
};
