#include "actions/CVX_MouseAction.h"

#include "actions/CVX_KeyAction.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXEventPoster.h"
#include "platform/SVXPlatform.h"

namespace {

void PostMouse(int16_t inX, int16_t inY, bool inButtonDown) {
    if (CVXEventPoster* poster = SVXPlatform::Get().poster) {
        poster->PostMouseEvent(static_cast<double>(inX), static_cast<double>(inY), inButtonDown);
    }
}

}  // namespace

CVX_MouseAction::CVX_MouseAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                                 bool inCaptureNow, bool inUsePartialTitle, uint8_t inMouseOp,
                                 uint8_t inCaptureOp, int16_t inModifiers, int16_t inX, int16_t inY,
                                 const char* inWindowTitle)
    : CVX_Action(inControlNum, inSpeed, inName),
      mCaptureNow(inCaptureNow),
      mUsePartialTitle(inUsePartialTitle),
      mMouseOp(inMouseOp),
      mCaptureOp(inCaptureOp),
      mModifiers(inModifiers),
      mMouseLocX(inX),
      mMouseLocY(inY),
      mWindowTitle(inWindowTitle ? inWindowTitle : "") {
    mType = vx_action_type_mouse;
}

std::unique_ptr<CVX_Action> CVX_MouseAction::CreateMouseActionFromStream(uint32_t inControlNum,
                                                                         uint16_t inSpeed,
                                                                         const char* inName,
                                                                         UStreamReader* inReader) {
    uint16_t captureNow = 0;
    uint16_t usePartialTitle = 0;
    uint8_t mouseOp = 0;
    uint8_t captureOp = 0;
    uint16_t modifiers = 0;
    uint16_t y = 0;
    uint16_t x = 0;
    char title[64] = {};
    if (!inReader->GetShort(captureNow) || !inReader->GetShort(usePartialTitle) ||
        !inReader->GetByte(mouseOp) || !inReader->GetByte(captureOp) ||
        !inReader->GetShort(modifiers) || !inReader->GetShort(y) || !inReader->GetShort(x) ||
        !inReader->GetStr63(title)) {
        return nullptr;
    }
    if (!UVX_ControlClass::IsButton(inControlNum)) return nullptr;
    return std::make_unique<CVX_ButtonMouseAction>(
        inControlNum, inSpeed, inName, captureNow != 0, usePartialTitle != 0, mouseOp, captureOp,
        static_cast<int16_t>(modifiers), static_cast<int16_t>(x), static_cast<int16_t>(y), title);
}

void CVX_MouseAction::StartAction(bool inClickMouse) {
    // The release clicks here even if the action is changed in between.
    mLastPointX = mMouseLocX;
    mLastPointY = mMouseLocY;
    PostModifiers(true);
    // Move there without a click first, then press.
    PostMouse(mMouseLocX, mMouseLocY, false);
    if (inClickMouse) PostMouse(mMouseLocX, mMouseLocY, true);
}

void CVX_MouseAction::EndAction(bool inUnclickMouse) {
    if (inUnclickMouse) PostMouse(mLastPointX, mLastPointY, false);
    PostModifiers(false);
}

void CVX_MouseAction::RecallLocation(SVXPoint& outPoint) {
    outPoint.x = mReturnLocX;
    outPoint.y = mReturnLocY;
}

void CVX_MouseAction::PostModifiers(bool inKeyDown) {
    CVX_KeyAction::PostModifierKeys(mModifiers, inKeyDown);
}

bool CVX_ButtonMouseAction::ExecuteSelf(int32_t inValue, bool /*inRepeat*/) {
    if (inValue != 0) {
        StartAction(true);
    } else {
        EndAction(true);
    }
    // Later actions run while the mouse button is still down.
    return true;
}
