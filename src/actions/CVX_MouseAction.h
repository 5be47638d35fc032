// Mouse actions: a button clicks the mouse at a fixed screen point, with
// optional modifier keys held, for as long as it is held: the mouse button
// goes down at the press and up at the release.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "actions/CVX_Action.h"

class UStreamReader;

// A point in global screen coordinates (pixels; negative left of or above the
// main screen).
struct SVXPoint {
    double x = 0;
    double y = 0;
};

class CVX_MouseAction : public CVX_Action {
  public:
    CVX_MouseAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName, bool inCaptureNow,
                    bool inUsePartialTitle, uint8_t inMouseOp, uint8_t inCaptureOp,
                    int16_t inModifiers, int16_t inX, int16_t inY, const char* inWindowTitle);

    // Body: capture-now, partial-title, mouse op, capture op, modifiers, the
    // point stored Y first, then the window title. Null for a truncated body
    // or a control that is not a button.
    static std::unique_ptr<CVX_Action> CreateMouseActionFromStream(uint32_t inControlNum,
                                                                   uint16_t inSpeed,
                                                                   const char* inName,
                                                                   UStreamReader* inReader);

    // Modifiers down, the pointer to the point, then (if asked) the button down.
    virtual void StartAction(bool inClickMouse);
    // The button up where the press clicked (if asked), then the modifiers up.
    virtual void EndAction(bool inUnclickMouse);
    virtual void RememberLocation() {}
    virtual void RecallLocation(SVXPoint& outPoint);

    // Modifier keys down or up, in the order command, shift, caps lock,
    // option, control either way.
    void PostModifiers(bool inKeyDown);

    bool GetCaptureNow() const { return mCaptureNow; }
    bool GetUsePartialTitle() const { return mUsePartialTitle; }
    uint8_t GetMouseOp() const { return mMouseOp; }
    uint8_t GetCaptureOp() const { return mCaptureOp; }
    int16_t GetModifiers() const { return mModifiers; }
    int16_t GetMouseLocX() const { return mMouseLocX; }
    int16_t GetMouseLocY() const { return mMouseLocY; }
    const std::string& GetWindowTitle() const { return mWindowTitle; }

  protected:
    // The capture and title fields are the editor's: kept so that a keyset
    // read and written back is unchanged, but nothing posted depends on them.
    bool mCaptureNow;
    bool mUsePartialTitle;
    uint8_t mMouseOp;
    uint8_t mCaptureOp;
    int16_t mModifiers;
    int16_t mMouseLocX;
    int16_t mMouseLocY;
    std::string mWindowTitle;
    int16_t mReturnLocX = 0;  // never set; what RecallLocation answers
    int16_t mReturnLocY = 0;
    // Where the last press clicked: a release without a press clicks at 0,0.
    int16_t mLastPointX = 0;
    int16_t mLastPointY = 0;
};

// The only mouse action ever built: press clicks down, release lets go.
class CVX_ButtonMouseAction : public CVX_MouseAction {
  public:
    using CVX_MouseAction::CVX_MouseAction;

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;
};
