// Key and mouse input through the X server's XTest extension: the server
// takes each event as if a device had sent it, and gives it to whatever
// window has the focus (keys) or lies under the pointer (mouse).
#pragma once

#include "platform/CVXEventPoster.h"
#include "platform/desktop/CVXXDisplay.h"

class CVXXTestPoster : public CVXEventPoster {
  public:
    explicit CVXXTestPoster(CVXXDisplay& inDisplay);

    // Whether the server offers XTest.
    static bool Offered(CVXXDisplay& inDisplay);

    // The key at the virtual key's place, by X keycode (evdev code + 8);
    // a virtual key no key has posts nothing.
    void PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey, bool inKeyDown) override;
    // The pointer moves to the root-window point, then button 1 goes down or
    // up if it is not so already: a "button up" event where the button is up
    // only moves the pointer.
    void PostMouseEvent(double inX, double inY, bool inButtonDown) override;

  private:
    void Fake(uint8_t inType, uint8_t inDetail, int16_t inX = 0, int16_t inY = 0);

    CVXXDisplay& mDisplay;
    bool mButtonDown = false;
};
