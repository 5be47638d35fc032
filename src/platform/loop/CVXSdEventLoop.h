// The driver's real event loop: one sd-event loop on CLOCK_MONOTONIC. Timers,
// file-descriptor watches, wake-ups and the termination signals all run on the
// thread that calls Run(); backends that need sd-event or sd-bus themselves
// (D-Bus) attach to Native().
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "platform/CVXEventLoop.h"

// Forward declarations compatible with <systemd/sd-event.h>, so that users of
// the loop do not all need the systemd headers.
struct sd_event;
struct sd_event_source;

class CVXSdEventLoop : public CVXEventLoop {
  public:
    // Creates the sd-event loop; Valid() says whether that worked (the reason
    // is printed when it did not).
    CVXSdEventLoop();
    ~CVXSdEventLoop() override;
    CVXSdEventLoop(const CVXSdEventLoop&) = delete;
    CVXSdEventLoop& operator=(const CVXSdEventLoop&) = delete;

    bool Valid() const { return mEvent != nullptr && mTimerSource != nullptr; }
    sd_event* Native() const { return mEvent; }

    // CLOCK_MONOTONIC read at the call, not the loop's cached iteration time,
    // so that a callback that works for a while sees the time move.
    uint64_t NowMicros() const override;

    // All timers share one sd-event time source and fire in order of due
    // time, ties in the order they were added, as on the virtual loop: when
    // the loop wakes late, timers that fell due meanwhile do not run in an
    // arbitrary order.
    //
    // The grid of a repeating timer starts at the time of the call. After a
    // firing, the next one is the first grid point after its callback
    // returned: a late firing is not followed by a burst of catch-up firings
    // for the points missed, and the grid itself never shifts.
    // Both return 0 when the loop is unusable.
    TimerId AddRepeatingTimerAt(uint64_t inFirstDueMicros, uint64_t inPeriodMicros,
                                Callback inCallback) override;
    TimerId AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) override;
    void CancelTimer(TimerId inTimer) override;

    // Blocks SIGINT and SIGTERM, lets either end the loop with 0, and runs
    // until Exit() or such a signal. Returns the exit code, or a negative
    // errno when the loop failed. The signal mask is restored on return. An
    // sd-event loop runs once: a second Run() returns the same code at once.
    int Run() override;
    void Exit(int inCode) override;

    // One sd-event I/O source per watch. A watch removed from inside its own
    // callback is disabled at once and freed when the callback returns.
    WatchId AddIOWatch(int inFd, uint32_t inEpollEvents, IOCallback inCallback) override;
    bool SetIOWatchEvents(WatchId inWatch, uint32_t inEpollEvents) override;
    void RemoveIOWatch(WatchId inWatch) override;

    // Each wake-up is an eventfd watched like any other fd: Wake() adds one
    // to its counter with a single write(2), which is async-signal-safe and
    // never blocks (the fd is non-blocking; a counter at its limit is already
    // readable). The loop empties the counter before it calls the callback,
    // so a Wake() after that point gives one more call.
    CVXWakeup* AddWakeup(Callback inCallback) override;
    void RemoveWakeup(CVXWakeup* inWakeup) override;

    // The grid point a timer is armed for; while a repeating timer's callback
    // runs, the one it is firing for. 0 for an unknown or fired timer.
    uint64_t DueMicros(TimerId inTimer) const;
    size_t PendingTimers() const { return mTimers.size(); }
    // Each wake-up's eventfd watch is counted here too.
    size_t PendingWatches() const { return mWatches.size(); }
    size_t PendingWakeups() const { return mWakeups.size(); }

  private:
    struct STimer {
        uint64_t period;  // 0 for a one-shot timer
        uint64_t due;     // the grid point it is armed for
        Callback callback;
        bool cancelled = false;  // cancelled while its own callback runs
    };
    struct SWatch;
    class CWakeup;

    static int OnTimers(sd_event_source* inSource, uint64_t inUsec, void* inUserData);
    static int OnIO(sd_event_source* inSource, int inFd, uint32_t inRevents, void* inUserData);

    // Run has returned: sd-event takes no more changes.
    bool Finished() const;
    TimerId AddTimer(uint64_t inDue, uint64_t inPeriod, Callback inCallback);
    void FireDue();
    void Rearm();
    void ReleaseWatch(SWatch* inWatch);

    sd_event* mEvent = nullptr;
    sd_event_source* mTimerSource = nullptr;  // armed for the earliest due timer
    uint64_t mNextId = 1;                     // shared by timers and watches
    std::unordered_map<TimerId, std::unique_ptr<STimer>> mTimers;
    std::set<std::pair<uint64_t, TimerId>> mQueue;  // (due, id): firing order
    TimerId mFiring = 0;                            // the repeating timer whose callback runs
    std::unordered_map<WatchId, std::unique_ptr<SWatch>> mWatches;
    std::unordered_map<CVXWakeup*, std::unique_ptr<CWakeup>> mWakeups;
};
