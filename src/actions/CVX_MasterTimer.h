// The one process-wide repeat timer: every 1/60 s it offers each repeating
// action a chance to repeat. The client list does not own its actions.
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
    // Schedules the repeating timer on the platform loop (period kVXTickMicros).
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

    std::vector<CVX_Action*> mClients;
    CVXEventLoop::TimerId mTimer = 0;
    CVXEventLoop* mTimerLoop = nullptr;  // the loop mTimer lives on
    bool mLocked = false;
};
