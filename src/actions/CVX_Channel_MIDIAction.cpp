#include "actions/CVX_Channel_MIDIAction.h"

#include <cstring>

#include "actions/CMIDIUnmapper.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "output/CVX_Msg_Maker.h"

namespace {
void CopyMessage(const CVX_Msg_Maker& inMaker, uint8_t* outBuffer, size_t* outLength) {
    std::memcpy(outBuffer, inMaker.Message(), inMaker.Length());
    *outLength = inMaker.Length();
}
}  // namespace

CVX_Channel_MIDIAction::CVX_Channel_MIDIAction(uint32_t inControlType, uint32_t inChannel,
                                               const char* inName, uint32_t inActionType,
                                               uint16_t inMsglength, const uint8_t* inMessage)
    : CVX_Channel_Action(inName, inControlType, static_cast<int32_t>(inChannel)),
      // Looked up by control number; a number outside the table never answers.
      CVX_MIDIResponderMixIn(inActionType == kVXChannelMIDITwoWay &&
                             UVX_ControlClass::ChannelControlAcceptsMIDI(inControlType)),
      CVX_MIDITemplate(inActionType, inMsglength, inMessage) {}

bool CVX_Channel_MIDIAction::Execute(CVX_ChannelControlData*, int32_t inValue) {
    uint8_t message[kVXChannelMIDIMessageSize];
    const size_t length = UsedLength();
    for (size_t i = 0; i < length; ++i) {
        switch (mMessage[i]) {
            case kVXMIDIValueMarker:
                message[i] = static_cast<uint8_t>(inValue & 0x7F);
                break;
            case kVXMIDIHalfBitMarker:
                message[i] = (inValue & 1) ? 0x40 : 0x00;
                break;
            case kVXMIDIHalfValueMarker:
                message[i] = static_cast<uint8_t>((inValue & 0xFF) >> 1);
                break;
            default:
                message[i] = mMessage[i];
                break;
        }
    }
    MIDIToHost(message, length);
    return false;
}

size_t CVX_Channel_MIDIAction::UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                                            size_t inLength) {
    if (!TwoWay()) return 0;
    uint8_t value = 0;
    if (!Matches(inMessage, inLength, true, &value)) return 0;
    size_t length = 0;
    GetNativeMessage(value, outUnmappedMessage, &length);
    return length;
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

// The fader and button actions stand in the channel list too, and so answer
// each of their host messages twice: once from each list. Both answers set
// the same absolute state. They leave both lists when they go (the responder
// base takes every entry out).

CVX_Channel_FaderMIDIAction::CVX_Channel_FaderMIDIAction(uint32_t inControlType, uint32_t inChannel,
                                                         const char* inName, uint32_t inActionType,
                                                         uint16_t inMsglength,
                                                         const uint8_t* inMessage)
    : CVX_Channel_MIDIAction(inControlType, inChannel, inName, inActionType, inMsglength,
                             inMessage) {
    if (TwoWay()) CMIDIUnmapper::AddCustomChannelMIDIAction(this);
}

bool CVX_Channel_FaderMIDIAction::Execute(CVX_ChannelControlData* inControlData, int32_t inValue) {
    if (!TimeToExecute()) return false;
    if (mActionType != kVXChannelMIDITwoWay) {
        return CVX_Channel_MIDIAction::Execute(inControlData, inValue);
    }
    // Two-way: the position rounded to seven bits, and the markers other than
    // 0xFD go as they are, so that the host gets back what it may send.
    int32_t rounded = (inValue >> 1) + (inValue & 1);
    if (rounded >= 128) rounded = 0x7F;
    uint8_t message[kVXChannelMIDIMessageSize];
    const size_t length = UsedLength();
    for (size_t i = 0; i < length; ++i) {
        message[i] =
            mMessage[i] == kVXMIDIValueMarker ? static_cast<uint8_t>(rounded) : mMessage[i];
    }
    MIDIToHost(message, length);
    return false;
}

void CVX_Channel_FaderMIDIAction::GetNativeMessage(uint8_t inValue, uint8_t* outBuffer,
                                                   size_t* outLength) {
    CopyMessage(CVX_Fader_MsgMaker(static_cast<uint16_t>(mChannel), uint16_t(inValue * 2)),
                outBuffer, outLength);
}

CVX_Channel_ButtonMIDIAction::CVX_Channel_ButtonMIDIAction(uint32_t inControlType,
                                                           uint32_t inChannel, const char* inName,
                                                           uint32_t inActionType,
                                                           uint16_t inMsglength,
                                                           const uint8_t* inMessage)
    : CVX_Channel_MIDIAction(inControlType, inChannel, inName, inActionType, inMsglength,
                             inMessage) {
    if (TwoWay()) CMIDIUnmapper::AddCustomChannelMIDIAction(this);
}

bool CVX_Channel_ButtonMIDIAction::Execute(CVX_ChannelControlData* inControlData, int32_t inValue) {
    if (!TimeToExecute()) return false;
    const int32_t value = inValue != 0 ? 0x7F : 0x00;
    const CVX_KeysetData* data = CVX_KeysetData::GetKeysetData();
    if (mControlNum == kVXChannelTouchSense && data && data->IsTouchSenseMIDIDisabled()) {
        return false;
    }
    return CVX_Channel_MIDIAction::Execute(inControlData, value);
}

void CVX_Channel_ButtonMIDIAction::GetNativeMessage(uint8_t inValue, uint8_t* outBuffer,
                                                    size_t* outLength) {
    CopyMessage(CVX_Channel_LED_MsgMaker(static_cast<uint8_t>(mControlNum & 0xFF),
                                         static_cast<uint16_t>(mChannel), inValue != 0),
                outBuffer, outLength);
}
