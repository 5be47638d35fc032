// Keyset streams whose controls carry MIDI actions, for the host-MIDI tests,
// the benchmark and the fuzz target, and a scripted responder. No gtest here.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "actions/CVX_EmulationResponder.h"
#include "actions/CVX_MIDIResponderMixIn.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "support/EventLog.h"

using SVXTemplate = std::array<uint8_t, 8>;

// The template of channel control inControl on strip inChannel: the fader
// sends B<ch> 07 <value>, the buttons 9<ch> <10 + button index> <value>.
inline SVXTemplate StripTemplate(uint32_t inControl, uint32_t inChannel) {
    const auto ch = static_cast<uint8_t>(inChannel);
    if (inControl == kVXChannelFader) return {static_cast<uint8_t>(0xB0 | ch), 0x07, 0xFD};
    return {static_cast<uint8_t>(0x90 | ch), static_cast<uint8_t>(0x10 + inControl - 161), 0xFD};
}

// A keyset "DAW" ('DAW1') whose 96 channel controls carry one channel MIDI
// action each, of kind inKind, with the templates of StripTemplate (3 bytes).
inline void AppendMIDIKeyset(CVXKeysetStreamWriter& ioW, uint32_t inKind = 2) {
    ioW.KeysetHeader("DAW", VXTag("DAW1"));
    for (uint32_t n = kVXChannelFader; n <= kVXChannelTouchSense; ++n) {
        ioW.StripGroupHeader(n);
        for (uint32_t channel = 0; channel < kNumChannelStrips; ++channel) {
            ioW.ChannelControl(kChannelControlNames[n - kVXChannelFader], n, channel, false, 1);
            ioW.ChannelMIDIAction("MIDI", inKind, 3, StripTemplate(n, channel).data());
        }
    }
}

// A full set of two keysets: "Default", without actions, and the "DAW"
// keyset of AppendMIDIKeyset.
inline std::vector<uint8_t> MIDIKeysets(uint32_t inKind = 2) {
    CVXKeysetStreamWriter w;
    w.FullSetHeader(2);
    w.KeysetHeader("Default", kVXDefaultSignature);
    w.EmptyStrips();
    AppendMIDIKeyset(w, inKind);
    return w.Take();
}

using SVXEmulationTemplate = std::array<uint8_t, 16>;

// The emulation template of channel control inControl on strip inChannel, and
// its length. Mode B: the fader as pitch bend on the strip's channel (E<ch>
// <low> <high>), the buttons as notes on channel 1 (90 <note> <on/off>).
// Mode C: the fader as two controllers (B0 0<s> <high> B0 2<s> <low>), each
// button as the zone of its strip and its Mode C number (B0 0F <s> B0 2F
// <number + 40 when on>).
inline std::pair<SVXEmulationTemplate, uint16_t> EmulationTemplate(uint32_t inMode,
                                                                   uint32_t inControl,
                                                                   uint32_t inChannel) {
    const auto ch = static_cast<uint8_t>(inChannel);
    const bool fader = inControl == kVXChannelFader;
    if (inMode == 2) {
        static const uint8_t kNoteBase[] = {0x10, 0x08, 0x00, 0x18, 0x68};  // Mute..Touch Sense
        if (fader) return {{static_cast<uint8_t>(0xE0 | ch), 0xFB, 0xFD}, 3};
        return {{0x90, static_cast<uint8_t>(kNoteBase[inControl - kVXChannelMute] + ch), 0xFD}, 3};
    }
    if (fader) return {{0xB0, ch, 0xFD, 0xB0, static_cast<uint8_t>(0x20 + ch), 0xFB}, 6};
    return {{0xB0, 0xFE, ch, 0xB0, 0xFF, 0xF8}, 6};
}

// A keyset "Mode B" ('MODB', mode 2) or "Mode C" ('MODC', mode 3) whose 96
// channel controls carry one emulation action each, with the templates of
// EmulationTemplate, all following host MIDI.
inline void AppendEmulationKeyset(CVXKeysetStreamWriter& ioW, uint32_t inMode) {
    ioW.KeysetHeader(inMode == 2 ? "Mode B" : "Mode C", VXTag(inMode == 2 ? "MODB" : "MODC"),
                     inMode);
    for (uint32_t n = kVXChannelFader; n <= kVXChannelTouchSense; ++n) {
        ioW.StripGroupHeader(n);
        for (uint32_t channel = 0; channel < kNumChannelStrips; ++channel) {
            ioW.ChannelControl(kChannelControlNames[n - kVXChannelFader], n, channel, false, 1);
            const auto [message, length] = EmulationTemplate(inMode, n, channel);
            ioW.ChannelEmulationAction("Emulation", inMode, length, message.data(), true);
        }
    }
}

// Full sets: "Default" (no actions), then "Mode B" and "Mode C"; with
// inWithMIDI the "DAW" keyset of AppendMIDIKeyset comes first of them.
inline std::vector<uint8_t> EmulationKeysets(bool inWithMIDI = false) {
    CVXKeysetStreamWriter w;
    w.FullSetHeader(inWithMIDI ? 4 : 3);
    w.KeysetHeader("Default", kVXDefaultSignature);
    w.EmptyStrips();
    if (inWithMIDI) AppendMIDIKeyset(w);
    AppendEmulationKeyset(w, 2);
    AppendEmulationKeyset(w, 3);
    return w.Take();
}

// The editor's update of transport button inControl in keyset inKeyset: one
// MIDI action of kind inKind with the template inTemplate of inLength bytes.
inline std::vector<uint8_t> ButtonMIDIUpdate(uint32_t inKeyset, uint32_t inControl, uint32_t inKind,
                                             const SVXTemplate& inTemplate, uint16_t inLength = 3) {
    CVXKeysetStreamWriter w;
    w.ControlUpdateHeader(inKeyset, 0, inControl).ButtonControl("Button", "MIDI", false, 1);
    w.MIDIAction(inControl, "MIDI", inKind, inLength, inTemplate.data());
    w.SequenceFiller(1);
    return w.Take();
}

// Answers the host message mMatch with mAnswer (which may be empty), and
// logs every message it is asked about as "<name> <hex>" when given a log.
class CScriptedResponder : public CVX_MIDIResponderMixIn {
  public:
    CScriptedResponder(std::vector<uint8_t> inMatch, std::vector<uint8_t> inAnswer,
                       CEventLog* inLog = nullptr, std::string inName = "", bool inAccepts = true)
        : CVX_MIDIResponderMixIn(inAccepts),
          mMatch(std::move(inMatch)),
          mAnswer(std::move(inAnswer)),
          mLog(inLog),
          mName(std::move(inName)) {}
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outBytes, size_t inLength) override {
        if (mLog) {
            std::string line = mName;
            for (size_t i = 0; i < inLength; ++i) {
                static const char kDigits[] = "0123456789ABCDEF";
                line += {' ', kDigits[inMessage[i] >> 4], kDigits[inMessage[i] & 15]};
            }
            mLog->Add(std::move(line));
        }
        if (!std::equal(inMessage, inMessage + inLength, mMatch.begin(), mMatch.end())) return 0;
        std::copy(mAnswer.begin(), mAnswer.end(), outBytes);
        return mAnswer.size();
    }

  private:
    std::vector<uint8_t> mMatch, mAnswer;
    CEventLog* mLog;
    std::string mName;
};

// An emulation responder that answers no host MIDI and logs "wake <name>"
// ("wake" without a name) each time its keyset wakes, when given a log.
class CWakeLogger : public CVX_EmulationResponder {
  public:
    explicit CWakeLogger(CEventLog* inLog = nullptr, std::string inName = "")
        : mLog(inLog), mName(std::move(inName)) {}
    void FirstMessageToHost() override {
        if (mLog) mLog->Add(mName.empty() ? "wake" : "wake " + mName);
    }
    size_t UnmapMessage(const uint8_t*, uint8_t*, size_t) override { return 0; }

  private:
    CEventLog* mLog;
    std::string mName;
};
