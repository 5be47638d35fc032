// A keyset: the complete assignment of actions to every control, for one
// application (by its four-character signature). It holds one bank of five
// button records and sixteen channel strips of six channel records.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "actions/CMIDIUnmapper.h"
#include "actions/CVX_EmulationResponder.h"
#include "model/CVX_ChannelControlData.h"
#include "model/CVX_ControlData.h"

class UStreamReader;

class CVX_Bank {
  public:
    explicit CVX_Bank(uint32_t inBankNum);
    ~CVX_Bank() { DeleteControls(); }

    // Records for 0 to 4, ascending; false at the first that cannot be made.
    bool CreateControls();
    CVX_ControlData* GetControlAt(uint32_t inControl) const;  // null above 4
    // The five button records in control order, with no header. Complete, but
    // no entry point reads a whole bank today.
    bool UpdateFromStream(UStreamReader* inReader);
    void SetBankNum(uint32_t inBankNum) { mBankNum = inBankNum; }
    uint32_t GetBankNum() const { return mBankNum; }
    void DeleteControls();

  private:
    std::unique_ptr<CVX_ControlData> mControls[5];
    uint32_t mBankNum;
};

class CVX_BankArray {
  public:
    CVX_BankArray() { CreateBanks(); }
    ~CVX_BankArray() { DeleteBanks(); }

    bool CreateBanks();
    CVX_Bank* GetBankAt(uint32_t inBank) const;  // bank 0 only
    bool UpdateFromStream(UStreamReader* inReader);
    void DeleteBanks();

  private:
    std::unique_ptr<CVX_Bank> mBanks[1];
};

class CVX_ChannelStrip {
  public:
    explicit CVX_ChannelStrip(uint32_t inChannel);
    ~CVX_ChannelStrip() { DeleteControls(); }

    bool CreateControls();  // 160 to 165, ascending
    // Slot n - 160; callers have classified n as a channel control. Null for
    // anything outside 160 to 165.
    CVX_ChannelControlData* GetControlAt(uint32_t inControl) const;
    void SetChannel(uint32_t inChannel) { mChannel = inChannel; }
    uint32_t GetChannel() const { return mChannel; }
    void DeleteControls();

  private:
    std::unique_ptr<CVX_ChannelControlData> mControls[6];
    uint32_t mChannel;
};

class CVX_ChannelStripArray {
  public:
    CVX_ChannelStripArray() { CreateChannelStrips(); }
    ~CVX_ChannelStripArray() { DeleteChannelStrips(); }

    bool CreateChannelStrips();
    CVX_ChannelStrip* GetChannelStripAt(uint32_t inChannel) const;  // null above 15
    // Six groups (160 to 165), each "ChCT" index and a record per channel.
    bool UpdateFromStream(UStreamReader* inReader);
    void DeleteChannelStrips();

  private:
    std::unique_ptr<CVX_ChannelStrip> mChannelStrips[16];
};

class CVX_Keyset {
  public:
    // Becomes the keyset under construction, so that actions built for it
    // register with its unmapper and take its signature.
    CVX_Keyset(const char* inName, uint32_t inSignature);
    ~CVX_Keyset();  // no longer the keyset under construction
    CVX_Keyset(const CVX_Keyset&) = delete;
    CVX_Keyset& operator=(const CVX_Keyset&) = delete;

    bool SetProperties(const char* inName, uint32_t inSignature);
    // "Kyst" record: name, signature, emulation mode, channel strips.
    bool UpdateFromStream(UStreamReader* inReader);
    CVX_ControlData* GetControlAt(uint32_t inControl, uint32_t inBank) const;
    CVX_ChannelControlData* GetChannelControlAt(uint32_t inControlType, uint32_t inChannel) const;
    // Called each time the set's current keyset is (re)selected.
    void Wakeup();

    uint32_t GetCurrentBank() const { return mCurrentBank; }
    // A keyset has bank 0 only: any other number is ignored.
    void SetCurrentBank(uint32_t inBank);
    uint32_t GetCurrentControl() const { return mCurrentControl; }
    void SetCurrentControl(uint32_t inControl) { mCurrentControl = inControl; }
    uint32_t GetCurrentChannel() const { return mCurrentChannel; }
    void SetCurrentChannel(uint32_t inChannel) { mCurrentChannel = inChannel; }
    const std::string& GetName() const { return mName; }
    uint32_t GetSignature() const { return mSignature; }
    CMIDIUnmapper* GetMIDIUnmapper() { return &mUnmapper; }
    uint32_t GetEmulationMode() const { return mEmulationMode; }
    void SetEmulationMode(uint32_t inMode) { mEmulationMode = inMode; }
    CVX_EmulationResponder* GetEmulationResponder() const { return mEmulationResponder.get(); }
    void SetEmulationResponder(std::unique_ptr<CVX_EmulationResponder> inResponder);
    CVX_BankArray* GetBankArray() const { return mBankArray.get(); }
    CVX_ChannelStripArray* GetChannelStrips() const { return mChannelStrips.get(); }

    static CVX_Keyset* GetKeysetUnderConstruction() { return sKeysetUnderConstruction; }
    static void SetKeysetUnderConstruction(CVX_Keyset* inKeyset) {
        sKeysetUnderConstruction = inKeyset;
    }
    // The application of the keyset under construction, which the actions
    // built for it address; 0 when no keyset is being built.
    static uint32_t GetSignatureUnderConstruction() {
        return sKeysetUnderConstruction ? sKeysetUnderConstruction->mSignature : 0;
    }

  private:
    static CVX_Keyset* sKeysetUnderConstruction;

    std::string mName;
    uint32_t mSignature = 0;
    uint32_t mCurrentBank = 0;
    uint32_t mCurrentControl = 0;
    uint32_t mCurrentChannel = 0;
    std::unique_ptr<CVX_BankArray> mBankArray;
    std::unique_ptr<CVX_ChannelStripArray> mChannelStrips;
    CMIDIUnmapper mUnmapper;
    uint32_t mEmulationMode = 0;
    std::unique_ptr<CVX_EmulationResponder> mEmulationResponder;
};
