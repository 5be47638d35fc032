#include "model/CVX_Keyset.h"

#include "model/UVX_ControlClass.h"

CVX_Keyset* CVX_Keyset::sKeysetUnderConstruction = nullptr;

CVX_Bank::CVX_Bank(uint32_t inBankNum) : mBankNum(inBankNum) {
    CreateControls();
}

bool CVX_Bank::CreateControls() {
    for (uint32_t n = 0; n < kNumBankControls; ++n) {
        mControls[n] = CVX_ControlData::Create_VX_ControlData(kControlNames[n], "_", n);
        if (!mControls[n]) return false;
    }
    return true;
}

CVX_ControlData* CVX_Bank::GetControlAt(uint32_t inControl) const {
    return inControl < kNumBankControls ? mControls[inControl].get() : nullptr;
}

void CVX_Bank::DeleteControls() {
    for (auto& control : mControls) control.reset();
}

bool CVX_BankArray::CreateBanks() {
    mBanks[0] = std::make_unique<CVX_Bank>(0);
    return true;
}

CVX_Bank* CVX_BankArray::GetBankAt(uint32_t inBank) const {
    return inBank == 0 ? mBanks[0].get() : nullptr;
}

void CVX_BankArray::DeleteBanks() {
    mBanks[0].reset();
}

CVX_ChannelStrip::CVX_ChannelStrip(uint32_t inChannel) : mChannel(inChannel) {
    CreateControls();
}

bool CVX_ChannelStrip::CreateControls() {
    for (uint32_t n = kFirstChannelControl; n < kFirstChannelControl + kNumChannelControls; ++n) {
        mControls[n - kFirstChannelControl] = CVX_ChannelControlData::Create_VX_ChannelControlData(
            kChannelControlNames[n - kFirstChannelControl], n, mChannel);
        if (!mControls[n - kFirstChannelControl]) return false;
    }
    return true;
}

CVX_ChannelControlData* CVX_ChannelStrip::GetControlAt(uint32_t inControl) const {
    // Callers classify the number first; the lower bound guards the rest.
    if (!UVX_ControlClass::IsChannelControl(inControl)) return nullptr;
    return mControls[inControl - kFirstChannelControl].get();
}

void CVX_ChannelStrip::DeleteControls() {
    for (auto& control : mControls) control.reset();
}

bool CVX_ChannelStripArray::CreateChannelStrips() {
    for (uint32_t channel = 0; channel < kNumChannelStrips; ++channel) {
        mChannelStrips[channel] = std::make_unique<CVX_ChannelStrip>(channel);
    }
    return true;
}

CVX_ChannelStrip* CVX_ChannelStripArray::GetChannelStripAt(uint32_t inChannel) const {
    return inChannel < kNumChannelStrips ? mChannelStrips[inChannel].get() : nullptr;
}

void CVX_ChannelStripArray::DeleteChannelStrips() {
    for (auto& strip : mChannelStrips) strip.reset();
}

CVX_Keyset::CVX_Keyset(const char* inName, uint32_t inSignature) {
    sKeysetUnderConstruction = this;
    SetProperties(inName, inSignature);
    mBankArray = std::make_unique<CVX_BankArray>();
    mChannelStrips = std::make_unique<CVX_ChannelStripArray>();
}

CVX_Keyset::~CVX_Keyset() {
    if (sKeysetUnderConstruction == this) sKeysetUnderConstruction = nullptr;
    // The responder and the records' actions go before the unmapper they may
    // be registered with.
    mEmulationResponder.reset();
    mChannelStrips.reset();
    mBankArray.reset();
}

bool CVX_Keyset::SetProperties(const char* inName, uint32_t inSignature) {
    mName = inName;
    mSignature = inSignature;
    return true;
}

CVX_ControlData* CVX_Keyset::GetControlAt(uint32_t inControl, uint32_t inBank) const {
    CVX_Bank* bank = mBankArray ? mBankArray->GetBankAt(inBank) : nullptr;
    return bank ? bank->GetControlAt(inControl) : nullptr;
}

CVX_ChannelControlData* CVX_Keyset::GetChannelControlAt(uint32_t inControlType,
                                                        uint32_t inChannel) const {
    CVX_ChannelStrip* strip =
        mChannelStrips ? mChannelStrips->GetChannelStripAt(inChannel) : nullptr;
    return strip ? strip->GetControlAt(inControlType) : nullptr;
}

void CVX_Keyset::Wakeup() {
    if (mEmulationResponder) mEmulationResponder->FirstMessageToHost();
}

void CVX_Keyset::SetCurrentBank(uint32_t inBank) {
    if (inBank < kNumBanks) mCurrentBank = inBank;
}

void CVX_Keyset::SetEmulationResponder(std::unique_ptr<CVX_EmulationResponder> inResponder) {
    mEmulationResponder = std::move(inResponder);
}
