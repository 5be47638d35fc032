// The driver's one event loop and its clock. Everything runs on the loop's
// thread: device reads, the control path, every timer, editor commands. The
// clock counts whole microseconds; actions read it as seconds in a double.
//
// Thread rules: every member is for the loop's thread only (callbacks run
// there too), except CVXWakeup::Wake(), which any thread may call, including
// a real-time audio thread or a signal handler.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

// A wake-up that another thread triggers so that a callback runs on the loop
// thread. The loop owns it: it is made by CVXEventLoop::AddWakeup and released
// by RemoveWakeup (or with the loop).
class CVXWakeup {
  public:
    // Asks the loop to run the wake-up's callback. Safe from any thread and
    // from real-time and signal context: it neither allocates, nor locks, nor
    // prints. Wakes coalesce: several before the loop gets to them may give a
    // single call, but a call always starts after the last Wake(). The caller
    // must stop calling before the wake-up is removed.
    virtual void Wake() = 0;

  protected:
    ~CVXWakeup() = default;  // never deleted through this interface
};

class CVXEventLoop {
  public:
    using TimerId = uint64_t;  // 0 is never a valid timer
    using WatchId = uint64_t;  // 0 is never a valid watch
    using Callback = std::function<void()>;
    using IOCallback = std::function<void(uint32_t inRevents)>;

    virtual ~CVXEventLoop() = default;

    // Monotonic time in whole microseconds.
    virtual uint64_t NowMicros() const = 0;
    // The same clock in seconds, as actions compare times.
    double Now() const { return static_cast<double>(NowMicros()) / 1e6; }

    // A repeating timer on a fixed grid: it fires at inFirstDueMicros + n *
    // period for n = 0, 1, ... and does not drift, however late one firing
    // ran. A first due time already past counts as now.
    virtual TimerId AddRepeatingTimerAt(uint64_t inFirstDueMicros, uint64_t inPeriodMicros,
                                        Callback inCallback) = 0;
    // The same, with the grid starting now: first firing one period from now.
    TimerId AddRepeatingTimer(uint64_t inPeriodMicros, Callback inCallback) {
        return AddRepeatingTimerAt(NowMicros() + inPeriodMicros, inPeriodMicros,
                                   std::move(inCallback));
    }
    // A timer that fires once, inDelayMicros from now, and is then released.
    virtual TimerId AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) = 0;
    // Cancels a pending timer; a timer that already fired (one-shot) or an
    // unknown id is ignored. Safe to call from inside any timer's callback.
    virtual void CancelTimer(TimerId inTimer) = 0;

    // Calls inCallback with the events epoll returned whenever inFd is ready
    // for any of inEpollEvents (EPOLLIN, EPOLLOUT, ...; level-triggered).
    // EPOLLERR and EPOLLHUP are reported whatever the mask, as epoll does. One
    // watch per fd; the caller keeps the fd open until the watch is removed.
    // Returns 0 on failure.
    virtual WatchId AddIOWatch(int inFd, uint32_t inEpollEvents, IOCallback inCallback) = 0;
    // Replaces the events a watch waits for; 0 pauses it (but for errors and
    // hang-ups). Libraries that own their fds (libusb, ALSA) change what they
    // wait for as their state changes. False for an unknown or removed watch.
    virtual bool SetIOWatchEvents(WatchId inWatch, uint32_t inEpollEvents) = 0;
    // Stops and releases a watch; an unknown id is ignored. Safe from inside
    // any callback, including the watch's own: the callback's captures live
    // until it returns, and it is not called again.
    virtual void RemoveIOWatch(WatchId inWatch) = 0;

    // A wake-up whose callback runs on the loop thread after Wake(). Returns
    // nullptr on failure.
    virtual CVXWakeup* AddWakeup(Callback inCallback) = 0;
    // Releases a wake-up; nullptr or an unknown one is ignored. Safe from
    // inside any callback, including its own. No thread may call its Wake()
    // any more: stop the waking thread first.
    virtual void RemoveWakeup(CVXWakeup* inWakeup) = 0;

    // Runs until Exit() or a termination signal; returns the exit code.
    virtual int Run() = 0;
    virtual void Exit(int inCode) = 0;

    // Seconds, as the design's intervals are given, to the clock's unit,
    // rounded up so that "n ticks" elapse on exactly the n-th tick.
    static uint64_t SecondsToMicros(double inSeconds);
};

// The master timer's period: 1/60 s rounded up to the clock's unit.
constexpr uint64_t kVXTickMicros = 16667;
