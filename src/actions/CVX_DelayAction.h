// The delay action: pauses its action sequence for a stored time, then lets
// the rest of the sequence run. Press and release pause independently.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "actions/CVX_Action.h"
#include "platform/CVXEventLoop.h"

class CVX_ControlData;
class CVX_DelayAction;
class UStreamReader;

// What a pause resumes: the action after `index` in controlData's sequence,
// with `value`.
struct SDelayActionContextInfo {
    CVX_DelayAction* self = nullptr;
    uint32_t index = 0;
    int32_t value = 0;
    CVX_ControlData* controlData = nullptr;
};

class CVX_DelayAction : public CVX_Action {
  public:
    CVX_DelayAction(uint32_t inControlNum, uint16_t inSpeed, const char* inName,
                    double inDelayInterval);
    // Cancels every pause still pending: its record or keyset may be going away.
    ~CVX_DelayAction() override;

    // Body: 2 bytes skipped, then a signed tick count (1/60 s). Built for any
    // control, button or not.
    static std::unique_ptr<CVX_Action> CreateDelayActionFromStream(uint32_t inControlNum,
                                                                   uint16_t inSpeed,
                                                                   const char* inName,
                                                                   UStreamReader* inReader);

    // Starts a pause and returns at once; the rest of the sequence runs from
    // the timer, never from this call (not even for a pause of 0).
    void Execute(CVX_ControlData* inControlData, uint32_t inIndex, int32_t inValue,
                 bool inRepeat) override;
    bool ExecuteSelf(int32_t inValue, bool inRepeat) override;

    // Resumes the sequence described by inInfo (an SDelayActionContextInfo).
    static void DelayActionCallback(void* inInfo);

    double GetDelayInterval() const { return mDelayInterval; }
    size_t PendingTimerCount() const { return mPendingTimers.size(); }

  protected:
    // The press and release pairs hold the arguments of the latest execution
    // of their kind: a second press during a pause overwrites the press info,
    // and both pending timers then resume with it.
    SDelayActionContextInfo mOnContextInfo;
    SDelayActionContextInfo mOffContextInfo;
    double mDelayInterval;  // the pause; the base's field of this name stays 0
    uint32_t mIndex = 0;    // kept; nothing reads it

  private:
    struct SPendingTimer {
        uint64_t token;  // tells the firing timer which entry is its own
        CVXEventLoop::TimerId id;
        CVXEventLoop* loop;  // the loop the timer was added to
    };
    void TimerFired(uint64_t inToken, SDelayActionContextInfo* inInfo);

    std::vector<SPendingTimer> mPendingTimers;
    uint64_t mNextToken = 1;
};
