// What the desktop tests share: a private Xvfb server that the test starts and
// ends, an XInput2 client that sees the raw key, button and motion events the
// server receives (exactly what was injected, whoever has the focus), and a
// client that plays the window manager's part (windows with a WM_CLASS, the
// root window's _NET_ACTIVE_WINDOW). No gtest here: the end-to-end test uses
// it too.
#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XInput2.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

// `Xvfb -displayfd <fd> -screen 0 1280x1024x24 -nolisten tcp`: the server
// picks a free display number and writes it to the pipe once it accepts
// clients.
class CXvfb {
  public:
    CXvfb() = default;
    ~CXvfb() { Stop(); }
    CXvfb(const CXvfb&) = delete;
    CXvfb& operator=(const CXvfb&) = delete;

    bool Start() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) return false;
        const std::string fd = std::to_string(fds[1]);
        std::vector<std::string> command = {"Xvfb", "-displayfd",   fd,          "-screen",
                                            "0",    "1280x1024x24", "-nolisten", "tcp"};
        std::vector<char*> argv;
        for (auto& a : command) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // The write end stays open in the server (not close-on-exec there).
        posix_spawn_file_actions_adddup2(&actions, fds[1], fds[1]);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        const bool spawned = posix_spawnp(&mPid, "Xvfb", &actions, nullptr, argv.data(),
                                          CleanEnvironment().data()) == 0;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        if (!spawned) {
            mPid = 0;
            close(fds[0]);
            return false;
        }
        std::string number;
        char c;
        while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
        close(fds[0]);
        if (number.empty()) return false;
        mName = ":" + number;
        return true;
    }
    void Stop() {
        if (mPid <= 0) return;
        kill(mPid, SIGTERM);
        waitpid(mPid, nullptr, 0);
        mPid = 0;
    }
    // ":N"
    const std::string& Name() const { return mName; }

    // This process's environment less any preload (a sanitizer's, umockdev's):
    // the server and the tools are not what is tested.
    static std::vector<char*> CleanEnvironment() {
        std::vector<char*> envp;
        for (char** e = environ; *e; ++e) {
            if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0) envp.push_back(*e);
        }
        envp.push_back(nullptr);
        return envp;
    }

  private:
    pid_t mPid = 0;
    std::string mName;
};

// Raw input events of the master devices as lines: "key <X keycode> down|up",
// "button <n> down|up", "motion".
class CXInputObserver {
  public:
    explicit CXInputObserver(const std::string& inDisplay) {
        mDisplay = XOpenDisplay(inDisplay.c_str());
        if (!mDisplay) return;
        int event = 0, error = 0;
        int major = 2, minor = 0;
        if (!XQueryExtension(mDisplay, "XInputExtension", &mOpcode, &event, &error) ||
            XIQueryVersion(mDisplay, &major, &minor) != Success)
            return;
        unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
        // All in one selection: a second XISelectEvents would replace it.
        for (int type : {XI_RawKeyPress, XI_RawKeyRelease, XI_RawButtonPress, XI_RawButtonRelease,
                         XI_RawMotion})
            XISetMask(bits, type);
        XIEventMask mask{XIAllMasterDevices, sizeof bits, bits};
        XISelectEvents(mDisplay, DefaultRootWindow(mDisplay), &mask, 1);
        XSync(mDisplay, False);
        mValid = true;
    }
    ~CXInputObserver() {
        if (mDisplay) XCloseDisplay(mDisplay);
    }
    CXInputObserver(const CXInputObserver&) = delete;
    CXInputObserver& operator=(const CXInputObserver&) = delete;

    bool Valid() const { return mValid; }

    // What arrived up to now. The caller has made sure that the server has
    // handled the injecting client's requests (a round trip on its
    // connection); the server sent their events before it answers this
    // client's round trip here.
    std::vector<std::string> Take() {
        XSync(mDisplay, False);
        std::vector<std::string> lines;
        while (XPending(mDisplay) > 0) {
            XEvent event;
            XNextEvent(mDisplay, &event);
            XGenericEventCookie* cookie = &event.xcookie;
            if (cookie->type != GenericEvent || cookie->extension != mOpcode ||
                !XGetEventData(mDisplay, cookie))
                continue;
            const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
            switch (cookie->evtype) {
                case XI_RawKeyPress:
                case XI_RawKeyRelease:
                    lines.push_back("key " + std::to_string(raw->detail) +
                                    (cookie->evtype == XI_RawKeyPress ? " down" : " up"));
                    break;
                case XI_RawButtonPress:
                case XI_RawButtonRelease:
                    lines.push_back("button " + std::to_string(raw->detail) +
                                    (cookie->evtype == XI_RawButtonPress ? " down" : " up"));
                    break;
                case XI_RawMotion:
                    lines.push_back("motion");
                    break;
            }
            XFreeEventData(mDisplay, cookie);
        }
        return lines;
    }

    // Where the pointer is on the root window, as "x,y".
    std::string Pointer() {
        Window root, child;
        int x = 0, y = 0, wx, wy;
        unsigned mask;
        XQueryPointer(mDisplay, DefaultRootWindow(mDisplay), &root, &child, &x, &y, &wx, &wy,
                      &mask);
        return std::to_string(x) + "," + std::to_string(y);
    }

  private:
    Display* mDisplay = nullptr;
    int mOpcode = 0;
    bool mValid = false;
};

// Plays the window manager: windows with or without a WM_CLASS, and the root
// window's _NET_ACTIVE_WINDOW naming one of them.
class CXWindowManagerStandIn {
  public:
    explicit CXWindowManagerStandIn(const std::string& inDisplay) {
        mDisplay = XOpenDisplay(inDisplay.c_str());
        if (mDisplay) mActive = XInternAtom(mDisplay, "_NET_ACTIVE_WINDOW", False);
    }
    ~CXWindowManagerStandIn() {
        if (mDisplay) XCloseDisplay(mDisplay);
    }
    CXWindowManagerStandIn(const CXWindowManagerStandIn&) = delete;
    CXWindowManagerStandIn& operator=(const CXWindowManagerStandIn&) = delete;

    bool Valid() const { return mDisplay != nullptr; }
    Display* Native() const { return mDisplay; }

    // A window with WM_CLASS inInstance and inClass, or with none when both
    // are null; mapped when inMap (for a window manager to manage).
    Window NewWindow(const char* inInstance, const char* inClass, bool inMap = false) {
        Window window =
            XCreateSimpleWindow(mDisplay, DefaultRootWindow(mDisplay), 10, 10, 200, 100, 0, 0, 0);
        if (inInstance || inClass) {
            XClassHint hint{const_cast<char*>(inInstance), const_cast<char*>(inClass)};
            XSetClassHint(mDisplay, window, &hint);
        }
        if (inMap) XMapWindow(mDisplay, window);
        XSync(mDisplay, False);
        return window;
    }
    // WM_CLASS exactly as inBytes, NULs or none.
    void SetRawClass(Window inWindow, const std::string& inBytes) {
        XChangeProperty(mDisplay, inWindow, XA_WM_CLASS, XA_STRING, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(inBytes.data()),
                        static_cast<int>(inBytes.size()));
        XSync(mDisplay, False);
    }
    // Sets _NET_ACTIVE_WINDOW on the root window (None included).
    void Activate(Window inWindow) {
        const long value = static_cast<long>(inWindow);
        XChangeProperty(mDisplay, DefaultRootWindow(mDisplay), mActive, XA_WINDOW, 32,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(&value), 1);
        XSync(mDisplay, False);
    }
    void DeleteActive() {
        XDeleteProperty(mDisplay, DefaultRootWindow(mDisplay), mActive);
        XSync(mDisplay, False);
    }

  private:
    Display* mDisplay = nullptr;
    Atom mActive = None;
};

inline bool WaitUntil(const std::function<bool()>& inDone,
                      std::chrono::milliseconds inLimit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + inLimit;
    while (!inDone()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
