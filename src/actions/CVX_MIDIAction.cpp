#include "actions/CVX_MIDIAction.h"

#include <cstring>

#include "actions/CMIDIUnmapper.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "output/CVX_Msg_Maker.h"

CVX_MIDIAction::CVX_MIDIAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                               uint32_t inActionType, uint16_t inMessageLength,
                               const uint8_t* inMessage)
    : CVX_Action(inControlNum, inSpeed, inName),
      // The table has an entry per transport button. Control 5 counts as a
      // button too and reads as allowed, as the entry just past the table
      // does; anything further out is no control and never answers.
      CVX_MIDIResponderMixIn(inActionType == kVXMIDISendAndAnswer &&
                             UVX_ControlClass::ControlAcceptsMIDI(inControlNum)),
      CVX_MIDITemplate(inActionType, inMessageLength, inMessage) {
    mType = vx_action_type_midi;
}

bool CVX_MIDIAction::ExecuteSelf(int32_t inValue, bool) {
    uint8_t message[kVXMIDIMessageSize];
    const size_t length = UsedLength();
    for (size_t i = 0; i < length; ++i) {
        message[i] =
            mMessage[i] == kVXMIDIValueMarker ? static_cast<uint8_t>(inValue) : mMessage[i];
    }
    MIDIToHost(message, length);
    return false;
}

size_t CVX_MIDIAction::UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                                    size_t inLength) {
    if (mActionType != kVXMIDISendAndAnswer || !mAcceptsMIDI) return 0;
    uint8_t value = 0;
    if (!Matches(inMessage, inLength, false, &value)) return 0;
    size_t length = 0;
    GetNativeMessage(value, outUnmappedMessage, &length);
    return length;
}

std::unique_ptr<CVX_Action> CVX_MIDIAction::CreateMIDIActionFromStream(uint32_t inControlNum,
                                                                       uint16_t inSpeed,
                                                                       const char* inName,
                                                                       UStreamReader* inReader) {
    uint32_t actionType = 0;
    uint16_t msgLength = 0;
    uint8_t message[kVXMIDIMessageSize] = {};
    // The two skipped bytes are the alignment in front of the stored record.
    if (!inReader->MovePosBy(2) || !inReader->GetLong(actionType) ||
        !inReader->GetShort(msgLength) || !inReader->GetBytes(message, kVXMIDIMessageSize)) {
        return nullptr;
    }
    if (!UVX_ControlClass::IsButton(inControlNum)) return nullptr;
    return std::make_unique<CVX_ButtonMIDIAction>(inControlNum, inSpeed, inName, actionType,
                                                  msgLength, message);
}

CVX_ButtonMIDIAction::CVX_ButtonMIDIAction(uint32_t inControlNum, uint16_t inSpeed,
                                           const char* inName, uint32_t inActionType,
                                           uint16_t inMessageLength, const uint8_t* inMessage)
    : CVX_MIDIAction(inControlNum, inSpeed, inName, inActionType, inMessageLength, inMessage) {
    // The second registration is deliberate: such a button answers twice.
    if (mActionType == kVXMIDISendAndAnswer && mAcceptsMIDI) {
        CMIDIUnmapper::AddCustomMIDIAction(this);
    }
}

bool CVX_ButtonMIDIAction::ExecuteSelf(int32_t inValue, bool inRepeat) {
    if (mActionType == kVXMIDISendAndAnswer) {
        CVX_MIDIAction::ExecuteSelf(inValue != 0 ? 0x7F : 0x00, inRepeat);
    } else if (mActionType == kVXMIDISendOnPress && inValue != 0) {
        CVX_MIDIAction::ExecuteSelf(inValue & 0xFF, inRepeat);
    }
    return false;
}

void CVX_ButtonMIDIAction::GetNativeMessage(uint8_t inValue, uint8_t* outBuffer,
                                            size_t* outLength) {
    const CVX_LED_MsgMaker led(static_cast<uint8_t>(mControlNum & 0xFF), inValue != 0);
    std::memcpy(outBuffer, led.Message(), led.Length());
    *outLength = led.Length();
}
