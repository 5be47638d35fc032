// The set of keysets: exactly one is current, chosen by the front
// application's signature with entry 0 as the fall-back. It also owns the
// master timer and the global latch of transport controls.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "actions/CVX_MasterTimer.h"
#include "model/CVX_Keyset.h"

class UStreamReader;

constexpr uint32_t kVXDefaultSignature = 0x3F3F3F3F;  // '????'
constexpr uint32_t kVXNoLatchedControl = 0xFFFFFFFF;

class CVX_KeysetData {
  public:
    // Resets the latch, creates the "Default" keyset and starts the master timer.
    CVX_KeysetData();
    // Destroys the keysets, then the master timer; clears sSelf.
    ~CVX_KeysetData();
    CVX_KeysetData(const CVX_KeysetData&) = delete;
    CVX_KeysetData& operator=(const CVX_KeysetData&) = delete;

    static CVX_KeysetData* GetKeysetData() { return sSelf; }

    bool initSub();
    // Drops every keyset (destroying them) and makes the default one again.
    bool Reinit();

    CVX_Keyset* GetKeysetAt(uint32_t inKeysetIndex) const;
    uint32_t GetNumKeysets() const { return static_cast<uint32_t>(mKeysets.size()); }
    uint32_t GetCurrentKeysetIndex() const { return mCurrentKeysetIndex; }
    // An index out of range keeps the current one; either way the current
    // keyset (if any) is woken.
    void SetCurrentKeyset(uint32_t inKeysetIndex);
    CVX_Keyset* GetCurrentKeyset() const { return GetKeysetAt(mCurrentKeysetIndex); }
    uint32_t FindKeysetIndexForSig(uint32_t inSig) const;
    static CMIDIUnmapper* GetCurrentMIDIUnmapper();

    // The keyset stream: the full set ("KstD"), an added keyset, a keyset
    // replaced in place, one button control, one channel control.
    bool UpdateFromStream(UStreamReader* inReader);
    bool NewKeysetFromStream(UStreamReader* inReader);
    bool UpdateKeysetFromStream(UStreamReader* inReader);
    bool UpdateControlFromStream(UStreamReader* inReader);
    bool UpdateChannelControlFromStream(UStreamReader* inReader);

    // Appends a keyset that was built elsewhere.
    void AddKeyset(std::unique_ptr<CVX_Keyset> inKeyset);
    // Leaves mCurrentKeysetIndex as it was, even past the end.
    bool DeleteKeysetAt(uint32_t inKeysetIndex);
    uint32_t DeleteKeysets();

    static void LatchControl(uint32_t inControlNum);
    static void UnlatchLatchedControl();
    static uint32_t GetLatchedControl() { return sCurrentLatchedControl; }
    static uint32_t GetLatchedControlKeyset() { return sLatchedControlKeyset; }
    static uint32_t GetLatchedControlBank() { return sLatchedControlBank; }

    void DisableTouchSenseMIDI(bool inDisable) { mDisableTouchSenseMIDI = inDisable; }
    bool IsTouchSenseMIDIDisabled() const { return mDisableTouchSenseMIDI; }
    bool IsVersionThreeOrLater() const { return mVerThreeOrLater; }
    void SetVersionThreeOrLater(bool inLater) { mVerThreeOrLater = inLater; }
    uint32_t GetCurrentEditControl() const { return mCurrentEditControl; }
    void SetCurrentEditControl(uint32_t inControl) { mCurrentEditControl = inControl; }

    CVX_MasterTimer& GetMasterTimer() { return mMasterTimer; }

  private:
    static void ResetLatch();

    static CVX_KeysetData* sSelf;
    static uint32_t sCurrentLatchedControl;
    static uint32_t sLatchedControlKeyset;
    static uint32_t sLatchedControlBank;

    uint32_t mCurrentKeysetIndex = 0;
    uint32_t mCurrentEditControl = 2;  // "Stop"
    std::vector<std::unique_ptr<CVX_Keyset>> mKeysets;
    CVX_MasterTimer mMasterTimer;
    bool mDisableTouchSenseMIDI = false;
    bool mVerThreeOrLater = true;
};
