// Reading the bodies of the button MIDI action and of the channel MIDI and
// emulation actions: every field lands in its place, every body consumes
// exactly its layout, a cut or a misspelt tag anywhere yields null quietly,
// and each control gets the class (or null) its rules say.
#include <algorithm>
#include <cctype>

#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_Channel_MIDIAction.h"
#include "actions/CVX_MIDIAction.h"
#include "model/CVX_Keyset.h"
#include "platform/VXDiagnostics.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using namespace std::string_view_literals;

const auto Body = [](std::string_view inText) { return Bytes(inText.begin(), inText.end()); };

// Two skipped bytes (not zero: nothing reads them), kind 2, length 0xFFFF (a
// length past the template is stored as read; senders bound it), 8 template bytes.
const Bytes kButtonBody = Body("\xEE\xEE\0\0\0\2\xFF\xFF\xB0\x10\xFD\1\2\3\4\5"sv);
// "MidD", "CTyp" kind 2, "MDLn" length 3, "MDMs" and 8 template bytes.
const Bytes kChannelBody = Body("MidDCTyp\0\0\0\2MDLn\0\3MDMs\xB0\x07\xFD\xFE\xFF\1\2\3"sv);
// "CEmD", "EmMd" mode 3, "EmTp", "EmCN" and "EmSF" longs that are dropped,
// "MDLn" length 6, "MDMs" and 16 template bytes, "AcMD" 1 (answers host MIDI).
const Bytes kEmulationBody = Body(
    "CEmDEmMd\0\0\0\3EmTp\x11\x11\x11\x11"
    "EmCN\x22\x22\x22\x22"
    "EmSF\x33\x33\x33\x33"
    "MDLn\0\6MDMs\xB0\xFE\0\xB0\xFF\xF8\xA0\xA1\xA2\xA3\xA4\xA5\xA6\xA7\xA8\xA9"
    "AcMD\0\1"sv);

// b with the big-endian number inValue, w bytes wide, written at inOffset.
Bytes Patched(Bytes b, size_t inOffset, uint32_t inValue, size_t w) {
    for (size_t i = 0; i < w; ++i) b[inOffset + i] = uint8_t(inValue >> (8 * (w - 1 - i)));
    return b;
}

// The three factories, called as the keyset reader calls them.
const auto kButton = [](UStreamReader* r, uint32_t c, uint32_t) {
    return CVX_MIDIAction::CreateMIDIActionFromStream(c, 40, "Cue", r);
};
const auto kChannel = [](UStreamReader* r, uint32_t c, uint32_t ch) {
    return CVX_Channel_MIDIAction::CreateChannelMIDIActionFromStream(r, c, ch, "Vol");
};
const auto kEmulation = [](UStreamReader* r, uint32_t c, uint32_t ch) {
    return CVX_Channel_EmulationAction::CreateChannelEmulationActionFromStream(r, c, ch, "Emu");
};

// Reads inBody with inMake, as control inControl of strip inCh. Every cut of
// the body (each in a block of exactly its size, for the address sanitizer)
// and every tag letter turned to its other case must read as null, and nothing
// may be printed. Read whole, the body must be consumed exactly; the action
// comes back if it is a T.
template <class T, class F>
std::unique_ptr<T> Read(const Bytes& inBody, F inMake, uint32_t inControl, uint32_t inCh = 9) {
    CVXDiagnosticCapture printed;
    for (size_t i = 0; i < inBody.size(); ++i) {
        UStreamReader cut(Bytes(inBody.begin(), inBody.begin() + std::ptrdiff_t(i)));
        EXPECT_EQ(inMake(&cut, inControl, inCh), nullptr) << "cut at " << i;
        Bytes misspelt = inBody;
        misspelt[i] ^= 0x20;
        UStreamReader bad(std::move(misspelt));
        EXPECT_TRUE(!std::isalpha(inBody[i]) || !inMake(&bad, inControl, inCh)) << i;
    }
    UStreamReader reader(inBody);
    auto action = inMake(&reader, inControl, inCh);
    EXPECT_EQ(reader.GetPos(), inBody.size());
    EXPECT_EQ(printed.Text(), "");
    if (!dynamic_cast<T*>(action.get())) return nullptr;
    return std::unique_ptr<T>(static_cast<T*>(action.release()));
}

using MIDIActionStreamTest = CVXPlatformTest;

TEST_F(MIDIActionStreamTest, OnlyKindTwoButtonsAnswerHostMIDI) {
    auto midi = Read<CVX_ButtonMIDIAction>(kButtonBody, kButton, 3);
    ASSERT_NE(midi, nullptr);
    EXPECT_EQ(std::tuple(midi->GetName(), midi->GetControlNum(), midi->GetSpeed(),
                         midi->GetActionType(), midi->GetMsgLength()),
              std::tuple("Cue", 3u, 40, 2u, 0xFFFF));
    EXPECT_TRUE(std::equal(kButtonBody.begin() + 8, kButtonBody.end(), midi->GetMessage()));

    // Kind, control, and whether the action answers host MIDI (-1: none built).
    // Control 5 lies just past the table of transport buttons and is allowed;
    // beyond it no control is a button.
    const std::tuple<uint32_t, uint32_t, int> cases[] = {
        {2, 0, 1},           {2, 4, 1},  {2, 5, 1},    {1, 0, 0},    {0, 2, 0},   {3, 2, 0},
        {0x80000002u, 2, 0}, {2, 6, -1}, {2, 160, -1}, {2, 165, -1}, {2, ~0u, -1}};
    for (auto [kind, control, answers] : cases) {
        midi = Read<CVX_ButtonMIDIAction>(Patched(kButtonBody, 2, kind, 4), kButton, control);
        EXPECT_EQ(midi ? int(midi->AcceptsMIDI()) : -1, answers) << kind << " " << control;
    }
}

TEST_F(MIDIActionStreamTest, ChannelMIDIClassAndHostMIDIFollowTheControl) {
    auto midi = Read<CVX_Channel_FaderMIDIAction>(kChannelBody, kChannel, 160, 2);
    ASSERT_NE(midi, nullptr);
    EXPECT_EQ(std::tuple(midi->GetName(), midi->GetControlNum(), midi->GetChannel(),
                         midi->GetActionType(), midi->GetMsgLength()),
              std::tuple("Vol", 160u, 2, 2u, 3));
    EXPECT_TRUE(std::equal(kChannelBody.begin() + 22, kChannelBody.end(), midi->GetMessage()));

    // Control, kind, whether a fader action is built, and whether the action
    // answers host MIDI (-1: none built). Touch Sense (165) may send but never
    // answers.
    const std::tuple<uint32_t, uint32_t, bool, int> cases[] = {
        {160, 2, true, 1},   {160, 1, true, 0},  {161, 2, false, 1}, {164, 2, false, 1},
        {165, 2, false, 0},  {162, 0, false, 0}, {0, 2, false, -1},  {159, 2, false, -1},
        {166, 2, false, -1}, {169, 2, false, -1}};
    for (auto [control, kind, fader, answers] : cases) {
        auto m = Read<CVX_Channel_MIDIAction>(Patched(kChannelBody, 8, kind, 4), kChannel, control);
        bool isFader = dynamic_cast<CVX_Channel_FaderMIDIAction*>(m.get()) != nullptr;
        EXPECT_EQ(std::pair(isFader, m ? int(m->AcceptsMIDI()) : -1), std::pair(fader, answers))
            << control;
    }
}

TEST_F(MIDIActionStreamTest, EmulationBodyLoadsEveryFieldAndConsumesSixtyEightBytes) {
    CVX_Keyset keyset("Logic", FourCC("EMAG"));  // the keyset under construction
    auto e = Read<CVX_EmulationModeCSelectAction>(kEmulationBody, kEmulation, 164, 9);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::tuple(e->GetName(), e->GetControlNum(), e->GetChannel(), e->GetEmulationMode(),
                         e->GetMsgLength(), e->AcceptsMIDI(), e->GetAppSig(), e->GetBank()),
              std::tuple("Emu", 164u, 9, 3u, 6, true, FourCC("EMAG"), 1));
    EXPECT_TRUE(std::equal(kEmulationBody.begin() + 46, kEmulationBody.end() - 6, e->GetMessage()));
}

TEST_F(MIDIActionStreamTest, EmulationHostMIDIBankAndSignature) {
    // Mode, control, channel and AcMD field; whether the Mode C Select action
    // is built and whether it answers host MIDI. Only mode 3 on Select builds
    // the bank-switching action; every control gets one or the other. Any
    // nonzero AcMD asks for host MIDI, its high byte too; Touch Sense is
    // allowed like the other channel controls, a number outside them is not.
    const std::tuple<uint32_t, uint32_t, uint32_t, uint16_t, bool, bool> cases[] = {
        {3, 164, 7, 1, true, true},   {2, 164, 8, 0x0100, false, true},
        {0, 164, 0, 0, false, false}, {3, 163, 15, 1, false, true},
        {3, 160, 0, 0, false, false}, {2, 165, 0, 1, false, true},
        {2, 166, 0, 1, false, false}, {2, 4, 0, 1, false, false}};
    for (auto [mode, control, ch, field, select, accepts] : cases) {
        auto e = Read<CVX_Channel_EmulationAction>(
            Patched(Patched(kEmulationBody, 8, mode, 4), 66, field, 2), kEmulation, control, ch);
        ASSERT_NE(e, nullptr) << control;
        EXPECT_EQ(std::tuple(dynamic_cast<CVX_EmulationModeCSelectAction*>(e.get()) != nullptr,
                             e->AcceptsMIDI(), e->GetEmulationMode(), e->GetBank(), e->GetAppSig()),
                  std::tuple(select, accepts, mode, ch >= 8, 0u))
            << control << " " << field;
    }
}

}  // namespace
