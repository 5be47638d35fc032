// The base of every button action: one step of what a transport button does.
// A control record runs its sequence as a chain: each action executes and says
// whether the next one runs now. Held buttons repeat through the master timer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class CVX_ControlData;
class UStreamReader;

// Action kinds as stored in the keyset stream.
enum EVX_Action_Type : int32_t {
    vx_action_type_key = 0,
    vx_action_type_mouse = 1,
    vx_action_type_menu_item = 2,
    vx_action_callback = 3,
    vx_action_type_delay = 4,
    vx_action_type_special = 5,
    vx_action_type_app_specific = 6,
    vx_action_type_midi = 7,
    vx_action_type_emulation = 8,
    vx_action_built_in = 0x8000,    // flag: a built-in default
    built_in_action_mask = -32769,  // every bit but the flag
    vx_action_built_in_key = 32768,
    vx_action_built_in_mouse = 32769,
    vx_action_built_in_menu_item = 32770,
    vx_action_built_in_callback = 32771,
    vx_action_built_in_special = 32773,
    vx_action_built_in_app_specific = 32774,
};

// Menu-item records create no action; the enumeration stays with the model.
enum EMenuActionMethod : int32_t { choose_by_name = 0, choose_by_position = 1 };

constexpr double kOneTickInSeconds = 1.0 / 60.0;
constexpr double kOneTenthOfASecond = 0.1;
constexpr double kOneHundredthOfASecond = 0.01;

// Every button action record occupies exactly this many bytes of the stream.
constexpr uint32_t kVXActionRecordSize = 156;
// A button's action sequence always takes room for this many records.
constexpr uint32_t kVXActionSlots = 12;

// 'VX4X', the editor application: the address of every control's editor action.
constexpr uint32_t kVXEditorSignature = 0x56583458;

class CVX_Action {
  public:
    CVX_Action() : CVX_Action(0, 0, "") {}
    CVX_Action(uint32_t inControlNum, uint16_t inSpeed, const char* inName);
    // Takes every entry of this action out of the master timer: an action
    // destroyed while it repeats must never be ticked again.
    virtual ~CVX_Action();
    CVX_Action(const CVX_Action&) = delete;
    CVX_Action& operator=(const CVX_Action&) = delete;

    // Runs this action, then (if ExecuteSelf says so) the next action of the
    // record's sequence through the record's own Execute.
    virtual void Execute(CVX_ControlData* inControlData, uint32_t inIndex, int32_t inValue,
                         bool inRepeat);
    // The action's own effect; true when the next action is to run now.
    virtual bool ExecuteSelf(int32_t inValue, bool inRepeat) = 0;
    // Called by the master timer on each tick while the action repeats.
    virtual void ExecuteRepeat();
    virtual void RepeatSelf() {}

    void SetProperties(uint32_t inControlNum, uint16_t inSpeed, const char* inName);
    // First repeat after inDelayInterval, then every inRepeatInterval (seconds).
    void SchedualRepeat(double inDelayInterval, double inRepeatInterval);
    void TerminateRepeat();

    // One 156-byte action record: header, body by type, filler. Null for a
    // truncated record, a kind that builds no action, or a body over 156 bytes.
    static std::unique_ptr<CVX_Action> CreateActionFromStream(UStreamReader* inReader);

    EVX_Action_Type GetType() const { return mType; }
    uint32_t GetControlNum() const { return mControlNum; }
    uint16_t GetSpeed() const { return mSpeed; }
    const std::string& GetName() const { return mName; }
    int32_t GetValue() const { return mValue; }
    int32_t GetLastValue() const { return mLastValue; }
    double GetLastExecute() const { return mLastExecute; }

  protected:
    EVX_Action_Type mType = vx_action_type_key;
    uint32_t mControlNum = 0;
    uint16_t mSpeed = 0;
    std::string mName;
    int32_t mValue = 0;
    int32_t mLastValue = 0;
    double mLastExecute = 0;
    double mLastRepeat = 0;
    double mCurInterval = 0;
    double mDelayInterval = 0;
    double mRepeatInterval = 0;
};
