#include "actions/CVX_Action.h"

#include "actions/CVX_AppSpecificAction.h"
#include "actions/CVX_DelayAction.h"
#include "actions/CVX_KeyAction.h"
#include "actions/CVX_MIDIAction.h"
#include "actions/CVX_MasterTimer.h"
#include "actions/CVX_MouseAction.h"
#include "actions/CVX_SpecialAction.h"
#include "model/CVX_ControlData.h"
#include "model/UStreamReader.h"
#include "platform/SVXPlatform.h"

CVX_Action::CVX_Action(uint32_t inControlNum, uint16_t inSpeed, const char* inName)
    : mControlNum(inControlNum), mSpeed(inSpeed), mName(inName ? inName : "") {}

CVX_Action::~CVX_Action() {
    // A held button may be scheduled more than once; a keyset replaced while
    // it is held must not leave any entry behind for the next tick.
    CVX_MasterTimer::RemoveAllEntries(this);
}

void CVX_Action::Execute(CVX_ControlData* inControlData, uint32_t inIndex, int32_t inValue,
                         bool inRepeat) {
    double now = SVXPlatform::Now();
    mValue = inValue;
    mLastExecute = now;
    // The record runs the next action (and stops past the end of its
    // sequence); the repeat flag is this call's only.
    if (ExecuteSelf(inValue, inRepeat) && inControlData) {
        inControlData->Execute(inIndex + 1, inValue);
    }
    mLastValue = inValue;
}

void CVX_Action::ExecuteRepeat() {
    double now = SVXPlatform::Now();
    if (mValue == 0) {
        // The release went past without reaching ExecuteSelf, or this is a
        // second entry of the same action: leave the timer now.
        TerminateRepeat();
        return;
    }
    if (now - mLastRepeat >= mCurInterval) {
        mCurInterval = mRepeatInterval;
        RepeatSelf();
        mLastRepeat = now;
    }
}

void CVX_Action::SetProperties(uint32_t inControlNum, uint16_t inSpeed, const char* inName) {
    mControlNum = inControlNum;
    mSpeed = inSpeed;
    mName = inName ? inName : "";
}

void CVX_Action::SchedualRepeat(double inDelayInterval, double inRepeatInterval) {
    mDelayInterval = inDelayInterval;
    mCurInterval = inDelayInterval;
    mRepeatInterval = inRepeatInterval;
    mLastRepeat = SVXPlatform::Now();
    CVX_MasterTimer::AddClient(this);  // a second press adds a second entry
}

void CVX_Action::TerminateRepeat() {
    CVX_MasterTimer::RemoveClient(this);
}

std::unique_ptr<CVX_Action> CVX_Action::CreateActionFromStream(UStreamReader* inReader) {
    if (!inReader) return nullptr;
    uint32_t actionStart = inReader->GetPos();

    uint32_t legacyID = 0;
    uint32_t type = 0;
    uint32_t controlNum = 0;
    uint16_t speed = 0;
    char name[64] = {};
    if (!inReader->GetLong(legacyID) || !inReader->GetLong(type) ||
        !inReader->GetLong(controlNum) || !inReader->GetShort(speed) || !inReader->GetStr63(name)) {
        return nullptr;  // truncated: the reader stays where the failing read left it
    }

    // Built-in defaults build the same actions as the user's own.
    type &= ~uint32_t{vx_action_built_in};

    std::unique_ptr<CVX_Action> action;
    switch (type) {
        case vx_action_type_key:
            action = CVX_KeyAction::CreateKeyActionFromStream(controlNum, speed, name, inReader);
            break;
        case vx_action_type_mouse:
            action =
                CVX_MouseAction::CreateMouseActionFromStream(controlNum, speed, name, inReader);
            break;
        case vx_action_type_delay:
            action =
                CVX_DelayAction::CreateDelayActionFromStream(controlNum, speed, name, inReader);
            break;
        case vx_action_type_special:
            action =
                CVX_SpecialAction::CreateSpecialActionFromStream(controlNum, speed, name, inReader);
            break;
        case vx_action_type_app_specific:
            action = CVX_AppSpecificAction::CreateAppSpecificActionFromStream(controlNum, speed,
                                                                              name, inReader);
            break;
        case vx_action_type_midi:
            action = CVX_MIDIAction::CreateMIDIActionFromStream(controlNum, speed, name, inReader);
            break;
        default:
            break;  // menu items, callbacks, emulation and unknown kinds build nothing
    }
    // The key and delay constructors leave the kind unset; record it here so
    // that every action knows what it was built from.
    if (action) action->mType = static_cast<EVX_Action_Type>(type);

    // Every record is 156 bytes, whatever its body used. A body that read past
    // the frame would make the unsigned remainder wrap to about 4 GiB; fail it
    // outright instead of relying on the skip to run out of stream.
    uint32_t consumed = inReader->GetPos() - actionStart;
    if (consumed > kVXActionRecordSize || !inReader->MovePosBy(kVXActionRecordSize - consumed)) {
        return nullptr;  // destroys the action built above, if any
    }
    return action;
}
