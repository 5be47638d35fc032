#include "actions/CVX_Channel_Action.h"

#include <gtest/gtest.h>

#include <tuple>

#include "model/CVX_Keyset.h"
#include "model/UStreamWriter.h"
#include "platform/VXDiagnostics.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A channel action record: the common header (speed 3, name "Pan"), then `inBody`.
Bytes ChannelRecord(uint32_t inType, const Bytes& inBody) {
    UStreamWriter w;
    w.PutBytes("ChCmCmIDlgcyCTyp", 16);
    w.PutLong(inType);
    w.PutBytes("Sped\0\3St63\3Pan", 14);
    w.PutBytes(inBody.data(), inBody.size());
    return w.Take();
}

// Bodies of a special action and an application-specific action (type 9): the
// special action's type is read and not used.
const Bytes kSpecialBody = {'S', 'p', 'c', 'D', 'C', 'T', 'y', 'p', 0, 0, 0, 7};
const Bytes kAppBody = {'A', 'p', 'p', 'D', 'C', 'T', 'y', 'p', 0, 0, 0, 9};

class ChannelActionTest : public CVXPlatformTest {
  protected:
    // Reads one record for channel 4 of `inControl`, keeping what it printed.
    std::unique_ptr<CVX_Channel_Action> Read(const Bytes& inBytes, uint32_t inControl) {
        UStreamReader reader(inBytes.data(), inBytes.size());
        CVXDiagnosticCapture printed;
        auto action = CVX_Channel_Action::CreateChannelActionFromStream(&reader, 4, inControl);
        mPrinted = printed.Take();
        return action;
    }
    std::string mPrinted;
};

TEST_F(ChannelActionTest, FaderMovesAreRateLimitedButtonsAreNot) {
    // {microseconds since the last move, position}: sent, dropped after 10 ms,
    // dropped 33 ms after the first (under 1/30 s), sent after 40 ms.
    CVX_Channel_SpecialAction fader(FourCC("APPL"), 65, "f", 160, 3);
    const std::pair<uint64_t, int32_t> moves[] = {{0, 255}, {10000, 10}, {23000, 11}, {7000, 12}};
    for (auto [micros, position] : moves) {
        mLoop.AdvanceBy(micros);
        fader.Execute(nullptr, position);
    }
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"event APPL QFad CtlN=160 Chnl=3 CVal=1020",
                                                     "event APPL QFad CtlN=160 Chnl=3 CVal=48"}));

    // Buttons send every change and never count as executed; other types send nothing.
    CVX_Channel_SpecialAction button(FourCC("APPL"), 66, "b", 162, 0);
    for (int32_t v : {1, 0, 1}) EXPECT_FALSE(button.Execute(nullptr, v));
    CVX_Channel_SpecialAction(FourCC("APPL"), 67, "o", 162, 0).Execute(nullptr, 1);
    EXPECT_EQ(mLog.Take().size(), 3u);
}

TEST_F(ChannelActionTest, SpecialRecordsTakeTheirKindFromTheControl) {
    // The signature is the keyset's under construction; 0x8005 is 5 with the
    // built-in flag.
    CVX_Keyset host("Host", FourCC("HOST"));
    auto fader = Read(ChannelRecord(5, kSpecialBody), 160);
    auto button = Read(ChannelRecord(0x8005, kSpecialBody), 165);
    ASSERT_TRUE(fader && button);
    EXPECT_EQ(fader->GetName(), "Pan");
    for (auto* action : {fader.get(), button.get()}) action->Execute(nullptr, 1);
    EXPECT_EQ(mLog.Take(), (std::vector<std::string>{"event HOST QFad CtlN=160 Chnl=4 CVal=4",
                                                     "event HOST QCBt CtlN=165 Chnl=4 CVal=1"}));
}

TEST_F(ChannelActionTest, HeaderAndBodyFailuresPrintTheirMessages) {
    const std::string outer = "CVX_Channel_Action::CreateChannelActionFromStream  ";
    const std::string failed = outer + "failed\n";
    const Bytes record = ChannelRecord(5, kSpecialBody), app = ChannelRecord(6, kAppBody);
    // Cut in the id, the type, no "ChCm" tag, cut in the special body, a special
    // action on no channel control, no channel key action, cut in an AppD body.
    const std::tuple<Bytes, uint32_t, std::string> cases[] = {
        {Bytes(record.begin(), record.begin() + 10), 160, outer + "couldn't get id\n" + failed},
        {Bytes(record.begin(), record.begin() + 18), 160, outer + "couldn't get type\n" + failed},
        {Bytes(record.begin() + 1, record.end()), 160, failed},
        {Bytes(record.begin(), record.end() - 2), 160,
         "CVX_Channel_SpecialAction::CreateChannelSpecialActionFromStream couldn't get type\n" +
             failed},
        {record, 170, failed},
        {ChannelRecord(0, {}), 160, failed},
        {Bytes(app.begin(), app.end() - 1), 160, failed}};
    for (const auto& [bytes, control, printed] : cases) {
        EXPECT_EQ(Read(bytes, control), nullptr) << bytes.size();
        EXPECT_EQ(mPrinted, printed) << bytes.size();
    }
}

TEST_F(ChannelActionTest, AppSpecificPlaceholderConsumesMoves) {
    auto action = Read(ChannelRecord(6, kAppBody), 160);
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(static_cast<CVX_Channel_AppSpecificAction*>(action.get())->GetActionType(), 9u);
    EXPECT_TRUE(action->Execute(nullptr, 100));
    EXPECT_EQ(action->GetLastExecute(), mLoop.Now());
}

}  // namespace
