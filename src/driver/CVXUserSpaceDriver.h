// The one driver object. It is composed of parts, each testable alone: the
// device link (USB bring-up, the read loop and every write to the surface),
// the input parser that every completed read enters, and the control service
// that the parser's records go to. A 10 ms timer keeps the front application
// current.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "driver/CVXDeviceLink.h"
#include "driver/CVXInputParser.h"
#include "output/VX_AE_Handlers.h"
#include "platform/CVXDeviceWriter.h"
#include "platform/CVXEventLoop.h"
#include "platform/CVXHostMIDIIn.h"

class CVXRecordSink;
class CVXHostMIDIOut;
class CVXMIDISystem;
class CVXService;
class CVXUSBHost;

class CVXUserSpaceDriver : public CVXDeviceWriter, public CVXHostMIDIIn {
  public:
    // The driver of vxd: registers for the surface on inUSB (null: no USB),
    // builds its control service from the preferences file (or from inPrefs,
    // stream data, when given), signs in to inMIDI (null: no MIDI system)
    // and starts its timer on inLoop (null: none).
    CVXUserSpaceDriver(CVXUSBHost* inUSB, CVXEventLoop* inLoop, CVXMIDISystem* inMIDI,
                       std::optional<std::vector<uint8_t>> inPrefs = std::nullopt);
    // For tools that replay captured reads: records go to inService, no USB,
    // no service of its own and no timer.
    CVXUserSpaceDriver(CVXRecordSink* inService, CVXHostMIDIOut* inHost);
    ~CVXUserSpaceDriver() override;
    CVXUserSpaceDriver(const CVXUserSpaceDriver&) = delete;
    CVXUserSpaceDriver& operator=(const CVXUserSpaceDriver&) = delete;

    // The one driver, or null.
    static CVXUserSpaceDriver* GetVXDriver() { return sSelf; }

    void ProcessVXData(const uint8_t* data, size_t length) { mParser.ProcessVXData(data, length); }
    int WriteAsync(const uint8_t* inData, size_t inSize) override {
        return mLink.WriteAsync(inData, inSize);
    }

    // The virtual MIDI ports: a failed sign-in says so and leaves the driver
    // running without them.
    int MIDISignIn();
    void MIDISignOut();
    // Host MIDI sent to the destination port: each packet goes through the
    // current keyset's unmapper (unchanged without one) into device bytes, one
    // write per packet list.
    void DoMIDIReadProc(std::span<const SVXMIDIPacket> inPacketList) override;

    void StartTimeoutCounter();
    void StopTimeoutCounter();
    void TimeoutCounter();

    CVXInputParser& Parser() { return mParser; }
    CVXDeviceLink& Link() { return mLink; }
    CVXService* Service() const { return mService.get(); }
    VX_AE_Handlers& AEHandlers() { return mAEHandlers; }

    static constexpr double kOneTenthOfASecond = 0.1;
    static constexpr double kOneHundredthOfASecond = 0.01;
    static constexpr char kMIDIClientName[] = "Velorix Series";
    static constexpr char kMIDISourceName[] = "Velorix USB MIDI Out";
    static constexpr char kMIDIDestinationName[] = "Velorix USB MIDI In";
    // Room for the device bytes of one packet list; a list whose bytes would
    // not fit is refused whole.
    static constexpr size_t kMIDIOutputSize = 2048;

  private:
    static CVXUserSpaceDriver* sSelf;

    CVXDeviceLink mLink;
    // The editor's commands write through this driver and get the device
    // status from the link.
    VX_AE_Handlers mAEHandlers;
    CVXInputParser mParser;
    std::unique_ptr<CVXService> mService;
    CVXMIDISystem* mMIDI = nullptr;
    bool mMIDISignedIn = false;
    CVXEventLoop* mLoop = nullptr;
    CVXEventLoop::TimerId mTimer = 0;
    double mLastProcessSniff = 0;
};
