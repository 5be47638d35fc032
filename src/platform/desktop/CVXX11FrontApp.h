// The application in front on an X11 desktop: the window that the window
// manager names in the root window's _NET_ACTIVE_WINDOW, and that window's
// WM_CLASS (class and instance), mapped to a signature by the applications
// map. Kept current by the server's property-change events on the root
// window, read on the loop as they come: asking never costs a round trip.
#pragma once

#include <xcb/xcb_ewmh.h>

#include <functional>
#include <string>

#include "platform/CVXFrontAppSource.h"
#include "platform/desktop/CVXXDisplay.h"
#include "service/CVXApplicationMap.h"

class CVXX11FrontApp : public CVXFrontAppSource {
  public:
    struct SFocus {
        bool known = false;  // an active window is named
        xcb_window_t window = XCB_NONE;
        bool hasClass = false;  // the window has a WM_CLASS
        std::string instance;   // WM_CLASS's first string
        std::string wmClass;    // and its second
        uint32_t signature = 0;
    };
    using ChangeHandler = std::function<void(const SFocus& inFocus)>;

    // Starts following the focus on inDisplay, mapped through inMap (which
    // must outlive it). Valid() is false when the display is not usable.
    CVXX11FrontApp(CVXXDisplay& inDisplay, const CVXApplicationMap& inMap);
    ~CVXX11FrontApp() override;
    CVXX11FrontApp(const CVXX11FrontApp&) = delete;
    CVXX11FrontApp& operator=(const CVXX11FrontApp&) = delete;

    bool Valid() const { return mValid && mDisplay.Valid(); }

    // The signature of the focused window's application ('????' when the
    // map has none for it); false without a display, while no active window
    // is named, and after the server went away.
    bool GetFrontSignature(uint32_t& outSignature) override;

    // Called for each change of the focused window (not for repeats of the
    // same one), and when the map gives it another signature.
    void SetChangeHandler(ChangeHandler inHandler) { mOnChange = std::move(inHandler); }
    // The map changed: the focused window's signature is looked up again.
    void MapChanged();
    const SFocus& Focus() const { return mFocus; }

  private:
    void OnEvent(const xcb_generic_event_t& inEvent);
    // Reads _NET_ACTIVE_WINDOW, and WM_CLASS when the window changed.
    void Refresh();

    CVXXDisplay& mDisplay;
    const CVXApplicationMap& mMap;
    xcb_ewmh_connection_t mEwmh{};
    bool mValid = false;
    SFocus mFocus;
    ChangeHandler mOnChange;
};
