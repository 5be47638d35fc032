#include "model/CVX_KeysetData.h"

#include "actions/CVX_Channel_EmulationAction.h"
#include "model/UVX_ControlClass.h"

CVX_KeysetData* CVX_KeysetData::sSelf = nullptr;
uint32_t CVX_KeysetData::sCurrentLatchedControl = kVXNoLatchedControl;
uint32_t CVX_KeysetData::sLatchedControlKeyset = kVXNoLatchedControl;
uint32_t CVX_KeysetData::sLatchedControlBank = kVXNoLatchedControl;

CVX_KeysetData::CVX_KeysetData() {
    // The latch and the emulated bank are process-wide state; a new set
    // starts with neither, so that a set built after another (every test, every
    // vxctl run) never inherits them.
    ResetLatch();
    CVX_EmulationModeCSelectAction::ResetStatics();
    sSelf = this;
    if (initSub()) mMasterTimer.Start();
}

CVX_KeysetData::~CVX_KeysetData() {
    // Keysets first: their actions leave the master timer as they go.
    DeleteKeysets();
    mMasterTimer.Stop();
    if (sSelf == this) sSelf = nullptr;
    ResetLatch();
}

void CVX_KeysetData::ResetLatch() {
    sCurrentLatchedControl = kVXNoLatchedControl;
    sLatchedControlKeyset = kVXNoLatchedControl;
    sLatchedControlBank = kVXNoLatchedControl;
}

bool CVX_KeysetData::initSub() {
    mCurrentKeysetIndex = 0;
    mCurrentEditControl = kVXStop;
    mDisableTouchSenseMIDI = false;
    mKeysets.push_back(std::make_unique<CVX_Keyset>("Default", kVXDefaultSignature));
    return true;
}

bool CVX_KeysetData::Reinit() {
    // The dropped keysets are destroyed here rather than leaked: nothing else
    // holds them.
    mKeysets.clear();
    return initSub();
}

CVX_Keyset* CVX_KeysetData::GetKeysetAt(uint32_t inKeysetIndex) const {
    return inKeysetIndex < GetNumKeysets() ? mKeysets[inKeysetIndex].get() : nullptr;
}

void CVX_KeysetData::SetCurrentKeyset(uint32_t inKeysetIndex) {
    if (inKeysetIndex < GetNumKeysets()) mCurrentKeysetIndex = inKeysetIndex;
    if (CVX_Keyset* keyset = GetKeysetAt(mCurrentKeysetIndex)) keyset->Wakeup();
}

uint32_t CVX_KeysetData::FindKeysetIndexForSig(uint32_t inSig) const {
    // Entry 0 is the fall-back and is never compared.
    if (GetNumKeysets() < 2) return 0;
    for (uint32_t i = 1; i < GetNumKeysets(); ++i) {
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
}

bool CVX_KeysetData::DeleteKeysetAt(uint32_t inKeysetIndex) {
    if (inKeysetIndex >= GetNumKeysets()) return false;
    mKeysets.erase(mKeysets.begin() + inKeysetIndex);
    return true;
}

uint32_t CVX_KeysetData::DeleteKeysets() {
    for (auto& keyset : mKeysets) keyset.reset();
    mKeysets.clear();
    return 0;
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
