#include "actions/CVX_KeyAction.h"

#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXEventPoster.h"
#include "platform/SVXPlatform.h"

namespace {

constexpr uint16_t kFirstModifierKey = 55;  // command; shift, caps lock, option, control follow
constexpr int kNumModifiers = 5;

// A held key repeats like a keyboard's: first after half a second, then four
// times a second.
constexpr double kKeyRepeatDelay = 30 * kOneTickInSeconds;
constexpr double kKeyRepeatRate = 15 * kOneTickInSeconds;

void PostKey(uint16_t inCharCode, uint16_t inKeyCode, bool inKeyDown) {
    if (CVXEventPoster* poster = SVXPlatform::Get().poster) {
        // The window system takes an 8-bit character code.
        poster->PostKeyboardEvent(static_cast<uint8_t>(inCharCode), inKeyCode, inKeyDown);
    }
}

}  // namespace

CVX_KeyAction::CVX_KeyAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                             int16_t inModifiers, uint16_t inKeyCode, uint16_t inCharCode)
    : CVX_Action(inControlNum, inSpeed, inName),
      mModifiers(inModifiers),
      mKeyCode(inKeyCode),
      mCharCode(inCharCode) {}

std::unique_ptr<CVX_Action> CVX_KeyAction::CreateKeyActionFromStream(uint32_t inControlNum,
                                                                     uint16_t inSpeed,
                                                                     const char* inName,
                                                                     UStreamReader* inReader) {
    uint16_t modifiers = 0;
    uint16_t codeChar = 0;
    if (!inReader->MovePosBy(2) || !inReader->GetShort(modifiers) ||
        !inReader->GetShort(codeChar)) {
        return nullptr;
    }
    // Keyboard actions exist only on buttons; a fader's record is consumed
    // by the caller all the same.
    if (!UVX_ControlClass::IsButton(inControlNum)) return nullptr;
    return std::make_unique<CVX_ButtonKeyAction>(
        inControlNum, inSpeed, inName, static_cast<int16_t>(modifiers),
        static_cast<uint16_t>(codeChar >> 8), static_cast<uint16_t>(codeChar & 0xFF));
}

void CVX_KeyAction::PostModifierKeys(int16_t inModifiers, bool inKeyDown) {
    int mask = kVXCommandModifier;
    uint16_t keyCode = kFirstModifierKey;
    for (int round = 0; round < kNumModifiers; ++round) {
        if (inModifiers & mask) PostKey(0, keyCode, inKeyDown);
        mask <<= 1;
        ++keyCode;
    }
}

void CVX_KeyAction::PostKeyWithModifiers(uint16_t inCharCode, uint16_t inKeyCode,
                                         int16_t inModifiers, bool inPressed) {
    if (inPressed) PostModifierKeys(inModifiers, true);
    PostKey(inCharCode, inKeyCode, inPressed);
    // Released in the order they were pressed (command first), not reversed.
    if (!inPressed) PostModifierKeys(inModifiers, false);
}

void CVX_KeyAction::PostKeyEvent(bool inPressed, bool /*inRepeat*/) {
    PostKeyWithModifiers(mCharCode, mKeyCode, mModifiers, inPressed);
}

bool CVX_ButtonKeyAction::ExecuteSelf(int32_t inValue, bool inRepeat) {
    if (inValue != 0) {
        // A whole tap now; nothing is posted at the release.
        PostKeyEvent(true, inRepeat);
        PostKeyEvent(false, inRepeat);
        SchedualRepeat(kKeyRepeatDelay, kKeyRepeatRate);
    } else {
        TerminateRepeat();
    }
    return true;
}

void CVX_ButtonKeyAction::RepeatSelf() {
    if (mValue != 0) {
        PostKeyEvent(true, false);
        PostKeyEvent(false, false);
    }
}
