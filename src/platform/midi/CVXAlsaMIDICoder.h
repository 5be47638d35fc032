// Sequencer events to and from MIDI bytes with ALSA's MIDI event coder. It
// works in user space alone, without a sequencer, so the conversion is the
// same on every machine and can be checked anywhere.
#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

class CVXAlsaMIDICoder {
  public:
    // System-exclusive messages leave in events of at most this many bytes, as
    // ALSA's own MIDI bridges cut them: one large event could need more of
    // the kernel's event pool than a client has.
    static constexpr size_t kSysexChunk = 256;
    // The largest event read back. The kernel bounds events by its pool long
    // before this; the bound keeps a corrupt length from asking for gigabytes.
    static constexpr size_t kMaxDecoded = 1 << 20;

    CVXAlsaMIDICoder();
    ~CVXAlsaMIDICoder();
    CVXAlsaMIDICoder(const CVXAlsaMIDICoder&) = delete;
    CVXAlsaMIDICoder& operator=(const CVXAlsaMIDICoder&) = delete;

    bool Valid() const { return mEncoder != nullptr && mDecoder != nullptr; }

    // The events that carry inBytes (cut as VXCutMIDIMessages cuts them), in
    // order; each is complete but for its source, destination and queue. A
    // system-exclusive event points into a buffer that lasts for the call.
    void Encode(const uint8_t* inBytes, size_t inLength,
                const std::function<void(snd_seq_event_t&)>& inEvent);
    // The bytes of one event, each with its own status byte; false (and
    // outBytes empty) for an event that carries no MIDI message (a port
    // announcement, a queue control) or one larger than kMaxDecoded.
    bool Decode(const snd_seq_event_t& inEvent, std::vector<uint8_t>& outBytes);

  private:
    snd_midi_event_t* mEncoder = nullptr;
    snd_midi_event_t* mDecoder = nullptr;
};
