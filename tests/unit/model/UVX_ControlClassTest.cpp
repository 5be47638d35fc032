#include "model/UVX_ControlClass.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(ControlCatalogue, PredicatesSplitTheNumbering) {
    using C = UVX_ControlClass;
    for (uint32_t n : {0u, 4u}) EXPECT_TRUE(C::IsTransportControl(n) && C::IsButton(n)) << n;
    EXPECT_TRUE(C::IsButton(5));
    EXPECT_FALSE(C::IsTransportControl(5));
    EXPECT_FALSE(C::IsButton(6));
    EXPECT_FALSE(C::IsChannelControl(159));
    EXPECT_TRUE(C::IsChannelControl(160) && C::IsChannelControl(165));
    EXPECT_FALSE(C::IsChannelControl(166));
    EXPECT_TRUE(C::IsChannelFader(160));
    EXPECT_FALSE(C::IsChannelFader(161));
    EXPECT_FALSE(C::IsChannelButton(160));
    EXPECT_TRUE(C::IsChannelButton(161) && C::IsChannelButton(165));
    EXPECT_FALSE(C::IsChannelButton(166));
    for (uint32_t n : {167u, 0xFFFFFFFFu, 0x800000A0u}) {
        EXPECT_FALSE(C::IsButton(n) || C::IsTransportControl(n) || C::IsChannelControl(n) ||
                     C::IsChannelFader(n) || C::IsChannelButton(n))
            << n;
    }
}

TEST(ControlCatalogue, NamesAreStoredByteForByte) {
    const char* bank[] = {"Rewind", "Fast Forward", "Stop", "Play", "Record"};
    for (int i = 0; i < 5; ++i) EXPECT_STREQ(kControlNames[i], bank[i]);
    const char* channel[] = {"Fader ",
                             "Mute ",
                             "Solo ",
                             "Aux ",
                             "Select ",
                             "Touch Sense ",
                             "Bridge Top Encoder Switch ",
                             "Bridge Bottom Encoder Switch ",
                             "Bridge LCD Switch ",
                             "Track Arm ",
                             "Bridge Top Encoder  ",
                             "Bridge Bottom Encoder ",
                             "Bridge Joystick X ",
                             "Bridge Joystick Y "};
    for (int i = 0; i < 14; ++i) EXPECT_EQ(std::string(kChannelControlNames[i]), channel[i]) << i;
}

TEST(ControlCatalogue, CapabilityTablesAndTheirBoundedAccessors) {
    // The channel emulation action asks the bank table with a channel index, so
    // Touch Sense (one past the end) must answer true, and nothing further does.
    for (uint32_t i = 0; i <= 5; ++i) EXPECT_TRUE(UVX_ControlClass::ControlAcceptsMIDI(i)) << i;
    EXPECT_FALSE(UVX_ControlClass::ControlAcceptsMIDI(6));
    EXPECT_FALSE(UVX_ControlClass::ControlAcceptsMIDI(0xFFFFFFFF));

    const bool accepts[] = {true, true, true, true, true, false, false, false, false, true};
    for (uint32_t i = 0; i < 10; ++i)
        EXPECT_EQ(UVX_ControlClass::ChannelControlAcceptsMIDI(160 + i), accepts[i]) << i;
    EXPECT_FALSE(UVX_ControlClass::ChannelControlAcceptsMIDI(159));
    EXPECT_FALSE(UVX_ControlClass::ChannelControlAcceptsMIDI(170));

    EXPECT_FALSE(UVX_ControlClass::ChannelControlHasLED(160));
    for (uint32_t n = 161; n <= 164; ++n) EXPECT_TRUE(UVX_ControlClass::ChannelControlHasLED(n));
    EXPECT_FALSE(UVX_ControlClass::ChannelControlHasLED(165));

    // The two Mode C tables are each other's inverse.
    for (uint32_t n = 161; n <= 165; ++n)
        EXPECT_EQ(kModeCControlNumToControlNum[kControlNumToModeCControlNum[n - 161]], n);
}

TEST(ControlCatalogue, HexFormatting) {
    char out[16];
    std::memset(out, 'x', sizeof out);
    const uint8_t three[] = {0xF0, 0x00, 0x7F};
    HexDataToCString(three, 3, out);
    EXPECT_STREQ(out, "F0 00 7F");
    const uint8_t one[] = {0x0A};
    HexDataToCString(one, 1, out);
    EXPECT_STREQ(out, "0A");
    HexDataToCString(one, 0, out);
    EXPECT_STREQ(out, "");
    HexByteToCString(0xBE, out);
    EXPECT_STREQ(out, "BE");
}

}  // namespace
