// The driver's MIDI ports on a JACK server (or PipeWire's JACK library): one
// client with a MIDI output port (the source) and a MIDI input port (the
// destination), both marked physical and terminal, as a MIDI device's ports
// are, so that hosts that list only hardware offer them.
//
// Threads: JACK calls the process callback on its real-time thread. That
// callback only moves bytes: what Send() queued goes from a ring buffer into
// the output port at the start of the cycle, and the events that arrived at
// the input port go, as one record per cycle, into a second ring buffer; then
// it wakes the loop. Everything else (Send, cutting records into packet lists,
// the receiver, diagnostics) runs on the loop thread. The callback neither
// allocates, nor locks, nor prints; what it could not carry it counts, and the
// loop reports the counts.
#pragma once

#include <jack/ringbuffer.h>
#include <jack/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <vector>

#include "platform/CVXEventLoop.h"
#include "platform/CVXMIDISystem.h"

class CVXJackMIDI final : public CVXMIDISystem {
  public:
    // Bytes each way between the loop and the process callback: a few hundred
    // cycles of busy fader traffic, or a few long system-exclusive messages.
    static constexpr size_t kRingBytes = 1 << 16;

    explicit CVXJackMIDI(CVXEventLoop& inLoop);
    ~CVXJackMIDI() override;
    CVXJackMIDI(const CVXJackMIDI&) = delete;
    CVXJackMIDI& operator=(const CVXJackMIDI&) = delete;

    // Whether a JACK server answers (the default one, or $JACK_DEFAULT_SERVER),
    // without starting one: 0, or a negative status. The probe is a client of
    // its own that is closed at once.
    static int Probe();

    // Opens the client under its exact name, never starting a server:
    // -ECONNREFUSED when no server answers; -EIO when the server refuses the
    // client (jackd2 does so for a name already taken; a server that says so
    // gives -EEXIST), or a port or the activation fails; -EBUSY when signed
    // in already.
    int SignIn(const char* inClientName, const char* inSourceName, const char* inDestinationName,
               CVXHostMIDIIn* inReceiver) override;
    void SignOut() override;
    // Queues the bytes for the next cycle, one event per message (as
    // VXCutMIDIMessages cuts them); never blocks. A message the ring has no
    // room for is dropped with a message.
    void Send(const uint8_t* inBytes, size_t inLength) override;
    const char* Name() const override { return "JACK"; }

    // Signed in, and the server still there.
    bool Connected() const { return mClient != nullptr; }
    // The full names ("client:port") of the ports, empty when not connected.
    const char* SourceName() const;
    const char* DestinationName() const;

  private:
    // One cycle's events in the ring from the callback: this header, then
    // per event its length (uint32_t) and bytes.
    struct SCycleHeader {
        uint32_t bytes;  // what follows the header
        uint32_t events;
    };

    static int OnProcess(jack_nframes_t inFrames, void* inSelf);
    static void OnShutdown(void* inSelf);
    // Each answers whether the loop has something to do.
    bool MoveToHost(jack_nframes_t inFrames);
    bool MoveFromHost(jack_nframes_t inFrames);
    // On the loop thread, after a wake-up.
    void Deliver();
    void ReportDrops();
    void Close();
    // Close() for a client whose server has gone, which libjack may never
    // finish: bounded by kAbandonedCloseLimit.
    void CloseAbandoned();
    static constexpr std::chrono::seconds kAbandonedCloseLimit{2};

    CVXEventLoop& mLoop;
    jack_client_t* mClient = nullptr;
    jack_port_t* mSource = nullptr;
    jack_port_t* mDestination = nullptr;
    jack_ringbuffer_t* mToHost = nullptr;    // loop -> process callback
    jack_ringbuffer_t* mFromHost = nullptr;  // process callback -> loop
    CVXWakeup* mWakeup = nullptr;
    CVXHostMIDIIn* mReceiver = nullptr;
    std::vector<uint8_t> mCycle;  // one cycle's record, reused
    std::vector<SVXMIDIPacket> mPackets;

    // Set by the real-time and JACK's own threads, read by the loop.
    std::atomic<bool> mServerGone{false};
    std::atomic<uint32_t> mLostCycles{0};  // host MIDI the ring had no room for
    std::atomic<uint32_t> mOversized{0};   // messages no port buffer can hold
};
