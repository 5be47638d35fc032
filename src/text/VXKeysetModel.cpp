#include "text/VXKeysetModel.h"

#include "actions/CVX_Action.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UStreamWriter.h"
#include "model/UVX_ControlClass.h"

SVXButtonModel VXDefaultButton(uint32_t inControl) {
    return {kControlNames[inControl], "_", 0, {}};
}

SVXChannelControlModel VXDefaultChannelControl(uint32_t inType) {
    return {kChannelControlNames[inType - kFirstChannelControl], 0, std::nullopt};
}

SVXKeysetModel VXDefaultKeyset(std::string inName, uint32_t inSignature) {
    SVXKeysetModel k;
    k.name = std::move(inName);
    k.signature = inSignature;
    for (uint32_t n = 0; n < kVXModelButtons; ++n) k.buttons[n] = VXDefaultButton(n);
    for (auto& strip : k.strips)
        for (uint32_t c = 0; c < kVXModelStripControls; ++c)
            strip[c] = VXDefaultChannelControl(kFirstChannelControl + c);
    return k;
}

namespace {

// The strict reader: the driver's grammar, failing wherever a driver reader
// would fail, and also on a string longer than its field (the driver's
// reader would cut it and go on reading inside it).
class CStrictReader {
  public:
    CStrictReader(const uint8_t* inBytes, size_t inSize) : mReader(inBytes, inSize) {}

    bool Tag(const char (&inTag)[5]) {
        const uint32_t at = mReader.GetPos();
        if (mReader.TagIs(VXTag(inTag))) return true;
        return Fail(at, std::string("expected the tag '") + inTag + "'");
    }
    bool Long(uint32_t& out, const char* inWhat) {
        return mReader.GetLong(out) || Fail(mReader.GetPos(), std::string("no room for ") + inWhat);
    }
    bool Short(uint16_t& out, const char* inWhat) {
        return mReader.GetShort(out) ||
               Fail(mReader.GetPos(), std::string("no room for ") + inWhat);
    }
    bool Bytes(uint8_t* out, uint32_t inSize, const char* inWhat) {
        return mReader.GetBytes(out, inSize) ||
               Fail(mReader.GetPos(), std::string("no room for ") + inWhat);
    }
    bool String(std::string& out, size_t inMax, const char* inWhat) {
        const uint32_t at = mReader.GetPos();
        uint8_t length = 0;
        if (!mReader.GetByte(length)) return Fail(at, std::string("no room for ") + inWhat);
        if (length > inMax)
            return Fail(at, std::string(inWhat) + " of " + std::to_string(length) +
                                " characters (at most " + std::to_string(inMax) + ")");
        out.resize(length);
        return Bytes(reinterpret_cast<uint8_t*>(out.data()), length, inWhat);
    }
    bool Fail(uint32_t inAt, const std::string& inWhat) {
        if (mError.empty()) mError = "byte " + std::to_string(inAt) + ": " + inWhat;
        return false;
    }
    bool Fail(const std::string& inWhat) { return Fail(mReader.GetPos(), inWhat); }

    UStreamReader mReader;
    std::string mError;
};

bool ReadChannelAction(CStrictReader& r, SVXActionModel& a) {
    if (!r.Tag("ChCm") || !r.Tag("CmID") || !r.Long(a.legacyID, "the legacy ID") ||
        !r.Tag("CTyp") || !r.Long(a.type, "the action type") || !r.Tag("Sped") ||
        !r.Short(a.speed, "the speed") || !r.Tag("St63") ||
        !r.String(a.name, kVXStr63Max, "an action name"))
        return false;
    switch (a.BaseType()) {
        case vx_action_type_special:
            return r.Tag("SpcD") && r.Tag("CTyp") && r.Long(a.code, "the special code");
        case vx_action_type_app_specific:
            return r.Tag("AppD") && r.Tag("CTyp") && r.Long(a.code, "the code");
        case vx_action_type_midi:
            return r.Tag("MidD") && r.Tag("CTyp") && r.Long(a.kind, "the MIDI kind") &&
                   r.Tag("MDLn") && r.Short(a.length, "the template length") && r.Tag("MDMs") &&
                   r.Bytes(a.message.data(), 8, "the template");
        case vx_action_type_emulation:
            return r.Tag("CEmD") && r.Tag("EmMd") && r.Long(a.mode, "the emulation mode") &&
                   r.Tag("EmTp") && r.Long(a.unused[0], "EmTp") && r.Tag("EmCN") &&
                   r.Long(a.unused[1], "EmCN") && r.Tag("EmSF") && r.Long(a.unused[2], "EmSF") &&
                   r.Tag("MDLn") && r.Short(a.length, "the template length") && r.Tag("MDMs") &&
                   r.Bytes(a.message.data(), 16, "the template") && r.Tag("AcMD") &&
                   r.Short(a.acceptsMIDI, "the host-MIDI flag");
        default:
            return r.Fail("a channel action of type " + std::to_string(a.type) +
                          ", which builds no action");
    }
}

bool ReadChannelControl(CStrictReader& r, uint32_t inType, uint32_t inChannel,
                        SVXChannelControlModel& c) {
    uint32_t type = 0, channel = 0, count = 0;
    if (!r.Tag("CtlD") || !r.Tag("St31") || !r.String(c.name, kVXStr31Max, "a control name") ||
        !r.Tag("ChCT") || !r.Long(type, "the control type"))
        return false;
    if (type != inType)
        return r.Fail("control type " + std::to_string(type) + " where " + std::to_string(inType) +
                      " belongs");
    if (!r.Tag("Chan") || !r.Long(channel, "the channel")) return false;
    if (channel != inChannel)
        return r.Fail("channel " + std::to_string(channel) + " where " + std::to_string(inChannel) +
                      " belongs");
    if (!r.Tag("Ltch") || !r.Long(c.latched, "the latched setting") || !r.Tag("Sequ") ||
        !r.Tag("CCnt") || !r.Long(count, "the action count"))
        return false;
    if (count > 1)
        return r.Fail("a channel control with " + std::to_string(count) +
                      " actions (it holds one at most)");
    if (count == 0) return true;
    c.action.emplace();
    return ReadChannelAction(r, *c.action);
}

bool ReadKeyset(CStrictReader& r, SVXKeysetModel& k) {
    if (!r.Tag("Kyst") || !r.Tag("St31") || !r.String(k.name, kVXStr31Max, "a keyset name") ||
        !r.Tag("Sgnt") || !r.Long(k.signature, "the signature") || !r.Tag("EmMd") ||
        !r.Long(k.mode, "the emulation mode"))
        return false;
    for (uint32_t c = 0; c < kVXModelStripControls; ++c) {
        uint32_t index = 0;
        if (!r.Tag("ChCT") || !r.Long(index, "a strip group's control")) return false;
        if (index != c)
            return r.Fail("strip group " + std::to_string(index) + " where " + std::to_string(c) +
                          " belongs");
        for (uint32_t channel = 0; channel < kVXModelStrips; ++channel) {
            if (!ReadChannelControl(r, kFirstChannelControl + c, channel, k.strips[channel][c]))
                return false;
        }
    }
    return true;
}

void PutString(UStreamWriter& w, const std::string& inText) {
    w.PutByte(static_cast<uint8_t>(inText.size()));
    w.PutBytes(inText.data(), inText.size());
}

void PutTag(UStreamWriter& w, const char (&inTag)[5]) {
    w.PutTag(VXTag(inTag));
}

void TagLong(UStreamWriter& w, const char (&inTag)[5], uint32_t inValue) {
    PutTag(w, inTag);
    w.PutLong(inValue);
}

void TagShort(UStreamWriter& w, const char (&inTag)[5], uint16_t inValue) {
    PutTag(w, inTag);
    w.PutShort(inValue);
}

void WriteChannelAction(UStreamWriter& w, const SVXActionModel& a) {
    PutTag(w, "ChCm");
    TagLong(w, "CmID", a.legacyID);
    TagLong(w, "CTyp", a.type);
    TagShort(w, "Sped", a.speed);
    PutTag(w, "St63");
    PutString(w, a.name);
    switch (a.BaseType()) {
        case vx_action_type_special:
        case vx_action_type_app_specific:
            w.PutTag(VXTag(a.BaseType() == vx_action_type_special ? "SpcD" : "AppD"));
            TagLong(w, "CTyp", a.code);
            break;
        case vx_action_type_midi:
            PutTag(w, "MidD");
            TagLong(w, "CTyp", a.kind);
            TagShort(w, "MDLn", a.length);
            PutTag(w, "MDMs");
            w.PutBytes(a.message.data(), 8);
            break;
        case vx_action_type_emulation:
            PutTag(w, "CEmD");
            TagLong(w, "EmMd", a.mode);
            TagLong(w, "EmTp", a.unused[0]);
            TagLong(w, "EmCN", a.unused[1]);
            TagLong(w, "EmSF", a.unused[2]);
            TagShort(w, "MDLn", a.length);
            PutTag(w, "MDMs");
            w.PutBytes(a.message.data(), 16);
            TagShort(w, "AcMD", a.acceptsMIDI);
            break;
        default:
            break;  // the text reader admits no other type
    }
}

void WriteKeyset(UStreamWriter& w, const SVXKeysetModel& k) {
    PutTag(w, "Kyst");
    PutTag(w, "St31");
    PutString(w, k.name);
    TagLong(w, "Sgnt", k.signature);
    TagLong(w, "EmMd", k.mode);
    for (uint32_t c = 0; c < kVXModelStripControls; ++c) {
        TagLong(w, "ChCT", c);
        for (uint32_t channel = 0; channel < kVXModelStrips; ++channel) {
            const SVXChannelControlModel& control = k.strips[channel][c];
            PutTag(w, "CtlD");
            PutTag(w, "St31");
            PutString(w, control.name);
            TagLong(w, "ChCT", kFirstChannelControl + c);
            TagLong(w, "Chan", channel);
            TagLong(w, "Ltch", control.latched);
            PutTag(w, "Sequ");
            TagLong(w, "CCnt", control.action ? 1 : 0);
            if (control.action) WriteChannelAction(w, *control.action);
        }
    }
}

// A button action's body as its reader takes it: the two bytes of alignment
// that the key, delay, special, app-specific and MIDI bodies begin with are
// skipped by the readers and written as zero.
void WriteButtonActionBody(UStreamWriter& w, const SVXActionModel& a) {
    switch (a.BaseType()) {
        case vx_action_type_key:
            w.PutShort(0);
            w.PutShort(a.modifiers);
            w.PutByte(a.keyCode);
            w.PutByte(a.charCode);
            break;
        case vx_action_type_mouse:
            w.PutShort(a.captureNow);
            w.PutShort(a.partialTitle);
            w.PutByte(a.mouseOp);
            w.PutByte(a.captureOp);
            w.PutShort(a.modifiers);
            w.PutShort(static_cast<uint16_t>(a.y));  // stored vertical first
            w.PutShort(static_cast<uint16_t>(a.x));
            PutString(w, a.windowTitle);
            break;
        case vx_action_type_delay:
            w.PutShort(0);
            w.PutLong(static_cast<uint32_t>(a.ticks));
            break;
        case vx_action_type_special:
        case vx_action_type_app_specific:
            w.PutShort(0);
            w.PutLong(a.code);
            break;
        case vx_action_type_midi:
            w.PutShort(0);
            w.PutLong(a.kind);
            w.PutShort(a.length);
            w.PutBytes(a.message.data(), 8);
            break;
        default:
            break;
    }
}

}  // namespace

bool VXReadKeysetFile(const uint8_t* inBytes, size_t inSize, SVXKeysetFileModel& outFile,
                      size_t& outTrailing, std::string& outError) {
    CStrictReader r(inBytes, inSize);
    SVXKeysetFileModel file;
    uint32_t count = 0;
    bool ok = r.Tag("KstD") && r.Tag("CrKV") && r.Long(file.version, "the version");
    if (ok && file.version < kVXFirstKeysetVersion)
        ok = r.Fail("version " + std::to_string(file.version) + " (the driver reads " +
                    std::to_string(kVXFirstKeysetVersion) + " and later)");
    ok = ok && r.Tag("KsCt") && r.Long(count, "the keyset count");
    // Keysets are added as they are read: a count that promises more than the
    // bytes hold allocates nothing ahead.
    for (uint32_t i = 0; ok && i < count; ++i) {
        SVXKeysetModel keyset = VXDefaultKeyset("", 0);
        if (!ReadKeyset(r, keyset)) {
            outError = "keyset " + std::to_string(i) + ", " + r.mError;
            return false;
        }
        file.keysets.push_back(std::move(keyset));
    }
    if (!ok) {
        outError = r.mError;
        return false;
    }
    outTrailing = inSize - r.mReader.GetPos();
    outFile = std::move(file);
    return true;
}

std::vector<uint8_t> VXWriteKeysetFile(const SVXKeysetFileModel& inFile) {
    UStreamWriter w;
    PutTag(w, "KstD");
    TagLong(w, "CrKV", inFile.version);
    TagLong(w, "KsCt", static_cast<uint32_t>(inFile.keysets.size()));
    for (const SVXKeysetModel& k : inFile.keysets) WriteKeyset(w, k);
    return w.Take();
}

std::vector<uint8_t> VXWriteKeysetRecord(const SVXKeysetModel& inKeyset) {
    UStreamWriter w;
    WriteKeyset(w, inKeyset);
    return w.Take();
}

std::vector<uint8_t> VXWriteButtonUpdate(uint32_t inKeysetIndex, uint32_t inControl,
                                         const SVXButtonModel& inButton) {
    UStreamWriter w;
    w.PutLong(inKeysetIndex);
    w.PutLong(0);  // bank: a keyset has one
    w.PutLong(inControl);
    PutString(w, inButton.controlName);
    PutString(w, inButton.assignedName);
    w.PutLong(inButton.latched);
    w.PutLong(static_cast<uint32_t>(inButton.actions.size()));
    for (const SVXActionModel& a : inButton.actions) {
        const size_t start = w.Bytes().size();
        w.PutLong(a.legacyID);
        w.PutLong(a.type);
        w.PutLong(a.control);
        w.PutShort(a.speed);
        PutString(w, a.name);
        WriteButtonActionBody(w, a);
        // Header (78 bytes at most) and body (76 at most, the mouse's) always
        // fit the record's 156 bytes; the rest is filler.
        const std::vector<uint8_t> filler(kVXActionRecordSize - (w.Bytes().size() - start), 0);
        w.PutBytes(filler.data(), filler.size());
    }
    if (inButton.actions.size() < kVXActionSlots) {
        const std::vector<uint8_t> filler(
            (kVXActionSlots - inButton.actions.size()) * kVXActionRecordSize, 0);
        w.PutBytes(filler.data(), filler.size());
    }
    return w.Take();
}
