// The one process-wide repeat timer: every 1/60 s it offers each repeating
// action a chance to repeat. The client list does not own its actions.
//
// A tick with no client does nothing, so while the list is empty the loop
// timer is not armed at all and an idle driver is not woken 60 times a
// second for nothing. It is armed again on the same grid (start + n ticks)
// when a client arrives, so a client sees the ticks it would have seen.
#pragma once

#include <vector>

#include "platform/CVXEventLoop.h"

class CVX_Action;

class CVX_MasterTimer {
  public:
    CVX_MasterTimer();
    ~CVX_MasterTimer();  // stops, and is no longer reachable through sSelf
    CVX_MasterTimer(const CVX_MasterTimer&) = delete;
    CVX_MasterTimer& operator=(const CVX_MasterTimer&) = delete;

    // The one that exists, or null.
    static CVX_MasterTimer* GetMasterTimer() { return sSelf; }

    // One tick: skipped whole while the list is locked; otherwise each client
    // counted at the start of the tick, in the order added.
    void Execute();
    // Starts the tick grid on the platform loop (period kVXTickMicros).
    void Start();
    void Stop();

    // Both do nothing while no master timer exists.
    static void AddClient(CVX_Action* inAction);     // appends, duplicates allowed
    static void RemoveClient(CVX_Action* inAction);  // removes the first entry only
    // Removes every entry of an action that is going away.
    static void RemoveAllEntries(CVX_Action* inAction);
    void Lock(bool inLock) { mLocked = inLock; }

    static void MasterTimerCallback();

    const std::vector<CVX_Action*>& Clients() const { return mClients; }

  private:
    static CVX_MasterTimer* sSelf;

    // Arms the loop timer for the grid point after now; Pause disarms it.
    void Arm();
    void Pause();

    std::vector<CVX_Action*> mClients;
    CVXEventLoop* mTimerLoop = nullptr;  // the loop of the grid; null until started
    uint64_t mGridOrigin = 0;            // the grid's start on that loop's clock
    CVXEventLoop::TimerId mTimer = 0;    // armed while there are clients
    bool mLocked = false;
};
