#include "platform/desktop/CVXX11FrontApp.h"

#include <cstdlib>
#include <cstring>

namespace {

// Enough for any real WM_CLASS; a longer one is cut there.
constexpr uint32_t kMaxClassLongs = 256;

// WM_CLASS: the instance and the class, each ended by a NUL. Read by hand
// and bounded by the property's length: another client may set anything
// there, empty or without its NULs.
bool ReadClass(xcb_connection_t* inConnection, xcb_window_t inWindow, std::string& outInstance,
               std::string& outClass) {
    xcb_get_property_reply_t* reply =
        xcb_get_property_reply(inConnection,
                               xcb_get_property(inConnection, 0, inWindow, XCB_ATOM_WM_CLASS,
                                                XCB_ATOM_STRING, 0, kMaxClassLongs),
                               nullptr);
    if (!reply) return false;
    const bool present = reply->type == XCB_ATOM_STRING && reply->format == 8;
    if (present) {
        const char* value = static_cast<const char*>(xcb_get_property_value(reply));
        const size_t length = static_cast<size_t>(xcb_get_property_value_length(reply));
        const size_t instanceLength = strnlen(value, length);
        outInstance.assign(value, instanceLength);
        if (instanceLength < length) {
            const char* rest = value + instanceLength + 1;
            outClass.assign(rest, strnlen(rest, length - instanceLength - 1));
        }
    }
    std::free(reply);
    return present;
}

}  // namespace

CVXX11FrontApp::CVXX11FrontApp(CVXXDisplay& inDisplay, const CVXApplicationMap& inMap)
    : mDisplay(inDisplay), mMap(inMap) {
    if (!mDisplay.Valid()) return;
    xcb_connection_t* c = mDisplay.Connection();
    xcb_intern_atom_cookie_t* cookies = xcb_ewmh_init_atoms(c, &mEwmh);
    if (!cookies || !xcb_ewmh_init_atoms_replies(&mEwmh, cookies, nullptr)) return;
    mValid = true;
    // Property changes on the root window: the window manager's
    // _NET_ACTIVE_WINDOW among them. Before the first reading, so that no
    // change between the two is missed.
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, mDisplay.Root(), XCB_CW_EVENT_MASK, &mask);
    mDisplay.SetEventHandler([this](const xcb_generic_event_t& inEvent) { OnEvent(inEvent); });
    Refresh();
    // Events read during those round trips wait in xcb, not on the socket.
    mDisplay.Dispatch();
}

CVXX11FrontApp::~CVXX11FrontApp() {
    mDisplay.SetEventHandler(nullptr);
    if (mValid) xcb_ewmh_connection_wipe(&mEwmh);
}

bool CVXX11FrontApp::GetFrontSignature(uint32_t& outSignature) {
    if (!mFocus.known || !mDisplay.Valid()) return false;
    outSignature = mFocus.signature;
    return true;
}

void CVXX11FrontApp::MapChanged() {
    if (!mFocus.known) return;
    const uint32_t signature = mMap.SignatureFor(mFocus.wmClass, mFocus.instance);
    if (signature == mFocus.signature) return;
    mFocus.signature = signature;
    if (mOnChange) mOnChange(mFocus);
}

void CVXX11FrontApp::OnEvent(const xcb_generic_event_t& inEvent) {
    if ((inEvent.response_type & 0x7F) != XCB_PROPERTY_NOTIFY) return;
    const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(inEvent);
    if (notify.window == mDisplay.Root() && notify.atom == mEwmh._NET_ACTIVE_WINDOW) Refresh();
}

void CVXX11FrontApp::Refresh() {
    xcb_connection_t* c = mDisplay.Connection();
    xcb_window_t window = XCB_NONE;
    // No property (no window manager that names one), or None (nothing is
    // focused, the desktop itself): no application is in front.
    const bool known = xcb_ewmh_get_active_window_reply(
                           &mEwmh, xcb_ewmh_get_active_window(&mEwmh, mDisplay.ScreenNumber()),
                           &window, nullptr) != 0 &&
                       window != XCB_NONE;
    // Window managers repeat the notification with the same value.
    if (known == mFocus.known && (!known || window == mFocus.window)) return;

    SFocus focus;
    focus.known = known;
    if (known) {
        focus.window = window;
        focus.hasClass = ReadClass(c, window, focus.instance, focus.wmClass);
        // A window without WM_CLASS has no names: an application without an
        // entry.
        focus.signature = mMap.SignatureFor(focus.wmClass, focus.instance);
    }
    mFocus = std::move(focus);
    if (mOnChange) mOnChange(mFocus);
}
