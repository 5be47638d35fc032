// The JACK backend against a real server: jackd on its dummy backend, started
// by this program, with a second client of the test's own as the host
// application. Also the choice of MIDI system, and `vxctl midi`, with and
// without a server.
#include <gtest/gtest.h>
#include <jack/jack.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/midi/JackRig.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXAlsaMIDI.h"
#include "platform/midi/CVXJackMIDI.h"
#include "platform/midi/VXMIDISystems.h"

namespace {

using List = std::vector<Bytes>;

constexpr const char* kClient = CVXUserSpaceDriver::kMIDIClientName;
constexpr const char* kSource = CVXUserSpaceDriver::kMIDISourceName;
constexpr const char* kDestination = CVXUserSpaceDriver::kMIDIDestinationName;

Bytes Sysex(size_t inLength, uint8_t inFill = 0x11) {
    Bytes b(inLength, inFill);
    b.front() = 0xF0;
    b.back() = 0xF7;
    return b;
}

// Keeps every packet list with the thread it came on.
struct SRecordingReceiver : CVXHostMIDIIn {
    void DoMIDIReadProc(std::span<const SVXMIDIPacket> inList) override {
        List list;
        for (const SVXMIDIPacket& p : inList) list.emplace_back(p.bytes, p.bytes + p.length);
        lists.push_back(std::move(list));
        threads.push_back(std::this_thread::get_id());
    }
    std::vector<List> lists;
    std::vector<std::thread::id> threads;
};

class JackMIDI : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mServer, nullptr) << "jackd did not start"; }

    // Signs the backend in with the driver's names and connects the peer
    // both ways; the connections are in place from the next cycle on.
    void Connect() {
        ASSERT_EQ(mJack.SignIn(kClient, kSource, kDestination, &mReceiver), 0);
        ASSERT_TRUE(mPeer.Open());
        ASSERT_TRUE(mPeer.Connect(mJack.SourceName(), mJack.DestinationName()));
        const uint64_t now = mPeer.Cycles();
        ASSERT_TRUE(RunUntil(mLoop, [&] { return mPeer.Cycles() >= now + 2; }));
    }
    // Runs the loop until the peer has inCount events; all it has then.
    std::vector<CJackPeer::SEvent> Receive(size_t inCount) {
        std::vector<CJackPeer::SEvent> events;
        RunUntil(mLoop, [&] {
            for (auto& e : mPeer.Take()) events.push_back(std::move(e));
            return events.size() >= inCount;
        });
        return events;
    }

    CJackServer* mServer = SharedJackServer();
    CVXDiagnosticCapture mPrinted;
    CVXSdEventLoop mLoop;
    CVXJackMIDI mJack{mLoop};
    CJackPeer mPeer;
    SRecordingReceiver mReceiver;
};

TEST_F(JackMIDI, SentMessagesReachTheHostByteExactInOrderOneEventEach) {
    Connect();
    const Bytes sysex = Sysex(300);
    const List sends = {{0xB2, 0x07, 0x7F},
                        {0x90, 0x3C, 0x7F, 0x3C, 0x00},  // running status
                        sysex,
                        {0xF8},
                        {0xB0, 0x07, 0x10, 0xB0, 0x27, 0x00}};
    for (const Bytes& s : sends) mJack.Send(s.data(), s.size());
    const List expected = {
        {0xB2, 0x07, 0x7F}, {0x90, 0x3C, 0x7F}, {0x90, 0x3C, 0x00}, sysex, {0xF8},
        {0xB0, 0x07, 0x10}, {0xB0, 0x27, 0x00}};
    const auto events = Receive(expected.size());
    List got;
    std::set<uint64_t> cycles;
    for (const auto& e : events) {
        got.push_back(e.bytes);
        cycles.insert(e.cycle);
    }
    EXPECT_EQ(got, expected);
    // Sent in one go, they share the next cycle, or at most two if a cycle
    // began while they were queued: never one cycle per message.
    EXPECT_LE(cycles.size(), 2u);
    EXPECT_EQ(mPeer.Lost(), 0u);
    EXPECT_EQ(mPrinted.Take(), "");
}

TEST_F(JackMIDI, EachCycleOfHostMIDIIsOnePacketListOnTheLoopThread) {
    Connect();
    const Bytes sysex = Sysex(1000, 0x22);
    ASSERT_TRUE(mPeer.SendCycle({{0x90, 0x3C, 0x7F}, {0xB2, 0x07, 0x40}, sysex}));
    ASSERT_TRUE(mPeer.SendCycle({{0x80, 0x3C, 0x00}}));
    ASSERT_TRUE(RunUntil(mLoop, [&] { return mReceiver.lists.size() >= 2; }));
    EXPECT_EQ(mReceiver.lists, (std::vector<List>{{{0x90, 0x3C, 0x7F}, {0xB2, 0x07, 0x40}, sysex},
                                                  {{0x80, 0x3C, 0x00}}}));
    for (std::thread::id t : mReceiver.threads) EXPECT_EQ(t, std::this_thread::get_id());
    // Cycles without host MIDI make no packet list at all.
    const uint64_t now = mPeer.Cycles();
    ASSERT_TRUE(RunUntil(mLoop, [&] { return mPeer.Cycles() >= now + 3; }));
    EXPECT_EQ(mReceiver.lists.size(), 2u);
}

TEST_F(JackMIDI, WhatCannotBeCarriedIsDroppedWithAMessageAndTheRestGoesOn) {
    Connect();
    // Larger than the ring: refused at once, on the loop.
    const Bytes huge = Sysex(CVXJackMIDI::kRingBytes + 10);
    mJack.Send(huge.data(), huge.size());
    EXPECT_EQ(mPrinted.Take(),
              "JACK: no room for 65546 bytes of MIDI to host applications: "
              "dropped\n");
    // In the ring but larger than any port buffer: dropped by the process
    // callback, which the loop reports; what follows it is not held up.
    const Bytes big = Sysex(CVXJackMIDI::kRingBytes / 2 + 100);
    const Bytes after = {0xB0, 0x07, 0x01};
    mJack.Send(big.data(), big.size());
    mJack.Send(after.data(), after.size());
    const auto events = Receive(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].bytes, after);
    RunUntil(mLoop, [&] { return !mPrinted.Text().empty(); });
    EXPECT_EQ(mPrinted.Take(),
              "JACK: 1 messages to host applications too large for a port: dropped\n");
}

// Physical and terminal: hosts that list only hardware MIDI ports offer them.
TEST_F(JackMIDI, PortsAreAHardwareDevicesAndGoAtSignOut) {
    Connect();
    const std::string out = std::string(kClient) + ":" + kSource;
    const std::string in = std::string(kClient) + ":" + kDestination;
    EXPECT_EQ(mPeer.Ports("^Velorix Series:"), (std::vector<std::string>{out, in}));
    const int flags = JackPortIsPhysical | JackPortIsTerminal;
    EXPECT_EQ(jack_port_flags(jack_port_by_name(mPeer.Native(), out.c_str())),
              JackPortIsOutput | flags);
    EXPECT_EQ(jack_port_flags(jack_port_by_name(mPeer.Native(), in.c_str())),
              JackPortIsInput | flags);
    // A second client under the same name is refused, leaving nothing.
    CVXJackMIDI second(mLoop);
    SRecordingReceiver other;
    EXPECT_EQ(second.SignIn(kClient, kSource, kDestination, &other), -EIO);
    EXPECT_EQ(mLoop.PendingWakeups(), 1u);

    mJack.SignOut();
    EXPECT_EQ(mPeer.Ports("^Velorix Series:"), std::vector<std::string>{});
    EXPECT_EQ(RunCommand({"jack_lsp"}, "/dev/null"), 0);
    EXPECT_EQ(mLoop.PendingWakeups(), 0u);
    EXPECT_FALSE(mJack.Connected());
    const uint8_t note[] = {0x90, 0x3C, 0x7F};
    mJack.Send(note, sizeof note);  // signed out: dropped quietly
    // And in again, as after a driver's restart.
    ASSERT_EQ(mJack.SignIn(kClient, kSource, kDestination, &mReceiver), 0);
    EXPECT_EQ(mPeer.Ports("^Velorix Series:").size(), 2u);
    EXPECT_EQ(mPrinted.Take(), "");
}

TEST_F(JackMIDI, WithoutAServerSignInFailsAndTheDriverSaysSo) {
    CJackServerScope nobody(NoJackServer());
    EXPECT_EQ(CVXJackMIDI::Probe(), -ECONNREFUSED);
    EXPECT_EQ(mJack.SignIn(kClient, kSource, kDestination, &mReceiver), -ECONNREFUSED);
    EXPECT_EQ(mLoop.PendingWakeups(), 0u);
    SVXPlatform platform{.loop = &mLoop, .hostMIDI = &mJack};
    CVXPlatformScope scope(platform);
    { CVXUserSpaceDriver driver(nullptr, &mLoop, &mJack, std::vector<uint8_t>{}); }
    EXPECT_EQ(mPrinted.Take(), "MIDIClientCreate() returned -111\n");
}

TEST_F(JackMIDI, AServerThatGoesAwayIsReportedOnceAndThePortsDropped) {
    CJackServer own("vx-test-gone-" + std::to_string(getpid()));
    ASSERT_TRUE(own.Start());
    ASSERT_EQ(mJack.SignIn(kClient, kSource, kDestination, &mReceiver), 0);
    own.Stop();
    ASSERT_TRUE(RunUntil(mLoop, [&] { return !mPrinted.Text().empty(); }));
    EXPECT_FALSE(mJack.Connected());
    const uint8_t note[] = {0x90, 0x3C, 0x7F};
    mJack.Send(note, sizeof note);
    sd_event_run(mLoop.Native(), 50000);
    EXPECT_EQ(mPrinted.Take(), "JACK server went away: MIDI ports gone\n");
    mJack.SignOut();
    EXPECT_EQ(mLoop.PendingWakeups(), 0u);
}

// ---------------------------------------------------------------------------
// Which system vxd takes, and what `vxctl midi` says about it

TEST_F(JackMIDI, VxdTakesTheSequencerElseAServerThatAnswersElseNone) {
    const bool alsa = CVXAlsaMIDI::Probe() == 0;
    auto system = VXOpenMIDISystem(mLoop);
    ASSERT_NE(system, nullptr);
    EXPECT_STREQ(system->Name(), alsa ? "ALSA" : "JACK");
    EXPECT_EQ(mPrinted.Take(), alsa ? "MIDI system: ALSA\n" : "MIDI system: JACK\n");
    const SVXMIDIOffer both = VXProbeMIDISystems(true);
    EXPECT_EQ(both.jack, 0);

    CJackServerScope nobody(NoJackServer());
    system = VXOpenMIDISystem(mLoop);
    EXPECT_EQ(system == nullptr, !alsa);
    EXPECT_EQ(mPrinted.Take(), alsa ? "MIDI system: ALSA\n" : "MIDI system: none\n");
    EXPECT_EQ(VXProbeMIDISystems(true).jack, -ECONNREFUSED);
}

std::string VxctlMidi(const std::vector<std::string>& inArgs, int& outStatus) {
    const std::string log = "/tmp/vxctl-midi-" + std::to_string(getpid()) + ".out";
    std::vector<std::string> command = {VXCTL_PATH, "midi"};
    command.insert(command.end(), inArgs.begin(), inArgs.end());
    outStatus = RunCommand(command, log);
    std::ifstream in(log);
    std::stringstream text;
    text << in.rdbuf();
    std::remove(log.c_str());
    return text.str();
}

TEST_F(JackMIDI, VxctlMidiListsTheSystemsTheChoiceAndThePorts) {
    if (CVXAlsaMIDI::Probe() == 0) GTEST_SKIP() << "this machine has an ALSA sequencer";
    int status = -1;
    EXPECT_EQ(VxctlMidi({}, status),
              "ALSA sequencer: not available (No such file or directory)\n"
              "JACK server \"" +
                  mServer->Name() +
                  "\": answering\n"
                  "vxd would use JACK, client \"Velorix Series\", with the ports\n"
                  "  Velorix Series:Velorix USB MIDI Out  (surface to host: hosts read it)\n"
                  "  Velorix Series:Velorix USB MIDI In  (host to surface: hosts write to it)\n");
    EXPECT_EQ(status, 0);
    {
        CJackServerScope nobody(NoJackServer());
        EXPECT_EQ(VxctlMidi({}, status),
                  "ALSA sequencer: not available (No such file or directory)\n"
                  "JACK server \"" +
                      NoJackServer() +
                      "\": not answering\n"
                      "vxd would run without MIDI ports\n");
        EXPECT_EQ(status, 0);
    }
    VxctlMidi({"extra"}, status);
    EXPECT_EQ(status, 2);
}

}  // namespace
