#include "driver/CVXDeviceLink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "driver/CBufferManager.h"
#include "driver/CVXInputParser.h"
#include "driver/CWriteBuffer.h"
#include "platform/VXDiagnostics.h"
#include "support/FakeUSB.h"
#include "support/RecordingSinks.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

// A status reply as it comes through the bridge: its two status bytes first.
const Bytes kReply = {0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};

// The calls of a healthy bring-up, from opening to the first read.
const Lines kBringUp = {"open",
                        "get-config 0",
                        "get-active",
                        "interfaces",
                        "claim 0",
                        "control 40 00 0000 0000",
                        "control 40 03 C04E 0000",
                        "control 40 04 0108 0000",
                        "control 40 02 0000 0000",
                        "control 40 09 0001 0000",
                        "bulk-out 02 F0 15 26 01 F7",
                        "bulk-in 81 4096",
                        "submit 81 4096"};

size_t CountPrefix(const Lines& inLines, const std::string& inPrefix) {
    return std::count_if(inLines.begin(), inLines.end(),
                         [&](const std::string& s) { return s.rfind(inPrefix, 0) == 0; });
}

class DeviceLinkTest : public ::testing::Test {
  protected:
    DeviceLinkTest() {
        mLink.RegisterHotplug();
        mUSB.Take();
    }

    // A surface of vendor-list row 0 that answers the status request.
    std::shared_ptr<CFakeUSBDevice> Surface(uint16_t inVendor = 0x0760,
                                            uint16_t inProduct = 0x0008) {
        auto device = mHost.MakeDevice(inVendor, inProduct, 0x0200);
        device->AnswerStatus(kReply);
        return device;
    }
    // Plugs a surface in and forgets what its bring-up logged and said.
    std::shared_ptr<CFakeUSBDevice> Linked() {
        auto device = Surface();
        mHost.Plug(device);
        EXPECT_EQ(mLink.Interface().get(), device.get());
        mUSB.Take();
        mDiagnostics.Take();
        return device;
    }

    CVXDiagnosticCapture mDiagnostics;
    CEventLog mUSB;
    CFakeUSBHost mHost{mUSB};
    CRecordingParserOutput mOut;
    CVXInputParser mParser{&mOut, &mOut};
    std::vector<size_t> mReadSizes;
    std::vector<Bytes> mStatusWords;
    CVXDeviceLink mLink{&mHost, [this](const uint8_t* inData, size_t inLength) {
                            mReadSizes.push_back(inLength);
                            mParser.ProcessVXData(inData, inLength);
                        }};
};

TEST_F(DeviceLinkTest, TakesListedIdentitiesFromRelease200On) {
    struct {
        uint16_t vendor, product, release;
        bool taken;
    } const cases[] = {
        {0x0403, 0x6001, 0x0200, true},  {0x0403, 0x6001, 0x01FF, false},
        {0x0760, 0x0008, 0x0200, true},  {0x0760, 0x0002, 0x1000, true},
        {0x0760, 0x0003, 0x0200, false}, {0x0403, 0x0008, 0x0200, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << std::hex << c.vendor << ":" << c.product << " " << c.release);
        auto device = mHost.MakeDevice(c.vendor, c.product, c.release);
        device->AnswerStatus(kReply);
        mLink.DeviceAdded(device);
        EXPECT_EQ(mLink.Interface() == device, c.taken);
        EXPECT_EQ(mUSB.Take().empty(), !c.taken);
        mLink.DeviceRemoved(device);
        mUSB.Take();
    }
}

TEST_F(DeviceLinkTest, BringUpSequenceAndStatus) {
    mLink.SetStatusHandler([this](const uint32_t* inValues, size_t inCount) {
        mStatusWords.emplace_back(inValues, inValues + inCount);
    });
    auto device = Surface(0x0403, 0x6001);
    mHost.Plug(device);
    EXPECT_EQ(mUSB.Take(), kBringUp);
    EXPECT_EQ(mDiagnostics.Text(), "");
    EXPECT_EQ(device->mLastReadTimeout, CVXDeviceLink::kStatusReadTimeoutMillis);
    EXPECT_TRUE(mLink.HaveVXStatus());
    EXPECT_EQ(mLink.FirmwareVers(), 0x0205);
    EXPECT_EQ(mLink.UnitCount(), 1);
    EXPECT_EQ(mLink.ChannelCount(), 16);
    EXPECT_EQ(mLink.Pperipherals(), 0);
    EXPECT_EQ(mLink.InPipeRef(), 0x81);
    EXPECT_EQ(mLink.OutPipeRef(), 0x02);
    EXPECT_EQ(mStatusWords, (std::vector<Bytes>{{1, 16, 2, 0, 0, 0, 0}}));
    EXPECT_TRUE(device->ReadPending());
}

TEST_F(DeviceLinkTest, ConfigurationIsSetOnlyWhenItDiffers) {
    struct {
        uint8_t configurations;
        int active;
        int setStatus;
        int result;
        bool setCalled;
    } const cases[] = {
        {1, 1, 0, 0, false}, {1, 0, 0, 0, true}, {1, 2, -6, -1, true}, {0, 0, 0, -1, false}};
    for (const auto& c : cases) {
        auto device = Surface();
        device->mConfigurations = c.configurations;
        device->mActiveConfiguration = c.active;
        if (c.setStatus) device->FailOn("set-config", c.setStatus);
        EXPECT_EQ(mLink.ConfigureDevice(*device), c.result);
        EXPECT_EQ(CountPrefix(mUSB.Take(), "set-config 1"), c.setCalled ? 1u : 0u);
    }
    // Through DeviceAdded a failure is reported and the device closed again.
    auto device = Surface();
    device->mConfigurations = 0;
    mHost.Plug(device);
    EXPECT_EQ(mDiagnostics.Take(), "unable to configure device: ffffffff\n");
    EXPECT_EQ(mUSB.Take(), (Lines{"open", "close"}));
}

TEST_F(DeviceLinkTest, EachFailingStepSaysSoAndEndsOrGoesOn) {
    struct {
        const char* failing;
        int status;
        const char* diagnostics;
        bool linked;
        bool formatSent;  // the data-format request went out
        Lines tail;       // the last calls
    } const cases[] = {
        // clang-format off
        {"open", -3, "unable to open device: fffffffd\n", false, false, {"open"}},
        {"interfaces", -1, "unable to find interfaces on device: ffffffff\n", false, false,
         {"interfaces", "close"}},
        {"claim", -6, "unable to open interface (fffffffa)\n", false, false, {"claim 0", "close"}},
        // The baud rate fails: the data format is never sent.
        {"control 40 03", -9, "unable to setup USB<->Serial Chip\n", false, false,
         {"control 40 03 C04E 0000", "release 0", "close"}},
        {"control 40 09", -9, "unable to set the latency timer (fffffff7)\n", true, true,
         {"bulk-in 81 4096", "submit 81 4096"}},
        {"submit", -1, "unable to do async bulk read (ffffffff)\n", false, true,
         {"submit 81 4096", "release 0", "close"}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failing);
        auto device = Surface();
        device->FailOn(c.failing, c.status);
        mHost.Plug(device);
        EXPECT_EQ(mDiagnostics.Take(), c.diagnostics);
        EXPECT_EQ(mLink.Interface() != nullptr, c.linked);
        Lines log = mUSB.Take();
        ASSERT_GE(log.size(), c.tail.size());
        EXPECT_EQ(Lines(log.end() - c.tail.size(), log.end()), c.tail);
        EXPECT_EQ(CountPrefix(log, "control 40 04"), c.formatSent ? 1u : 0u);
        mHost.Unplug(device);
        mUSB.Take();
    }
}

TEST_F(DeviceLinkTest, StatusExchangeCountsAttemptsAndPasses) {
    struct {
        const char* failing;  // nullptr: a silent device
        const char* diagnostics;
        size_t writes, reads;
    } const cases[] = {
        {nullptr, "Couldn't get response in 50 attempts and 25 passes\n", 25, 25 * 50},
        {"bulk-in", "Couldn't get response in 1 attempts and 25 passes\n", 25, 25},
        {"bulk-out", "Couldn't get response in 0 attempts and 25 passes\n", 25, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failing ? c.failing : "silent");
        auto device = mHost.MakeDevice(0x0760, 0x0008, 0x0200);
        // Every pass fails once; plugged in again, the device answers.
        if (c.failing) device->FailOn(c.failing, -1, 25);
        mHost.Plug(device);
        std::string expected;
        if (c.failing && std::string(c.failing) == "bulk-in")
            for (int i = 0; i < 25; ++i) expected += "ReadPipe returned err -1\n";
        expected += c.diagnostics;
        expected += "FindInterface () - couldn't get vx status\n";
        EXPECT_EQ(mDiagnostics.Take(), expected);
        Lines log = mUSB.Take();
        EXPECT_EQ(CountPrefix(log, "bulk-out 02 F0 15 26 01 F7"), c.writes);
        EXPECT_EQ(CountPrefix(log, "bulk-in"), c.reads);
        EXPECT_EQ(Lines(log.end() - 2, log.end()), (Lines{"release 0", "close"}));
        EXPECT_EQ(mLink.Interface(), nullptr);
        // A surface identity is tried again when it is reported again.
        device->AnswerStatus(kReply);
        mHost.Plug(device);
        EXPECT_EQ(mLink.Interface(), device);
        mHost.Unplug(device);
        mUSB.Take();
        mDiagnostics.Take();
    }
}

TEST_F(DeviceLinkTest, OnlyMoreThanEightBytesAreAReply) {
    auto device = mHost.MakeDevice(0x0760, 0x0008, 0x0200);
    // Eight bytes holding a whole header and version are still not taken.
    device->QueueRead({0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05});
    device->QueueRead({0x01, 0x60});
    device->QueueRead({0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x03, 0x07, 0xF7});
    mHost.Plug(device);
    EXPECT_EQ(CountPrefix(mUSB.Take(), "bulk-in"), 3u);
    EXPECT_EQ(mLink.FirmwareVers(), 0x0307);
    EXPECT_NE(mLink.Interface(), nullptr);

    // A reply without the header fails the exchange.
    auto other = mHost.MakeDevice(0x0760, 0x0002, 0x0200);
    mHost.Unplug(device);
    other->QueueRead({0x01, 0x60, 0xF0, 0x15, 0x26, 0x02, 0x03, 0x07, 0xF7});
    mDiagnostics.Take();
    mHost.Plug(other);
    EXPECT_EQ(mDiagnostics.Take(), "FindInterface () - couldn't get vx status\n");
    EXPECT_EQ(mLink.Interface(), nullptr);
}

TEST_F(DeviceLinkTest, ParseStatusMessageScansUpToTheLastByteButOne) {
    struct {
        Bytes bytes;
        bool found;
        uint16_t firmware;
    } const cases[] = {
        {kReply, true, 0x0205},
        {{0xF0, 0x15, 0x26, 0x01, 0x12, 0x34, 0xF7}, true, 0x1234},
        {{0xF0, 0x15, 0x26, 0x01, 0x12, 0x34}, false, 0},  // nothing after the version
        {{0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x12, 0x34}, false, 0},
        {{0xF0, 0x15, 0x26, 0x01, 0x00, 0x01, 0xF0, 0x15, 0x26, 0x01, 0x09, 0x09, 0xF7}, true, 1},
        {{0x01, 0x60, 0xF0, 0x15, 0x26, 0x00, 0x02, 0x05, 0xF7}, false, 0},
        {{}, false, 0},
    };
    for (const auto& c : cases) {
        CVXDeviceLink link(nullptr, nullptr);
        EXPECT_EQ(link.ParseStatusMessage(c.bytes.data(), c.bytes.size()), c.found);
        EXPECT_EQ(link.HaveVXStatus(), c.found);
        EXPECT_EQ(link.FirmwareVers(), c.firmware);
    }
}

TEST_F(DeviceLinkTest, SilentDefaultIdentityIsLeftToTheSerialDriverUntilReplugged) {
    auto cable = mHost.MakeDevice(0x0403, 0x6001, 0x0600);
    mHost.Plug(cable);
    EXPECT_EQ(mDiagnostics.Take(),
              "Couldn't get response in 50 attempts and 25 passes\n"
              "FindInterface () - couldn't get vx status\n"
              "no surface answered on 0403:6001; left to the serial driver\n");
    Lines log = mUSB.Take();
    EXPECT_EQ(Lines(log.end() - 2, log.end()), (Lines{"release 0", "close"}));

    // Reported again (a second enumeration): not touched.
    mHost.Plug(cable);
    EXPECT_EQ(mUSB.Take(), Lines{});
    // A surface on the same identity still links meanwhile.
    auto surface = Surface(0x0403, 0x6001);
    mHost.Plug(surface);
    EXPECT_EQ(mLink.Interface(), surface);
    mHost.Unplug(surface);
    // Plugged in again: probed again.
    mHost.Unplug(cable);
    mUSB.Take();
    cable->AnswerStatus(kReply);
    mHost.Plug(cable);
    EXPECT_EQ(mLink.Interface(), cable);
}

TEST_F(DeviceLinkTest, ASecondDeviceWaitsWhileOneIsLinked) {
    auto first = Linked();
    auto second = Surface(0x0760, 0x0002);
    mHost.Plug(second);
    mHost.Plug(first);
    EXPECT_EQ(mUSB.Take(), Lines{});
    EXPECT_EQ(mLink.Interface(), first);
}

TEST_F(DeviceLinkTest, ReadCompletionProcessesGoodReadsAndEndsOnErrors) {
    struct {
        EVXTransferStatus status;
        bool processed;
    } const cases[] = {
        {kVXTransferCompleted, true}, {kVXTransferOverflow, true},   {kVXTransferError, false},
        {kVXTransferTimedOut, false}, {kVXTransferCancelled, false}, {kVXTransferStall, false},
        {kVXTransferNoDevice, false},
    };
    // Mute on strip 2, in one bridge packet.
    const Bytes read = {0x11, 0x60, 0xB2, 0x46, 0x7F};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        auto device = Linked();
        mOut.mEvents.clear();
        ASSERT_TRUE(device->CompleteRead(c.status, read));
        const std::vector<Bytes> records =
            c.processed ? std::vector<Bytes>{{4, 161, 2, 1}} : std::vector<Bytes>{};
        const Lines calls = c.processed ? Lines{"submit 81 4096"} : Lines{"release 0", "close"};
        EXPECT_EQ(mOut.Records(), records);
        EXPECT_EQ(mUSB.Take(), calls);
        EXPECT_EQ(mLink.Interface() != nullptr, c.processed);
        EXPECT_EQ(mDiagnostics.Take(), "");
        mHost.Unplug(device);
        mUSB.Take();
    }
}

TEST_F(DeviceLinkTest, FailedRepostEndsTheLinkAndOversizedReadsAreBounded) {
    auto device = Linked();
    mReadSizes.clear();
    ASSERT_TRUE(device->CompleteRead(kVXTransferCompleted, Bytes(5000, 0x11)));
    EXPECT_EQ(mReadSizes, std::vector<size_t>{4096});

    device->FailOn("submit", -4);
    ASSERT_TRUE(device->CompleteRead(kVXTransferCompleted, {0x11, 0x60}));
    EXPECT_EQ(mUSB.Take(), (Lines{"submit 81 4096", "submit 81 4096", "release 0", "close"}));
    EXPECT_EQ(mLink.Interface(), nullptr);
    EXPECT_EQ(mDiagnostics.Take(), "");
}

TEST_F(DeviceLinkTest, WritesGoOutInOrderThroughThePool) {
    const uint8_t led[] = {0xB0, 0x46, 0x7F};
    EXPECT_EQ(mLink.WriteAsync(led, sizeof led), kVXUSBErrorNoDevice);
    EXPECT_EQ(mDiagnostics.Take(), "Tried to write while mInterface == NULL!?\n");

    auto device = Linked();
    const uint8_t fader[] = {0xB3, 0x07, 0x7F, 0xB3, 0x27, 0x40};
    EXPECT_EQ(mLink.WriteAsync(led, sizeof led), 0);
    EXPECT_EQ(mLink.WriteAsync(fader, sizeof fader), 0);
    EXPECT_EQ(mUSB.Take(), (Lines{"bulk-out 02 B0 46 7F", "bulk-out 02 B3 07 7F B3 27 40"}));

    device->FailOn("bulk-out", -7, 1);
    EXPECT_EQ(mLink.WriteAsync(led, sizeof led), -7);
    EXPECT_EQ(mDiagnostics.Take(), "unable to do async bulk write (fffffff9)\n");

    // Longer than a buffer: what fits goes.
    Bytes big(5000, 0x55);
    EXPECT_EQ(mLink.WriteAsync(big.data(), big.size()), 0);
    Lines log = mUSB.Take();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[1].size(), std::string("bulk-out 02").size() + 3 * 4096);

    // Every buffer went back: the pool hands out its first one again.
    CWriteBuffer* first = mLink.WriteBuffers().GrabNext();
    CWriteBuffer* second = mLink.WriteBuffers().GrabNext();
    EXPECT_NE(first, second);
    mLink.WriteBuffers().PutBack(second);
    mLink.WriteBuffers().PutBack(first);
    EXPECT_EQ(mLink.WriteBuffers().GrabNext(), first);
}

TEST_F(DeviceLinkTest, StripStateIsWrittenAgainToAReturningSurface) {
    auto device = Linked();
    const Bytes writes[] = {
        {0xB3, 0x07, 0x7F, 0xB3, 0x27, 0x40},
        {0xB0, 0x46, 0x7F},
        {0xB0, 0x46, 0x00},              // the last state counts
        {0xB5, 0x07, 0x10, 0x27, 0x00},  // running status
        {0xF0, 0x07, 0x11, 0xF7},        // sysex data is no fader
        {0xB0, 0x4A, 0x7F},              // the touch sensor has no LED
        {0xC2, 0x07, 0xB2, 0x48, 0x7F},  // a program change, then Aux on strip 2
    };
    for (const Bytes& w : writes) mLink.WriteAsync(w.data(), w.size());
    mHost.Unplug(device);
    // Written while no surface is there: noted as well.
    const uint8_t select[] = {0xB1, 0x49, 0x7F};
    mLink.WriteAsync(select, sizeof select);
    mUSB.Take();

    mHost.Plug(device);
    Lines log = mUSB.Take();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2],
              "bulk-out 02 B0 46 00 B1 49 7F B2 48 7F B3 07 7F B3 27 40 B5 07 10 B5 27 00");
    EXPECT_EQ(log.back(), "submit 81 4096");
}

TEST_F(DeviceLinkTest, ADestroyedLinkIgnoresTheHostsCallbacks) {
    CEventLog usb;
    CFakeUSBHost host(usb);
    auto device = host.MakeDevice(0x0760, 0x0008);
    device->AnswerStatus(kReply);
    {
        CVXDeviceLink link(&host, nullptr);
        EXPECT_EQ(link.RegisterHotplug(), 0);
        host.Plug(device);
        EXPECT_TRUE(device->IsOpen());
    }
    EXPECT_FALSE(device->IsOpen());
    usb.Take();
    host.Unplug(device);
    host.Plug(device);
    EXPECT_EQ(usb.Take(), Lines{});
}

TEST(WriteBuffers, GrabNextMarksBusyAndReturnsTheLastWhenAllAreBusy) {
    CWriteBufferList list;
    std::vector<CWriteBuffer*> taken;
    for (size_t i = 0; i < CWriteBufferList::kCount; ++i) {
        taken.push_back(list.GrabNext());
        EXPECT_TRUE(taken.back()->IsBusy());
    }
    EXPECT_EQ(std::set<CWriteBuffer*>(taken.begin(), taken.end()).size(), 10u);
    EXPECT_EQ(list.GrabNext(), taken[9]);
    list.PutBack(taken[4]);
    EXPECT_FALSE(taken[4]->IsBusy());
    EXPECT_EQ(list.GrabNext(), taken[4]);

    // SetData clears what an earlier, longer message left.
    taken[0]->SetData(Bytes(10, 0xAA).data(), 10);
    const uint8_t two[] = {1, 2};
    taken[0]->SetData(two, 2);
    EXPECT_EQ(taken[0]->DataSize(), 2u);
    EXPECT_EQ(taken[0]->DataPtr()[2], 0);
}

TEST(BufferManager, HandsOutRecordsLastInFirstOut) {
    CBufferManager manager;
    std::vector<CFTDiBuffer*> all;
    while (CFTDiBuffer* b = manager.Allocate()) all.push_back(b);
    ASSERT_EQ(all.size(), 64u);
    for (uint16_t i = 0; i < 64; ++i) {
        EXPECT_EQ(all[i]->mIndex, i);
        EXPECT_TRUE(all[i]->mInUse);
    }
    manager.Release(all[5]);
    manager.Release(all[40]);
    manager.Release(all[40]);  // twice: ignored, the list stays a list
    EXPECT_FALSE(all[40]->mInUse);
    EXPECT_EQ(manager.Allocate(), all[40]);
    EXPECT_EQ(manager.Allocate(), all[5]);
    EXPECT_EQ(manager.Allocate(), nullptr);

    CFTDiBuffer stranger;
    stranger.mInUse = true;
    manager.Release(&stranger);
    EXPECT_EQ(manager.Allocate(), nullptr);
}

}  // namespace
