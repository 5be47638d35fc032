// An event loop on virtual time: nothing happens until the owner advances the
// clock, and then every timer that falls due fires in time order (ties in the
// order the timers were added). Tests and offline tools use it so that they
// never sleep and always see the same sequence of events.
#pragma once

#include <map>
#include <utility>

#include "platform/CVXEventLoop.h"

class CVXVirtualLoop : public CVXEventLoop {
  public:
    explicit CVXVirtualLoop(uint64_t inStartMicros = 1000000) : mNow(inStartMicros) {}

    uint64_t NowMicros() const override { return mNow; }
    TimerId AddRepeatingTimer(uint64_t inPeriodMicros, Callback inCallback) override;
    TimerId AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) override;
    void CancelTimer(TimerId inTimer) override;
    // Fires what is due now, then returns the exit code (a virtual loop does
    // not wait for anything).
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

    size_t PendingTimers() const { return mTimers.size(); }

  private:
    struct STimer {
        uint64_t due;
        uint64_t period;  // 0 for a one-shot timer
        Callback callback;
    };
    TimerId Add(uint64_t inDue, uint64_t inPeriod, Callback inCallback);
    void FireDue(uint64_t inUntil);

    uint64_t mNow;
    TimerId mNextId = 1;
    // Keyed by (due time, id) so that iteration is firing order.
    std::map<std::pair<uint64_t, TimerId>, STimer> mTimers;
    int mExitCode = 0;
};
