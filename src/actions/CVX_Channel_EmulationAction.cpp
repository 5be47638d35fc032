#include "actions/CVX_Channel_EmulationAction.h"

#include <algorithm>
#include <cstring>

#include "model/CVX_Keyset.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "output/CVX_Msg_Maker.h"

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
      CVX_MIDIResponderMixIn(inAcceptsMIDI &&
                             UVX_ControlClass::ControlAcceptsMIDI(inControlType - 0xA0)),
      mEmulationMode(inEmulationMode),
      mMsgLength(inMsglength),
      mAppSig(inAppSig),
      mBank(inChannel >= 8 ? 1 : 0) {
    std::memcpy(mMessage, inMessage, kVXEmulationMessageSize);
}

const uint8_t kEmulationModeCBankUpMessage[kVXModeCBankMessageSize] = {
    0xB0, 0x0F, 0x0A, 0xB0, 0x2F, 0x43, 0xB0, 0x0F, 0x0A, 0xB0, 0x2F, 0x03};
const uint8_t kEmulationModeCBankDownMessage[kVXModeCBankMessageSize] = {
    0xB0, 0x0F, 0x0A, 0xB0, 0x2F, 0x41, 0xB0, 0x0F, 0x0A, 0xB0, 0x2F, 0x01};

namespace {

// Template markers.
constexpr uint8_t kModeCControlMarker = 0xF8;  // the button's Mode C number (+0x40 when on)
constexpr uint8_t kLowMarker = 0xFB;           // a fader's low half
constexpr uint8_t kRelativeMarker = 0xFC;      // RelativeValue
constexpr uint8_t kValueMarker = 0xFD;         // on/off, or a fader's high half
constexpr uint8_t kZoneMarker = 0xFE;          // sent 0x0F, answered 0x0C
constexpr uint8_t kPortMarker = 0xFF;          // sent 0x2F, answered 0x2C

constexpr uint8_t kModeCStatus = 0xB0;
constexpr uint8_t kModeCZoneController = 0x0C;
constexpr uint8_t kModeCPortController = 0x2C;
constexpr uint8_t kModeCNumberCount = 5;

// The Mode C number's control, or 0 (no control) for a number past the table.
uint32_t ModeCControl(uint8_t inByte) {
    const uint8_t number = inByte & 0x3F;
    return number < kModeCNumberCount ? kModeCControlNumToControlNum[number] : 0;
}

}  // namespace

size_t CVX_Channel_EmulationAction::UsedLength() const {
    return std::min<size_t>(mMsgLength, kVXEmulationMessageSize);
}

bool CVX_Channel_EmulationAction::IsScaledFader() const {
    return UVX_ControlClass::IsChannelFader(mControlNum) &&
           (mAppSig == kVXKeyGSignature || mAppSig == kVXEMAGSignature);
}

uint8_t CVX_Channel_EmulationAction::RelativeValue(int32_t inValue) {
    if (inValue >= 0) return static_cast<uint8_t>(inValue & 0x3F);
    return static_cast<uint8_t>(0x40 | ((-(inValue & 0x3F)) & 0x3F));
}

void CVX_Channel_EmulationAction::Name(char* outName) {
    std::strncpy(outName, "CVX_Channel_EmulationAction", kVXResponderNameSize);
}

bool CVX_Channel_EmulationAction::Execute(CVX_ChannelControlData*, int32_t inValue) {
    const bool fader = UVX_ControlClass::IsChannelFader(mControlNum);
    const bool button = UVX_ControlClass::IsChannelButton(mControlNum);
    const uint8_t onOff = inValue != 0 ? 0x7F : 0x00;
    const size_t length = UsedLength();
    uint8_t message[kVXEmulationMessageSize];

    if (mMessage[0] == 0xF0) {
        // A system-exclusive template: only the value markers are filled; the
        // others are bytes of the message as they stand.
        for (size_t i = 0; i < length; ++i) {
            switch (mMessage[i]) {
                case kRelativeMarker:
                    message[i] = RelativeValue(inValue);
                    break;
                case kValueMarker:
                    message[i] = button ? onOff : static_cast<uint8_t>(inValue & 0x7F);
                    break;
                case kLowMarker:
                    message[i] = 0x00;
                    break;
                default:
                    message[i] = mMessage[i];
                    break;
            }
        }
        MIDIToHost(message, length);
        return false;
    }

    int32_t high = inValue >> 1;
    int32_t low = (inValue & 1) ? 0x40 : 0x00;
    if (fader && IsScaledFader()) {
        const int32_t factor = mAppSig == kVXKeyGSignature ? kFCPScaleFactor : kLogicScaleFactor;
        // Positions are 0..255; the product is taken in 64 bits so that no
        // value a caller passes can overflow it.
        int64_t scaled = (int64_t{inValue} * factor + 500) / 1000;
        if (scaled > 16383) scaled = 16383;
        low = static_cast<int32_t>(scaled & 0x7F);
        high = static_cast<int32_t>((scaled >> 7) & 0x7F);
    }
    for (size_t i = 0; i < length; ++i) {
        const uint8_t t = mMessage[i];
        switch (t) {
            case kModeCControlMarker:
                // Only a button has a Mode C number; on any other control the
                // table would be read before its start, so the marker stands
                // as it is there, as it does in a system-exclusive template.
                message[i] = button
                                 ? static_cast<uint8_t>(
                                       kControlNumToModeCControlNum[mControlNum - kVXChannelMute] |
                                       (inValue != 0 ? 0x40 : 0x00))
                                 : t;
                break;
            case kLowMarker:
                message[i] = fader ? static_cast<uint8_t>(low) : 0x00;
                break;
            case kRelativeMarker:
                message[i] = RelativeValue(inValue);
                break;
            case kValueMarker:
                message[i] = button  ? onOff
                             : fader ? static_cast<uint8_t>(high)
                                     : static_cast<uint8_t>(inValue & 0x7F);
                break;
            case kZoneMarker:
                message[i] = 0x0F;
                break;
            case kPortMarker:
                message[i] = 0x2F;
                break;
            default:  // 0xF9 and 0xFA among them
                message[i] = t;
                break;
        }
    }
    MIDIToHost(message, length);
    return false;
}

size_t CVX_Channel_EmulationAction::UnmapMessage(const uint8_t* inMessage,
                                                 uint8_t* outUnmappedMessage, size_t inLength) {
    // Only the first eight strips follow the host.
    if (mChannel >= 8 || !mAcceptsMIDI) return 0;
    if (mEmulationMode == kVXEmulationModeC) {
        return UnmapModeC(inMessage, inLength, outUnmappedMessage);
    }
    return UnmapModeB(inMessage, inLength, outUnmappedMessage);
}

size_t CVX_Channel_EmulationAction::Answer(uint8_t inValue, uint8_t* outUnmappedMessage) {
    size_t length = 0;
    GetNativeMessage(inValue, outUnmappedMessage, &length);
    return length;
}

size_t CVX_Channel_EmulationAction::UnmapModeB(const uint8_t* inMessage, size_t inLength,
                                               uint8_t* outUnmappedMessage) {
    const size_t length = UsedLength();
    if (length == 0 || inLength != length || inMessage[0] != mMessage[0]) return 0;
    for (size_t i = 1; i < length; ++i) {
        const uint8_t b = inMessage[i];
        bool matches = false;
        switch (mMessage[i]) {
            case kModeCControlMarker:
                matches = (b & 0x3F) >= kModeCNumberCount || ModeCControl(b) == mControlNum;
                break;
            case kLowMarker:
            case kRelativeMarker:
            case kValueMarker:
                matches = true;
                break;
            case kZoneMarker:
                matches = b == kModeCZoneController;
                break;
            case kPortMarker:
                matches = b == kModeCPortController;
                break;
            default:
                matches = b == mMessage[i];
                break;
        }
        if (!matches) return 0;
    }
    int32_t value = 0;
    int32_t low = 0;
    for (size_t i = 1; i < length; ++i) {
        const uint8_t b = inMessage[i];
        if (mMessage[i] == kValueMarker) value = b;
        if (mMessage[i] == kLowMarker) low = b;
        if (mMessage[i] == kModeCControlMarker) value = b != 0 ? 0x7F : 0x00;
    }
    if (!UVX_ControlClass::IsChannelFader(mControlNum)) {
        return Answer(static_cast<uint8_t>(value), outUnmappedMessage);
    }
    // Bit 6 of the low half is the position's bit 0.
    int32_t position = (value * 2) | ((low >> 6) & 1);
    if (IsScaledFader()) {
        const int32_t factor = mAppSig == kVXKeyGSignature ? kFCPScaleFactor : kLogicScaleFactor;
        position = (position * 64000 + 500) / factor;
    }
    return Answer(static_cast<uint8_t>(position & 0xFF), outUnmappedMessage);
}

size_t CVX_Channel_EmulationAction::UnmapModeC(const uint8_t* inMessage, size_t inLength,
                                               uint8_t* outUnmappedMessage) {
    if (inLength != 3 || inMessage[0] != kModeCStatus || mMessage[0] != kModeCStatus) return 0;
    const uint8_t cc = inMessage[1];
    const uint8_t d = inMessage[2];
    const uint8_t strip = static_cast<uint8_t>(mChannel % 8);
    const bool pending = mModeC_1stDataByte != kVXModeCNothingPending;

    if (cc <= 0x07 && mMessage[2] == kValueMarker) {
        // A fader's high half: kept until its low half comes.
        if (cc == strip) mModeC_1stDataByte = d;
        return 0;
    }
    if (cc == kModeCZoneController) {
        // The zone of the button messages that follow: every action whose
        // zone it names is armed, every other one disarmed.
        const bool mine = mMessage[1] == kZoneMarker && d == mMessage[2];
        mModeC_1stDataByte = mine ? static_cast<uint8_t>(mChannel) : kVXModeCNothingPending;
        return 0;
    }
    if (cc >= 0x20 && cc <= 0x27 && pending && mMessage[5] == kLowMarker) {
        if (cc - 0x20 != strip) return 0;
        const int32_t position = (mModeC_1stDataByte * 2) | ((d >> 6) & 1);
        mModeC_1stDataByte = kVXModeCNothingPending;
        return Answer(static_cast<uint8_t>(position & 0xFF), outUnmappedMessage);
    }
    if (cc == kModeCPortController && pending && mMessage[4] == kPortMarker &&
        mMessage[5] == kModeCControlMarker) {
        if ((d & 0x3F) >= kModeCNumberCount || ModeCControl(d) != mControlNum) return 0;
        mModeC_1stDataByte = kVXModeCNothingPending;
        return Answer((d & 0x40) ? 0x7F : 0x00, outUnmappedMessage);
    }
    return 0;
}

void CVX_Channel_EmulationAction::GetNativeMessage(uint8_t inValue, uint8_t* outBuffer,
                                                   size_t* outLength) {
    *outLength = 0;
    if (UVX_ControlClass::IsChannelFader(mControlNum)) {
        const CVX_Fader_MsgMaker fader(static_cast<uint16_t>(mChannel), inValue);
        std::memcpy(outBuffer, fader.Message(), fader.Length());
        *outLength = fader.Length();
    } else if (UVX_ControlClass::IsChannelButton(mControlNum)) {
        const CVX_Channel_LED_MsgMaker led(static_cast<uint8_t>(mControlNum),
                                           static_cast<uint16_t>(mChannel), inValue != 0);
        std::memcpy(outBuffer, led.Message(), led.Length());
        *outLength = led.Length();
    }
}

bool CVX_EmulationModeCSelectAction::Execute(CVX_ChannelControlData* inControlData,
                                             int32_t inValue) {
    const bool press = inValue != 0;
    switch (mChannel & 3) {
        case 0:
            if (press) {
                sBankChanged = false;
                sBankSwitchMode = true;
            } else {
                const bool changed = sBankChanged;
                sBankSwitchMode = false;
                sBankChanged = false;
                // A hold that moved no bank was a plain press of Select.
                if (!changed) {
                    CVX_Channel_EmulationAction::Execute(inControlData, 1);
                    CVX_Channel_EmulationAction::Execute(inControlData, 0);
                }
            }
            break;
        case 1:
        case 2:
            if (!sBankSwitchMode) {
                CVX_Channel_EmulationAction::Execute(inControlData, inValue);
            } else if (press) {
                sBankChanged = true;
                if ((mChannel & 3) == 1) {
                    sCurrentBank = sCurrentBank == 0 ? 7 : static_cast<uint8_t>(sCurrentBank - 1);
                    MIDIToHost(kEmulationModeCBankDownMessage, kVXModeCBankMessageSize);
                } else {
                    // Up reaches 8 before it wraps, unlike down: kept as the
                    // emulated surface counts.
                    sCurrentBank = sCurrentBank > 7 ? 0 : static_cast<uint8_t>(sCurrentBank + 1);
                    MIDIToHost(kEmulationModeCBankUpMessage, kVXModeCBankMessageSize);
                }
            }
            break;
        default:
            CVX_Channel_EmulationAction::Execute(inControlData, inValue);
            break;
    }
    return false;
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
