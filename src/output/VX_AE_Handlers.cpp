#include "output/VX_AE_Handlers.h"

#include <algorithm>

#include "model/CVX_KeysetData.h"
#include "output/CVX_Msg_Maker.h"
#include "platform/CVXDeviceWriter.h"
#include "service/CVXService.h"

VX_AE_Handlers* VX_AE_Handlers::sSelf = nullptr;

const uint32_t VX_AE_Handlers::kHandlerDescTypes[kNumHandlers] = {
    0,
    VXTag("QWrH"),
    VXTag("QStL"),
    VXTag("QSCL"),
    VXTag("QSFd"),
    VXTag("Stus"),
    VXTag("QEdM"),
    VXTag("QAdK"),
    VXTag("QUpK"),
    VXTag("QDlK"),
    VXTag("QUpC"),
    VXTag("QUCC"),
    VXTag("QInK"),
    VXTag("QGCr"),
    VXTag("QStK"),
    VXTag("QStB"),
    VXTag("QDTS"),
    VXTag("QGCC"),
};

const VX_AE_Handlers::Handler VX_AE_Handlers::kHandlers[kNumHandlers] = {
    nullptr,
    &VX_AE_Handlers::WriteToVX,
    &VX_AE_Handlers::SetButtonLED,
    &VX_AE_Handlers::SetChannelButtonLED,
    &VX_AE_Handlers::SetFaderValue,
    &VX_AE_Handlers::GetStatusInfo,
    &VX_AE_Handlers::SetEditMode,
    &VX_AE_Handlers::AddKeyset,
    &VX_AE_Handlers::UpdateKeyset,
    &VX_AE_Handlers::DeleteKeyset,
    &VX_AE_Handlers::UpdateVXControl,
    &VX_AE_Handlers::UpdateChannelControl,
    &VX_AE_Handlers::InitKeysetData,
    &VX_AE_Handlers::GetCurrentKeysetBankAndControl,
    &VX_AE_Handlers::SetCurrentKeyset,
    &VX_AE_Handlers::SetCurrentBank,
    &VX_AE_Handlers::DisableTouchSenseMIDI,
    &VX_AE_Handlers::GetCurrentKeysetControlAndChannel,
};

namespace {

const SVXAEParam* FindParam(const VXAEParams& inEvent, uint32_t inKeyword) {
    for (const SVXAEParam& p : inEvent) {
        if (p.keyword == inKeyword) return &p;
    }
    return nullptr;
}

}  // namespace

VX_AE_Handlers::VX_AE_Handlers(CVXDeviceWriter* inDriver)
    : mDriver(inDriver), mStatus{4, 32, 2, 1, 1, 0, 1} {
    // The placeholders above are never reported: every status reply waits
    // for the device's own status. Only the channel checks see them.
    sSelf = this;
}

VX_AE_Handlers::~VX_AE_Handlers() {
    if (sSelf == this) sSelf = nullptr;
}

void VX_AE_Handlers::Install() {
    mInstalled = true;
}

long VX_AE_Handlers::IndexForEvent(uint32_t inEventID) {
    if (!sSelf || !sSelf->mInstalled || inEventID == 0) return 0;
    for (size_t i = 1; i < kNumHandlers; ++i) {
        if (kHandlerDescTypes[i] == inEventID) return static_cast<long>(i);
    }
    return 0;
}

int32_t VX_AE_Handlers::HandleEvent(uint32_t inEventID, const VXAEParams& inEvent,
                                    VXAEParams* outReply) {
    const long index = IndexForEvent(inEventID);
    if (index == 0) return kErrAEEventNotHandled;
    return AEHandlerEntry(inEvent, outReply, index);
}

int32_t VX_AE_Handlers::AEHandlerEntry(const VXAEParams& inEvent, VXAEParams* outReply,
                                       long inHandlerRefcon) {
    if (!sSelf || inHandlerRefcon <= 0 || inHandlerRefcon >= static_cast<long>(kNumHandlers))
        return kErrAEEventNotHandled;
    (sSelf->*kHandlers[inHandlerRefcon])(inEvent, outReply);
    return 0;
}

void VX_AE_Handlers::UpdateStatus(const uint32_t* inStatus) {
    if (!inStatus) return;
    std::copy(inStatus, inStatus + kNumStatusWords, mStatus);
    mHaveStatus = true;
}

int32_t VX_AE_Handlers::Send(const CVX_Msg_Maker* inMaker) {
    if (inMaker->Length() != 0 && mDriver)
        mDriver->WriteAsync(inMaker->Message(), inMaker->Length());
    return 0;
}

bool VX_AE_Handlers::GetParamMagn(const VXAEParams& inEvent, uint32_t inKeyword,
                                  uint32_t& outValue) {
    const SVXAEParam* p = FindParam(inEvent, inKeyword);
    if (!p) return false;
    if (const uint32_t* u = std::get_if<uint32_t>(&p->value)) {
        outValue = *u;
        return true;
    }
    if (const int32_t* i = std::get_if<int32_t>(&p->value); i && *i >= 0) {
        outValue = static_cast<uint32_t>(*i);
        return true;
    }
    return false;
}

bool VX_AE_Handlers::GetParamLong(const VXAEParams& inEvent, uint32_t inKeyword,
                                  int32_t& outValue) {
    const SVXAEParam* p = FindParam(inEvent, inKeyword);
    if (!p) return false;
    if (const int32_t* i = std::get_if<int32_t>(&p->value)) {
        outValue = *i;
        return true;
    }
    if (const uint32_t* u = std::get_if<uint32_t>(&p->value); u && *u <= INT32_MAX) {
        outValue = static_cast<int32_t>(*u);
        return true;
    }
    return false;
}

const std::vector<uint8_t>* VX_AE_Handlers::GetParamText(const VXAEParams& inEvent,
                                                         uint32_t inKeyword) {
    const SVXAEParam* p = FindParam(inEvent, inKeyword);
    return p ? std::get_if<std::vector<uint8_t>>(&p->value) : nullptr;
}

void VX_AE_Handlers::WriteToVX(const VXAEParams& inEvent, VXAEParams*) {
    const std::vector<uint8_t>* raw = GetParamText(inEvent, VXTag("QRaw"));
    if (!raw || raw->empty() || !mDriver) return;
    // The bytes land in a buffer of kRawBufferSize; a longer parameter
    // reports its whole size, which would write past that buffer's end, so
    // the write takes the buffer's worth.
    mDriver->WriteAsync(raw->data(), std::min(raw->size(), kRawBufferSize));
}

void VX_AE_Handlers::SetButtonLED(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t control = 0;
    int32_t value = 0;
    if (!GetParamMagn(inEvent, VXTag("CtlN"), control)) return;
    if (!GetParamLong(inEvent, VXTag("CVal"), value)) return;
    CVX_LED_MsgMaker maker(static_cast<uint8_t>(control & 0xFF), value != 0);
    Send(&maker);
}

void VX_AE_Handlers::SetChannelButtonLED(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t control = 0;
    uint32_t channel = 0;
    int32_t value = 0;
    if (!GetParamMagn(inEvent, VXTag("CtlN"), control)) return;
    if (!GetParamMagn(inEvent, VXTag("Chnl"), channel)) return;
    if (!GetParamLong(inEvent, VXTag("CVal"), value)) return;
    if (channel >= mStatus[1]) return;  // word 1: the number of channel strips
    CVX_Channel_LED_MsgMaker maker(static_cast<uint8_t>(control & 0xFF),
                                   static_cast<uint16_t>(channel & 0xFFFF), value != 0);
    Send(&maker);
}

void VX_AE_Handlers::SetFaderValue(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t channel = 0;
    int32_t value = 0;
    if (!GetParamMagn(inEvent, VXTag("Chnl"), channel)) return;
    if (!GetParamLong(inEvent, VXTag("CVal"), value)) return;
    if (channel >= mStatus[1]) return;
    // 'CVal' is on the 0..1020 scale of the fader events the driver sends;
    // the shift gives back the 8-bit position.
    CVX_Fader_MsgMaker maker(static_cast<uint16_t>(channel),
                             static_cast<uint16_t>((value >> 2) & 0xFFFF));
    Send(&maker);
}

void VX_AE_Handlers::GetStatusInfo(const VXAEParams&, VXAEParams* outReply) {
    if (!outReply || !mHaveStatus) return;
    std::vector<uint8_t> data;
    data.reserve(kNumStatusWords * 4);
    for (uint32_t word : mStatus) {
        for (int shift = 24; shift >= 0; shift -= 8)
            data.push_back(static_cast<uint8_t>(word >> shift));
    }
    outReply->push_back({VXTag("StDt"), std::move(data)});
}

void VX_AE_Handlers::SetEditMode(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t value = 0;
    if (!GetParamMagn(inEvent, VXTag("QEdM"), value)) return;
    if (CVXService* service = CVXService::GetVXService()) service->SetEditMode(value != 0);
}

void VX_AE_Handlers::Upload(const VXAEParams& inEvent, uint32_t inDataKeyword,
                            bool (CVX_KeysetData::*inOperation)(UStreamReader*)) {
    uint32_t size = 0;
    if (!GetParamMagn(inEvent, VXTag("QDSz"), size)) return;
    const std::vector<uint8_t>* data = GetParamText(inEvent, inDataKeyword);
    if (!data) return;
    CVX_KeysetData* keysets = CVX_KeysetData::GetKeysetData();
    if (!keysets) return;
    // A block of the declared size would be read whole, its bytes past the
    // data left as the allocation found them; and a size near 4 GiB would be
    // allocated before anything is read. The reader therefore gets the data
    // that is there, up to the declared size, and nothing else: a stream
    // whose size and data agree reads exactly as declared.
    const size_t length = std::min<size_t>(size, data->size());
    UStreamReader reader(std::vector<uint8_t>(data->begin(), data->begin() + length));
    (keysets->*inOperation)(&reader);
}

void VX_AE_Handlers::AddKeyset(const VXAEParams& inEvent, VXAEParams*) {
    Upload(inEvent, VXTag("QKys"), &CVX_KeysetData::NewKeysetFromStream);
}

void VX_AE_Handlers::UpdateKeyset(const VXAEParams& inEvent, VXAEParams*) {
    Upload(inEvent, VXTag("QKys"), &CVX_KeysetData::UpdateKeysetFromStream);
}

void VX_AE_Handlers::DeleteKeyset(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t index = 0;
    if (!GetParamMagn(inEvent, VXTag("QKys"), index)) return;
    if (CVX_KeysetData* keysets = CVX_KeysetData::GetKeysetData()) keysets->DeleteKeysetAt(index);
}

void VX_AE_Handlers::UpdateVXControl(const VXAEParams& inEvent, VXAEParams*) {
    Upload(inEvent, VXTag("QCtD"), &CVX_KeysetData::UpdateControlFromStream);
}

void VX_AE_Handlers::UpdateChannelControl(const VXAEParams& inEvent, VXAEParams*) {
    Upload(inEvent, VXTag("QCtD"), &CVX_KeysetData::UpdateChannelControlFromStream);
}

// Accepted so that an editor that sends them succeeds; the keyset selection
// follows the front application, not the editor.
void VX_AE_Handlers::InitKeysetData(const VXAEParams&, VXAEParams*) {}
void VX_AE_Handlers::SetCurrentKeyset(const VXAEParams&, VXAEParams*) {}
void VX_AE_Handlers::SetCurrentBank(const VXAEParams&, VXAEParams*) {}

void VX_AE_Handlers::GetCurrentKeysetBankAndControl(const VXAEParams&, VXAEParams* outReply) {
    if (!outReply || !mHaveStatus) return;
    CVX_KeysetData* keysets = CVX_KeysetData::GetKeysetData();
    if (!keysets) return;
    const uint32_t index = keysets->GetCurrentKeysetIndex();
    outReply->push_back({VXTag("QKyN"), index});
    // The current index may stand past the last keyset after a deletion;
    // there is then no keyset to ask, and the reply ends here.
    const CVX_Keyset* keyset = keysets->GetKeysetAt(index);
    if (!keyset) return;
    outReply->push_back({VXTag("QBkN"), keyset->GetCurrentBank()});
    outReply->push_back({VXTag("CtlN"), keyset->GetCurrentControl()});
}

void VX_AE_Handlers::GetCurrentKeysetControlAndChannel(const VXAEParams&, VXAEParams* outReply) {
    if (!outReply || !mHaveStatus) return;
    CVX_KeysetData* keysets = CVX_KeysetData::GetKeysetData();
    if (!keysets) return;
    const uint32_t index = keysets->GetCurrentKeysetIndex();
    outReply->push_back({VXTag("QKyN"), index});
    const CVX_Keyset* keyset = keysets->GetKeysetAt(index);  // as above
    if (!keyset) return;
    outReply->push_back({VXTag("CtlN"), keyset->GetCurrentControl()});
    outReply->push_back({VXTag("Chnl"), keyset->GetCurrentChannel()});
}

void VX_AE_Handlers::DisableTouchSenseMIDI(const VXAEParams& inEvent, VXAEParams*) {
    uint32_t value = 0;
    if (!GetParamMagn(inEvent, VXTag("QTSt"), value)) return;
    if (CVX_KeysetData* keysets = CVX_KeysetData::GetKeysetData())
        keysets->DisableTouchSenseMIDI(value != 0);
}
