#include "actions/CVX_SpecialAction.h"

#include "model/CVX_Keyset.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXAppNotifier.h"
#include "platform/SVXPlatform.h"

namespace {

constexpr uint32_t kButtonEventID = VXTag("QBtn");
constexpr uint32_t kControlNumberKeyword = VXTag("CtlN");
constexpr uint32_t kControlValueKeyword = VXTag("CVal");

bool IsBankCode(uint32_t inCode) {
    return inCode == kVXSelectBank0 || inCode == kVXSelectBank1 || inCode == kVXSelectBank2 ||
           inCode == kVXSelectBank3;
}

uint32_t BankForCode(uint32_t inCode) {
    switch (inCode) {
        case kVXSelectBank1:
            return 1;
        case kVXSelectBank2:
            return 2;
        case kVXSelectBank3:
            return 3;
        default:
            return 0;  // 13, and anything that is no bank code
    }
}

}  // namespace

CVX_SpecialAction::CVX_SpecialAction(uint32_t inAppSignature, uint32_t inSpecialActionType,
                                     uint32_t inControlNum, uint16_t inSpeed, const char* inName)
    : CVX_Action(inControlNum, inSpeed, inName),
      mAppSignature(inAppSignature),
      mSpecialActionType(inSpecialActionType) {
    mType = vx_action_type_special;
}

std::unique_ptr<CVX_SpecialAction> CVX_SpecialAction::Create_VX_SpecialAction(uint32_t inCode,
                                                                              uint32_t inControlNum,
                                                                              uint16_t inSpeed,
                                                                              const char* inName) {
    if (inCode != kVXNotifyButton) return nullptr;
    return std::make_unique<CVX_ButtonSpecialAction>(CVX_Keyset::GetSignatureUnderConstruction(),
                                                     kVXNotifyButton, inControlNum, inSpeed,
                                                     inName);
}

std::unique_ptr<CVX_Action> CVX_SpecialAction::CreateSpecialActionFromStream(
    uint32_t inControlNum, uint16_t inSpeed, const char* inName, UStreamReader* inReader) {
    uint32_t code = 0;
    if (!inReader->MovePosBy(2) || !inReader->GetLong(code)) return nullptr;
    // Bank records deliberately build nothing: a keyset has bank 0 only.
    if (!IsBankCode(code) && UVX_ControlClass::IsButton(inControlNum)) code = kVXNotifyButton;
    return Create_VX_SpecialAction(code, inControlNum, inSpeed, inName);
}

bool CVX_ButtonSpecialAction::ExecuteSelf(int32_t inValue, bool /*inRepeat*/) {
    // A failed send ends the action silently, as a sent one does.
    if (CVXAppNotifier* notifier = SVXPlatform::Get().notifier) {
        notifier->SendApplicationEvent(mAppSignature, kButtonEventID,
                                       {{kControlNumberKeyword, static_cast<int32_t>(mControlNum)},
                                        {kControlValueKeyword, inValue}});
    }
    return false;
}

CVX_BankSpecialAction::CVX_BankSpecialAction(uint32_t inAppSignature, uint32_t inSpecialActionType,
                                             uint32_t inControlNum, uint16_t inSpeed,
                                             const char* inName)
    : CVX_SpecialAction(inAppSignature, inSpecialActionType, inControlNum, inSpeed, inName),
      mBank(BankForCode(inSpecialActionType)) {}

bool CVX_BankSpecialAction::ExecuteSelf(int32_t inValue, bool /*inRepeat*/) {
    if (inValue != 0) {
        if (CVX_KeysetData* data = CVX_KeysetData::GetKeysetData()) {
            if (CVX_Keyset* keyset = data->GetCurrentKeyset()) keyset->SetCurrentBank(mBank);
        }
    }
    return false;
}
