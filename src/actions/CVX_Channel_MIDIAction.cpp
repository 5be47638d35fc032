#include "actions/CVX_Channel_MIDIAction.h"

#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"

CVX_Channel_MIDIAction::CVX_Channel_MIDIAction(uint32_t inControlType, uint32_t inChannel,
                                               const char* inName, uint32_t inActionType,
                                               uint16_t inMsglength, const uint8_t* inMessage)
    : CVX_Channel_Action(inName, inControlType, static_cast<int32_t>(inChannel)),
      // Looked up by control number; a number outside the table never answers.
      CVX_MIDITemplate(inActionType, inMsglength, inMessage,
                       inActionType == kVXChannelMIDITwoWay &&
                           UVX_ControlClass::ChannelControlAcceptsMIDI(inControlType)) {}

bool CVX_Channel_MIDIAction::Execute(CVX_ChannelControlData*, int32_t) {
    return false;  // the MIDI path adds sending the template to the host
}

std::unique_ptr<CVX_Channel_Action> CVX_Channel_MIDIAction::CreateChannelMIDIActionFromStream(
    UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName) {
    uint32_t actionType = 0;
    uint16_t msgLength = 0;
    uint8_t message[kVXChannelMIDIMessageSize] = {};
    if (!inReader->TagIs(VXTag("MidD")) || !inReader->TagIs(VXTag("CTyp")) ||
        !inReader->GetLong(actionType) || !inReader->TagIs(VXTag("MDLn")) ||
        !inReader->GetShort(msgLength) || !inReader->TagIs(VXTag("MDMs")) ||
        !inReader->GetBytes(message, kVXChannelMIDIMessageSize)) {
        return nullptr;
    }
    if (UVX_ControlClass::IsChannelFader(inControlType)) {
        return std::make_unique<CVX_Channel_FaderMIDIAction>(inControlType, inChannel, inName,
                                                             actionType, msgLength, message);
    }
    if (UVX_ControlClass::IsChannelButton(inControlType)) {
        return std::make_unique<CVX_Channel_ButtonMIDIAction>(inControlType, inChannel, inName,
                                                              actionType, msgLength, message);
    }
    return nullptr;
}
