// The driver on the user's session bus: the name org.velorix.Driver with the
// object /org/velorix/Driver, interface org.velorix.Driver1.
//
//   Event(s event_id, a{sv} params) -> a{sv} reply
//       the editor's commands: IDs and keywords are their four characters,
//       'magn' values are u, 'long' values i, 'TEXT' values ay. An ID the
//       driver does not handle answers org.velorix.Driver1.Error.EventNotHandled.
//   SetFrontApplication(s application)
//       a focus helper tells which application is in front; the driver maps
//       it through the applications file and follows it from then on.
//   signal ApplicationEvent(s signature, s event_id, a{sv} params)
//       what actions tell applications ('QBtn', 'QFad', 'QCBt'), values i.
//   signal ControlEvent(u control, u channel, i value)
//       every control event of the surface the driver handles.
//   property KeysetCount u (read-only)
//       how many keysets the driver holds: an update for a keyset index it
//       does not hold fails without a word, so a client that sends them
//       (vxctl keyset sync) asks first.
//
// Everything runs on the loop's thread: sd-bus is attached to its sd-event.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <vector>

#include "platform/CVXAppNotifier.h"
#include "platform/CVXControlMonitor.h"

class CVXSdEventLoop;
class CVXFedFrontApp;

class CVXBusObject final : public CVXAppNotifier, public CVXControlMonitor {
  public:
    static constexpr char kBusName[] = "org.velorix.Driver";
    static constexpr char kObjectPath[] = "/org/velorix/Driver";
    static constexpr char kInterface[] = "org.velorix.Driver1";
    static constexpr char kErrorEventNotHandled[] = "org.velorix.Driver1.Error.EventNotHandled";

    // inFocus receives what SetFrontApplication is given; null refuses it.
    CVXBusObject(CVXSdEventLoop& inLoop, CVXFedFrontApp* inFocus);
    ~CVXBusObject() override;
    CVXBusObject(const CVXBusObject&) = delete;
    CVXBusObject& operator=(const CVXBusObject&) = delete;

    // Connects to the session bus ($DBUS_SESSION_BUS_ADDRESS, else the
    // user's), publishes the object and takes the name. 0, or a negative
    // errno; the reason is printed in one line, and the object stays off.
    int Open();
    bool IsOpen() const { return mBus != nullptr; }

    bool SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                              const std::vector<SVXEventParam>& inParams) override;
    void ControlEvent(uint32_t inControl, uint32_t inChannel, int32_t inValue) override;

    // sd-bus's entry points for the two methods.
    static int OnEvent(sd_bus_message* inMessage, void* inSelf, sd_bus_error* outError);
    static int OnSetFrontApplication(sd_bus_message* inMessage, void* inSelf,
                                     sd_bus_error* outError);
    static int OnKeysetCount(sd_bus* inBus, const char* inPath, const char* inInterface,
                             const char* inProperty, sd_bus_message* outReply, void* inSelf,
                             sd_bus_error* outError);

  private:
    void Close();

    CVXSdEventLoop& mLoop;
    CVXFedFrontApp* mFocus;
    sd_bus* mBus = nullptr;
    sd_bus_slot* mSlot = nullptr;
};
