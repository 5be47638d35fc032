#include "platform/bus/CVXBusClient.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <cstring>

#include "platform/bus/CVXBusObject.h"
#include "platform/bus/VXBusCodes.h"
#include "platform/bus/VXBusParams.h"

CVXBusClient::~CVXBusClient() {
    if (mMatch) sd_bus_slot_unref(mMatch);
    if (mBus) sd_bus_flush_close_unref(mBus);
}

int CVXBusClient::Connect() {
    if (mBus) return 0;
    const int r = sd_bus_open_user(&mBus);
    if (r < 0) {
        mBus = nullptr;
        mErrorName.clear();
        mError = std::string("no session bus (") + std::strerror(-r) + ")";
    }
    return r;
}

int CVXBusClient::Fail(int inStatus, const sd_bus_error* inError) {
    mErrorName = inError && inError->name ? inError->name : "";
    if (mErrorName == SD_BUS_ERROR_SERVICE_UNKNOWN ||
        mErrorName == SD_BUS_ERROR_NAME_HAS_NO_OWNER) {
        mError = std::string("vxd is not running (no ") + CVXBusObject::kBusName +
                 " on the session bus)";
    } else if (inError && inError->message) {
        mError = inError->message;
    } else {
        mError = std::strerror(-inStatus);
    }
    return inStatus;
}

int CVXBusClient::Event(uint32_t inEventID, const VXAEParams& inParams, VXAEParams& outReply) {
    return Event(VXCodeString(inEventID), inParams, outReply);
}

int CVXBusClient::Event(const std::string& inEventID, const VXAEParams& inParams,
                        VXAEParams& outReply) {
    if (int r = Connect(); r < 0) return r;
    sd_bus_message* call = nullptr;
    int r = sd_bus_message_new_method_call(mBus, &call, CVXBusObject::kBusName,
                                           CVXBusObject::kObjectPath, CVXBusObject::kInterface,
                                           "Event");
    if (r >= 0) r = sd_bus_message_append_basic(call, SD_BUS_TYPE_STRING, inEventID.c_str());
    if (r >= 0) r = VXAppendParams(call, inParams);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    if (r >= 0) r = sd_bus_call(mBus, call, 0, &error, &reply);
    if (r >= 0) {
        outReply.clear();
        r = VXReadParams(reply, outReply);
    } else {
        Fail(r, &error);
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return r < 0 ? r : 0;
}

int CVXBusClient::SetFrontApplication(const std::string& inApplication) {
    if (int r = Connect(); r < 0) return r;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    const int r = sd_bus_call_method(mBus, CVXBusObject::kBusName, CVXBusObject::kObjectPath,
                                     CVXBusObject::kInterface, "SetFrontApplication", &error,
                                     nullptr, "s", inApplication.c_str());
    if (r < 0) Fail(r, &error);
    sd_bus_error_free(&error);
    return r < 0 ? r : 0;
}

int CVXBusClient::DriverOnBus() {
    if (int r = Connect(); r < 0) return r;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    int owned = 0;
    int r = sd_bus_call_method(mBus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "NameHasOwner", &error, &reply, "s",
                               CVXBusObject::kBusName);
    if (r >= 0) r = sd_bus_message_read(reply, "b", &owned);
    if (r < 0) Fail(r, &error);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return r < 0 ? r : owned != 0;
}

int CVXBusClient::WaitForDriver(uint64_t inMicros) {
    // Polled: a driver that starts takes its name within milliseconds, and
    // a look every 50 ms costs the bus nothing.
    constexpr auto kStep = std::chrono::milliseconds(50);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(inMicros);
    for (;;) {
        const int on = DriverOnBus();
        if (on != 0) return on;
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return 0;
        std::this_thread::sleep_for(
            std::min<std::chrono::steady_clock::duration>(kStep, deadline - now));
    }
}

int CVXBusClient::KeysetCount(uint32_t& outCount) {
    if (int r = Connect(); r < 0) return r;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    const int r = sd_bus_get_property_trivial(mBus, CVXBusObject::kBusName,
                                              CVXBusObject::kObjectPath, CVXBusObject::kInterface,
                                              "KeysetCount", &error, 'u', &outCount);
    if (r < 0) Fail(r, &error);
    sd_bus_error_free(&error);
    return r < 0 ? r : 0;
}

int CVXBusClient::Subscribe(SignalFn inHandler) {
    if (int r = Connect(); r < 0) return r;
    mHandler = std::move(inHandler);
    // Matched by the well-known name: the bus resolves it to the driver's
    // connection, and to the next driver's after a restart.
    const int r =
        sd_bus_match_signal(mBus, &mMatch, CVXBusObject::kBusName, CVXBusObject::kObjectPath,
                            CVXBusObject::kInterface, nullptr, &CVXBusClient::OnSignal, this);
    if (r < 0) return Fail(r, nullptr);
    return 0;
}

int CVXBusClient::OnSignal(sd_bus_message* inMessage, void* inSelf, sd_bus_error*) {
    auto* self = static_cast<CVXBusClient*>(inSelf);
    SSignal signal;
    const char* member = sd_bus_message_get_member(inMessage);
    if (member && std::strcmp(member, "ControlEvent") == 0) {
        signal.control = true;
        if (sd_bus_message_read(inMessage, "uui", &signal.controlNum, &signal.channel,
                                &signal.value) < 0)
            return 0;
    } else if (member && std::strcmp(member, "ApplicationEvent") == 0) {
        const char* signature = nullptr;
        const char* id = nullptr;
        if (sd_bus_message_read(inMessage, "ss", &signature, &id) < 0) return 0;
        signal.signature = VXCodeFromString(signature).value_or(0);
        signal.eventID = VXCodeFromString(id).value_or(0);
        if (VXReadParams(inMessage, signal.params) < 0) return 0;
    } else {
        return 0;
    }
    if (self->mHandler) self->mHandler(signal);
    return 0;
}

int CVXBusClient::Wait(uint64_t inMicros) {
    if (!mBus) return -ENOTCONN;
    int r = sd_bus_process(mBus, nullptr);
    if (r != 0) return r < 0 ? r : 0;
    r = sd_bus_wait(mBus, inMicros);
    if (r < 0) return r;
    while ((r = sd_bus_process(mBus, nullptr)) > 0) {
    }
    return r;
}
