// vxd as a user runs it: the binary in a child process, with its own
// configuration folder, against an FTDI-type bridge emulated in this process.
// The child runs under umockdev's preload library, which sends its USB ioctls
// here; so what the child does to the surface is what the emulator saw.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// Before Xlib (through XRig.h), whose macro Status would rename a member of
// the editor's handlers.
#include "integration/DBusRig.h"
#include "platform/CVXTextPlatform.h"
#include "platform/bus/CVXBusClient.h"

#include "integration/desktop/XRig.h"
#include "integration/midi/JackRig.h"
#include "integration/support/CEmulatedFTDI.h"
#include "model/CVXKeysetStreamWriter.h"
#include "support/MIDIKeysets.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Request = CEmulatedFTDI::SControlRequest;

const std::vector<Request>& kBridgeSetUp = CEmulatedFTDI::kSurfaceSetUp;

bool WaitFor(const std::function<bool()>& inDone, std::chrono::milliseconds inLimit) {
    const auto deadline = Clock::now() + inLimit;
    while (!inDone()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

constexpr std::chrono::seconds kBringUpLimit{10};  // generous: a loaded machine, sanitizers

class VxdEndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(mFtdi.Valid());
        char folder[] = "/tmp/vxd-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        mHome = folder;
        fs::create_directories(mHome / "velorix");
        fs::copy_file(fs::path(VX_SOURCE_DIR) / "examples/example.prefs",
                      mHome / "velorix/VX USB Prefs");
    }
    void TearDown() override {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
        if (HasFailure()) std::cout << "vxd printed:\n" << Log();
        fs::remove_all(mHome);
    }

    // Starts vxd with the emulator's testbed (UMOCKDEV_DIR is inherited) and
    // the temporary configuration folder; its output goes to a file.
    void Start() { mPid = Spawn({VXD_PATH}); }

    // inCommand under umockdev's preload, output to the log file.
    pid_t Spawn(std::vector<std::string> inCommand, const std::string& inOutput = "") const {
        // The configuration folder, the bus, the JACK server and the X
        // display the child may find are the test's own, or none: never ones
        // that happen to be there on this machine.
        std::vector<std::string> env =
            EnvironmentWithout({"XDG_CONFIG_HOME=", "LD_PRELOAD=", "JACK_DEFAULT_SERVER=",
                                "JACK_NO_START_SERVER=", "DISPLAY="});
        if (!mBusAddress.empty()) {
            std::erase_if(env, [](const std::string& e) {
                return e.starts_with("DBUS_SESSION_BUS_ADDRESS=");
            });
        }
        env.push_back("XDG_CONFIG_HOME=" + mHome.string());
        if (!mBusAddress.empty()) env.push_back("DBUS_SESSION_BUS_ADDRESS=" + mBusAddress);
        env.push_back("JACK_DEFAULT_SERVER=" + mJackServer);
        env.push_back("JACK_NO_START_SERVER=1");
        if (!mXDisplay.empty()) env.push_back("DISPLAY=" + mXDisplay);
        if (std::string(VX_ASAN_RUNTIME).empty()) {
            inCommand.insert(inCommand.begin(), VX_UMOCKDEV_WRAPPER);
        } else {
            // The sanitizer's runtime must be the first preloaded library,
            // which umockdev-wrapper would not keep: its preload spelled out.
            env.push_back(std::string("LD_PRELOAD=") + VX_ASAN_RUNTIME +
                          ":libumockdev-preload.so.0");
        }
        return SpawnProcess(inCommand, env, inOutput.empty() ? LogPath() : inOutput);
    }

    // The surface plugged, vxd started and linked to it, and its editor
    // interface answering inClient with the surface's status.
    void StartAnsweringTheEditor(CVXBusClient& inClient, VXAEParams& outReply) {
        ASSERT_TRUE(mFtdi.Plug());
        Start();
        ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit));
        ASSERT_TRUE(WaitFor([&] { return inClient.Event(VXTag("Stus"), {}, outReply) == 0; },
                            kBringUpLimit))
            << inClient.Error();
    }

    bool Running() { return mPid > 0 && waitpid(mPid, nullptr, WNOHANG) == 0; }

    // The exit status after SIGTERM, -1 when it did not exit in inLimit.
    int Terminate(std::chrono::milliseconds inLimit) {
        kill(mPid, SIGTERM);
        int status = 0;
        const bool exited =
            WaitFor([&] { return waitpid(mPid, &status, WNOHANG) == mPid; }, inLimit);
        if (!exited) return -1;
        mPid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // How many complete bridge set-ups the device has seen, and that nothing
    // else came between their requests.
    size_t SetUps() const {
        const std::vector<Request> seen = mFtdi.ControlRequests();
        size_t count = 0;
        for (size_t i = 0; i + kBridgeSetUp.size() <= seen.size(); ++i) {
            if (std::equal(kBridgeSetUp.begin(), kBridgeSetUp.end(), seen.begin() + long(i)))
                ++count;
        }
        return count;
    }
    size_t StatusRequests() const {
        const auto writes = mFtdi.BulkWrites();
        return size_t(std::count(writes.begin(), writes.end(), CEmulatedFTDI::kStatusRequest));
    }
    // Linked: set up inCount times, asked for its status as often, and a
    // read is waiting for the surface's next bytes.
    bool Linked(size_t inCount) const {
        return SetUps() == inCount && StatusRequests() == inCount && mFtdi.PendingReads() == 1;
    }

    // vxctl with inArgs, as the user's own process: its exit status, and what
    // it printed (standard output and error) in outText.
    int Vxctl(std::vector<std::string> inArgs, std::string& outText) const {
        const std::string output = (mHome / "vxctl.out").string();
        inArgs.insert(inArgs.begin(), VXCTL_PATH);
        const pid_t pid = Spawn(inArgs, output);
        int status = -1;
        if (waitpid(pid, &status, 0) != pid) return -1;
        std::ifstream in(output);
        std::stringstream text;
        text << in.rdbuf();
        outText = text.str();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string LogPath() const { return (mHome / "vxd.log").string(); }
    std::string Log() const {
        std::ifstream in(LogPath());
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    CEmulatedFTDI mFtdi;  // before any libusb starts, in this process or the child
    // A private session bus for each test: vxd takes its name there.
    CDBusDaemon mBus;
    std::string mBusAddress;  // set: the children's bus instead
    fs::path mHome;
    std::string mJackServer = NoJackServer();
    std::string mXDisplay;  // none unless a test starts one
    pid_t mPid = 0;
};

// What vxd says at start here: its MIDI system, the sequencer where this
// kernel has one (under umockdev's preload the child sees the same /dev as
// this test), else none, since no JACK server answers it but the test's own;
// without ports, the driver's sign-in failure.
// Then its desktop: without a display, uinput where it opens (this test runs
// as a user who may open it), else nothing, said with the reason.
std::string DesktopLinesWithoutDisplay() {
    const int fd = open("/dev/uinput", O_RDWR | O_CLOEXEC);
    if (fd >= 0) {
        close(fd);
        return "Desktop: input uinput, focus none\n";
    }
    return std::string("uinput: cannot open /dev/uinput (") + std::strerror(errno) +
           "): key and mouse actions reach nothing. Access comes from a udev rule such as "
           "KERNEL==\"uinput\", TAG+=\"uaccess\" (or the group that owns /dev/uinput); the "
           "device needs the uinput module.\n"
           "Desktop: input none, focus none\n";
}
const std::string kStartUpLines = access("/dev/snd/seq", F_OK) == 0
                                      ? "MIDI system: ALSA\n" + DesktopLinesWithoutDisplay()
                                      : "MIDI system: none\n" + DesktopLinesWithoutDisplay() +
                                            "MIDIClientCreate() returned -19\n";

TEST_F(VxdEndToEnd, TakesTheSurfaceLetsItGoOnUnplugTakesItAgainAndExitsZeroOnSigterm) {
    ASSERT_TRUE(mFtdi.Plug());
    Start();
    ASSERT_GT(mPid, 0);
    ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit))
        << SetUps() << " set-ups, " << StatusRequests() << " status requests, "
        << mFtdi.PendingReads() << " reads pending";

    // A fader move and a button press: each read is consumed, and the next
    // one is posted at once.
    mFtdi.QueueInput({0xB0, 0x00, 0x40, 0xB0, 0x20, 0x00, 0x90, 0x10, 0x7F, 0x90, 0x10, 0x00});
    EXPECT_TRUE(WaitFor([&] { return mFtdi.QueuedPackets() == 0 && mFtdi.PendingReads() == 1; },
                        kBringUpLimit));

    for (size_t round = 2; round <= 3; ++round) {
        mFtdi.Unplug();
        EXPECT_TRUE(WaitFor([&] { return mFtdi.PendingReads() == 0; }, kBringUpLimit));
        ASSERT_TRUE(Running()) << "vxd ended on an unplug";
        ASSERT_TRUE(mFtdi.Plug());
        ASSERT_TRUE(WaitFor([&] { return Linked(round); }, kBringUpLimit)) << "round " << round;
    }

    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    // A surface that answers gives nothing to report.
    EXPECT_EQ(Log(), kStartUpLines);
}

TEST_F(VxdEndToEnd, RunsWithoutASurfaceAndTakesOnePluggedLater) {
    Start();
    // Nothing to take, and nothing to complain about.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(Running());
    ASSERT_TRUE(mFtdi.Plug());
    ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit));
    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    EXPECT_EQ(Log(), kStartUpLines);
}

// On a JACK server (the test's private one) vxd publishes its two ports
// while it runs: a host application connected to them gets what the surface
// sends to hosts, and what the host sends reaches the surface, unchanged by
// keysets without MIDI actions.
TEST_F(VxdEndToEnd, PublishesItsPortsOnAJackServerAndCarriesMIDIBothWays) {
    if (access("/dev/snd/seq", F_OK) == 0) GTEST_SKIP() << "vxd takes this kernel's sequencer";
    CJackServer server("vx-e2e-" + std::to_string(getpid()));
    ASSERT_TRUE(server.Start());
    mJackServer = server.Name();
    // The keyset in front when no application is known emulates a Mode B
    // surface.
    {
        CVXKeysetStreamWriter w;
        w.FullSetHeader(1);
        AppendEmulationKeyset(w, 2);
        const std::vector<uint8_t> prefs = w.Take();
        std::ofstream(mHome / "velorix/VX USB Prefs", std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(prefs.data()), std::streamsize(prefs.size()));
    }
    ASSERT_TRUE(mFtdi.Plug());
    Start();
    ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit));

    CJackPeer host;
    ASSERT_TRUE(host.Open());
    const std::vector<std::string> ports = {"Velorix Series:Velorix USB MIDI Out",
                                            "Velorix Series:Velorix USB MIDI In"};
    ASSERT_TRUE(WaitFor([&] { return host.Ports("^Velorix Series:") == ports; }, kBringUpLimit));
    ASSERT_TRUE(host.Connect(ports[0].c_str(), ports[1].c_str()));

    // A transport button's machine-control message goes on to hosts as it is.
    const Bytes play = {0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7};
    mFtdi.SetModemStatus(0x11);
    mFtdi.QueueInput(play);
    std::vector<Bytes> received;
    ASSERT_TRUE(WaitFor(
        [&] {
            for (auto& e : host.Take()) received.push_back(std::move(e.bytes));
            return !received.empty();
        },
        kBringUpLimit));
    EXPECT_EQ(received, std::vector<Bytes>{play});

    // One cycle of host MIDI is one write to the surface.
    const size_t writes = mFtdi.BulkWrites().size();
    ASSERT_TRUE(host.SendCycle({{0x90, 0x3C, 0x7F}, {0xB2, 0x46, 0x7F}}));
    ASSERT_TRUE(WaitFor([&] { return mFtdi.BulkWrites().size() > writes; }, kBringUpLimit));
    EXPECT_EQ(mFtdi.BulkWrites().back(), (Bytes{0x90, 0x3C, 0x7F, 0xB2, 0x46, 0x7F}));

    // A host that speaks the emulated protocol gets its hand-shake.
    const Bytes deviceQuery = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x00, 0xF7};
    const Bytes reply = {0xF0, 0x00, 0x00, 0x66, 0x10, 0x02, 0x31, 0x32, 0x33,
                         0x34, 0x35, 0x36, 0x37, 0x01, 0x02, 0x03, 0x04, 0xF7};
    ASSERT_TRUE(host.SendCycle({deviceQuery}));
    ASSERT_TRUE(host.SendCycle({reply}));
    received.clear();
    ASSERT_TRUE(WaitFor(
        [&] {
            for (auto& e : host.Take()) received.push_back(std::move(e.bytes));
            return received.size() >= 2;
        },
        kBringUpLimit));
    EXPECT_EQ(received, (std::vector<Bytes>{{0xF0, 0x00, 0x00, 0x66, 0x10, 0x01, 0x31, 0x32, 0x33,
                                             0x34, 0x35, 0x36, 0x37, 0x01, 0x01, 0x01, 0x01, 0xF7},
                                            {0xF0, 0x00, 0x00, 0x66, 0x10, 0x03, 0x31, 0x32, 0x33,
                                             0x34, 0x35, 0x36, 0x37, 0xF7}}));

    // Ended, vxd takes its ports with it.
    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    EXPECT_EQ(host.Ports("^Velorix Series:"), std::vector<std::string>{});
    EXPECT_EQ(Log(), "MIDI system: JACK\n" + DesktopLinesWithoutDisplay());
}

// On an X server vxd takes XTest and the focus, and the keyset follows the
// window the window manager makes active: the Mixer keyset's Mute buttons
// send MIDI to the host, the DAW keyset's only notify their application.
TEST_F(VxdEndToEnd, TheKeysetFollowsTheFocusedWindowOnAnXServer) {
    if (access("/dev/snd/seq", F_OK) == 0) GTEST_SKIP() << "vxd takes this kernel's sequencer";
    CXvfb x;
    ASSERT_TRUE(x.Start());
    mXDisplay = x.Name();
    auto wm = std::make_unique<CXWindowManagerStandIn>(x.Name());
    ASSERT_TRUE(wm->Valid());
    std::ofstream(mHome / "velorix/applications") << "mixer-app MIX1\ndaw-app DAW1\n";
    CJackServer server("vx-e2e-x-" + std::to_string(getpid()));
    ASSERT_TRUE(server.Start());
    mJackServer = server.Name();
    ASSERT_TRUE(mFtdi.Plug());
    Start();
    ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit));
    CJackPeer host;
    ASSERT_TRUE(host.Open());
    ASSERT_TRUE(WaitFor([&] { return host.Ports("^Velorix Series:").size() == 2; }, kBringUpLimit));
    ASSERT_TRUE(
        host.Connect("Velorix Series:Velorix USB MIDI Out", "Velorix Series:Velorix USB MIDI In"));

    // Mute of strip 0 pressed and released, until the host hears of it (or
    // until it stops hearing of it): vxd takes the focus change in its own
    // time, and nothing outside it tells when.
    auto hostHearsMute = [&] {
        mFtdi.QueueInput({0xB0, 0x46, 0x7F, 0xB0, 0x46, 0x00});
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        for (const auto& e : host.Take()) {
            if (e.bytes == Bytes{0x90, 0x10, 0x7F}) return true;
        }
        return false;
    };
    auto eventually = [](const std::function<bool()>& inCheck) {
        for (int attempt = 0; attempt < 40; ++attempt) {
            if (inCheck()) return true;
        }
        return false;
    };
    wm->Activate(wm->NewWindow("mixer", "Mixer-App"));
    EXPECT_TRUE(eventually(hostHearsMute)) << "the Mixer keyset never became current";
    wm->Activate(wm->NewWindow("daw", "Daw-App"));
    EXPECT_TRUE(eventually([&] { return !hostHearsMute(); }))
        << "the DAW keyset never became current";
    EXPECT_FALSE(hostHearsMute());

    // The X server going away is said once; vxd runs on without a desktop.
    wm.reset();  // Xlib ends a process whose server is gone
    x.Stop();
    const std::string lost = "X display: connection lost; key, mouse and focus go nowhere now\n";
    EXPECT_TRUE(WaitFor([&] { return Log().find(lost) != std::string::npos; }, kBringUpLimit));
    EXPECT_FALSE(hostHearsMute());
    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    EXPECT_EQ(Log(), "MIDI system: JACK\nDesktop: input XTest, focus X11\n" + lost);
}

// vxctl focus prints the focus as it is, then each change, with the
// signature the applications file gives it.
TEST_F(VxdEndToEnd, VxctlFocusPrintsEachFocusedWindowAndItsSignature) {
    CXvfb x;
    ASSERT_TRUE(x.Start());
    mXDisplay = x.Name();
    CXWindowManagerStandIn wm(x.Name());
    ASSERT_TRUE(wm.Valid());
    std::ofstream(mHome / "velorix/applications") << "Mixer-App MIX1\n";
    const Window mixer = wm.NewWindow("mixer", "Mixer-App");
    const Window gedit = wm.NewWindow("gedit", "Gedit");
    const Window bare = wm.NewWindow(nullptr, nullptr);
    wm.Activate(mixer);
    const pid_t pid = Spawn({VXCTL_PATH, "focus", "--count", "3"});
    ASSERT_GT(pid, 0);
    // Each change is waited for: the tracker reads the property when told
    // it changed, so two quick changes may show as the last one alone.
    auto lines = [&] {
        const std::string log = Log();
        return std::count(log.begin(), log.end(), '\n');
    };
    ASSERT_TRUE(WaitFor([&] { return lines() == 1; }, kBringUpLimit));
    wm.Activate(mixer);  // a repeat: not a change
    wm.Activate(gedit);
    ASSERT_TRUE(WaitFor([&] { return lines() == 2; }, kBringUpLimit));
    wm.Activate(bare);
    int status = -1;
    ASSERT_TRUE(WaitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; }, kBringUpLimit));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    char id[3][16];
    const Window windows[3] = {mixer, gedit, bare};
    for (int i = 0; i < 3; ++i) std::snprintf(id[i], sizeof id[i], "0x%08lx", windows[i]);
    const std::string path = (mHome / "velorix/applications").string();
    EXPECT_EQ(Log(), std::string("window ") + id[0] +
                         " class \"Mixer-App\" instance \"mixer\" -> MIX1\n"
                         "window " +
                         id[1] +
                         " class \"Gedit\" instance \"gedit\" -> ???? (no "
                         "entry in " +
                         path +
                         ")\n"
                         "window " +
                         id[2] + " without WM_CLASS -> ????\n");
}

// vxctl devices names each plugged-in device of the listed identities and
// what vxd does with it, from the same rule the link applies.
struct SDevicesCase {
    const char* name;
    CEmulatedFTDI::SIdentity identity;
    const char* line;
    friend void PrintTo(const SDevicesCase& inCase, std::ostream* outTo) { *outTo << inCase.name; }
};

class VxctlDevices : public VxdEndToEnd, public ::testing::WithParamInterface<SDevicesCase> {};

TEST_P(VxctlDevices, ListsThePluggedInDeviceWithWhatVxdDoesWithIt) {
    mFtdi.SetIdentity(GetParam().identity);
    ASSERT_TRUE(mFtdi.Plug());
    const pid_t pid = Spawn({VXCTL_PATH, "devices"});
    ASSERT_GT(pid, 0);
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(Log(), std::string(GetParam().line) + "\n");
    EXPECT_TRUE(mFtdi.ControlRequests().empty()) << "listing touches no device";
}

INSTANTIATE_TEST_SUITE_P(
    Identities, VxctlDevices,
    ::testing::Values(
        SDevicesCase{"surface", {0x0760, 0x0008, 0x0200}, "0760:0008 release 2.00: taken by vxd"},
        SDevicesCase{
            "surfaceOtherModel", {0x0760, 0x0002, 0x0310}, "0760:0002 release 3.10: taken by vxd"},
        SDevicesCase{"bridgeDefault",
                     {0x0403, 0x6001, 0x0200},
                     "0403:6001 release 2.00: taken by vxd if a surface answers on it (a plain "
                     "serial adapter is left alone)"},
        SDevicesCase{"release1ff",
                     {0x0403, 0x6001, 0x01FF},
                     "0403:6001 release 1.ff: ignored by vxd: release before 2.00"},
        SDevicesCase{"unlisted",
                     {0x0403, 0x6010, 0x0200},
                     "no device with the surface's identities is plugged in"}),
    [](const auto& inInfo) { return std::string(inInfo.param.name); });

// A transport button's key action, which only the editor can assign, types
// into the X server: the editor's single-control update on the bus gives Play
// the space bar, and Play pressed on the surface presses it.
TEST_F(VxdEndToEnd, AKeyTheEditorGivesPlayIsTypedIntoTheXServer) {
    if (access("/dev/snd/seq", F_OK) == 0) GTEST_SKIP() << "vxd takes this kernel's sequencer";
    CXvfb x;
    ASSERT_TRUE(x.Start());
    mXDisplay = x.Name();
    CXInputObserver observer(x.Name());
    ASSERT_TRUE(observer.Valid());
    CVXBusClient client;
    VXAEParams reply;
    ASSERT_NO_FATAL_FAILURE(StartAnsweringTheEditor(client, reply));
    CVXKeysetStreamWriter w;
    w.ControlUpdateHeader(0, 0, kVXPlay).ButtonControl("Play", "Space", false, 1);
    w.KeyAction(kVXPlay, "Space", 49, ' ').SequenceFiller(1);
    std::vector<uint8_t> update = w.Take();
    const uint32_t size = static_cast<uint32_t>(update.size());
    ASSERT_EQ(client.Event(VXTag("QUpC"),
                           {{VXTag("QDSz"), size}, {VXTag("QCtD"), std::move(update)}}, reply),
              0)
        << client.Error();

    mFtdi.SetModemStatus(0x11);
    mFtdi.QueueInput({0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7});
    std::vector<std::string> typed;
    EXPECT_TRUE(WaitFor(
        [&] {
            for (std::string& line : observer.Take()) typed.push_back(std::move(line));
            return typed.size() >= 2;
        },
        kBringUpLimit));
    // The space bar (evdev 57, X keycode 65), pressed and let go.
    EXPECT_EQ(typed, (std::vector<std::string>{"key 65 down", "key 65 up"}));

    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    EXPECT_EQ(Log(),
              "MIDI system: none\nDesktop: input XTest, focus X11\n"
              "MIDIClientCreate() returned -19\n");
}

// The editor's commands reach vxd on the session bus: a fader command moves
// the emulated surface's motor fader, and vxctl reads the surface's status.
TEST_F(VxdEndToEnd, AnswersTheEditorOnTheSessionBus) {
    ASSERT_TRUE(mBus.Running());
    CVXBusClient client;
    VXAEParams reply;
    ASSERT_NO_FATAL_FAILURE(StartAnsweringTheEditor(client, reply));
    const size_t writes = mFtdi.BulkWrites().size();
    ASSERT_EQ(client.Event(VXTag("QSFd"), {{VXTag("Chnl"), 3u}, {VXTag("CVal"), 1020}}, reply), 0)
        << client.Error();
    ASSERT_TRUE(WaitFor([&] { return mFtdi.BulkWrites().size() > writes; }, kBringUpLimit));
    EXPECT_EQ(mFtdi.BulkWrites().back(), (Bytes{0xB3, 0x07, 0x7F, 0x27, 0x40}));

    std::string text;
    EXPECT_EQ(Vxctl({"status"}, text), 0);
    EXPECT_EQ(text, "status: 1 16 2 0 0 0 0\nchannel strips: 16\n");

    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    EXPECT_EQ(Log(), kStartUpLines);
}

// The user's transport-button assignments reach vxd after every start: the
// text keyset's Play notifies its application, which vxd learns only from
// `vxctl keyset sync` (the user unit's step after each start of vxd).
TEST_F(VxdEndToEnd, TransportButtonsOfTheUsersKeysetsReachVxdAfterEveryStart) {
    ASSERT_TRUE(mBus.Running());
    // The fall-back keyset, which is current while nothing says which
    // application is in front: installed, it replaces the example file's.
    std::ofstream(mHome / "sync.toml") << "[[keyset]]\nname = \"Default\"\nsignature = \"????\"\n"
                                          "[keyset.buttons.play]\n"
                                          "actions = [ { type = \"notify\" } ]\n";
    std::string text;
    ASSERT_EQ(Vxctl({"keyset", "install", (mHome / "sync.toml").string()}, text), 0) << text;
    ASSERT_EQ(Vxctl({"keyset", "sync", "--wait", "0.2"}, text), 1);
    EXPECT_EQ(text,
              "vxctl keyset sync: vxd is not running (no org.velorix.Driver on the session bus "
              "after 0.2 s): nothing sent\n");

    CVXBusClient client;
    std::vector<std::string> heard;
    ASSERT_EQ(client.Subscribe([&](const CVXBusClient::SSignal& inSignal) {
        heard.push_back(inSignal.control ? "control " + std::to_string(inSignal.controlNum) + " " +
                                               std::to_string(inSignal.value)
                                         : "application " + VXFourCCText(inSignal.signature) + " " +
                                               VXFourCCText(inSignal.eventID));
    }),
              0);
    // Play on the surface (a machine-control sysex), then Stop, and what the
    // bus said up to Stop's control event.
    auto pressPlay = [&] {
        heard.clear();
        mFtdi.SetModemStatus(0x11);
        mFtdi.QueueInput({0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7, 0xF0, 0x7F, 0x7F, 0x06, 0x01, 0xF7});
        EXPECT_TRUE(WaitFor(
            [&] {
                client.Wait(100000);
                return !heard.empty() && heard.back() == "control 2 1";
            },
            kBringUpLimit));
        return heard;
    };
    const std::vector<std::string> kSilent = {"control 3 1", "control 2 1"};
    const std::vector<std::string> kNotified = {"control 3 1", "application ???? QBtn",
                                                "control 2 1"};
    for (size_t start = 1; start <= 2; ++start) {
        SCOPED_TRACE(start == 1 ? "first start" : "after a restart");
        VXAEParams reply;
        if (start == 1) {
            ASSERT_NO_FATAL_FAILURE(StartAnsweringTheEditor(client, reply));
        } else {
            ASSERT_EQ(Terminate(std::chrono::seconds(1)), 0);
            Start();
            ASSERT_TRUE(WaitFor([&] { return Linked(2); }, kBringUpLimit));
            ASSERT_TRUE(WaitFor([&] { return client.Event(VXTag("Stus"), {}, reply) == 0; },
                                kBringUpLimit));
        }
        EXPECT_EQ(pressPlay(), kSilent);
        ASSERT_EQ(Vxctl({"keyset", "sync"}, text), 0) << text;
        EXPECT_EQ(text, "sent 15 transport-button records of 3 keysets to vxd\n");
        ASSERT_EQ(Vxctl({"keyset", "sync"}, text), 0) << text;  // as often as it runs
        EXPECT_EQ(pressPlay(), kNotified);
    }

    // Installed while vxd runs, a keyset is uploaded at once: the sync that
    // follows finds it there.
    const fs::path keysets = mHome / "velorix/keysets.toml";
    std::ofstream(mHome / "late.toml") << "[[keyset]]\nname = \"Late\"\nsignature = \"LATE\"\n";
    ASSERT_EQ(Vxctl({"keyset", "install", (mHome / "late.toml").string()}, text), 0) << text;
    EXPECT_EQ(text, "added keyset 3 \"Late\" (LATE)\nwrote " +
                        (mHome / "velorix/VX USB Prefs").string() + " and " + keysets.string() +
                        "\nsent 20 transport-button records of 4 keysets to vxd\n");
    // A keyset vxd does not hold is named; the others' buttons still go.
    std::ofstream(keysets, std::ios::app) << "[[keyset]]\nname = \"Later\"\nsignature = \"LAT2\"\n";
    ASSERT_EQ(Vxctl({"keyset", "sync"}, text), 1);
    EXPECT_EQ(text,
              "sent 20 transport-button records of 4 keysets to vxd\n"
              "vxctl keyset sync: keyset 4 \"Later\" (LAT2) is not in vxd, which holds 4 keysets: "
              "its buttons were not sent (restart vxd to load the file)\n");
    // A file with a mistake sends nothing: Play, a key in it, still notifies.
    std::ofstream(keysets)
        << "[[keyset]]\nname = \"Default\"\nsignature = \"????\"\n"
           "[keyset.buttons.play]\nactions = [ { type = \"key\", key = \"P\" } ]\n"
           "[keyset.buttons.stop]\nlatched = \"yes\"\n";
    ASSERT_EQ(Vxctl({"keyset", "sync"}, text), 1);
    EXPECT_EQ(text, "vxctl keyset sync: " + keysets.string() +
                        ":7:11: 'latched' must be true, false or a number (nothing sent)\n");
    EXPECT_EQ(pressPlay(), kNotified);
    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
}

TEST_F(VxdEndToEnd, WithoutASessionBusSaysSoInOneLineAndRunsOn) {
    mBusAddress = "unix:path=" + (mHome / "no-bus").string();
    ASSERT_TRUE(mFtdi.Plug());
    Start();
    ASSERT_TRUE(WaitFor([&] { return Linked(1); }, kBringUpLimit));
    EXPECT_EQ(Terminate(std::chrono::seconds(1)), 0);
    // After the MIDI system's and the desktop's lines, before the driver's own.
    std::string expected = kStartUpLines;
    const size_t driverLines = expected.find("MIDIClientCreate");
    expected.insert(driverLines == std::string::npos ? expected.size() : driverLines,
                    "D-Bus: no session bus (No such file or directory): no editor interface\n");
    EXPECT_EQ(Log(), expected);
}

}  // namespace
