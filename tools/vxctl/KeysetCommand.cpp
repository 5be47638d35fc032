#include "KeysetCommand.h"

#include <cstdio>
#include <fstream>
#include <iostream>

#include "ActionText.h"
#include "HexInput.h"
#include "actions/CVX_Channel_MIDIAction.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXTextPlatform.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"

namespace vxctl {

namespace {

int Usage() {
    std::cerr << "usage: vxctl keyset dump FILE\n"
                 "       vxctl keyset example FILE\n"
                 "  dump     loads FILE (a \"VX USB Prefs\" keyset file) as the driver does and\n"
                 "           lists every keyset, strip, control and action. The readers' own\n"
                 "           diagnostics appear as they print them; the exit status is 1 when\n"
                 "           the file did not load completely.\n"
                 "  example  writes a small keyset file to FILE to start from.\n"
                 "vxctl keyset export|import|install|sync --help: keysets as text.\n";
    return 2;
}

// Three keysets: the fall-back, without actions; one for the application with
// the signature 'DAW1' that reports every fader and channel button move to it;
// and one for 'MIX1' that speaks MIDI both ways: each fader as controller 7 and
// each Mute as note 0x10 on its strip's channel, the host's answers moving the
// motor fader and lighting the LED. Button actions do not travel in keyset
// records (the editor sends them one control at a time), so a file has none.
std::vector<uint8_t> ExampleKeysets() {
    CVXKeysetStreamWriter w;
    w.FullSetHeader(3);
    w.KeysetHeader("Default", kVXDefaultSignature);
    w.EmptyStrips();
    w.KeysetHeader("DAW", VXTag("DAW1"));
    for (uint32_t n = 160; n <= 165; ++n) {
        w.StripGroupHeader(n);
        for (uint32_t channel = 0; channel < 16; ++channel) {
            bool notify = n != kVXChannelTouchSense;
            w.ChannelControl(kChannelControlNames[n - 160], n, channel, false, notify ? 1 : 0);
            if (notify) w.ChannelSpecialAction("Report");
        }
    }
    w.KeysetHeader("Mixer", VXTag("MIX1"));
    for (uint32_t n = 160; n <= 165; ++n) {
        w.StripGroupHeader(n);
        for (uint32_t channel = 0; channel < 16; ++channel) {
            const bool fader = n == kVXChannelFader;
            const bool midi = fader || n == kVXChannelMute;
            w.ChannelControl(kChannelControlNames[n - 160], n, channel, false, midi ? 1 : 0);
            if (!midi) continue;
            const uint8_t status = static_cast<uint8_t>((fader ? 0xB0 : 0x90) | channel);
            const uint8_t message[kVXMIDITemplateSize] = {
                status, fader ? uint8_t(0x07) : uint8_t(0x10), kVXMIDIValueMarker};
            w.ChannelMIDIAction(fader ? "Volume" : "Mute", kVXChannelMIDITwoWay, 3, message);
        }
    }
    return w.Take();
}

const char* Latched(bool inLatched) {
    return inLatched ? "latched" : "not latched";
}

void PrintKeyset(uint32_t inIndex, const CVX_Keyset& inKeyset) {
    std::printf("keyset %u \"%s\" signature '%s' emulation mode %u\n", inIndex,
                inKeyset.GetName().c_str(), VXFourCCText(inKeyset.GetSignature()).c_str(),
                inKeyset.GetEmulationMode());
    for (uint32_t n = 0; n < 5; ++n) {
        CVX_ControlData* control = inKeyset.GetControlAt(n, 0);
        if (!control) continue;
        std::printf("  button %u \"%s\" assigned \"%s\", %s\n", n,
                    control->GetControlName().c_str(), control->GetAssignedName().c_str(),
                    Latched(control->IsLatched()));
        for (uint32_t i = 0; CVX_Action* action = control->GetActionAt(i); ++i) {
            std::printf("    %u. %s\n", i + 1, DescribeAction(*action).c_str());
        }
    }
    for (uint32_t channel = 0; channel < 16; ++channel) {
        std::printf("  strip %u\n", channel);
        for (uint32_t type = 160; type <= 165; ++type) {
            CVX_ChannelControlData* control = inKeyset.GetChannelControlAt(type, channel);
            if (!control) continue;
            CVX_Channel_Action* action = control->GetActionAt(0);
            std::printf("    %u \"%s\", %s: %s\n", type, control->GetControlName().c_str(),
                        Latched(control->IsLatched()),
                        action ? DescribeChannelAction(*action).c_str() : "no action");
        }
    }
}

}  // namespace

int WriteExample(const std::string& inPath) {
    std::vector<uint8_t> bytes = ExampleKeysets();
    std::ofstream file(inPath, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        std::cerr << "vxctl keyset example: cannot write '" << inPath << "'\n";
        return 1;
    }
    return 0;
}

int RunKeyset(const std::vector<std::string>& inArgs) {
    if (inArgs.size() == 2 && inArgs[0] == "example") return WriteExample(inArgs[1]);
    if (inArgs.size() != 2 || inArgs[0] != "dump") return Usage();
    std::vector<uint8_t> bytes;
    if (!ReadBinaryFile(inArgs[1], bytes)) {
        std::cerr << "vxctl keyset dump: cannot read '" << inArgs[1] << "'\n";
        return 1;
    }

    bool complete;
    {
        CVXVirtualLoop loop;
        SVXPlatform platform;
        platform.loop = &loop;
        CVXPlatformScope scope(platform);
        CVX_KeysetData data;
        UStreamReader reader(std::move(bytes));
        complete = data.UpdateFromStream(&reader);
        for (uint32_t i = 0; i < data.GetNumKeysets(); ++i) PrintKeyset(i, *data.GetKeysetAt(i));
    }
    std::fflush(stdout);
    if (!complete) {
        std::cerr << "vxctl keyset dump: '" << inArgs[1] << "' did not load completely\n";
        return 1;
    }
    return 0;
}

}  // namespace vxctl
