// Synthetic keyboard and mouse input to whatever has the focus. Key codes are
// the virtual key codes stored in keysets (55 command, 56 shift, 57 caps lock,
// 58 option, 59 control, ...); each backend maps them to its own numbering.
#pragma once

#include <cstdint>

class CVXEventPoster {
  public:
    virtual ~CVXEventPoster() = default;
    // One key transition.
    virtual void PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey, bool inKeyDown) = 0;
    // One event of the primary mouse button at a global screen point, without
    // warping the cursor separately.
    virtual void PostMouseEvent(double inX, double inY, bool inButtonDown) = 0;
};
