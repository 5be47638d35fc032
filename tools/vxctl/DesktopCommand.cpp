#include "DesktopCommand.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "platform/CVXTextPlatform.h"
#include "platform/desktop/CVXApplicationMapWatcher.h"
#include "platform/desktop/CVXX11FrontApp.h"
#include "platform/desktop/CVXXDisplay.h"
#include "platform/desktop/VXKeyTable.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "text/VXKeyNames.h"

namespace vxctl {

namespace {

int FocusUsage() {
    std::cerr << "usage: vxctl focus [--count N]\n"
                 "  follows the focus on the X display and prints, for each change, the\n"
                 "  window's WM_CLASS class and instance and the signature that the\n"
                 "  applications file gives it; ends on Ctrl-C, or after N changes.\n";
    return 2;
}

void PrintFocus(const CVXX11FrontApp::SFocus& inFocus, const std::string& inMapPath) {
    if (!inFocus.known) {
        std::printf("no active window: the keyset stays as it is\n");
    } else if (!inFocus.hasClass) {
        std::printf("window 0x%08x without WM_CLASS -> %s\n", inFocus.window,
                    VXFourCCText(inFocus.signature).c_str());
    } else {
        std::printf("window 0x%08x class \"%s\" instance \"%s\" -> %s%s\n", inFocus.window,
                    inFocus.wmClass.c_str(), inFocus.instance.c_str(),
                    VXFourCCText(inFocus.signature).c_str(),
                    inFocus.signature == CVXApplicationMap::kUnknownApplication
                        ? (" (no entry in " + inMapPath + ")").c_str()
                        : "");
    }
    std::fflush(stdout);
}

}  // namespace

int RunFocus(const std::vector<std::string>& inArgs) {
    long count = 0;  // 0: until a signal
    if (inArgs.size() == 2 && inArgs[0] == "--count") {
        char* end = nullptr;
        count = std::strtol(inArgs[1].c_str(), &end, 10);
        if (*end != '\0' || count <= 0) return FocusUsage();
    } else if (!inArgs.empty()) {
        return FocusUsage();
    }

    CVXSdEventLoop loop;
    if (!loop.Valid()) return 1;
    CVXXDisplay display(loop);
    if (!display.Valid()) {
        const char* name = std::getenv("DISPLAY");
        std::fprintf(stderr, "vxctl focus: cannot open the X display \"%s\"\n", name ? name : "");
        return 1;
    }
    CVXApplicationMapWatcher applications(loop);
    CVXX11FrontApp tracker(display, applications.Map());
    if (!tracker.Valid()) {
        std::fprintf(stderr, "vxctl focus: the X display does not answer\n");
        return 1;
    }
    long seen = 0;
    const std::string path = applications.Path();
    auto show = [&](const CVXX11FrontApp::SFocus& inFocus) {
        PrintFocus(inFocus, path);
        if (count > 0 && ++seen >= count) loop.Exit(0);
    };
    // The focus as it is now counts as the first change.
    show(tracker.Focus());
    if (count > 0 && seen >= count) return 0;
    applications.SetChangeHandler([&] { tracker.MapChanged(); });
    tracker.SetChangeHandler(show);
    return loop.Run() < 0 ? 1 : 0;
}

int RunKeys(const std::vector<std::string>& inArgs) {
    if (!inArgs.empty()) {
        std::cerr << "usage: vxctl keys\n"
                     "  prints the key table: each virtual key code of the keysets, its name in\n"
                     "  keyset text, the Linux input key at its place on a US keyboard, and its\n"
                     "  X keycode.\n";
        return 2;
    }
    std::printf("virtual  name          evdev              X keycode\n");
    for (const SVXKey& key : VXKeyTable()) {
        const char* name = VXKeyName(static_cast<uint8_t>(key.virtualKey));
        std::printf("%7u  %-12s  %-17s  %9u\n", key.virtualKey, name ? name : "-",
                    VXEvdevKeyName(key.evdevCode), VXXKeycodeForVirtualKey(key.virtualKey));
    }
    return 0;
}

}  // namespace vxctl
