// The host-MIDI registry: how host bytes are cut into messages, how the
// answers of every responder replace a message (or the message passes), the
// bounded output, registration and removal, and the deferred-MIDI ring.
#include "actions/CMIDIUnmapper.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "model/CVX_Keyset.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
using Responders = std::vector<CVX_MIDIResponderMixIn*>;

std::string Hex(const Bytes& inBytes) {
    return HexBytes(inBytes.data(), inBytes.size());
}

class MIDIUnmapperTest : public CVXPlatformTest {
  protected:
    // The output for inHost in exactly inRoom bytes (so that the address
    // sanitizer sees a write past them); mNeeded is what it asked for.
    Bytes Unmap(const Bytes& inHost, size_t inRoom = 2048) {
        Bytes out(inRoom);
        size_t length = inHost.size();
        mMapped = Unmapper()->UnmapHostMIDI(inHost.data(), out.data(), &length, inRoom);
        mNeeded = length;
        out.resize(std::min(length, inRoom));
        return out;
    }
    CMIDIUnmapper* Unmapper() { return mKeyset.GetMIDIUnmapper(); }

    CVX_Keyset mKeyset{"Host", FourCC("HOST")};  // under construction
    size_t mNeeded = 0;
    bool mMapped = false;
};

TEST_F(MIDIUnmapperTest, CutsAtStatusBytesOnlyAndPassesUnansweredMessages) {
    CScriptedResponder silent({}, {}, &mLog, "ask");
    // Host bytes, and the messages they are cut into. 0xF7 is data, a
    // real-time byte takes the data after it, nothing splits running status,
    // and the first byte belongs to the message whatever it is.
    const std::pair<Bytes, Lines> cases[] = {
        {{0xF0, 0x00, 0x01, 0x02, 0xF7}, {"ask F0 00 01 02 F7"}},
        {{0x90, 0x3C, 0x7F, 0x3C, 0x00}, {"ask 90 3C 7F 3C 00"}},
        {{0xB0, 0x10, 0x7F, 0xB0, 0x11, 0x00}, {"ask B0 10 7F", "ask B0 11 00"}},
        {{0x90, 0x3C, 0xF8, 0x7F, 0x00}, {"ask 90 3C", "ask F8 7F 00"}},
        {{0x3C, 0x7F, 0x90, 0xF7, 0xF7}, {"ask 3C 7F", "ask 90 F7 F7"}},
        {{0xFE, 0xFF, 0xC0}, {"ask FE", "ask FF", "ask C0"}},
        {{}, {}},
    };
    for (const auto& [host, messages] : cases) {
        EXPECT_EQ(Unmap(host), host) << Hex(host);
        EXPECT_EQ(mMapped, !host.empty());
        EXPECT_EQ(mLog.Take(), messages) << Hex(host);
    }
}

TEST_F(MIDIUnmapperTest, EveryResponderIsAskedAndTheAnswersConcatenateButtonListFirst) {
    const Bytes first = {0xB0, 0x10, 0x7F};
    // Registered first, but in the channel list, which is asked second.
    CScriptedResponder channel(first, {0xC1}, &mLog, "c", false);
    CMIDIUnmapper::AddCustomChannelMIDIAction(&channel);
    CScriptedResponder answers(first, {0x01, 0x02, 0x03}, &mLog, "a");
    CScriptedResponder mute(first, {}, &mLog, "m");  // recognises it, answers nothing

    EXPECT_EQ(Hex(Unmap({0xB0, 0x10, 0x7F, 0xB0, 0x11, 0x00})), " 01 02 03 C1 B0 11 00");
    EXPECT_EQ(mLog.Take(), (Lines{"a B0 10 7F", "m B0 10 7F", "c B0 10 7F", "a B0 11 00",
                                  "m B0 11 00", "c B0 11 00"}));

    // Registered twice: asked twice, answered twice.
    CMIDIUnmapper::AddCustomMIDIAction(&answers);
    EXPECT_EQ(Hex(Unmap(first)), " 01 02 03 01 02 03 C1");
    EXPECT_EQ(mLog.Take().size(), 4u);

    // Removal takes one entry at a time. A message whose responders all
    // answer nothing passes unchanged.
    CMIDIUnmapper::RemoveCustomMIDIAction(&answers);
    EXPECT_EQ(Unmapper()->GetCustomMIDIActions(), (Responders{&mute, &answers}));
    CMIDIUnmapper::RemoveCustomMIDIAction(&answers);
    CMIDIUnmapper::RemoveCustomChannelMIDIAction(&channel);
    EXPECT_EQ(Unmap(first), first);
    EXPECT_EQ(mLog.Take(), Lines{"m B0 10 7F"});
}

TEST_F(MIDIUnmapperTest, WritesNoFurtherThanTheRoomAndCountsWhatItNeeds) {
    CScriptedResponder small({0xB0, 0x01}, {1, 2, 3, 4, 5});
    CScriptedResponder large({0xB0, 0x02}, Bytes(1000, 0x5A));
    const Bytes three = {0xB0, 0x01, 0xB0, 0x01, 0xB0, 0x01};
    // Host bytes, room: the bytes needed and the first of them that fit. The
    // third large answer finds less room than an answer may take.
    const std::tuple<Bytes, size_t, size_t, Bytes> cases[] = {
        {three, 15, 15, {1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 1, 2, 3, 4, 5}},
        {three, 12, 15, {1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 1, 2}},
        {three, 0, 15, {}},
        {{0x90, 0x7F, 0xB0, 0x01}, 3, 7, {0x90, 0x7F, 1}},
        {{0xB0, 0x02, 0xB0, 0x02, 0xB0, 0x02}, 2048, 3000, Bytes(2048, 0x5A)},
    };
    for (const auto& [host, room, needed, written] : cases) {
        EXPECT_EQ(Unmap(host, room), written) << Hex(host) << " in " << room;
        EXPECT_EQ(mNeeded, needed);
    }

    // With no responder at all, the bytes are copied as far as they fit.
    CVX_Keyset empty("Empty", FourCC("NONE"));
    Bytes out(2);
    size_t length = three.size();
    EXPECT_TRUE(empty.GetMIDIUnmapper()->UnmapHostMIDI(three.data(), out.data(), &length, 2));
    EXPECT_EQ(std::pair(out, length), std::pair(Bytes{0xB0, 0x01}, three.size()));
}

TEST_F(MIDIUnmapperTest, ARespondersEveryEntryLeavesWithItWhateverIsUnderConstruction) {
    auto twice = std::make_unique<CScriptedResponder>(Bytes{0x90}, Bytes{0x01});
    CMIDIUnmapper::AddCustomMIDIAction(twice.get());
    CMIDIUnmapper::AddCustomChannelMIDIAction(twice.get());
    CScriptedResponder stays({0x90}, {0x02});
    EXPECT_EQ(Hex(Unmap({0x90})), " 01 01 02 01");

    // Built with no keyset under construction: registered nowhere.
    CVX_Keyset::SetKeysetUnderConstruction(nullptr);
    CScriptedResponder nowhere({0x90}, {0x03});
    EXPECT_EQ(nowhere.GetUnmapper(), nullptr);

    twice.reset();
    EXPECT_EQ(Unmapper()->GetCustomMIDIActions(), Responders{&stays});
    EXPECT_EQ(Unmapper()->GetCustomChannelMIDIActions(), Responders{});
    EXPECT_EQ(Hex(Unmap({0x90})), " 02");

    // A responder that outlives its keyset forgets the unmapper that went.
    auto keyset = std::make_unique<CVX_Keyset>("Gone", FourCC("GONE"));
    CScriptedResponder orphan({0x90}, {0x04});
    EXPECT_EQ(orphan.GetUnmapper(), keyset->GetMIDIUnmapper());
    keyset.reset();
    EXPECT_EQ(orphan.GetUnmapper(), nullptr);
}

TEST_F(MIDIUnmapperTest, DeferredMIDIGoesOutInSixByteControlChangePairsOnePerTick) {
    const uint8_t pair[] = {0xB0, 0x07, 0x10, 0xB0, 0x27, 0x00};
    const uint8_t notes[] = {0x90, 0x3C, 0x7F, 0x80, 0x3C, 0x00};
    const uint8_t otherChannel[] = {0xB0, 0x07, 0x10, 0xB1, 0x27, 0x00};  // the second
    // Four bytes are not a unit yet; two more make one.
    CVX_MIDIResponderMixIn::DeferMessageToHost(pair, 4);
    CVX_MIDIResponderMixIn::HandleDeferedMIDI();
    EXPECT_EQ(mLog.Take(), Lines{});
    CVX_MIDIResponderMixIn::DeferMessageToHost(pair + 4, 2);
    CVX_MIDIResponderMixIn::HandleDeferedMIDI();
    EXPECT_EQ(mLog.Take(), Lines{"host B0 07 10 B0 27 00"});

    // Other units are taken and dropped; each tick handles one unit.
    for (const uint8_t* unit : {notes, otherChannel, pair, pair}) {
        CVX_MIDIResponderMixIn::DeferMessageToHost(unit, 6);
    }
    for (int tick = 0; tick < 5; ++tick) CVX_MIDIResponderMixIn::HandleDeferedMIDI();
    EXPECT_EQ(mLog.Take(), (Lines{"host B0 07 10 B0 27 00", "host B0 07 10 B0 27 00"}));
}

}  // namespace
