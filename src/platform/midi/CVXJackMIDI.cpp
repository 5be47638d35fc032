#include "platform/midi/CVXJackMIDI.h"

#include <jack/jack.h>
#include <jack/midiport.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include "platform/VXDiagnostics.h"
#include "platform/midi/VXMIDIMessages.h"

namespace {

// libjack prints on standard error, from any of its threads ("Cannot connect
// to server socket" on every machine without a server). The driver says
// what matters in its own words, on standard output, so the library is kept
// quiet.
void Silent(const char*) {}
void QuietJack() {
    jack_set_error_function(Silent);
    jack_set_info_function(Silent);
}

constexpr unsigned long kPortFlags = JackPortIsPhysical | JackPortIsTerminal;

}  // namespace

CVXJackMIDI::CVXJackMIDI(CVXEventLoop& inLoop) : mLoop(inLoop) {}

CVXJackMIDI::~CVXJackMIDI() {
    SignOut();
}

int CVXJackMIDI::Probe() {
    QuietJack();
    jack_status_t status{};
    jack_client_t* client = jack_client_open("vxd probe", JackNoStartServer, &status);
    if (!client) return -ECONNREFUSED;
    jack_client_close(client);
    return 0;
}

int CVXJackMIDI::SignIn(const char* inClientName, const char* inSourceName,
                        const char* inDestinationName, CVXHostMIDIIn* inReceiver) {
    if (mClient || mWakeup) return -EBUSY;
    QuietJack();
    jack_status_t status{};
    mClient = jack_client_open(inClientName, jack_options_t(JackNoStartServer | JackUseExactName),
                               &status);
    if (!mClient) {
        if (status & JackServerFailed) return -ECONNREFUSED;
        // jackd2 answers a name already taken with a plain server error.
        return (status & JackNameNotUnique) ? -EEXIST : -EIO;
    }

    int result = 0;
    mToHost = jack_ringbuffer_create(kRingBytes);
    mFromHost = jack_ringbuffer_create(kRingBytes);
    mWakeup = mLoop.AddWakeup([this] { Deliver(); });
    if (!mToHost || !mFromHost || !mWakeup) {
        result = -ENOMEM;
    } else {
        // Best effort: without the privilege to lock memory the rings may
        // page, which costs time but loses nothing.
        jack_ringbuffer_mlock(mToHost);
        jack_ringbuffer_mlock(mFromHost);
        mSource = jack_port_register(mClient, inSourceName, JACK_DEFAULT_MIDI_TYPE,
                                     JackPortIsOutput | kPortFlags, 0);
        mDestination = jack_port_register(mClient, inDestinationName, JACK_DEFAULT_MIDI_TYPE,
                                          JackPortIsInput | kPortFlags, 0);
        if (!mSource || !mDestination || jack_set_process_callback(mClient, OnProcess, this) != 0)
            result = -EIO;
    }
    if (result == 0) {
        jack_on_shutdown(mClient, OnShutdown, this);
        if (jack_activate(mClient) != 0) result = -EIO;
    }
    if (result != 0) {
        SignOut();
        return result;
    }
    mReceiver = inReceiver;
    return 0;
}

void CVXJackMIDI::Close() {
    // Closing stops the process callback and JACK's other threads first, so
    // nothing touches the rings or the wake-up after it.
    if (mClient) jack_client_close(mClient);
    mClient = nullptr;
    mSource = mDestination = nullptr;
}

void CVXJackMIDI::CloseAbandoned() {
    // Once its server has gone, libjack's own thread may still hold a lock
    // that jack_client_close waits for, and then the close never returns (seen
    // now and then when the server is killed under load). The driver must not
    // hang on it: the close runs on a thread of its own, and a client that has
    // not closed after a while is left behind with that thread. No callback
    // comes from a client whose server is gone.
    jack_client_t* client = mClient;
    mClient = nullptr;
    mSource = mDestination = nullptr;
    auto closed = std::make_shared<std::promise<void>>();
    std::future<void> done = closed->get_future();
    std::thread([client, closed] {
        jack_client_close(client);
        closed->set_value();
    }).detach();
    if (done.wait_for(kAbandonedCloseLimit) != std::future_status::ready) {
        VXDiagnostic("JACK: the client of the server that went away did not close; left behind\n");
    }
}

void CVXJackMIDI::SignOut() {
    Close();
    mLoop.RemoveWakeup(mWakeup);
    mWakeup = nullptr;
    if (mToHost) jack_ringbuffer_free(mToHost);
    if (mFromHost) jack_ringbuffer_free(mFromHost);
    mToHost = mFromHost = nullptr;
    mReceiver = nullptr;
    mServerGone = false;
    mLostCycles = 0;
    mOversized = 0;
}

const char* CVXJackMIDI::SourceName() const {
    return mSource ? jack_port_name(mSource) : "";
}

const char* CVXJackMIDI::DestinationName() const {
    return mDestination ? jack_port_name(mDestination) : "";
}

void CVXJackMIDI::Send(const uint8_t* inBytes, size_t inLength) {
    if (!mClient) return;
    VXCutMIDIMessages(inBytes, inLength, [this](const uint8_t* inMessage, size_t inSize) {
        const uint32_t length = uint32_t(inSize);
        // The callback takes a record only once it is whole, so the length
        // and the bytes may go in one after the other.
        if (jack_ringbuffer_write_space(mToHost) < sizeof length + inSize) {
            VXDiagnostic("JACK: no room for %zu bytes of MIDI to host applications: dropped\n",
                         inSize);
            return;
        }
        jack_ringbuffer_write(mToHost, reinterpret_cast<const char*>(&length), sizeof length);
        jack_ringbuffer_write(mToHost, reinterpret_cast<const char*>(inMessage), inSize);
    });
}

// --- the real-time thread -------------------------------------------------

int CVXJackMIDI::OnProcess(jack_nframes_t inFrames, void* inSelf) {
    auto* self = static_cast<CVXJackMIDI*>(inSelf);
    bool wake = self->MoveToHost(inFrames);
    wake = self->MoveFromHost(inFrames) || wake;
    if (wake) self->mWakeup->Wake();
    return 0;
}

bool CVXJackMIDI::MoveToHost(jack_nframes_t inFrames) {
    void* buffer = jack_port_get_buffer(mSource, inFrames);
    jack_midi_clear_buffer(buffer);
    bool dropped = false;
    // Everything queued before this cycle leaves at its first frame, in the
    // order it was sent.
    for (;;) {
        const size_t available = jack_ringbuffer_read_space(mToHost);
        uint32_t length = 0;
        if (available < sizeof length) break;
        jack_ringbuffer_peek(mToHost, reinterpret_cast<char*>(&length), sizeof length);
        if (available - sizeof length < length) break;  // still being written
        jack_midi_data_t* slot = jack_midi_event_reserve(buffer, 0, length);
        if (!slot) {
            // The port buffer is full: the rest waits for the next cycle. A
            // message that does not fit even an empty buffer never will, and
            // would hold up everything behind it.
            if (jack_midi_get_event_count(buffer) > 0) break;
            jack_ringbuffer_read_advance(mToHost, sizeof length + length);
            mOversized.fetch_add(1, std::memory_order_relaxed);
            dropped = true;
            continue;
        }
        jack_ringbuffer_read_advance(mToHost, sizeof length);
        jack_ringbuffer_read(mToHost, reinterpret_cast<char*>(slot), length);
    }
    return dropped;
}

bool CVXJackMIDI::MoveFromHost(jack_nframes_t inFrames) {
    void* buffer = jack_port_get_buffer(mDestination, inFrames);
    const uint32_t count = jack_midi_get_event_count(buffer);
    if (count == 0) return false;
    SCycleHeader header{0, 0};
    jack_midi_event_t event;
    for (uint32_t i = 0; i < count; ++i) {
        if (jack_midi_event_get(&event, buffer, i) != 0) continue;
        header.bytes += uint32_t(sizeof(uint32_t) + event.size);
        ++header.events;
    }
    // The cycle goes whole or not at all: a packet list is never cut.
    if (jack_ringbuffer_write_space(mFromHost) < sizeof header + header.bytes) {
        mLostCycles.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    jack_ringbuffer_write(mFromHost, reinterpret_cast<const char*>(&header), sizeof header);
    for (uint32_t i = 0; i < count; ++i) {
        if (jack_midi_event_get(&event, buffer, i) != 0) continue;
        const uint32_t length = uint32_t(event.size);
        jack_ringbuffer_write(mFromHost, reinterpret_cast<const char*>(&length), sizeof length);
        jack_ringbuffer_write(mFromHost, reinterpret_cast<const char*>(event.buffer), length);
    }
    return true;
}

void CVXJackMIDI::OnShutdown(void* inSelf) {
    // On one of JACK's threads, as in a signal handler: flag it and wake.
    auto* self = static_cast<CVXJackMIDI*>(inSelf);
    self->mServerGone = true;
    self->mWakeup->Wake();
}

// --- the loop thread ------------------------------------------------------

void CVXJackMIDI::ReportDrops() {
    if (const uint32_t lost = mLostCycles.exchange(0))
        VXDiagnostic("JACK: host MIDI of %u cycles lost: the driver fell behind\n", lost);
    if (const uint32_t big = mOversized.exchange(0))
        VXDiagnostic("JACK: %u messages to host applications too large for a port: dropped\n", big);
}

void CVXJackMIDI::Deliver() {
    ReportDrops();
    SCycleHeader header;
    while (mFromHost && jack_ringbuffer_read_space(mFromHost) >= sizeof header) {
        jack_ringbuffer_peek(mFromHost, reinterpret_cast<char*>(&header), sizeof header);
        if (jack_ringbuffer_read_space(mFromHost) - sizeof header < header.bytes) break;
        jack_ringbuffer_read_advance(mFromHost, sizeof header);
        mCycle.resize(header.bytes);
        jack_ringbuffer_read(mFromHost, reinterpret_cast<char*>(mCycle.data()), header.bytes);
        mPackets.clear();
        size_t at = 0;
        for (uint32_t i = 0; i < header.events && mCycle.size() - at >= sizeof(uint32_t); ++i) {
            uint32_t length = 0;
            std::memcpy(&length, mCycle.data() + at, sizeof length);
            at += sizeof length;
            if (length > mCycle.size() - at) break;  // never past the record
            mPackets.push_back({mCycle.data() + at, length});
            at += length;
        }
        if (mReceiver) mReceiver->DoMIDIReadProc(mPackets);
    }
    // What the server delivered before it went is in; then the ports go.
    if (mServerGone && mClient) {
        VXDiagnostic("JACK server went away: MIDI ports gone\n");
        CloseAbandoned();
    }
}
