#include "platform/CVXVirtualLoop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <atomic>

class CVXVirtualLoop::CWakeup final : public CVXWakeup {
  public:
    explicit CWakeup(Callback inCallback) : callback(std::move(inCallback)) {}
    void Wake() override { pending.store(true, std::memory_order_release); }

    std::atomic<bool> pending{false};
    Callback callback;
    bool released = false;  // removed during a dispatch pass
};

// Out of line: the wake-up records are complete only here.
CVXVirtualLoop::CVXVirtualLoop(uint64_t inStartMicros) : mNow(inStartMicros) {}

CVXVirtualLoop::~CVXVirtualLoop() {
    // Take the records out first: a callback's captures may cancel timers or
    // remove watches from their destructors, and must then find nothing.
    auto timers = std::move(mTimers);
    auto watches = std::move(mWatches);
    auto wakeups = std::move(mWakeups);
    mTimers.clear();
    mWatches.clear();
    mWakeups.clear();
}

CVXEventLoop::TimerId CVXVirtualLoop::Add(uint64_t inDue, uint64_t inPeriod, Callback inCallback) {
    TimerId id = mNextId++;
    mTimers.emplace(std::make_pair(inDue, id), STimer{inDue, inPeriod, std::move(inCallback)});
    return id;
}

CVXEventLoop::TimerId CVXVirtualLoop::AddRepeatingTimerAt(uint64_t inFirstDueMicros,
                                                          uint64_t inPeriodMicros,
                                                          Callback inCallback) {
    if (inPeriodMicros == 0) inPeriodMicros = 1;  // a zero period would never let time move
    return Add(std::max(inFirstDueMicros, mNow), inPeriodMicros, std::move(inCallback));
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

CVXEventLoop::WatchId CVXVirtualLoop::AddIOWatch(int inFd, uint32_t inEpollEvents,
                                                 IOCallback inCallback) {
    if (WatchedEvents(inFd)) return 0;
    WatchId id = mNextId++;
    mWatches.emplace(id,
                     std::make_unique<SWatch>(SWatch{inFd, inEpollEvents, std::move(inCallback)}));
    return id;
}

bool CVXVirtualLoop::SetIOWatchEvents(WatchId inWatch, uint32_t inEpollEvents) {
    auto it = mWatches.find(inWatch);
    if (it == mWatches.end() || it->second->released) return false;
    it->second->events = inEpollEvents;
    return true;
}

void CVXVirtualLoop::RemoveIOWatch(WatchId inWatch) {
    auto it = mWatches.find(inWatch);
    if (it == mWatches.end()) return;
    if (it->second->dispatching) {
        // Its callback is on the stack; FireIO drops it when that returns.
        it->second->released = true;
        return;
    }
    // Out of the map before it is destroyed: the callback's captures may
    // remove other watches from their destructors.
    std::unique_ptr<SWatch> owned = std::move(it->second);
    mWatches.erase(it);
}

std::optional<uint32_t> CVXVirtualLoop::WatchedEvents(int inFd) const {
    for (const auto& [id, watch] : mWatches)
        if (watch->fd == inFd && !watch->released) return watch->events;
    return std::nullopt;
}

bool CVXVirtualLoop::FireIO(int inFd, uint32_t inRevents) {
    auto it = std::find_if(mWatches.begin(), mWatches.end(), [inFd](const auto& inEntry) {
        return inEntry.second->fd == inFd && !inEntry.second->released;
    });
    if (it == mWatches.end()) return false;
    const WatchId id = it->first;
    SWatch* watch = it->second.get();
    if (watch->dispatching) return false;  // from its own callback: epoll would not nest
    const uint32_t revents = inRevents & (watch->events | EPOLLERR | EPOLLHUP);
    if (revents == 0) return false;
    watch->dispatching = true;
    watch->callback(revents);
    watch->dispatching = false;
    if (watch->released) RemoveIOWatch(id);
    return true;
}

CVXWakeup* CVXVirtualLoop::AddWakeup(Callback inCallback) {
    mWakeups.push_back(std::make_unique<CWakeup>(std::move(inCallback)));
    return mWakeups.back().get();
}

void CVXVirtualLoop::RemoveWakeup(CVXWakeup* inWakeup) {
    auto it = std::find_if(mWakeups.begin(), mWakeups.end(),
                           [inWakeup](const auto& inOwned) { return inOwned.get() == inWakeup; });
    if (it == mWakeups.end()) return;
    if (mDispatchingWakeups) {
        // DispatchWakeups walks the list by position: mark it, and it is
        // dropped when the pass ends (its callback is not called again).
        (*it)->released = true;
        return;
    }
    std::unique_ptr<CWakeup> owned = std::move(*it);
    mWakeups.erase(it);
}

size_t CVXVirtualLoop::DispatchWakeups() {
    if (mDispatchingWakeups) return 0;  // from a wake-up's own callback
    mDispatchingWakeups = true;
    size_t ran = 0;
    // Only those present when the pass starts; one added by a callback waits.
    const size_t count = mWakeups.size();
    for (size_t i = 0; i < count; ++i) {
        CWakeup* wakeup = mWakeups[i].get();
        if (wakeup->released) continue;
        // Cleared before the call, as the real loop reads its eventfd first: a
        // Wake() from here on is seen by the next pass.
        if (!wakeup->pending.exchange(false, std::memory_order_acquire)) continue;
        wakeup->callback();
        ++ran;
    }
    mDispatchingWakeups = false;
    // Removed during the pass; out of the list before they are destroyed.
    std::vector<std::unique_ptr<CWakeup>> released;
    for (auto& owned : mWakeups)
        if (owned->released) released.push_back(std::move(owned));
    std::erase(mWakeups, nullptr);
    return ran;
}

int CVXVirtualLoop::Run() {
    DispatchWakeups();
    FireDue(mNow);
    return mExitCode;
}
