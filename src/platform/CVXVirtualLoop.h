// An event loop on virtual time: nothing happens until the owner advances the
// clock, and then every timer that falls due fires in time order (ties in the
// order the timers were added). Tests and offline tools use it so that they
// never sleep and always see the same sequence of events.
//
// File descriptors are never polled either: a watch's fd only names it, and
// the test says when it is ready with FireIO(). Wake-ups only mark themselves
// pending; their callbacks run in DispatchWakeups() or Run().
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/CVXEventLoop.h"

class CVXVirtualLoop : public CVXEventLoop {
  public:
    explicit CVXVirtualLoop(uint64_t inStartMicros = 1000000);
    ~CVXVirtualLoop() override;
    CVXVirtualLoop(const CVXVirtualLoop&) = delete;
    CVXVirtualLoop& operator=(const CVXVirtualLoop&) = delete;

    uint64_t NowMicros() const override { return mNow; }
    TimerId AddRepeatingTimerAt(uint64_t inFirstDueMicros, uint64_t inPeriodMicros,
                                Callback inCallback) override;
    TimerId AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) override;
    void CancelTimer(TimerId inTimer) override;
    // As on the real loop, a second watch on an fd already watched fails (0).
    WatchId AddIOWatch(int inFd, uint32_t inEpollEvents, IOCallback inCallback) override;
    bool SetIOWatchEvents(WatchId inWatch, uint32_t inEpollEvents) override;
    void RemoveIOWatch(WatchId inWatch) override;
    // Wake() only sets an atomic flag, so a test may wake from another thread.
    CVXWakeup* AddWakeup(Callback inCallback) override;
    void RemoveWakeup(CVXWakeup* inWakeup) override;
    // Runs the pending wake-ups, fires what is due now, then returns the exit
    // code (a virtual loop does not wait for anything).
    int Run() override;
    void Exit(int inCode) override { mExitCode = inCode; }

    // Moves the clock forward, firing every timer due up to and including the
    // new time, each with the clock set to its own due time.
    void AdvanceBy(uint64_t inMicros) { AdvanceTo(mNow + inMicros); }
    void AdvanceTo(uint64_t inMicros);
    // Advances to the next due timer and fires it (and any due at the same
    // time); false when no timer is pending.
    bool RunNext();
    // Master-timer ticks, for readability in tests.
    void AdvanceTicks(uint64_t inTicks) { AdvanceBy(inTicks * kVXTickMicros); }

    // inFd became ready with inRevents: the watch on it is called once, with
    // what epoll would return, the events it waits for plus EPOLLERR and
    // EPOLLHUP. False, and nothing called, when no watch on inFd wants any of
    // inRevents (none, or paused by its mask).
    bool FireIO(int inFd, uint32_t inRevents);
    // The events the watch on inFd waits for; nullopt when inFd is not
    // watched. Lets a test see what a backend asked for.
    std::optional<uint32_t> WatchedEvents(int inFd) const;
    // Calls each wake-up woken since its callback last ran, once, in the order
    // they were added. A Wake() from a callback waits for the next call, so
    // that one always ends. Returns how many callbacks ran.
    size_t DispatchWakeups();

    size_t PendingTimers() const { return mTimers.size(); }
    size_t PendingWatches() const { return mWatches.size(); }
    size_t PendingWakeups() const { return mWakeups.size(); }

  private:
    struct STimer {
        uint64_t due;
        uint64_t period;  // 0 for a one-shot timer
        Callback callback;
    };
    struct SWatch {
        int fd;
        uint32_t events;
        IOCallback callback;
        bool dispatching = false;
        bool released = false;  // removed while its callback runs
    };
    class CWakeup;

    TimerId Add(uint64_t inDue, uint64_t inPeriod, Callback inCallback);
    void FireDue(uint64_t inUntil);

    uint64_t mNow;
    TimerId mNextId = 1;  // shared by timers and watches
    // Keyed by (due time, id) so that iteration is firing order.
    std::map<std::pair<uint64_t, TimerId>, STimer> mTimers;
    std::map<WatchId, std::unique_ptr<SWatch>> mWatches;
    std::vector<std::unique_ptr<CWakeup>> mWakeups;  // in the order added
    bool mDispatchingWakeups = false;
    int mExitCode = 0;
};
