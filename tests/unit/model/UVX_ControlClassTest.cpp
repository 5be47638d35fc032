#include "model/UVX_ControlClass.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// One letter per predicate that holds for n: B button, T transport, C channel
// control, F fader, K channel button, M bank table accepts MIDI, m channel table
// accepts MIDI, L channel button has an LED.
std::string Traits(uint32_t n) {
    using C = UVX_ControlClass;
    return std::string(C::IsButton(n) ? "B" : "") + (C::IsTransportControl(n) ? "T" : "") +
           (C::IsChannelControl(n) ? "C" : "") + (C::IsChannelFader(n) ? "F" : "") +
           (C::IsChannelButton(n) ? "K" : "") + (C::ControlAcceptsMIDI(n) ? "M" : "") +
           (C::ChannelControlAcceptsMIDI(n) ? "m" : "") + (C::ChannelControlHasLED(n) ? "L" : "");
}

TEST(ControlCatalogue, PredicatesSplitTheNumbering) {
    // The channel emulation action asks the bank table with a channel index, so
    // 5 (Touch Sense's index, one past the end) must answer true; nothing further does.
    std::string traits;
    for (uint32_t n :
         {0u,   1u,   2u,   3u,   4u,   5u,   6u,   159u, 160u,        161u,       162u,
          163u, 164u, 165u, 166u, 167u, 168u, 169u, 170u, 0x800000A0u, 0xFFFFFFFFu})
        traits += Traits(n) + "|";
    EXPECT_EQ(traits, "BTM|BTM|BTM|BTM|BTM|BM|||CFm|CKmL|CKmL|CKmL|CKmL|CK||||m||||");
    // The two Mode C tables are each other's inverse.
    for (uint32_t n = 161; n <= 165; ++n)
        EXPECT_EQ(kModeCControlNumToControlNum[kControlNumToModeCControlNum[n - 161]], n);
}

TEST(ControlCatalogue, NamesAreStoredByteForByte) {
    std::string names;
    for (const char* name : kControlNames) names += std::string(name) + "|";
    for (const char* name : kChannelControlNames) names += std::string(name) + "|";
    EXPECT_EQ(names,
              "Rewind|Fast Forward|Stop|Play|Record|Fader |Mute |Solo |Aux |Select |Touch Sense |"
              "Bridge Top Encoder Switch |Bridge Bottom Encoder Switch |Bridge LCD Switch |"
              "Track Arm |Bridge Top Encoder  |Bridge Bottom Encoder |Bridge Joystick X |"
              "Bridge Joystick Y |");
}

TEST(ControlCatalogue, HexFormatting) {
    const std::pair<std::vector<uint8_t>, const char*> cases[] = {
        {{0xF0, 0x00, 0x7F}, "F0 00 7F"}, {{0x0A}, "0A"}, {{}, ""}};
    for (const auto& [bytes, text] : cases) {
        std::string out(16, 'x');  // the NUL must be written
        HexDataToCString(bytes.data(), bytes.size(), out.data());
        EXPECT_STREQ(out.c_str(), text);
    }
    std::string out(3, 'x');
    HexByteToCString(0xBE, out.data());
    EXPECT_STREQ(out.c_str(), "BE");
}

}  // namespace
