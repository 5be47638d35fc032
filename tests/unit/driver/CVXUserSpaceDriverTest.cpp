#include "driver/CVXUserSpaceDriver.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <optional>
#include <vector>

#include "platform/VXDiagnostics.h"
#include "service/CVXService.h"
#include "support/FakeUSB.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

// Every allocation of this test program goes through here; the host-MIDI test
// counts those made while it arms the counter.
namespace {
bool gCountAllocations = false;
size_t gAllocations = 0;
}  // namespace

// The replacements pair malloc with free themselves; the compiler, seeing
// free called where it inlined a delete of new's memory, would object.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t inSize) {
    if (gCountAllocations) ++gAllocations;
    if (void* memory = std::malloc(inSize ? inSize : 1)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* inMemory) noexcept {
    std::free(inMemory);
}
void operator delete(void* inMemory, std::size_t) noexcept {
    std::free(inMemory);
}
#pragma GCC diagnostic pop

namespace {

using Lines = std::vector<std::string>;

const std::vector<uint8_t> kReply = {0x01, 0x60, 0xF0, 0x15, 0x26, 0x01, 0x02, 0x05, 0xF7};

// A surface whose bulk writes, while mQuiet is set, land in a fixed buffer
// instead of the log, so that they allocate nothing.
class CQuietSurface : public CFakeUSBDevice {
  public:
    using CFakeUSBDevice::CFakeUSBDevice;
    int BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                  size_t& outTransferred, unsigned inTimeoutMillis) override {
        if (!mQuiet) {
            return CFakeUSBDevice::BulkWrite(inEndpoint, inData, inLength, outTransferred,
                                             inTimeoutMillis);
        }
        mLength = std::min(inLength, sizeof mBytes);
        std::copy(inData, inData + mLength, mBytes);
        outTransferred = inLength;
        return 0;
    }
    bool mQuiet = false;
    uint8_t mBytes[64] = {};
    size_t mLength = 0;
};

class UserSpaceDriverTest : public CVXPlatformTest {
  protected:
    // Empty preferences by default: the test does not read the user's file.
    std::unique_ptr<CVXUserSpaceDriver> MakeDriver(std::vector<uint8_t> inPrefs = {}) {
        return std::make_unique<CVXUserSpaceDriver>(&mHost, &mLoop, &mHostMIDI, std::move(inPrefs));
    }
    // A driver with a surface plugged in, its bring-up taken from the logs.
    std::unique_ptr<CVXUserSpaceDriver> MakeDriverWithSurface(
        std::vector<uint8_t> inPrefs = {}, std::shared_ptr<CFakeUSBDevice> inSurface = nullptr) {
        if (!inSurface) inSurface = mHost.MakeDevice(0x0760, 0x0008);
        inSurface->AnswerStatus(kReply);
        mHost.Plug(inSurface);
        auto driver = MakeDriver(std::move(inPrefs));
        mUSB.Take();
        mLog.Take();
        return driver;
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

// An emulated surface speaks first whenever its keyset becomes current, and
// the one that is current from the start (never made current) when the ports
// come up.
TEST_F(UserSpaceDriverTest, EmulatedSurfaceGreetsTheHostInFrontAndWhenThePortsComeUp) {
    const std::string query = "host F0 00 00 66 10 01 31 32 33 34 35 36 37 01 01 01 01 F7";
    const std::string signIn =
        "midi sign-in Velorix Series|Velorix USB MIDI Out|Velorix USB MIDI In";
    CVXKeysetStreamWriter w;
    w.FullSetHeader(2);
    AppendEmulationKeyset(w, 2);  // the fall-back
    AppendEmulationKeyset(w, 3);
    const std::vector<uint8_t> prefs = w.Take();

    auto driver = MakeDriver(prefs);
    EXPECT_EQ(mLog.Take(), (Lines{signIn, query}));
    mFrontApp.mSignature = FourCC("MODC");  // Mode C never opens
    mLoop.AdvanceBy(100000);
    EXPECT_EQ(driver->Service()->GetKeysetData()->GetCurrentKeysetIndex(), 1u);
    mFrontApp.mSignature = FourCC("????");
    mLoop.AdvanceBy(100000);
    EXPECT_EQ(mLog.Take(), Lines{query});

    // Without ports it has no one to speak to.
    driver.reset();
    mHostMIDI.mSignInStatus = -2;
    driver = MakeDriver(prefs);
    EXPECT_EQ(mLog.Take(), (Lines{"midi sign-out", signIn}));
}

// Host MIDI goes to the surface as one write per packet list; a list whose
// bytes would overrun the output is refused whole.
TEST_F(UserSpaceDriverTest, HostPacketListsBecomeOneWriteEachAndOversizedOnesAreRefused) {
    auto driver = MakeDriverWithSurface();
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

// Each packet goes through the current keyset's unmapper into the same one
// write: answered messages as their answers, the others as they are.
TEST_F(UserSpaceDriverTest, HostMIDIIsMappedPacketByPacketIntoOneWrite) {
    auto driver = MakeDriverWithSurface();
    CScriptedResponder mute({0x90, 0x10, 0x7F}, {0xB2, 0x46, 0x7F});  // default keyset's
    const uint8_t a[] = {0x90, 0x10, 0x7F}, b[] = {0xB0, 0x07};
    const SVXMIDIPacket two[] = {{a, sizeof a}, {b, sizeof b}};
    driver->DoMIDIReadProc(two);
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02 B2 46 7F B0 07"});

    // With no current keyset there is no unmapper: every packet goes as it is.
    CVX_KeysetData* data = driver->Service()->GetKeysetData();
    data->DeleteKeysetAt(0);
    ASSERT_EQ(CVX_KeysetData::GetCurrentMIDIUnmapper(), nullptr);
    driver->DoMIDIReadProc(two);
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02 90 10 7F B0 07"});
    EXPECT_EQ(mDiagnostics.Take(), "");
}

// The application in front picks the keyset for every packet list; its
// two-way fader actions answer from both of the unmapper's lists. Device
// bytes that would not fit the output refuse the whole list.
TEST_F(UserSpaceDriverTest, TwoWayKeysetMovesFadersAndItsAnswersAreBounded) {
    auto driver = MakeDriverWithSurface(MIDIKeysets());
    const uint8_t fader[] = {0xB2, 0x07, 0x40};
    const SVXMIDIPacket one[] = {{fader, sizeof fader}};
    driver->DoMIDIReadProc(one);
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02 B2 07 40"});  // '????' in front: Default
    mFrontApp.mSignature = FourCC("DAW1");
    driver->DoMIDIReadProc(one);
    EXPECT_EQ(mUSB.Take(), Lines{"bulk-out 02 B2 07 40 27 00 B2 07 40 27 00"});

    // 204 fader messages answer with 2040 bytes; 205 would need 2050.
    std::vector<uint8_t> many;
    for (int i = 0; i < 205; ++i) many.insert(many.end(), fader, fader + sizeof fader);
    const SVXMIDIPacket fits[] = {{many.data(), many.size() - 3}};
    const SVXMIDIPacket over[] = {{many.data(), many.size()}};
    driver->DoMIDIReadProc(fits);
    Lines written = mUSB.Take();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0].size(), std::string("bulk-out 02").size() + 3 * 2040);
    driver->DoMIDIReadProc(over);
    EXPECT_EQ(mUSB.Take(), Lines{});
    EXPECT_EQ(mDiagnostics.Take(), "host MIDI of more than 2048 bytes refused\n");
}

// From packet list to device bytes nothing is allocated: the output, the
// answers and the makers all live on the stack.
TEST_F(UserSpaceDriverTest, HostMIDIPathAllocatesNothing) {
    auto surface = std::make_shared<CQuietSurface>(mUSB, 0x0760, 0x0008, 0x0200);
    auto driver = MakeDriverWithSurface(MIDIKeysets(), surface);
    mFrontApp.mSignature = FourCC("DAW1");
    const uint8_t host[] = {0xBF, 0x07, 0x7F, 0x9F, 0x13, 0x7F, 0x90, 0x3C};
    const SVXMIDIPacket list[] = {{host, 3}, {host + 3, 5}};
    surface->mQuiet = true;
    gAllocations = 0;
    gCountAllocations = true;
    driver->DoMIDIReadProc(list);
    gCountAllocations = false;
    surface->mQuiet = false;
    EXPECT_EQ(gAllocations, 0u);
    EXPECT_EQ(HexBytes(surface->mBytes, surface->mLength),
              " BF 07 7F 27 00 BF 07 7F 27 00 BF 49 7F BF 49 7F 90 3C");
}

// The driver's 10 ms timer hands deferred MIDI to the host.
TEST_F(UserSpaceDriverTest, TimerDeliversDeferredMIDI) {
    auto driver = MakeDriver();
    mLog.Take();
    const uint8_t pair[] = {0xB0, 0x07, 0x10, 0xB0, 0x27, 0x00};
    CVX_MIDIResponderMixIn::DeferMessageToHost(pair, sizeof pair);
    CVX_MIDIResponderMixIn::DeferMessageToHost(pair, sizeof pair);
    mLoop.AdvanceBy(100000);  // the first firing
    EXPECT_EQ(mLog.Take(), Lines{"host B0 07 10 B0 27 00"});
    mLoop.AdvanceBy(10000);
    EXPECT_EQ(mLog.Take(), Lines{"host B0 07 10 B0 27 00"});
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
