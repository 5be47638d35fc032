#include "service/CVXService.h"

#include <utility>
#include <vector>

#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "model/VXPrefs.h"
#include "platform/CVXControlMonitor.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/SVXPlatform.h"

namespace {

constexpr uint8_t kNoControl = 0xFF;

}  // namespace

CVXService* CVXService::sSelf = nullptr;

CVXService::CVXService() {
    sSelf = this;
    if (InitGlobals()) CreateKeysetData();
}

CVXService::CVXService(std::vector<uint8_t> inPrefs) {
    sSelf = this;
    if (InitGlobals()) CreateKeysetDataFrom(std::move(inPrefs));
}

CVXService::~CVXService() {
    // The keysets go first, while the service is still reachable: whatever they
    // do on the way out finds GetKeysetData() already null.
    mKeysetData.reset();
    if (sSelf == this) sSelf = nullptr;
}

bool CVXService::InitGlobals() {
    // Every field starts as its declaration in the header gives it; what is
    // left is pointing the status record at the maps it reports through.
    SVXControlStatus& s = mGlobals.mControlStatus;
    s.mPreviousControlStatus = mGlobals.mPreviousControlStatusMap;
    s.mControlStatus = mGlobals.mControlStatusMap;
    return true;
}

bool CVXService::CreateKeysetData() {
    std::vector<uint8_t> prefs;
    LoadPreferences(prefs);  // leaves prefs empty when there is no file to read
    return CreateKeysetDataFrom(std::move(prefs));
}

bool CVXService::CreateKeysetDataFrom(std::vector<uint8_t> inPrefs) {
    // A set made again replaces the old one; the old one goes first, so that
    // two sets never share the latch and the master timer.
    mKeysetData.reset();
    mKeysetData = std::make_unique<CVX_KeysetData>();
    if (inPrefs.empty()) return false;
    UStreamReader reader(std::move(inPrefs));
    mKeysetData->UpdateFromStream(&reader);
    return true;
}

bool CVXService::GetControlStatus(const int8_t* inRecord, uint8_t* outControl, uint8_t* outChannel,
                                  int16_t* outValue) {
    if (!inRecord || !outControl || !outChannel || !outValue) return false;
    *outChannel = 0;
    const uint8_t* record = reinterpret_cast<const uint8_t*>(inRecord);
    // Every byte read below is bounded by the record's own length byte: the
    // parser's records always hold what their kind needs, but a short record
    // (say 2, 160) would otherwise have its value taken from whatever follows
    // it. A record too short for its kind decodes as no control and leaves the
    // status alone.
    uint32_t length = record[kVXRecordLength];
    if (length <= kVXRecordKind) {
        *outControl = kNoControl;
        return false;
    }
    uint8_t k = record[kVXRecordKind];
    if (k == kNoControl) return false;

    SVXControlStatus& status = mGlobals.mControlStatus;
    bool result = false;
    bool active = false;
    if (UVX_ControlClass::IsChannelControl(k)) {
        if (length >= kVXChannelRecordLength) {
            uint8_t v = record[kVXRecordChannel];
            *outChannel = v;
            *outValue = record[kVXRecordValue];
            mGlobals.mLastActiveChannel = v;
            if (UVX_ControlClass::IsChannelFader(k) || record[kVXRecordValue] != 0) {
                status.mLastActiveControl = k;
                active = true;
            } else {
                status.mLastInactiveControl = k;
            }
            result = true;
        }
    } else if (UVX_ControlClass::IsButton(k)) {
        if (length >= kVXButtonRecordLength) {
            uint8_t v = record[kVXRecordButtonState];
            status.mLastSubCommand = v;
            if (v == kVXButtonPressed) {
                status.mLastActiveControl = k;
                *outValue = 1;
                active = true;
            } else {
                // Any value but the pressed one counts as a release.
                status.mLastInactiveControl = k;
                *outValue = 0;
            }
            result = true;
        }
    }
    if (result && UVX_ControlClass::IsTransportControl(k)) {
        mGlobals.mControlStatusMap[k] = active ? 1 : 0;
    }
    *outControl = k;
    return result;
}

void CVXService::Service(const uint8_t* record) {
    // The front application first, for every record, so that the record runs
    // in the keyset of the application that is in front now.
    CheckForProcessChange();
    if (!record) return;

    uint8_t control = 0;
    uint8_t channel = 0;
    int16_t value = 0;
    if (GetControlStatus(reinterpret_cast<const int8_t*>(record), &control, &channel, &value)) {
        if (CVXControlMonitor* monitor = SVXPlatform::Get().monitor)
            monitor->ControlEvent(control, channel, value);
        if (!mKeysetData) return;
        CVX_Keyset* keyset = mKeysetData->GetKeysetAt(mKeysetData->GetCurrentKeysetIndex());
        if (!keyset) return;
        keyset->SetCurrentControl(control);

        // Only one transport control stays latched: any other transport
        // button, pressed or released, releases the latch before its own
        // actions run. Channel controls never touch it.
        if (control != CVX_KeysetData::GetLatchedControl() &&
            UVX_ControlClass::IsTransportControl(control)) {
            CVX_KeysetData::UnlatchLatchedControl();
        }

        if (UVX_ControlClass::IsChannelControl(control)) {
            CVX_ChannelControlData* cc = keyset->GetChannelControlAt(control, channel);
            if (!cc) return;
            keyset->SetCurrentChannel(channel);
            if (!mGlobals.mEditMode) {
                cc->Execute(value);
            } else {
                cc->ExecuteEditMode(value);
            }
        } else {
            // A bank button; number 5 has no record in the bank.
            CVX_ControlData* ctl = keyset->GetControlAt(control, keyset->GetCurrentBank());
            if (!ctl) return;
            if (!mGlobals.mEditMode) {
                ctl->Execute(0, value);
            } else {
                ctl->ExecuteEditMode(value);
            }
        }
        return;
    }

    // A pass-through MIDI message: the bytes after kind and length go to the
    // host as one packet. The length byte is signed, as the parser's records
    // never exceed 127 bytes; checking it first keeps the kind byte of a
    // 0- or 1-byte record unread.
    int8_t length = static_cast<int8_t>(record[kVXRecordLength]);
    if (length > static_cast<int8_t>(kVXRecordMessage) &&
        record[kVXRecordKind] == kVXRawMIDIMessage) {
        if (CVXHostMIDIOut* host = SVXPlatform::Get().hostMIDI) {
            host->Send(record + kVXRecordMessage, static_cast<size_t>(length) - kVXRecordMessage);
        }
    }
    // Anything else is dropped.
}

void CVXService::CheckForProcessChange() {
    // The keyset the editor works on must not change under it.
    if (mGlobals.mEditMode) return;
    uint32_t signature = 0;
    if (!GetFrontProcessSig(&signature)) return;
    if (!mKeysetData) return;
    uint32_t index = mKeysetData->FindKeysetIndexForSig(signature);
    if (index != mKeysetData->GetCurrentKeysetIndex()) mKeysetData->SetCurrentKeyset(index);
}

bool CVXService::GetFrontProcessSig(uint32_t* outSignature) {
    CVXFrontAppSource* front = SVXPlatform::Get().frontApp;
    if (!front || !outSignature) return false;
    uint32_t signature = 0;
    if (!front->GetFrontSignature(signature)) return false;
    *outSignature = signature;
    return true;
}

bool CVXService::GetFrontProcessName(uint8_t* /*outName*/) {
    return false;
}
