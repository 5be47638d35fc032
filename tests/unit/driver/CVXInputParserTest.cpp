#include "driver/CVXInputParser.h"

#include <gtest/gtest.h>

#include <random>

#include "driver/VXBridgeFraming.h"
#include "support/RecordingSinks.h"

namespace {

using Bytes = std::vector<uint8_t>;

class InputParserTest : public ::testing::Test {
  protected:
    // One healthy read carrying `midi` in bridge packets.
    void Feed(const Bytes& midi) { FeedRaw(VXFrameBridgeRead(midi)); }
    void FeedRaw(const Bytes& read) { mParser.ProcessVXData(read.data(), read.size()); }

    CRecordingParserOutput mOut;
    CVXInputParser mParser{&mOut, &mOut};
};

TEST_F(InputParserTest, ControlChangesBecomeTheFiveRecordShapes) {
    Feed({0xB3, 0x07, 0x40, 0xB3, 0x27, 0x40});                    // fader: 0x40 << 1 | 0x40 >> 6
    Feed({0xB0, 0x46, 0x7F, 0xB0, 0x46, 0x00});                    // Mute on, off
    Feed({0xB2, 0x47, 0x01, 0xB2, 0x48, 0x01, 0xBF, 0x49, 0x05});  // Solo, Aux, Select
    Feed({0xB5, 0x4A, 0x01, 0xB5, 0x4A, 0x00});                    // touch
    Feed({0xB0, 0x10, 0x7F});  // unmapped controller passes through
    EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{4, 160, 3, 129},
                                                  {4, 161, 0, 1},
                                                  {4, 161, 0, 0},
                                                  {4, 162, 2, 1},
                                                  {4, 163, 2, 1},
                                                  {4, 164, 15, 1},
                                                  {4, 165, 5, 1},
                                                  {4, 165, 5, 0},
                                                  {5, 167, 0xB0, 0x10, 0x7F}}));
    EXPECT_TRUE(mOut.HostMessages().empty());
}

TEST_F(InputParserTest, FaderHalvesOnlyTheLowPartSends) {
    Feed({0xB3, 0x27, 0x7F, 0xB3, 0x27, 0x7F});  // no high part: 1, and 1 again (cleared)
    Feed({0xB4, 0x07, 0x7F});                    // a high part alone moves nothing
    EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{4, 160, 3, 1}, {4, 160, 3, 1}}));
    Feed({0xB9, 0x07, 0x7F, 0xB4, 0x27, 0x00});  // pending values are per channel
    Feed({0xB9, 0x27, 0x3F});
    EXPECT_EQ(mOut.Records().at(2), (Bytes{4, 160, 4, 0xFE}));
    EXPECT_EQ(mOut.Records().at(3), (Bytes{4, 160, 9, 0xFE}));
}

TEST_F(InputParserTest, RunningStatusAndMessagesSplitAcrossReads) {
    Feed({0xB0, 0x07, 0x40, 0x27, 0x00});  // second pair in running status
    Feed({0xB0, 0x07});
    EXPECT_EQ(mOut.Records().size(), 1u);
    Feed({0x40});  // completes the controller 7 message
    Feed({0x27});
    Feed({0x00, 0x46, 0x7F});  // running status spans the reads too
    EXPECT_EQ(mOut.Records(),
              (std::vector<Bytes>{{4, 160, 0, 128}, {4, 160, 0, 128}, {4, 161, 0, 1}}));
}

TEST_F(InputParserTest, StrayDataAndOtherMessageTypes) {
    // Without running status a data byte is lost and ends this read's loop: the
    // control change behind it waits for the next read.
    Feed({0x46, 0xB0, 0x46, 0x7F});
    EXPECT_TRUE(mOut.Records().empty());
    FeedRaw({0x11, 0x60});  // a status-only read does not run the loop
    EXPECT_TRUE(mOut.Records().empty());
    Feed({0xB0, 0x47, 0x7F});
    EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{4, 161, 0, 1}, {4, 162, 0, 1}}));

    // Notes, program changes and pitch bend are dropped, and they take the
    // running status with them.
    Feed({0x90, 0x40, 0x7F, 0x46, 0x7F, 0xC0, 0x05, 0xE0, 0x00, 0x40});
    EXPECT_EQ(mOut.Records().size(), 2u);
    // 0xF2 counts no data bytes and clears running status, so its two data bytes
    // are strays, lost one per read.
    Feed({0xB0, 0x46, 0x00, 0xF2, 0x10, 0x20});
    EXPECT_EQ(mOut.Records().size(), 3u);
    EXPECT_EQ(mParser.IncompleteMessageBuffer().BytesRemaining(), 1u);
    Feed({0xB0, 0x46, 0x01});
    EXPECT_EQ(mOut.Records().size(), 3u);
    EXPECT_EQ(mParser.IncompleteMessageBuffer().BytesRemaining(), 3u);
    Feed({0xB0, 0x47, 0x00});
    auto r = mOut.Records();
    ASSERT_EQ(r.size(), 5u);
    EXPECT_EQ(r[2], (Bytes{4, 161, 0, 0}));
    EXPECT_EQ(r[3], (Bytes{4, 161, 0, 1}));
    EXPECT_EQ(r[4], (Bytes{4, 162, 0, 0}));
    // A real-time byte clears running status as well.
    Feed({0xB1, 0x46, 0x7F, 0xF8});
    EXPECT_EQ(mParser.RunningStatus(), 0xFF);
}

TEST_F(InputParserTest, BridgeStatusBytesDecideWhatIsRead) {
    FeedRaw({0x01, 0x62});  // overrun on a status-only read: counted only
    FeedRaw({0x11, 0x70});  // 0x70 carries none of the error bits
    FeedRaw({0x12, 0x60});  // wrong modem-status nibble
    FeedRaw({0x11});
    FeedRaw({});
    EXPECT_EQ(mParser.DebugErrorCount(), 2u);

    FeedRaw({0x12, 0x60, 0xB0, 0x46, 0x7F});  // rejected: modem status
    FeedRaw({0x11, 0x40, 0xB0, 0x46, 0x7F});  // rejected: line status lacks 0x20
    EXPECT_TRUE(mOut.Records().empty());
    EXPECT_EQ(mParser.DebugErrorCount(), 2u);

    // A header of 0x01 0x60 is accepted but not stripped: under running status
    // its two bytes become the data of a control change.
    Feed({0xB0, 0x46, 0x7F});
    FeedRaw({0x01, 0x60, 0x46, 0x00});
    EXPECT_EQ(mOut.Records(),
              (std::vector<Bytes>{{4, 161, 0, 1}, {5, 167, 0xB0, 0x01, 0x60}, {4, 161, 0, 0}}));
}

TEST_F(InputParserTest, EveryPacketOfAReadIsStrippedOnItsOwn) {
    // Packet 1 is headed 11 60 and stripped. Packet 2 is headed 31 60, which the
    // strip test (exactly 0x11) refuses, so 31 and 60 are MIDI data. The final
    // chunk of one byte is never stripped.
    Bytes read = {0x11, 0x60};
    for (int i = 0; i < 20; ++i) read.insert(read.end(), {0xB1, 0x46, 0x7F});
    read.insert(read.end(), {0xB1, 0x47});
    read.insert(read.end(), {0x31, 0x60, 0x7F});
    for (int i = 0; i < 30; ++i) read.insert(read.end(), {0x46, 0x00});
    read.push_back(0x47);
    read.push_back(0x11);
    ASSERT_EQ(read.size(), 129u);
    FeedRaw(read);
    auto r = mOut.Records();
    ASSERT_EQ(r.size(), 53u);
    EXPECT_EQ(r[19], (Bytes{4, 161, 1, 1}));
    EXPECT_EQ(r[20], (Bytes{4, 162, 1, 1}));              // B1 47 31
    EXPECT_EQ(r[21], (Bytes{5, 167, 0xB1, 0x60, 0x7F}));  // running status: 60 7F
    EXPECT_EQ(r[22], (Bytes{4, 161, 1, 0}));
    EXPECT_EQ(r[52], (Bytes{4, 162, 1, 1}));  // 47 11 across the last chunk
}

TEST_F(InputParserTest, MachineControlSysexPressesTransportButtons) {
    Feed({0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7});
    ASSERT_EQ(mOut.mEvents.size(), 2u);
    EXPECT_EQ(mOut.mEvents[0], (SRecordedEvent{false, {3, 3, 0x3F}}));  // record first
    EXPECT_EQ(mOut.mEvents[1], (SRecordedEvent{true, {0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7}}));

    const std::pair<uint8_t, int> table[] = {{0x00, -1}, {0x01, 2}, {0x03, -1}, {0x04, 1},
                                             {0x05, 0},  {0x06, 4}, {0x07, -1}, {0x7F, -1}};
    for (auto [command, control] : table) {
        mOut.mEvents.clear();
        Feed({0xF0, 0x7F, 0x7F, 0x06, command, 0xF7});
        EXPECT_EQ(mOut.HostMessages().size(), 1u) << int(command);
        if (control < 0) {
            EXPECT_TRUE(mOut.Records().empty()) << int(command);
        } else {
            EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{3, uint8_t(control), 0x3F}}));
        }
    }
    // Another device number, or another length, matches no template.
    mOut.mEvents.clear();
    Feed({0xF0, 0x7F, 0x10, 0x06, 0x02, 0xF7, 0xF0, 0x7F, 0x7F, 0x06, 0x02, 0x00, 0xF7});
    EXPECT_TRUE(mOut.Records().empty());
    EXPECT_EQ(mOut.HostMessages().size(), 2u);

    uint8_t command = 0;
    const uint8_t shortMsg[] = {0xF0, 0x7F, 0x7F, 0x06, 0x02};
    EXPECT_FALSE(CVXInputParser::GetMMCCommand(shortMsg, sizeof shortMsg, command));
    EXPECT_EQ(command, 1);
}

TEST_F(InputParserTest, SysexBoundaries) {
    // Split across reads: waits until its F7 arrives, then the following control
    // change in the same read is handled too.
    Feed({0xF0, 0x7F, 0x7F});
    EXPECT_TRUE(mOut.mEvents.empty());
    Feed({0x06, 0x01, 0xF7, 0xB0, 0x46, 0x7F});
    EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{3, 2, 0x3F}, {4, 161, 0, 1}}));

    // A message that starts with F7 is scanned for a further F7.
    mOut.mEvents.clear();
    Feed({0xF7, 0x11, 0xF7});
    EXPECT_EQ(mOut.HostMessages(), (std::vector<Bytes>{{0xF7, 0x11, 0xF7}}));

    // A sysex clears running status: data bytes behind it are strays.
    mOut.mEvents.clear();
    Feed({0xF0, 0x01, 0xF7, 0x46, 0x00});
    EXPECT_EQ(mOut.HostMessages(), (std::vector<Bytes>{{0xF0, 0x01, 0xF7}}));
    EXPECT_TRUE(mOut.Records().empty());
}

TEST_F(InputParserTest, SysexLongerThanAMessageNeverCompletes) {
    Bytes sysex = {0xF0};
    sysex.insert(sysex.end(), 64, 0x01);
    sysex.push_back(0xF7);
    Feed(sysex);
    Feed({0xB0, 0x46, 0x7F});
    EXPECT_TRUE(mOut.mEvents.empty());
}

// The count of waiting bytes is cut to 8 bits before it is compared with 62.
TEST_F(InputParserTest, SysexWaitingCountIsTruncatedToEightBits) {
    auto sysexWithFiller = [](size_t waitingAfterStatus) {
        Bytes b = {0xF0, 0x7F, 0x7F, 0x06, 0x02, 0xF7};
        b.resize(1 + waitingAfterStatus, 0x00);
        return b;
    };
    // 255 waiting: scanned 63, the F7 is found.
    Feed(sysexWithFiller(255));
    EXPECT_EQ(mOut.Records(), (std::vector<Bytes>{{3, 3, 0x3F}}));

    // 256 waiting give 0: nothing is scanned and nothing completes.
    CRecordingParserOutput out;
    CVXInputParser parser(&out, &out);
    Bytes read = VXFrameBridgeRead(sysexWithFiller(256));
    parser.ProcessVXData(read.data(), read.size());
    EXPECT_TRUE(out.mEvents.empty());

    // 300 waiting give 44: an F7 at the 44th byte completes, at the 45th it does not.
    for (size_t position : {44u, 45u}) {
        CRecordingParserOutput o;
        CVXInputParser p(&o, &o);
        Bytes b(301, 0x00);
        b[0] = 0xF0;
        b[position] = 0xF7;
        Bytes r = VXFrameBridgeRead(b);
        p.ProcessVXData(r.data(), r.size());
        if (position == 44) {
            ASSERT_EQ(o.HostMessages().size(), 1u);
            EXPECT_EQ(o.HostMessages()[0].size(), 45u);
        } else {
            EXPECT_TRUE(o.HostMessages().empty());
        }
    }
}

TEST_F(InputParserTest, RawMessagesLongerThanARecordAreDropped) {
    Bytes message(126, 0x10);
    mParser.NotifyClientOfRawMessage(message.data(), 126);
    EXPECT_TRUE(mOut.mEvents.empty());
    mParser.NotifyClientOfRawMessage(message.data(), 125);
    ASSERT_EQ(mOut.Records().size(), 1u);
    EXPECT_EQ(mOut.Records()[0][0], 127);
    EXPECT_EQ(mOut.Records()[0][1], 167);
}

// A stream of control changes and machine-control sysex gives the same records
// and host messages however the reads cut it.
TEST(InputParserProperty, AnyCutIntoReadsGivesTheSameOutput) {
    std::mt19937 rng(20261122);
    for (int round = 0; round < 12; ++round) {
        Bytes midi;
        size_t expectedRecords = 0, expectedHost = 0;
        bool haveStatus = false;
        while (true) {
            Bytes msg;
            size_t records = 1, host = 0;
            bool sysex = rng() % 5 == 0;
            if (sysex) {
                uint8_t command = static_cast<uint8_t>(rng() % 8);
                msg = {0xF0, 0x7F, 0x7F, 0x06, command, 0xF7};
                host = 1;
                records = (command == 1 || command == 2 || command >= 4) && command <= 6;
            } else {
                static const uint8_t controllers[] = {70, 71, 72, 73, 74, 39, 16, 1};
                uint8_t controller = controllers[rng() % 8];
                uint8_t status = static_cast<uint8_t>(0xB0 | (rng() % 16));
                if (!haveStatus || rng() % 2) msg.push_back(status);  // else running status
                msg.push_back(controller);
                msg.push_back(static_cast<uint8_t>(rng() % 128));
            }
            if (midi.size() + msg.size() + 3 >= 256) break;
            expectedRecords += records;
            expectedHost += host;
            midi.insert(midi.end(), msg.begin(), msg.end());
            haveStatus = !sysex;  // after a sysex the next message needs a full status
        }
        ASSERT_LT(midi.size(), 256u);

        CRecordingParserOutput whole;
        {
            CVXInputParser parser(&whole, &whole);
            Bytes read = VXFrameBridgeRead(midi);
            parser.ProcessVXData(read.data(), read.size());
        }
        ASSERT_EQ(whole.Records().size(), expectedRecords);
        ASSERT_EQ(whole.HostMessages().size(), expectedHost);

        for (size_t cut = 1; cut < midi.size(); ++cut) {
            CRecordingParserOutput split;
            CVXInputParser parser(&split, &split);
            Bytes a = VXFrameBridgeRead(midi.data(), cut);
            Bytes b = VXFrameBridgeRead(midi.data() + cut, midi.size() - cut);
            parser.ProcessVXData(a.data(), a.size());
            parser.ProcessVXData(b.data(), b.size());
            ASSERT_EQ(split.mEvents, whole.mEvents) << "round " << round << " cut " << cut;
        }
        // Every point cut at once: one MIDI byte per read.
        CRecordingParserOutput bytewise;
        CVXInputParser parser(&bytewise, &bytewise);
        for (uint8_t byte : midi) {
            Bytes r = VXFrameBridgeRead(&byte, 1);
            parser.ProcessVXData(r.data(), r.size());
        }
        ASSERT_EQ(bytewise.mEvents, whole.mEvents) << "round " << round;
    }
}

}  // namespace
