#include "platform/bus/CVXBusObject.h"

#include <systemd/sd-bus.h>

#include <cstring>
#include <string>

#include "model/CVX_KeysetData.h"
#include "output/VX_AE_Handlers.h"
#include "platform/CVXFedFrontApp.h"
#include "platform/VXDiagnostics.h"
#include "platform/bus/VXBusCodes.h"
#include "platform/bus/VXBusParams.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "service/CVXService.h"

namespace {

const sd_bus_vtable kVTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("Event", "sa{sv}", SD_BUS_PARAM(event_id) SD_BUS_PARAM(params),
                             "a{sv}", SD_BUS_PARAM(reply), &CVXBusObject::OnEvent,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("SetFrontApplication", "s", SD_BUS_PARAM(application), "", ,
                             &CVXBusObject::OnSetFrontApplication, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_NAMES("ApplicationEvent", "ssa{sv}",
                             SD_BUS_PARAM(signature) SD_BUS_PARAM(event_id) SD_BUS_PARAM(params),
                             0),
    SD_BUS_SIGNAL_WITH_NAMES("ControlEvent", "uui",
                             SD_BUS_PARAM(control) SD_BUS_PARAM(channel) SD_BUS_PARAM(value), 0),
    // Read when needed: the count changes with the editor's commands, which
    // a reader may have sent itself, so no change is signalled.
    SD_BUS_PROPERTY("KeysetCount", "u", &CVXBusObject::OnKeysetCount, 0,
                    SD_BUS_VTABLE_PROPERTY_EXPLICIT),
    SD_BUS_VTABLE_END,
};

}  // namespace

CVXBusObject::CVXBusObject(CVXSdEventLoop& inLoop, CVXFedFrontApp* inFocus)
    : mLoop(inLoop), mFocus(inFocus) {}

CVXBusObject::~CVXBusObject() {
    Close();
}

void CVXBusObject::Close() {
    if (mSlot) sd_bus_slot_unref(mSlot);
    mSlot = nullptr;
    if (mBus) {
        sd_bus_detach_event(mBus);
        sd_bus_flush_close_unref(mBus);
    }
    mBus = nullptr;
}

int CVXBusObject::Open() {
    if (mBus) return 0;
    sd_bus* bus = nullptr;
    int r = sd_bus_open_user(&bus);
    if (r < 0) {
        VXDiagnostic("D-Bus: no session bus (%s): no editor interface\n", std::strerror(-r));
        return r;
    }
    mBus = bus;
    const char* step = "cannot publish";
    r = sd_bus_add_object_vtable(mBus, &mSlot, kObjectPath, kInterface, kVTable, this);
    if (r >= 0) {
        step = "cannot take the name";
        r = sd_bus_request_name(mBus, kBusName, 0);
    }
    if (r >= 0) {
        step = "cannot attach to the loop";
        r = sd_bus_attach_event(mBus, mLoop.Native(), 0);
    }
    if (r < 0) {
        // The name held by another process is the usual case: a second vxd.
        if (r == -EEXIST)
            VXDiagnostic("D-Bus: %s is taken by another process: no editor interface\n", kBusName);
        else
            VXDiagnostic("D-Bus: %s %s (%s): no editor interface\n", step, kBusName,
                         std::strerror(-r));
        Close();
        return r;
    }
    return 0;
}

int CVXBusObject::OnEvent(sd_bus_message* inMessage, void*, sd_bus_error* outError) {
    const char* id = nullptr;
    int r = sd_bus_message_read_basic(inMessage, SD_BUS_TYPE_STRING, &id);
    if (r < 0) return r;
    const std::string eventID = id;  // the message's own string moves on as it is read
    VXAEParams params;
    if ((r = VXReadParams(inMessage, params)) < 0) return r;

    const std::optional<uint32_t> code = VXCodeFromString(eventID);
    VXAEParams reply;
    const int32_t result = code ? VX_AE_Handlers::HandleEvent(*code, params, &reply)
                                : VX_AE_Handlers::kErrAEEventNotHandled;
    if (result != 0)
        return sd_bus_error_setf(outError, kErrorEventNotHandled, "event '%s' is not handled (%d)",
                                 eventID.c_str(), result);

    sd_bus_message* answer = nullptr;
    if ((r = sd_bus_message_new_method_return(inMessage, &answer)) < 0) return r;
    r = VXAppendParams(answer, reply);
    if (r >= 0) r = sd_bus_send(nullptr, answer, nullptr);
    sd_bus_message_unref(answer);
    return r < 0 ? r : 1;
}

int CVXBusObject::OnSetFrontApplication(sd_bus_message* inMessage, void* inSelf,
                                        sd_bus_error* outError) {
    auto* self = static_cast<CVXBusObject*>(inSelf);
    const char* application = nullptr;
    int r = sd_bus_message_read_basic(inMessage, SD_BUS_TYPE_STRING, &application);
    if (r < 0) return r;
    if (!self->mFocus)
        return sd_bus_error_set(outError, SD_BUS_ERROR_NOT_SUPPORTED,
                                "this driver takes no front application");
    self->mFocus->Feed(application);
    // At once, not at the next poll: the helper's caller may act right away.
    if (CVXService* service = CVXService::GetVXService()) service->CheckForProcessChange();
    return sd_bus_reply_method_return(inMessage, "");
}

int CVXBusObject::OnKeysetCount(sd_bus*, const char*, const char*, const char*,
                                sd_bus_message* outReply, void*, sd_bus_error*) {
    const CVXService* service = CVXService::GetVXService();
    const CVX_KeysetData* keysets = service ? service->GetKeysetData() : nullptr;
    const uint32_t count = keysets ? keysets->GetNumKeysets() : 0;
    return sd_bus_message_append_basic(outReply, SD_BUS_TYPE_UINT32, &count);
}

bool CVXBusObject::SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                                        const std::vector<SVXEventParam>& inParams) {
    if (!mBus || !VXCodeIsASCII(inSignature) || !VXCodeIsASCII(inEventID)) return false;
    sd_bus_message* signal = nullptr;
    if (sd_bus_message_new_signal(mBus, &signal, kObjectPath, kInterface, "ApplicationEvent") < 0)
        return false;
    VXAEParams params;
    params.reserve(inParams.size());
    for (const SVXEventParam& p : inParams) params.push_back({p.keyword, p.value});
    int r = sd_bus_message_append(signal, "ss", VXCodeString(inSignature).c_str(),
                                  VXCodeString(inEventID).c_str());
    if (r >= 0) r = VXAppendParams(signal, params);
    if (r >= 0) r = sd_bus_send(mBus, signal, nullptr);
    sd_bus_message_unref(signal);
    return r >= 0;
}

void CVXBusObject::ControlEvent(uint32_t inControl, uint32_t inChannel, int32_t inValue) {
    if (!mBus) return;
    sd_bus_emit_signal(mBus, kObjectPath, kInterface, "ControlEvent", "uui", inControl, inChannel,
                       inValue);
}
