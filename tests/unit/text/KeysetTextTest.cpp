// Keysets as text: the round trips (binary to text to binary byte for byte,
// text to model and back) over generated keysets that use every action type
// and field, the shipped presets and example; what the driver's own readers
// make of the bytes written; and the mistakes a person makes in a file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "actions/CVX_Action.h"
#include "actions/CVX_KeyAction.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/VXDiagnostics.h"
#include "support/PlatformFakes.h"
#include "text/VXKeyNames.h"
#include "text/VXKeysetText.h"

namespace fs = std::filesystem;

namespace {

// Keysets with random content in every field a record stores, within what
// the driver's readers take whole.
class CGenerator {
  public:
    explicit CGenerator(uint32_t inSeed) : mRandom(inSeed) {}

    uint32_t Below(uint32_t inBound) { return Any() % inBound; }
    uint32_t Any() { return static_cast<uint32_t>(mRandom()); }
    bool Coin() { return Below(2) == 0; }
    // Mostly the usual values, sometimes any stored number.
    uint32_t OneOf(std::initializer_list<uint32_t> inUsual) {
        return Below(5) == 0 ? Any() : *(inUsual.begin() + Below(uint32_t(inUsual.size())));
    }

    std::string Text(size_t inMax) {
        std::string s(Below(uint32_t(inMax) + 1), ' ');
        for (char& c : s) c = Below(4) ? char('a' + Below(26)) : static_cast<char>(Below(256));
        return s;
    }

    SVXActionModel Action(bool inButton, uint32_t inControl) {
        static const uint32_t kButtonTypes[] = {0, 1, 4, 5, 6, 7};
        static const uint32_t kChannelTypes[] = {5, 6, 7, 8};
        SVXActionModel a;
        a.type = inButton ? kButtonTypes[Below(6)] : kChannelTypes[Below(4)];
        if (Below(4) == 0) a.type |= kVXBuiltInActionFlag;
        a.legacyID = Coin() ? 0 : Any();
        // A button action's own control field must name a button for its
        // factory to build it.
        if (inButton) a.control = Below(4) ? inControl : Below(6);
        a.speed = static_cast<uint16_t>(Coin() ? 0 : Any());
        a.name = Text(kVXStr63Max);
        switch (a.BaseType()) {
            case 0:
                a.modifiers = static_cast<uint16_t>(Coin() ? Below(32) << 8 : Any());
                a.keyCode = static_cast<uint8_t>(Any());
                a.charCode = static_cast<uint8_t>(Coin() ? 0 : Any());
                break;
            case 1:
                a.captureNow = static_cast<uint16_t>(Coin() ? 0 : Any());
                a.partialTitle = static_cast<uint16_t>(Coin() ? 0 : Any());
                a.mouseOp = static_cast<uint8_t>(Any());
                a.captureOp = static_cast<uint8_t>(Any());
                a.modifiers = static_cast<uint16_t>(Any());
                a.x = static_cast<int16_t>(Any());
                a.y = static_cast<int16_t>(Any());
                a.windowTitle = Text(kVXStr63Max);
                break;
            case 4:
                a.ticks =
                    Coin() ? static_cast<int32_t>(Below(2000) * 3) : static_cast<int32_t>(Any());
                break;
            case 5:
                // A button's bank codes build no action; every other code does.
                a.code = inButton ? OneOf({191, 1, 200}) : OneOf({0});
                if (inButton && (a.code == 5 || a.code == 6 || a.code == 13 || a.code == 14))
                    a.code = 191;
                break;
            case 6:
                a.code = inButton ? 4 + Below(2) : Any();
                break;
            default:
                a.length = static_cast<uint16_t>(Below(4) ? Below(17) : Any());
                for (uint8_t& b : a.message) b = Coin() ? 0 : static_cast<uint8_t>(Any());
                if (a.BaseType() == 7) {
                    a.kind = OneOf({1, 2});
                    std::fill(a.message.begin() + 8, a.message.end(), 0);
                    break;
                }
                a.mode = OneOf({0, 2, 3});
                for (uint32_t& u : a.unused) u = Coin() ? 0 : Any();
                a.acceptsMIDI = static_cast<uint16_t>(OneOf({0, 1}));
                break;
        }
        return a;
    }

    SVXKeysetModel Keyset() {
        SVXKeysetModel k = VXDefaultKeyset(Text(kVXStr31Max), Any());
        k.mode = OneOf({0, 2, 3});
        for (uint32_t n = 0; n < kVXModelButtons; ++n) {
            if (Coin()) continue;
            SVXButtonModel& b = k.buttons[n];
            b.controlName = Text(kVXStr31Max);
            b.assignedName = Text(kVXStr31Max);
            b.latched = OneOf({0, 1});
            for (uint32_t i = Below(14); i > 0; --i) b.actions.push_back(Action(true, n));
        }
        for (uint32_t c = 0; c < kVXModelStripControls; ++c) {
            // A third of the controls are the same on every strip, their
            // template's first byte carrying the channel as in "Bn 07 FD".
            const bool uniform = Below(3) == 0;
            const SVXActionModel shared = Action(false, 160 + c);
            for (uint32_t s = 0; s < kVXModelStrips; ++s) {
                SVXChannelControlModel& control = k.strips[s][c];
                if (uniform) {
                    control.action = shared;
                    if (shared.BaseType() >= 7)
                        control.action->message[0] = static_cast<uint8_t>(0xB0 | s);
                } else if (Coin()) {
                    control.name = Text(kVXStr31Max);
                    control.latched = OneOf({0, 1});
                    if (Below(4)) control.action = Action(false, 160 + c);
                }
            }
        }
        return k;
    }

  private:
    std::mt19937 mRandom;
};

// What a keyset file holds: its keysets with the transport buttons of a new
// keyset, which keyset records do not carry.
SVXKeysetFileModel WithoutButtons(SVXKeysetFileModel inFile) {
    for (SVXKeysetModel& k : inFile.keysets)
        for (uint32_t n = 0; n < kVXModelButtons; ++n) k.buttons[n] = VXDefaultButton(n);
    return inFile;
}

SVXKeysetFileModel FromText(const std::string& inText) {
    SVXKeysetFileModel file;
    std::string error;
    EXPECT_TRUE(VXKeysetFileFromText(inText, "t.toml", file, error)) << error;
    return file;
}

std::string ReadFile(const fs::path& inPath) {
    std::ifstream in(inPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

fs::path SourceDir() {
    const char* dir = std::getenv("VX_SOURCE_DIR");
    return dir ? dir : ".";
}

class KeysetTextTest : public CVXPlatformTest {
  protected:
    // The driver's readers take every keyset of the stream, silently.
    void ExpectDriverLoads(const std::vector<uint8_t>& inBytes, size_t inKeysets) {
        CVXDiagnosticCapture capture;
        CVX_KeysetData data;
        UStreamReader reader(inBytes.data(), inBytes.size());
        EXPECT_TRUE(data.UpdateFromStream(&reader));
        EXPECT_EQ(data.GetNumKeysets(), inKeysets);
        EXPECT_EQ(capture.Text(), "");
    }

    // Binary to model to binary, and model to text to model to text.
    void ExpectRoundTrips(const SVXKeysetFileModel& inFile) {
        const std::vector<uint8_t> bytes = VXWriteKeysetFile(inFile);
        ExpectDriverLoads(bytes, inFile.keysets.size());
        SVXKeysetFileModel read;
        size_t trailing = 1;
        std::string error;
        ASSERT_TRUE(VXReadKeysetFile(bytes.data(), bytes.size(), read, trailing, error)) << error;
        EXPECT_EQ(trailing, 0u);
        EXPECT_TRUE(read == WithoutButtons(inFile));
        EXPECT_EQ(VXWriteKeysetFile(read), bytes);

        const std::string text = VXKeysetFileToText(inFile);
        const SVXKeysetFileModel back = FromText(text);
        EXPECT_TRUE(back == inFile) << text;
        EXPECT_EQ(VXKeysetFileToText(back), text);
    }
};

TEST_F(KeysetTextTest, GeneratedKeysetsRoundTripExactly) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        CGenerator g(seed);
        SVXKeysetFileModel file;
        file.version = g.Coin() ? kVXFirstKeysetVersion : kVXFirstKeysetVersion + g.Below(1000);
        for (uint32_t i = 1 + g.Below(3); i > 0; --i) file.keysets.push_back(g.Keyset());
        ExpectRoundTrips(file);
        if (HasFailure()) return;
    }
}

// The driver's readers take each generated button record whole, every action
// in its 156 bytes, and build an action for each (a sequence of more than
// twelve without filler).
TEST_F(KeysetTextTest, ButtonUpdatesLoadInTheDriver) {
    CVX_KeysetData data;
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        CGenerator g(seed);
        const SVXKeysetModel k = g.Keyset();
        for (uint32_t n = 0; n < kVXModelButtons; ++n) {
            const std::vector<uint8_t> update = VXWriteButtonUpdate(0, n, k.buttons[n]);
            CVXDiagnosticCapture capture;
            UStreamReader reader(update.data(), update.size());
            ASSERT_TRUE(data.UpdateControlFromStream(&reader)) << seed << " " << n;
            EXPECT_EQ(reader.GetPos(), update.size());
            const CVX_ControlData* control = data.GetKeysetAt(0)->GetControlAt(n, 0);
            // The driver keeps names as C strings.
            EXPECT_EQ(control->GetAssignedName(), k.buttons[n].assignedName.c_str());
            size_t held = 0;
            while (control->GetActionAt(static_cast<uint32_t>(held))) ++held;
            EXPECT_EQ(held, k.buttons[n].actions.size()) << seed << " " << n;
        }
    }
}

// An independent writer agrees on a button record's bytes, and the key
// written by name is the key the driver posts.
TEST_F(KeysetTextTest, ButtonRecordMatchesTheStreamWriter) {
    const SVXKeysetFileModel file = FromText(R"(
[[keyset]]
name = "K"
signature = "KEYS"
[keyset.buttons.play]
assigned = "Play it"
actions = [ { type = "key", key = "space", modifiers = ["shift", "command"], name = "go" },
            { type = "delay", seconds = 0.25 },
            { type = "midi", kind = "two-way", template = "B0 10 FD" } ]
)");
    ASSERT_EQ(file.keysets.size(), 1u);
    CVXKeysetStreamWriter w;
    const uint8_t midi[8] = {0xB0, 0x10, 0xFD};
    w.ControlUpdateHeader(2, 0, 3).ButtonControl("Play", "Play it", false, 3);
    w.KeyAction(3, "go", 49, 0, 0x0300).DelayAction(3, "", 15).MIDIAction(3, "", 2, 3, midi);
    w.SequenceFiller(3);
    EXPECT_EQ(VXWriteButtonUpdate(2, 3, file.keysets[0].buttons[3]), w.Bytes());

    // Every key name reads back to its code, in any case and spacing.
    for (unsigned code = 0; code < 256; ++code) {
        if (const char* name = VXKeyName(static_cast<uint8_t>(code))) {
            EXPECT_EQ(VXKeyFromName(name), code) << name;
        }
    }
    EXPECT_EQ(VXKeyFromName("page up"), 116);
    EXPECT_EQ(VXKeyFromName("KP-ENTER"), 76);
    EXPECT_FALSE(VXKeyFromName("__").has_value());

    CVX_KeysetData data;
    const std::vector<uint8_t> update = VXWriteButtonUpdate(0, 3, file.keysets[0].buttons[3]);
    UStreamReader reader(update.data(), update.size());
    ASSERT_TRUE(data.UpdateControlFromStream(&reader));
    auto* key =
        dynamic_cast<CVX_KeyAction*>(data.GetKeysetAt(0)->GetControlAt(3, 0)->GetActionAt(0));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->GetKeyCode(), 49);
    EXPECT_EQ(key->GetModifiers(), 0x0300);
}

TEST_F(KeysetTextTest, ExampleAndPresetsRoundTrip) {
    const std::string example = ReadFile(SourceDir() / "examples/example.prefs");
    const std::vector<uint8_t> bytes(example.begin(), example.end());
    SVXKeysetFileModel file;
    size_t trailing = 0;
    std::string error;
    ASSERT_TRUE(VXReadKeysetFile(bytes.data(), bytes.size(), file, trailing, error)) << error;
    EXPECT_EQ(VXWriteKeysetFile(FromText(VXKeysetFileToText(file))), bytes);
    // The Mixer keyset's templates differ by strip only in their channel.
    EXPECT_NE(VXKeysetFileToText(file).find("template = \"Bn 07 FD\""), std::string::npos);

    size_t presets = 0;
    for (const auto& entry : fs::directory_iterator(SourceDir() / "presets")) {
        SCOPED_TRACE(entry.path().string());
        ++presets;
        const SVXKeysetFileModel preset = FromText(ReadFile(entry.path()));
        ASSERT_EQ(preset.keysets.size(), 1u);
        ExpectRoundTrips(preset);
    }
    EXPECT_EQ(presets, 4u);
}

// What the presets mean, at one strip each: the channel digit and the
// per-strip entries land where they should.
TEST_F(KeysetTextTest, PresetsSayWhatTheirCommentsSay) {
    auto preset = [](const char* inName) {
        return FromText(ReadFile(SourceDir() / "presets" / inName)).keysets.at(0);
    };
    const SVXKeysetModel midi = preset("midi.toml");
    EXPECT_EQ(midi.strips[2][0].action->message[0], 0xB2);
    EXPECT_EQ(midi.strips[2][0].action->kind, 2u);
    EXPECT_EQ(midi.buttons[3].actions.at(0).message[1], 0x73);
    const SVXKeysetModel modeB = preset("mode-b.toml");
    EXPECT_EQ(modeB.mode, 2u);
    EXPECT_EQ(modeB.strips[1][2].action->message[1], 0x09);  // Solo of strip 2
    EXPECT_EQ(modeB.strips[1][0].action->message[0], 0xE1);
    EXPECT_FALSE(modeB.strips[8][0].action.has_value());
    const SVXKeysetModel modeC = preset("mode-c.toml");
    EXPECT_EQ(modeC.strips[15][4].action->mode, 3u);
    EXPECT_EQ(modeC.strips[15][4].action->length, 6u);
    const SVXKeysetModel keys = preset("transport-keys.toml");
    EXPECT_EQ(keys.buttons[3].actions.at(0).keyCode, 49);  // Space
    EXPECT_EQ(keys.buttons[4].actions.at(0).modifiers, 0x0200);
}

TEST(KeysetText, StrictReaderRefusesWhatTheDriverWouldNotTakeWhole) {
    auto refuse = [](std::vector<uint8_t> inBytes, const std::string& inWhat) {
        SVXKeysetFileModel file;
        size_t trailing = 0;
        std::string error;
        EXPECT_FALSE(VXReadKeysetFile(inBytes.data(), inBytes.size(), file, trailing, error));
        EXPECT_NE(error.find(inWhat), std::string::npos) << error;
    };
    CVXKeysetStreamWriter w;
    w.FullSetHeader(1, 0x3FFFF);
    refuse(w.Take(), "version 262143");
    w.FullSetHeader(2).KeysetHeader("A", 1).EmptyStrips();
    refuse(w.Take(), "keyset 1");
    w.FullSetHeader(1).KeysetHeader(std::string(32, 'x'), 1);
    refuse(w.Take(), "a keyset name of 32 characters");
    w.FullSetHeader(1).KeysetHeader("A", 1).EmptyStrips(15);
    refuse(w.Take(), "expected the tag 'CtlD'");
    w.FullSetHeader(1).KeysetHeader("A", 1).StripGroupHeader(160);
    w.ChannelControl("F", 160, 0, false, 2);
    refuse(w.Take(), "2 actions");
    w.FullSetHeader(1).KeysetHeader("A", 1).StripGroupHeader(160);
    w.ChannelControl("F", 160, 0, false, 1).ChannelActionHeader(0, "key");
    refuse(w.Take(), "type 0");
}

struct SMistake {
    const char* text;
    const char* error;  // the whole message
};

// Each mistake is named with its line and column, and nothing is read.
TEST(KeysetText, MistakesAreNamedWhereTheyAre) {
    const std::string head = "[[keyset]]\nname = \"K\"\nsignature = \"KEYS\"\n";
    const SMistake kMistakes[] = {
        {"[keyset.buttons.play]\nactions = [ { type = \"key\", key = \"Spaec\" } ]\n",
         "k.toml:5:35: unknown key name 'Spaec' (vxctl keys lists them)"},
        {"[[keyset.strip]]\nstrip = 1\nfader = { type = \"midi\", template = \"B0\", colour = 1 "
         "}\n",
         "k.toml:6:43: unknown field 'colour' in a MIDI action (expected one of: type, name, id, "
         "builtin, speed, control_name, latched, kind, template, length)"},
        {"[keyset.buttons.stop]\nlatched = \"yes\"\n",
         "k.toml:5:11: 'latched' must be true, false or a number"},
        {"[keyset.buttons.pause]\n",
         "k.toml:4:17: unknown field 'pause' in the transport buttons (expected one of: rewind, "
         "fast_forward, stop, play, record)"},
        {"[[keyset.strip]]\nstrip = 17\n", "k.toml:5:9: 'strip' must be from 1 to 16"},
        {"[[keyset.strip]]\nstrips = [3, 0]\n", "k.toml:5:14: 'strips' must be from 1 to 16"},
        {"[[keyset.strip]]\nstrips = \"all\"\nmute = { type = \"midi\", template = \"90 1G FD\" "
         "}\n",
         "k.toml:6:36: 'template' holds '1G', not two hex digits"},
        {"[keyset.buttons.play]\nactions = [ { type = \"midi\", template = \"Bn 07 FD\" } ]\n",
         "k.toml:5:41: 'template' uses n, the strip's channel, on a button"},
        {"[[keyset.strip]]\nstrips = \"all\"\nmute = { type = \"notify\" }\n"
         "[[keyset.strip]]\nstrip = 4\nmute = { type = \"app\" }\n",
         "k.toml:9:8: strip 4's mute is set twice (first on line 6)"},
        {"[[keyset.strip]]\nstrip = 2\nsolo = { type = \"key\", key = \"A\" }\n",
         "k.toml:6:17: unknown action type 'key' (expected notify, app, midi or emulation)"},
        {"[keyset.buttons.play]\nactions = [ { type = \"delay\", seconds = -1 } ]\n",
         "k.toml:5:41: 'seconds' must be a number from 0 to 3600"},
        {"name2 = \"Caf\xC3\xA9\"\n",
         "k.toml:4:13: a character beyond ASCII: write it in a string as a \\u escape (\\u00E9 for "
         "e acute), or leave it out of comments"},
        {"mode = \"D\"\n", "k.toml:4:8: 'mode' must be \"none\", \"B\", \"C\" or a number"},
        {"[keyset.buttons.play]\nassigned = \"\\u0100\"\n",
         "k.toml:5:12: 'assigned' holds a character beyond U+00FF (names are 8-bit text)"},
        {"[keyset.buttons.play\n", "k.toml:4:21: "},
    };
    for (const SMistake& m : kMistakes) {
        SVXKeysetFileModel file;
        file.version = 7;
        std::string error;
        EXPECT_FALSE(VXKeysetFileFromText(head + m.text, "k.toml", file, error)) << m.text;
        EXPECT_EQ(error.substr(0, std::string(m.error).size()), m.error) << m.text;
        EXPECT_EQ(file.version, 7u);
    }
    std::string error;
    SVXKeysetFileModel file;
    EXPECT_FALSE(VXKeysetFileFromText("[[keyset]]\nname = \"K\"\n", "k.toml", file, error));
    EXPECT_EQ(error, "k.toml:1:1: the keyset needs a 'signature' (four characters)");
    EXPECT_FALSE(VXKeysetFileFromText("# nothing\n", "k.toml", file, error));
    EXPECT_EQ(error, "k.toml:1:1: the file holds no keyset (each begins with [[keyset]])");
}

}  // namespace
