// Channel-strip control records (160 fader, 161 to 165 buttons) with their
// one-action sequence and the editor action used in edit mode.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "actions/CVX_Channel_Action.h"

class UStreamReader;

class CVX_ChannelActionSequence {
  public:
    CVX_ChannelActionSequence(uint32_t inChannel, uint32_t inControlType)
        : mChannel(inChannel), mControlType(inControlType) {}

    // A channel control holds one action: false (and the action destroyed)
    // when one is held already.
    bool AddAction(std::unique_ptr<CVX_Channel_Action> inAction);
    CVX_Channel_Action* GetActionAt(uint32_t inIndex) const;
    uint32_t GetCount() const { return static_cast<uint32_t>(mActions.size()); }
    void DeleteActions();
    // "Sequ", "CCnt" count, then at most one channel action record.
    bool UpdateFromStream(UStreamReader* inReader, uint32_t inChannel, uint32_t inControlType);

    uint32_t GetChannel() const { return mChannel; }
    uint32_t GetControlType() const { return mControlType; }

  private:
    std::vector<std::unique_ptr<CVX_Channel_Action>> mActions;
    uint32_t mChannel;
    uint32_t mControlType;
};

class CVX_ChannelControlData {
  public:
    // A fader record for 160, a button record for 161 to 165, null otherwise;
    // each with its editor action.
    static std::unique_ptr<CVX_ChannelControlData> Create_VX_ChannelControlData(
        const char* inControlName, uint32_t inType, uint32_t inChannel);

    virtual ~CVX_ChannelControlData();
    CVX_ChannelControlData(const CVX_ChannelControlData&) = delete;
    CVX_ChannelControlData& operator=(const CVX_ChannelControlData&) = delete;

    virtual void Execute(int32_t inValue);
    virtual bool MakeEditorAction() = 0;
    void ExecuteEditMode(int32_t inValue);
    // "CtlD" record: name, type and channel (which must be this record's),
    // latched setting and action sequence.
    bool UpdateFromStream(UStreamReader* inReader);

    void SetControlProperties(const char* inControlName, uint32_t inType, uint32_t inChannel,
                              bool inLatched);
    bool AddAction(std::unique_ptr<CVX_Channel_Action> inAction);
    // The one action, whatever the index: a channel control holds one only.
    CVX_Channel_Action* GetActionAt(uint32_t inIndex) const;

    const std::string& GetControlName() const { return mControlName; }
    uint32_t GetControlType() const { return mControlType; }
    uint32_t GetChannel() const { return mChannel; }
    bool IsLatched() const { return mLatched; }
    CVX_ChannelActionSequence* GetActionSequence() const { return mActionSequence.get(); }
    CVX_Channel_Action* GetEditorAction() const { return mEditorAction.get(); }

  protected:
    CVX_ChannelControlData(const char* inControlName, uint32_t inType, uint32_t inChannel);

    std::string mControlName;
    uint32_t mControlType;
    uint32_t mChannel;
    bool mLatched = false;
    std::unique_ptr<CVX_ChannelActionSequence> mActionSequence;
    std::unique_ptr<CVX_Channel_Action> mEditorAction;
};

class CVX_ChannelFaderData : public CVX_ChannelControlData {
  public:
    CVX_ChannelFaderData(const char* inControlName, uint32_t inType, uint32_t inChannel)
        : CVX_ChannelControlData(inControlName, inType, inChannel) {}
    bool MakeEditorAction() override;
};

class CVX_ChannelButtonData : public CVX_ChannelControlData {
  public:
    CVX_ChannelButtonData(const char* inControlName, uint32_t inType, uint32_t inChannel)
        : CVX_ChannelControlData(inControlName, inType, inChannel) {}
    // Latched buttons toggle on presses and ignore releases; channel buttons
    // take no part in the global latch.
    void Execute(int32_t inValue) override;
    bool MakeEditorAction() override;

    int32_t GetLatchedValue() const { return mLatchedValue; }

  private:
    int32_t mLatchedValue = 0;
};
