#include "ActionText.h"

#include <algorithm>
#include <cstdio>

#include "HexInput.h"
#include "actions/CVX_AppSpecificAction.h"
#include "actions/CVX_Channel_Action.h"
#include "actions/CVX_Channel_EmulationAction.h"
#include "actions/CVX_Channel_MIDIAction.h"
#include "actions/CVX_DelayAction.h"
#include "actions/CVX_KeyAction.h"
#include "actions/CVX_MIDIAction.h"
#include "actions/CVX_MouseAction.h"
#include "actions/CVX_SpecialAction.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXTextPlatform.h"

namespace vxctl {

namespace {

std::string WithModifiers(std::string inText, int16_t inModifiers) {
    std::string mods = DescribeModifiers(inModifiers);
    return mods.empty() ? inText : inText + " with " + mods;
}

// A stored message length may claim more than the template holds; show what
// is there.
std::string Template(const uint8_t* inBytes, uint16_t inLength, size_t inCapacity) {
    size_t n = std::min<size_t>(inLength, inCapacity);
    std::string text = HexString(inBytes, n);
    if (inLength > inCapacity) text += " (length " + std::to_string(inLength) + ")";
    return text.empty() ? "(empty)" : text;
}

}  // namespace

std::string DescribeModifiers(int16_t inModifiers) {
    static const char* const kNames[] = {"command", "shift", "caps lock", "option", "control"};
    std::string text;
    for (int bit = 0; bit < 5; ++bit) {
        if (inModifiers & (0x0100 << bit))
            text += (text.empty() ? "" : "+") + std::string(kNames[bit]);
    }
    return text;
}

std::string DescribeAction(const CVX_Action& inAction) {
    std::string text;
    char buf[160];
    if (auto* key = dynamic_cast<const CVX_KeyAction*>(&inAction)) {
        std::snprintf(buf, sizeof buf, "key %u char %u", key->GetKeyCode(), key->GetCharCode());
        text = WithModifiers(buf, key->GetModifiers());
    } else if (auto* mouse = dynamic_cast<const CVX_MouseAction*>(&inAction)) {
        std::snprintf(buf, sizeof buf, "mouse click at %d,%d", mouse->GetMouseLocX(),
                      mouse->GetMouseLocY());
        text = WithModifiers(buf, mouse->GetModifiers());
    } else if (auto* delay = dynamic_cast<const CVX_DelayAction*>(&inAction)) {
        std::snprintf(buf, sizeof buf, "delay %.3f s", delay->GetDelayInterval());
        text = buf;
    } else if (auto* bank = dynamic_cast<const CVX_BankSpecialAction*>(&inAction)) {
        text = "select bank " + std::to_string(bank->GetBank());
    } else if (auto* special = dynamic_cast<const CVX_SpecialAction*>(&inAction)) {
        text = "notify '" + VXFourCCText(special->GetAppSignature()) + "' of the button";
    } else if (dynamic_cast<const CVX_FCP_RewindAction*>(&inAction)) {
        text = "shuttle rewind";
    } else if (dynamic_cast<const CVX_FCP_FFwdAction*>(&inAction)) {
        text = "shuttle fast-forward";
    } else if (auto* midi = dynamic_cast<const CVX_MIDIAction*>(&inAction)) {
        text = "MIDI kind " + std::to_string(midi->GetActionType()) + " message " +
               Template(midi->GetMessage(), midi->GetMsgLength(), kVXMIDIMessageSize);
    } else {
        text = "action of type " + std::to_string(static_cast<int32_t>(inAction.GetType()));
    }
    return "\"" + inAction.GetName() + "\" " + text + ", speed " +
           std::to_string(inAction.GetSpeed());
}

std::string DescribeChannelAction(const CVX_Channel_Action& inAction) {
    std::string text;
    if (auto* special = dynamic_cast<const CVX_Channel_SpecialAction*>(&inAction)) {
        text = "notify '" + VXFourCCText(special->GetAppSignature()) + "' (" +
               (special->GetEventID() ? VXFourCCText(special->GetEventID()) : "no event") + ")";
    } else if (auto* app = dynamic_cast<const CVX_Channel_AppSpecificAction*>(&inAction)) {
        text = "application-specific " + std::to_string(app->GetActionType());
    } else if (auto* midi = dynamic_cast<const CVX_Channel_MIDIAction*>(&inAction)) {
        text = "MIDI kind " + std::to_string(midi->GetActionType()) + " message " +
               Template(midi->GetMessage(), midi->GetMsgLength(), kVXChannelMIDIMessageSize);
    } else if (auto* emulation = dynamic_cast<const CVX_Channel_EmulationAction*>(&inAction)) {
        text =
            "emulation mode " + std::to_string(emulation->GetEmulationMode()) + " message " +
            Template(emulation->GetMessage(), emulation->GetMsgLength(), kVXEmulationMessageSize);
    } else {
        text = "channel action";
    }
    return "\"" + inAction.GetName() + "\" " + text;
}

}  // namespace vxctl

namespace vxctl {

std::string DescribeControlEvent(uint32_t inControl, uint32_t inChannel, int32_t inValue) {
    char line[160];
    if (UVX_ControlClass::IsTransportControl(inControl)) {
        std::snprintf(line, sizeof line, "button %s %s", kControlNames[inControl],
                      inValue ? "pressed" : "released");
    } else if (UVX_ControlClass::IsChannelFader(inControl)) {
        std::snprintf(line, sizeof line, "fader channel %u position %d", inChannel, inValue);
    } else if (inControl == kVXChannelTouchSense) {
        std::snprintf(line, sizeof line, "touch channel %u %s", inChannel,
                      inValue ? "touched" : "released");
    } else if (UVX_ControlClass::IsChannelButton(inControl)) {
        std::string name = kChannelControlNames[inControl - 160];
        while (!name.empty() && name.back() == ' ') name.pop_back();
        std::snprintf(line, sizeof line, "%s channel %u %s", name.c_str(), inChannel,
                      inValue ? "on" : "off");
    } else {
        std::snprintf(line, sizeof line, "control %u channel %u value %d", inControl, inChannel,
                      inValue);
    }
    return line;
}

}  // namespace vxctl
