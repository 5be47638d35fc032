// The driver's one event loop and its clock. Everything runs on the loop's
// thread: device reads, the control path, every timer, editor commands. The
// clock counts whole microseconds; actions read it as seconds in a double.
#pragma once

#include <cstdint>
#include <functional>

class CVXEventLoop {
  public:
    using TimerId = uint64_t;  // 0 is never a valid timer
    using Callback = std::function<void()>;

    virtual ~CVXEventLoop() = default;

    // Monotonic time in whole microseconds.
    virtual uint64_t NowMicros() const = 0;
    // The same clock in seconds, as actions compare times.
    double Now() const { return static_cast<double>(NowMicros()) / 1e6; }

    // A repeating timer on a fixed grid: it fires at start + n * period for
    // n = 1, 2, ... and does not drift, however late one firing ran.
    virtual TimerId AddRepeatingTimer(uint64_t inPeriodMicros, Callback inCallback) = 0;
    // A timer that fires once, inDelayMicros from now, and is then released.
    virtual TimerId AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) = 0;
    // Cancels a pending timer; a timer that already fired (one-shot) or an
    // unknown id is ignored. Safe to call from inside any timer's callback.
    virtual void CancelTimer(TimerId inTimer) = 0;

    // Runs until Exit() or a termination signal; returns the exit code.
    virtual int Run() = 0;
    virtual void Exit(int inCode) = 0;

    // Seconds, as the design's intervals are given, to the clock's unit,
    // rounded up so that "n ticks" elapse on exactly the n-th tick.
    static uint64_t SecondsToMicros(double inSeconds);
};

// The master timer's period: 1/60 s rounded up to the clock's unit.
constexpr uint64_t kVXTickMicros = 16667;
