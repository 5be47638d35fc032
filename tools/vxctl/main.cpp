// vxctl: the project's command-line tool.
#include <iostream>
#include <string>
#include <vector>

#include "DecodeCommand.h"

namespace {
int Usage() {
    std::cerr << "usage: vxctl <command> [options]\n"
                 "commands:\n"
                 "  decode [--midi] [--records] [FILE|-]   parse a capture of surface reads\n";
    return 2;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "decode") return vxctl::RunDecode(args);
    if (command == "-h" || command == "--help" || command == "help") {
        Usage();
        return 0;
    }
    std::cerr << "vxctl: unknown command '" << command << "'\n";
    return Usage();
}
