// The driver's MIDI ports on the ALSA sequencer: a client with a readable port
// (the source, which host applications subscribe to) and a writable one (the
// destination). Both are marked as a MIDI device's hardware ports, so that
// hosts that list only hardware offer them. The sequencer's descriptors are
// loop watches; every event a host sends to the destination is one packet
// list of one packet, delivered on the loop thread.
#pragma once

#include <memory>
#include <vector>

#include "platform/CVXEventLoop.h"
#include "platform/CVXMIDISystem.h"

struct _snd_seq;
class CVXAlsaMIDICoder;

class CVXAlsaMIDI final : public CVXMIDISystem {
  public:
    explicit CVXAlsaMIDI(CVXEventLoop& inLoop);
    ~CVXAlsaMIDI() override;
    CVXAlsaMIDI(const CVXAlsaMIDI&) = delete;
    CVXAlsaMIDI& operator=(const CVXAlsaMIDI&) = delete;

    // Whether this machine has a sequencer: 0 when snd_seq_open succeeds, or
    // its negative status (-ENOENT without /dev/snd/seq).
    static int Probe();

    // The sequencer's own status when it cannot be opened or a port cannot be
    // made; -EBUSY when signed in already.
    int SignIn(const char* inClientName, const char* inSourceName, const char* inDestinationName,
               CVXHostMIDIIn* inReceiver) override;
    void SignOut() override;
    // Straight to the subscribers of the source, never waiting: what the
    // kernel has no room for is dropped with a message.
    void Send(const uint8_t* inBytes, size_t inLength) override;
    const char* Name() const override { return "ALSA"; }

    // While signed in: the sequencer addresses of the ports (-1 otherwise).
    int Client() const;
    int SourcePort() const { return mSource; }
    int DestinationPort() const { return mDestination; }

  private:
    void Receive();

    CVXEventLoop& mLoop;
    _snd_seq* mSeq = nullptr;
    int mSource = -1;
    int mDestination = -1;
    std::unique_ptr<CVXAlsaMIDICoder> mCoder;
    std::vector<CVXEventLoop::WatchId> mWatches;
    CVXHostMIDIIn* mReceiver = nullptr;
    std::vector<uint8_t> mBytes;  // one event's bytes, reused
};
