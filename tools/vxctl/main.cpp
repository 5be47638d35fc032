// vxctl: the project's command-line tool.
#include <iostream>
#include <string>
#include <vector>

#include "BusCommands.h"
#include "DecodeCommand.h"
#include "DesktopCommand.h"
#include "DevicesCommand.h"
#include "KeysetCommand.h"
#include "KeysetTextCommand.h"
#include "MidiCommand.h"

namespace {
int Usage() {
    std::cerr << "usage: vxctl <command> [options]\n"
                 "commands:\n"
                 "  decode [--midi] [--records] [--prefs FILE] [--app SIGN] [CAPTURE|-]\n"
                 "      replay a capture of surface reads through the parser and the keysets\n"
                 "  devices\n"
                 "      list the plugged-in USB devices that vxd would drive\n"
                 "  keyset dump FILE\n"
                 "      list the keysets of a preferences file\n"
                 "  keyset example FILE\n"
                 "      write a small keyset file to start from\n"
                 "  keyset export PREFS [-o FILE], keyset import FILE [-o PREFS]\n"
                 "      keysets between the preferences file and text\n"
                 "  keyset install FILE|PRESET [--signature SIGN]\n"
                 "      add keysets (text) to yours and to a running vxd\n"
                 "  keyset sync [--wait SECONDS]\n"
                 "      send your transport-button assignments to vxd\n"
                 "  midi\n"
                 "      list the MIDI systems here, the one vxd would use and its ports\n"
                 "  focus [--count N]\n"
                 "      follow the X11 focus: each window's class, instance and signature\n"
                 "  keys\n"
                 "      print the key table: virtual key code, evdev name, X keycode\n"
                 "commands to a running vxd (on the session bus):\n"
              << vxctl::BusUsage();
    return 2;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "decode") return vxctl::RunDecode(args);
    if (command == "keyset" && !args.empty() &&
        (args[0] == "add" || args[0] == "replace" || args[0] == "delete"))
        return vxctl::RunBusCommand(command, args);
    if (command == "keyset" && !args.empty() && vxctl::IsKeysetTextCommand(args[0]))
        return vxctl::RunKeysetText(args);
    if (command == "keyset") return vxctl::RunKeyset(args);
    if (vxctl::IsBusCommand(command)) return vxctl::RunBusCommand(command, args);
    if (command == "devices") return vxctl::RunDevices(args);
    if (command == "midi") return vxctl::RunMidi(args);
    if (command == "focus") return vxctl::RunFocus(args);
    if (command == "keys") return vxctl::RunKeys(args);
    if (command == "-h" || command == "--help" || command == "help") {
        Usage();
        return 0;
    }
    std::cerr << "vxctl: unknown command '" << command << "'\n";
    return Usage();
}
