#include "platform/CVXVirtualLoop.h"

CVXEventLoop::TimerId CVXVirtualLoop::Add(uint64_t inDue, uint64_t inPeriod, Callback inCallback) {
    TimerId id = mNextId++;
    mTimers.emplace(std::make_pair(inDue, id), STimer{inDue, inPeriod, std::move(inCallback)});
    return id;
}

CVXEventLoop::TimerId CVXVirtualLoop::AddRepeatingTimer(uint64_t inPeriodMicros,
                                                        Callback inCallback) {
    if (inPeriodMicros == 0) inPeriodMicros = 1;  // a zero period would never let time move
    return Add(mNow + inPeriodMicros, inPeriodMicros, std::move(inCallback));
}

CVXEventLoop::TimerId CVXVirtualLoop::AddOneShotTimer(uint64_t inDelayMicros, Callback inCallback) {
    return Add(mNow + inDelayMicros, 0, std::move(inCallback));
}

void CVXVirtualLoop::CancelTimer(TimerId inTimer) {
    for (auto it = mTimers.begin(); it != mTimers.end(); ++it) {
        if (it->first.second == inTimer) {
            mTimers.erase(it);
            return;
        }
    }
}

void CVXVirtualLoop::FireDue(uint64_t inUntil) {
    while (!mTimers.empty() && mTimers.begin()->first.first <= inUntil) {
        auto node = mTimers.extract(mTimers.begin());
        TimerId id = node.key().second;
        STimer timer = std::move(node.mapped());
        mNow = timer.due;
        if (timer.period != 0) {
            // Re-arm before the callback so that it can cancel itself; the
            // next firing stays on the grid.
            Callback copy = timer.callback;
            uint64_t next = timer.due + timer.period;
            mTimers.emplace(std::make_pair(next, id), STimer{next, timer.period, timer.callback});
            copy();
        } else {
            timer.callback();
        }
    }
}

void CVXVirtualLoop::AdvanceTo(uint64_t inMicros) {
    if (inMicros < mNow) return;
    FireDue(inMicros);
    mNow = inMicros;
}

bool CVXVirtualLoop::RunNext() {
    if (mTimers.empty()) return false;
    FireDue(mTimers.begin()->first.first);
    return true;
}

int CVXVirtualLoop::Run() {
    FireDue(mNow);
    return mExitCode;
}
