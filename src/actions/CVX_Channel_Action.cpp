#include "actions/CVX_Channel_Action.h"

#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_Channel_MIDIAction.h"
#include "model/CVX_Keyset.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXAppNotifier.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"

CVX_Channel_Action::CVX_Channel_Action(const char* inName, uint32_t inControlNum, int32_t inChannel)
    : mName(inName), mControlNum(inControlNum), mChannel(inChannel) {}

bool CVX_Channel_Action::TimeToExecute() {
    double now = SVXPlatform::Now();
    if (now - mLastExecute >= 2 * kOneTickInSeconds) {
        mLastExecute = now;
        return true;
    }
    return false;
}

std::unique_ptr<CVX_Channel_Action> CVX_Channel_Action::CreateChannelActionFromStream(
    UStreamReader* inReader, uint32_t inChannel, uint32_t inControlType) {
    std::unique_ptr<CVX_Channel_Action> action;
    uint32_t legacyID = 0, type = 0;
    uint16_t speed = 0;
    char name[64] = {};
    do {
        if (!inReader->TagIs(VXTag("ChCm")) || !inReader->TagIs(VXTag("CmID"))) break;
        if (!inReader->GetLong(legacyID)) {
            VXDiagnostic("CVX_Channel_Action::CreateChannelActionFromStream  couldn't get id\n");
            break;
        }
        if (!inReader->TagIs(VXTag("CTyp"))) break;
        if (!inReader->GetLong(type)) {
            VXDiagnostic("CVX_Channel_Action::CreateChannelActionFromStream  couldn't get type\n");
            break;
        }
        if (!inReader->TagIs(VXTag("Sped")) || !inReader->GetShort(speed)) break;
        if (!inReader->TagIs(VXTag("St63")) || !inReader->GetStr63(name)) break;

        switch (type & ~uint32_t{vx_action_built_in}) {
            case vx_action_type_special:
                action = CVX_Channel_SpecialAction::CreateChannelSpecialActionFromStream(
                    inReader, inControlType, inChannel, name);
                break;
            case vx_action_type_app_specific:
                action = CVX_Channel_AppSpecificAction::CreateChannelAppSpecificActionFromStream(
                    inReader, inControlType, inChannel, name);
                break;
            case vx_action_type_midi:
                action = CVX_Channel_MIDIAction::CreateChannelMIDIActionFromStream(
                    inReader, inControlType, inChannel, name);
                break;
            case vx_action_type_emulation:
                action = CVX_Channel_EmulationAction::CreateChannelEmulationActionFromStream(
                    inReader, inControlType, inChannel, name);
                break;
            default:
                break;
        }
    } while (false);
    if (!action) VXDiagnostic("CVX_Channel_Action::CreateChannelActionFromStream  failed\n");
    return action;
}

CVX_Channel_SpecialAction::CVX_Channel_SpecialAction(uint32_t inAppSig, uint32_t inType,
                                                     const char* inName, uint32_t inControlNum,
                                                     int32_t inChannel)
    : CVX_Channel_Action(inName, inControlNum, inChannel),
      mAppSignature(inAppSig),
      mSpecialActionType(inType),
      mEventID(inType == kVXFaderSpecialType    ? VXTag("QFad")
               : inType == kVXButtonSpecialType ? VXTag("QCBt")
                                                : 0) {}

bool CVX_Channel_SpecialAction::Execute(CVX_ChannelControlData*, int32_t inValue) {
    if (mEventID == 0) return false;
    if (mControlNum == kVXChannelFader) {
        // The editor works in 0 to 1020; fader moves are let through at most
        // 30 times a second.
        inValue *= 4;
        if (!TimeToExecute()) return false;
    }
    if (CVXAppNotifier* notifier = SVXPlatform::Get().notifier) {
        notifier->SendApplicationEvent(mAppSignature, mEventID,
                                       {{VXTag("CtlN"), static_cast<int32_t>(mControlNum)},
                                        {VXTag("Chnl"), mChannel},
                                        {VXTag("CVal"), inValue}});
    }
    // Never counted as an executed action, sent or not.
    return false;
}

std::unique_ptr<CVX_Channel_Action> CVX_Channel_SpecialAction::CreateChannelSpecialActionFromStream(
    UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName) {
    if (!inReader->TagIs(VXTag("SpcD")) || !inReader->TagIs(VXTag("CTyp"))) return nullptr;
    uint32_t unused;
    if (!inReader->GetLong(unused)) {
        VXDiagnostic(
            "CVX_Channel_SpecialAction::CreateChannelSpecialActionFromStream couldn't get type\n");
        return nullptr;
    }
    // The kind of special action follows from the control alone.
    uint32_t type;
    if (UVX_ControlClass::IsChannelFader(inControlType)) {
        type = kVXFaderSpecialType;
    } else if (UVX_ControlClass::IsChannelButton(inControlType)) {
        type = kVXButtonSpecialType;
    } else {
        return nullptr;
    }
    return std::make_unique<CVX_Channel_SpecialAction>(CVX_Keyset::GetSignatureUnderConstruction(),
                                                       type, inName, inControlType,
                                                       static_cast<int32_t>(inChannel));
}

CVX_Channel_AppSpecificAction::CVX_Channel_AppSpecificAction(uint32_t inControlType,
                                                             uint32_t inChannel, const char* inName,
                                                             uint32_t inActionType)
    : CVX_Channel_Action(inName, inControlType, static_cast<int32_t>(inChannel)),
      mActionType(inActionType) {}

bool CVX_Channel_AppSpecificAction::Execute(CVX_ChannelControlData*, int32_t) {
    TimeToExecute();  // only to note the time
    return true;
}

std::unique_ptr<CVX_Channel_Action>
CVX_Channel_AppSpecificAction::CreateChannelAppSpecificActionFromStream(UStreamReader* inReader,
                                                                        uint32_t inControlType,
                                                                        uint32_t inChannel,
                                                                        const char* inName) {
    uint32_t actionType;
    if (!inReader->TagIs(VXTag("AppD")) || !inReader->TagIs(VXTag("CTyp")) ||
        !inReader->GetLong(actionType)) {
        return nullptr;
    }
    return std::make_unique<CVX_Channel_AppSpecificAction>(inControlType, inChannel, inName,
                                                           actionType);
}
