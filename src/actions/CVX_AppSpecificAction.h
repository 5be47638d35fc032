// Application-specific actions: built-in behaviours for one host application
// each. The two here turn a button into a latching shuttle switch: the first
// press holds a shuttle key down (with control), the second lets it go and
// types the stop key. While one shuttle button is latched, the others are
// ignored; the latch is the keyset set's, shared with latching buttons.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"

class UStreamReader;

// Application-specific codes as stored in the stream.
constexpr uint32_t kVXShuttleRewind = 4;
constexpr uint32_t kVXShuttleFastForward = 5;

class CVX_AppSpecificAction : public CVX_Action {
  public:
    CVX_AppSpecificAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName);

    // Body: 2 bytes skipped, then the code (4 rewind, 5 fast-forward; any
    // other builds nothing). Built for any control, button or not.
    static std::unique_ptr<CVX_Action> CreateAppSpecificActionFromStream(uint32_t inControlNum,
                                                                         uint16_t inSpeed,
                                                                         const char* inName,
                                                                         UStreamReader* inReader);

    // As the keyboard action posts, with the key given here: a press leaves
    // the key and its modifiers down, a release lets them go.
    void PostKeyEvent(uint16_t inCharCode, uint16_t inKeyCode, int16_t inModifiers, bool inPressed,
                      bool inRepeat);

  protected:
    // Latches on an unlatched surface, unlatches (and types stop) when this
    // control is the latched one, and ignores everything else.
    void ToggleShuttle(uint16_t inShuttleKey);
};

class CVX_FCP_RewindAction : public CVX_AppSpecificAction {
  public:
    using CVX_AppSpecificAction::CVX_AppSpecificAction;

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;
    // The shuttle key for the action's speed.
    uint16_t ShuttleKey() const;
};

class CVX_FCP_FFwdAction : public CVX_AppSpecificAction {
  public:
    using CVX_AppSpecificAction::CVX_AppSpecificAction;

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;
    uint16_t ShuttleKey() const;
};
