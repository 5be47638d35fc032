#include "platform/loop/CVXSdEventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "platform/VXDiagnostics.h"

// The record owns the callback. It stays alive while its callback runs, even
// when that callback removes the watch, and is freed once the callback returns.
struct CVXSdEventLoop::SWatch {
    CVXSdEventLoop* loop = nullptr;
    WatchId id = 0;
    sd_event_source* source = nullptr;
    IOCallback callback;
    bool dispatching = false;
    bool released = false;
};

// The handle another thread wakes through. It holds only the fd: the callback
// lives in the eventfd's watch, so that a wake-up removed from inside its own
// callback is kept alive and freed exactly as a watch is.
class CVXSdEventLoop::CWakeup final : public CVXWakeup {
  public:
    explicit CWakeup(int inFd) : fd(inFd) {}

    void Wake() override {
        const uint64_t one = 1;
        // Nothing to report from here, and nothing to do: the only failure on
        // a valid eventfd is EAGAIN, a counter so full that it is readable.
        ssize_t written = write(fd, &one, sizeof one);
        (void)written;
    }

    const int fd;
    WatchId watch = 0;
};

namespace {

// sd-event treats an accuracy of 0 as its default of 250 ms; the master timer
// needs its ticks where they are due.
constexpr uint64_t kAccuracyMicros = 1;
// sd-event reserves the largest time value for "never".
constexpr uint64_t kLatestDue = UINT64_MAX - 1;

uint64_t AddSaturating(uint64_t inA, uint64_t inB) {
    return inB > kLatestDue - inA ? kLatestDue : inA + inB;
}

int OnTerminationSignal(sd_event_source* inSource, const struct signalfd_siginfo*, void*) {
    sd_event_exit(sd_event_source_get_event(inSource), 0);
    return 0;
}

}  // namespace

CVXSdEventLoop::CVXSdEventLoop() {
    int r = sd_event_new(&mEvent);
    if (r < 0) {
        VXDiagnostic("CVXSdEventLoop: sd_event_new failed: %s\n", std::strerror(-r));
        mEvent = nullptr;
        return;
    }
    r = sd_event_add_time(mEvent, &mTimerSource, CLOCK_MONOTONIC, 0, kAccuracyMicros,
                          &CVXSdEventLoop::OnTimers, this);
    if (r < 0) {
        VXDiagnostic("CVXSdEventLoop: cannot add the timer source: %s\n", std::strerror(-r));
        mTimerSource = nullptr;
        return;
    }
    sd_event_source_set_enabled(mTimerSource, SD_EVENT_OFF);
}

CVXSdEventLoop::~CVXSdEventLoop() {
    // Take the records out first: a callback's captures may cancel timers or
    // remove watches from their destructors, and must then find nothing.
    auto timers = std::move(mTimers);
    auto watches = std::move(mWatches);
    auto wakeups = std::move(mWakeups);
    mTimers.clear();
    mWatches.clear();
    mWakeups.clear();
    mQueue.clear();
    for (auto& entry : watches) sd_event_source_disable_unref(entry.second->source);
    sd_event_source_disable_unref(mTimerSource);
    mTimerSource = nullptr;
    timers.clear();
    watches.clear();
    if (mEvent) sd_event_unref(mEvent);
}

uint64_t CVXSdEventLoop::NowMicros() const {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

CVXEventLoop::TimerId CVXSdEventLoop::AddTimer(uint64_t inDue, uint64_t inPeriod,
                                               Callback inCallback) {
    if (!Valid()) return 0;
    TimerId id = mNextId++;
    mTimers.emplace(id, std::make_unique<STimer>(STimer{inPeriod, inDue, std::move(inCallback)}));
    mQueue.emplace(inDue, id);
    Rearm();
    return id;
}

CVXEventLoop::TimerId CVXSdEventLoop::AddRepeatingTimerAt(uint64_t inFirstDueMicros,
                                                          uint64_t inPeriodMicros,
                                                          Callback inCallback) {
    if (inPeriodMicros == 0) inPeriodMicros = 1;  // a zero period would never let time move
    // A due time already past fires on the next pass, as one due now would.
    return AddTimer(inFirstDueMicros, inPeriodMicros, std::move(inCallback));
}

CVXEventLoop::TimerId CVXSdEventLoop::AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) {
    return AddTimer(AddSaturating(NowMicros(), inDelayMicros), 0, std::move(inCallback));
}

void CVXSdEventLoop::CancelTimer(TimerId inTimer) {
    auto it = mTimers.find(inTimer);
    if (it == mTimers.end()) return;  // unknown, fired one-shot, or already cancelled
    if (inTimer == mFiring) {
        // Its callback is on the stack; FireDue drops it when that returns.
        it->second->cancelled = true;
        return;
    }
    mQueue.erase({it->second->due, inTimer});
    // Out of the map before it is destroyed: the callback's captures may
    // cancel other timers from their destructors.
    std::unique_ptr<STimer> owned = std::move(it->second);
    mTimers.erase(it);
    Rearm();
}

bool CVXSdEventLoop::Finished() const {
    return mEvent && sd_event_get_state(mEvent) == SD_EVENT_FINISHED;
}

uint64_t CVXSdEventLoop::DueMicros(TimerId inTimer) const {
    auto it = mTimers.find(inTimer);
    return it == mTimers.end() ? 0 : it->second->due;
}

void CVXSdEventLoop::Rearm() {
    // Once Run has returned, sd-event refuses changes to its sources; the
    // objects torn down after it (the driver's timers) still cancel theirs.
    if (!mTimerSource || Finished()) return;
    int r = 0;
    if (mQueue.empty()) {
        r = sd_event_source_set_enabled(mTimerSource, SD_EVENT_OFF);
    } else {
        r = sd_event_source_set_time(mTimerSource, mQueue.begin()->first);
        if (r >= 0) r = sd_event_source_set_enabled(mTimerSource, SD_EVENT_ONESHOT);
    }
    if (r < 0) VXDiagnostic("CVXSdEventLoop: cannot arm the timers: %s\n", std::strerror(-r));
}

int CVXSdEventLoop::OnTimers(sd_event_source*, uint64_t, void* inUserData) {
    static_cast<CVXSdEventLoop*>(inUserData)->FireDue();
    return 0;
}

void CVXSdEventLoop::FireDue() {
    // Only what was due when the loop woke: a timer added or re-armed by a
    // callback waits for the next pass, so that a pass always ends.
    const uint64_t now = NowMicros();
    while (!mQueue.empty() && mQueue.begin()->first <= now) {
        TimerId id = mQueue.begin()->second;
        mQueue.erase(mQueue.begin());
        auto it = mTimers.find(id);
        if (it == mTimers.end()) continue;

        if (it->second->period == 0) {
            // Released before it runs; its captures go when the callback returns.
            std::unique_ptr<STimer> owned = std::move(it->second);
            mTimers.erase(it);
            owned->callback();
            continue;
        }

        STimer* timer = it->second.get();  // stays put: the map holds a pointer
        mFiring = id;
        timer->callback();
        mFiring = 0;
        if (timer->cancelled) {
            auto self = mTimers.find(id);  // the callback may have rehashed the map
            std::unique_ptr<STimer> owned = std::move(self->second);
            mTimers.erase(self);
            continue;
        }
        // The next firing is the first grid point after now, counted from
        // this firing's grid point, never from when the callback ran. When the
        // loop (or this callback) fell behind by more than a period, the
        // points missed are skipped: catch-up ticks would only repeat stale
        // work in a burst.
        uint64_t after = NowMicros();
        uint64_t next = AddSaturating(timer->due, timer->period);
        if (next <= after) {
            uint64_t missed = (after - next) / timer->period + 1;
            next = AddSaturating(next, missed * timer->period);
        }
        timer->due = next;
        mQueue.emplace(next, id);
    }
    Rearm();
}

CVXSdEventLoop::WatchId CVXSdEventLoop::AddIOWatch(int inFd, uint32_t inEpollEvents,
                                                   IOCallback inCallback) {
    if (!Valid()) return 0;
    auto watch = std::make_unique<SWatch>();
    watch->loop = this;
    watch->id = mNextId;
    watch->callback = std::move(inCallback);
    int r = sd_event_add_io(mEvent, &watch->source, inFd, inEpollEvents, &CVXSdEventLoop::OnIO,
                            watch.get());
    if (r < 0) {
        VXDiagnostic("CVXSdEventLoop: cannot watch fd %d: %s\n", inFd, std::strerror(-r));
        return 0;
    }
    WatchId id = mNextId++;
    mWatches.emplace(id, std::move(watch));
    return id;
}

bool CVXSdEventLoop::SetIOWatchEvents(WatchId inWatch, uint32_t inEpollEvents) {
    auto it = mWatches.find(inWatch);
    if (it == mWatches.end() || it->second->released) return false;
    if (Finished()) return true;  // nothing is dispatched any more anyway
    int r = sd_event_source_set_io_events(it->second->source, inEpollEvents);
    if (r < 0) {
        VXDiagnostic("CVXSdEventLoop: cannot change the events of a watch: %s\n",
                     std::strerror(-r));
        return false;
    }
    return true;
}

void CVXSdEventLoop::RemoveIOWatch(WatchId inWatch) {
    auto it = mWatches.find(inWatch);
    if (it != mWatches.end()) ReleaseWatch(it->second.get());
}

void CVXSdEventLoop::ReleaseWatch(SWatch* inWatch) {
    if (inWatch->dispatching) {
        // Its callback is on the stack: stop further dispatch now and free
        // the record when the callback returns.
        inWatch->released = true;
        sd_event_source_set_enabled(inWatch->source, SD_EVENT_OFF);
        return;
    }
    sd_event_source_disable_unref(inWatch->source);
    inWatch->source = nullptr;
    auto it = mWatches.find(inWatch->id);
    if (it == mWatches.end()) return;
    std::unique_ptr<SWatch> owned = std::move(it->second);
    mWatches.erase(it);
}

int CVXSdEventLoop::OnIO(sd_event_source*, int, uint32_t inRevents, void* inUserData) {
    auto* watch = static_cast<SWatch*>(inUserData);
    watch->dispatching = true;
    watch->callback(inRevents);
    watch->dispatching = false;
    if (watch->released) watch->loop->ReleaseWatch(watch);
    return 0;
}

CVXWakeup* CVXSdEventLoop::AddWakeup(Callback inCallback) {
    if (!Valid()) return nullptr;
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        VXDiagnostic("CVXSdEventLoop: cannot create a wake-up: %s\n", std::strerror(errno));
        return nullptr;
    }
    auto wakeup = std::make_unique<CWakeup>(fd);
    wakeup->watch = AddIOWatch(fd, EPOLLIN, [fd, callback = std::move(inCallback)](uint32_t) {
        // Emptied before the call: a Wake() from here on makes the fd
        // readable again, so the last wake is always followed by a call.
        uint64_t count = 0;
        ssize_t got = read(fd, &count, sizeof count);
        (void)got;
        callback();
    });
    if (wakeup->watch == 0) {
        close(fd);
        return nullptr;
    }
    // The source closes the fd when it is freed, which for a wake-up removed
    // from its own callback is after that callback returned.
    sd_event_source_set_io_fd_own(mWatches.at(wakeup->watch)->source, 1);
    CVXWakeup* handle = wakeup.get();
    mWakeups.emplace(handle, std::move(wakeup));
    return handle;
}

void CVXSdEventLoop::RemoveWakeup(CVXWakeup* inWakeup) {
    auto it = mWakeups.find(inWakeup);
    if (it == mWakeups.end()) return;
    const WatchId watch = it->second->watch;
    mWakeups.erase(it);
    RemoveIOWatch(watch);
}

int CVXSdEventLoop::Run() {
    if (!Valid()) return -EINVAL;
    if (sd_event_get_state(mEvent) == SD_EVENT_FINISHED) {
        int code = 0;
        sd_event_get_exit_code(mEvent, &code);
        return code;
    }

    // sd-event reads the signals from a signalfd, which only sees signals
    // that are blocked; unblocked, they would take their default action.
    sigset_t mask;
    sigset_t previous;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    sigprocmask(SIG_BLOCK, &mask, &previous);

    sd_event_source* signals[2] = {nullptr, nullptr};
    const int numbers[2] = {SIGINT, SIGTERM};
    for (int i = 0; i < 2; ++i) {
        int r = sd_event_add_signal(mEvent, &signals[i], numbers[i], OnTerminationSignal, nullptr);
        if (r < 0)
            VXDiagnostic("CVXSdEventLoop: cannot watch signal %d: %s\n", numbers[i],
                         std::strerror(-r));
    }

    int result = sd_event_loop(mEvent);
    if (result < 0) VXDiagnostic("CVXSdEventLoop: event loop failed: %s\n", std::strerror(-result));

    for (sd_event_source* s : signals) sd_event_source_disable_unref(s);
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    return result;
}

void CVXSdEventLoop::Exit(int inCode) {
    if (mEvent) sd_event_exit(mEvent, inCode);
}
