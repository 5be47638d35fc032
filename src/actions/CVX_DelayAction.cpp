#include "actions/CVX_DelayAction.h"

#include <algorithm>

#include "model/CVX_ControlData.h"
#include "model/UStreamReader.h"
#include "platform/SVXPlatform.h"

CVX_DelayAction::CVX_DelayAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                                 double inDelayInterval)
    : CVX_Action(inControlNum, inSpeed, inName), mDelayInterval(inDelayInterval) {}

CVX_DelayAction::~CVX_DelayAction() {
    // A keyset replaced during a pause takes its records and actions with it;
    // a timer left behind would resume a sequence that no longer exists.
    for (const SPendingTimer& pending : mPendingTimers) {
        if (pending.loop) pending.loop->CancelTimer(pending.id);
    }
}

std::unique_ptr<CVX_Action> CVX_DelayAction::CreateDelayActionFromStream(uint32_t inControlNum,
                                                                         uint16_t inSpeed,
                                                                         const char* inName,
                                                                         UStreamReader* inReader) {
    uint32_t ticks = 0;
    if (!inReader->MovePosBy(2) || !inReader->GetLong(ticks)) return nullptr;
    double seconds = static_cast<int32_t>(ticks) / 60.0;
    return std::make_unique<CVX_DelayAction>(inControlNum, inSpeed, inName, seconds);
}

void CVX_DelayAction::Execute(CVX_ControlData* inControlData, uint32_t inIndex, int32_t inValue,
                              bool /*inRepeat*/) {
    SDelayActionContextInfo* info = inValue != 0 ? &mOnContextInfo : &mOffContextInfo;
    info->self = this;
    info->index = inIndex;
    info->value = inValue;
    info->controlData = inControlData;

    CVXEventLoop* loop = SVXPlatform::Get().loop;
    if (!loop) return;  // no loop, no time: the sequence cannot resume
    uint64_t token = mNextToken++;
    CVXEventLoop::TimerId id =
        loop->AddOneShotTimer(CVXEventLoop::SecondsToMicros(mDelayInterval),
                              [this, token, info] { TimerFired(token, info); });
    mPendingTimers.push_back(SPendingTimer{token, id, loop});
}

bool CVX_DelayAction::ExecuteSelf(int32_t /*inValue*/, bool /*inRepeat*/) {
    return true;
}

void CVX_DelayAction::TimerFired(uint64_t inToken, SDelayActionContextInfo* inInfo) {
    // The loop releases a one-shot timer once it fired; forget it before the
    // sequence resumes, since what runs next may destroy this action.
    auto it = std::find_if(mPendingTimers.begin(), mPendingTimers.end(),
                           [inToken](const SPendingTimer& p) { return p.token == inToken; });
    if (it != mPendingTimers.end()) mPendingTimers.erase(it);
    DelayActionCallback(inInfo);
}

void CVX_DelayAction::DelayActionCallback(void* inInfo) {
    auto* info = static_cast<SDelayActionContextInfo*>(inInfo);
    if (info && info->controlData) info->controlData->Execute(info->index + 1, info->value);
}
