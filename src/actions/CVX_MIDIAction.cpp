#include "actions/CVX_MIDIAction.h"

#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"

CVX_MIDIAction::CVX_MIDIAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                               uint32_t inActionType, uint16_t inMessageLength,
                               const uint8_t* inMessage)
    : CVX_Action(inControlNum, inSpeed, inName),
      // The table has an entry per transport button. Control 5 counts as a
      // button too and reads as allowed, as the entry just past the table
      // does; anything further out is no control and never answers.
      CVX_MIDITemplate(inActionType, inMessageLength, inMessage,
                       inActionType == kVXMIDISendAndAnswer &&
                           UVX_ControlClass::ControlAcceptsMIDI(inControlNum)) {
    mType = vx_action_type_midi;
}

bool CVX_MIDIAction::ExecuteSelf(int32_t, bool) {
    // Sending the template to the host comes with the MIDI path. A MIDI
    // action ends its chain either way: the actions after it do not run.
    return false;
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
