// Key and mouse input: the key table, the XTest poster against a real Xvfb
// server observed through XInput2 (driven by the real action classes), and
// the uinput poster through descriptors that stand in for its devices, and
// through real devices where this kernel has uinput.
#include <gtest/gtest.h>
#include <libevdev/libevdev.h>
#include <linux/input.h>
#include <xcb/xcb.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>

#include "actions/CVX_AppSpecificAction.h"
#include "actions/CVX_KeyAction.h"
#include "actions/CVX_MouseAction.h"
#include "integration/desktop/XRig.h"
#include "model/CVX_KeysetData.h"
#include "platform/SVXPlatform.h"
#include "platform/desktop/CVXUinputPoster.h"
#include "platform/desktop/CVXXDisplay.h"
#include "platform/desktop/CVXXTestPoster.h"
#include "platform/desktop/VXKeyTable.h"
#include "platform/loop/CVXSdEventLoop.h"

namespace {

using Lines = std::vector<std::string>;

// Every key the actions post by themselves (the modifiers, the shuttle and
// stop keys) and a sample of each kind, with the key at its place.
TEST(KeyTable, MapsTheActionsKeysAndEveryKindByPositionOnAUSKeyboard) {
    const std::map<uint16_t, const char*> expected = {
        {55, "KEY_LEFTMETA"},
        {56, "KEY_LEFTSHIFT"},
        {57, "KEY_CAPSLOCK"},
        {58, "KEY_LEFTALT"},
        {59, "KEY_LEFTCTRL"},
        // Shuttle keys: rewind 96, 118 (and the unreachable 99, 120, 122),
        // fast-forward 100, 101, 109, 103, 111; the stop key 40.
        {96, "KEY_F5"},
        {118, "KEY_F4"},
        {99, "KEY_F3"},
        {120, "KEY_F2"},
        {122, "KEY_F1"},
        {100, "KEY_F8"},
        {101, "KEY_F9"},
        {109, "KEY_F10"},
        {103, "KEY_F11"},
        {111, "KEY_F12"},
        {40, "KEY_K"},
        // Letters, digits and punctuation out of order on the original.
        {0, "KEY_A"},
        {12, "KEY_Q"},
        {13, "KEY_W"},
        {14, "KEY_E"},
        {16, "KEY_Y"},
        {17, "KEY_T"},
        {22, "KEY_6"},
        {23, "KEY_5"},
        {29, "KEY_0"},
        {30, "KEY_RIGHTBRACE"},
        {39, "KEY_APOSTROPHE"},
        {50, "KEY_GRAVE"},
        // Editing keys, arrows, keypad, far function keys.
        {36, "KEY_ENTER"},
        {49, "KEY_SPACE"},
        {51, "KEY_BACKSPACE"},
        {53, "KEY_ESC"},
        {117, "KEY_DELETE"},
        {114, "KEY_INSERT"},
        {115, "KEY_HOME"},
        {121, "KEY_PAGEDOWN"},
        {123, "KEY_LEFT"},
        {124, "KEY_RIGHT"},
        {125, "KEY_DOWN"},
        {126, "KEY_UP"},
        {76, "KEY_KPENTER"},
        {82, "KEY_KP0"},
        {92, "KEY_KP9"},
        {81, "KEY_KPEQUAL"},
        {105, "KEY_F13"},
        {90, "KEY_F20"}};
    for (const auto& [virtualKey, name] : expected) {
        const int code = VXEvdevCodeForVirtualKey(virtualKey);
        ASSERT_GE(code, 0) << virtualKey;
        EXPECT_STREQ(VXEvdevKeyName(uint16_t(code)), name) << virtualKey;
        EXPECT_EQ(VXXKeycodeForVirtualKey(virtualKey), code + 8) << virtualKey;
    }
    // The whole table: each virtual key once, each evdev key once, every X
    // keycode within 8 bits; and codes no key has post nothing.
    std::map<uint16_t, uint16_t> byEvdev;
    uint16_t previous = 0;
    for (const SVXKey& key : VXKeyTable()) {
        EXPECT_TRUE(byEvdev.emplace(key.evdevCode, key.virtualKey).second) << key.virtualKey;
        EXPECT_TRUE(key.virtualKey == 0 || key.virtualKey > previous) << "sorted, no repeats";
        previous = key.virtualKey;
        EXPECT_LE(key.evdevCode + kVXXKeycodeOffset, 255);
        EXPECT_STRNE(VXEvdevKeyName(key.evdevCode), "?");
    }
    EXPECT_GE(VXKeyTable().size(), 100u);
    for (int none : {52, 63, 66, 127, 128, 255, 256, 65535}) {
        EXPECT_EQ(VXEvdevCodeForVirtualKey(uint16_t(none)), -1) << none;
        EXPECT_EQ(VXXKeycodeForVirtualKey(uint16_t(none)), 0) << none;
    }
}

// X keycodes of the keys these tests post.
constexpr int kXMeta = 125 + 8, kXShift = 42 + 8, kXCapsLock = 58 + 8, kXAlt = 56 + 8,
              kXControl = 29 + 8, kXKeyA = 30 + 8, kXKeyK = 37 + 8, kXF9 = 67 + 8, kXF10 = 68 + 8;

std::string Key(int inKeycode, bool inDown) {
    return "key " + std::to_string(inKeycode) + (inDown ? " down" : " up");
}

// The XTest poster installed in the platform context, the keyset set for the
// latch and the master timer, and an observer on the same server.
class XTestActions : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(mServer.Start());
        mDisplay = std::make_unique<CVXXDisplay>(mLoop, mServer.Name().c_str());
        ASSERT_TRUE(mDisplay->Valid());
        ASSERT_TRUE(CVXXTestPoster::Offered(*mDisplay));
        mPoster = std::make_unique<CVXXTestPoster>(*mDisplay);
        mObserver = std::make_unique<CXInputObserver>(mServer.Name());
        ASSERT_TRUE(mObserver->Valid());
        mScope = std::make_unique<CVXPlatformScope>(
            SVXPlatform{.loop = &mLoop, .poster = mPoster.get()});
        mKeysets = std::make_unique<CVX_KeysetData>();
    }
    // What the server received from the poster since the last call.
    Lines Seen() {
        // A round trip on the poster's connection: its events are handled.
        free(xcb_get_input_focus_reply(mDisplay->Connection(),
                                       xcb_get_input_focus(mDisplay->Connection()), nullptr));
        return mObserver->Take();
    }
    static void Run(CVX_Action& inAction, int32_t inValue) {
        inAction.Execute(nullptr, 0, inValue, false);
    }

    CXvfb mServer;  // first in, last out: every client goes before it
    CVXSdEventLoop mLoop;
    std::unique_ptr<CVXXDisplay> mDisplay;
    std::unique_ptr<CVXXTestPoster> mPoster;
    std::unique_ptr<CXInputObserver> mObserver;
    std::unique_ptr<CVXPlatformScope> mScope;
    std::unique_ptr<CVX_KeysetData> mKeysets;
};

TEST_F(XTestActions, AllFiveModifiersGoDownInOrderAroundTheKeyAndUpInTheSameOrder) {
    CVX_ButtonKeyAction key(0, 0, "all", 0x1F00, 0 /* A */, 'a');
    Run(key, 1);
    const Lines expected = {Key(kXMeta, true),      Key(kXShift, true),   Key(kXCapsLock, true),
                            Key(kXAlt, true),       Key(kXControl, true), Key(kXKeyA, true),
                            Key(kXKeyA, false),     Key(kXMeta, false),   Key(kXShift, false),
                            Key(kXCapsLock, false), Key(kXAlt, false),    Key(kXControl, false)};
    EXPECT_EQ(Seen(), expected);
    Run(key, 0);  // the tap is whole at the press: the release posts nothing
    EXPECT_EQ(Seen(), Lines{});
}

TEST_F(XTestActions, AMouseActionHoldsShiftAndTheButtonAtItsPointUntilTheRelease) {
    CVX_ButtonMouseAction mouse(0, 0, "click", false, false, 0, 0, 0x0200, 200, 100, "");
    Run(mouse, 1);
    // Each of the press's two mouse events (the button up, then down) puts
    // the pointer at the point.
    EXPECT_EQ(Seen(), (Lines{Key(kXShift, true), "motion", "motion", "button 1 down"}));
    EXPECT_EQ(mObserver->Pointer(), "200,100");
    Run(mouse, 0);
    EXPECT_EQ(Seen(), (Lines{"motion", "button 1 up", Key(kXShift, false)}));
    EXPECT_EQ(mObserver->Pointer(), "200,100");
}

struct SShuttleCase {
    uint16_t speed;
    int keycode;
    friend void PrintTo(const SShuttleCase& inCase, std::ostream* outTo) {
        *outTo << "speed " << inCase.speed << ", X keycode " << inCase.keycode;
    }
};

class XTestShuttle : public XTestActions, public ::testing::WithParamInterface<SShuttleCase> {};

TEST_P(XTestShuttle, FastForwardHoldsControlAndItsKeyUntilTheSecondPressThenTypesStop) {
    CVX_FCP_FFwdAction shuttle(1, GetParam().speed, "ffwd");
    Run(shuttle, 1);
    EXPECT_EQ(Seen(), (Lines{Key(kXControl, true), Key(GetParam().keycode, true)}));
    Run(shuttle, 0);  // releases are ignored: the keys stay down
    EXPECT_EQ(Seen(), Lines{});
    Run(shuttle, 1);
    EXPECT_EQ(Seen(), (Lines{Key(GetParam().keycode, false), Key(kXControl, false),
                             Key(kXKeyK, true), Key(kXKeyK, false)}));
}

// Speed 60 is in the third band (52 to 77, key 109); 40 in the second (101).
INSTANTIATE_TEST_SUITE_P(Speeds, XTestShuttle,
                         ::testing::Values(SShuttleCase{60, kXF10}, SShuttleCase{40, kXF9}),
                         [](const auto& inInfo) {
                             return "speed" + std::to_string(inInfo.param.speed);
                         });

// The uinput poster's events, read back from the pipes it writes to.
class UinputPoster : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(pipe2(mKeyboard, O_NONBLOCK | O_CLOEXEC), 0);
        ASSERT_EQ(pipe2(mPointer, O_NONBLOCK | O_CLOEXEC), 0);
        mPoster = std::make_unique<CVXUinputPoster>(mKeyboard[1], mPointer[1],
                                                    SVXDesktopSize{1280, 1024});
    }
    void TearDown() override {
        for (int fd : {mKeyboard[0], mKeyboard[1], mPointer[0], mPointer[1]}) close(fd);
    }
    // "TYPE CODE value" for each event that arrived, by libevdev's names.
    static Lines Read(int inFd) {
        Lines lines;
        input_event event;
        while (read(inFd, &event, sizeof event) == sizeof event) {
            lines.push_back(std::string(libevdev_event_type_get_name(event.type)) + " " +
                            libevdev_event_code_get_name(event.type, event.code) + " " +
                            std::to_string(event.value));
        }
        return lines;
    }

    int mKeyboard[2] = {-1, -1};
    int mPointer[2] = {-1, -1};
    std::unique_ptr<CVXUinputPoster> mPoster;
};

TEST_F(UinputPoster, KeysAndTheAbsolutePointerAsInputEventReports) {
    mPoster->PostKeyboardEvent(0, 56, true);
    mPoster->PostKeyboardEvent('a', 0, true);
    mPoster->PostKeyboardEvent('a', 0, false);
    mPoster->PostKeyboardEvent(0, 52, true);  // no key there: nothing
    EXPECT_EQ(Read(mKeyboard[0]),
              (Lines{"EV_KEY KEY_LEFTSHIFT 1", "EV_SYN SYN_REPORT 0", "EV_KEY KEY_A 1",
                     "EV_SYN SYN_REPORT 0", "EV_KEY KEY_A 0", "EV_SYN SYN_REPORT 0"}));
    EXPECT_EQ(Read(mPointer[0]), Lines{});

    // A move with the button up, the press, and the release at the point:
    // the button is reported only when it changes.
    mPoster->PostMouseEvent(200, 100, false);
    mPoster->PostMouseEvent(200, 100, true);
    mPoster->PostMouseEvent(200, 100, false);
    const Lines move = {"EV_ABS ABS_X 200", "EV_ABS ABS_Y 100", "EV_SYN SYN_REPORT 0"};
    Lines expected = move;
    for (const char* button : {"EV_KEY BTN_LEFT 1", "EV_KEY BTN_LEFT 0"}) {
        expected.insert(expected.end(), move.begin(), move.end());
        expected.insert(expected.end(), {button, "EV_SYN SYN_REPORT 0"});
    }
    EXPECT_EQ(Read(mPointer[0]), expected);

    // Points off the desktop (left of it, beyond it) stop at its edges.
    mPoster->PostMouseEvent(-5, 5000, false);
    EXPECT_EQ(Read(mPointer[0]),
              (Lines{"EV_ABS ABS_X 0", "EV_ABS ABS_Y 1023", "EV_SYN SYN_REPORT 0"}));
}

TEST(UinputDesktopSize, AddsTheConnectedOutputsSideBySide) {
    namespace fs = std::filesystem;
    const fs::path drm = fs::temp_directory_path() / ("vx-drm-" + std::to_string(getpid()));
    auto output = [&](const char* inName, const char* inStatus, const char* inModes) {
        fs::create_directories(drm / inName);
        std::ofstream(drm / inName / "status") << inStatus << "\n";
        std::ofstream(drm / inName / "modes") << inModes;
    };
    EXPECT_EQ(CVXUinputPoster::ConnectedDesktopSize(drm.string()).width, 1920) << "no folder";
    output("card0-HDMI-A-1", "connected", "1920x1080\n1280x720\n");
    output("card0-DP-1", "connected", "2560x1440\n");
    output("card0-DP-2", "disconnected", "");
    output("card0-eDP-1", "connected", "");  // no modes: not counted
    const SVXDesktopSize size = CVXUinputPoster::ConnectedDesktopSize(drm.string());
    EXPECT_EQ(size.width, 1920 + 2560);
    EXPECT_EQ(size.height, 1440);
    fs::remove_all(drm);
}

// The devices themselves, where the kernel has uinput: what the poster posts
// comes out of their event nodes.
TEST(UinputDevices, PostedEventsComeOutOfTheDevicesNodes) {
    if (access("/dev/uinput", F_OK) != 0)
        GTEST_SKIP() << "this kernel has no /dev/uinput (module uinput not loaded)";
    int error = 0;
    auto poster = CVXUinputPoster::Open({1280, 1024}, &error);
    ASSERT_NE(poster, nullptr) << "cannot create the devices: " << std::strerror(-error);
    auto open = [](const char* inNode) {
        libevdev* device = nullptr;
        const int fd = inNode ? ::open(inNode, O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
        if (fd >= 0 && libevdev_new_from_fd(fd, &device) != 0) device = nullptr;
        return device;
    };
    libevdev* keyboard = open(poster->KeyboardNode());
    libevdev* pointer = open(poster->PointerNode());
    ASSERT_NE(keyboard, nullptr);
    ASSERT_NE(pointer, nullptr);
    EXPECT_STREQ(libevdev_get_name(keyboard), CVXUinputPoster::kKeyboardName);
    EXPECT_EQ(libevdev_get_abs_maximum(pointer, ABS_X), 1279);
    EXPECT_EQ(libevdev_get_abs_maximum(pointer, ABS_Y), 1023);

    poster->PostKeyboardEvent(0, 59, true);
    poster->PostKeyboardEvent(0, 59, false);
    poster->PostMouseEvent(200, 100, true);
    auto events = [](libevdev* inDevice) {
        Lines lines;
        input_event e;
        while (libevdev_next_event(inDevice, LIBEVDEV_READ_FLAG_NORMAL, &e) ==
               LIBEVDEV_READ_STATUS_SUCCESS) {
            if (e.type != EV_SYN)
                lines.push_back(std::string(libevdev_event_code_get_name(e.type, e.code)) + " " +
                                std::to_string(e.value));
        }
        return lines;
    };
    EXPECT_EQ(events(keyboard), (Lines{"KEY_LEFTCTRL 1", "KEY_LEFTCTRL 0"}));
    EXPECT_EQ(events(pointer), (Lines{"ABS_X 200", "ABS_Y 100", "BTN_LEFT 1"}));
    for (libevdev* device : {keyboard, pointer}) {
        close(libevdev_get_fd(device));
        libevdev_free(device);
    }
}

}  // namespace
