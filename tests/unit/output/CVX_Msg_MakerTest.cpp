// The outward wire format, byte for byte, from hand-written expectations.
#include "output/CVX_Msg_Maker.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Of(const CVX_Msg_Maker& inMaker) {
    return Bytes(inMaker.Message(), inMaker.Message() + inMaker.Length());
}

TEST(MsgMakerTest, ChannelLEDsOnlyForTheFourLitButtons) {
    // Control, channel, on: the message, empty for everything without an LED.
    const std::tuple<uint8_t, uint16_t, bool, Bytes> cases[] = {
        {0xA1, 0, true, {0xB0, 0x46, 0x7F}},
        {0xA2, 7, false, {0xB7, 0x47, 0x00}},
        {0xA3, 9, true, {0xB9, 0x48, 0x7F}},
        {0xA4, 15, false, {0xBF, 0x49, 0x00}},
        {0xA1, 16, true, {0xC0, 0x46, 0x7F}},     // past strip 15 the status byte wraps
        {0xA1, 0x150, true, {0x00, 0x46, 0x7F}},  // the low byte, kept to 8 bits
        {0xA5, 3, true, {}},
        {0xA0, 3, true, {}},
        {0xFF, 3, true, {}},
        {0xA6, 3, true, {}},
        {0x00, 3, true, {}},
    };
    for (const auto& [control, channel, on, expected] : cases) {
        EXPECT_EQ(Of(CVX_Channel_LED_MsgMaker(control, channel, on)), expected)
            << int(control) << " " << channel;
    }
}

TEST(MsgMakerTest, FaderMessagesCarryTheLowBitInTheSecondController) {
    const std::tuple<uint16_t, uint16_t, Bytes> cases[] = {
        {3, 255, {0xB3, 0x07, 0x7F, 0x27, 0x40}},
        {3, 0, {0xB3, 0x07, 0x00, 0x27, 0x00}},
        {3, 128, {0xB3, 0x07, 0x40, 0x27, 0x00}},
        {3, 1, {0xB3, 0x07, 0x00, 0x27, 0x40}},
        {15, 254, {0xBF, 0x07, 0x7F, 0x27, 0x00}},
        {16, 2, {0xC0, 0x07, 0x01, 0x27, 0x00}},
        // Not clamped: above 255 the first data byte passes 7F.
        {0, 300, {0xB0, 0x07, 0x96, 0x27, 0x00}},
    };
    for (const auto& [channel, value, expected] : cases) {
        EXPECT_EQ(Of(CVX_Fader_MsgMaker(channel, value)), expected) << channel << " " << value;
    }
}

TEST(MsgMakerTest, TransportLEDsAreAlwaysEmptyAndTheSysexHeaderStartsAnyMaker) {
    for (int control : {0, 2, 4, 5, 0xA1, 0xFF}) {
        for (bool on : {false, true})
            EXPECT_EQ(Of(CVX_LED_MsgMaker(uint8_t(control), on)), Bytes{});
    }
    CVX_LED_MsgMaker maker(2, true);
    maker.SysexHeader();
    EXPECT_EQ(Of(maker), (Bytes{0xF0, 0x15, 0x26}));
}

}  // namespace
