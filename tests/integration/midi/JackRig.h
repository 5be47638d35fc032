// What the MIDI tests and the latency benchmark share: a private JACK server
// on the dummy backend, started and stopped by the program itself, and a
// second JACK client that plays a host application (it reads the driver's
// source and writes to its destination). No gtest here: the benchmark uses it.
//
// The peer's process callback runs on JACK's real-time thread like the
// driver's, and follows the same rules: it only moves bytes through ring
// buffers, and the test reads them on its own thread.
#pragma once

#include "support/Spawn.h"

#include <fcntl.h>
#include <jack/jack.h>
#include <jack/midiport.h>
#include <jack/ringbuffer.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/loop/CVXSdEventLoop.h"

extern char** environ;

using Bytes = std::vector<uint8_t>;

// Starts inCommand (searched on PATH) with its output to inOutput and this
// process's environment less any preload (umockdev's, which the end-to-end
// tests run under, or a sanitizer's): the server and the tools are not what
// is tested. The child's pid, or 0.
inline pid_t SpawnTool(const std::vector<std::string>& inCommand, const std::string& inOutput) {
    return SpawnProcess(inCommand, EnvironmentWithout({"LD_PRELOAD=", "UMOCKDEV_DIR="}), inOutput);
}

// Runs inCommand to its end; its exit status, or -1.
inline int RunCommand(const std::vector<std::string>& inCommand,
                      const std::string& inOutput = "/dev/null") {
    const pid_t pid = SpawnTool(inCommand, inOutput);
    int status = 0;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Points this process's JACK clients (and the children it starts) at the
// server named inName, never starting one, for the scope's lifetime.
class CJackServerScope {
  public:
    explicit CJackServerScope(const std::string& inName) {
        if (const char* old = std::getenv("JACK_DEFAULT_SERVER")) mOld = old;
        setenv("JACK_DEFAULT_SERVER", inName.c_str(), 1);
        setenv("JACK_NO_START_SERVER", "1", 1);
    }
    ~CJackServerScope() {
        if (mOld.empty())
            unsetenv("JACK_DEFAULT_SERVER");
        else
            setenv("JACK_DEFAULT_SERVER", mOld.c_str(), 1);
    }
    CJackServerScope(const CJackServerScope&) = delete;
    CJackServerScope& operator=(const CJackServerScope&) = delete;

  private:
    std::string mOld;
};

// A name no server of this machine has.
inline std::string NoJackServer() {
    return "vx-nobody-" + std::to_string(getpid());
}

// `jackd --no-realtime -n <name> -d dummy -r 48000 -p 256`: 256-frame
// periods at 48 kHz, a cycle every 5.3 ms, run by the dummy backend's timer.
//
// Tests run it synchronous (-S): each cycle waits for its clients. Without
// real-time scheduling, a machine busy with other tests can leave a client's
// thread unscheduled past its cycle; an asynchronous server then reports an
// xrun every cycle and may stop running the client for seconds, where a
// synchronous one only stretches the cycle. What is tested (what a cycle
// carries) is the same either way; the benchmark measures the asynchronous
// server, a user's default.
class CJackServer {
  public:
    static constexpr jack_nframes_t kPeriod = 256;

    explicit CJackServer(std::string inName = "vx-test-" + std::to_string(getpid()),
                         bool inSynchronous = true)
        : mName(std::move(inName)), mSynchronous(inSynchronous), mScope(mName) {}
    ~CJackServer() { Stop(); }
    CJackServer(const CJackServer&) = delete;
    CJackServer& operator=(const CJackServer&) = delete;

    // Starts the server and waits until `jack_lsp` answers, asking every
    // 10 ms (jack_wait asks once a second); false after 10 s or if jackd
    // ended. Its output goes to inLog.
    bool Start(const std::string& inLog = "/dev/null") {
        std::vector<std::string> command = {"jackd", "--no-realtime", "-n", mName};
        if (mSynchronous) command.push_back("-S");
        for (const char* a : {"-d", "dummy", "-r", "48000", "-p"}) command.push_back(a);
        command.push_back(std::to_string(kPeriod));
        mPid = SpawnTool(command, inLog);
        if (mPid <= 0) return false;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (waitpid(mPid, nullptr, WNOHANG) == mPid) {
                mPid = 0;  // jackd gave up
                return false;
            }
            if (RunCommand({"jack_lsp"}) == 0) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    // Ends the server (SIGTERM) and waits for it. A server that ends under
    // its clients leaves their semaphores in /dev/shm; those of this private
    // server go with it.
    void Stop() {
        if (mPid <= 0) return;
        kill(mPid, SIGTERM);
        waitpid(mPid, nullptr, 0);
        mPid = 0;
        const std::string infix = "_" + mName + "_";
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", error)) {
            const std::string file = entry.path().filename().string();
            if (file.rfind("jack_sem.", 0) == 0 && file.find(infix) != std::string::npos)
                std::filesystem::remove(entry.path(), error);
        }
    }

    const std::string& Name() const { return mName; }
    bool Running() const { return mPid > 0; }

  private:
    std::string mName;
    bool mSynchronous;
    CJackServerScope mScope;
    pid_t mPid = 0;
};

// One server for every test of a program that needs one, started on first
// use and ended at exit; nullptr when it would not start. (The test that ends
// a server starts one of its own.)
inline CJackServer* SharedJackServer() {
    static CJackServer server;
    static const bool started = server.Start();
    return started && server.Running() ? &server : nullptr;
}

// The host application: a client with a MIDI input port "in" and an output
// port "out".
class CJackPeer {
  public:
    struct SEvent {
        uint64_t cycle;        // the peer's cycle it arrived in, counted from 1
        jack_nframes_t frame;  // the frame time at which that cycle began
        Bytes bytes;
    };

    CJackPeer() = default;
    ~CJackPeer() { Close(); }
    CJackPeer(const CJackPeer&) = delete;
    CJackPeer& operator=(const CJackPeer&) = delete;

    bool Open(const char* inName = "vx test host") {
        mClient = jack_client_open(inName, JackNoStartServer, nullptr);
        if (!mClient) return false;
        mIn = jack_port_register(mClient, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
        mOut = jack_port_register(mClient, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
        mReceived = jack_ringbuffer_create(1 << 18);
        mToSend = jack_ringbuffer_create(1 << 16);
        if (!mIn || !mOut || !mReceived || !mToSend) return false;
        jack_set_process_callback(mClient, OnProcess, this);
        return jack_activate(mClient) == 0;
    }
    void Close() {
        if (mClient) jack_client_close(mClient);
        mClient = nullptr;
        if (mReceived) jack_ringbuffer_free(mReceived);
        if (mToSend) jack_ringbuffer_free(mToSend);
        mReceived = mToSend = nullptr;
    }

    // Reads inSource into "in" and writes "out" to inDestination.
    bool Connect(const char* inSource, const char* inDestination) {
        return jack_connect(mClient, inSource, jack_port_name(mIn)) == 0 &&
               jack_connect(mClient, jack_port_name(mOut), inDestination) == 0;
    }

    // Queues inEvents to go out together in one cycle, in order.
    bool SendCycle(const std::vector<Bytes>& inEvents) {
        uint32_t header[2] = {0, uint32_t(inEvents.size())};
        for (const Bytes& e : inEvents) header[0] += uint32_t(sizeof(uint32_t) + e.size());
        if (jack_ringbuffer_write_space(mToSend) < sizeof header + header[0]) return false;
        jack_ringbuffer_write(mToSend, reinterpret_cast<const char*>(header), sizeof header);
        for (const Bytes& e : inEvents) {
            const uint32_t length = uint32_t(e.size());
            jack_ringbuffer_write(mToSend, reinterpret_cast<const char*>(&length), sizeof length);
            jack_ringbuffer_write(mToSend, reinterpret_cast<const char*>(e.data()), e.size());
        }
        return true;
    }

    // The events received since the last call, in order.
    std::vector<SEvent> Take() {
        std::vector<SEvent> events;
        SReceived header;
        while (jack_ringbuffer_read_space(mReceived) >= sizeof header) {
            jack_ringbuffer_read(mReceived, reinterpret_cast<char*>(&header), sizeof header);
            SEvent e{header.cycle, header.frame, Bytes(header.length)};
            jack_ringbuffer_read(mReceived, reinterpret_cast<char*>(e.bytes.data()), header.length);
            events.push_back(std::move(e));
        }
        return events;
    }

    // Cycles run so far; the next one to start is Cycles() + 1.
    uint64_t Cycles() const { return mCycles.load(); }
    // Events JACK could not give the peer (its ring was full).
    uint64_t Lost() const { return mLost.load(); }
    // The full names of the ports of this server that match inPattern.
    std::vector<std::string> Ports(const char* inPattern) const {
        std::vector<std::string> names;
        if (const char** ports = jack_get_ports(mClient, inPattern, nullptr, 0)) {
            for (const char** p = ports; *p; ++p) names.push_back(*p);
            jack_free(ports);
        }
        return names;
    }
    jack_client_t* Native() const { return mClient; }

  private:
    // Ahead of each event's bytes in the ring of what arrived.
    struct SReceived {
        uint64_t cycle;
        jack_nframes_t frame;
        uint32_t length;
    };

    static int OnProcess(jack_nframes_t inFrames, void* inSelf) {
        auto* self = static_cast<CJackPeer*>(inSelf);
        const uint64_t cycle = self->mCycles.load(std::memory_order_relaxed) + 1;
        const jack_nframes_t frame = jack_last_frame_time(self->mClient);
        void* in = jack_port_get_buffer(self->mIn, inFrames);
        jack_midi_event_t event;
        for (uint32_t i = 0, n = jack_midi_get_event_count(in); i < n; ++i) {
            if (jack_midi_event_get(&event, in, i) != 0) continue;
            const SReceived header{cycle, frame, uint32_t(event.size)};
            if (jack_ringbuffer_write_space(self->mReceived) < sizeof header + event.size) {
                self->mLost.fetch_add(1);
                continue;
            }
            jack_ringbuffer_write(self->mReceived, reinterpret_cast<const char*>(&header),
                                  sizeof header);
            jack_ringbuffer_write(self->mReceived, reinterpret_cast<const char*>(event.buffer),
                                  event.size);
        }
        void* out = jack_port_get_buffer(self->mOut, inFrames);
        jack_midi_clear_buffer(out);
        uint32_t header[2];
        const size_t queued = jack_ringbuffer_read_space(self->mToSend);
        if (queued >= sizeof header &&
            (jack_ringbuffer_peek(self->mToSend, reinterpret_cast<char*>(header), sizeof header),
             queued - sizeof header >= header[0])) {
            jack_ringbuffer_read_advance(self->mToSend, sizeof header);
            for (uint32_t i = 0; i < header[1]; ++i) {
                uint32_t length = 0;
                jack_ringbuffer_read(self->mToSend, reinterpret_cast<char*>(&length),
                                     sizeof length);
                jack_midi_data_t* slot = jack_midi_event_reserve(out, 0, length);
                if (slot)
                    jack_ringbuffer_read(self->mToSend, reinterpret_cast<char*>(slot), length);
                else
                    jack_ringbuffer_read_advance(self->mToSend, length);
            }
        }
        // Published last: a reader that sees cycle n sees its events.
        self->mCycles.store(cycle);
        return 0;
    }

    jack_client_t* mClient = nullptr;
    jack_port_t* mIn = nullptr;
    jack_port_t* mOut = nullptr;
    jack_ringbuffer_t* mReceived = nullptr;
    jack_ringbuffer_t* mToSend = nullptr;
    std::atomic<uint64_t> mCycles{0};
    std::atomic<uint64_t> mLost{0};
};

// Runs inLoop until inDone() holds; false after a generous 10 s. The deadline
// only ends a run that would otherwise hang.
inline bool RunUntil(CVXSdEventLoop& inLoop, const std::function<bool()>& inDone) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!inDone()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        sd_event_run(inLoop.Native(), 5000);
    }
    return true;
}
