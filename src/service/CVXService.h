// The control service: turns each notify record of the input parser into
// behaviour. It keeps the keyset of the front application current, decodes the
// record, keeps a little status about the controls last touched, releases a
// latched transport control when another is pressed, and hands the value to the
// control's record in the current keyset (or, in edit mode, to its editor
// action). Pass-through MIDI goes to the host. It owns the set of keysets.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "driver/CVXRecordSink.h"
#include "model/UVX_ControlClass.h"

class CVX_KeysetData;

// Status of the surface's controls. The wheel, ring and joystick fields serve
// surface elements this driver does not read; they are kept and initialised.
struct SVXControlStatus {
    uint32_t* mPreviousControlStatus = nullptr;  // -> SVXGlobals::mPreviousControlStatusMap
    uint32_t* mControlStatus = nullptr;          // -> SVXGlobals::mControlStatusMap
    bool mWheelInMotion = false;
    bool mRingInMotion = false;
    // Left unset by the original initialisation; zero rather than whatever
    // memory held.
    int32_t mAbsoluteWheelValue = 0;
    int32_t mRelativeWheelValue = 0;
    int32_t mPreviousRingValue = 0;
    int32_t mRingValue = 0;
    int32_t mJoystickValues[3] = {};
    int32_t mPreviousJoystickValues[3] = {};
    int32_t mLastWheelTick = 0;
    uint32_t mLatchedControl = 0xFFFFFFFF;  // none
    int8_t mLastWheelDir = 0;
    uint8_t mLastActiveControl = kVXStop;  // last control pressed, touched or moved
    // Last control released. The original initialisation stores 2 into
    // mLastActiveControl a second time where this field was meant, leaving it
    // unset; nothing reads it before the first release sets it, and 0 stands
    // for "none yet".
    uint8_t mLastInactiveControl = 0;
    uint8_t mLastCommand = 0;     // kept
    uint8_t mLastSubCommand = 0;  // raw value byte of the last transport record
};

// Service-wide state. Fields marked kept are not read beyond their
// initialisation; they stay so that the record keeps its designed shape. Those
// the design leaves uninitialised are zeroed: this driver does not leave memory
// as the allocation left it.
struct SVXGlobals {
    SVXGlobals() = default;
    // mControlStatus points into this very object: a copy would point into the
    // original.
    SVXGlobals(const SVXGlobals&) = delete;
    SVXGlobals& operator=(const SVXGlobals&) = delete;

    uint8_t mPremierCaptureWindowName[256] = {};  // Pascal string; kept
    bool mProcessMgrLoaded = false;               // kept
    bool mDriverLoaded = false;                   // kept
    bool mEditMode = false;                       // the editor has the surface in edit mode
    bool mTestMode = false;                       // kept
    bool mDataIsDirty = false;                    // kept
    bool mHasCursorDevManager = false;            // kept
    bool mDataChangedByShim = false;              // kept
    bool mSnapBackSchedualed = false;             // kept
    bool mCursorHidden = false;                   // kept
    bool mProToolsMode = false;                   // kept
    uint8_t mLastTransportControl = kVXStop;
    uint8_t mLastBankSelect = 0xFF;
    uint32_t mLastKnownCursorPos = 0;  // kept
    uint32_t mDebugCtr1 = 0;
    uint32_t mDebugCtr2 = 0;
    char mDebugBuf[800] = {};
    uint32_t mDebugBufCtr = 0;
    uint32_t mLastActiveChannel = 0;          // channel of the last channel-strip record
    void* mCurrentAppSpecificTask = nullptr;  // kept
    SVXControlStatus mControlStatus;
    CVX_KeysetData* mKeysetData = nullptr;  // kept; the live one is CVXService's
    uint16_t mUnitCount = 0;                // kept
    uint16_t mChannelCount = 0;             // kept
    uint32_t mPreviousControlStatusMap[kNumBankControls] = {};
    // Index = transport control 0 to 4: 1 while that button is down, else 0.
    uint32_t mControlStatusMap[kNumBankControls] = {};
};

class CVXService : public CVXRecordSink {
  public:
    // Becomes sSelf, initialises the globals and builds the keyset set from the
    // preferences file.
    CVXService();
    // The same, with the preferences given as stream data instead of read from
    // the file (empty: none), for tools that replay captures with a chosen
    // keyset file.
    explicit CVXService(std::vector<uint8_t> inPrefs);
    // Destroys the keyset set; no longer reachable through GetVXService().
    ~CVXService() override;
    CVXService(const CVXService&) = delete;
    CVXService& operator=(const CVXService&) = delete;

    static CVXService* GetVXService() { return sSelf; }

    bool InitGlobals();
    // Creates the keyset set and fills it from the preferences file. False when
    // there was no file to read: the set then holds its default keyset.
    bool CreateKeysetData();

    void SetEditMode(bool inEditMode) { mGlobals.mEditMode = inEditMode; }
    bool IsEditMode() const { return mGlobals.mEditMode; }
    CVX_KeysetData* GetKeysetData() const { return mKeysetData.get(); }
    const SVXGlobals& GetGlobals() const { return mGlobals; }

    // Decodes one notify record into control number, channel and value, and
    // keeps the status fields. False for anything that is no control.
    bool GetControlStatus(const int8_t* inRecord, uint8_t* outControl, uint8_t* outChannel,
                          int16_t* outValue);
    // Handles one notify record; the pointer is not kept.
    void Service(const uint8_t* record) override;

    // Makes the keyset of the front application current (not in edit mode).
    void CheckForProcessChange();
    bool GetFrontProcessSig(uint32_t* outSignature);
    // The front application's name as a Pascal string. The focus sources on
    // Linux report a signature only, so this always answers false; nothing
    // calls it.
    bool GetFrontProcessName(uint8_t* outName);

  private:
    bool CreateKeysetDataFrom(std::vector<uint8_t> inPrefs);

    static CVXService* sSelf;

    std::unique_ptr<CVX_KeysetData> mKeysetData;
    SVXGlobals mGlobals;
};
