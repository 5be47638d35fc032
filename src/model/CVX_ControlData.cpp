#include "model/CVX_ControlData.h"

#include "actions/CVX_SpecialAction.h"
#include "model/CVX_KeysetData.h"
#include "model/UVX_ControlClass.h"

void CVX_ActionSequence::AddAction(std::unique_ptr<CVX_Action> inAction) {
    mActions.push_back(std::move(inAction));
}

CVX_Action* CVX_ActionSequence::GetActionAt(uint32_t inIndex) const {
    return inIndex < mActions.size() ? mActions[inIndex].get() : nullptr;
}

void CVX_ActionSequence::DeleteActions() {
    for (auto& action : mActions) action.reset();
    mActions.clear();
}

std::unique_ptr<CVX_ControlData> CVX_ControlData::Create_VX_ControlData(const char* inControlName,
                                                                        const char* inAssignedName,
                                                                        uint32_t inControlNum) {
    if (!UVX_ControlClass::IsButton(inControlNum)) return nullptr;
    std::unique_ptr<CVX_ControlData> record =
        std::make_unique<CVX_ButtonData>(inControlName, inAssignedName, inControlNum);
    record->MakeEditorAction();
    return record;
}

CVX_ControlData::CVX_ControlData(const char* inControlName, const char* inAssignedName,
                                 uint32_t inControlNum)
    : mControlName(inControlName),
      mAssignedName(inAssignedName),
      mControlNum(inControlNum),
      mActionSequence(std::make_unique<CVX_ActionSequence>()) {}

CVX_ControlData::~CVX_ControlData() = default;

void CVX_ControlData::Execute(uint32_t inActionIndex, int32_t inValue) {
    CVX_Action* action = GetActionAt(inActionIndex);
    if (action) action->Execute(this, inActionIndex, inValue, false);
}

void CVX_ControlData::ExecuteEditMode(int32_t inValue) {
    if (mEditorAction) mEditorAction->Execute(this, 0, inValue, false);
}

void CVX_ControlData::SetControlProperties(const char* inControlName, const char* inAssignedName,
                                           uint32_t inControlNum, bool inLatched) {
    mControlName = inControlName;
    mAssignedName = inAssignedName;
    mControlNum = inControlNum;
    mLatched = inLatched;
}

void CVX_ControlData::AddAction(std::unique_ptr<CVX_Action> inAction) {
    if (mActionSequence) mActionSequence->AddAction(std::move(inAction));
}

CVX_Action* CVX_ControlData::GetActionAt(uint32_t inIndex) const {
    return mActionSequence ? mActionSequence->GetActionAt(inIndex) : nullptr;
}

CVX_ButtonData::CVX_ButtonData(const char* inControlName, const char* inAssignedName,
                               uint32_t inControlNum)
    : CVX_ControlData(inControlName, inAssignedName, inControlNum),
      mIsTransportControl(UVX_ControlClass::IsTransportControl(inControlNum)) {}

bool CVX_ButtonData::MakeEditorAction() {
    mEditorAction = std::make_unique<CVX_ButtonSpecialAction>(kVXEditorSignature, kVXNotifyButton,
                                                              mControlNum, 1, "Editor Action");
    return mEditorAction != nullptr;
}

void CVX_ButtonData::Execute(uint32_t inActionIndex, int32_t inValue) {
    if (!mLatched) {
        CVX_ControlData::Execute(inActionIndex, inValue);
        return;
    }
    // A latched button ignores releases, and presses beyond its sequence.
    uint32_t count = mActionSequence ? mActionSequence->GetCount() : 0;
    if (inActionIndex >= count || inValue == 0) return;

    if (mIsTransportControl) {
        uint32_t latched = CVX_KeysetData::GetLatchedControl();
        if (latched == kVXNoLatchedControl) {
            CVX_KeysetData::LatchControl(mControlNum);
        } else if (latched == mControlNum) {
            // Unlatching sends 0 without touching the toggle state, so the two
            // can differ afterwards; a third press then sends 0 again.
            CVX_KeysetData::LatchControl(kVXNoLatchedControl);
            CVX_ControlData::Execute(inActionIndex, 0);
            return;
        }
    }
    mLatchedValue = mLatchedValue == 0 ? 1 : 0;
    CVX_ControlData::Execute(inActionIndex, mLatchedValue);
}
