// The protocol of every object that recognises host MIDI and answers it with
// device bytes (MIDI actions, channel MIDI actions, the emulation objects), and
// the one way in which actions send MIDI to the host. A responder that accepts
// MIDI registers itself, while its keyset is being built, with that keyset's
// unmapper (CMIDIUnmapper), which asks it about every host message.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/CCircularBuffer.h"
#include "output/CVX_Msg_Maker.h"

class CMIDIUnmapper;

// The room an answer of one responder may take: one message maker's bytes.
constexpr size_t kVXMaxResponderAnswer = CVX_Msg_Maker::kMessageSize;

// Room for the name that Name() writes.
constexpr size_t kVXResponderNameSize = 64;

class CVX_MIDIResponderMixIn {
  public:
    // A responder that accepts MIDI registers with the unmapper of the keyset
    // under construction (none: it is registered nowhere).
    explicit CVX_MIDIResponderMixIn(bool inAcceptsMIDI);
    // Leaves every list that holds it.
    virtual ~CVX_MIDIResponderMixIn();
    CVX_MIDIResponderMixIn(const CVX_MIDIResponderMixIn&) = delete;
    CVX_MIDIResponderMixIn& operator=(const CVX_MIDIResponderMixIn&) = delete;

    // inMessage is one complete host message of inLength bytes. Writes the
    // device bytes that answer it to outUnmappedMessage, which has room for
    // kVXMaxResponderAnswer bytes, and returns their number; 0 when the
    // message is not this responder's (or it answers with nothing).
    virtual size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                                size_t inLength) = 0;
    // A name for diagnostics, into kVXResponderNameSize bytes.
    virtual void Name(char* outName);
    // The device bytes that show inValue on the responder's control, at most
    // kVXMaxResponderAnswer of them; none here.
    virtual void GetNativeMessage(uint8_t inValue, uint8_t* outBuffer, size_t* outLength);

    bool AcceptsMIDI() const { return mAcceptsMIDI; }
    // The unmapper whose lists hold this responder, or null.
    CMIDIUnmapper* GetUnmapper() const { return mUnmapper; }

    void RegisterWithUnmapper();
    void RemoveFromUnmapper();

    // Sends the bytes to the host applications as one MIDI packet: 0, or a
    // negative errno-style status when nothing was sent (no MIDI output, or
    // more bytes than one packet list holds). Callers ignore it.
    static int MIDIToHost(const uint8_t* inBytes, size_t inLength);
    // Queues bytes for the host; HandleDeferedMIDI delivers them.
    static void DeferMessageToHost(const uint8_t* inBytes, size_t inLength);
    // Called on every tick of the driver's 10 ms timer: delivers at most one
    // 6-byte unit of deferred bytes, when it is a pair of control changes on
    // MIDI channel 1; any other unit is dropped.
    static void HandleDeferedMIDI();

    // A 1024-byte packet list holds its packet count (4 bytes), the packet's
    // time stamp (8) and length (2), and this many data bytes.
    static constexpr size_t kMaxBytesToHost = 1024 - 4 - 8 - 2;

  protected:
    bool mAcceptsMIDI;

  private:
    friend class CMIDIUnmapper;
    CMIDIUnmapper* mUnmapper = nullptr;

    static CCircularBuffer sDeferedMIDIBuffer;
};
