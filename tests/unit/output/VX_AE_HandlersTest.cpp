// The editor's commands on plain values, where the bus tests do not reach:
// the strip-count checks before and after the device's status, the integer
// types standing for each other, and the rules bounded where the literal
// reading would leave its buffers (a raw write, an upload's declared size, a
// query about a keyset that is gone). Every command through the bus is tested
// in integration/CVXBusObjectTest.cpp.
#include "output/VX_AE_Handlers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "platform/VXDiagnostics.h"
#include "service/CVXService.h"
#include "support/EditorParams.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kDeviceStatus[7] = {1, 16, 2, 0, 0, 0, 0};

// The four-character code of a C string (the tables below hold pointers).
uint32_t Code(const char* inText) {
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i) code = (code << 8) | static_cast<uint8_t>(inText[i]);
    return code;
}

// One keyset record, "Mixer" ('MIX1'), with empty strips.
Bytes KeysetRecord() {
    CVXKeysetStreamWriter w;
    w.KeysetHeader("Mixer", VXTag("MIX1")).EmptyStrips();
    return w.Take();
}

class AEHandlersTest : public CVXPlatformTest {
  protected:
    AEHandlersTest() {
        mFrontApp.mSignature = VXTag("DAW1");
        mHandlers.Install();
    }

    int32_t Handle(const char* inEventID, VXAEParams inParams = {},
                   VXAEParams* outReply = nullptr) {
        return VX_AE_Handlers::HandleEvent(Code(inEventID), inParams, outReply);
    }
    void HaveStatus() { mHandlers.UpdateStatus(kDeviceStatus); }
    CVX_KeysetData& Keysets() { return *mService.GetKeysetData(); }
    void Touch() {
        const uint8_t record[] = {4, kVXChannelTouchSense, 2, 1};
        mService.Service(record);
    }

    CVXService mService{MIDIKeysets()};
    VX_AE_Handlers mHandlers{&mDevice};
};

TEST_F(AEHandlersTest, FadersAndChannelLEDsAreCheckedAgainstTheStripCountOfTheStatus) {
    struct SCase {
        bool status;
        const char* id;
        VXAEParams params;
        Lines device;
    };
    const SCase cases[] = {
        {true, "QSFd", {Magn("Chnl", 3), Long("CVal", 1020)}, {"device B3 07 7F 27 40"}},
        {true, "QSFd", {Magn("Chnl", 3), Long("CVal", 1023)}, {"device B3 07 7F 27 40"}},
        {true, "QSFd", {Magn("Chnl", 16), Long("CVal", 1020)}, {}},
        // Before the status the placeholder of 32 strips is the limit.
        {false, "QSFd", {Magn("Chnl", 16), Long("CVal", 1020)}, {"device C0 07 7F 27 40"}},
        {false, "QSFd", {Magn("Chnl", 32), Long("CVal", 1020)}, {}},
        {true, "QSCL", {Magn("CtlN", 0xA1), Magn("Chnl", 0), Long("CVal", 1)}, {"device B0 46 7F"}},
        {true,
         "QSCL",
         {Magn("CtlN", 0xA4), Magn("Chnl", 15), Long("CVal", 0)},
         {"device BF 49 00"}},
        {true,
         "QSCL",
         {Magn("CtlN", 0x1A2), Magn("Chnl", 2), Long("CVal", -1)},
         {"device B2 47 7F"}},
        {true, "QSCL", {Magn("CtlN", 0xA5), Magn("Chnl", 2), Long("CVal", 1)}, {}},
        {true, "QSCL", {Magn("CtlN", 0xA1), Magn("Chnl", 16), Long("CVal", 1)}, {}},
        {false,
         "QSCL",
         {Magn("CtlN", 0xA1), Magn("Chnl", 31), Long("CVal", 1)},
         {"device CF 46 7F"}},
        // Transport buttons have no LED: accepted, nothing written.
        {true, "QStL", {Magn("CtlN", 3), Long("CVal", 1)}, {}},
        // The integer types stand for each other where the value fits.
        {true, "QSFd", {Long("Chnl", 3), Magn("CVal", 1020)}, {"device B3 07 7F 27 40"}},
        {true, "QSFd", {Long("Chnl", -1), Long("CVal", 1020)}, {}},
        {true, "QSFd", {Magn("Chnl", 3), Magn("CVal", 0x80000000u)}, {}},
        {true, "QSFd", {Magn("Chnl", 3), Text("CVal", {0, 0, 3, 0xFC})}, {}},
    };
    for (const SCase& c : cases) {
        VX_AE_Handlers handlers(&mDevice);
        handlers.Install();
        if (c.status) handlers.UpdateStatus(kDeviceStatus);
        EXPECT_EQ(Handle(c.id, c.params), 0);
        EXPECT_EQ(mLog.Take(), c.device) << c.id << " case " << (&c - cases);
    }
}

TEST_F(AEHandlersTest, RawWritesGoAsTheyAreUpToTheBufferSize) {
    EXPECT_EQ(Handle("QWrH", {Text("QRaw", {})}), 0);
    EXPECT_EQ(mLog.Take(), Lines{});
    EXPECT_EQ(Handle("QWrH", {Text("QRaw", {0xF0, 0x15, 0x26, 0x01, 0xF7})}), 0);
    EXPECT_EQ(mLog.Take(), Lines{"device F0 15 26 01 F7"});

    // Longer than the buffer: clamped to it, not refused.
    struct CCounting : CVXDeviceWriter {
        int WriteAsync(const uint8_t*, size_t inSize) override {
            sizes.push_back(inSize);
            return 0;
        }
        std::vector<size_t> sizes;
    } counting;
    VX_AE_Handlers handlers(&counting);
    handlers.Install();
    Handle("QWrH", {Text("QRaw", Bytes(1500, 0x40))});
    Handle("QWrH", {Text("QRaw", Bytes(1024, 0x40))});
    EXPECT_EQ(counting.sizes, (std::vector<size_t>{1024, 1024}));
}

TEST_F(AEHandlersTest, SelectionQueriesStopWhereTheCurrentKeysetIsGone) {
    HaveStatus();
    Touch();  // in front of 'DAW1': keyset 1, Touch Sense, channel 2
    VXAEParams before, after;
    Handle("QGCC", {}, &before);
    EXPECT_EQ(before, (VXAEParams{Magn("QKyN", 1), Magn("CtlN", 165), Magn("Chnl", 2)}));
    // Deleted under it, the current index stands past the last keyset: the
    // index alone, nothing read from a keyset that is not there.
    ASSERT_TRUE(Keysets().DeleteKeysetAt(1));
    Handle("QGCC", {}, &after);
    EXPECT_EQ(after, (VXAEParams{Magn("QKyN", 1)}));
}

TEST_F(AEHandlersTest, UploadsReadTheDeclaredSizeOfWhatIsThere) {
    const Bytes keyset = KeysetRecord();
    const uint32_t before = Keysets().GetNumKeysets();
    const uint32_t size = static_cast<uint32_t>(keyset.size());

    // Declared size and data agree; the size is larger than the data (only
    // what is there is read, and it is whole); the size is short of it.
    Handle("QAdK", {Magn("QDSz", size), Text("QKys", keyset)});
    Handle("QAdK", {Magn("QDSz", 0xFFFFFFFF), Text("QKys", keyset)});
    CVXDiagnosticCapture diagnostics;
    Handle("QAdK", {Magn("QDSz", size - 1), Text("QKys", keyset)});
    EXPECT_NE(diagnostics.Take().find("NewKeysetFromStream() couldn't update theKeyset"),
              std::string::npos);
    ASSERT_EQ(Keysets().GetNumKeysets(), before + 2);
    EXPECT_EQ(Keysets().GetKeysetAt(before)->GetSignature(), VXTag("MIX1"));
}

}  // namespace
