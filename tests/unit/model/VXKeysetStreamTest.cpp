// The keyset stream readers: what each accepts, the exact diagnostics of each
// failure, and which state survives a failed read. Streams are written with
// CVXKeysetStreamWriter; the few hand-written byte strings (Raw) guard against
// the writer and the readers sharing a misreading of the format.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_SpecialAction.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/VXDiagnostics.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using W = CVXKeysetStreamWriter;
using Entry = bool (CVX_KeysetData::*)(UStreamReader*);
using namespace std::string_view_literals;

constexpr Entry kFull = &CVX_KeysetData::UpdateFromStream;
constexpr Entry kKeyset = &CVX_KeysetData::UpdateKeysetFromStream;
constexpr Entry kButton = &CVX_KeysetData::UpdateControlFromStream;
constexpr Entry kChannel = &CVX_KeysetData::UpdateChannelControlFromStream;

const std::string kKeysetFailed =
    "CVX_KeysetData::NewKeysetFromStream() couldn't update theKeyset\n";
// Offset of the action count in PlayUpdate with the name "Play".
constexpr uint32_t kCountAt = 12 + 5 + 3 + 4;

const std::string kStripsFailed = "CVX_Keyset::UpdateFromStream couldn't update mChannelStrips\n";

// Hand-written bytes: tags and names as text, numbers as escapes.
W Raw(std::string_view inBytes) {
    W w;
    w.PutBytes(inBytes.data(), inBytes.size());
    return w;
}

std::string Name(std::string_view inPrefix, uint32_t inN, uint32_t inChannel) {
    return std::string(inPrefix) + "/" + std::to_string(inN) + "/" + std::to_string(inChannel);
}

// A keyset record whose channel records are all named apart (see Name); the
// records of channel 3 hold a special action.
void Keyset(W& ioW, std::string_view inName, uint32_t inChannels = 16,
            uint32_t inSig = FourCC("SIGN"), uint32_t inMode = 0) {
    ioW.KeysetHeader(inName, inSig, inMode);
    for (uint32_t n = 160; n <= 165; ++n) {
        ioW.StripGroupHeader(n);
        for (uint32_t ch = 0; ch < inChannels; ++ch) {
            ioW.ChannelControl(Name(inName, n, ch), n, ch, false, ch == 3 ? 1 : 0);
            if (ch == 3) ioW.ChannelSpecialAction("tell");
        }
    }
}

class KeysetStreamTest : public CVXPlatformTest {
  protected:
    KeysetStreamTest() { TwoKeysets(); }

    // Runs one entry point over the first inLength bytes (all by default),
    // capturing what it prints into mOut and where it left the stream in mPos.
    bool Run(Entry inEntry, const W& inStream, size_t inLength = SIZE_MAX) {
        UStreamReader reader(inStream.Bytes().data(), std::min(inLength, inStream.Bytes().size()));
        CVXDiagnosticCapture printed;
        bool result = (mData.*inEntry)(&reader);
        mOut = printed.Take();
        mPos = reader.GetPos();
        return result;
    }

    // [Default, Old], Old current and, as the newest, under construction.
    void TwoKeysets() {
        mData.DeleteKeysets();
        mData.AddKeyset(std::make_unique<CVX_Keyset>("Default", kVXDefaultSignature));
        mData.AddKeyset(std::make_unique<CVX_Keyset>("Old", FourCC("OLD ")));
        mData.SetCurrentKeyset(1);
    }

    CVX_ChannelControlData* Channel(uint32_t inType, uint32_t inChannel) {
        return mData.GetKeysetAt(0)->GetChannelControlAt(inType, inChannel);
    }
    CVX_ControlData* Play() { return mData.GetKeysetAt(0)->GetControlAt(3, 0); }
    // An update of Play in keyset 0, latched, up to its action count.
    static W PlayUpdate(uint32_t inCount, std::string_view inName = "Play") {
        return W().ControlUpdateHeader(0, 0, 3).ButtonControl(inName, "go", true, inCount);
    }

    CVX_KeysetData mData;
    std::string mOut;
    uint32_t mPos = 0;
};

// ---------------------------------------------------------------------------
// Keyset sets and keysets

TEST_F(KeysetStreamTest, FullSetIsGatedByVersionAndSetsTheLayoutFlag) {
    EXPECT_FALSE(Run(kFull, Raw("KstDCrKV\0\3\xFF\xFFKsCt\0\0\0\1"sv)));
    EXPECT_EQ(mData.GetNumKeysets(), 2u);
    EXPECT_EQ(mData.GetCurrentKeysetIndex(), 1u);

    // Read with the flag as it stands (eight channels per group, stored
    // control-major), then set.
    mData.SetVersionThreeOrLater(false);
    W current = Raw("KstDCrKV\0\4\0\0KsCt\0\0\0\1"sv);
    Keyset(current, "New", 8);
    EXPECT_TRUE(Run(kFull, current));
    ASSERT_EQ(mData.GetNumKeysets(), 1u);  // the default keyset is gone too
    EXPECT_TRUE(mData.IsVersionThreeOrLater());
    EXPECT_EQ(Channel(165, 7)->GetControlName(), Name("New", 165, 7));

    // Count 0 leaves the set empty, without even the default keyset.
    TwoKeysets();
    EXPECT_TRUE(Run(kFull, W().FullSetHeader(0)));
    EXPECT_EQ(mData.GetNumKeysets(), 0u);
}

TEST_F(KeysetStreamTest, EveryPrefixOfAFullSetKeepsTheKeysetsReadSoFar) {
    // The count promises more keysets than follow (and than the bytes could
    // hold room for): even the whole stream fails, after reading both.
    W s;
    s.FullSetHeader(0xFFFFFFFF);
    Keyset(s, "Alpha");
    const size_t firstEnd = s.Bytes().size();
    Keyset(s, "Beta");
    for (size_t length = 0; length <= s.Bytes().size(); ++length) {
        TwoKeysets();
        ASSERT_FALSE(Run(kFull, s, length)) << length;
        if (length < 20) {  // before the count: nothing has changed
            ASSERT_EQ(mOut, "") << length;
            ASSERT_EQ(mData.GetNumKeysets(), 2u) << length;
            ASSERT_EQ(mData.GetCurrentKeysetIndex(), 1u) << length;
            continue;
        }
        ASSERT_TRUE(mOut.ends_with(kKeysetFailed)) << length << mOut;
        ASSERT_EQ(mData.GetCurrentKeysetIndex(), 0u) << length;
        const uint32_t read = length == s.Bytes().size() ? 2 : length >= firstEnd ? 1 : 0;
        ASSERT_EQ(mData.GetNumKeysets(), read) << length;
    }
}

TEST_F(KeysetStreamTest, GroupHeaderHoldingTheAbsoluteNumberFailsAfterTheModeIsStored) {
    CVX_Keyset* keyset = mData.GetKeysetAt(0);
    keyset->SetEmulationResponder(std::make_unique<CWakeLogger>());
    CVX_EmulationResponder* responder = keyset->GetEmulationResponder();
    // Index 0, "Mix" 'MIXR' mode 3, and a group header holding 160, not 0.
    EXPECT_FALSE(Run(kKeyset, Raw("\0\0\0\0KystSt31\3MixSgntMIXREmMd\0\0\0\3ChCT\0\0\0\xA0"sv)));
    EXPECT_EQ(mOut,
              "CVX_ChannelStripArray::UpdateFromStream ctl type (160) != 160\n" + kStripsFailed);
    EXPECT_EQ(keyset->GetName(), "Mix");
    EXPECT_EQ(keyset->GetSignature(), FourCC("MIXR"));
    EXPECT_EQ(keyset->GetEmulationMode(), 3u);
    EXPECT_EQ(keyset->GetEmulationResponder(), responder);  // kept when the strips fail

    // A successful refill replaces the responder by mode: none for mode 0 and
    // any mode but 2 and 3, a new one for those, each time the only responder
    // in the keyset's unmapper.
    const std::pair<uint32_t, std::string> modes[] = {{0, ""},
                                                      {2, "CVX_EmulationModeBResponder"},
                                                      {2, "CVX_EmulationModeBResponder"},
                                                      {3, "CVX_EmulationModeCResponder"},
                                                      {1, ""},
                                                      {3, "CVX_EmulationModeCResponder"},
                                                      {0, ""}};
    for (const auto& [mode, name] : modes) {
        W s = Raw("\0\0\0\0"sv);
        Keyset(s, "Mix", 16, FourCC("SIGN"), mode);
        EXPECT_TRUE(Run(kKeyset, s));
        CVX_EmulationResponder* now = keyset->GetEmulationResponder();
        const auto& listed = keyset->GetMIDIUnmapper()->GetCustomMIDIActions();
        if (name.empty()) {
            EXPECT_EQ(now, nullptr) << mode;
            EXPECT_TRUE(listed.empty()) << mode;
            continue;
        }
        ASSERT_NE(now, nullptr) << mode;
        char written[kVXResponderNameSize] = {};
        now->Name(written);
        EXPECT_EQ(written, name);
        EXPECT_EQ(listed, std::vector<CVX_MIDIResponderMixIn*>{now});
    }
}

TEST_F(KeysetStreamTest, FailedRecordGivesUpItsGroupAndTheNextGroupReadsOn) {
    // Group 160's first record names channel 5 and ends right after it;
    // group 161 follows at once.
    W w =
        Raw("\0\0\0\0KystSt31\1GSgntGGGGEmMd\0\0\0\0ChCT\0\0\0\0CtlDSt31\1xChCT\0\0\0\xA0"
            "Chan\0\0\0\5"sv);
    for (uint32_t n = 161; n <= 165; ++n) {
        w.StripGroupHeader(n);
        for (uint32_t ch = 0; ch < 16; ++ch) w.ChannelControl(Name("G", n, ch), n, ch, false, 0);
    }
    EXPECT_FALSE(Run(kKeyset, w));
    EXPECT_EQ(mOut, "CVX_ChannelControlData::UpdateFromStream (chan #0?) didn't match channel 5\n" +
                        kStripsFailed);
    EXPECT_EQ(mPos, w.Bytes().size());
    EXPECT_EQ(Channel(165, 15)->GetControlName(), Name("G", 165, 15));
}

TEST_F(KeysetStreamTest, AnIndexThatNamesNoKeysetReadsNoFurther) {
    for (Entry entry : {kKeyset, kButton, kChannel}) {
        EXPECT_FALSE(Run(entry, W().ControlUpdateHeader(2, 0, 3).ButtonControl("P", "", false, 0)));
        EXPECT_EQ(mPos, entry == kKeyset ? 4u : 12u);
    }
}

// ---------------------------------------------------------------------------
// Channel control records

TEST_F(KeysetStreamTest, ChannelControlFailuresLeaveTheDocumentedState) {
    // Hand-written: Mute of channel 3 in keyset 0 refilled as "Mute 3",
    // latched, with a special action named "Tell".
    ASSERT_TRUE(
        Run(kChannel, Raw("\0\0\0\0\0\0\0\3\0\0\0\xA1"
                          "CtlDSt31\6Mute 3ChCT\0\0\0\xA1"
                          "Chan\0\0\0\3Ltch\0\0\0\1SequCCnt\0\0\0\1"
                          "ChCmCmID\0\0\0\0CTyp\0\0\0\5Sped\0\0St63\4TellSpcDCTyp\0\0\0\0"sv)));
    CVX_ChannelControlData* control = Channel(161, 3);
    EXPECT_EQ(control->GetControlName(), "Mute 3");
    EXPECT_TRUE(control->IsLatched());
    auto* tell = dynamic_cast<CVX_Channel_SpecialAction*>(control->GetActionAt(0));
    ASSERT_NE(tell, nullptr);
    EXPECT_EQ(tell->GetName(), "Tell");
    EXPECT_EQ(tell->GetControlNum(), 161u);
    EXPECT_EQ(tell->GetChannel(), 3);
    EXPECT_EQ(tell->GetAppSignature(), kVXDefaultSignature);  // keyset 0's, not the newest's

    const auto Update = [] { return W().ChannelControlUpdateHeader(0, 3, 161); };
    const std::string at = "CVX_ChannelControlData::UpdateFromStream ";
    const std::string sequence = at + "(ctl #161, chan 3) couldn't update sequence\n";
    const W good = Update().ChannelControl("X", 161, 3, false, 0);
    struct SCase {
        W stream;
        size_t length;
        std::string out, name;  // what it prints, and the name afterwards
        const char* action;     // the action held afterwards
    } const cases[] = {
        // Before the properties are set: nothing changes.
        {Update().ChannelControl("X", 161, 4, false, 0), SIZE_MAX,
         at + "(chan #3?) didn't match channel 4\n", "Mute 3", "Tell"},
        {Update().ChannelControl("Mute X", 162, 3, false, 0), SIZE_MAX,
         at + "(ctl #161, Mute X) didn't match controlType #162\n", "Mute 3", "Tell"},
        {good, 12 + 8, at + "(ctl #161?) couldn't get name\n", "Mute 3", "Tell"},
        {good, good.Bytes().size() - 13, at + "(ctl 161 chan 3) couldn't get latched setting\n",
         "Mute 3", "Tell"},
        // After: the new properties stay; without a count, so does the old action.
        {good, good.Bytes().size() - 2,
         "CVX_ChannelActionSequence::UpdateFromStream couldn't get count\n" + sequence, "X",
         "Tell"},
        // A kind that builds nothing: the old action is gone all the same.
        {Update().ChannelControl("C", 161, 3, false, 1).ChannelActionHeader(2, "x"), SIZE_MAX,
         "CVX_Channel_Action::CreateChannelActionFromStream  failed\n"
         "CVX_ChannelActionSequence::UpdateFromStream couldn't create action #0\n" +
             sequence,
         "C", nullptr},
        // Two actions: both are built, the first stays.
        {Update()
             .ChannelControl("B", 161, 3, true, 2)
             .ChannelAppSpecificAction("first", 1)
             .ChannelSpecialAction("second"),
         SIZE_MAX, "too many channels actions\n" + sequence, "B", "first"},
    };
    for (const SCase& c : cases) {
        EXPECT_FALSE(Run(kChannel, c.stream, c.length));
        EXPECT_EQ(mOut, c.out);
        EXPECT_EQ(control->GetControlName(), c.name);
        ASSERT_EQ(control->GetActionSequence()->GetCount(), c.action ? 1u : 0u) << c.out;
        EXPECT_TRUE(!c.action || control->GetActionAt(0)->GetName() == c.action) << c.out;
    }
    // Count 0 is a valid, empty sequence.
    EXPECT_TRUE(Run(kChannel, good));
    EXPECT_EQ(control->GetActionSequence()->GetCount(), 0u);
}

// ---------------------------------------------------------------------------
// Button control records

TEST_F(KeysetStreamTest, SequenceTakesTwelveSlotsAndEveryPrefixFails) {
    const W play =
        PlayUpdate(2).KeyAction(3, "a", 0, 'a').KeyAction(3, "b", 0, 'b').SequenceFiller(2);
    ASSERT_EQ(play.Bytes().size(), kCountAt + 1876u);
    const std::string userName =
        "CVX_ControlData::UpdateFromStream (ctl #3?) couldn't get userName\n";
    // Each prefix meets a record with other names and one action.
    const W old = PlayUpdate(1, "Old").KeyAction(3, "old", 0, 'o').SequenceFiller(1);
    for (size_t length = 0; length < play.Bytes().size(); ++length) {
        ASSERT_TRUE(Run(kButton, old));
        ASSERT_FALSE(Run(kButton, play, length)) << length;
        const uint32_t held = Play()->GetActionSequence()->GetCount();
        if (length < kCountAt) {
            ASSERT_EQ(Play()->GetControlName(), "Old") << length;
            ASSERT_EQ(held, 1u) << length;
            ASSERT_EQ(mOut, length >= kCountAt - 4 ? userName : "") << length;
            continue;
        }
        // The properties stay; the sequence holds the complete records.
        ASSERT_EQ(Play()->GetControlName(), "Play") << length;
        const size_t records = length < kCountAt + 4 ? 0 : (length - kCountAt - 4) / 156;
        ASSERT_EQ(held, std::min<size_t>(records, 2)) << length;
    }
    ASSERT_TRUE(Run(kButton, play));
    EXPECT_EQ(mPos, play.Bytes().size());
    EXPECT_TRUE(Play()->IsLatched());
    EXPECT_EQ(Play()->GetActionAt(1)->GetName(), "b");
}

TEST_F(KeysetStreamTest, FillerSkipDecidesTheResultAfterAnActionFails) {
    // The second of three builds nothing; the skip for the nine empty slots
    // starts where the third record begins, so 1720 bytes of sequence suffice.
    W w = PlayUpdate(3).KeyAction(3, "one", 0, '1').ButtonAction(2, 3, "menu", 0, nullptr, 0);
    w.KeyAction(3, "three", 0, '3').SequenceFiller(3);
    EXPECT_TRUE(Run(kButton, w, kCountAt + 1720));
    EXPECT_FALSE(Run(kButton, w, kCountAt + 1719));
    ASSERT_EQ(Play()->GetActionSequence()->GetCount(), 1u);
    EXPECT_EQ(Play()->GetActionAt(0)->GetName(), "one");

    // More than twelve: exactly count records, no filler.
    W many = PlayUpdate(13);
    for (int i = 0; i < 13; ++i) many.KeyAction(3, "k", 0, 'k');
    EXPECT_TRUE(Run(kButton, many));
    EXPECT_EQ(mPos, many.Bytes().size());
}

TEST_F(KeysetStreamTest, UpdatesBuildForTheAddressedKeysetAndRefillsKeepTheButtons) {
    // Each update below addresses another keyset than the one under
    // construction before it; the actions take the signature of their own.
    ASSERT_TRUE(Run(kButton, PlayUpdate(1).SpecialAction(3, "tell").SequenceFiller(1)));
    auto* button = dynamic_cast<CVX_SpecialAction*>(Play()->GetActionAt(0));
    ASSERT_NE(button, nullptr);
    EXPECT_EQ(button->GetAppSignature(), kVXDefaultSignature);

    W added;
    Keyset(added, "Added", 16, FourCC("ADDD"));
    EXPECT_TRUE(Run(&CVX_KeysetData::NewKeysetFromStream, added));
    EXPECT_EQ(mData.GetKeysetAt(2)->GetName(), "Added");  // appended

    W refill = Raw("\0\0\0\0"sv);
    Keyset(refill, "Refilled");
    ASSERT_TRUE(Run(kKeyset, refill));
    EXPECT_EQ(Channel(165, 15)->GetControlName(), Name("Refilled", 165, 15));
    auto* channel = dynamic_cast<CVX_Channel_SpecialAction*>(Channel(161, 3)->GetActionAt(0));
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(channel->GetAppSignature(), FourCC("SIGN"));
    EXPECT_EQ(Play()->GetActionAt(0), button);
}

// A name longer than its field is cut, and the rest of it stays in the stream:
// the next tag is read from inside the name, and the added keyset fails.
TEST_F(KeysetStreamTest, OverLongNameMisalignsTheRestOfTheRecord) {
    W w;
    Keyset(w, std::string(40, 'N'));
    EXPECT_FALSE(Run(&CVX_KeysetData::NewKeysetFromStream, w));
    EXPECT_EQ(mOut, "string length changed\n" + kKeysetFailed);
    EXPECT_EQ(mPos, 4u + 4u + 32u + 4u);  // Kyst, St31, the cut name, one "tag" of letters
    EXPECT_EQ(mData.GetNumKeysets(), 2u);
}

}  // namespace
