#include "actions/CVX_MasterTimer.h"

#include <algorithm>

#include "actions/CVX_Action.h"
#include "platform/SVXPlatform.h"

CVX_MasterTimer* CVX_MasterTimer::sSelf = nullptr;

CVX_MasterTimer::CVX_MasterTimer() {
    sSelf = this;
    // Room for every button held at once and more, so that a press does not
    // allocate in the common case.
    mClients.reserve(50);
}

CVX_MasterTimer::~CVX_MasterTimer() {
    Stop();
    if (sSelf == this) sSelf = nullptr;
}

void CVX_MasterTimer::Execute() {
    // A tick that finds the list being changed is skipped whole.
    if (mLocked) return;
    // Counted once: a client that leaves during the pass shifts the later ones
    // down, and the one just after it waits for the next tick. The size is
    // checked as well, so that the pass never reads past the list's end.
    const size_t count = mClients.size();
    for (size_t i = 0; i < count && i < mClients.size(); ++i) {
        mClients[i]->ExecuteRepeat();
    }
}

void CVX_MasterTimer::Start() {
    if (mTimerLoop) return;  // already started
    CVXEventLoop* loop = SVXPlatform::Get().loop;
    if (!loop) return;
    mTimerLoop = loop;
    mGridOrigin = loop->NowMicros();
    if (!mClients.empty()) Arm();
}

void CVX_MasterTimer::Stop() {
    Pause();
    mTimerLoop = nullptr;
}

void CVX_MasterTimer::Arm() {
    if (!mTimerLoop || mTimer != 0) return;
    // Strictly after now: a grid point at this very instant has had its tick
    // or comes with nothing for a client added now to do (its delay has not
    // begun to run).
    const uint64_t now = mTimerLoop->NowMicros();
    const uint64_t next = mGridOrigin + ((now - mGridOrigin) / kVXTickMicros + 1) * kVXTickMicros;
    mTimer = mTimerLoop->AddRepeatingTimerAt(next, kVXTickMicros, [] { MasterTimerCallback(); });
}

void CVX_MasterTimer::Pause() {
    if (mTimer == 0) return;
    // Cancelled on the loop it was added to, whatever is installed now.
    mTimerLoop->CancelTimer(mTimer);
    mTimer = 0;
}

void CVX_MasterTimer::AddClient(CVX_Action* inAction) {
    if (!sSelf) return;
    sSelf->Lock(true);
    sSelf->mClients.push_back(inAction);
    sSelf->Lock(false);
    sSelf->Arm();
}

void CVX_MasterTimer::RemoveClient(CVX_Action* inAction) {
    if (!sSelf) return;
    sSelf->Lock(true);
    auto& clients = sSelf->mClients;
    auto it = std::find(clients.begin(), clients.end(), inAction);
    if (it != clients.end()) clients.erase(it);
    sSelf->Lock(false);
}

void CVX_MasterTimer::RemoveAllEntries(CVX_Action* inAction) {
    if (!sSelf) return;
    sSelf->Lock(true);
    auto& clients = sSelf->mClients;
    clients.erase(std::remove(clients.begin(), clients.end(), inAction), clients.end());
    sSelf->Lock(false);
}

void CVX_MasterTimer::MasterTimerCallback() {
    if (!sSelf) return;
    sSelf->Execute();
    // The last client left during this tick (or before it): nothing to tick
    // for until the next one arrives.
    if (sSelf->mClients.empty()) sSelf->Pause();
}
