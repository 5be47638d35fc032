#include "output/CVX_Msg_Maker.h"

#include "model/UVX_ControlClass.h"

namespace {
// The status byte of a control change on the strip's MIDI channel, computed on
// the channel's low byte and kept to 8 bits: 16 gives C0.
uint8_t ControlChangeStatus(uint16_t inChannel) {
    return static_cast<uint8_t>(0xB0 + (inChannel & 0xFF));
}
}  // namespace

void CVX_Msg_Maker::SysexHeader() {
    mMessage[0] = 0xF0;
    mMessage[1] = 0x15;
    mMessage[2] = 0x26;
    mLength = 3;
}

CVX_LED_MsgMaker::CVX_LED_MsgMaker(uint8_t, bool) {}

CVX_Channel_LED_MsgMaker::CVX_Channel_LED_MsgMaker(uint8_t inControlType, uint16_t inChannel,
                                                   bool inOn) {
    // 0xFF is no control at all; the LED table answers false for it anyway.
    if (inControlType == 0xFF || !UVX_ControlClass::ChannelControlHasLED(inControlType)) return;
    mMessage[0] = ControlChangeStatus(inChannel);
    mMessage[1] = static_cast<uint8_t>(0x46 + (inControlType - kVXChannelMute));
    mMessage[2] = inOn ? 0x7F : 0x00;
    mLength = 3;
}

CVX_Fader_MsgMaker::CVX_Fader_MsgMaker(uint16_t inChannel, uint16_t inValue) {
    // Two control changes, the second in running status: controller 7 with the
    // top seven bits, controller 39 with the lowest bit as its bit 6.
    mMessage[0] = ControlChangeStatus(inChannel);
    mMessage[1] = 0x07;
    mMessage[2] = static_cast<uint8_t>(inValue >> 1);
    mMessage[3] = 0x27;
    mMessage[4] = (inValue & 1) ? 0x40 : 0x00;
    mLength = 5;
}
