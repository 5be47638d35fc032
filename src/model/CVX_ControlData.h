// Button control records of a keyset's bank (control numbers 0 to 5): names,
// latching, the ordered action sequence and the editor action used while the
// editor has the surface in edit mode.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "actions/CVX_Action.h"

class UStreamReader;

class CVX_ActionSequence {
  public:
    CVX_ActionSequence() { mActions.reserve(12); }  // the stream's action slots

    void AddAction(std::unique_ptr<CVX_Action> inAction);
    CVX_Action* GetActionAt(uint32_t inIndex) const;  // null past the end
    uint32_t GetCount() const { return static_cast<uint32_t>(mActions.size()); }
    void DeleteActions();  // destroys every action, in order
    // Count, then that many 156-byte action records, then filler up to 12.
    bool UpdateFromStream(UStreamReader* inReader);

  private:
    std::vector<std::unique_ptr<CVX_Action>> mActions;
};

class CVX_ControlData {
  public:
    // A CVX_ButtonData with its editor action for a button number (0 to 5),
    // null for anything else.
    static std::unique_ptr<CVX_ControlData> Create_VX_ControlData(const char* inControlName,
                                                                  const char* inAssignedName,
                                                                  uint32_t inControlNum);

    virtual ~CVX_ControlData();
    CVX_ControlData(const CVX_ControlData&) = delete;
    CVX_ControlData& operator=(const CVX_ControlData&) = delete;

    // Runs the action at inActionIndex (nothing if there is none). Actions
    // chain to the next index through this same virtual call.
    virtual void Execute(uint32_t inActionIndex, int32_t inValue);
    virtual bool MakeEditorAction() { return false; }
    // Runs the editor action instead, while edit mode is on.
    void ExecuteEditMode(int32_t inValue);
    // Names, latched setting and action sequence (no tags).
    bool UpdateFromStream(UStreamReader* inReader);

    void SetControlProperties(const char* inControlName, const char* inAssignedName,
                              uint32_t inControlNum, bool inLatched);
    void AddAction(std::unique_ptr<CVX_Action> inAction);
    CVX_Action* GetActionAt(uint32_t inIndex) const;

    const std::string& GetControlName() const { return mControlName; }
    const std::string& GetAssignedName() const { return mAssignedName; }
    uint32_t GetControlNum() const { return mControlNum; }
    bool IsLatched() const { return mLatched; }
    CVX_ActionSequence* GetActionSequence() const { return mActionSequence.get(); }
    CVX_Action* GetEditorAction() const { return mEditorAction.get(); }

  protected:
    CVX_ControlData(const char* inControlName, const char* inAssignedName, uint32_t inControlNum);

    std::string mControlName;
    std::string mAssignedName;
    uint32_t mControlNum;
    bool mLatched = false;
    std::unique_ptr<CVX_ActionSequence> mActionSequence;
    std::unique_ptr<CVX_Action> mEditorAction;
};

// The only kind of button record: follows press and release, or, latched,
// toggles; latched transport buttons share the keyset set's global latch.
class CVX_ButtonData : public CVX_ControlData {
  public:
    CVX_ButtonData(const char* inControlName, const char* inAssignedName, uint32_t inControlNum);

    void Execute(uint32_t inActionIndex, int32_t inValue) override;
    bool MakeEditorAction() override;

    int32_t GetLatchedValue() const { return mLatchedValue; }

  private:
    int32_t mLatchedValue = 0;
    bool mIsTransportControl;
};
