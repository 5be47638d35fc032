// The keyset follows the focus: the X11 tracker on a real Xvfb server, with
// _NET_ACTIVE_WINDOW set by the test and by a real window manager, read by
// the real control service; and the applications file re-read as it changes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <systemd/sd-event.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "integration/desktop/XRig.h"
#include "model/CVX_KeysetData.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/desktop/CVXApplicationMapWatcher.h"
#include "platform/desktop/CVXX11FrontApp.h"
#include "platform/desktop/CVXXDisplay.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "service/CVXService.h"
#include "unit/service/ServiceTestSupport.h"

namespace {

namespace fs = std::filesystem;

// Runs the loop until inDone() holds; false after a generous 10 s.
bool RunUntil(CVXSdEventLoop& inLoop, const std::function<bool()>& inDone) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!inDone()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        sd_event_run(inLoop.Native(), 5000);
    }
    return true;
}

void WriteFile(const fs::path& inPath, const std::string& inText) {
    std::ofstream(inPath) << inText;
}

// The example keysets: 0 "Default", 1 "DAW" ('DAW1'), 2 "Mixer" ('MIX1').
constexpr uint32_t kDefault = 0, kDAW = 1, kMixer = 2;

class FocusFollowing : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(mServer.Start());
        mStandIn = std::make_unique<CXWindowManagerStandIn>(mServer.Name());
        ASSERT_TRUE(mStandIn->Valid());
        fs::create_directories(ConfigFolder());
        WriteFile(ConfigFolder() / "applications",
                  "# class or instance    signature\n"
                  "Daw-App                DAW1\n"
                  "mixer window           MIX1\n");
        std::ifstream prefs(fs::path(VX_SOURCE_DIR) / "examples/example.prefs", std::ios::binary);
        mService = std::make_unique<CVXService>(
            std::vector<uint8_t>(std::istreambuf_iterator<char>(prefs), {}));
        mDisplay = std::make_unique<CVXXDisplay>(mLoop, mServer.Name().c_str());
        ASSERT_TRUE(mDisplay->Valid());
        mApplications = std::make_unique<CVXApplicationMapWatcher>(mLoop);
        ASSERT_TRUE(mApplications->Watching());
        ASSERT_EQ(mApplications->Map().Size(), 2u);
        mTracker = std::make_unique<CVXX11FrontApp>(*mDisplay, mApplications->Map());
        ASSERT_TRUE(mTracker->Valid());
        mApplications->SetChangeHandler([this] { mTracker->MapChanged(); });
        mTracker->SetChangeHandler([this](const CVXX11FrontApp::SFocus&) { ++mChanges; });
        mScope = std::make_unique<CVXPlatformScope>(
            SVXPlatform{.loop = &mLoop, .frontApp = mTracker.get()});
    }

    fs::path ConfigFolder() const { return fs::path(mHome.Path()) / "velorix"; }
    // The keyset current after the service looked at the front application.
    uint32_t Current() {
        mService->CheckForProcessChange();
        return mService->GetKeysetData()->GetCurrentKeysetIndex();
    }
    // Names inWindow active and waits until the tracker has seen it.
    bool Focus(Window inWindow) {
        mStandIn->Activate(inWindow);
        return RunUntil(mLoop, [&] { return mTracker->Focus().window == inWindow; });
    }

    CXvfb mServer;
    std::unique_ptr<CXWindowManagerStandIn> mStandIn;
    ScopedConfigHome mHome;
    CVXSdEventLoop mLoop;
    std::unique_ptr<CVXService> mService;
    std::unique_ptr<CVXXDisplay> mDisplay;
    std::unique_ptr<CVXApplicationMapWatcher> mApplications;
    std::unique_ptr<CVXX11FrontApp> mTracker;
    std::unique_ptr<CVXPlatformScope> mScope;
    int mChanges = 0;
};

TEST_F(FocusFollowing, TheKeysetFollowsTheActiveWindowsClass) {
    // No window manager has named an active window yet: no focus at all, and
    // the keyset stays.
    uint32_t signature = 0;
    EXPECT_FALSE(mTracker->GetFrontSignature(signature));
    EXPECT_EQ(Current(), kDefault);

    const Window daw = mStandIn->NewWindow("daw", "Daw-App");
    const Window mixer = mStandIn->NewWindow("Mixer Window", "Mixer-App");  // matched by instance
    const Window editor = mStandIn->NewWindow("gedit", "Gedit");
    const Window bare = mStandIn->NewWindow(nullptr, nullptr);

    ASSERT_TRUE(Focus(daw));
    EXPECT_EQ(Current(), kDAW);
    ASSERT_TRUE(Focus(mixer));
    EXPECT_EQ(Current(), kMixer);
    EXPECT_EQ(mTracker->Focus().wmClass, "Mixer-App");
    EXPECT_EQ(mTracker->Focus().instance, "Mixer Window");
    // An application without an entry is '????', which has the default keyset.
    ASSERT_TRUE(Focus(editor));
    ASSERT_TRUE(mTracker->GetFrontSignature(signature));
    EXPECT_EQ(signature, CVXApplicationMap::kUnknownApplication);
    EXPECT_EQ(Current(), kDefault);
    ASSERT_TRUE(Focus(daw));
    EXPECT_EQ(Current(), kDAW);
    // A window without WM_CLASS is an application without an entry too.
    ASSERT_TRUE(Focus(bare));
    EXPECT_FALSE(mTracker->Focus().hasClass);
    EXPECT_EQ(Current(), kDefault);
    // Malformed ones, as any client may set: one name without its NUL (the
    // instance alone), and an empty property.
    const Window oneName = mStandIn->NewWindow(nullptr, nullptr);
    mStandIn->SetRawClass(oneName, "Daw-App");
    ASSERT_TRUE(Focus(oneName));
    EXPECT_EQ(mTracker->Focus().instance, "Daw-App");
    EXPECT_EQ(mTracker->Focus().wmClass, "");
    EXPECT_EQ(Current(), kDAW);
    const Window empty = mStandIn->NewWindow(nullptr, nullptr);
    mStandIn->SetRawClass(empty, "");
    ASSERT_TRUE(Focus(empty));
    EXPECT_TRUE(mTracker->Focus().hasClass);
    EXPECT_EQ(Current(), kDefault);

    // The same window named again (as window managers do) is no change: of
    // the three notifications below only the last one counts.
    ASSERT_TRUE(Focus(mixer));
    const int changes = mChanges;
    mStandIn->Activate(mixer);
    mStandIn->Activate(mixer);
    ASSERT_TRUE(Focus(daw));
    EXPECT_EQ(mChanges, changes + 1);
    EXPECT_EQ(Current(), kDAW);

    // None named, or no property at all: no focus information, nothing changes.
    mStandIn->Activate(None);
    ASSERT_TRUE(RunUntil(mLoop, [&] { return !mTracker->Focus().known; }));
    EXPECT_FALSE(mTracker->GetFrontSignature(signature));
    EXPECT_EQ(Current(), kDAW);
    ASSERT_TRUE(Focus(mixer));
    EXPECT_EQ(Current(), kMixer);
    mStandIn->DeleteActive();
    ASSERT_TRUE(RunUntil(mLoop, [&] { return !mTracker->Focus().known; }));
    EXPECT_EQ(Current(), kMixer);
}

TEST_F(FocusFollowing, AnApplicationAddedToTheFileTakesItsKeysetWithoutARestart) {
    const Window editor = mStandIn->NewWindow("gedit", "Gedit");
    ASSERT_TRUE(Focus(editor));
    EXPECT_EQ(Current(), kDefault);
    // Saved through a temporary file renamed into place, as editors do.
    CVXDiagnosticCapture diagnostics;
    WriteFile(ConfigFolder() / "applications.new",
              "Daw-App DAW1\n"
              "mixer window MIX1\n"
              "GEDIT   MIX1\n"
              "Audacity AUDACITY\n");
    fs::rename(ConfigFolder() / "applications.new", ConfigFolder() / "applications");
    ASSERT_TRUE(RunUntil(mLoop, [&] { return mApplications->Map().Size() == 3; }));
    EXPECT_EQ(Current(), kMixer);
    EXPECT_NE(diagnostics.Text().find("applications: line 4: "), std::string::npos)
        << diagnostics.Text();
    // Removed: every application is without an entry again.
    fs::remove(ConfigFolder() / "applications");
    ASSERT_TRUE(RunUntil(mLoop, [&] { return mApplications->Map().Size() == 0; }));
    EXPECT_EQ(Current(), kDefault);
}

TEST(ApplicationMapWatcher, AFolderCreatedLaterIsWatchedFromThen) {
    ScopedConfigHome home;
    CVXSdEventLoop loop;
    const fs::path folder = fs::path(home.Path()) / "velorix";
    CVXApplicationMapWatcher watcher(loop);
    ASSERT_TRUE(watcher.Watching()) << "waits in the folder above";
    int changes = 0;
    watcher.SetChangeHandler([&] { ++changes; });
    fs::create_directories(folder);
    ASSERT_TRUE(RunUntil(loop, [&] { return changes > 0; }));
    WriteFile(folder / "applications", "Ardour DAW1\n");
    ASSERT_TRUE(RunUntil(loop, [&] { return watcher.Map().Size() == 1; }));
    EXPECT_EQ(watcher.Map().SignatureFor("ardour"), 0x44415731u);  // 'DAW1'
}

// With a real window manager: matchbox makes the window it maps active and
// says so in _NET_ACTIVE_WINDOW, as any EWMH window manager does.
TEST_F(FocusFollowing, FollowsTheWindowThatARealWindowManagerActivates) {
    std::vector<std::string> command = {"matchbox-window-manager", "-display", mServer.Name(),
                                        "-use_titlebar", "no"};
    std::vector<char*> argv;
    for (auto& a : command) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t wm = 0;
    ASSERT_EQ(posix_spawnp(&wm, argv[0], &actions, nullptr, argv.data(),
                           CXvfb::CleanEnvironment().data()),
              0);
    posix_spawn_file_actions_destroy(&actions);

    // A window mapped before the manager runs would not be managed: wait
    // until it has taken the root window (it names its check window).
    Atom check = XInternAtom(mStandIn->Native(), "_NET_SUPPORTING_WM_CHECK", False);
    EXPECT_TRUE(WaitUntil([&] {
        Atom type;
        int format;
        unsigned long count = 0, after;
        unsigned char* data = nullptr;
        XGetWindowProperty(mStandIn->Native(), DefaultRootWindow(mStandIn->Native()), check, 0, 1,
                           False, AnyPropertyType, &type, &format, &count, &after, &data);
        if (data) XFree(data);
        return count > 0;
    }));
    const Window mixer = mStandIn->NewWindow("Mixer Window", "Mixer-App", true);
    EXPECT_TRUE(RunUntil(mLoop, [&] { return mTracker->Focus().window == mixer; }));
    EXPECT_EQ(Current(), kMixer);
    const Window daw = mStandIn->NewWindow("daw", "Daw-App", true);
    EXPECT_TRUE(RunUntil(mLoop, [&] { return mTracker->Focus().window == daw; }));
    EXPECT_EQ(Current(), kDAW);

    kill(wm, SIGTERM);
    waitpid(wm, nullptr, 0);
}

}  // namespace
