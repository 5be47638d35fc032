#include "model/CVX_ChannelControlData.h"

#include "model/UVX_ControlClass.h"

bool CVX_ChannelActionSequence::AddAction(std::unique_ptr<CVX_Channel_Action> inAction) {
    if (!mActions.empty()) return false;
    mActions.push_back(std::move(inAction));
    return true;
}

CVX_Channel_Action* CVX_ChannelActionSequence::GetActionAt(uint32_t inIndex) const {
    return inIndex < mActions.size() ? mActions[inIndex].get() : nullptr;
}

void CVX_ChannelActionSequence::DeleteActions() {
    for (auto& action : mActions) action.reset();
    mActions.clear();
}

std::unique_ptr<CVX_ChannelControlData> CVX_ChannelControlData::Create_VX_ChannelControlData(
    const char* inControlName, uint32_t inType, uint32_t inChannel) {
    std::unique_ptr<CVX_ChannelControlData> record;
    if (UVX_ControlClass::IsChannelFader(inType)) {
        record = std::make_unique<CVX_ChannelFaderData>(inControlName, inType, inChannel);
    } else if (UVX_ControlClass::IsChannelButton(inType)) {
        record = std::make_unique<CVX_ChannelButtonData>(inControlName, inType, inChannel);
    } else {
        return nullptr;
    }
    record->MakeEditorAction();
    return record;
}

CVX_ChannelControlData::CVX_ChannelControlData(const char* inControlName, uint32_t inType,
                                               uint32_t inChannel)
    : mControlName(inControlName),
      mControlType(inType),
      mChannel(inChannel),
      mActionSequence(std::make_unique<CVX_ChannelActionSequence>(inChannel, inType)) {}

CVX_ChannelControlData::~CVX_ChannelControlData() = default;

void CVX_ChannelControlData::Execute(int32_t inValue) {
    CVX_Channel_Action* action = GetActionAt(0);
    if (action) action->Execute(this, inValue);
}

void CVX_ChannelControlData::ExecuteEditMode(int32_t inValue) {
    if (mEditorAction) mEditorAction->Execute(this, inValue);
}

void CVX_ChannelControlData::SetControlProperties(const char* inControlName, uint32_t inType,
                                                  uint32_t inChannel, bool inLatched) {
    mControlName = inControlName;
    mControlType = inType;
    mChannel = inChannel;
    mLatched = inLatched;
}

bool CVX_ChannelControlData::AddAction(std::unique_ptr<CVX_Channel_Action> inAction) {
    return mActionSequence && mActionSequence->AddAction(std::move(inAction));
}

CVX_Channel_Action* CVX_ChannelControlData::GetActionAt(uint32_t) const {
    return mActionSequence ? mActionSequence->GetActionAt(0) : nullptr;
}

bool CVX_ChannelFaderData::MakeEditorAction() {
    mEditorAction = std::make_unique<CVX_Channel_SpecialAction>(
        kVXEditorSignature, kVXFaderSpecialType, "fader editor action", kVXChannelFader,
        static_cast<int32_t>(mChannel));
    return mEditorAction != nullptr;
}

bool CVX_ChannelButtonData::MakeEditorAction() {
    mEditorAction = std::make_unique<CVX_Channel_SpecialAction>(
        kVXEditorSignature, kVXButtonSpecialType, "button editor action", mControlType,
        static_cast<int32_t>(mChannel));
    return mEditorAction != nullptr;
}

void CVX_ChannelButtonData::Execute(int32_t inValue) {
    if (!mLatched) {
        CVX_ChannelControlData::Execute(inValue);
        return;
    }
    if (inValue == 0) return;
    mLatchedValue = mLatchedValue == 0 ? 1 : 0;
    CVX_ChannelControlData::Execute(mLatchedValue);
}
