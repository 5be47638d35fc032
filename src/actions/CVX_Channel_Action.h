// The base of every channel action (what a fader or channel button does), its
// 1/30 s rate limiter, the stream factory, and the two simplest kinds: the
// special action that tells an application about the move, and the
// application-specific placeholder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "actions/CVX_Action.h"

class CVX_ChannelControlData;
class UStreamReader;

// Channel special-action types: a fader's move sends 'QFad', a channel
// button's 'QCBt'.
constexpr uint32_t kVXFaderSpecialType = 65;
constexpr uint32_t kVXButtonSpecialType = 66;

class CVX_Channel_Action {
  public:
    CVX_Channel_Action(const char* inName, uint32_t inControlNum, int32_t inChannel);
    virtual ~CVX_Channel_Action() = default;
    CVX_Channel_Action(const CVX_Channel_Action&) = delete;
    CVX_Channel_Action& operator=(const CVX_Channel_Action&) = delete;

    // inValue: the fader's 8-bit position, or a button's state. True when the
    // action counts as done.
    virtual bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) = 0;

    // True, and the time noted, when at least 1/30 s passed since the last
    // execution it let through; moves in between are dropped, not queued.
    bool TimeToExecute();

    // The common header ("ChCm" ... "St63" name), then the body by type.
    static std::unique_ptr<CVX_Channel_Action> CreateChannelActionFromStream(
        UStreamReader* inReader, uint32_t inChannel, uint32_t inControlType);

    const std::string& GetName() const { return mName; }
    uint32_t GetControlNum() const { return mControlNum; }
    int32_t GetChannel() const { return mChannel; }
    double GetLastExecute() const { return mLastExecute; }

  protected:
    uint32_t mIdentifier = 0;                    // kept; nothing reads it
    EVX_Action_Type mType = vx_action_type_key;  // kept; the constructors leave it
    std::string mName;
    uint32_t mControlNum;
    int32_t mChannel;
    double mLastExecute = 0;
};

class CVX_Channel_SpecialAction : public CVX_Channel_Action {
  public:
    // Type 65 sends 'QFad', 66 'QCBt'; any other type sends nothing.
    CVX_Channel_SpecialAction(uint32_t inAppSig, uint32_t inType, const char* inName,
                              uint32_t inControlNum, int32_t inChannel);

    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    static std::unique_ptr<CVX_Channel_Action> CreateChannelSpecialActionFromStream(
        UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName);

    uint32_t GetAppSignature() const { return mAppSignature; }
    uint32_t GetSpecialActionType() const { return mSpecialActionType; }
    uint32_t GetEventID() const { return mEventID; }

  private:
    uint32_t mAppSignature;
    uint32_t mSpecialActionType;
    uint32_t mEventID;
};

class CVX_Channel_AppSpecificAction : public CVX_Channel_Action {
  public:
    CVX_Channel_AppSpecificAction(uint32_t inControlType, uint32_t inChannel, const char* inName,
                                  uint32_t inActionType);

    // A placeholder that consumes the move: notes the time, does nothing else.
    bool Execute(CVX_ChannelControlData* inControlData, int32_t inValue) override;

    static std::unique_ptr<CVX_Channel_Action> CreateChannelAppSpecificActionFromStream(
        UStreamReader* inReader, uint32_t inControlType, uint32_t inChannel, const char* inName);

    uint32_t GetActionType() const { return mActionType; }

  private:
    uint32_t mActionType;
};
