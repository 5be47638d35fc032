// The editor's seventeen commands on plain values: what each writes to the
// surface, changes in the keysets or answers, before and after the device's
// status, and what a command with missing or malformed parameters does.
#include "output/VX_AE_Handlers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "platform/VXDiagnostics.h"
#include "service/CVXService.h"
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

SVXAEParam Magn(const char (&inKeyword)[5], uint32_t inValue) {
    return {VXTag(inKeyword), inValue};
}
SVXAEParam Long(const char (&inKeyword)[5], int32_t inValue) {
    return {VXTag(inKeyword), inValue};
}
SVXAEParam Text(const char (&inKeyword)[5], Bytes inValue) {
    return {VXTag(inKeyword), std::move(inValue)};
}

// One keyset record, "Mixer" ('MIX1'), with empty strips.
Bytes KeysetRecord(const char* inName = "Mixer", uint32_t inSignature = VXTag("MIX1")) {
    CVXKeysetStreamWriter w;
    w.KeysetHeader(inName, inSignature).EmptyStrips();
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
    Lines Touch() {
        mLoop.AdvanceBy(100000);  // past the channel actions' rate limit
        const uint8_t record[] = {4, kVXChannelTouchSense, 2, 1};
        mService.Service(record);
        return mLog.Take();
    }

    CVXService mService{MIDIKeysets()};
    VX_AE_Handlers mHandlers{&mDevice};
};

TEST_F(AEHandlersTest, EveryIDOfTheTableIsInstalledAtItsIndexAndNoOtherIs) {
    const char* ids[] = {"QWrH", "QStL", "QSCL", "QSFd", "Stus", "QEdM", "QAdK", "QUpK", "QDlK",
                         "QUpC", "QUCC", "QInK", "QGCr", "QStK", "QStB", "QDTS", "QGCC"};
    for (long i = 1; i <= 17; ++i) {
        const char* id = ids[i - 1];
        EXPECT_EQ(VX_AE_Handlers::IndexForEvent(Code(id)), i) << id;
    }
    EXPECT_EQ(Handle("QXYZ"), VX_AE_Handlers::kErrAEEventNotHandled);
    EXPECT_EQ(VX_AE_Handlers::HandleEvent(0, {}, nullptr), VX_AE_Handlers::kErrAEEventNotHandled);
    EXPECT_EQ(VX_AE_Handlers::AEHandlerEntry({}, nullptr, 0),
              VX_AE_Handlers::kErrAEEventNotHandled);
    EXPECT_EQ(VX_AE_Handlers::AEHandlerEntry({}, nullptr, 18),
              VX_AE_Handlers::kErrAEEventNotHandled);
    EXPECT_EQ(Handle("QInK"), 0);

    VX_AE_Handlers uninstalled(&mDevice);  // the newest instance answers, and it is not installed
    EXPECT_EQ(Handle("QInK"), VX_AE_Handlers::kErrAEEventNotHandled);
}

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
        {true, "QSFd", {Magn("Chnl", 0), Long("CVal", 516)}, {"device B0 07 40 27 40"}},
        {true, "QSFd", {Magn("Chnl", 15), Long("CVal", 0)}, {"device BF 07 00 27 00"}},
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

TEST_F(AEHandlersTest, QueriesAnswerOnlyOnceTheDeviceHasReportedItsStatus) {
    for (const char* id : {"Stus", "QGCr", "QGCC"}) {
        VXAEParams reply;
        EXPECT_EQ(Handle(id, {}, &reply), 0);
        EXPECT_TRUE(reply.empty()) << id;
    }
    HaveStatus();
    // A touch on strip 2 in front of 'DAW1' makes keyset 1, Touch Sense and
    // channel 2 current.
    Touch();
    VXAEParams status, selection, channel;
    Handle("Stus", {}, &status);
    Handle("QGCr", {}, &selection);
    Handle("QGCC", {}, &channel);
    EXPECT_EQ(status, (VXAEParams{Text("StDt", {0, 0, 0, 1, 0, 0, 0, 16, 0, 0, 0, 2, 0, 0,
                                                0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0})}));
    EXPECT_EQ(selection, (VXAEParams{Magn("QKyN", 1), Magn("QBkN", 0), Magn("CtlN", 165)}));
    EXPECT_EQ(channel, (VXAEParams{Magn("QKyN", 1), Magn("CtlN", 165), Magn("Chnl", 2)}));

    // The current index past the last keyset (deleted under it): the index
    // alone, nothing read from a keyset that is not there.
    ASSERT_TRUE(Keysets().DeleteKeysetAt(1));
    VXAEParams after;
    Handle("QGCC", {}, &after);
    EXPECT_EQ(after, (VXAEParams{Magn("QKyN", 1)}));
}

TEST_F(AEHandlersTest, EveryCommandWithoutItsParametersSucceedsAndChangesNothing) {
    HaveStatus();
    const uint32_t keysets = Keysets().GetNumKeysets();
    // Missing, then each present under a type it cannot be read as.
    const VXAEParams malformed[] = {
        {},
        {Text("CtlN", {1}), Text("Chnl", {1}), Text("CVal", {1}), Text("QEdM", {1}),
         Text("QDSz", {1}), Text("QKys", {0, 0, 0, 0}), Text("QTSt", {1}), Magn("QRaw", 1)},
        {Long("Chnl", -1), Magn("CVal", 0x80000000u), Long("QEdM", -1), Magn("QDSz", 8),
         Long("QKys", -1), Magn("QCtD", 8), Long("QTSt", -1)},
    };
    for (size_t i = 1; i < VX_AE_Handlers::kNumHandlers; ++i) {
        for (const VXAEParams& params : malformed) {
            EXPECT_EQ(
                VX_AE_Handlers::HandleEvent(VX_AE_Handlers::kHandlerDescTypes[i], params, nullptr),
                0)
                << i;
        }
    }
    EXPECT_EQ(mLog.Take(), Lines{});
    EXPECT_EQ(Keysets().GetNumKeysets(), keysets);
    EXPECT_FALSE(mService.IsEditMode());
    EXPECT_FALSE(Keysets().IsTouchSenseMIDIDisabled());
}

TEST_F(AEHandlersTest, EditModeAndTouchSenseMIDISwitchOnAndOff) {
    Handle("QEdM", {Magn("QEdM", 1)});
    EXPECT_TRUE(mService.IsEditMode());
    Handle("QEdM", {Magn("QEdM", 0)});
    EXPECT_FALSE(mService.IsEditMode());

    ASSERT_EQ(Touch().size(), 1u);  // the Touch Sense action's message to the host
    Handle("QDTS", {Magn("QTSt", 1)});
    EXPECT_EQ(Touch(), Lines{});
    Handle("QDTS", {Magn("QTSt", 0)});
    EXPECT_EQ(Touch().size(), 1u);
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

    // Replaced in place, then deleted.
    CVXKeysetStreamWriter update;
    update.PutLong(before);
    const Bytes renamed = KeysetRecord("Edited", VXTag("EDT1"));
    update.PutBytes(renamed.data(), renamed.size());
    const Bytes updateBytes = update.Take();
    Handle("QUpK", {Magn("QDSz", uint32_t(updateBytes.size())), Text("QKys", updateBytes)});
    EXPECT_EQ(Keysets().GetKeysetAt(before)->GetName(), "Edited");
    Handle("QDlK", {Magn("QKys", before + 1)});
    EXPECT_EQ(Keysets().GetNumKeysets(), before + 1);

    // One transport button and one channel control of keyset 0.
    const Bytes button = ButtonMIDIUpdate(0, 3, 2, {0xB0, 0x10, 0xFD});
    Handle("QUpC", {Magn("QDSz", uint32_t(button.size())), Text("QCtD", button)});
    EXPECT_EQ(Keysets().GetKeysetAt(0)->GetControlAt(3, 0)->GetAssignedName(), "MIDI");

    CVXKeysetStreamWriter channel;
    channel.ChannelControlUpdateHeader(0, 4, 0xA1).ChannelControl("Muted", 0xA1, 4, true, 0);
    const Bytes channelBytes = channel.Take();
    Handle("QUCC", {Magn("QDSz", uint32_t(channelBytes.size())), Text("QCtD", channelBytes)});
    EXPECT_TRUE(Keysets().GetKeysetAt(0)->GetChannelControlAt(0xA1, 4)->IsLatched());
}

}  // namespace
