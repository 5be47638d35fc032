#include "actions/CVX_AppSpecificAction.h"

#include <algorithm>

#include "actions/CVX_KeyAction.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"

namespace {

// Shuttle keys by speed step. The rewind table has five entries, but its step
// is capped at 1 on purpose, so that only the first two are ever used.
constexpr uint16_t kRewindKeys[5] = {96, 118, 99, 120, 122};
constexpr unsigned kRewindStepSize = 64;
constexpr unsigned kRewindMaxStep = 1;
constexpr uint16_t kFastForwardKeys[5] = {100, 101, 109, 103, 111};
constexpr unsigned kFastForwardStepSize = 26;
constexpr unsigned kFastForwardMaxStep = 4;

constexpr uint16_t kShuttleCharCode = 16;
constexpr uint16_t kStopCharCode = 107;
constexpr uint16_t kStopKeyCode = 40;

}  // namespace

CVX_AppSpecificAction::CVX_AppSpecificAction(uint32_t inControlNum, uint16_t inSpeed,
                                             const char* inName)
    : CVX_Action(inControlNum, inSpeed, inName) {
    mType = vx_action_type_app_specific;
}

std::unique_ptr<CVX_Action> CVX_AppSpecificAction::CreateAppSpecificActionFromStream(
    uint32_t inControlNum, uint16_t inSpeed, const char* inName, UStreamReader* inReader) {
    uint32_t code = 0;
    if (!inReader->MovePosBy(2) || !inReader->GetLong(code)) return nullptr;
    switch (code) {
        case kVXShuttleRewind:
            return std::make_unique<CVX_FCP_RewindAction>(inControlNum, inSpeed, inName);
        case kVXShuttleFastForward:
            return std::make_unique<CVX_FCP_FFwdAction>(inControlNum, inSpeed, inName);
        default:
            return nullptr;
    }
}

void CVX_AppSpecificAction::PostKeyEvent(uint16_t inCharCode, uint16_t inKeyCode,
                                         int16_t inModifiers, bool inPressed, bool /*inRepeat*/) {
    CVX_KeyAction::PostKeyWithModifiers(inCharCode, inKeyCode, inModifiers, inPressed);
}

void CVX_AppSpecificAction::ToggleShuttle(uint16_t inShuttleKey) {
    uint32_t latched = CVX_KeysetData::GetLatchedControl();
    if (latched == kVXNoLatchedControl) {
        PostKeyEvent(kShuttleCharCode, inShuttleKey, kVXControlModifier, true, false);
        CVX_KeysetData::LatchControl(mControlNum);
    } else if (latched == mControlNum) {
        // The key is chosen again from this action's speed: the same one that
        // went down, since only the latched control itself can unlatch.
        PostKeyEvent(kShuttleCharCode, inShuttleKey, kVXControlModifier, false, false);
        PostKeyEvent(kStopCharCode, kStopKeyCode, 0, true, false);
        PostKeyEvent(kStopCharCode, kStopKeyCode, 0, false, false);
        CVX_KeysetData::LatchControl(kVXNoLatchedControl);
    }
    // Another control is latched: this press is ignored.
}

uint16_t CVX_FCP_RewindAction::ShuttleKey() const {
    return kRewindKeys[std::min(mSpeed / kRewindStepSize, kRewindMaxStep)];
}

bool CVX_FCP_RewindAction::ExecuteSelf(int32_t inValue, bool /*inRepeat*/) {
    if (inValue != 0) ToggleShuttle(ShuttleKey());  // releases are ignored
    return false;
}

uint16_t CVX_FCP_FFwdAction::ShuttleKey() const {
    return kFastForwardKeys[std::min(mSpeed / kFastForwardStepSize, kFastForwardMaxStep)];
}

bool CVX_FCP_FFwdAction::ExecuteSelf(int32_t inValue, bool /*inRepeat*/) {
    if (inValue != 0) ToggleShuttle(ShuttleKey());
    return false;
}
