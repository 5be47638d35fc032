#include "model/CVX_KeysetData.h"

#include <gtest/gtest.h>

#include "model/UVX_ControlClass.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

// The global latch as "control keyset bank", -1 standing for none.
std::string Latch() {
    return std::to_string(int32_t(CVX_KeysetData::GetLatchedControl())) + " " +
           std::to_string(int32_t(CVX_KeysetData::GetLatchedControlKeyset())) + " " +
           std::to_string(int32_t(CVX_KeysetData::GetLatchedControlBank()));
}

class KeysetDataTest : public CVXPlatformTest {
  protected:
    void Add(const char* inName, const char (&inSig)[5]) {
        mData->AddKeyset(std::make_unique<CVX_Keyset>(inName, FourCC(inSig)));
    }
    std::unique_ptr<CVX_KeysetData> mData = std::make_unique<CVX_KeysetData>();
};
class KeysetDataLifetime : public KeysetDataTest {};

TEST_F(KeysetDataTest, AFreshSetHoldsTheDefaultKeysetWithEveryControl) {
    CVX_Keyset* k = mData->GetKeysetAt(0);
    EXPECT_EQ(k->GetName() + " " + FourCCText(k->GetSignature()), "Default ????");
    for (uint32_t n = 0; n < 5; ++n) {
        CVX_ControlData* c = k->GetControlAt(n, 0);
        ASSERT_TRUE(c && c->GetControlName() == kControlNames[n] && c->GetAssignedName() == "_");
    }
    for (uint32_t i = 0; i < 16 * 6; ++i) {
        CVX_ChannelControlData* c = k->GetChannelControlAt(160 + i % 6, i / 6);
        ASSERT_TRUE(c && c->GetControlType() == 160 + i % 6 && c->GetChannel() == i / 6 &&
                    c->GetControlName() == kChannelControlNames[i % 6]);
    }
    // IsButton(5) holds, yet the bank has five slots; there is one bank only.
    EXPECT_FALSE(k->GetControlAt(5, 0) || k->GetControlAt(0, 1) || k->GetChannelControlAt(166, 0) ||
                 k->GetChannelControlAt(159, 0) || k->GetChannelControlAt(160, 16));
    k->SetCurrentBank(1);
    EXPECT_EQ(k->GetCurrentBank(), 0u);
}

TEST_F(KeysetDataTest, SelectionBySignatureNeverComparesTheFallBack) {
    Add("A", "ABCD");
    Add("B", "WXYZ");
    Add("A'", "ABCD");
    EXPECT_EQ(mData->FindKeysetIndexForSig(FourCC("ABCD")), 1u);  // first match wins
    EXPECT_EQ(mData->FindKeysetIndexForSig(FourCC("none")), 0u);
    // Even a later keyset carrying the fall-back's own signature can be found.
    Add("Q", "????");
    EXPECT_EQ(mData->FindKeysetIndexForSig(FourCC("????")), 4u);
}

TEST_F(KeysetDataTest, SetCurrentKeysetOutOfRangeKeepsTheIndexAndStillWakes) {
    Add("A", "AAAA");
    Add("B", "BBBB");
    mData->GetKeysetAt(1)->SetEmulationResponder(std::make_unique<CWakeLogger>(&mLog));
    mData->SetCurrentKeyset(1);
    mData->SetCurrentKeyset(7);
    EXPECT_EQ(mData->GetCurrentKeysetIndex(), 1u);
    mData->SetCurrentKeyset(2);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"wake", "wake"}));
}

TEST_F(KeysetDataTest, DeletingLeavesTheCurrentIndexWhereItWas) {
    Add("A", "AAAA");
    Add("B", "BBBB");
    mData->SetCurrentKeyset(2);
    EXPECT_FALSE(mData->DeleteKeysetAt(3));
    ASSERT_TRUE(mData->DeleteKeysetAt(2));
    EXPECT_EQ(mData->GetCurrentKeysetIndex(), 2u);
    EXPECT_EQ(CVX_KeysetData::GetCurrentMIDIUnmapper(), nullptr);

    ASSERT_TRUE(mData->Reinit());  // drops both remaining keysets for a new default
    EXPECT_EQ(mData->GetKeysetAt(0)->GetName(), "Default");
    EXPECT_TRUE(mData->GetNumKeysets() == 1 && mData->GetCurrentKeysetIndex() == 0);
    // Emptied, with no keyset left dangling as the one under construction.
    EXPECT_TRUE(mData->DeleteKeysets() == 0 && !CVX_Keyset::GetKeysetUnderConstruction());
}

TEST_F(KeysetDataTest, UnlatchWithoutALatchOrWithItsKeysetGone) {
    Add("A", "AAAA");
    mData->SetCurrentKeyset(1);
    mData->DeleteKeysetAt(1);
    // With no keyset at the current index only the keyset of the latch moves.
    CVX_KeysetData::LatchControl(2);
    CVX_KeysetData::UnlatchLatchedControl();
    EXPECT_EQ(Latch(), "-1 1 -1");
    Add("B", "BBBB");
    CVX_KeysetData::LatchControl(3);
    mData->DeleteKeysetAt(1);
    CVX_KeysetData::UnlatchLatchedControl();  // released although its keyset is gone
    EXPECT_EQ(Latch(), "-1 1 0");
}

TEST_F(KeysetDataLifetime, ANewSetStartsWithoutTheLatchOrTheOldStatics) {
    CVX_KeysetData::LatchControl(4);
    EXPECT_EQ(Latch(), "4 0 0");
    mData.reset();
    // No set, and no master timer, running or registered, is left behind.
    EXPECT_TRUE(!CVX_KeysetData::GetKeysetData() && !CVX_MasterTimer::GetMasterTimer() &&
                mLoop.PendingTimers() == 0);
    mData = std::make_unique<CVX_KeysetData>();
    EXPECT_EQ(Latch(), "-1 -1 -1");
}

}  // namespace
