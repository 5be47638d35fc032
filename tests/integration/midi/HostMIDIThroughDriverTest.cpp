// The whole way, on a real JACK server: a fader moved on the surface reaches
// a host application as its channel MIDI action's message, and what the host
// sends back comes out of the driver as the surface's own bytes. The driver is
// the real one, with its service and keysets on the real loop; only the
// surface is a scripted USB device, whose bulk writes are what it was sent.
#include <gtest/gtest.h>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/midi/JackRig.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXJackMIDI.h"
#include "support/FakeUSB.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

const std::vector<uint8_t> kReply = {0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};
using Lines = std::vector<std::string>;

class HostMIDIThroughDriver : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(SharedJackServer(), nullptr) << "jackd did not start";
        mFrontApp.mSignature = VXTag("DAW1");  // its keyset: two-way MIDI on every control
        mSurface = mUSBHost.MakeDevice(0x0760, 0x0008);
        mSurface->AnswerStatus(kReply);
        mUSBHost.Plug(mSurface);
        mDriver = std::make_unique<CVXUserSpaceDriver>(&mUSBHost, &mLoop, &mJack, MIDIKeysets());
        mPlatform.device = mDriver.get();
        mDriverScope = std::make_unique<CVXPlatformScope>(mPlatform);
        ASSERT_TRUE(mJack.Connected());
        ASSERT_TRUE(mPeer.Open());
        ASSERT_TRUE(mPeer.Connect(mJack.SourceName(), mJack.DestinationName()));
        const uint64_t now = mPeer.Cycles();
        ASSERT_TRUE(RunUntil(mLoop, [&] { return mPeer.Cycles() >= now + 2; }));
        mUSB.Take();  // the bring-up
    }
    void TearDown() override {
        mPeer.Close();
        mDriverScope.reset();
        mDriver.reset();
    }

    // The surface's bulk writes once inCount have come.
    Lines DeviceWrites(size_t inCount) {
        Lines writes;
        RunUntil(mLoop, [&] {
            for (std::string& line : mUSB.Take())
                if (line.rfind("bulk-out", 0) == 0) writes.push_back(std::move(line));
            return writes.size() >= inCount;
        });
        return writes;
    }

    CVXDiagnosticCapture mPrinted;
    CVXSdEventLoop mLoop;
    CVXJackMIDI mJack{mLoop};
    CFakeFrontApp mFrontApp;
    SVXPlatform mPlatform{.loop = &mLoop, .frontApp = &mFrontApp, .hostMIDI = &mJack};
    CVXPlatformScope mScope{mPlatform};
    CEventLog mUSB;
    CFakeUSBHost mUSBHost{mUSB};
    std::shared_ptr<CFakeUSBDevice> mSurface;
    std::unique_ptr<CVXUserSpaceDriver> mDriver;
    std::unique_ptr<CVXPlatformScope> mDriverScope;
    CJackPeer mPeer;
};

TEST_F(HostMIDIThroughDriver, AFaderMoveReachesTheHostAsItsChannelMIDIMessage) {
    // Fader 2 at 255 (B2 07 7F B2 27 40 from the surface): the two-way action
    // sends its template B2 07 FD with the position in 7 bits, 7F.
    ASSERT_TRUE(mSurface->CompleteRead(kVXTransferCompleted,
                                       {0x11, 0x60, 0xB2, 0x07, 0x7F, 0xB2, 0x27, 0x40}));
    std::vector<CJackPeer::SEvent> events;
    ASSERT_TRUE(RunUntil(mLoop, [&] {
        for (auto& e : mPeer.Take()) events.push_back(std::move(e));
        return !events.empty();
    }));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].bytes, (Bytes{0xB2, 0x07, 0x7F}));
}

TEST_F(HostMIDIThroughDriver, HostMIDIBecomesTheSurfacesBytesOneWritePerCycle) {
    // The fader's message comes back: its fader message, once for each list
    // the action is registered in; a note no responder claims goes as it is.
    ASSERT_TRUE(mPeer.SendCycle({{0xB2, 0x07, 0x40}, {0x91, 0x3C, 0x7F}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 B2 07 40 27 00 B2 07 40 27 00 91 3C 7F"});
    // Mute of strip 1 on: its LED, twice too.
    ASSERT_TRUE(mPeer.SendCycle({{0x91, 0x10, 0x7F}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 B1 46 7F B1 46 7F"});
    EXPECT_EQ(mPrinted.Take(), "");

    // Ten device bytes and a 2040-byte message overrun the 2048 bytes of one
    // write: the whole cycle is refused, and the next one goes through.
    Bytes sysex(2040, 0x33);
    sysex.front() = 0xF0;
    sysex.back() = 0xF7;
    ASSERT_TRUE(mPeer.SendCycle({{0xB2, 0x07, 0x40}, sysex}));
    ASSERT_TRUE(mPeer.SendCycle({{0x92, 0x3C, 0x00}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 92 3C 00"});
    EXPECT_EQ(mPrinted.Take(), "host MIDI of more than 2048 bytes refused\n");
}

}  // namespace
