// Emulation actions: in a keyset with an emulation mode (2 = Mode B, 3 =
// Mode C) each channel control speaks the protocol of another kind of control
// surface. The template describes the foreign message, with marker bytes
// (0xF8 to 0xFF) for the parts that depend on the value; Mode C's Select
// buttons also switch the emulated bank.
#pragma once

#include <cstdint>
#include <memory>

#include "actions/CVX_Channel_Action.h"

class UStreamReader;

constexpr uint32_t kVXEmulationModeB = 2;
constexpr uint32_t kVXEmulationModeC = 3;

// Every template holds this many bytes, whatever its length says.
constexpr uint32_t kVXEmulationMessageSize = 16;

// No first half of a two-message Mode C update is pending.
constexpr uint8_t kVXModeCNothingPending = 0xFF;

class CVX_Channel_EmulationAction : public CVX_Channel_Action {
  public:
    // inMessage points at kVXEmulationMessageSize template bytes; all of them
    // are copied whatever inMsglength says.
    CVX_Channel_EmulationAction(uint32_t inEmulationMode, uint32_t inControlType,
                                uint32_t inChannel, const char* inName, uint16_t inMsglength,
                                const uint8_t* inMessage, bool inAcceptsMIDI, uint32_t inAppSig);

    // Sending to the host comes with the MIDI path; until then nothing is sent.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

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
    bool AcceptsMIDI() const { return mAcceptsMIDI; }

  protected:
    // Whether this action follows host MIDI: the record asks for it and the
    // control table allows it (every channel control does). Registration with
    // the keyset's unmapper reads it; it belongs to the responder side once
    // that exists.
    bool mAcceptsMIDI;
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

    // Every emulation static, the emulated bank of the base included, back to
    // where a new process starts: a new keyset set must not inherit a bank
    // gesture or bank of the set before it.
    static void ResetStatics();

  protected:
    // Select of strip 0 is held, and whether a bank moved while it was.
    static bool sBankSwitchMode;
    static bool sBankChanged;
};
