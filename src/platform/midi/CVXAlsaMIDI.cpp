#include "platform/midi/CVXAlsaMIDI.h"

#include <alsa/asoundlib.h>
#include <poll.h>
#include <sys/epoll.h>

#include <cerrno>

#include "platform/VXDiagnostics.h"
#include "platform/midi/CVXAlsaMIDICoder.h"

namespace {

// alsa-lib prints its own errors on standard error ("open /dev/snd/seq
// failed" on every machine without a sequencer). The driver says what matters
// in its own words, on standard output, so the library is kept quiet.
void Silent(const char*, int, const char*, int, const char*, ...) {}

snd_seq_t* Open(int& outStatus) {
    snd_lib_error_set_handler(Silent);
    snd_seq_t* seq = nullptr;
    outStatus = snd_seq_open(&seq, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK);
    return outStatus < 0 ? nullptr : seq;
}

// Readable or writable by subscription, and of a MIDI device's hardware, as
// hosts that list only hardware ports look for.
constexpr unsigned kPortType = SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_HARDWARE;

}  // namespace

CVXAlsaMIDI::CVXAlsaMIDI(CVXEventLoop& inLoop) : mLoop(inLoop) {}

CVXAlsaMIDI::~CVXAlsaMIDI() {
    SignOut();
}

int CVXAlsaMIDI::Probe() {
    int status = 0;
    if (snd_seq_t* seq = Open(status)) snd_seq_close(seq);
    return status;
}

int CVXAlsaMIDI::Client() const {
    return mSeq ? snd_seq_client_id(mSeq) : -1;
}

int CVXAlsaMIDI::SignIn(const char* inClientName, const char* inSourceName,
                        const char* inDestinationName, CVXHostMIDIIn* inReceiver) {
    if (mSeq) return -EBUSY;
    int status = 0;
    mSeq = Open(status);
    if (!mSeq) return status;
    mCoder = std::make_unique<CVXAlsaMIDICoder>();
    if (!mCoder->Valid()) status = -ENOMEM;
    if (status == 0) status = snd_seq_set_client_name(mSeq, inClientName);
    if (status == 0) {
        mSource = snd_seq_create_simple_port(
            mSeq, inSourceName, SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ, kPortType);
        if (mSource < 0) status = mSource;
    }
    if (status == 0) {
        mDestination = snd_seq_create_simple_port(
            mSeq, inDestinationName, SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
            kPortType);
        if (mDestination < 0) status = mDestination;
    }
    if (status == 0) {
        // The descriptors that say input is waiting; for output the driver
        // never waits.
        const int count = snd_seq_poll_descriptors_count(mSeq, POLLIN);
        std::vector<pollfd> fds(size_t(count > 0 ? count : 0));
        const int filled = snd_seq_poll_descriptors(mSeq, fds.data(), unsigned(fds.size()), POLLIN);
        for (int i = 0; i < filled; ++i) {
            const CVXEventLoop::WatchId watch =
                mLoop.AddIOWatch(fds[size_t(i)].fd, EPOLLIN, [this](uint32_t) { Receive(); });
            if (!watch) {
                status = -ENOMEM;
                break;
            }
            mWatches.push_back(watch);
        }
        if (filled <= 0 && status == 0) status = -EIO;
    }
    if (status != 0) {
        SignOut();
        return status;
    }
    mReceiver = inReceiver;
    return 0;
}

void CVXAlsaMIDI::SignOut() {
    for (CVXEventLoop::WatchId watch : mWatches) mLoop.RemoveIOWatch(watch);
    mWatches.clear();
    if (mSeq) snd_seq_close(mSeq);  // the ports go with the client
    mSeq = nullptr;
    mSource = mDestination = -1;
    mCoder.reset();
    mReceiver = nullptr;
}

void CVXAlsaMIDI::Send(const uint8_t* inBytes, size_t inLength) {
    if (!mSeq) return;
    mCoder->Encode(inBytes, inLength, [this](snd_seq_event_t& ioEvent) {
        snd_seq_ev_set_source(&ioEvent, static_cast<unsigned char>(mSource));
        snd_seq_ev_set_subs(&ioEvent);
        snd_seq_ev_set_direct(&ioEvent);
        const int status = snd_seq_event_output_direct(mSeq, &ioEvent);
        if (status < 0)
            VXDiagnostic("ALSA sequencer refused MIDI for host applications (%d): dropped\n",
                         status);
    });
}

void CVXAlsaMIDI::Receive() {
    while (mSeq) {
        snd_seq_event_t* event = nullptr;
        const int status = snd_seq_event_input(mSeq, &event);
        if (status == -EAGAIN) return;
        if (status == -ENOSPC) {
            // The kernel's queue for this client overflowed: what it held is
            // gone, and what comes next is read as usual.
            VXDiagnostic("ALSA sequencer input overran: host MIDI lost\n");
            continue;
        }
        if (status < 0) {
            VXDiagnostic("ALSA sequencer input failed (%d)\n", status);
            return;
        }
        if (!event || event->dest.port != mDestination) continue;
        if (!mCoder->Decode(*event, mBytes)) continue;  // not a MIDI message
        const SVXMIDIPacket packet{mBytes.data(), mBytes.size()};
        if (mReceiver) mReceiver->DoMIDIReadProc({&packet, 1});
    }
}
