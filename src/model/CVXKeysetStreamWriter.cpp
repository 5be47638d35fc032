#include "model/CVXKeysetStreamWriter.h"

#include <string>
#include <vector>

#include "actions/CVX_Action.h"
#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_MIDITemplate.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"

using W = CVXKeysetStreamWriter;

W& W::FullSetHeader(uint32_t inCount, uint32_t inVersion) {
    PutTag(VXTag("KstD"));
    PutTag(VXTag("CrKV"));
    PutLong(inVersion);
    PutTag(VXTag("KsCt"));
    PutLong(inCount);
    return *this;
}

W& W::KeysetHeader(std::string_view inName, uint32_t inSignature, uint32_t inMode) {
    PutTag(VXTag("Kyst"));
    PutTag(VXTag("St31"));
    PutPackedPString(inName);
    PutTag(VXTag("Sgnt"));
    PutLong(inSignature);
    PutTag(VXTag("EmMd"));
    PutLong(inMode);
    return *this;
}

W& W::StripGroupHeader(uint32_t inControl) {
    PutTag(VXTag("ChCT"));
    PutLong(inControl - kFirstChannelControl);
    return *this;
}

W& W::ChannelControl(std::string_view inName, uint32_t inType, uint32_t inChannel, bool inLatched,
                     uint32_t inCount) {
    PutTag(VXTag("CtlD"));
    PutTag(VXTag("St31"));
    PutPackedPString(inName);
    PutTag(VXTag("ChCT"));
    PutLong(inType);
    PutTag(VXTag("Chan"));
    PutLong(inChannel);
    PutTag(VXTag("Ltch"));
    PutLong(inLatched ? 1 : 0);
    PutTag(VXTag("Sequ"));
    PutTag(VXTag("CCnt"));
    PutLong(inCount);
    return *this;
}

W& W::EmptyStrips(uint32_t inChannels) {
    for (uint32_t n = kFirstChannelControl; n < kFirstChannelControl + kNumChannelControls; ++n) {
        StripGroupHeader(n);
        for (uint32_t channel = 0; channel < inChannels; ++channel) {
            ChannelControl(kChannelControlNames[n - kFirstChannelControl], n, channel, false, 0);
        }
    }
    return *this;
}

W& W::ChannelActionHeader(uint32_t inType, std::string_view inName) {
    PutTag(VXTag("ChCm"));
    PutTag(VXTag("CmID"));
    PutLong(0);
    PutTag(VXTag("CTyp"));
    PutLong(inType);
    PutTag(VXTag("Sped"));
    PutShort(0);
    PutTag(VXTag("St63"));
    PutPackedPString(inName);
    return *this;
}

W& W::ChannelSpecialAction(std::string_view inName) {
    ChannelActionHeader(vx_action_type_special, inName);
    PutTag(VXTag("SpcD"));
    PutTag(VXTag("CTyp"));
    PutLong(0);  // the kind follows from the control
    return *this;
}

W& W::ChannelAppSpecificAction(std::string_view inName, uint32_t inCode) {
    ChannelActionHeader(vx_action_type_app_specific, inName);
    PutTag(VXTag("AppD"));
    PutTag(VXTag("CTyp"));
    PutLong(inCode);
    return *this;
}

W& W::ChannelMIDIAction(std::string_view inName, uint32_t inKind, uint16_t inLength,
                        const uint8_t* inMessage) {
    ChannelActionHeader(vx_action_type_midi, inName);
    PutTag(VXTag("MidD"));
    PutTag(VXTag("CTyp"));
    PutLong(inKind);
    PutTag(VXTag("MDLn"));
    PutShort(inLength);
    PutTag(VXTag("MDMs"));
    PutBytes(inMessage, kVXMIDITemplateSize);
    return *this;
}

W& W::ChannelEmulationAction(std::string_view inName, uint32_t inMode, uint16_t inLength,
                             const uint8_t* inMessage, bool inAcceptsMIDI) {
    ChannelActionHeader(vx_action_type_emulation, inName);
    PutTag(VXTag("CEmD"));
    PutTag(VXTag("EmMd"));
    PutLong(inMode);
    // Three fields that readers drop.
    for (uint32_t tag : {VXTag("EmTp"), VXTag("EmCN"), VXTag("EmSF")}) {
        PutTag(tag);
        PutLong(0);
    }
    PutTag(VXTag("MDLn"));
    PutShort(inLength);
    PutTag(VXTag("MDMs"));
    PutBytes(inMessage, kVXEmulationMessageSize);
    PutTag(VXTag("AcMD"));
    PutShort(inAcceptsMIDI ? 1 : 0);
    return *this;
}

W& W::ButtonControl(std::string_view inName, std::string_view inAssigned, bool inLatched,
                    uint32_t inCount) {
    PutPackedPString(inName);
    PutPackedPString(inAssigned);
    PutLong(inLatched ? 1 : 0);
    PutLong(inCount);
    return *this;
}

W& W::SequenceFiller(uint32_t inCount) {
    if (inCount < kVXActionSlots) {
        std::vector<uint8_t> filler((kVXActionSlots - inCount) * kVXActionRecordSize, 0);
        PutBytes(filler.data(), filler.size());
    }
    return *this;
}

W& W::ControlUpdateHeader(uint32_t inKeyset, uint32_t inBank, uint32_t inControl) {
    PutLong(inKeyset);
    PutLong(inBank);
    PutLong(inControl);
    return *this;
}

W& W::ChannelControlUpdateHeader(uint32_t inKeyset, uint32_t inChannel, uint32_t inType) {
    PutLong(inKeyset);
    PutLong(inChannel);
    PutLong(inType);
    return *this;
}

W& W::ButtonAction(uint32_t inType, uint32_t inControl, std::string_view inName, uint16_t inSpeed,
                   const uint8_t* inBody, size_t inBodySize) {
    size_t start = Bytes().size();
    PutLong(0);  // legacy ID, not read
    PutLong(inType);
    PutLong(inControl);
    PutShort(inSpeed);
    PutPackedPString(inName.substr(0, 63));
    PutBytes(inBody, inBodySize);
    size_t used = Bytes().size() - start;
    if (used < kVXActionRecordSize) {
        std::vector<uint8_t> filler(kVXActionRecordSize - used, 0);
        PutBytes(filler.data(), filler.size());
    }
    return *this;
}

namespace {
// Bodies are big-endian like the rest of the stream.
void Put16(std::vector<uint8_t>& b, uint16_t v) {
    b.push_back(static_cast<uint8_t>(v >> 8));
    b.push_back(static_cast<uint8_t>(v));
}
void Put32(std::vector<uint8_t>& b, uint32_t v) {
    Put16(b, static_cast<uint16_t>(v >> 16));
    Put16(b, static_cast<uint16_t>(v));
}
}  // namespace

W& W::KeyAction(uint32_t inControl, std::string_view inName, uint16_t inKeyCode, uint8_t inCharCode,
                uint16_t inModifiers) {
    std::vector<uint8_t> body = {0, 0};
    Put16(body, inModifiers);
    Put16(body, static_cast<uint16_t>((inKeyCode << 8) | inCharCode));
    return ButtonAction(vx_action_type_key, inControl, inName, 0, body.data(), body.size());
}

W& W::MouseAction(uint32_t inControl, std::string_view inName, int16_t inX, int16_t inY,
                  uint16_t inModifiers) {
    std::vector<uint8_t> body = {0, 0, 0, 0, 0, 0};  // capture flags and operations
    Put16(body, inModifiers);
    Put16(body, static_cast<uint16_t>(inY));  // the point is stored vertical first
    Put16(body, static_cast<uint16_t>(inX));
    body.push_back(0);  // no window title
    return ButtonAction(vx_action_type_mouse, inControl, inName, 0, body.data(), body.size());
}

W& W::DelayAction(uint32_t inControl, std::string_view inName, uint32_t inTicks) {
    std::vector<uint8_t> body = {0, 0};
    Put32(body, inTicks);
    return ButtonAction(vx_action_type_delay, inControl, inName, 0, body.data(), body.size());
}

W& W::SpecialAction(uint32_t inControl, std::string_view inName, uint32_t inCode) {
    std::vector<uint8_t> body = {0, 0};
    Put32(body, inCode);
    return ButtonAction(vx_action_type_special, inControl, inName, 0, body.data(), body.size());
}

W& W::AppSpecificAction(uint32_t inControl, std::string_view inName, uint16_t inSpeed,
                        uint32_t inCode) {
    std::vector<uint8_t> body = {0, 0};
    Put32(body, inCode);
    return ButtonAction(vx_action_type_app_specific, inControl, inName, inSpeed, body.data(),
                        body.size());
}

W& W::MIDIAction(uint32_t inControl, std::string_view inName, uint32_t inKind, uint16_t inLength,
                 const uint8_t* inMessage) {
    std::vector<uint8_t> body = {0, 0};  // alignment, not read
    Put32(body, inKind);
    Put16(body, inLength);
    body.insert(body.end(), inMessage, inMessage + kVXMIDITemplateSize);
    return ButtonAction(vx_action_type_midi, inControl, inName, 0, body.data(), body.size());
}
