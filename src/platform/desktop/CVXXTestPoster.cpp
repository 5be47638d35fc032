#include "platform/desktop/CVXXTestPoster.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <cmath>

#include "platform/desktop/VXKeyTable.h"

namespace {

constexpr uint8_t kPrimaryButton = 1;

// A point of the keysets is a 16-bit pixel position; X carries 16 bits too,
// and the server clamps it to the screen.
int16_t ToPixel(double inValue) {
    if (!(inValue == inValue)) return 0;  // NaN
    return static_cast<int16_t>(std::clamp(std::lround(inValue), -32768L, 32767L));
}

}  // namespace

CVXXTestPoster::CVXXTestPoster(CVXXDisplay& inDisplay) : mDisplay(inDisplay) {}

bool CVXXTestPoster::Offered(CVXXDisplay& inDisplay) {
    if (!inDisplay.Valid()) return false;
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(inDisplay.Connection(), &xcb_test_id);
    return extension && extension->present;
}

void CVXXTestPoster::Fake(uint8_t inType, uint8_t inDetail, int16_t inX, int16_t inY) {
    xcb_test_fake_input(mDisplay.Connection(), inType, inDetail, XCB_CURRENT_TIME,
                        inType == XCB_MOTION_NOTIFY ? mDisplay.Root() : XCB_NONE, inX, inY, 0);
}

void CVXXTestPoster::PostKeyboardEvent(uint8_t /*inCharCode*/, uint16_t inVirtualKey,
                                       bool inKeyDown) {
    const uint8_t keycode = VXXKeycodeForVirtualKey(inVirtualKey);
    if (keycode == 0 || !mDisplay.Valid()) return;
    Fake(inKeyDown ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode);
    // Sent now: an event must not wait in the buffer for the next one.
    xcb_flush(mDisplay.Connection());
}

void CVXXTestPoster::PostMouseEvent(double inX, double inY, bool inButtonDown) {
    if (!mDisplay.Valid()) return;
    Fake(XCB_MOTION_NOTIFY, 0 /* absolute */, ToPixel(inX), ToPixel(inY));
    if (inButtonDown != mButtonDown) {
        Fake(inButtonDown ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, kPrimaryButton);
        mButtonDown = inButtonDown;
    }
    xcb_flush(mDisplay.Connection());
}
