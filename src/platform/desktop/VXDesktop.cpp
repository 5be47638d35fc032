#include "platform/desktop/VXDesktop.h"

#include <cstring>

#include "platform/VXDiagnostics.h"
#include "platform/desktop/CVXUinputPoster.h"
#include "platform/desktop/CVXXTestPoster.h"

SVXDesktop::~SVXDesktop() {
    poster.reset();
    tracker.reset();
    display.reset();
}

SVXDesktop VXOpenDesktop(CVXEventLoop& inLoop) {
    SVXDesktop desktop;
    // The applications file serves every source of the focus, a focus helper
    // on the bus included, with or without a display.
    desktop.applications = std::make_unique<CVXApplicationMapWatcher>(inLoop);
    auto display = std::make_unique<CVXXDisplay>(inLoop);
    if (display->Valid()) {
        desktop.display = std::move(display);
        auto tracker =
            std::make_unique<CVXX11FrontApp>(*desktop.display, desktop.applications->Map());
        if (tracker->Valid()) {
            desktop.applications->SetChangeHandler([t = tracker.get()] { t->MapChanged(); });
            desktop.tracker = std::move(tracker);
            desktop.focusName = "X11";
        }
        if (CVXXTestPoster::Offered(*desktop.display)) {
            desktop.poster = std::make_unique<CVXXTestPoster>(*desktop.display);
            desktop.inputName = "XTest";
        }
    }
    if (!desktop.poster) {
        int error = 0;
        desktop.poster = CVXUinputPoster::Open(CVXUinputPoster::ConnectedDesktopSize(), &error);
        if (desktop.poster) {
            desktop.inputName = "uinput";
        } else {
            VXDiagnostic(
                "uinput: cannot open /dev/uinput (%s): key and mouse actions reach nothing. "
                "Access comes from a udev rule such as KERNEL==\"uinput\", TAG+=\"uaccess\" "
                "(or the group that owns /dev/uinput); the device needs the uinput module.\n",
                std::strerror(-error));
        }
    }
    VXDiagnostic("Desktop: input %s, focus %s\n", desktop.inputName, desktop.focusName);
    return desktop;
}
