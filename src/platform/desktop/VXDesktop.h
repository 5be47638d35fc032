// The desktop backends, chosen at start-up by what the machine offers: key
// and mouse input through XTest when $DISPLAY opens, else through uinput when
// /dev/uinput opens, else none; the focus from the X11 tracker when the
// display opens, else none.
#pragma once

#include <memory>

#include "platform/CVXEventLoop.h"
#include "platform/CVXEventPoster.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/desktop/CVXApplicationMapWatcher.h"
#include "platform/desktop/CVXX11FrontApp.h"
#include "platform/desktop/CVXXDisplay.h"

struct SVXDesktop {
    std::unique_ptr<CVXXDisplay> display;
    std::unique_ptr<CVXApplicationMapWatcher> applications;
    std::unique_ptr<CVXX11FrontApp> tracker;
    std::unique_ptr<CVXEventPoster> poster;  // may use display
    const char* inputName = "none";          // "XTest", "uinput" or "none"
    const char* focusName = "none";          // "X11" or "none"

    CVXEventPoster* Poster() const { return poster.get(); }
    CVXFrontAppSource* FrontApp() const { return tracker.get(); }

    SVXDesktop() = default;
    SVXDesktop(SVXDesktop&&) = default;
    SVXDesktop& operator=(SVXDesktop&&) = default;
    ~SVXDesktop();  // the poster and tracker go before the display they use
};

// Opens what this machine offers on inLoop and says in one line which
// ("Desktop: input XTest, focus X11"); when /dev/uinput was tried and would
// not open, a line before it says why and how access is granted.
SVXDesktop VXOpenDesktop(CVXEventLoop& inLoop);
