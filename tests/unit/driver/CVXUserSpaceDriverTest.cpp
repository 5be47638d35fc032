#include "driver/CVXUserSpaceDriver.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "platform/VXDiagnostics.h"
#include "service/CVXService.h"
#include "support/FakeUSB.h"
#include "support/PlatformFakes.h"

namespace {

using Lines = std::vector<std::string>;

const std::vector<uint8_t> kReply = {0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};

class UserSpaceDriverTest : public CVXPlatformTest {
  protected:
    std::unique_ptr<CVXUserSpaceDriver> MakeDriver() {
        // Empty preferences: the test does not read the user's file.
        return std::make_unique<CVXUserSpaceDriver>(&mHost, &mLoop, &mHostMIDI,
                                                    std::vector<uint8_t>{});
    }

    CVXDiagnosticCapture mDiagnostics;
    CEventLog mUSB;
    CFakeUSBHost mHost{mUSB};
};

TEST_F(UserSpaceDriverTest, BringsUpPresentSurfacesAndFeedsTheService) {
    auto surface = mHost.MakeDevice(0x0760, 0x0002);
    surface->AnswerStatus(kReply);
    mHost.Plug(surface);
    auto driver = MakeDriver();
    EXPECT_EQ(CVXUserSpaceDriver::GetVXDriver(), driver.get());
    ASSERT_NE(driver->Service(), nullptr);

    Lines log = mUSB.Take();
    ASSERT_GE(log.size(), 3u);
    // One registration per row, in row order; the present surface arrives
    // within its row's registration.
    EXPECT_EQ(log[0], "hotplug 0760:0008");
    EXPECT_EQ(log[1], "hotplug 0760:0002");
    EXPECT_EQ(log[2], "open");
    EXPECT_EQ(log.back(), "hotplug 0403:6001");
    EXPECT_EQ(driver->Link().Interface(), surface);

    // Every record the service gets makes it look at the front application.
    const int before = mFrontApp.mQueries;
    ASSERT_TRUE(surface->CompleteRead(kVXTransferCompleted, {0x11, 0x60, 0xB2, 0x46, 0x7F}));
    EXPECT_EQ(mFrontApp.mQueries, before + 1);

    const uint8_t led[] = {0xB2, 0x46, 0x00};
    EXPECT_EQ(driver->WriteAsync(led, sizeof led), 0);
    EXPECT_EQ(mUSB.Take(), (Lines{"submit 81 4096", "bulk-out 02 B2 46 00"}));

    driver.reset();
    EXPECT_EQ(CVXUserSpaceDriver::GetVXDriver(), nullptr);
    EXPECT_EQ(CVXService::GetVXService(), nullptr);
    EXPECT_FALSE(surface->IsOpen());
}

TEST_F(UserSpaceDriverTest, PollsTheFrontApplicationAtMostEveryTenthOfASecond) {
    auto driver = MakeDriver();
    const int start = mFrontApp.mQueries;
    mLoop.AdvanceBy(99999);
    EXPECT_EQ(mFrontApp.mQueries, start);
    mLoop.AdvanceBy(1);  // the first firing, 0.1 s after start
    EXPECT_EQ(mFrontApp.mQueries, start + 1);
    // A second of 10 ms firings: ten polls, one per tenth.
    mLoop.AdvanceBy(1000000);
    EXPECT_EQ(mFrontApp.mQueries, start + 11);

    // The driver's timer and the service's master timer go with it.
    driver.reset();
    EXPECT_EQ(mLoop.PendingTimers(), 0u);
    mLoop.AdvanceBy(1000000);
    EXPECT_EQ(mFrontApp.mQueries, start + 11);
}

TEST_F(UserSpaceDriverTest, SignsInToMIDIWithTheDriverAndOutWhenItGoes) {
    auto driver = MakeDriver();
    EXPECT_EQ(mLog.Take(),
              Lines{"midi sign-in Velorix Series|Velorix USB MIDI Out|Velorix USB MIDI In"});
    EXPECT_EQ(mHostMIDI.mReceiver, driver.get());
    driver.reset();
    EXPECT_EQ(mLog.Take(), Lines{"midi sign-out"});
    EXPECT_EQ(mDiagnostics.Take(), "");

    // A failed sign-in, or no MIDI system at all, is reported and the driver
    // runs on without ports (and never signs out).
    mHostMIDI.mSignInStatus = -2;
    driver = MakeDriver();
    driver.reset();
    driver = std::make_unique<CVXUserSpaceDriver>(&mHost, &mLoop, nullptr, std::vector<uint8_t>{});
    EXPECT_NE(driver->Service(), nullptr);
    driver.reset();
    EXPECT_EQ(mLog.Take(),
              Lines{"midi sign-in Velorix Series|Velorix USB MIDI Out|Velorix USB MIDI In"});
    EXPECT_EQ(mDiagnostics.Take(),
              "MIDIClientCreate() returned -2\n"
              "MIDIClientCreate() returned -19\n");
}

// Host MIDI goes to the surface as one write per packet list; a list whose
// bytes would overrun the output is refused whole.
TEST_F(UserSpaceDriverTest, HostPacketListsBecomeOneWriteEachAndOversizedOnesAreRefused) {
    auto surface = mHost.MakeDevice(0x0760, 0x0008);
    surface->AnswerStatus(kReply);
    mHost.Plug(surface);
    auto driver = MakeDriver();
    mUSB.Take();
    const uint8_t a[] = {0xB0, 0x07, 0x40}, b[] = {0x90, 0x10};
    const SVXMIDIPacket two[] = {{a, sizeof a}, {b, sizeof b}};
    driver->DoMIDIReadProc(two);
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02 B0 07 40 90 10"});

    driver->DoMIDIReadProc({});
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02"});
    EXPECT_EQ(mDiagnostics.Take(), "bufsize == 0\n");

    const std::vector<uint8_t> big(CVXUserSpaceDriver::kMIDIOutputSize, 0xF8);
    const SVXMIDIPacket fits[] = {{big.data(), big.size()}};
    const SVXMIDIPacket over[] = {{a, sizeof a}, {big.data(), big.size()}};
    driver->DoMIDIReadProc(fits);
    EXPECT_EQ(mUSB.Take().size(), 1u);
    driver->DoMIDIReadProc(over);
    EXPECT_EQ(mUSB.Take(), Lines{});
    EXPECT_EQ(mDiagnostics.Take(), "host MIDI of more than 2048 bytes refused\n");
}

TEST_F(UserSpaceDriverTest, ToolDriverHasNoDeviceAndSaysSoOnWrite) {
    CVXUserSpaceDriver driver(static_cast<CVXRecordSink*>(nullptr), &mHostMIDI);
    const uint8_t led[] = {0xB0, 0x46, 0x7F};
    EXPECT_EQ(driver.WriteAsync(led, sizeof led), kVXUSBErrorNoDevice);
    EXPECT_EQ(mDiagnostics.Take(), "Tried to write while mInterface == NULL!?\n");
    EXPECT_EQ(mLoop.PendingTimers(), 0u);
    EXPECT_EQ(mUSB.Take(), Lines{});
}

}  // namespace
