// The libusb backend on the real sd-event loop, against an FTDI-type bridge
// emulated under umockdev: identity and descriptors, control and bulk
// transfers as the device sees them, an asynchronous read outstanding while
// writes go on, and unplugging and plugging again. Runs under
// umockdev-wrapper. An emulated node always polls ready, so libusb spins
// while a device is open: every run is short.
#include <gtest/gtest.h>
#include <libusb.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "integration/usb/USBRig.h"

namespace {

// ---------------------------------------------------------------- identity

struct SIdentityCase {
    CEmulatedFTDI::SIdentity identity;
};

class LibUSBIdentity : public ::testing::TestWithParam<SIdentityCase> {};

TEST_P(LibUSBIdentity, PresentDeviceArrivesBeforeRegisterReturnsWithItsDescriptors) {
    const CEmulatedFTDI::SIdentity id = GetParam().identity;
    SRig rig(id);
    ASSERT_TRUE(rig.Start());
    // Another identity sees nothing; this one its device, before returning.
    EXPECT_EQ(rig.Register(id.vendor, 0x6010), 0);
    EXPECT_TRUE(rig.arrived.empty());
    EXPECT_EQ(rig.Register(id.vendor, id.product), 0);
    ASSERT_EQ(rig.arrived.size(), 1u);
    const DevicePtr& device = rig.arrived[0];
    EXPECT_EQ(device->VendorID(), id.vendor);
    EXPECT_EQ(device->ProductID(), id.product);
    EXPECT_EQ(device->ReleaseNumber(), id.release);
    EXPECT_EQ(device->NumberOfConfigurations(), 1);
    uint8_t value = 0;
    EXPECT_EQ(device->GetConfigurationValue(0, value), 0);
    EXPECT_EQ(value, 1);

    ASSERT_EQ(device->Open(), 0);
    int active = -1;
    EXPECT_EQ(device->GetActiveConfiguration(active), 0);
    EXPECT_EQ(active, 1);
    std::vector<SVXUSBInterface> interfaces;
    ASSERT_EQ(device->GetInterfaces(interfaces), 0);
    ASSERT_EQ(interfaces.size(), 1u);
    EXPECT_EQ(interfaces[0].number, 0);
    ASSERT_EQ(interfaces[0].endpoints.size(), 2u);
    EXPECT_EQ(interfaces[0].endpoints[0].address, 0x81);
    EXPECT_EQ(interfaces[0].endpoints[0].attributes & 3, 2);
    EXPECT_EQ(interfaces[0].endpoints[0].maxPacketSize, 64);
    EXPECT_EQ(interfaces[0].endpoints[1].address, 0x02);
    EXPECT_EQ(interfaces[0].endpoints[1].maxPacketSize, 64);

    // Claim, then the kernel's refusal of a set-configuration under a claim.
    EXPECT_EQ(device->ClaimInterface(0), 0);
    EXPECT_EQ(rig.ftdi.ClaimedInterfaces(), Bytes{0});
    EXPECT_EQ(device->SetConfiguration(1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(device->ReleaseInterface(0), 0);
    EXPECT_TRUE(rig.ftdi.ClaimedInterfaces().empty());
    EXPECT_EQ(device->SetConfiguration(1), 0);
    device->Close();
}

INSTANTIATE_TEST_SUITE_P(Releases, LibUSBIdentity,
                         ::testing::Values(SIdentityCase{{0x0403, 0x6001, 0x0200}},
                                           SIdentityCase{{0x0403, 0x6001, 0x01FF}}),
                         [](const auto& inInfo) {
                             char name[16];
                             std::snprintf(name, sizeof name, "bcd%04X",
                                           inInfo.param.identity.release);
                             return std::string(name);
                         });

// ---------------------------------------------------------------- transfers

class LibUSBTransfers : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(rig.Start());
        ASSERT_EQ(rig.Register(), 0);
        ASSERT_EQ(rig.arrived.size(), 1u);
        device = rig.arrived[0];
        ASSERT_TRUE(rig.OpenAndClaim(device));
    }
    void TearDown() override {
        if (device) device->Close();
    }
    void Write(const Bytes& inBytes) {
        size_t moved = 0;
        EXPECT_EQ(device->BulkWrite(0x02, inBytes.data(), inBytes.size(), moved, 1000), 0);
        EXPECT_EQ(moved, inBytes.size());
    }

    SRig rig;
    DevicePtr device;
};

TEST_F(LibUSBTransfers, ControlRequestsAndBulkWritesArriveInOrderWithTheirValues) {
    const std::vector<CEmulatedFTDI::SControlRequest> requests = {
        {kVXVendorRequestOut, 0x00, 0x0000, 0x0000},  // reset
        {kVXVendorRequestOut, 0x03, 0x4138, 0x0000},  // a baud-rate divisor
        {kVXVendorRequestOut, 0x09, 0x0002, 0x0001},  // latency on port 1
        {kVXVendorRequestOut, 0x02, 0xFFFF, 0x0100},  // all bits of value and index
    };
    for (const auto& r : requests)
        EXPECT_EQ(device->ControlOut(r.requestType, r.request, r.value, r.index, 1000), 0);
    std::vector<CEmulatedFTDI::SControlRequest> vendor;
    for (const auto& r : rig.ftdi.ControlRequests())
        if (r.requestType == kVXVendorRequestOut) vendor.push_back(r);
    EXPECT_EQ(vendor, requests);

    std::vector<Bytes> payloads = {{0x90}, Bytes(64, 0x11), Bytes(200, 0x22), {0xF0, 0x01, 0xF7}};
    for (size_t i = 0; i < payloads[2].size(); ++i) payloads[2][i] = static_cast<uint8_t>(i);
    for (const Bytes& p : payloads) Write(p);
    EXPECT_EQ(rig.ftdi.BulkWrites(), payloads);
}

TEST_F(LibUSBTransfers, ReadStaysOutstandingWhileWritingAndGathersSmallAndLargePackets) {
    Bytes buffer(4096);
    Bytes received;
    std::vector<size_t> lengths;
    int failures = 0;
    std::function<void()> submit;
    CVXUSBDevice::ReadCallback onRead = [&](EVXTransferStatus inStatus, size_t inLength) {
        if (inStatus != kVXTransferCompleted) {
            ++failures;
            return;
        }
        lengths.push_back(inLength);
        Bytes payload = CEmulatedFTDI::StripStatus(buffer.data(), inLength);
        received.insert(received.end(), payload.begin(), payload.end());
        submit();
    };
    submit = [&] {
        EXPECT_EQ(device->SubmitBulkRead(0x81, buffer.data(), buffer.size(), onRead), 0);
    };
    submit();
    EXPECT_EQ(rig.ftdi.PendingReads(), 1u);

    // Writes go through while the read waits; the read is neither completed
    // nor delivered by them.
    for (uint8_t i = 0; i < 5; ++i) Write({0xB0, i, 0x7F});
    ASSERT_TRUE(rig.RunUntil([&] { return rig.ftdi.BulkWrites().size() == 5; }));
    EXPECT_TRUE(lengths.empty());
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(rig.ftdi.PendingReads(), 1u);

    // One byte, packets just under, at and over one packet's payload, and
    // several full packets in one transfer.
    Bytes expected;
    uint8_t next = 0;
    for (size_t size : {1, 61, 62, 63, 500, 3}) {
        Bytes chunk(size);
        for (auto& b : chunk) b = next++;
        expected.insert(expected.end(), chunk.begin(), chunk.end());
        rig.ftdi.QueueInput(chunk);
    }
    ASSERT_TRUE(rig.RunUntil([&] { return received.size() >= expected.size(); }));
    EXPECT_EQ(received, expected);
    EXPECT_EQ(failures, 0);
    size_t largest = 0;
    for (size_t n : lengths) largest = std::max(largest, n);
    EXPECT_GT(largest, CEmulatedFTDI::kPacketSize) << "a transfer of several packets";
}

TEST_F(LibUSBTransfers, BlockingReadGetsTheStatusReplyOrTimesOut) {
    Write(CEmulatedFTDI::kStatusRequest);
    Bytes buffer(64);
    size_t moved = 0;
    ASSERT_EQ(device->BulkRead(0x81, buffer.data(), buffer.size(), moved, 1000), 0);
    EXPECT_EQ(CEmulatedFTDI::StripStatus(buffer.data(), moved), CEmulatedFTDI::kStatusReply);
    EXPECT_EQ(buffer[0], CEmulatedFTDI::kStatus0);
    EXPECT_EQ(buffer[1], CEmulatedFTDI::kStatus1);

    rig.ftdi.ClearResponses();
    Write(CEmulatedFTDI::kStatusRequest);
    EXPECT_EQ(device->BulkRead(0x81, buffer.data(), buffer.size(), moved, 50),
              LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(rig.ftdi.PendingReads(), 0u) << "the timed-out URB is discarded";
}

// ---------------------------------------------------------------- lifecycle

TEST(LibUSBLifecycle, CloseCancelsAPendingReadWithoutItsCallback) {
    SRig rig;
    ASSERT_TRUE(rig.Start());
    ASSERT_EQ(rig.Register(), 0);
    ASSERT_EQ(rig.arrived.size(), 1u);
    DevicePtr device = rig.arrived[0];
    ASSERT_TRUE(rig.OpenAndClaim(device));
    Bytes first(64), second(64);
    int firstCalls = 0, secondCalls = 0;
    ASSERT_EQ(device->SubmitBulkRead(0x81, first.data(), 64, [&](auto, size_t) { ++firstCalls; }),
              0);
    ASSERT_EQ(rig.ftdi.PendingReads(), 1u);
    device->Close();
    EXPECT_EQ(rig.ftdi.PendingReads(), 0u);
    EXPECT_TRUE(rig.ftdi.ClaimedInterfaces().empty());

    // Open again; a new read gets the input, the cancelled one nothing ever.
    ASSERT_TRUE(rig.OpenAndClaim(device));
    ASSERT_EQ(device->SubmitBulkRead(0x81, second.data(), 64,
                                     [&](auto s, size_t) {
                                         EXPECT_EQ(s, kVXTransferCompleted);
                                         ++secondCalls;
                                     }),
              0);
    rig.ftdi.QueueInput({0x42});
    ASSERT_TRUE(rig.RunUntil([&] { return secondCalls == 1; }));
    EXPECT_EQ(firstCalls, 0);
    EXPECT_EQ(second[2], 0x42);
    device->Close();
}

TEST(LibUSBLifecycle, DeviceOutlivingTheHostOnlyFails) {
    DevicePtr device;
    {
        SRig rig;
        ASSERT_TRUE(rig.Start());
        ASSERT_EQ(rig.Register(), 0);
        ASSERT_EQ(rig.arrived.size(), 1u);
        device = rig.arrived[0];
        ASSERT_TRUE(rig.OpenAndClaim(device));
        Bytes buffer(64);
        ASSERT_EQ(device->SubmitBulkRead(
                      0x81, buffer.data(), 64,
                      [](auto, size_t) { ADD_FAILURE() << "no callback once the host is gone"; }),
                  0);
        rig.host.reset();
        EXPECT_EQ(rig.ftdi.PendingReads(), 0u);
    }
    EXPECT_EQ(device->Open(), LIBUSB_ERROR_NO_DEVICE);
    device->Close();
}

// Unplugging during a read: the read ends with an error, then the device
// leaves; plugged again it is a new object.
void UnplugAndReplug(CEmulatedFTDI& inFtdi, int inRounds) {
    SRig rig(inFtdi);
    ASSERT_TRUE(rig.Start());
    ASSERT_EQ(rig.Register(), 0);
    ASSERT_EQ(rig.arrived.size(), 1u);
    Bytes buffer(512);
    for (int round = 0; round < inRounds; ++round) {
        SCOPED_TRACE(round);
        const DevicePtr device = rig.arrived.back();
        ASSERT_TRUE(rig.OpenAndClaim(device));
        EVXTransferStatus status = kVXTransferCompleted;
        ASSERT_EQ(device->SubmitBulkRead(0x81, buffer.data(), buffer.size(),
                                         [&](EVXTransferStatus s, size_t) {
                                             status = s;
                                             rig.events.push_back("read");
                                         }),
                  0);
        rig.events.clear();
        inFtdi.Unplug();
        ASSERT_TRUE(rig.RunUntil([&] { return rig.left.size() == size_t(round + 1); }));
        EXPECT_EQ(rig.events, (std::vector<std::string>{"read", "left"}));
        EXPECT_EQ(status, kVXTransferNoDevice);
        EXPECT_EQ(rig.left.back(), device);
        device->Close();

        ASSERT_TRUE(inFtdi.Plug());
        ASSERT_TRUE(rig.RunUntil([&] { return rig.arrived.size() == size_t(round + 2); }));
        EXPECT_NE(rig.arrived.back(), device);
        EXPECT_EQ(rig.arrived.back()->ReleaseNumber(), 0x0200);
    }
    EXPECT_EQ(rig.arrived.size(), size_t(inRounds + 1));
    EXPECT_EQ(rig.left.size(), size_t(inRounds));
}

// Twenty times with one host, and the host leaves no descriptor open. One
// round first: GLib's threads under the emulator open their descriptors
// lazily and keep them.
TEST(LibUSBLifecycle, UnplugFailsTheReadThenLeavesAndReplugArrivesAnewRepeatedly) {
    CEmulatedFTDI ftdi;
    ASSERT_TRUE(ftdi.Plug());
    UnplugAndReplug(ftdi, 1);
    const std::vector<std::string> fdsBefore = OpenFdsButSockets();
    UnplugAndReplug(ftdi, 20);
    EXPECT_EQ(OpenFdsButSockets(), fdsBefore);
}

}  // namespace
