// The whole way, on a real JACK server: a fader moved on the surface reaches
// a host application as its channel MIDI action's message, or in the protocol
// of the surface that a keyset emulates, and what the host sends back (its
// own state, an emulation's hand-shake) comes out of the driver as the
// surface's own bytes and as the emulated surface's answers. The driver is
// the real one, with its service and keysets on the real loop; only the
// surface is a scripted USB device, whose bulk writes are what it was sent.
#include <gtest/gtest.h>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/midi/JackRig.h"
#include "model/CVX_Keyset.h"
#include "model/CVX_KeysetData.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXJackMIDI.h"
#include "service/CVXService.h"
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
        mDriver =
            std::make_unique<CVXUserSpaceDriver>(&mUSBHost, &mLoop, &mJack, EmulationKeysets(true));
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

    // Puts the application with inSignature in front and waits for the driver
    // to take its keyset.
    void Front(const char (&inSignature)[5]) {
        mFrontApp.mSignature = VXTag(inSignature);
        const CVX_KeysetData* data = mDriver->Service()->GetKeysetData();
        ASSERT_TRUE(RunUntil(
            mLoop, [&] { return data->GetCurrentKeyset()->GetSignature() == VXTag(inSignature); }));
    }
    // What the host received once inCount events have come.
    std::vector<Bytes> HostEvents(size_t inCount) {
        std::vector<Bytes> events;
        RunUntil(mLoop, [&] {
            for (auto& e : mPeer.Take()) events.push_back(std::move(e.bytes));
            return events.size() >= inCount;
        });
        return events;
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

TEST_F(HostMIDIThroughDriver, ModeBHostGetsTheHandShakeAndTheSurfaceInItsProtocol) {
    const Bytes query = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x01, 0x31, 0x32, 0x33,
                         0x34, 0x35, 0x36, 0x37, 0x01, 0x01, 0x01, 0x01, 0xF7};
    // Its keyset in front, the emulated surface speaks first.
    Front("MODB");
    EXPECT_EQ(HostEvents(1), std::vector<Bytes>{query});

    // The host's side of the hand-shake: each message is answered, and goes
    // on to the surface, which no action answers it for.
    const Bytes deviceQuery = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x00, 0xF7};
    const Bytes reply = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x02, 0x31, 0x32, 0x33,
                         0x34, 0x35, 0x36, 0x37, 0x11, 0x22, 0x33, 0x44, 0xF7};
    const Bytes version = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x13, 0x00, 0xF7};
    for (const Bytes& message : {deviceQuery, reply, version}) {
        ASSERT_TRUE(mPeer.SendCycle({message}));
    }
    EXPECT_EQ(
        HostEvents(3),
        (std::vector<Bytes>{
            query,
            {0xF0, 0x00, 0x00, 0x66, 0x10, 0x03, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0xF7},
            {0xF0, 0x00, 0x00, 0x66, 0x10, 0x14, 0x56, 0x32, 0x2E, 0x30, 0x30, 0xF7}}));
    EXPECT_EQ(DeviceWrites(3),
              (Lines{"bulk-out 02 F0 00 00 66 10 00 F7",
                     "bulk-out 02 F0 00 00 66 10 02 31 32 33 34 35 36 37 11 22 33 44 F7",
                     "bulk-out 02 F0 00 00 66 10 13 00 F7"}));

    // Fader 2 to 201 goes to the host as pitch bend; the host's pitch bend
    // and its Mute note for strip 3 come back as the surface's messages.
    ASSERT_TRUE(mSurface->CompleteRead(kVXTransferCompleted,
                                       {0x11, 0x60, 0xB2, 0x07, 0x64, 0xB2, 0x27, 0x40}));
    EXPECT_EQ(HostEvents(1), (std::vector<Bytes>{{0xE2, 0x40, 0x64}}));
    ASSERT_TRUE(mPeer.SendCycle({{0xE2, 0x40, 0x64}, {0x90, 0x13, 0x7F}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 B2 07 64 27 40 B3 46 7F"});
    EXPECT_EQ(mPrinted.Take(), "");
}

TEST_F(HostMIDIThroughDriver, ModeCHostGetsItsKeepAliveAnsweredAndUpdatesInTwoHalves) {
    Front("MODC");
    ASSERT_TRUE(mPeer.SendCycle({{0x90, 0x00, 0x00}}));
    EXPECT_EQ(HostEvents(1), (std::vector<Bytes>{{0x90, 0x00, 0x7F}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 90 00 00"});

    // Fader 0 to 201: the high half, then the low half, each its own message.
    ASSERT_TRUE(mSurface->CompleteRead(kVXTransferCompleted,
                                       {0x11, 0x60, 0xB0, 0x07, 0x64, 0xB0, 0x27, 0x40}));
    EXPECT_EQ(HostEvents(2), (std::vector<Bytes>{{0xB0, 0x00, 0x64}, {0xB0, 0x20, 0x40}}));

    // From the host, the halves arrive in one cycle or in two; a button's
    // state follows its zone message.
    ASSERT_TRUE(mPeer.SendCycle({{0xB0, 0x01, 0x30}, {0xB0, 0x21, 0x00}}));
    EXPECT_EQ(DeviceWrites(1), Lines{"bulk-out 02 B0 01 30 B1 07 30 27 00"});
    ASSERT_TRUE(mPeer.SendCycle({{0xB0, 0x0C, 0x02}}));
    ASSERT_TRUE(mPeer.SendCycle({{0xB0, 0x2C, 0x42}}));
    EXPECT_EQ(DeviceWrites(2), (Lines{"bulk-out 02 B0 0C 02", "bulk-out 02 B2 46 7F"}));
    EXPECT_EQ(mPrinted.Take(), "");
}

}  // namespace
