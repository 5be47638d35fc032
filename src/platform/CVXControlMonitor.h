// Hears every control event the service handles, after it was decoded and
// before the keyset acts on it, so that a tool can show what the surface does
// as it happens. Nothing it does changes what the driver does.
#pragma once

#include <cstdint>

class CVXControlMonitor {
  public:
    virtual ~CVXControlMonitor() = default;
    // inControl: transport button 0 to 4 (value 1 pressed, 0 released), or
    // channel control 160 to 165 on channel inChannel (the fader's 8-bit
    // position; a channel button's state, nonzero when on).
    virtual void ControlEvent(uint32_t inControl, uint32_t inChannel, int32_t inValue) = 0;
};
