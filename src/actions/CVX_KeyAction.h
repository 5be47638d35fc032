// Keyboard actions: a button types one key, with optional modifier keys, into
// whatever has the focus, and keeps typing it while the button is held.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"

class UStreamReader;

// Modifier bits of the classic event-record layout, shared by key, mouse and
// application-specific actions. Each posts its own modifier key: command 55,
// shift 56, caps lock 57, option 58, control 59.
constexpr int16_t kVXCommandModifier = 0x0100;
constexpr int16_t kVXShiftModifier = 0x0200;
constexpr int16_t kVXCapsLockModifier = 0x0400;
constexpr int16_t kVXOptionModifier = 0x0800;
constexpr int16_t kVXControlModifier = 0x1000;

class CVX_KeyAction : public CVX_Action {
  public:
    CVX_KeyAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName, int16_t inModifiers,
                  uint16_t inKeyCode, uint16_t inCharCode);

    // Body: 2 bytes skipped, modifiers, then key code (high byte) and
    // character code (low byte). Null for a truncated body or a control that
    // is not a button.
    static std::unique_ptr<CVX_Action> CreateKeyActionFromStream(uint32_t inControlNum,
                                                                 uint16_t inSpeed,
                                                                 const char* inName,
                                                                 UStreamReader* inReader);

    // One key transition with its modifiers: on a press the modifiers go down
    // before the key; on a release they go up after it, in the same order.
    void PostKeyEvent(bool inPressed, bool inRepeat);

    // The modifier keys of inModifiers, down or up, always in the order
    // command, shift, caps lock, option, control; other bits post nothing.
    static void PostModifierKeys(int16_t inModifiers, bool inKeyDown);
    // One key transition with the modifier keys of inModifiers, as
    // PostKeyEvent posts it; shared with the application-specific actions.
    static void PostKeyWithModifiers(uint16_t inCharCode, uint16_t inKeyCode, int16_t inModifiers,
                                     bool inPressed);

    int16_t GetModifiers() const { return mModifiers; }
    uint16_t GetKeyCode() const { return mKeyCode; }
    uint16_t GetCharCode() const { return mCharCode; }

  protected:
    int16_t mModifiers;
    uint16_t mKeyCode;
    uint16_t mCharCode;
    bool mPressed = false;  // kept; nothing reads it
};

// The only keyboard action ever built: a press taps the key at once and then
// repeats the tap while the button stays down.
class CVX_ButtonKeyAction : public CVX_KeyAction {
  public:
    using CVX_KeyAction::CVX_KeyAction;

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;
    void RepeatSelf() override;
};
