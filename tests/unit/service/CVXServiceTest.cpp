#include "service/CVXService.h"

#include "model/CVX_KeysetData.h"  // and the keyset, its records and their actions
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using Lines = std::vector<std::string>;
using Record = std::vector<uint8_t>;

// Logs "<name> <value>" and lets the chain go on.
struct LoggingAction : CVX_Action {
    LoggingAction(CEventLog& inLog, const char* inName) : CVX_Action(0, 0, inName), mLog(inLog) {}
    bool ExecuteSelf(int32_t v, bool) override {
        return (mLog.Add(mName + ' ' + std::to_string(v)), true);
    }
    CEventLog& mLog;
};

class ServiceTest : public CVXPlatformTest {
  protected:
    CVX_KeysetData* Keysets() { return mService->GetKeysetData(); }
    CVX_Keyset* Default() { return Keysets()->GetKeysetAt(0); }
    // A keyset for the signature, with an action of that name on button 3.
    void AddKeyset(const char (&inSig)[5]) {
        auto keyset = std::make_unique<CVX_Keyset>(inSig, FourCC(inSig));
        keyset->SetEmulationResponder(std::make_unique<CWakeLogger>(&mLog, inSig));
        Button(keyset.get(), 3, inSig);
        Keysets()->AddKeyset(std::move(keyset));
    }
    void Button(CVX_Keyset* k, uint32_t c, const char* inName, bool inLatched = false) {
        k->GetControlAt(c, 0)->SetControlProperties("B", "_", c, inLatched);
        k->GetControlAt(c, 0)->AddAction(std::make_unique<LoggingAction>(mLog, inName));
    }
    // Sends "event chan QCBt" with the control, strip and value (times 4 for a fader).
    void Channel(uint32_t c, uint32_t ch) {
        auto action = std::make_unique<CVX_Channel_SpecialAction>(FourCC("chan"), 66, "", c, ch);
        Default()->GetChannelControlAt(c, ch)->AddAction(std::move(action));
    }
    // In a block of exactly the record's size: a read past it is caught by the
    // address sanitizer.
    void Send(const Record& inRecord) { mService->Service(inRecord.data()); }
    // Last active and inactive control, last transport value byte, last strip,
    // and whether transport control 3 is down.
    auto Status() const {
        const SVXGlobals& g = mService->GetGlobals();
        const SVXControlStatus& s = g.mControlStatus;
        return std::tuple(int(s.mLastActiveControl), int(s.mLastInactiveControl),
                          int(s.mLastSubCommand), g.mLastActiveChannel, g.mControlStatusMap[3]);
    }
    // No preferences: the default keyset alone.
    std::unique_ptr<CVXService> mService = std::make_unique<CVXService>(std::vector<uint8_t>{});
};

TEST_F(ServiceTest, TransportRecordsKeepTheStatusAndRunTheirButton) {
    Keysets()->DeleteKeysets();
    Send({3, 3, 0x3F});  // no keyset at all: only the status changes
    EXPECT_EQ(Status(), std::tuple(3, 0, 0x3F, 0u, 1u));
    Keysets()->Reinit();
    Button(Default(), 3, "play");
    Channel(160, 3);
    Channel(161, 2);
    Send({3, 3, 0x01});  // anything but 0x3F is a release, and runs with 0
    Send({3, 5, 0x3F});  // a bank button, but the bank has no record for it
    EXPECT_EQ(Status(), std::tuple(5, 3, 0x3F, 0u, 0u));
    Send({4, 160, 3, 129});  // the value byte is unsigned
    Send({4, 161, 2, 1});
    Send({4, 161, 2, 0});
    Send({4, 160, 16, 10});  // no strip 16: the status changes, nothing runs
    EXPECT_EQ(Status(), std::tuple(160, 161, 0x3F, 16u, 0u));
    EXPECT_EQ(mLog.Take(), (Lines{"play 0", "event chan QCBt CtlN=160 Chnl=3 CVal=516",
                                  "event chan QCBt CtlN=161 Chnl=2 CVal=1",
                                  "event chan QCBt CtlN=161 Chnl=2 CVal=0"}));
    mService.reset();
    EXPECT_EQ(CVXService::GetVXService(), nullptr);
}

TEST_F(ServiceTest, ShortUnknownAndPassThroughRecords) {
    // Too short for their kind (no control, nothing read past the length), and
    // kinds that are no control and no pass-through: the status stays.
    for (const Record& r : {Record{2, 160}, Record{3, 161, 0}, Record{2, 3}, Record{1}, Record{0},
                            Record{3, 6, 0x3F}, Record{4, 166, 0, 1}, Record{3, 0xFF, 0}})
        Send(r);
    EXPECT_EQ(Status(), std::tuple(2, 0, 0, 0u, 0u));
    Send({5, 167, 0xB0, 0x10, 0x7F});
    Send({2, 167});
    // A length byte above 127 reads as negative; read as 167 it would pass on
    // the block's remaining 165 bytes.
    Send(Record(167, 167));
    Send({3, 167, 0xF8});
    EXPECT_EQ(mLog.Take(), (Lines{"host B0 10 7F", "host F8"}));
}

TEST_F(ServiceTest, OtherTransportButtonsReleaseTheLatchBeforeTheirActions) {
    Button(Default(), 3, "play", true);
    Button(Default(), 2, "stop");
    Channel(161, 0);
    Send({3, 3, 0x3F});
    Send({4, 161, 0, 1});  // a channel control never releases it
    Send({3, 5, 0x3F});    // nor does bank button 5
    Send({3, 2, 0xBF});    // a release of another transport button does
    EXPECT_EQ(mLog.Take(),
              (Lines{"play 1", "event chan QCBt CtlN=161 Chnl=0 CVal=1", "play 0", "stop 0"}));
    // The latched button's own press is left to the button, which unlatches
    // once; had the service released it first, this press would latch again.
    Send({3, 3, 0x3F});
    mLog.Take();
    Send({3, 3, 0x3F});
    EXPECT_EQ(mLog.Take(), (Lines{"play 0"}));
}

TEST_F(ServiceTest, TheFrontApplicationChoosesTheKeysetOnEveryRecord) {
    AddKeyset("ABCD");
    AddKeyset("WXYZ");
    mFrontApp.mSignature = FourCC("WXYZ");
    Send({3, 3, 0x3F});
    Send({3, 3, 0x3F});        // unchanged: no second switch
    mFrontApp.mKnown = false;  // no focus information: nothing changes
    mFrontApp.mSignature = FourCC("ABCD");
    Send({3, 3, 0x3F});
    mFrontApp.mKnown = true;
    Send({3, 6, 0});  // even a dropped record checks
    EXPECT_EQ(mLog.Take(), (Lines{"wake WXYZ", "WXYZ 1", "WXYZ 1", "WXYZ 1", "wake ABCD"}));
    mFrontApp.mSignature = FourCC("QQQQ");  // no keyset of its own: the default one
    Send({2, 167});

    // Edit mode freezes the keyset (no wake) and runs the editor actions;
    // leaving it, the next record switches to the front application's keyset.
    mFrontApp.mSignature = FourCC("ABCD");
    mService->SetEditMode(true);
    Send({3, 3, 0x3F});
    Send({4, 161, 2, 1});
    EXPECT_EQ(mLog.Take(),
              (Lines{"event VX4X QBtn CtlN=3 CVal=1", "event VX4X QCBt CtlN=161 Chnl=2 CVal=1"}));
    mService->SetEditMode(false);
    Send({3, 3, 0x3F});
    EXPECT_EQ(mLog.Take(), (Lines{"wake ABCD", "ABCD 1"}));
}

}  // namespace
