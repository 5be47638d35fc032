#include "DecodeCommand.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "HexInput.h"
#include "driver/CVXRecordSink.h"
#include "driver/CVXUserSpaceDriver.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXHostMIDIOut.h"

namespace vxctl {

namespace {

std::string Trimmed(const char* name) {
    std::string s(name);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

// Prints every record and every host message as it happens, so that the output
// keeps the order in which the parser produced them.
class DecodePrinter : public CVXRecordSink, public CVXHostMIDIOut {
  public:
    explicit DecodePrinter(bool inRecords) : mRecords(inRecords) {}

    void Service(const uint8_t* record) override {
        if (mRecords) {
            std::printf("%s\n", HexString(record, record[0]).c_str());
        } else {
            std::printf("%s\n", Describe(record).c_str());
        }
    }

    void Send(const uint8_t* bytes, size_t length) override {
        std::printf("host: %s\n", HexString(bytes, length).c_str());
    }

  private:
    static std::string Describe(const uint8_t* r) {
        uint32_t kind = r[1];
        char line[256];
        if (UVX_ControlClass::IsTransportControl(kind)) {
            std::snprintf(line, sizeof line, "button %s %s", kControlNames[kind],
                          r[2] == 0x3F ? "pressed" : "released");
        } else if (UVX_ControlClass::IsChannelFader(kind)) {
            std::snprintf(line, sizeof line, "fader channel %u position %u", r[2], r[3]);
        } else if (kind == kVXChannelTouchSense) {
            std::snprintf(line, sizeof line, "touch channel %u %s", r[2],
                          r[3] ? "touched" : "released");
        } else if (UVX_ControlClass::IsChannelButton(kind)) {
            std::snprintf(line, sizeof line, "%s channel %u %s",
                          Trimmed(kChannelControlNames[kind - 160]).c_str(), r[2],
                          r[3] ? "on" : "off");
        } else if (kind == kVXRawMIDIMessage) {
            std::snprintf(line, sizeof line, "pass-through %s",
                          HexString(r + 2, r[0] - 2u).c_str());
        } else {
            std::snprintf(line, sizeof line, "record %s", HexString(r, r[0]).c_str());
        }
        return line;
    }

    bool mRecords;
};

int Usage() {
    std::cerr << "usage: vxctl decode [--midi] [--records] [FILE|-]\n"
                 "  Each line of FILE (default: standard input) is one USB read in hex,\n"
                 "  the bridge's two status bytes in front of every 64-byte packet.\n"
                 "  --midi     each line is plain MIDI bytes, framed as the bridge does\n"
                 "  --records  print records and host messages as hex bytes only\n";
    return 2;
}

}  // namespace

int RunDecode(const std::vector<std::string>& inArgs) {
    bool midi = false;
    bool records = false;
    std::string path = "-";
    bool havePath = false;
    for (const std::string& arg : inArgs) {
        if (arg == "--midi") {
            midi = true;
        } else if (arg == "--records") {
            records = true;
        } else if (arg == "-h" || arg == "--help") {
            return Usage();
        } else if ((arg.size() > 1 && arg[0] == '-') || havePath) {
            std::cerr << "vxctl decode: unexpected argument '" << arg << "'\n";
            return Usage();
        } else {
            path = arg;
            havePath = true;
        }
    }

    std::vector<std::vector<uint8_t>> reads;
    std::string error;
    bool ok;
    if (path == "-") {
        ok = ReadCapture(std::cin, midi, reads, error);
    } else {
        std::ifstream file(path);
        if (!file) {
            std::cerr << "vxctl decode: cannot open '" << path << "'\n";
            return 1;
        }
        ok = ReadCapture(file, midi, reads, error);
    }
    if (!ok) {
        std::cerr << "vxctl decode: " << path << ": " << error << "\n";
        return 1;
    }

    DecodePrinter printer(records);
    CVXUserSpaceDriver driver(&printer, &printer);
    for (const auto& read : reads) driver.ProcessVXData(read.data(), read.size());
    if (!records && driver.Parser().DebugErrorCount() != 0) {
        std::printf("bridge status errors: %u\n", driver.Parser().DebugErrorCount());
    }
    std::fflush(stdout);
    return 0;
}

}  // namespace vxctl
