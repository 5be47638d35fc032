#include "driver/CVXInputParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "driver/VXBridgeFraming.h"
#include "support/RecordingSinks.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Records = std::vector<Bytes>;

// The events of a fresh parser fed one healthy read per entry of `midiReads`.
std::vector<SRecordedEvent> Parse(const std::vector<Bytes>& midiReads) {
    CRecordingParserOutput out;
    CVXInputParser parser(&out, &out);
    for (const Bytes& midi : midiReads) {
        Bytes read = VXFrameBridgeRead(midi);
        parser.ProcessVXData(read.data(), read.size());
    }
    return out.mEvents;
}

class InputParserTest : public ::testing::Test {
  protected:
    // One healthy read carrying `midi` in bridge packets.
    void Feed(const Bytes& midi) { FeedRaw(VXFrameBridgeRead(midi)); }
    void FeedRaw(const Bytes& read) { mParser.ProcessVXData(read.data(), read.size()); }

    CRecordingParserOutput mOut;
    CVXInputParser mParser{&mOut, &mOut};
};

TEST_F(InputParserTest, ControlChangesBecomeTheFiveRecordShapes) {
    // Fader (0x40 << 1 | 0x40 >> 6), Mute on and off, Solo, Aux, Select, touch
    // on and off, and an unmapped controller that passes through.
    Feed({0xB3, 0x07, 0x40, 0xB3, 0x27, 0x40, 0xB0, 0x46, 0x7F, 0xB0,
          0x46, 0x00, 0xB2, 0x47, 0x01, 0xB2, 0x48, 0x01, 0xBF, 0x49,
          0x05, 0xB5, 0x4A, 0x01, 0xB5, 0x4A, 0x00, 0xB0, 0x10, 0x7F});
    const Records expected = {{4, 160, 3, 129}, {4, 161, 0, 1}, {4, 161, 0, 0},
                              {4, 162, 2, 1},   {4, 163, 2, 1}, {4, 164, 15, 1},
                              {4, 165, 5, 1},   {4, 165, 5, 0}, {5, 167, 0xB0, 0x10, 0x7F}};
    EXPECT_EQ(mOut.Records(), expected);
}

TEST_F(InputParserTest, FaderHalvesOnlyTheLowPartSends) {
    // No high part: 1, and 1 again. A high part alone moves nothing, pending
    // values are per channel, and a low part clears its channel's high part.
    Feed({0xB3, 0x27, 0x7F, 0xB3, 0x27, 0x7F, 0xB4, 0x07, 0x7F, 0xB9, 0x07,
          0x7F, 0xB4, 0x27, 0x00, 0xB9, 0x27, 0x3F, 0xB9, 0x27, 0x40});
    EXPECT_EQ(
        mOut.Records(),
        (Records{
            {4, 160, 3, 1}, {4, 160, 3, 1}, {4, 160, 4, 0xFE}, {4, 160, 9, 0xFE}, {4, 160, 9, 1}}));
}

TEST_F(InputParserTest, StrayDataAndOtherMessageTypes) {
    // Without running status a data byte is lost and ends this read's loop: the
    // control change behind it waits for the next read that carries MIDI.
    Feed({0x46, 0xB0, 0x46, 0x7F});
    FeedRaw({0x11, 0x60});
    EXPECT_TRUE(mOut.Records().empty());
    Feed({0xB0, 0x47, 0x7F});
    // Notes, program changes and pitch bend are dropped, and they take the
    // running status with them.
    Feed({0x90, 0x40, 0x7F, 0x46, 0x7F, 0xC0, 0x05, 0xE0, 0x00, 0x40});
    // 0xF2 counts no data bytes and clears running status, so its two data bytes
    // are strays, lost one per read.
    Feed({0xB0, 0x46, 0x00, 0xF2, 0x10, 0x20});
    EXPECT_EQ(mParser.IncompleteMessageBuffer().BytesRemaining(), 1u);
    Feed({0xB0, 0x46, 0x01});
    Feed({0xB0, 0x47, 0x00});
    EXPECT_EQ(
        mOut.Records(),
        (Records{{4, 161, 0, 1}, {4, 162, 0, 1}, {4, 161, 0, 0}, {4, 161, 0, 1}, {4, 162, 0, 0}}));
    // A real-time byte clears running status as well.
    Feed({0xB1, 0x46, 0x7F, 0xF8});
    EXPECT_EQ(mParser.RunningStatus(), 0xFF);
}

TEST_F(InputParserTest, BridgeStatusBytesDecideWhatIsRead) {
    // Status-only reads are counted when the modem nibble is wrong or a line
    // error bit (0x8E) is set, 0x70 carrying none; reads with MIDI whose status
    // bytes fail the acceptance test (nibble, or 0x20 missing) are ignored uncounted.
    const Bytes reads[] = {{0x01, 0x62},
                           {0x11, 0xE0},
                           {0x11, 0x70},
                           {0x12, 0x60},
                           {0x11},
                           {},
                           {0x12, 0x60, 0xB0, 0x46, 0x7F},
                           {0x11, 0x40, 0xB0, 0x46, 0x7F}};
    for (const Bytes& read : reads) FeedRaw(read);
    EXPECT_EQ(mParser.DebugErrorCount(), 3u);
    // A read of one byte is judged by its modem byte alone.
    FeedRaw({0x12});
    FeedRaw({0x01});
    EXPECT_EQ(mParser.DebugErrorCount(), 4u);
    // A header of 0x01 0x60 is accepted but not stripped: under running status
    // its two bytes become the data of a control change.
    Feed({0xB0, 0x46, 0x7F});
    FeedRaw({0x01, 0x60, 0x46, 0x00});
    EXPECT_EQ(mOut.Records(),
              (Records{{4, 161, 0, 1}, {5, 167, 0xB0, 0x01, 0x60}, {4, 161, 0, 0}}));
}

TEST_F(InputParserTest, EveryPacketOfAReadIsStrippedOnItsOwn) {
    // Packet 1 is headed 11 60 and stripped. Packet 2 is headed 31 60, which the
    // strip test (exactly 0x11) refuses, so 31 and 60 are MIDI data. The final
    // chunk of one byte is never stripped.
    Bytes read = {0x11, 0x60};
    for (int i = 0; i < 20; ++i) read.insert(read.end(), {0xB1, 0x46, 0x7F});
    read.insert(read.end(), {0xB1, 0x47, 0x31, 0x60, 0x7F});
    for (int i = 0; i < 30; ++i) read.insert(read.end(), {0x46, 0x00});
    read.insert(read.end(), {0x47, 0x11});
    FeedRaw(read);
    auto r = mOut.Records();
    ASSERT_EQ(r.size(), 53u);
    // B1 47 31, then running status takes 60 7F.
    EXPECT_EQ(
        Records(r.begin() + 19, r.begin() + 23),
        (Records{{4, 161, 1, 1}, {4, 162, 1, 1}, {5, 167, 0xB1, 0x60, 0x7F}, {4, 161, 1, 0}}));
    EXPECT_EQ(r[52], (Bytes{4, 162, 1, 1}));  // 47 11 across the last chunk
}

TEST_F(InputParserTest, MachineControlSysexPressesTransportButtons) {
    // The record comes before the message to the host; other commands only pass.
    const std::pair<uint8_t, int> table[] = {{0x00, -1}, {0x01, 2},  {0x02, 3},
                                             {0x03, -1}, {0x04, 1},  {0x05, 0},
                                             {0x06, 4},  {0x07, -1}, {0x7F, -1}};
    for (auto [command, control] : table) {
        mOut.mEvents.clear();
        Bytes mmc = {0xF0, 0x7F, 0x7F, 0x06, command, 0xF7};
        Feed(mmc);
        std::vector<SRecordedEvent> expected;
        if (control >= 0) expected.push_back({false, {3, uint8_t(control), 0x3F}});
        expected.push_back({true, mmc});
        EXPECT_EQ(mOut.mEvents, expected) << int(command);
    }
    // Another device number, or another length, matches no template.
    mOut.mEvents.clear();
    Feed({0xF0, 0x7F, 0x10, 0x06, 0x02, 0xF7, 0xF0, 0x7F, 0x7F, 0x06, 0x02, 0x00, 0xF7});
    EXPECT_EQ(mOut.HostMessages().size(), 2u);
    EXPECT_TRUE(mOut.Records().empty());
}

TEST_F(InputParserTest, SysexBoundaries) {
    // A message that starts with F7 is scanned for a further F7; like any sysex
    // it clears running status, so the data bytes behind it are strays.
    Feed({0xB0, 0x46, 0x7F, 0xF7, 0x11, 0xF7, 0x46, 0x00});
    EXPECT_EQ(mOut.mEvents,
              (std::vector<SRecordedEvent>{{false, {4, 161, 0, 1}}, {true, {0xF7, 0x11, 0xF7}}}));
}

// The count of waiting bytes is cut to 8 bits before it is compared with 62,
// and at most 63 bytes behind the status are scanned for the F7.
TEST_F(InputParserTest, SysexWaitingCountIsTruncatedToEightBits) {
    struct {
        size_t waiting, f7At, hostLength;  // hostLength 0: nothing completes
    } cases[] = {{62, 62, 63}, {63, 63, 64},  {64, 64, 0}, {255, 5, 6},
                 {256, 5, 0},  {300, 44, 45}, {300, 45, 0}};
    for (auto c : cases) {
        Bytes midi(1 + c.waiting, 0x00);
        midi[0] = 0xF0;
        midi[c.f7At] = 0xF7;
        std::vector<size_t> lengths;
        for (const SRecordedEvent& e : Parse({midi})) lengths.push_back(e.bytes.size());
        EXPECT_EQ(lengths, c.hostLength ? std::vector<size_t>{c.hostLength} : std::vector<size_t>{})
            << c.waiting << " waiting, F7 at " << c.f7At;
    }
}

TEST_F(InputParserTest, RawMessagesLongerThanARecordAreDropped) {
    Bytes message(126, 0x10);
    mParser.NotifyClientOfRawMessage(message.data(), 126);
    mParser.NotifyClientOfRawMessage(message.data(), 125);
    Bytes record = {127, 167};
    record.insert(record.end(), 125, 0x10);
    EXPECT_EQ(mOut.Records(), Records{record});
}

// A stream of control changes, quarter frames and machine-control sysex gives the same records
// and host messages however the reads cut it.
TEST(InputParserProperty, AnyCutIntoReadsGivesTheSameOutput) {
    std::mt19937 rng(20261122);
    for (int round = 0; round < 12; ++round) {
        Bytes midi;
        size_t expectedRecords = 0, expectedHost = 0;
        bool haveStatus = false;
        // Below 256 bytes, so the 8-bit waiting count of a sysex is never cut.
        while (midi.size() < 256 - 9) {
            if (rng() % 8 == 0) {  // a quarter frame: dropped, and no running status after it
                midi.insert(midi.end(), {0xF1, uint8_t(rng() % 128)});
                haveStatus = false;
            } else if (rng() % 5 == 0) {
                uint8_t command = static_cast<uint8_t>(rng() % 8);
                midi.insert(midi.end(), {0xF0, 0x7F, 0x7F, 0x06, command, 0xF7});
                ++expectedHost;
                expectedRecords += (command == 1 || command == 2 || command >= 4) && command <= 6;
                haveStatus = false;  // after a sysex the next message needs a full status
            } else {
                static const uint8_t controllers[] = {70, 71, 72, 73, 74, 39, 16, 1};
                if (!haveStatus || rng() % 2)
                    midi.push_back(uint8_t(0xB0 | rng() % 16));  // else running
                midi.insert(midi.end(), {controllers[rng() % 8], uint8_t(rng() % 128)});
                ++expectedRecords;
                haveStatus = true;
            }
        }
        auto whole = Parse({midi});
        size_t host = std::count_if(whole.begin(), whole.end(), [](auto& e) { return e.toHost; });
        ASSERT_EQ(host, expectedHost);
        ASSERT_EQ(whole.size() - host, expectedRecords);
        for (size_t cut = 1; cut < midi.size(); ++cut) {
            ASSERT_EQ(Parse({Bytes(midi.begin(), midi.begin() + cut),
                             Bytes(midi.begin() + cut, midi.end())}),
                      whole)
                << "round " << round << " cut " << cut;
        }
        // Every point cut at once: one MIDI byte per read.
        std::vector<Bytes> bytewise;
        for (uint8_t byte : midi) bytewise.push_back({byte});
        ASSERT_EQ(Parse(bytewise), whole) << "round " << round;
    }
}

}  // namespace
