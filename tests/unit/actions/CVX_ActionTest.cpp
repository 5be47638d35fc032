// Button actions on virtual time: the chain through a sequence, the master
// timer's pass and key repeat, and what each kind posts, sends or resumes.
#include "actions/CVX_AppSpecificAction.h"
#include "actions/CVX_DelayAction.h"
#include "actions/CVX_KeyAction.h"
#include "actions/CVX_MouseAction.h"
#include "actions/CVX_SpecialAction.h"
#include "model/CVX_KeysetData.h"
#include "support/PlatformFakes.h"

namespace {

using Lines = std::vector<std::string>;

// Logs its repeats; repeats on every tick once pressed, and never leaves the
// timer at its release (the entry then goes at its next tick).
class CProbeAction : public CVX_Action {
  public:
    CProbeAction(CEventLog& inLog, const char* inName) : CVX_Action(0, 0, inName), mLog(inLog) {}
    bool ExecuteSelf(int32_t inValue, bool) override {
        if (inValue != 0) SchedualRepeat(0, 0);
        return true;
    }
    void RepeatSelf() override { mLog.Add("repeat " + mName); }
    CEventLog& mLog;
};

// A record that logs every step of the chain before running it.
class CLoggingRecord : public CVX_ControlData {
  public:
    explicit CLoggingRecord(CEventLog& inLog) : CVX_ControlData("Rec", "_", 0), mLog(inLog) {}
    void Execute(uint32_t inIndex, int32_t inValue) override {
        mLog.Add("run " + std::to_string(inIndex) + " " + std::to_string(inValue));
        CVX_ControlData::Execute(inIndex, inValue);
    }
    CEventLog& mLog;
};

// The keyset set starts the master timer and owns the latch.
class ActionRepeat : public CVXPlatformTest {
  protected:
    void Press(CVX_Action& a, int32_t v) { a.Execute(nullptr, 0, v, false); }
    CVX_KeysetData mData;  // its master timer runs on the virtual loop
    CVX_MasterTimer& mTimer = mData.GetMasterTimer();
};
using ButtonActions = ActionRepeat;
using Shuttle = ActionRepeat;

TEST_F(ActionRepeat, HeldKeyRepeatsOnThe30thTickThenEvery15thUntilReleased) {
    // Command and shift go down before the key and up after it, in the same
    // order; a bit beyond the five modifiers posts nothing.
    const Lines tap = {"key 55 down",        "key 56 down", "key 122 down char 97",
                       "key 122 up char 97", "key 55 up",   "key 56 up"};
    CVX_ButtonKeyAction key(0, 0, "k", 0x2300, 122, 97);
    Press(key, 1);  // on a tick boundary: the timer started at this very time
    EXPECT_EQ(mLog.Take(), tap);
    std::vector<int> ticks;  // negative: something else was posted
    for (int tick = 1; tick <= 70; ++tick) {
        mLoop.AdvanceTicks(1);
        if (Lines lines = mLog.Take(); !lines.empty()) ticks.push_back(lines == tap ? tick : -tick);
    }
    EXPECT_EQ(ticks, (std::vector<int>{30, 45, 60}));
    Press(key, 0);  // posts nothing and leaves the timer at once
    EXPECT_TRUE(mTimer.Clients().empty());
    EXPECT_TRUE(mLog.Take().empty());
}

TEST_F(ActionRepeat, SecondPressSchedulesTwiceAndTheSecondEntryLeavesOnItsNextTick) {
    CVX_ButtonKeyAction key(0, 0, "k", 0, 122, 97);
    auto doomed = std::make_unique<CProbeAction>(mLog, "d");
    for (CVX_Action* action : std::vector<CVX_Action*>{&key, doomed.get(), &key, doomed.get()})
        Press(*action, 1);
    doomed.reset();  // a destroyed action takes every entry of its own along
    EXPECT_EQ(mTimer.Clients(), (std::vector<CVX_Action*>{&key, &key}));
    Press(key, 0);  // takes out the first entry only
    EXPECT_EQ(mTimer.Clients().size(), 1u);
    mLoop.AdvanceTicks(1);
    EXPECT_TRUE(mTimer.Clients().empty());
}

TEST_F(ActionRepeat, ClientLeavingDuringATickSkipsTheNextOneAndLockedTicksAreSkipped) {
    CProbeAction a(mLog, "a"), b(mLog, "b"), c(mLog, "c");
    for (CProbeAction* probe : {&a, &b, &c}) Press(*probe, 1);
    Press(a, 0);  // released without leaving: its entry goes at its next tick
    mLoop.AdvanceTicks(1);
    // b moved into a's place after the pass had visited it; the pass counted
    // three clients but must not visit c twice through the stale end.
    EXPECT_EQ(mLog.Take(), (Lines{"repeat c"}));
    mLoop.AdvanceTicks(1);
    EXPECT_EQ(mLog.Take(), (Lines{"repeat b", "repeat c"}));
    mTimer.Lock(true);
    mLoop.AdvanceTicks(1);
    EXPECT_TRUE(mLog.Take().empty());
}

TEST_F(ActionRepeat, IdleTimerIsUnarmedAndComesBackOnItsGrid) {
    constexpr uint64_t kHalf = kVXTickMicros / 2;
    mLoop.AdvanceBy(10 * kVXTickMicros + kHalf);
    EXPECT_EQ(mLoop.PendingTimers(), 0u);  // nothing to tick for
    CProbeAction probe(mLog, "p");
    Press(probe, 1);  // between grid points: the next one is half a tick away
    mLoop.AdvanceBy(kVXTickMicros - kHalf - 1);
    EXPECT_TRUE(mLog.Take().empty());
    mLoop.AdvanceBy(1);
    EXPECT_EQ(mLog.Take(), (Lines{"repeat p"}));
    Press(probe, 0);  // its entry goes at the next tick, and the timer with it
    mLoop.AdvanceTicks(1);
    EXPECT_TRUE(mTimer.Clients().empty());
    EXPECT_EQ(mLoop.PendingTimers(), 0u);
    Press(probe, 1);  // on a grid point: the next one is a whole tick away
    mLoop.AdvanceBy(kVXTickMicros - 1);
    EXPECT_TRUE(mLog.Take().empty());
    mLoop.AdvanceBy(1);
    EXPECT_EQ(mLog.Take(), (Lines{"repeat p"}));
}

TEST_F(ActionRepeat, TimerStopsAndOnlyTheCurrentOneIsReachable) {
    auto second = std::make_unique<CVX_MasterTimer>();
    auto third = std::make_unique<CVX_MasterTimer>();
    second.reset();  // no longer the current one: sSelf stays with the third
    EXPECT_EQ(CVX_MasterTimer::GetMasterTimer(), third.get());
    third.reset();
    EXPECT_EQ(CVX_MasterTimer::GetMasterTimer(), nullptr);
    CProbeAction probe(mLog, "p");
    Press(probe, 1);  // no timer: the repeat is dropped, nothing dereferenced
    mTimer.Stop();
    EXPECT_EQ(mLoop.PendingTimers(), 0u);
}

TEST_F(ButtonActions, MouseHoldsTheButtonAndModifiersWhileTheSequenceGoesOn) {
    CLoggingRecord record(mLog);
    record.AddAction(std::make_unique<CVX_ButtonMouseAction>(0, 0, "m", true, true, 3, 4, 0x0A00,
                                                             200, 100, "Window"));
    record.Execute(0, 1);
    EXPECT_EQ(mLog.Take(), (Lines{"run 0 1", "key 56 down", "key 58 down", "mouse 200,100 up",
                                  "mouse 200,100 down", "run 1 1"}));
    record.Execute(0, 0);
    EXPECT_EQ(mLog.Take(),
              (Lines{"run 0 0", "mouse 200,100 up", "key 56 up", "key 58 up", "run 1 0"}));
    // A release without a press lets go at 0,0.
    CVX_ButtonMouseAction(0, 0, "m", false, false, 0, 0, 0, -5, -7, "").ExecuteSelf(0, false);
    EXPECT_EQ(mLog.Take(), (Lines{"mouse 0,0 up"}));
}

TEST_F(ButtonActions, DelayResumesTheSequenceThroughTheLoopOnly) {
    CLoggingRecord record(mLog), other(mLog);
    CVX_DelayAction delay(0, 0, "d", 30 / 60.0), zero(0, 0, "z", 0);
    delay.Execute(&record, 0, 1, false);
    mLoop.AdvanceBy(200000);
    delay.Execute(&other, 3, 9, false);   // overwrites the press info: both resume with it
    delay.Execute(&record, 0, 0, false);  // the release pauses on its own
    zero.Execute(&record, 6, 2, false);
    EXPECT_TRUE(mLog.Take().empty());  // never within Execute, even for no pause
    mLoop.AdvanceBy(299999);
    EXPECT_EQ(mLog.Take(), (Lines{"run 7 2"}));
    mLoop.AdvanceBy(1);  // 0.5 s after the first press
    EXPECT_EQ(mLog.Take(), (Lines{"run 4 9"}));
    mLoop.AdvanceBy(200000);
    EXPECT_EQ(mLog.Take(), (Lines{"run 4 9", "run 1 0"}));
    EXPECT_EQ(delay.PendingTimerCount(), 0u);
}

TEST_F(ButtonActions, DelayDestroyedDuringItsPauseCancelsItsTimers) {
    CLoggingRecord record(mLog);
    {
        CVX_DelayAction delay(0, 0, "d", 1.0);
        delay.Execute(&record, 0, 1, false);
        delay.Execute(&record, 0, 0, false);
    }
    EXPECT_EQ(mLoop.PendingTimers(), 0u);
}

TEST_F(ButtonActions, ButtonSpecialNotifiesOnPressAndReleaseAndEndsTheSequence) {
    CLoggingRecord record(mLog);
    {
        CVX_Keyset keyset("App", FourCC("ABCD"));  // the keyset under construction
        record.AddAction(CVX_SpecialAction::Create_VX_SpecialAction(191, 3, 0, "s"));
    }
    record.Execute(0, 1);
    record.Execute(0, 0);
    EXPECT_EQ(mLog.Take(), (Lines{"run 0 1", "event ABCD QBtn CtlN=3 CVal=1", "run 0 0",
                                  "event ABCD QBtn CtlN=3 CVal=0"}));
    EXPECT_EQ(CVX_SpecialAction::Create_VX_SpecialAction(191, 3, 0, "s")->GetAppSignature(), 0u);
}

TEST_F(ButtonActions, BankActionTakesItsBankFromTheCodeAndEndsTheSequence) {
    const std::pair<uint32_t, uint32_t> codeToBank[] = {{5, 1}, {6, 2}, {13, 0}, {14, 3}, {191, 0}};
    for (auto [code, bank] : codeToBank)
        EXPECT_EQ(CVX_BankSpecialAction(0, code, 0, 0, "").GetBank(), bank);
    EXPECT_FALSE(CVX_BankSpecialAction(0, 5, 0, 0, "b").ExecuteSelf(1, false));
}

TEST_F(Shuttle, SpeedSelectsTheShuttleKeyAndTheSecondPressStops) {
    // Rewind's step is capped at 1: only the first two of its keys are used.
    const std::pair<uint16_t, uint16_t> rewind[] = {{0, 96}, {63, 96}, {64, 118}, {128, 118}};
    const std::pair<uint16_t, uint16_t> ffwd[] = {{25, 100}, {26, 101},  {51, 101},   {52, 109},
                                                  {78, 103}, {104, 111}, {65535, 111}};
    for (auto [speed, key] : rewind)
        EXPECT_EQ(CVX_FCP_RewindAction(0, speed, "r").ShuttleKey(), key);
    for (auto [speed, key] : ffwd) EXPECT_EQ(CVX_FCP_FFwdAction(0, speed, "f").ShuttleKey(), key);
}

TEST_F(Shuttle, LatchedShuttleIgnoresTheOthersUntilItIsReleased) {
    CVX_FCP_RewindAction rewind(0, 64, "r");
    CVX_FCP_FFwdAction ffwd(1, 0, "f");
    EXPECT_FALSE(rewind.ExecuteSelf(1, false));
    ffwd.ExecuteSelf(1, false);    // another control is latched: ignored
    rewind.ExecuteSelf(0, false);  // releases are ignored
    EXPECT_EQ(mLog.Take(), (Lines{"key 59 down", "key 118 down char 16"}));
    EXPECT_EQ(CVX_KeysetData::GetLatchedControl(), 0u);
    rewind.ExecuteSelf(1, false);
    EXPECT_EQ(mLog.Take(), (Lines{"key 118 up char 16", "key 59 up", "key 40 down char 107",
                                  "key 40 up char 107"}));
    ffwd.ExecuteSelf(1, false);
    EXPECT_EQ(mLog.Take(), (Lines{"key 59 down", "key 100 down char 16"}));
    EXPECT_EQ(CVX_KeysetData::GetLatchedControl(), 1u);
}

}  // namespace
