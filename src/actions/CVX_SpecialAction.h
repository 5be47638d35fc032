// Special actions: the one built from streams tells an application (the
// keyset's, or the editor) that a button changed; the bank action switches the
// current keyset's bank.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"

class UStreamReader;

// Special-action codes as stored in the stream.
constexpr uint32_t kVXSelectBank1 = 5;
constexpr uint32_t kVXSelectBank2 = 6;
constexpr uint32_t kVXSelectBank0 = 13;
constexpr uint32_t kVXSelectBank3 = 14;
constexpr uint32_t kVXNotifyButton = 191;

class CVX_SpecialAction : public CVX_Action {
  public:
    CVX_SpecialAction(uint32_t inAppSignature, uint32_t inSpecialActionType, uint32_t inControlNum,
                      uint16_t inSpeed, const char* inName);

    // The action for a code, addressed to the keyset under construction (or
    // signature 0 when there is none): only code 191 builds one.
    static std::unique_ptr<CVX_SpecialAction> Create_VX_SpecialAction(uint32_t inCode,
                                                                      uint32_t inControlNum,
                                                                      uint16_t inSpeed,
                                                                      const char* inName);
    // Body: 2 bytes skipped, then the code. The bank codes build nothing; any
    // other code on a button is read as 191.
    static std::unique_ptr<CVX_Action> CreateSpecialActionFromStream(uint32_t inControlNum,
                                                                     uint16_t inSpeed,
                                                                     const char* inName,
                                                                     UStreamReader* inReader);

    uint32_t GetAppSignature() const { return mAppSignature; }
    uint32_t GetSpecialActionType() const { return mSpecialActionType; }

  protected:
    uint32_t mAppSignature;
    uint32_t mSpecialActionType;
};

// Sends 'QBtn' with the control number and value to the application, on press
// and release alike. The rest of the sequence does not run from it.
class CVX_ButtonSpecialAction : public CVX_SpecialAction {
  public:
    using CVX_SpecialAction::CVX_SpecialAction;

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;
};

// On a press, makes its bank current in the current keyset (which accepts
// bank 0 only). The rest of the sequence does not run from it.
class CVX_BankSpecialAction : public CVX_SpecialAction {
  public:
    // The bank comes from the code: 5 -> 1, 6 -> 2, 13 -> 0, 14 -> 3, else 0.
    CVX_BankSpecialAction(uint32_t inAppSignature, uint32_t inSpecialActionType,
                          uint32_t inControlNum, uint16_t inSpeed, const char* inName);

    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;

    uint32_t GetBank() const { return mBank; }

  protected:
    uint32_t mBank;
};
