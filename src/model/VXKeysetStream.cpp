// Every reader of the keyset stream: the full set from the preferences file,
// and the pieces the editor sends (an added keyset, a keyset replaced in place,
// one button control, one channel control), down to the action sequences.
//
// Each reader reports failure by its result and never rewinds: the stream
// stands wherever the failing read left it, and what was already stored stays.
// Which state survives a failed read is part of the format's contract with the
// editor, so the order of reads and stores below is deliberate throughout.
#include <cstdint>
#include <memory>

#include "actions/CVX_Action.h"
#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_EmulationResponder.h"
#include "model/CVX_ChannelControlData.h"
#include "model/CVX_ControlData.h"
#include "model/CVX_Keyset.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/VXDiagnostics.h"

namespace {

// Streams older than this carry a layout this driver does not read at all.
constexpr uint32_t kLastUnsupportedVersion = 0x3FFFF;

// Channels per control group: all sixteen from version three on, eight before.
constexpr uint32_t kChannelsPerGroup = 16;
constexpr uint32_t kChannelsPerGroupBeforeThree = 8;

// The fewest bytes a channel control record can occupy: its tags and longs,
// an empty name, and an empty sequence ("Sequ", "CCnt", count 0).
constexpr uint32_t kMinChannelControlRecordSize = 4 + 4 + 1 + 8 + 8 + 8 + 4 + 8;
// The fewest bytes a keyset record that reads successfully can occupy:
// "Kyst", "St31" and an empty name, "Sgnt" and "EmMd" with their longs, then
// six group headers with the records of the smaller (eight-channel) layout.
constexpr uint32_t kMinKeysetRecordSize =
    4 + 4 + 1 + 8 + 8 +
    kNumChannelControls * (8 + kChannelsPerGroupBeforeThree * kMinChannelControlRecordSize);

// "%ld" values are the 32-bit numbers of the stream, shown signed.
long AsLong(uint32_t inValue) {
    return static_cast<long>(static_cast<int32_t>(inValue));
}

}  // namespace

// ---------------------------------------------------------------------------
// The keyset set

bool CVX_KeysetData::UpdateFromStream(UStreamReader* inReader) {
    if (!inReader) return false;

    // Nothing may change until the header and the count have been read: an
    // unreadable or too old stream leaves the keysets and the current index.
    uint32_t version = 0;
    if (!inReader->TagIs(VXTag("KstD")) || !inReader->TagIs(VXTag("CrKV")) ||
        !inReader->GetLong(version) || version <= kLastUnsupportedVersion) {
        return false;
    }
    uint32_t numKeysets = 0;
    if (!inReader->TagIs(VXTag("KsCt")) || !inReader->GetLong(numKeysets)) return false;

    DeleteKeysets();
    // The count comes from outside and may ask for billions of entries; no
    // more keysets can follow than the remaining bytes could hold, so the
    // reservation is bounded by that. A larger (lying) count simply fails at
    // the first keyset the stream does not hold.
    uint32_t remaining =
        inReader->GetPos() < inReader->GetSize() ? inReader->GetSize() - inReader->GetPos() : 0;
    uint32_t room = remaining / kMinKeysetRecordSize;
    mKeysets.reserve(numKeysets < room ? numKeysets : room);

    bool result = true;
    for (uint32_t i = 0; i < numKeysets; ++i) {
        if (!NewKeysetFromStream(inReader)) {
            result = false;
            break;  // the keysets read so far stay
        }
    }
    // Even after a failure the set starts over from its first keyset, which
    // is now the fall-back.
    mCurrentKeysetIndex = 0;
    mVerThreeOrLater = true;
    return result;
}

bool CVX_KeysetData::NewKeysetFromStream(UStreamReader* inReader) {
    // Allocation does not fail here (it throws), so the design's "couldn't
    // create theKeyset" report has no path left to it.
    auto keyset = std::make_unique<CVX_Keyset>("Default", kVXDefaultSignature);
    if (!keyset->UpdateFromStream(inReader)) {
        keyset.reset();
        VXDiagnostic("CVX_KeysetData::NewKeysetFromStream() couldn't update theKeyset\n");
        return false;
    }
    AddKeyset(std::move(keyset));
    return true;
}

bool CVX_KeysetData::UpdateKeysetFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    uint32_t keysetIndex = 0;
    if (!inReader->GetLong(keysetIndex)) return false;
    CVX_Keyset* keyset = GetKeysetAt(keysetIndex);
    if (!keyset) return false;
    // Refilled in place: its button records are not part of a keyset record
    // and stay as they are.
    return keyset->UpdateFromStream(inReader);
}

bool CVX_KeysetData::UpdateControlFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    uint32_t keysetIndex = 0;
    uint32_t bank = 0;
    uint32_t controlNum = 0;
    if (!inReader->GetLong(keysetIndex) || !inReader->GetLong(bank) ||
        !inReader->GetLong(controlNum)) {
        return false;
    }
    // An index that names no keyset fails the update, with nothing changed.
    CVX_Keyset* keyset = GetKeysetAt(keysetIndex);
    if (!keyset) return false;
    // The actions built below register with this keyset and take its signature.
    CVX_Keyset::SetKeysetUnderConstruction(keyset);
    CVX_ControlData* control = keyset->GetControlAt(controlNum, bank);
    if (!control) return false;
    return control->UpdateFromStream(inReader);
}

bool CVX_KeysetData::UpdateChannelControlFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    uint32_t keysetIndex = 0;
    uint32_t channel = 0;
    uint32_t controlType = 0;
    if (!inReader->GetLong(keysetIndex) || !inReader->GetLong(channel) ||
        !inReader->GetLong(controlType)) {
        return false;
    }
    CVX_Keyset* keyset = GetKeysetAt(keysetIndex);
    if (!keyset) return false;
    CVX_Keyset::SetKeysetUnderConstruction(keyset);
    CVX_ChannelControlData* control = keyset->GetChannelControlAt(controlType, channel);
    if (!control) return false;
    return control->UpdateFromStream(inReader);
}

// ---------------------------------------------------------------------------
// Keysets and their containers

bool CVX_Keyset::UpdateFromStream(UStreamReader* inReader) {
    // First of all: the MIDI actions built below register their responders
    // with this keyset's unmapper.
    sKeysetUnderConstruction = this;
    if (!inReader) return false;

    char name[32] = {};
    uint32_t signature = 0;
    if (!inReader->TagIs(VXTag("Kyst")) || !inReader->TagIs(VXTag("St31")) ||
        !inReader->GetStr31(name) || !inReader->TagIs(VXTag("Sgnt")) ||
        !inReader->GetLong(signature)) {
        return false;
    }
    SetProperties(name, signature);

    // Stored as soon as it is read: a failure further on leaves the new mode.
    uint32_t mode = 0;
    if (!inReader->TagIs(VXTag("EmMd")) || !inReader->GetLong(mode)) return false;
    SetEmulationMode(mode);

    if (!mChannelStrips || !mChannelStrips->UpdateFromStream(inReader)) {
        // The old responder stays: it still matches the strips that were not
        // refilled.
        VXDiagnostic("CVX_Keyset::UpdateFromStream couldn't update mChannelStrips\n");
        return false;
    }

    // The old responder goes first, so that the new one (built while this
    // keyset is under construction) is the only one in its unmapper.
    SetEmulationResponder(nullptr);
    if (mode == kVXEmulationModeB) {
        SetEmulationResponder(std::make_unique<CVX_EmulationModeBResponder>());
    } else if (mode == kVXEmulationModeC) {
        SetEmulationResponder(std::make_unique<CVX_EmulationModeCResponder>());
    }
    return true;
}

bool CVX_ChannelStripArray::UpdateFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    CVX_KeysetData* data = CVX_KeysetData::GetKeysetData();
    // Without a keyset set there is no older stream to honour: the current
    // layout.
    const uint32_t channelsPerGroup =
        (!data || data->IsVersionThreeOrLater()) ? kChannelsPerGroup : kChannelsPerGroupBeforeThree;

    bool result = true;
    for (uint32_t n = kFirstChannelControl; n < kFirstChannelControl + kNumChannelControls; ++n) {
        if (!inReader->TagIs(VXTag("ChCT"))) return false;
        // The header holds the index (0 to 5), unlike the records themselves.
        // An unreadable header shows as 0.
        uint32_t index = 0;
        if (!inReader->GetLong(index) || index + kFirstChannelControl != n) {
            VXDiagnostic("CVX_ChannelStripArray::UpdateFromStream ctl type (%ld) != %ld\n",
                         AsLong(index), AsLong(n));
            return false;
        }
        for (uint32_t channel = 0; channel < channelsPerGroup; ++channel) {
            CVX_ChannelStrip* strip = GetChannelStripAt(channel);
            CVX_ChannelControlData* control = strip ? strip->GetControlAt(n) : nullptr;
            if (!control || !control->UpdateFromStream(inReader)) {
                // The rest of this group is given up; the next group is read
                // from wherever the stream now stands, but the whole read has
                // failed whatever follows.
                result = false;
                break;
            }
        }
    }
    return result;
}

bool CVX_BankArray::UpdateFromStream(UStreamReader* inReader) {
    return mBanks[0] && mBanks[0]->UpdateFromStream(inReader);
}

bool CVX_Bank::UpdateFromStream(UStreamReader* inReader) {
    for (auto& control : mControls) {
        if (!control || !control->UpdateFromStream(inReader)) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Channel control records

bool CVX_ChannelControlData::UpdateFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    // Nothing is stored until type, channel and latched setting have all been
    // read and checked.
    char name[32] = {};
    if (!inReader->TagIs(VXTag("CtlD")) || !inReader->TagIs(VXTag("St31"))) return false;
    if (!inReader->GetStr31(name)) {
        VXDiagnostic("CVX_ChannelControlData::UpdateFromStream (ctl #%ld?) couldn't get name\n",
                     AsLong(mControlType));
        return false;
    }

    if (!inReader->TagIs(VXTag("ChCT"))) return false;
    uint32_t controlType = 0;  // shown as 0 when it cannot be read
    if (!inReader->GetLong(controlType) || controlType != mControlType) {
        VXDiagnostic(
            "CVX_ChannelControlData::UpdateFromStream (ctl #%ld, %s) didn't match controlType "
            "#%ld\n",
            AsLong(mControlType), name, AsLong(controlType));
        return false;
    }

    if (!inReader->TagIs(VXTag("Chan"))) return false;
    uint32_t channel = 0;
    if (!inReader->GetLong(channel) || channel != mChannel) {
        VXDiagnostic(
            "CVX_ChannelControlData::UpdateFromStream (chan #%ld?) didn't match channel %ld\n",
            AsLong(mChannel), AsLong(channel));
        return false;
    }

    if (!inReader->TagIs(VXTag("Ltch"))) return false;
    uint32_t latched = 0;
    if (!inReader->GetLong(latched)) {
        VXDiagnostic(
            "CVX_ChannelControlData::UpdateFromStream (ctl %ld chan %ld) couldn't get latched "
            "setting\n",
            AsLong(mControlType), AsLong(mChannel));
        return false;
    }

    SetControlProperties(name, mControlType, mChannel, latched != 0);

    if (!mActionSequence || !mActionSequence->UpdateFromStream(inReader, mChannel, mControlType)) {
        VXDiagnostic(
            "CVX_ChannelControlData::UpdateFromStream (ctl #%ld, chan %ld) couldn't update "
            "sequence\n",
            AsLong(mControlType), AsLong(mChannel));
        return false;
    }
    return true;
}

bool CVX_ChannelActionSequence::UpdateFromStream(UStreamReader* inReader, uint32_t inChannel,
                                                 uint32_t inControlType) {
    if (!inReader) return false;
    if (!inReader->TagIs(VXTag("Sequ")) || !inReader->TagIs(VXTag("CCnt"))) return false;
    uint32_t count = 0;
    if (!inReader->GetLong(count)) {
        // The old action stays until a count says what replaces it.
        VXDiagnostic("CVX_ChannelActionSequence::UpdateFromStream couldn't get count\n");
        return false;
    }

    DeleteActions();
    // A channel control holds one action: the loop ends at the second record
    // at the latest, however large the count.
    for (uint32_t i = 0; i < count; ++i) {
        std::unique_ptr<CVX_Channel_Action> action =
            CVX_Channel_Action::CreateChannelActionFromStream(inReader, inChannel, inControlType);
        if (!action) {
            VXDiagnostic(
                "CVX_ChannelActionSequence::UpdateFromStream couldn't create action #%ld\n",
                AsLong(i));
            return false;
        }
        if (i > 0) {
            action.reset();  // the first one stays
            VXDiagnostic("too many channels actions\n");
            return false;
        }
        if (!AddAction(std::move(action))) {  // AddAction destroys a refused action
            VXDiagnostic("CVX_ChannelActionSequence::UpdateFromStream couldn't add action #%ld\n",
                         AsLong(i));
            return false;
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// Button control records

bool CVX_ControlData::UpdateFromStream(UStreamReader* inReader) {
    if (!inReader) return false;
    char controlName[32] = {};
    char assignedName[32] = {};
    if (!inReader->GetStr31(controlName) || !inReader->GetStr31(assignedName)) return false;
    uint32_t latched = 0;
    if (!inReader->GetLong(latched)) {
        VXDiagnostic("CVX_ControlData::UpdateFromStream (ctl #%ld?) couldn't get userName\n",
                     AsLong(mControlNum));
        return false;
    }
    // The properties stay even if the sequence fails below.
    SetControlProperties(controlName, assignedName, mControlNum, latched != 0);
    return mActionSequence && mActionSequence->UpdateFromStream(inReader);
}

bool CVX_ActionSequence::UpdateFromStream(UStreamReader* inReader) {
    // Emptied first, so that even a failed read leaves no stale actions.
    DeleteActions();
    if (!inReader) return false;
    uint32_t count = 0;
    if (!inReader->GetLong(count)) return false;

    // Every record takes 156 bytes or fails, so however large the count, the
    // loop ends with the stream.
    bool result = true;
    for (uint32_t i = 0; i < count; ++i) {
        std::unique_ptr<CVX_Action> action = CVX_Action::CreateActionFromStream(inReader);
        if (!action) {
            result = false;
            break;
        }
        AddAction(std::move(action));
    }
    // The unused slots are skipped by the count, from wherever the records
    // left the stream, and that skip decides the result: a record that built
    // no action does not fail a sequence whose room is all there.
    if (count < kVXActionSlots) {
        result = inReader->MovePosBy((kVXActionSlots - count) * kVXActionRecordSize);
    }
    return result;
}
