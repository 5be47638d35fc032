// The device link as vxd composes it (CVXUserSpaceDriver), on the real
// sd-event loop and libusb, against the emulated bridge. The parser's records
// go to a recorder instead of the control service, so that what the surface
// sent can be compared record by record. Grouped by what can go wrong: which
// devices are taken, the bridge's set-up and the status exchange, bytes both
// ways, the surface's state after a re-plug, and plugging again and again.
// Runs under umockdev-wrapper; libusb spins while a device is open, so every
// run is short but the silent device's, which the link asks for 12.5 s.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/usb/USBRig.h"
#include "platform/VXDiagnostics.h"
#include "support/RecordingSinks.h"

namespace {

using Request = CEmulatedFTDI::SControlRequest;

const std::vector<Request>& kBringUp = CEmulatedFTDI::kSurfaceSetUp;

// The surface holds CTS up: its packets begin 11 60, the header the parser
// strips. The status reply comes before that, behind 01 60.
constexpr uint8_t kSurfaceModemStatus = 0x11;

const std::string kNoInterface = "Tried to write while mInterface == NULL!?\n";

class DeviceLinkOnUSB : public ::testing::Test {
  protected:
    // Starts libusb, then the driver on it: a device plugged first has been
    // taken or refused when this returns. Its reads complete on the loop
    // only, after the recorder took the service's place.
    void Start(bool inPlugFirst = true) {
        ASSERT_TRUE(rig.Start(inPlugFirst));
        driver = std::make_unique<CVXUserSpaceDriver>(rig.host.get(), &rig.loop, &out, Bytes{});
        driver->Parser().SetRecordSink(&out);
    }
    void TearDown() override { driver.reset(); }

    CVXDeviceLink& Link() { return driver->Link(); }
    int Write(const Bytes& inBytes) { return driver->WriteAsync(inBytes.data(), inBytes.size()); }
    bool Linked() { return Link().Interface() && rig.ftdi.PendingReads() == 1; }
    bool RunUntilLinked() {
        return rig.RunUntil([&] { return Linked(); });
    }
    bool RunUntilUnlinked() {
        return rig.RunUntil([&] { return !Link().Interface(); });
    }
    // Every queued packet read and handed on: the next read waits again, and
    // a read is only posted after the previous one was handed on.
    bool RunUntilDrained() {
        return rig.RunUntil(
            [&] { return rig.ftdi.QueuedPackets() == 0 && rig.ftdi.PendingReads() == 1; });
    }
    std::vector<Bytes> WritesSince(size_t inFirst) {
        const std::vector<Bytes> all = rig.ftdi.BulkWrites();
        return inFirst < all.size() ? std::vector<Bytes>(all.begin() + inFirst, all.end())
                                    : std::vector<Bytes>{};
    }

    CVXDiagnosticCapture diagnostics;
    SRig rig;
    CRecordingParserOutput out;
    std::unique_ptr<CVXUserSpaceDriver> driver;
};

// ---------------------------------------------------------------- identity

struct SIdentityCase {
    const char* name;
    CEmulatedFTDI::SIdentity identity;
    bool taken;
};

const SIdentityCase kIdentities[] = {
    {"Bridge0200", {0x0403, 0x6001, 0x0200}, true},
    {"Bridge01FF", {0x0403, 0x6001, 0x01FF}, false},
    {"Surface0200", {0x0760, 0x0008, 0x0200}, true},
    {"Surface01FF", {0x0760, 0x0002, 0x01FF}, false},
    {"UnlistedBridge", {0x0403, 0x6010, 0x0200}, false},
};

void PrintTo(const SIdentityCase& inCase, std::ostream* outStream) {
    *outStream << inCase.name;
}

class DeviceLinkOnUSBIdentity
    : public DeviceLinkOnUSB,
      public ::testing::WithParamInterface<std::tuple<SIdentityCase, bool>> {};

TEST_P(DeviceLinkOnUSBIdentity, TakesListedIdentitiesFromRelease0200Only) {
    const auto& [c, presentAtStart] = GetParam();
    rig.ftdi.SetIdentity(c.identity);
    ASSERT_NO_FATAL_FAILURE(Start(presentAtStart));
    if (presentAtStart && c.taken) {
        EXPECT_TRUE(Linked()) << "taken within the driver's start";
    }
    // A registration after the link's: its arrival is handed out in the same
    // pass as the link's, so the link has had its turn when it comes.
    ASSERT_EQ(rig.Register(c.identity.vendor, c.identity.product), 0);
    if (!presentAtStart) {
        ASSERT_TRUE(rig.ftdi.Plug());
        ASSERT_TRUE(rig.RunUntil([&] { return !rig.arrived.empty(); }));
    }
    ASSERT_EQ(rig.arrived.size(), 1u);
    if (c.taken) {
        EXPECT_TRUE(Linked());
        EXPECT_EQ(Link().Interface(), rig.arrived[0]);
        EXPECT_EQ(Link().FirmwareVers(), 0x0205);
        EXPECT_EQ(rig.ftdi.ClaimedInterfaces(), Bytes{0});
    } else {
        EXPECT_EQ(Link().Interface(), nullptr);
        EXPECT_TRUE(rig.ftdi.ControlRequests().empty());
        EXPECT_TRUE(rig.ftdi.BulkWrites().empty());
        EXPECT_TRUE(rig.ftdi.ClaimedInterfaces().empty());
    }
    EXPECT_EQ(diagnostics.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Identities, DeviceLinkOnUSBIdentity,
                         ::testing::Combine(::testing::ValuesIn(kIdentities), ::testing::Bool()),
                         [](const auto& inInfo) {
                             return std::string(std::get<0>(inInfo.param).name) +
                                    (std::get<1>(inInfo.param) ? "PresentAtStart" : "PluggedLater");
                         });

// ---------------------------------------------------------------- bring-up

struct SBringUpCase {
    const char* name;
    int failingRequest;   // the vendor request the bridge stalls, or -1
    Bytes reply;          // to the status request; empty: the emulator's own
    size_t requestsSeen;  // the first ones of kBringUp
    uint16_t firmware;    // 0: the link gave the device up
    const char* diagnostic;
};

const char kSetupFailed[] = "unable to setup USB<->Serial Chip\n";

const SBringUpCase kBringUps[] = {
    // Read as 01 60 F0 15 26 01 02 05 F7: the bridge's status bytes, then the reply.
    {"Surface", -1, {}, 5, 0x0205, ""},
    {"OtherFirmware", -1, {0xF0, 0x15, 0x26, 0x01, 0x01, 0x07, 0xF7}, 5, 0x0107, ""},
    {"ResetFails", 0, {}, 1, 0, kSetupFailed},
    {"BaudRateFails", 3, {}, 2, 0, kSetupFailed},
    {"DataFormatFails", 4, {}, 3, 0, kSetupFailed},
    {"FlowControlFails", 2, {}, 4, 0, kSetupFailed},
    // Only a shorter delay on input is lost: the surface is linked all the same.
    {"LatencyTimerFails", 9, {}, 5, 0x0205, "unable to set the latency timer (fffffff7)\n"},
};

void PrintTo(const SBringUpCase& inCase, std::ostream* outStream) {
    *outStream << inCase.name;
}

class DeviceLinkOnUSBBringUp : public DeviceLinkOnUSB,
                               public ::testing::WithParamInterface<SBringUpCase> {};

TEST_P(DeviceLinkOnUSBBringUp, ProgramsTheBridgeInOrderThenAsksTheSurfaceForItsStatus) {
    const SBringUpCase& c = GetParam();
    if (c.failingRequest >= 0) rig.ftdi.FailControlRequest(static_cast<uint8_t>(c.failingRequest));
    if (!c.reply.empty()) {
        rig.ftdi.ClearResponses();
        rig.ftdi.AddResponse(CEmulatedFTDI::kStatusRequest, c.reply);
    }
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(rig.ftdi.ControlRequests(),
              std::vector<Request>(kBringUp.begin(), kBringUp.begin() + c.requestsSeen));
    EXPECT_EQ(diagnostics.Text(), c.diagnostic);
    if (c.firmware) {
        EXPECT_TRUE(Linked());
        EXPECT_TRUE(Link().HaveVXStatus());
        EXPECT_EQ(Link().FirmwareVers(), c.firmware);
        EXPECT_EQ(rig.ftdi.ClaimedInterfaces(), Bytes{0});
        // Nothing written before the surface was known to be one, nothing
        // to restore on a first link.
        EXPECT_EQ(rig.ftdi.BulkWrites(), std::vector<Bytes>{CEmulatedFTDI::kStatusRequest});
    } else {
        EXPECT_EQ(Link().Interface(), nullptr);
        EXPECT_TRUE(rig.ftdi.ClaimedInterfaces().empty());
        EXPECT_TRUE(rig.ftdi.BulkWrites().empty());
        EXPECT_EQ(rig.ftdi.PendingReads(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Bridge, DeviceLinkOnUSBBringUp, ::testing::ValuesIn(kBringUps),
                         [](const auto& inInfo) { return std::string(inInfo.param.name); });

// Any cable with the bridge has its default identity. When nothing answers
// the status request (25 passes of 50 reads of 10 ms), the link gives the
// interface back to the serial driver and leaves the device alone until it
// is plugged in again.
TEST_F(DeviceLinkOnUSB, SilentBridgeIsLeftToTheSerialDriverUntilPluggedAgain) {
    rig.ftdi.ClearResponses();
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(Link().Interface(), nullptr);
    EXPECT_TRUE(rig.ftdi.ClaimedInterfaces().empty());
    EXPECT_EQ(rig.ftdi.PendingReads(), 0u);
    EXPECT_EQ(rig.ftdi.BulkWrites(), std::vector<Bytes>(25, CEmulatedFTDI::kStatusRequest));
    EXPECT_EQ(diagnostics.Take(),
              "Couldn't get response in 50 attempts and 25 passes\n"
              "FindInterface () - couldn't get vx status\n"
              "no surface answered on 0403:6001; left to the serial driver\n");

    // Reported again while plugged in, it is not touched.
    ASSERT_EQ(rig.Register(), 0);
    ASSERT_EQ(rig.arrived.size(), 1u);
    const size_t requests = rig.ftdi.ControlRequests().size();
    Link().DeviceAdded(rig.arrived[0]);
    EXPECT_EQ(rig.ftdi.ControlRequests().size(), requests);
    EXPECT_EQ(rig.ftdi.BulkWrites().size(), 25u);
    EXPECT_EQ(Link().Interface(), nullptr);

    // Plugged in again it is asked anew, and this time a surface answers.
    rig.ftdi.AddResponse(CEmulatedFTDI::kStatusRequest, CEmulatedFTDI::kStatusReply);
    rig.ftdi.Unplug();
    ASSERT_TRUE(rig.RunUntil([&] { return rig.left.size() == 1; }));
    ASSERT_TRUE(rig.ftdi.Plug());
    ASSERT_TRUE(RunUntilLinked());
    EXPECT_EQ(Link().FirmwareVers(), 0x0205);
    EXPECT_EQ(diagnostics.Take(), "");
}

// ---------------------------------------------------------------- streaming

struct SMessage {
    Bytes in;  // as the surface sends it
    std::vector<Bytes> records;
    std::vector<Bytes> host;  // forwarded to host applications as it came
};

const std::vector<SMessage> kMessages = {
    {{0xB3, 0x07, 0x40, 0xB3, 0x27, 0x40}, {{4, 160, 3, 0x81}}, {}},  // fader, both halves
    {{0xB0, 0x07, 0x40, 0x27, 0x00}, {{4, 160, 0, 0x80}}, {}},        // running status
    {{0xB0, 0x46, 0x7F}, {{4, 161, 0, 1}}, {}},                       // Mute on
    {{0xB0, 0x46, 0x00}, {{4, 161, 0, 0}}, {}},                       // and off
    {{0xBF, 0x49, 0x01}, {{4, 164, 15, 1}}, {}},                      // Select
    {{0xB5, 0x4A, 0x01}, {{4, 165, 5, 1}}, {}},                       // touch
    {{0xB0, 0x10, 0x7F}, {{5, 167, 0xB0, 0x10, 0x7F}}, {}},           // any other controller
    {{0x93, 0x40, 0x7F}, {}, {}},                                     // notes are dropped
    {{0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7},                            // machine control: Play
     {{3, 3, 0x3F}},
     {{0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7}}},
};

TEST_F(DeviceLinkOnUSB, InputInSmallAndLargeTransfersBecomesTheRightRecords) {
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_TRUE(Linked());
    rig.ftdi.SetModemStatus(kSurfaceModemStatus);

    // Small: each message cut in two packets, each packet a transfer of its
    // own; the parser completes the message from the second.
    std::vector<Bytes> records, host;
    for (const SMessage& m : kMessages) {
        const auto half = m.in.begin() + static_cast<std::ptrdiff_t>(m.in.size() / 2);
        rig.ftdi.QueueInput(Bytes(m.in.begin(), half));
        rig.ftdi.QueueInput(Bytes(half, m.in.end()));
        records.insert(records.end(), m.records.begin(), m.records.end());
        host.insert(host.end(), m.host.begin(), m.host.end());
    }
    ASSERT_TRUE(RunUntilDrained());
    EXPECT_EQ(out.Records(), records);
    EXPECT_EQ(out.HostMessages(), host);

    // Large: the messages 200 times over in one go, so full packets, reads of
    // 64 of them, and messages cut at packet and read boundaries. Without the
    // system-exclusive one: how much of the ring the parser searches for its
    // end depends on how many bytes wait, hence on where reads end.
    out.mEvents.clear();
    records.clear();
    Bytes stream;
    for (int round = 0; round < 200; ++round) {
        for (const SMessage& m : kMessages) {
            if (m.in[0] == 0xF0) continue;
            stream.insert(stream.end(), m.in.begin(), m.in.end());
            records.insert(records.end(), m.records.begin(), m.records.end());
        }
    }
    const size_t packets = (stream.size() + 61) / 62;
    ASSERT_GT(packets, 64u);
    rig.ftdi.QueueInput(stream);
    EXPECT_EQ(rig.ftdi.QueuedPackets(), packets - 64) << "the waiting read takes 64 at once";
    ASSERT_TRUE(RunUntilDrained());
    EXPECT_EQ(out.Records(), records);
    EXPECT_TRUE(out.HostMessages().empty());
    EXPECT_EQ(diagnostics.Text(), "");
}

TEST_F(DeviceLinkOnUSB, WritesReachTheDeviceWholeAndInOrderWhileTheReadWaits) {
    ASSERT_NO_FATAL_FAILURE(Start());
    rig.ftdi.SetModemStatus(kSurfaceModemStatus);
    std::vector<Bytes> written = {CEmulatedFTDI::kStatusRequest};
    // Under, at and over one packet, and a whole write buffer.
    for (size_t size : {1, 3, 62, 64, 65, 4096}) {
        Bytes bytes(size);
        for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + size);
        ASSERT_EQ(Write(bytes), 0);
        written.push_back(bytes);
        EXPECT_EQ(rig.ftdi.PendingReads(), 1u);
    }
    // Input between writes is read as usual.
    rig.ftdi.QueueInput({0xB0, 0x46, 0x7F});
    written.push_back({0xB0, 0x46, 0x00});
    ASSERT_EQ(Write(written.back()), 0);
    ASSERT_TRUE(RunUntilDrained());
    EXPECT_EQ(rig.ftdi.BulkWrites(), written);
    EXPECT_EQ(out.Records(), (std::vector<Bytes>{{4, 161, 0, 1}}));
    EXPECT_EQ(diagnostics.Text(), "");
}

struct SNoDeviceCase {
    const char* name;
    bool plugged;         // linked first, then unplugged
    bool removalHandled;  // the loop ran after the unplug
    std::string diagnostic;
};

const SNoDeviceCase kNoDevice[] = {
    {"NeverPlugged", false, false, kNoInterface},
    {"Unplugged", true, true, kNoInterface},
    // The link does not know yet: the write itself fails.
    {"UnpluggedUnnoticed", true, false, "unable to do async bulk write (fffffffc)\n"},
};

void PrintTo(const SNoDeviceCase& inCase, std::ostream* outStream) {
    *outStream << inCase.name;
}

class DeviceLinkOnUSBNoDevice : public DeviceLinkOnUSB,
                                public ::testing::WithParamInterface<SNoDeviceCase> {};

TEST_P(DeviceLinkOnUSBNoDevice, WriteSaysSoAndFails) {
    const SNoDeviceCase& c = GetParam();
    ASSERT_NO_FATAL_FAILURE(Start(c.plugged));
    if (c.plugged) {
        ASSERT_TRUE(Linked());
        rig.ftdi.Unplug();
    }
    if (c.removalHandled) {
        ASSERT_TRUE(RunUntilUnlinked());
    }
    const size_t writes = rig.ftdi.BulkWrites().size();
    EXPECT_EQ(Write(Bytes{0xB0, 0x46, 0x7F}), kVXUSBErrorNoDevice);
    EXPECT_EQ(diagnostics.Take(), c.diagnostic);
    EXPECT_EQ(rig.ftdi.BulkWrites().size(), writes);
    // However it hears of it, the link lets the vanished device go.
    ASSERT_TRUE(RunUntilUnlinked());
    EXPECT_EQ(diagnostics.Take(), "");
}

INSTANTIATE_TEST_SUITE_P(Writes, DeviceLinkOnUSBNoDevice, ::testing::ValuesIn(kNoDevice),
                         [](const auto& inInfo) { return std::string(inInfo.param.name); });

// ---------------------------------------------------------------- restore

TEST_F(DeviceLinkOnUSB, ReplugShowsTheLastFaderAndLEDStateWrittenAgain) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::vector<Bytes> before = {
        {0xB2, 0x07, 0x10, 0xB2, 0x27, 0x40},                    // fader 3, both halves
        {0xB0, 0x46, 0x7F},                                      // Mute 1 on,
        {0xB0, 0x46, 0x00},                                      // then off
        {0xB0, 0x49, 0x7F},                                      // Select 1
        {0xB2, 0x07, 0x20},                                      // fader 3 moves on
        {0xB0, 0x10, 0x7F, 0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7},  // no strip state
    };
    std::vector<Bytes> written = {CEmulatedFTDI::kStatusRequest};
    for (const Bytes& bytes : before) {
        ASSERT_EQ(Write(bytes), 0);
        written.push_back(bytes);
    }
    EXPECT_EQ(rig.ftdi.BulkWrites(), written);
    rig.ftdi.Unplug();
    ASSERT_TRUE(RunUntilUnlinked());
    EXPECT_EQ(Write(Bytes{0xB5, 0x47, 0x7F}), kVXUSBErrorNoDevice);  // Solo 6, while unplugged
    EXPECT_EQ(diagnostics.Take(), kNoInterface);

    ASSERT_TRUE(rig.ftdi.Plug());
    ASSERT_TRUE(RunUntilLinked());
    // In one write after the status exchange: strip by strip, the fader
    // halves before the LEDs, each with the value written last.
    const Bytes restore = {0xB0, 0x46, 0x00, 0xB0, 0x49, 0x7F, 0xB2, 0x07,
                           0x20, 0xB2, 0x27, 0x40, 0xB5, 0x47, 0x7F};
    EXPECT_EQ(WritesSince(written.size()),
              (std::vector<Bytes>{CEmulatedFTDI::kStatusRequest, restore}));
    EXPECT_EQ(diagnostics.Take(), "");
}

// ---------------------------------------------------------------- lifecycle

// Unplugged while bytes flow both ways and plugged in again, twenty times.
// Descriptors are counted while no device is linked: the linked one's node is
// the only thing the link keeps open.
TEST_F(DeviceLinkOnUSB, ComesBackEveryTimeAfterUnplugMidTrafficAndLeavesNoDescriptor) {
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_EQ(rig.Register(), 0);
    ASSERT_TRUE(Linked());
    rig.ftdi.SetModemStatus(kSurfaceModemStatus);
    std::vector<Bytes> records;
    DevicePtr device;
    auto pullOut = [&](size_t inRound) {
        device = Link().Interface();
        const auto channel = static_cast<uint8_t>(inRound & 0x0F);
        const auto status = static_cast<uint8_t>(0xB0 | channel);
        ASSERT_EQ(Write(Bytes{status, 0x46, 0x7F}), 0);
        rig.ftdi.QueueInput({status, 0x4A, 0x01});
        records.push_back({4, 165, channel, 1});
        ASSERT_TRUE(RunUntilDrained());
        // Taken by the waiting read at once, before the device goes: these
        // bytes are handed on all the same.
        rig.ftdi.QueueInput({status, 0x4A, 0x00});
        records.push_back({4, 165, channel, 0});
        rig.ftdi.Unplug();
        ASSERT_TRUE(RunUntilUnlinked());
        ASSERT_TRUE(rig.RunUntil([&] { return rig.left.size() == inRound + 1; }));
        EXPECT_EQ(rig.left.back(), device);
        EXPECT_EQ(out.Records(), records);
    };
    auto plugIn = [&] {
        ASSERT_TRUE(rig.ftdi.Plug());
        ASSERT_TRUE(RunUntilLinked());
        EXPECT_NE(Link().Interface(), device);
        EXPECT_EQ(Link().FirmwareVers(), 0x0205);
    };
    // One round first: GLib's threads under the emulator open their
    // descriptors lazily and keep them.
    ASSERT_NO_FATAL_FAILURE(pullOut(0));
    const std::vector<std::string> fdsBefore = OpenFdsButSockets();
    for (size_t round = 1; round <= 20; ++round) {
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(plugIn());
        ASSERT_NO_FATAL_FAILURE(pullOut(round));
    }
    EXPECT_EQ(OpenFdsButSockets(), fdsBefore);
    ASSERT_NO_FATAL_FAILURE(plugIn());
    EXPECT_EQ(rig.arrived.size(), 22u);
    EXPECT_EQ(diagnostics.Text(), "");
}

}  // namespace
