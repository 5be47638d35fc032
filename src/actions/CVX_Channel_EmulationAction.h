// Emulation actions: in a keyset with an emulation mode (2 = Mode B, 3 =
// Mode C) each channel control speaks the protocol of another kind of control
// surface. The template describes the foreign message, with marker bytes
// (0xF8 to 0xFF) for the parts that depend on the value; on a move the filled
// template goes to the host, and the host's messages in that protocol (fader
// positions, LED states) come back as the surface's own fader and LED
// messages. Mode C's Select buttons also switch the emulated bank.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_MIDIResponderMixIn.h"

class UStreamReader;

constexpr uint32_t kVXEmulationModeB = 2;
constexpr uint32_t kVXEmulationModeC = 3;

// Every template holds this many bytes, whatever its length says.
constexpr uint32_t kVXEmulationMessageSize = 16;

// No first half of a two-message Mode C update is pending.
constexpr uint8_t kVXModeCNothingPending = 0xFF;

// The applications that take a 14-bit fader value on a scale of their own,
// by their signatures, and the factors (per thousand) of that scale.
constexpr uint32_t kVXKeyGSignature = 0x4B657947;  // 'KeyG'
constexpr uint32_t kVXEMAGSignature = 0x454D4147;  // 'EMAG'
constexpr int32_t kFCPScaleFactor = 69172;
constexpr int32_t kLogicScaleFactor = 58437;

// The Mode C bank gesture's messages to the host.
constexpr size_t kVXModeCBankMessageSize = 12;
extern const uint8_t kEmulationModeCBankUpMessage[kVXModeCBankMessageSize];
extern const uint8_t kEmulationModeCBankDownMessage[kVXModeCBankMessageSize];

class CVX_Channel_EmulationAction : public CVX_Channel_Action, public CVX_MIDIResponderMixIn {
  public:
    // inMessage points at kVXEmulationMessageSize template bytes; all of them
    // are copied whatever inMsglength says.
    CVX_Channel_EmulationAction(uint32_t inEmulationMode, uint32_t inControlType,
                                uint32_t inChannel, const char* inName, uint16_t inMsglength,
                                const uint8_t* inMessage, bool inAcceptsMIDI, uint32_t inAppSig);

    // Fills the template from the value and sends it to the host; every move
    // is sent (no rate limit). Always false.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    // The host's message for this strip and control, as the surface's fader
    // or LED message; 0 for anything else and for strips 8 to 15. Mode B
    // matches the template; Mode C decodes the protocol's two-message updates,
    // keeping the first half until the second comes.
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                        size_t inLength) override;
    void Name(char* outName) override;
    // The fader moved to inValue (not doubled), or the button's LED on when
    // inValue is not 0; nothing for any other control.
    void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength) override;
    // A step for a relative control: 0..63 as it is, a negative one as 0x40
    // with its magnitude (-1 gives 0x41).
    virtual uint8_t RelativeValue(int32_t inValue);

    // Body: "CEmD", "EmMd" mode, "EmTp", "EmCN", "EmSF" (three longs read and
    // dropped), "MDLn" length, "MDMs" and 16 template bytes, "AcMD" short
    // (answers host MIDI when nonzero). Mode 3 on Select builds the Mode C
    // Select action, everything else the plain one; a missing tag or a short
    // read gives null. Prints nothing.
    static std::unique_ptr<CVX_Channel_Action> CreateChannelEmulationActionFromStream(
        UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName);

    uint32_t GetEmulationMode() const { return mEmulationMode; }
    // As stored: a length above 16 is kept here and bounded where bytes are used.
    uint16_t GetMsgLength() const { return mMsgLength; }
    const uint8_t* GetMessage() const { return mMessage; }
    uint8_t GetCableFlag() const { return mCableFlag; }
    uint8_t GetModeC1stDataByte() const { return mModeC_1stDataByte; }
    uint32_t GetAppSig() const { return mAppSig; }
    uint8_t GetBank() const { return mBank; }
    static uint8_t GetCurrentBank() { return sCurrentBank; }

  protected:
    // The template bytes that are sent and matched: a stored length is never
    // checked when the action is built, and the template holds 16 bytes, so a
    // longer length is taken as 16.
    size_t UsedLength() const;
    bool IsScaledFader() const;
    size_t UnmapModeB(const uint8_t* inMessage, size_t inLength, uint8_t* outUnmappedMessage);
    size_t UnmapModeC(const uint8_t* inMessage, size_t inLength, uint8_t* outUnmappedMessage);
    size_t Answer(uint8_t inValue, uint8_t* outUnmappedMessage);

    uint32_t mEmulationMode;
    uint32_t mActionType = 0;  // kept; nothing sets or reads it
    uint16_t mMsgLength;
    uint8_t mMessage[kVXEmulationMessageSize];
    uint8_t mCableFlag = 0;
    uint8_t mModeC_1stDataByte = kVXModeCNothingPending;
    uint32_t mAppSig;
    uint8_t mBank;  // 1 for strips 8 and above; kept, nothing reads it

    // The emulated bank, moved by the Mode C bank gesture; kept as state.
    static uint8_t sCurrentBank;
};

// Mode C on a Select button: holding Select of strip 0 (4, 8, 12) turns the
// Select buttons of the next two strips into bank down and bank up.
class CVX_EmulationModeCSelectAction : public CVX_Channel_EmulationAction {
  public:
    CVX_EmulationModeCSelectAction(uint32_t inChannel, const char* inName, uint16_t inMsglength,
                                   const uint8_t* inMessage, bool inAcceptsMIDI, uint32_t inAppSig);

    // By strip & 3: Select of strip 0 held is the bank gesture (its own press
    // and release are sent at its release, unless a bank moved meanwhile);
    // while it is held, Select of strips 1 and 2 move the bank down and up.
    // Everything else is the plain emulation action's press and release.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    // Every emulation static, the emulated bank of the base included, back to
    // where a new process starts: a new keyset set must not inherit a bank
    // gesture or bank of the set before it.
    static void ResetStatics();

  protected:
    // Select of strip 0 is held, and whether a bank moved while it was.
    static bool sBankSwitchMode;
    static bool sBankChanged;
};
