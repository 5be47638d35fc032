// MIDI bytes as the MIDI systems carry them: the cutting of what the driver
// sends into one message per event, ALSA's event coder both ways (it works in
// user space, so it is checked on every machine), and the ALSA backend itself,
// for real where this kernel has a sequencer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>

#include "driver/CVXUserSpaceDriver.h"
#include "integration/midi/JackRig.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXAlsaMIDI.h"
#include "platform/midi/CVXAlsaMIDICoder.h"
#include "platform/midi/VXMIDIMessages.h"

namespace {

std::string Hex(const uint8_t* inBytes, size_t inLength) {
    std::string text;
    char hex[4];
    for (size_t i = 0; i < inLength; ++i) {
        std::snprintf(hex, sizeof hex, i ? " %02X" : "%02X", inBytes[i]);
        text += hex;
    }
    return text;
}
std::string Hex(const Bytes& inBytes) {
    return Hex(inBytes.data(), inBytes.size());
}

Bytes FromHex(const std::string& inText) {
    Bytes bytes;
    for (size_t i = 0; i < inText.size(); i += 3)
        bytes.push_back(uint8_t(std::stoul(inText.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::vector<std::string> Cut(const std::string& inHex) {
    std::vector<std::string> messages;
    const Bytes bytes = inHex.empty() ? Bytes{} : FromHex(inHex);
    VXCutMIDIMessages(bytes.data(), bytes.size(), [&](const uint8_t* inMessage, size_t inLength) {
        messages.push_back(Hex(inMessage, inLength));
    });
    return messages;
}

TEST(MIDIMessageCutting, OneMessagePerEventWithItsOwnStatus) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        // the deferred unit: two control changes in one send
        {"B0 07 10 B0 27 00", {"B0 07 10", "B0 27 00"}},
        // running status is spelled out, for one-byte messages too
        {"90 3C 7F 3C 00", {"90 3C 7F", "90 3C 00"}},
        {"C5 10 11", {"C5 10", "C5 11"}},
        // real-time bytes leave at once, alone, from inside any message
        {"B0 07 F8 40", {"F8", "B0 07 40"}},
        {"F0 01 FE 02 F7", {"FE", "F0 01 02 F7"}},
        // a system-exclusive message cut short leaves as far as it came
        {"F0 01 02 90 3C 7F", {"F0 01 02", "90 3C 7F"}},
        {"F0 7E 7F", {"F0 7E 7F"}},
        // system common messages take their data bytes and end running status
        {"B0 07 40 F2 01 02 03", {"B0 07 40", "F2 01 02"}},
        {"F1 10 F3 05 F6", {"F1 10", "F3 05", "F6"}},
        // dropped: data without a status, a stray F7, a message still short
        {"07 40 F7 90 3C", {}},
        {"B0 07 B1 08 09", {"B1 08 09"}},
        {"", {}},
    };
    for (const auto& [bytes, messages] : cases) EXPECT_EQ(Cut(bytes), messages) << bytes;
}

// ---------------------------------------------------------------------------
// ALSA's coder

std::string Describe(const snd_seq_event_t& e) {
    char text[64];
    switch (e.type) {
        case SND_SEQ_EVENT_NOTEON:
        case SND_SEQ_EVENT_NOTEOFF:
            std::snprintf(text, sizeof text, "%s %d %d %d",
                          e.type == SND_SEQ_EVENT_NOTEON ? "on" : "off", e.data.note.channel,
                          e.data.note.note, e.data.note.velocity);
            break;
        case SND_SEQ_EVENT_CONTROLLER:
            std::snprintf(text, sizeof text, "cc %d %u %d", e.data.control.channel,
                          e.data.control.param, e.data.control.value);
            break;
        case SND_SEQ_EVENT_PGMCHANGE:
            std::snprintf(text, sizeof text, "program %d %d", e.data.control.channel,
                          e.data.control.value);
            break;
        case SND_SEQ_EVENT_PITCHBEND:
            std::snprintf(text, sizeof text, "bend %d %d", e.data.control.channel,
                          e.data.control.value);
            break;
        case SND_SEQ_EVENT_CLOCK:
            return "clock";
        case SND_SEQ_EVENT_SONGPOS:
            std::snprintf(text, sizeof text, "songpos %d", e.data.control.value);
            break;
        case SND_SEQ_EVENT_SYSEX:
            return "sysex " + Hex(static_cast<const uint8_t*>(e.data.ext.ptr), e.data.ext.len);
        default:
            std::snprintf(text, sizeof text, "type %d", e.type);
    }
    return text;
}

class AlsaCoder : public ::testing::Test {
  protected:
    std::vector<std::string> Encode(const Bytes& inBytes) {
        std::vector<std::string> events;
        mCoder.Encode(inBytes.data(), inBytes.size(),
                      [&](snd_seq_event_t& e) { events.push_back(Describe(e)); });
        return events;
    }
    // Every event of inBytes decoded, as one byte string each.
    std::vector<std::string> RoundTrip(const Bytes& inBytes) {
        std::vector<std::string> decoded;
        mCoder.Encode(inBytes.data(), inBytes.size(), [&](snd_seq_event_t& e) {
            Bytes out;
            EXPECT_TRUE(mCoder.Decode(e, out)) << Describe(e);
            decoded.push_back(Hex(out));
        });
        return decoded;
    }
    CVXAlsaMIDICoder mCoder;
};

TEST_F(AlsaCoder, BytesBecomeTheSequencersEventsAndComeBackUnchanged) {
    ASSERT_TRUE(mCoder.Valid());
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"92 3C 7F", {"on 2 60 127"}},
        {"90 3C 00", {"on 0 60 0"}},  // stays a note-on, as the host sent it
        {"8F 40 10", {"off 15 64 16"}},
        {"B2 07 40 27 00", {"cc 2 7 64", "cc 2 39 0"}},  // a fader message
        {"C5 10", {"program 5 16"}},
        {"E0 00 40 E0 7F 7F", {"bend 0 0", "bend 0 8191"}},
        {"F8", {"clock"}},
        {"F2 10 20", {"songpos 4112"}},
        {"F0 7F 7F 06 02 F7", {"sysex F0 7F 7F 06 02 F7"}},
        {"F4 F5", {}},  // undefined bytes have no event
    };
    for (const auto& [bytes, events] : cases) {
        EXPECT_EQ(Encode(FromHex(bytes)), events) << bytes;
        std::vector<std::string> messages = Cut(bytes);
        if (events.empty()) messages.clear();
        EXPECT_EQ(RoundTrip(FromHex(bytes)), messages) << bytes;
    }
}

TEST_F(AlsaCoder, LongSystemExclusiveTravelsInChunksThatAddUpToIt) {
    Bytes sysex(600, 0x55);
    sysex.front() = 0xF0;
    sysex.back() = 0xF7;
    Bytes joined;
    std::vector<size_t> sizes;
    mCoder.Encode(sysex.data(), sysex.size(), [&](snd_seq_event_t& e) {
        ASSERT_EQ(e.type, SND_SEQ_EVENT_SYSEX);
        Bytes out;
        ASSERT_TRUE(mCoder.Decode(e, out));
        sizes.push_back(out.size());
        joined.insert(joined.end(), out.begin(), out.end());
    });
    EXPECT_EQ(sizes, (std::vector<size_t>{256, 256, 88}));
    EXPECT_EQ(joined, sysex);
    // Cut short by the end of the send, it still leaves whole.
    EXPECT_EQ(Encode(FromHex("F0 01 02")), std::vector<std::string>{"sysex F0 01 02"});
}

TEST_F(AlsaCoder, EventsWithoutAMIDIMessageOrTooLargeDecodeToNothing) {
    snd_seq_event_t e;
    snd_seq_ev_clear(&e);
    e.type = SND_SEQ_EVENT_PORT_SUBSCRIBED;
    Bytes out{1, 2, 3};
    EXPECT_FALSE(mCoder.Decode(e, out));
    EXPECT_TRUE(out.empty());
    // A length past the bound is refused before a byte is read.
    uint8_t small[4] = {0xF0, 1, 2, 0xF7};
    snd_seq_ev_set_sysex(&e, unsigned(CVXAlsaMIDICoder::kMaxDecoded + 1), small);
    EXPECT_FALSE(mCoder.Decode(e, out));
    snd_seq_ev_set_sysex(&e, 4u, small);
    ASSERT_TRUE(mCoder.Decode(e, out));
    EXPECT_EQ(Hex(out), "F0 01 02 F7");
}

// ---------------------------------------------------------------------------
// The backend on this machine's sequencer

struct SRecordingReceiver : CVXHostMIDIIn {
    void DoMIDIReadProc(std::span<const SVXMIDIPacket> inList) override {
        std::vector<std::string> list;
        for (const SVXMIDIPacket& p : inList) list.push_back(Hex(p.bytes, p.length));
        lists.push_back(list);
        threads.push_back(std::this_thread::get_id());
    }
    std::vector<std::vector<std::string>> lists;
    std::vector<std::thread::id> threads;
};

TEST(AlsaSequencer, WithoutOneSignInFailsCleanlyAndTheDriverSaysSo) {
    if (access("/dev/snd/seq", F_OK) == 0) GTEST_SKIP() << "this kernel has a sequencer";
    EXPECT_EQ(CVXAlsaMIDI::Probe(), -ENOENT);
    CVXSdEventLoop loop;
    CVXAlsaMIDI alsa(loop);
    SRecordingReceiver receiver;
    EXPECT_EQ(alsa.SignIn("Velorix Series", "out", "in", &receiver), -ENOENT);
    EXPECT_EQ(loop.PendingWatches(), 0u);
    EXPECT_EQ(alsa.Client(), -1);
    const uint8_t note[] = {0x90, 0x3C, 0x7F};
    alsa.Send(note, sizeof note);  // nowhere to go: dropped quietly

    CVXDiagnosticCapture printed;
    SVXPlatform platform{.loop = &loop};
    CVXPlatformScope scope(platform);
    { CVXUserSpaceDriver driver(nullptr, &loop, &alsa, std::vector<uint8_t>{}); }
    EXPECT_EQ(printed.Take(), "MIDIClientCreate() returned -2\n");
}

// A second sequencer client of the test's own plays the host.
TEST(AlsaSequencer, PortsCarryMIDIBothWays) {
    if (access("/dev/snd/seq", F_OK) != 0)
        GTEST_SKIP() << "this kernel has no ALSA sequencer (/dev/snd/seq is absent)";
    CVXSdEventLoop loop;
    CVXAlsaMIDI alsa(loop);
    SRecordingReceiver receiver;
    ASSERT_EQ(
        alsa.SignIn("Velorix Series", "Velorix USB MIDI Out", "Velorix USB MIDI In", &receiver), 0);

    snd_seq_t* host = nullptr;
    ASSERT_EQ(snd_seq_open(&host, "default", SND_SEQ_OPEN_DUPLEX, 0), 0);
    const int hostPort =
        snd_seq_create_simple_port(host, "host", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_WRITE,
                                   SND_SEQ_PORT_TYPE_APPLICATION);
    ASSERT_GE(hostPort, 0);

    // The ports as a host lists them: names, directions and hardware type.
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_alloca(&info);
    ASSERT_EQ(snd_seq_get_any_port_info(host, alsa.Client(), alsa.SourcePort(), info), 0);
    EXPECT_STREQ(snd_seq_port_info_get_name(info), "Velorix USB MIDI Out");
    EXPECT_TRUE(snd_seq_port_info_get_capability(info) & SND_SEQ_PORT_CAP_SUBS_READ);
    EXPECT_TRUE(snd_seq_port_info_get_type(info) & SND_SEQ_PORT_TYPE_HARDWARE);
    ASSERT_EQ(snd_seq_get_any_port_info(host, alsa.Client(), alsa.DestinationPort(), info), 0);
    EXPECT_STREQ(snd_seq_port_info_get_name(info), "Velorix USB MIDI In");
    EXPECT_TRUE(snd_seq_port_info_get_capability(info) & SND_SEQ_PORT_CAP_SUBS_WRITE);
    EXPECT_TRUE(snd_seq_port_info_get_type(info) & SND_SEQ_PORT_TYPE_MIDI_GENERIC);

    ASSERT_EQ(snd_seq_connect_from(host, hostPort, alsa.Client(), alsa.SourcePort()), 0);
    const Bytes sent = FromHex("B2 07 7F F0 01 02 F7");
    alsa.Send(sent.data(), sent.size());
    std::vector<std::string> got;
    for (int i = 0; i < 2; ++i) {
        snd_seq_event_t* e = nullptr;
        ASSERT_GE(snd_seq_event_input(host, &e), 0);
        got.push_back(Describe(*e));
    }
    EXPECT_EQ(got, (std::vector<std::string>{"cc 2 7 127", "sysex F0 01 02 F7"}));

    // Each event the host sends is one packet list of one packet, on the loop.
    snd_seq_event_t e;
    snd_seq_ev_clear(&e);
    snd_seq_ev_set_source(&e, static_cast<unsigned char>(hostPort));
    snd_seq_ev_set_dest(&e, static_cast<unsigned char>(alsa.Client()),
                        static_cast<unsigned char>(alsa.DestinationPort()));
    snd_seq_ev_set_direct(&e);
    snd_seq_ev_set_noteon(&e, 1, 60, 100);
    ASSERT_GE(snd_seq_event_output_direct(host, &e), 0);
    snd_seq_ev_set_controller(&e, 2, 7, 64);
    ASSERT_GE(snd_seq_event_output_direct(host, &e), 0);
    ASSERT_TRUE(RunUntil(loop, [&] { return receiver.lists.size() == 2; }));
    EXPECT_EQ(receiver.lists, (std::vector<std::vector<std::string>>{{"91 3C 64"}, {"B2 07 40"}}));
    EXPECT_EQ(receiver.threads[0], std::this_thread::get_id());

    const int client = alsa.Client();
    alsa.SignOut();
    EXPECT_NE(snd_seq_get_any_port_info(host, client, 0, info), 0);
    EXPECT_EQ(loop.PendingWatches(), 0u);
    snd_seq_close(host);
}

}  // namespace
