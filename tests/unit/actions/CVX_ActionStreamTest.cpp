// Action records of the keyset stream: the 156-byte frame and each body.
#include "actions/CVX_AppSpecificAction.h"
#include "actions/CVX_DelayAction.h"
#include "actions/CVX_MouseAction.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

// Written byte by byte, big-endian: header (speed 7), body, zero filler up to
// 156 bytes, then the start of the next record, which an overshooting read
// would take.
Bytes Record(uint32_t inType, uint32_t inControl, const Bytes& inBody,
             const std::string& inName = "Act") {
    Bytes bytes = {'L', 'g', 'I', 'D'};
    for (uint32_t v : {inType, inControl}) {
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(uint8_t(v >> shift));
    }
    bytes.insert(bytes.end(), {0, 7, uint8_t(inName.size())});
    bytes.insert(bytes.end(), inName.begin(), inName.end());
    bytes.insert(bytes.end(), inBody.begin(), inBody.end());
    bytes.resize(kVXActionRecordSize + 4, 0);
    return bytes;
}

// Two skipped bytes and a long: a tick count or a code.
Bytes Code(uint32_t v) {
    return {0, 0, uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
}

// The action a record builds, if it is a T; the reader must stop at the next record.
template <class T = CVX_Action>
std::unique_ptr<T> Read(const Bytes& inBytes) {
    UStreamReader reader(inBytes);
    std::unique_ptr<CVX_Action> action = CVX_Action::CreateActionFromStream(&reader);
    EXPECT_EQ(reader.GetPos(), kVXActionRecordSize);
    if (!dynamic_cast<T*>(action.get())) return nullptr;
    return std::unique_ptr<T>(static_cast<T*>(action.release()));
}

using ActionStream = CVXPlatformTest;

TEST_F(ActionStream, HandWrittenKeyRecord) {
    // Skipped, modifiers (command, shift, control), key 122 and character 'a'.
    Bytes bytes = Record(0, 3, {0xEE, 0xEE, 0x13, 0x00, 0x7A, 0x61});
    std::unique_ptr<CVX_Action> action = Read(bytes);
    ASSERT_TRUE(action);
    EXPECT_EQ(action->GetControlNum(), 3u);
    action->Execute(nullptr, 0, 1, false);
    EXPECT_EQ(mLog.Take(),
              (Lines{"key 55 down", "key 56 down", "key 59 down", "key 122 down char 97",
                     "key 122 up char 97", "key 55 up", "key 56 up", "key 59 up"}));

    // Cut short: in the header (the failing read leaves nothing consumed), in
    // the body, and a whole body without its filler.
    UStreamReader header(bytes.data(), 13);
    EXPECT_FALSE(CVX_Action::CreateActionFromStream(&header));
    EXPECT_EQ(header.GetPos(), 12u);
    for (size_t size : {21u, 24u, 155u}) {
        UStreamReader reader(bytes.data(), size);
        EXPECT_FALSE(CVX_Action::CreateActionFromStream(&reader)) << size;
    }
}

TEST_F(ActionStream, EveryKindOccupiesExactly156BytesAndTheBuiltInFlagIsIgnored) {
    // Key and mouse actions exist only on buttons (5 counts as one), delays on
    // any control. Bank codes build no special action; any other code on a
    // button is read as 191, the only one that builds.
    const std::tuple<uint32_t, uint32_t, uint32_t, bool> cases[] = {
        {0, 0, 0, true},       {1, 0, 0, true},       {2, 0, 0, false},     {3, 0, 0, false},
        {4, 0, 0, true},       {5, 0, 0, true},       {6, 0, 0, false},     {7, 0, 0, true},
        {8, 0, 0, false},      {0x1234, 0, 0, false}, {0x8000, 0, 0, true}, {0x8005, 0, 0, true},
        {0x8002, 0, 0, false}, {0, 5, 0, true},       {0, 160, 0, false},   {1, 160, 0, false},
        {4, 160, 0, true},     {5, 0, 5, false},      {5, 0, 6, false},     {5, 0, 13, false},
        {5, 0, 14, false},     {5, 4, 7, true},       {5, 160, 7, false},   {5, 160, 191, true}};
    for (auto [type, control, code, builds] : cases) {
        SCOPED_TRACE(testing::Message() << type << " " << control << " " << code);
        std::unique_ptr<CVX_Action> action = Read(Record(type, control, Code(code)));
        // The kind the action records, or ~0 for none built.
        EXPECT_EQ(action ? uint32_t(action->GetType()) : ~0u, builds ? type & 0x7FFF : ~0u);
    }
    auto delay = Read<CVX_DelayAction>(Record(4, 160, Code(0xFFFFFFC4)));  // signed ticks
    ASSERT_TRUE(delay);
    EXPECT_EQ(delay->GetDelayInterval(), -1.0);
    EXPECT_TRUE(Read<CVX_FCP_RewindAction>(Record(6, 160, Code(4))));
    EXPECT_TRUE(Read<CVX_FCP_FFwdAction>(Record(6, 0, Code(5))));
}

TEST_F(ActionStream, MouseBodyStoresTheLongestRecordAndYBeforeX) {
    Bytes body = {0, 1, 0, 0, 7, 9, 0x02, 0x00, 0xFF, 0xF6, 0xFF, 0x38, 63};
    body.resize(body.size() + 63, 't');  // 78 + 76 = 154 bytes used
    auto mouse = Read<CVX_ButtonMouseAction>(Record(1, 4, body, std::string(63, 'n')));
    ASSERT_TRUE(mouse);
    EXPECT_EQ(mouse->GetWindowTitle(), std::string(63, 't'));
    EXPECT_EQ((std::pair{mouse->GetMouseOp(), mouse->GetCaptureOp()}),
              (std::pair<uint8_t, uint8_t>{7, 9}));
    mouse->Execute(nullptr, 0, 1, false);
    EXPECT_EQ(mLog.Take(), (Lines{"key 56 down", "mouse -200,-10 up", "mouse -200,-10 down"}));
}

}  // namespace
