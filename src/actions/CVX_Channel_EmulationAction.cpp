#include "actions/CVX_Channel_EmulationAction.h"

#include <cstring>

#include "model/CVX_Keyset.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"

uint8_t CVX_Channel_EmulationAction::sCurrentBank = 0;
bool CVX_EmulationModeCSelectAction::sBankSwitchMode = false;
bool CVX_EmulationModeCSelectAction::sBankChanged = false;

CVX_Channel_EmulationAction::CVX_Channel_EmulationAction(uint32_t inEmulationMode,
                                                         uint32_t inControlType, uint32_t inChannel,
                                                         const char* inName, uint16_t inMsglength,
                                                         const uint8_t* inMessage,
                                                         bool inAcceptsMIDI, uint32_t inAppSig)
    : CVX_Channel_Action(inName, inControlType, static_cast<int32_t>(inChannel)),
      // The bank controls' table is consulted with the channel control's index,
      // so the fader and the four buttons find their entries and Touch Sense
      // (index 5, one past the end) reads as allowed too. A number below 160
      // or past Touch Sense is no channel control and never answers.
      mAcceptsMIDI(inAcceptsMIDI && UVX_ControlClass::ControlAcceptsMIDI(inControlType - 0xA0)),
      mEmulationMode(inEmulationMode),
      mMsgLength(inMsglength),
      mAppSig(inAppSig),
      mBank(inChannel >= 8 ? 1 : 0) {
    std::memcpy(mMessage, inMessage, kVXEmulationMessageSize);
}

bool CVX_Channel_EmulationAction::Execute(CVX_ChannelControlData*, int32_t) {
    return false;  // the MIDI path adds sending the filled template to the host
}

CVX_EmulationModeCSelectAction::CVX_EmulationModeCSelectAction(
    uint32_t inChannel, const char* inName, uint16_t inMsglength, const uint8_t* inMessage,
    bool inAcceptsMIDI, uint32_t inAppSig)
    : CVX_Channel_EmulationAction(kVXEmulationModeC, kVXChannelSelect, inChannel, inName,
                                  inMsglength, inMessage, inAcceptsMIDI, inAppSig) {}

void CVX_EmulationModeCSelectAction::ResetStatics() {
    sCurrentBank = 0;
    sBankSwitchMode = false;
    sBankChanged = false;
}

std::unique_ptr<CVX_Channel_Action>
CVX_Channel_EmulationAction::CreateChannelEmulationActionFromStream(UStreamReader* inReader,
                                                                    uint32_t inControlType,
                                                                    uint32_t inChannel,
                                                                    const char* inName) {
    uint32_t mode = 0, unused = 0;
    uint16_t msgLength = 0, acceptsMIDI = 0;
    uint8_t message[kVXEmulationMessageSize] = {};
    if (!inReader->TagIs(VXTag("CEmD")) || !inReader->TagIs(VXTag("EmMd")) ||
        !inReader->GetLong(mode) || !inReader->TagIs(VXTag("EmTp")) || !inReader->GetLong(unused) ||
        !inReader->TagIs(VXTag("EmCN")) || !inReader->GetLong(unused) ||
        !inReader->TagIs(VXTag("EmSF")) || !inReader->GetLong(unused) ||
        !inReader->TagIs(VXTag("MDLn")) || !inReader->GetShort(msgLength) ||
        !inReader->TagIs(VXTag("MDMs")) || !inReader->GetBytes(message, kVXEmulationMessageSize) ||
        !inReader->TagIs(VXTag("AcMD")) || !inReader->GetShort(acceptsMIDI)) {
        return nullptr;
    }
    // The application is that of the keyset being built; with none (an action
    // built on its own) there is no application and no scaling applies.
    uint32_t appSig = CVX_Keyset::GetSignatureUnderConstruction();
    if (mode == kVXEmulationModeC && inControlType == kVXChannelSelect) {
        return std::make_unique<CVX_EmulationModeCSelectAction>(inChannel, inName, msgLength,
                                                                message, acceptsMIDI != 0, appSig);
    }
    return std::make_unique<CVX_Channel_EmulationAction>(
        mode, inControlType, inChannel, inName, msgLength, message, acceptsMIDI != 0, appSig);
}
