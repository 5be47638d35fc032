#include "platform/midi/CVXAlsaMIDICoder.h"

#include <algorithm>

#include "platform/midi/VXMIDIMessages.h"

namespace {
// Room for the longest message that is not system-exclusive (three bytes).
constexpr size_t kEncoderBuffer = 16;
}  // namespace

CVXAlsaMIDICoder::CVXAlsaMIDICoder() {
    if (snd_midi_event_new(kEncoderBuffer, &mEncoder) < 0) mEncoder = nullptr;
    if (snd_midi_event_new(0, &mDecoder) < 0) mDecoder = nullptr;
    // Every event is a packet of its own: the bytes of each must begin with
    // their status, not rely on the event before.
    if (mDecoder) snd_midi_event_no_status(mDecoder, 1);
}

CVXAlsaMIDICoder::~CVXAlsaMIDICoder() {
    if (mEncoder) snd_midi_event_free(mEncoder);
    if (mDecoder) snd_midi_event_free(mDecoder);
}

void CVXAlsaMIDICoder::Encode(const uint8_t* inBytes, size_t inLength,
                              const std::function<void(snd_seq_event_t&)>& inEvent) {
    if (!Valid()) return;
    VXCutMIDIMessages(inBytes, inLength, [&](const uint8_t* inMessage, size_t inSize) {
        snd_seq_event_t event;
        if (inMessage[0] == 0xF0) {
            // The encoder would hold a system-exclusive message cut short
            // until an F7 that never comes; chunked here, all of it leaves.
            for (size_t at = 0; at < inSize; at += kSysexChunk) {
                snd_seq_ev_clear(&event);
                snd_seq_ev_set_sysex(&event, unsigned(std::min(kSysexChunk, inSize - at)),
                                     const_cast<uint8_t*>(inMessage + at));
                inEvent(event);
            }
            return;
        }
        // One whole message: the encoder starts afresh and ends with its event
        // (none for the undefined system common bytes, which ALSA has no
        // event for).
        snd_midi_event_reset_encode(mEncoder);
        snd_seq_ev_clear(&event);
        if (snd_midi_event_encode(mEncoder, inMessage, long(inSize), &event) == long(inSize) &&
            event.type != SND_SEQ_EVENT_NONE)
            inEvent(event);
    });
}

bool CVXAlsaMIDICoder::Decode(const snd_seq_event_t& inEvent, std::vector<uint8_t>& outBytes) {
    outBytes.clear();
    if (!Valid()) return false;
    size_t room = 16;  // the longest fixed-size event decodes to twelve bytes (an RPN)
    if (inEvent.type == SND_SEQ_EVENT_SYSEX) {
        if (inEvent.data.ext.len > kMaxDecoded) return false;
        room = std::max<size_t>(room, inEvent.data.ext.len);
    }
    outBytes.resize(room);
    snd_midi_event_reset_decode(mDecoder);
    const long length = snd_midi_event_decode(mDecoder, outBytes.data(), long(room), &inEvent);
    if (length <= 0) {
        outBytes.clear();
        return false;
    }
    outBytes.resize(size_t(length));
    return true;
}
