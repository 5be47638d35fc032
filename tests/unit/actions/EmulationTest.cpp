// The emulations: how an emulation action fills its template (by control, by
// marker, with the two applications' 14-bit scales, system-exclusive or not),
// how it recognises the host's messages (Mode B by template, Mode C by its
// two-message updates, only on strips 0 to 7), the Mode C bank gesture, and
// what the two responders answer.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_EmulationResponder.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
using T = SVXEmulationTemplate;

constexpr uint32_t kKeyG = kVXKeyGSignature;
constexpr uint32_t kEMAG = kVXEMAGSignature;

class EmulationTest : public CVXPlatformTest {
  protected:
    std::string Host(const Bytes& inHost) { return CurrentUnmapperAnswer(inHost); }
    // Loads EmulationKeysets and makes keyset inIndex (1: Mode B, 2: Mode C) current.
    void LoadEmulationKeysets(uint32_t inIndex) {
        const std::vector<uint8_t> stream = EmulationKeysets();
        UStreamReader reader(stream.data(), stream.size());
        ASSERT_TRUE(mData.UpdateFromStream(&reader));
        mData.SetCurrentKeyset(inIndex);
        mLog.Take();  // the Mode B keyset's greeting; its own test looks at it
    }
    CVX_KeysetData mData;
};

TEST_F(EmulationTest, TemplatesAreFilledByControlMarkerAndApplication) {
    const T marks = {0xB0, 0xF8, 0xF9, 0xFA, 0xFC, 0xFE, 0xFF, 0xFD, 0xFB};
    const T sysex = {0xF0, 0x00, 0x00, 0x66, 0x10, 0xFD, 0xFB, 0xFC, 0xF8, 0xFE, 0xFF, 0xF7};
    const T modeCFader = {0xB0, 0x00, 0xFD, 0xB0, 0x20, 0xFB};
    const T modeCMute = {0xB0, 0xFE, 0x00, 0xB0, 0xFF, 0xF8};
    const T fourteenBit = {0xB0, 0x07, 0xFD, 0xB0, 0x27, 0xFB};
    const T long16 = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0xFD};
    // Control, application, template and length, value: what goes to the host.
    const std::tuple<uint32_t, uint32_t, T, uint16_t, int32_t, std::string> cases[] = {
        {kVXChannelFader, 0, modeCFader, 6, 201, "B0 00 64 B0 20 40"},
        {kVXChannelMute, 0, modeCMute, 6, 1, "B0 0F 00 B0 2F 42"},
        {kVXChannelMute, 0, modeCMute, 6, 0, "B0 0F 00 B0 2F 02"},
        {kVXChannelSelect, 0, modeCMute, 6, 1, "B0 0F 00 B0 2F 41"},
        {kVXChannelTouchSense, 0, modeCMute, 6, 1, "B0 0F 00 B0 2F 40"},
        // Every marker: a fader has no Mode C number (the marker stays) and
        // splits its position; a button is on or off.
        {kVXChannelFader, 0, marks, 9, 201, "B0 F8 F9 FA 09 0F 2F 64 40"},
        {kVXChannelSolo, 0, marks, 9, 1, "B0 43 F9 FA 01 0F 2F 7F 00"},
        {kVXChannelSolo, 0, marks, 9, 0, "B0 03 F9 FA 00 0F 2F 00 00"},
        // Only the value markers count in a system-exclusive template.
        {kVXChannelFader, 0, sysex, 12, 201, "F0 00 00 66 10 49 00 09 F8 FE FF F7"},
        {kVXChannelMute, 0, sysex, 12, 1, "F0 00 00 66 10 7F 00 01 F8 FE FF F7"},
        // Two applications get a 14-bit fader on their own scale; 'KeyG'
        // saturates from position 237 on. Buttons are not scaled.
        {kVXChannelFader, kKeyG, fourteenBit, 6, 128, "B0 07 45 B0 27 16"},  // 8854
        {kVXChannelFader, kKeyG, fourteenBit, 6, 236, "B0 07 7F B0 27 45"},  // 16325
        {kVXChannelFader, kKeyG, fourteenBit, 6, 237, "B0 07 7F B0 27 7F"},  // 16383
        {kVXChannelFader, kKeyG, fourteenBit, 6, 255, "B0 07 7F B0 27 7F"},
        {kVXChannelFader, kEMAG, fourteenBit, 6, 255, "B0 07 74 B0 27 35"},  // 14901
        {kVXChannelFader, kEMAG, fourteenBit, 6, 0, "B0 07 00 B0 27 00"},
        {kVXChannelFader, FourCC("DAW1"), fourteenBit, 6, 128, "B0 07 40 B0 27 00"},
        {kVXChannelMute, kKeyG, fourteenBit, 6, 1, "B0 07 7F B0 27 00"},
        // A length past the template sends its sixteen bytes.
        {kVXChannelAux, 0, long16, 40, 1, "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 7F"},
    };
    for (const auto& [control, app, message, length, value, sent] : cases) {
        CVX_Channel_EmulationAction action(kVXEmulationModeB, control, 0, "Emu", length,
                                           message.data(), false, app);
        EXPECT_FALSE(action.Execute(nullptr, value));
        EXPECT_EQ(mLog.Take(), Lines{"host " + sent}) << control << " " << value;
    }
    // No rate limit: every move goes out.
    CVX_Channel_EmulationAction fader(kVXEmulationModeC, kVXChannelFader, 0, "Emu", 6,
                                      modeCFader.data(), false, 0);
    for (int32_t position : {1, 2, 3}) fader.Execute(nullptr, position);
    EXPECT_EQ(mLog.Take().size(), 3u);
}

TEST_F(EmulationTest, ModeBMatchesTheTemplateAndScalesBackOnTheFirstEightStrips) {
    const T fourteenBit = {0xB0, 0x07, 0xFD, 0xB0, 0x27, 0xFB};
    const T button = {0x90, 0xF8, 0xFE, 0xFF, 0xF9};
    // Template, length, control, strip, application, host message: device bytes.
    const std::tuple<T, uint16_t, uint32_t, int32_t, uint32_t, Bytes, std::string> cases[] = {
        {fourteenBit,
         6,
         kVXChannelFader,
         2,
         0,
         {0xB0, 0x07, 0x64, 0xB0, 0x27, 0x40},
         "B2 07 64 27 40"},  // 201
        {fourteenBit,
         6,
         kVXChannelFader,
         2,
         kKeyG,
         {0xB0, 0x07, 0x45, 0xB0, 0x27, 0x16},
         "B2 07 3F 27 40"},  // 138 scales back to 127
        {fourteenBit,
         6,
         kVXChannelFader,
         2,
         kEMAG,
         {0xB0, 0x07, 0x74, 0xB0, 0x27, 0x35},
         "B2 07 7F 27 00"},  // 232 to 254
        {fourteenBit, 6, kVXChannelFader, 2, 0, {0xB1, 0x07, 0x64, 0xB0, 0x27, 0x40}, ""},
        {fourteenBit, 6, kVXChannelFader, 2, 0, {0xB0, 0x07, 0x64, 0xB0, 0x27}, ""},
        {fourteenBit, 6, kVXChannelFader, 8, 0, {0xB0, 0x07, 0x64, 0xB0, 0x27, 0x40}, ""},
        {fourteenBit, 6, kVXChannelFader, 15, 0, {0xB0, 0x07, 0x64, 0xB0, 0x27, 0x40}, ""},
        // The host answers on 0C and 2C where the surface sends 0F and 2F; a
        // Mode C number matches its own control or any number from 5 up.
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x42, 0x0C, 0x2C, 0xF9}, "B1 46 7F"},
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x00, 0x0C, 0x2C, 0xF9}, ""},  // Touch Sense's
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x05, 0x0C, 0x2C, 0xF9}, "B1 46 7F"},
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x02, 0x0C, 0x2C, 0xF9}, "B1 46 7F"},
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x42, 0x0F, 0x2C, 0xF9}, ""},
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x42, 0x0C, 0x2F, 0xF9}, ""},
        {button, 5, kVXChannelMute, 1, 0, {0x90, 0x42, 0x0C, 0x2C, 0xFA}, ""},
    };
    for (const auto& [message, length, control, strip, app, host, device] : cases) {
        CVX_Channel_EmulationAction action(kVXEmulationModeB, control, strip, "Emu", length,
                                           message.data(), true, app);
        uint8_t out[kVXMaxResponderAnswer];
        const size_t written = action.UnmapMessage(host.data(), out, host.size());
        EXPECT_EQ(HexBytes(out, written), device.empty() ? "" : " " + device)
            << HexBytes(host.data(), host.size()) << " strip " << strip;
    }
    // An action that does not follow the host never answers.
    CVX_Channel_EmulationAction deaf(kVXEmulationModeB, kVXChannelFader, 2, "Emu", 6,
                                     fourteenBit.data(), false, 0);
    const Bytes move = {0xB0, 0x07, 0x64, 0xB0, 0x27, 0x40};
    uint8_t out[kVXMaxResponderAnswer];
    EXPECT_EQ(deaf.UnmapMessage(move.data(), out, move.size()), 0u);
}

TEST_F(EmulationTest, ModeCKeepsEachActionsFirstHalfUntilItsSecondComes) {
    LoadEmulationKeysets(2);
    // Host message, in order, and what the surface gets: an update's own
    // device message, or the host message itself where no action answers.
    const std::pair<Bytes, std::string> steps[] = {
        {{0xB0, 0x00, 0x64}, "B0 00 64"},        // strip 0's fader: high half kept
        {{0xB0, 0x20, 0x40}, "B0 07 64 27 40"},  // its low half: position 201
        {{0xB0, 0x20, 0x40}, "B0 20 40"},        // nothing pending any more
        {{0xB0, 0x01, 0x64}, "B0 01 64"},        // arms strip 1's fader only
        {{0xB0, 0x20, 0x00}, "B0 20 00"},
        {{0xB0, 0x21, 0x00}, "B1 07 64 27 00"},
        {{0xB0, 0x0C, 0x00}, "B0 0C 00"},  // zone 0: strip 0's buttons armed
        {{0xB0, 0x2C, 0x42}, "B0 46 7F"},  // Mute on
        {{0xB0, 0x2C, 0x42}, "B0 2C 42"},  // Mute disarmed by its answer...
        {{0xB0, 0x2C, 0x03}, "B0 47 00"},  // ...Solo still armed: off
        {{0xB0, 0x2C, 0x00}, "B0 2C 00"},  // Touch Sense has no LED
        {{0xB0, 0x0C, 0x00}, "B0 0C 00"},
        {{0xB0, 0x0C, 0x03}, "B0 0C 03"},  // another zone disarms zone 0
        {{0xB0, 0x2C, 0x41}, "B3 49 7F"},  // Select of strip 3
        {{0xB0, 0x03, 0x10}, "B0 03 10"},
        {{0xB0, 0x0C, 0x05}, "B0 0C 05"},  // a zone message clears a fader's half too
        {{0xB0, 0x23, 0x40}, "B0 23 40"},
        {{0xB0, 0x0C, 0x08}, "B0 0C 08"},  // strips 8 to 15 never follow
        {{0xB0, 0x2C, 0x42}, "B0 2C 42"},
        {{0xB0, 0x00, 0x10, 0x20}, "B0 00 10 20"},  // not three bytes
        {{0xB1, 0x00, 0x10}, "B1 00 10"},
        {{0xB0, 0x20, 0x40}, "B0 20 40"},
    };
    for (const auto& [host, device] : steps) {
        EXPECT_EQ(Host(host), " " + device) << HexBytes(host.data(), host.size());
    }
    EXPECT_EQ(mLog.Take(), Lines{});  // nothing of this goes to the host
}

TEST_F(EmulationTest, ModeBKeysetAnswersTheSurfacesOwnMessagesAndTheHandShake) {
    LoadEmulationKeysets(1);
    EXPECT_EQ(Host({0xE2, 0x40, 0x64}), " B2 07 64 27 40");
    EXPECT_EQ(Host({0x90, 0x13, 0x7F}), " B3 46 7F");
    EXPECT_EQ(Host({0x90, 0x13, 0x00}), " B3 46 00");
    EXPECT_EQ(Host({0x90, 0x6B, 0x7F}), " 90 6B 7F");  // Touch Sense: no LED
    EXPECT_EQ(Host({0xE9, 0x00, 0x40}), " E9 00 40");  // strip 9
    EXPECT_EQ(mLog.Take(), Lines{});
    // The hand-shake goes to the host; the surface gets the host's message.
    EXPECT_EQ(Host({0xF0, 0x00, 0x00, 0x66, 0x10, 0x00, 0xF7}), " F0 00 00 66 10 00 F7");
    EXPECT_EQ(mLog.Take(), Lines{"host F0 00 00 66 10 01 31 32 33 34 35 36 37 01 01 01 01 F7"});
}

TEST_F(EmulationTest, SelectOfStripZeroHeldTurnsTheNextTwoIntoBankButtons) {
    CVX_EmulationModeCSelectAction::ResetStatics();
    std::vector<std::unique_ptr<CVX_EmulationModeCSelectAction>> select;
    for (uint32_t strip = 0; strip < 5; ++strip) {
        const T message = {0xB0, 0xFE, static_cast<uint8_t>(strip), 0xB0, 0xFF, 0xF8};
        select.push_back(std::make_unique<CVX_EmulationModeCSelectAction>(strip, "Sel", 6,
                                                                          message.data(), true, 0));
    }
    const std::string down = "host B0 0F 0A B0 2F 41 B0 0F 0A B0 2F 01";
    const std::string up = "host B0 0F 0A B0 2F 43 B0 0F 0A B0 2F 03";
    // Strip, value: what goes to the host, and the bank after it.
    const std::tuple<uint32_t, int32_t, Lines, int> steps[] = {
        {1, 1, {"host B0 0F 01 B0 2F 41"}, 0},  // plain Select
        {1, 0, {"host B0 0F 01 B0 2F 01"}, 0},
        {0, 1, {}, 0},  // the gesture begins
        {1, 1, {down}, 7},
        {1, 0, {}, 7},
        {2, 1, {up}, 8},  // up reaches 8 before it wraps...
        {2, 1, {up}, 0},
        {1, 1, {down}, 7},  // ...down does not
        {3, 1, {"host B0 0F 03 B0 2F 41"}, 7},
        {0, 0, {}, 7},  // a bank moved: the hold sends nothing
        {0, 1, {}, 7},
        {0, 0, {"host B0 0F 00 B0 2F 41", "host B0 0F 00 B0 2F 01"}, 7},  // no bank moved
        {2, 1, {"host B0 0F 02 B0 2F 41"}, 7},
        {4, 1, {}, 7},  // strip 4 holds like strip 0
        {2, 0, {}, 7},
        {4, 0, {"host B0 0F 04 B0 2F 41", "host B0 0F 04 B0 2F 01"}, 7},  // nothing moved
    };
    for (const auto& [strip, value, sent, bank] : steps) {
        EXPECT_FALSE(select[strip]->Execute(nullptr, value));
        EXPECT_EQ(mLog.Take(), sent) << strip << " " << value;
        EXPECT_EQ(CVX_Channel_EmulationAction::GetCurrentBank(), bank) << strip << " " << value;
    }
}

TEST_F(EmulationTest, RespondersAnswerOnlyTheirProtocolsMessages) {
    CVX_EmulationModeBResponder modeB;
    CVX_EmulationModeCResponder modeC;
    const std::string query = "host F0 00 00 66 10 01 31 32 33 34 35 36 37 01 01 01 01 F7";
    // Responder, host message: what goes to the host. No device bytes, ever.
    const std::tuple<CVX_EmulationResponder*, Bytes, Lines> cases[] = {
        {&modeB, {0xF0, 0x00, 0x00, 0x66, 0x10, 0x00, 0xF7}, {query}},
        {&modeB,
         {0xF0, 0x00, 0x00, 0x66, 0x10, 0x02, 0x01, 0x02, 0xF7},
         {"host F0 00 00 66 10 03 31 32 33 34 35 36 37 F7"}},
        {&modeB,
         {0xF0, 0x00, 0x00, 0x66, 0x10, 0x13, 0xF7},
         {"host F0 00 00 66 10 14 56 32 2E 30 30 F7"}},
        {&modeB, {0xF0, 0x00, 0x00, 0x66, 0x10, 0x13}, {}},
        {&modeB, {0xF0, 0x00, 0x00, 0x66, 0x11, 0x13, 0xF7}, {}},
        {&modeB, {0xF0, 0x00, 0x00, 0x66, 0x10, 0x0F, 0xF7}, {}},
        {&modeB, {0xF0, 0x00, 0x00, 0x66, 0x10, 0x01, 0xF7}, {}},
        {&modeB, {0x90, 0x00, 0x00}, {}},
        {&modeC, {0x90, 0x00, 0x00}, {"host 90 00 7F"}},
        {&modeC, {0x90, 0x00, 0x00, 0x11, 0x22}, {"host 90 00 7F"}},
        {&modeC, {0x90, 0x00, 0x01}, {}},
        {&modeC, {0x80, 0x00, 0x00}, {}},
        {&modeC, {0x90, 0x00}, {}},
        {&modeC, {0xF0, 0x00, 0x00, 0x66, 0x10, 0x00, 0xF7}, {}},
    };
    for (const auto& [responder, host, sent] : cases) {
        uint8_t out[kVXMaxResponderAnswer];
        EXPECT_EQ(responder->UnmapMessage(host.data(), out, host.size()), 0u);
        EXPECT_EQ(mLog.Take(), sent) << HexBytes(host.data(), host.size());
    }
    modeB.FirstMessageToHost();
    modeC.FirstMessageToHost();
    EXPECT_EQ(mLog.Take(), Lines{query});

    CVX_Channel_EmulationAction action(kVXEmulationModeB, kVXChannelFader, 0, "Emu", 0, T{}.data(),
                                       false, 0);
    const std::pair<int32_t, uint8_t> relative[] = {{5, 0x05},  {-5, 0x45}, {-1, 0x41},
                                                    {63, 0x3F}, {64, 0x00}, {-64, 0x40}};
    for (const auto& [step, byte] : relative) EXPECT_EQ(action.RelativeValue(step), byte) << step;
}

}  // namespace
