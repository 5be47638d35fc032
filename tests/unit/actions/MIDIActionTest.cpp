// What button and channel MIDI actions send to the host, and what they make of
// the host's MIDI: template filling for every marker, the two-way fader's
// rounding both ways, rate limiting, the Touch Sense switch, and matching
// (length, status byte and channel, wildcards, the value's position).
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "actions/CMIDIUnmapper.h"
#include "actions/CVX_Channel_MIDIAction.h"
#include "actions/CVX_MIDIAction.h"
#include "model/CVX_KeysetData.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

// More than 1/30 s: a channel action's rate limit lets the next event through.
constexpr uint64_t kPastRateLimit = 40000;

// Shows what the button's matching found: its "device message" is the value.
class CProbeButton : public CVX_ButtonMIDIAction {
  public:
    using CVX_ButtonMIDIAction::CVX_ButtonMIDIAction;
    void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength) override {
        outBuffer[0] = inValue;
        *outLength = 1;
    }
};

class MIDIActionTest : public CVXPlatformTest {
  protected:
    std::string Host(const Bytes& inHost) { return CurrentUnmapperAnswer(inHost); }
    // One host line per send, or none.
    template <class F>
    Lines Sent(F inExecute) {
        mLoop.AdvanceBy(kPastRateLimit);
        inExecute();
        return mLog.Take();
    }

    // Its default keyset is current and, as the newest, under construction.
    CVX_KeysetData mData;
};

TEST_F(MIDIActionTest, ButtonsSendByKindAndFillEveryValueMarker) {
    // Kind, template and length, press value: what the press and the release send.
    const std::tuple<uint32_t, SVXTemplate, uint16_t, int32_t, Lines, Lines> cases[] = {
        {2, {0xB0, 0x10, 0xFD}, 3, 1, {"host B0 10 7F"}, {"host B0 10 00"}},
        {2, {0x90, 0x3C, 0x7F}, 3, 5, {"host 90 3C 7F"}, {"host 90 3C 7F"}},
        {1, {0x90, 0x3C, 0x7F}, 3, 1, {"host 90 3C 7F"}, {}},
        {1, {0xB0, 0xFD, 0xFD, 0xFE}, 4, 0x1C5, {"host B0 C5 C5 FE"}, {}},
        {0, {0xB0, 0x10, 0xFD}, 3, 1, {}, {}},
        {3, {0xB0, 0x10, 0xFD}, 3, 1, {}, {}},
        // A length past the template sends the eight bytes it has; none sends nothing.
        {1, {1, 2, 3, 4, 5, 6, 7, 0xFD}, 300, 9, {"host 01 02 03 04 05 06 07 09"}, {}},
        {2, {0xB0, 0x10, 0xFD}, 0, 1, {}, {}},
    };
    for (const auto& [kind, message, length, press, onPress, onRelease] : cases) {
        CVX_ButtonMIDIAction action(kVXPlay, 0, "MIDI", kind, length, message.data());
        EXPECT_FALSE(action.ExecuteSelf(press, false));
        EXPECT_EQ(mLog.Take(), onPress) << kind << " " << length;
        EXPECT_FALSE(action.ExecuteSelf(0, false));
        EXPECT_EQ(mLog.Take(), onRelease) << kind << " " << length;
    }
}

TEST_F(MIDIActionTest, ButtonsMatchTheirOwnMessageAndTakeTheFirstValue) {
    const SVXTemplate tmpl = {0xB0, 0x10, 0xFD, 0x20, 0xFD};
    const auto& list = CVX_KeysetData::GetCurrentMIDIUnmapper()->GetCustomMIDIActions();
    {
        CProbeButton twoWay(kVXStop, 0, "MIDI", 2, 5, tmpl.data());
        CProbeButton pressOnly(kVXStop, 0, "MIDI", 1, 5, tmpl.data());
        const SVXTemplate literal = {0x90, 0x3C, 0xFE};
        CProbeButton noMarker(kVXStop, 0, "MIDI", 2, 3, literal.data());
        // Host message, then the value each of the three finds (-1: no match).
        // Only 0xFD is a wildcard in a button's template.
        const std::tuple<Bytes, int, int> cases[] = {
            {{0xB0, 0x10, 0x33, 0x20, 0x44}, 0x33, -1},
            {{0xB0, 0x10, 0x00, 0x20, 0x00}, 0, -1},
            {{0xB1, 0x10, 0x33, 0x20, 0x44}, -1, -1},
            {{0xB0, 0x10, 0x33, 0x21, 0x44}, -1, -1},
            {{0xB0, 0x10, 0x33, 0x20}, -1, -1},
            {{0xB0, 0x10, 0x33, 0x20, 0x44, 0}, -1, -1},
            {{0x90, 0x3C, 0xFE}, -1, 0},
            {{0x90, 0x3C, 0x01}, -1, -1},
        };
        for (const auto& [host, value, literalValue] : cases) {
            uint8_t out[kVXMaxResponderAnswer];
            const auto found = [&](CProbeButton& inAction) {
                return inAction.UnmapMessage(host.data(), out, host.size()) == 1 ? int(out[0]) : -1;
            };
            EXPECT_EQ(std::tuple(found(twoWay), found(pressOnly), found(noMarker)),
                      std::tuple(value, -1, literalValue))
                << HexBytes(host.data(), host.size());
        }
    }

    // The real button stands twice in the list and answers with its LED
    // message, which is empty: the host message reaches the surface as it is.
    CVX_ButtonMIDIAction real(kVXStop, 0, "MIDI", 2, 5, tmpl.data());
    EXPECT_EQ(list, (std::vector<CVX_MIDIResponderMixIn*>{&real, &real}));
    EXPECT_EQ(Host({0xB0, 0x10, 0x33, 0x20, 0x44}), " B0 10 33 20 44");
}

TEST_F(MIDIActionTest, FadersRoundToSevenBitsWhenTwoWayAndFollowTheMarkersWhenNot) {
    const SVXTemplate twoWayTmpl = {0xB0, 0x07, 0xFD};
    const SVXTemplate markers = {0xB3, 0xFD, 0xFE, 0xFF};
    const SVXTemplate sendOnlyTmpl = {0xB0, 0x07, 0xFF, 0x27, 0xFE};
    CVX_Channel_FaderMIDIAction twoWay(kVXChannelFader, 2, "Vol", 2, 3, twoWayTmpl.data());
    CVX_Channel_FaderMIDIAction twoWayMarkers(kVXChannelFader, 2, "Vol", 2, 4, markers.data());
    CVX_Channel_FaderMIDIAction sendOnly(kVXChannelFader, 2, "Vol", 1, 5, sendOnlyTmpl.data());
    CVX_Channel_FaderMIDIAction generic(kVXChannelFader, 2, "Vol", 0, 4, markers.data());
    // Position: what each of the four sends.
    const std::tuple<int32_t, std::string, std::string, std::string, std::string> cases[] = {
        {255, " B0 07 7F", " B3 7F FE FF", " B0 07 7F 27 40", " B3 7F 40 7F"},
        {254, " B0 07 7F", " B3 7F FE FF", " B0 07 7F 27 00", " B3 7E 00 7F"},
        {253, " B0 07 7F", " B3 7F FE FF", " B0 07 7E 27 40", " B3 7D 40 7E"},
        {252, " B0 07 7E", " B3 7E FE FF", " B0 07 7E 27 00", " B3 7C 00 7E"},
        {201, " B0 07 65", " B3 65 FE FF", " B0 07 64 27 40", " B3 49 40 64"},
        {3, " B0 07 02", " B3 02 FE FF", " B0 07 01 27 40", " B3 03 40 01"},
        {1, " B0 07 01", " B3 01 FE FF", " B0 07 00 27 40", " B3 01 40 00"},
        {0, " B0 07 00", " B3 00 FE FF", " B0 07 00 27 00", " B3 00 00 00"},
    };
    for (const auto& [position, a, b, c, d] : cases) {
        mLoop.AdvanceBy(kPastRateLimit);
        for (auto* fader : {&twoWay, &twoWayMarkers, &sendOnly, &generic}) {
            EXPECT_FALSE(fader->Execute(nullptr, position));
        }
        EXPECT_EQ(mLog.Take(), (Lines{"host" + a, "host" + b, "host" + c, "host" + d})) << position;
    }

    // Back from the host: twice the value, on the action's strip, once from
    // each list. Another channel, another length or a send-only template is
    // not recognised and passes as it is.
    EXPECT_EQ(Host({0xB0, 0x07, 0x40}), " B2 07 40 27 00 B2 07 40 27 00");
    EXPECT_EQ(Host({0xB0, 0x07, 0x7F}), " B2 07 7F 27 00 B2 07 7F 27 00");
    EXPECT_EQ(Host({0xB0, 0x07, 0x00}), " B2 07 00 27 00 B2 07 00 27 00");
    EXPECT_EQ(Host({0xB1, 0x07, 0x40}), " B1 07 40");
    EXPECT_EQ(Host({0xB0, 0x07, 0x40, 0x00}), " B0 07 40 00");
    EXPECT_EQ(Host({0xB0, 0x07, 0x64, 0x27, 0x40}), " B0 07 64 27 40");
    // Every marker is a wildcard for a channel action; the value is at 0xFD.
    EXPECT_EQ(Host({0xB3, 0x11, 0x22, 0x33}), " B2 07 11 27 00 B2 07 11 27 00");
}

TEST_F(MIDIActionTest, ChannelButtonsSendOnOffLightTheirLEDAndTouchSenseObeysItsSwitch) {
    const SVXTemplate noteTmpl = {0x90, 0x10, 0xFD};
    const SVXTemplate halfTmpl = {0xB0, 0x50, 0xFE, 0xFF};
    CVX_Channel_ButtonMIDIAction mute(kVXChannelMute, 5, "Mute", 2, 3, noteTmpl.data());
    CVX_Channel_ButtonMIDIAction select(kVXChannelSelect, 5, "Sel", 1, 4, halfTmpl.data());
    EXPECT_EQ(Sent([&] { mute.Execute(nullptr, 1); }), Lines{"host 90 10 7F"});
    EXPECT_EQ(Sent([&] { mute.Execute(nullptr, 0); }), Lines{"host 90 10 00"});
    EXPECT_EQ(Sent([&] { select.Execute(nullptr, 2); }), Lines{"host B0 50 40 3F"});
    EXPECT_EQ(Sent([&] { select.Execute(nullptr, 0); }), Lines{"host B0 50 00 00"});

    // Two events within 1/30 s: the second is lost.
    mLoop.AdvanceBy(kPastRateLimit);
    mute.Execute(nullptr, 1);
    mLoop.AdvanceBy(30000);
    mute.Execute(nullptr, 0);
    EXPECT_EQ(mLog.Take(), Lines{"host 90 10 7F"});

    EXPECT_EQ(Host({0x90, 0x10, 0x00}), " B5 46 00 B5 46 00");
    EXPECT_EQ(Host({0x90, 0x10, 0x01}), " B5 46 7F B5 46 7F");
    EXPECT_EQ(Host({0x91, 0x10, 0x01}), " 91 10 01");
    EXPECT_EQ(Host({0xB0, 0x50, 0x40, 0x3F}), " B0 50 40 3F");  // send-only

    // Touch Sense sends only while its MIDI is on, and never answers.
    const SVXTemplate touchTmpl = {0x90, 0x20, 0xFD};
    CVX_Channel_ButtonMIDIAction touch(kVXChannelTouchSense, 0, "Touch", 2, 3, touchTmpl.data());
    mData.DisableTouchSenseMIDI(true);
    EXPECT_EQ(Sent([&] { touch.Execute(nullptr, 1); }), Lines{});
    EXPECT_EQ(Sent([&] { touch.Execute(nullptr, 0); }), Lines{});
    mData.DisableTouchSenseMIDI(false);
    EXPECT_EQ(Sent([&] { touch.Execute(nullptr, 1); }), Lines{"host 90 20 7F"});
    EXPECT_EQ(Host({0x90, 0x20, 0x7F}), " 90 20 7F");
}

}  // namespace
