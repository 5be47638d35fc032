// A client of the driver's object on the session bus (vxctl, the tests):
// calls its methods and hears its signals.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <string>

#include "output/VX_AE_Handlers.h"

class CVXBusClient {
  public:
    // One signal of the driver: a control event (control, channel, value), or
    // an application event (signature, event ID, parameters).
    struct SSignal {
        bool control = false;
        uint32_t controlNum = 0;
        uint32_t channel = 0;
        int32_t value = 0;
        uint32_t signature = 0;
        uint32_t eventID = 0;
        VXAEParams params;
    };
    using SignalFn = std::function<void(const SSignal&)>;

    CVXBusClient() = default;
    ~CVXBusClient();
    CVXBusClient(const CVXBusClient&) = delete;
    CVXBusClient& operator=(const CVXBusClient&) = delete;

    // Connects to the session bus; 0 or a negative errno, with Error() saying
    // why in words.
    int Connect();
    // The command inEventID; 0 with outReply filled, or a negative errno with
    // ErrorName() and Error() set (kErrorEventNotHandled for an ID the driver
    // does not handle; a driver that is not on the bus gives the bus's own
    // error, and Error() says "vxd is not running ...").
    int Event(uint32_t inEventID, const VXAEParams& inParams, VXAEParams& outReply);
    // The same with the event ID as a string of any length.
    int Event(const std::string& inEventID, const VXAEParams& inParams, VXAEParams& outReply);
    int SetFrontApplication(const std::string& inApplication);
    // Whether a driver holds its name on the bus now; 0 (no) or 1, or a
    // negative errno.
    int DriverOnBus();
    // 1 as soon as a driver holds its name, 0 when inMicros passed without
    // one, or a negative errno.
    int WaitForDriver(uint64_t inMicros);
    // The number of keysets the driver holds; 0 or a negative errno.
    int KeysetCount(uint32_t& outCount);

    // Subscribes to the driver's two signals; each goes to inHandler while
    // Process() or Wait() runs. 0 or a negative errno.
    int Subscribe(SignalFn inHandler);
    // Handles what has arrived; waits up to inMicros for more first when
    // nothing has. Negative errno when the connection failed.
    int Wait(uint64_t inMicros);

    const std::string& Error() const { return mError; }
    const std::string& ErrorName() const { return mErrorName; }
    sd_bus* Native() const { return mBus; }

  private:
    static int OnSignal(sd_bus_message* inMessage, void* inSelf, sd_bus_error* outError);
    int Fail(int inStatus, const sd_bus_error* inError);

    sd_bus* mBus = nullptr;
    sd_bus_slot* mMatch = nullptr;
    SignalFn mHandler;
    std::string mError;
    std::string mErrorName;
};
