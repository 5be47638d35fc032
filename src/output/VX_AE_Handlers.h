// The editor's command interface: seventeen commands of class 'QRCn' that
// upload, replace and delete keysets and single controls, read the device
// status and the current selection, switch edit mode, mute the Touch Sense
// MIDI and drive the surface directly (raw bytes, LEDs, faders).
//
// The handlers work on plain values, whatever carries the commands: an event
// ID, the event's parameters (four-character keywords with typed values) and
// a reply to fill in. The transport (D-Bus, a test, a fuzz target) turns its
// messages into these and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "model/UStreamReader.h"

class CVXDeviceWriter;
class CVX_KeysetData;
class CVX_Msg_Maker;

// One parameter's value, of one of the three descriptor types the commands
// use: 'magn' (unsigned 32-bit), 'long' (signed 32-bit), 'TEXT' (raw bytes).
using VXAEValue = std::variant<uint32_t, int32_t, std::vector<uint8_t>>;

struct SVXAEParam {
    uint32_t keyword;
    VXAEValue value;
    bool operator==(const SVXAEParam&) const = default;
};

// A command's parameters, or a reply's, in order. A keyword given twice is
// found at its first place.
using VXAEParams = std::vector<SVXAEParam>;

constexpr uint32_t kVXTypeMagn = VXTag("magn");
constexpr uint32_t kVXTypeLong = VXTag("long");
constexpr uint32_t kVXTypeText = VXTag("TEXT");

class VX_AE_Handlers {
  public:
    static constexpr uint32_t kEventClass = VXTag("QRCn");
    static constexpr size_t kNumHandlers = 18;  // entry 0 holds no event
    static const uint32_t kHandlerDescTypes[kNumHandlers];
    static constexpr size_t kNumStatusWords = 7;
    // 'QRaw' is read into a buffer of this size.
    static constexpr size_t kRawBufferSize = 1024;
    // What a command outside the table answers: the event was not handled.
    static constexpr int32_t kErrAEEventNotHandled = -1708;

    // inDriver receives every write to the surface; not owned, may be null
    // (then nothing is written). Status replies wait for UpdateStatus.
    explicit VX_AE_Handlers(CVXDeviceWriter* inDriver);
    ~VX_AE_Handlers();
    VX_AE_Handlers(const VX_AE_Handlers&) = delete;
    VX_AE_Handlers& operator=(const VX_AE_Handlers&) = delete;

    static VX_AE_Handlers* GetAEHandlers() { return sSelf; }

    // Makes the seventeen event IDs known to HandleEvent.
    void Install();
    bool IsInstalled() const { return mInstalled; }

    // The reference constant of an installed event ID: 1 to 17, or 0 when
    // the ID is not in the table or nothing is installed.
    static long IndexForEvent(uint32_t inEventID);
    // A command as a transport receives it: the installed handler of
    // inEventID, or kErrAEEventNotHandled.
    static int32_t HandleEvent(uint32_t inEventID, const VXAEParams& inEvent, VXAEParams* outReply);
    // Runs the handler of inHandlerRefcon and answers 0 whatever it met: a
    // missing or malformed parameter makes a handler do nothing, and the
    // sender still sees success. kErrAEEventNotHandled when there are no
    // handlers or the reference constant names none. outReply may be null
    // (the sender wants no reply): the queries then answer nothing.
    static int32_t AEHandlerEntry(const VXAEParams& inEvent, VXAEParams* outReply,
                                  long inHandlerRefcon);

    // The device's status, from the device link once the surface answered.
    void UpdateStatus(const uint32_t* inStatus);
    bool HaveStatus() const { return mHaveStatus; }
    const uint32_t* Status() const { return mStatus; }

    int32_t Send(const CVX_Msg_Maker* inMaker);

    void WriteToVX(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetButtonLED(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetChannelButtonLED(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetFaderValue(const VXAEParams& inEvent, VXAEParams* outReply);
    void GetStatusInfo(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetEditMode(const VXAEParams& inEvent, VXAEParams* outReply);
    void AddKeyset(const VXAEParams& inEvent, VXAEParams* outReply);
    void UpdateKeyset(const VXAEParams& inEvent, VXAEParams* outReply);
    void DeleteKeyset(const VXAEParams& inEvent, VXAEParams* outReply);
    void UpdateVXControl(const VXAEParams& inEvent, VXAEParams* outReply);
    void UpdateChannelControl(const VXAEParams& inEvent, VXAEParams* outReply);
    void InitKeysetData(const VXAEParams& inEvent, VXAEParams* outReply);
    void GetCurrentKeysetBankAndControl(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetCurrentKeyset(const VXAEParams& inEvent, VXAEParams* outReply);
    void SetCurrentBank(const VXAEParams& inEvent, VXAEParams* outReply);
    void DisableTouchSenseMIDI(const VXAEParams& inEvent, VXAEParams* outReply);
    void GetCurrentKeysetControlAndChannel(const VXAEParams& inEvent, VXAEParams* outReply);

    // A parameter read as the Apple Event Manager reads one: false when it is
    // missing or cannot be had as the desired type. The two integer types
    // stand for each other when the value fits (a 'long' of 5 reads as 'magn'
    // 5, a negative one does not).
    static bool GetParamMagn(const VXAEParams& inEvent, uint32_t inKeyword, uint32_t& outValue);
    static bool GetParamLong(const VXAEParams& inEvent, uint32_t inKeyword, int32_t& outValue);
    // The bytes of a 'TEXT' parameter, not copied; null when missing or of
    // another type.
    static const std::vector<uint8_t>* GetParamText(const VXAEParams& inEvent, uint32_t inKeyword);

  private:
    using Handler = void (VX_AE_Handlers::*)(const VXAEParams&, VXAEParams*);
    static const Handler kHandlers[kNumHandlers];

    // The keyset uploads: the size, then that many bytes of the data
    // parameter, to the keyset set's operation.
    void Upload(const VXAEParams& inEvent, uint32_t inDataKeyword,
                bool (CVX_KeysetData::*inOperation)(UStreamReader*));

    static VX_AE_Handlers* sSelf;

    CVXDeviceWriter* mDriver;
    uint32_t mStatus[kNumStatusWords];
    bool mHaveStatus = false;
    bool mInstalled = false;
};
