#include "model/CVX_KeysetData.h"

CVX_KeysetData* CVX_KeysetData::sSelf = nullptr;
uint32_t CVX_KeysetData::sCurrentLatchedControl = kVXNoLatchedControl;
uint32_t CVX_KeysetData::sLatchedControlKeyset = kVXNoLatchedControl;
uint32_t CVX_KeysetData::sLatchedControlBank = kVXNoLatchedControl;

CVX_KeysetData::CVX_KeysetData() {
    // The latch is process-wide state; a new set starts with none, so that a
    // set built after another never inherits its latch.
    sCurrentLatchedControl = kVXNoLatchedControl;
    sLatchedControlKeyset = kVXNoLatchedControl;
    sLatchedControlBank = kVXNoLatchedControl;
    sSelf = this;
    if (initSub()) mMasterTimer.Start();
}

CVX_KeysetData::~CVX_KeysetData() {
    // Keysets first: their actions leave the master timer as they go.
    DeleteKeysets();
    mMasterTimer.Stop();
    if (sSelf == this) sSelf = nullptr;
    sCurrentLatchedControl = kVXNoLatchedControl;
    sLatchedControlKeyset = kVXNoLatchedControl;
    sLatchedControlBank = kVXNoLatchedControl;
}

bool CVX_KeysetData::initSub() {
    mNumKeysets = 0;
    mCurrentKeysetIndex = 0;
    mCurrentEditControl = 2;
    mDisableTouchSenseMIDI = false;
    auto keyset = std::make_unique<CVX_Keyset>("Default", kVXDefaultSignature);
    if (!keyset) return false;
    mKeysets.push_back(std::move(keyset));
    mNumKeysets = static_cast<uint32_t>(mKeysets.size());
    return true;
}

bool CVX_KeysetData::Reinit() {
    // The dropped keysets are destroyed here rather than leaked: nothing else
    // holds them.
    if (mNumKeysets != 0) mKeysets.clear();
    return initSub();
}

CVX_Keyset* CVX_KeysetData::GetKeysetAt(uint32_t inKeysetIndex) const {
    return inKeysetIndex < mNumKeysets ? mKeysets[inKeysetIndex].get() : nullptr;
}

void CVX_KeysetData::SetCurrentKeyset(uint32_t inKeysetIndex) {
    if (inKeysetIndex < mNumKeysets) mCurrentKeysetIndex = inKeysetIndex;
    if (CVX_Keyset* keyset = GetKeysetAt(mCurrentKeysetIndex)) keyset->Wakeup();
}

uint32_t CVX_KeysetData::FindKeysetIndexForSig(uint32_t inSig) const {
    // Entry 0 is the fall-back and is never compared.
    if (mNumKeysets < 2) return 0;
    for (uint32_t i = 1; i < mNumKeysets; ++i) {
        if (mKeysets[i]->GetSignature() == inSig) return i;
    }
    return 0;
}

CMIDIUnmapper* CVX_KeysetData::GetCurrentMIDIUnmapper() {
    if (!sSelf) return nullptr;
    CVX_Keyset* keyset = sSelf->GetKeysetAt(sSelf->mCurrentKeysetIndex);
    return keyset ? keyset->GetMIDIUnmapper() : nullptr;
}

void CVX_KeysetData::AddKeyset(std::unique_ptr<CVX_Keyset> inKeyset) {
    mKeysets.push_back(std::move(inKeyset));
    mNumKeysets = static_cast<uint32_t>(mKeysets.size());
}

bool CVX_KeysetData::DeleteKeysetAt(uint32_t inKeysetIndex) {
    if (inKeysetIndex >= mNumKeysets) return false;
    mKeysets.erase(mKeysets.begin() + inKeysetIndex);
    mNumKeysets = static_cast<uint32_t>(mKeysets.size());
    return true;
}

uint32_t CVX_KeysetData::DeleteKeysets() {
    for (auto& keyset : mKeysets) keyset.reset();
    mKeysets.clear();
    mNumKeysets = 0;
    return mNumKeysets;
}

void CVX_KeysetData::LatchControl(uint32_t inControlNum) {
    if (!sSelf) return;
    sLatchedControlKeyset = sSelf->mCurrentKeysetIndex;
    if (CVX_Keyset* keyset = sSelf->GetKeysetAt(sSelf->mCurrentKeysetIndex)) {
        sLatchedControlBank = keyset->GetCurrentBank();
        sCurrentLatchedControl = inControlNum;
    }
}

void CVX_KeysetData::UnlatchLatchedControl() {
    if (sCurrentLatchedControl == kVXNoLatchedControl) return;
    // Released in the keyset where it was latched, even if another is current
    // now: executing the latched control takes its unlatching path.
    if (sSelf) {
        if (CVX_Keyset* keyset = sSelf->GetKeysetAt(sLatchedControlKeyset)) {
            if (CVX_ControlData* control =
                    keyset->GetControlAt(sCurrentLatchedControl, sLatchedControlBank)) {
                control->Execute(0, 1);
            }
        }
    }
    sCurrentLatchedControl = kVXNoLatchedControl;
}
