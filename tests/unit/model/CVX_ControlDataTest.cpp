#include "model/CVX_ControlData.h"

#include <gtest/gtest.h>

#include "actions/CVX_MIDIAction.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "support/PlatformFakes.h"

namespace {

// Logs "<name> <value>" for every execution and lets the chain go on.
struct LoggingAction : CVX_Action {
    LoggingAction(CEventLog& inLog, const std::string& inName)
        : CVX_Action(0, 0, inName.c_str()), mLog(inLog) {}
    bool ExecuteSelf(int32_t inValue, bool) override {
        mLog.Add(mName + " " + std::to_string(inValue));
        return true;
    }
    CEventLog& mLog;
};

class ControlDataTest : public CVXPlatformTest {
  protected:
    // Button record inControl of the default keyset with inActions logging actions.
    CVX_ControlData* Button(uint32_t inControl, bool inLatched, uint32_t inActions = 1) {
        CVX_ControlData* c = mData.GetKeysetAt(0)->GetControlAt(inControl, 0);
        c->SetControlProperties("B", "_", inControl, inLatched);
        for (uint32_t i = 0; i < inActions; ++i)  // named <control><index>
            c->AddAction(std::make_unique<LoggingAction>(mLog, std::to_string(inControl * 10 + i)));
        return c;
    }
    CVX_KeysetData mData;
};

TEST_F(ControlDataTest, UnlatchedButtonsRunTheWholeChainOnPressAndRelease) {
    CVX_ControlData* play = Button(3, false, 2);
    for (int32_t value : {1, 0}) play->Execute(0, value);
    play->Execute(2, 1);  // no action there
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"30 1", "31 1", "30 0", "31 0"}));
}

// A MIDI action takes over its chain: what follows it does not run from the
// same press, though it runs when the record is asked for it directly.
TEST_F(ControlDataTest, AMIDIActionEndsTheChain) {
    const uint8_t body[16] = {0, 0, 0, 0, 0, 1, 0, 3, 0xB0, 0x10, 0x7F};
    UStreamReader reader(body, sizeof body);
    CVX_ControlData* stop = mData.GetKeysetAt(0)->GetControlAt(2, 0);
    stop->AddAction(CVX_MIDIAction::CreateMIDIActionFromStream(2, 0, "midi", &reader));
    stop->AddAction(std::make_unique<LoggingAction>(mLog, "after"));
    ASSERT_NE(stop->GetActionAt(0), nullptr);
    stop->Execute(0, 1);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"host B0 10 7F"}));
    stop->Execute(1, 1);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"after 1"}));
}

TEST_F(ControlDataTest, LatchedButtonOutsideTheTransportTogglesAndIgnoresReleases) {
    // Button records exist for 5 too; build one directly since the bank has no slot.
    auto record = CVX_ControlData::Create_VX_ControlData("Five", "_", 5);
    ASSERT_NE(record, nullptr);
    record->SetControlProperties("Five", "_", 5, true);
    record->AddAction(std::make_unique<LoggingAction>(mLog, "five"));
    for (int32_t value : {1, 0, 1, 0, 1}) record->Execute(0, value);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"five 1", "five 0", "five 1"}));
    EXPECT_EQ(CVX_KeysetData::GetLatchedControl(), kVXNoLatchedControl);
    EXPECT_EQ(CVX_ControlData::Create_VX_ControlData("Six", "_", 6), nullptr);
}

TEST_F(ControlDataTest, LatchedTransportButtonSharesTheGlobalLatch) {
    // Press latches; press unlatches and sends 0, leaving the toggle at 1; a third
    // press latches again and flips 1 to 0. A press beyond the sequence does
    // nothing and leaves the latch alone.
    CVX_ControlData* play = Button(3, true);
    std::string latched;
    for (uint32_t index : {0, 0, 0, 1}) {
        play->Execute(index, 1);
        latched += std::to_string(int32_t(CVX_KeysetData::GetLatchedControl())) + " ";
    }
    EXPECT_EQ(latched, "3 -1 3 3 ");
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"30 1", "30 0", "30 0"}));
}

TEST_F(ControlDataTest, LatchedChainRunsEachStepThroughTheRecordsOwnRule) {
    // While Play holds the latch, a latched Stop toggles without taking it, and
    // its chain re-enters the record's Execute: the second action sees the rule
    // again and gets the flipped value. The service's unlatch then releases Play
    // by executing it as a press of action 0.
    Button(3, true)->Execute(0, 1);
    Button(2, true, 2)->Execute(0, 1);
    EXPECT_EQ(CVX_KeysetData::GetLatchedControl(), 3u);
    CVX_KeysetData::UnlatchLatchedControl();
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"30 1", "20 1", "21 0", "30 0"}));
}

// A record whose editor action could not be made.
struct NoEditorRecord : CVX_ControlData {
    NoEditorRecord() : CVX_ControlData("N", "_", 1) {}
};

TEST_F(ControlDataTest, EditModeRunsTheEditorActionAndNotTheSequence) {
    CVX_ControlData* rewind = Button(0, false);
    for (int32_t value : {1, 0}) rewind->ExecuteEditMode(value);
    mData.GetKeysetAt(0)->GetChannelControlAt(160, 7)->ExecuteEditMode(255);
    mData.GetKeysetAt(0)->GetChannelControlAt(164, 2)->ExecuteEditMode(1);
    NoEditorRecord record;  // without an editor action edit mode does nothing
    record.AddAction(std::make_unique<LoggingAction>(mLog, "n"));
    record.ExecuteEditMode(1);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"event VX4X QBtn CtlN=0 CVal=1",
                                                     "event VX4X QBtn CtlN=0 CVal=0",
                                                     "event VX4X QFad CtlN=160 Chnl=7 CVal=1020",
                                                     "event VX4X QCBt CtlN=164 Chnl=2 CVal=1"}));
}

TEST_F(ControlDataTest, ChannelRecordsHoldOneActionAndLatchLocally) {
    // Special actions for a channel button log "... CVal=<value>" on every execution.
    CVX_ChannelControlData* mute = mData.GetKeysetAt(0)->GetChannelControlAt(161, 0);
    using Special = CVX_Channel_SpecialAction;
    ASSERT_TRUE(mute->AddAction(std::make_unique<Special>(0, 66, "first", 161, 0)));
    EXPECT_FALSE(mute->AddAction(std::make_unique<Special>(0, 66, "second", 161, 0)));
    EXPECT_EQ(mute->GetActionSequence()->GetCount(), 1u);
    EXPECT_EQ(mute->GetActionAt(3)->GetName(), "first");  // one action, whatever the index

    for (int32_t value : {1, 0}) mute->Execute(value);
    mute->SetControlProperties("Mute ", 161, 0, true);
    for (int32_t value : {1, 0, 1, 0, 1}) mute->Execute(value);
    std::string values;
    for (const std::string& line : mLog.Take()) values += line.back();
    EXPECT_EQ(values, "10101");

    EXPECT_EQ(CVX_ChannelControlData::Create_VX_ChannelControlData("x", 166, 0), nullptr);
}

}  // namespace
