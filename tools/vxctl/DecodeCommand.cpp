#include "DecodeCommand.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "ActionText.h"
#include "HexInput.h"
#include "driver/CVXRecordSink.h"
#include "driver/CVXUserSpaceDriver.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXFrontAppSource.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/CVXTextPlatform.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "service/CVXService.h"

namespace vxctl {

namespace {

// Each read takes this much virtual time, about the pace at which the driver
// polls a busy surface; '+N' lines in a capture let more time pass.
constexpr uint64_t kMicrosPerRead = 10000;

std::string DescribeRecord(const uint8_t* r) {
    uint32_t kind = r[1];
    char line[320];
    if (UVX_ControlClass::IsTransportControl(kind)) {
        return DescribeControlEvent(kind, 0, r[kVXRecordButtonState] == kVXButtonPressed);
    } else if (UVX_ControlClass::IsChannelControl(kind)) {
        return DescribeControlEvent(kind, r[2], r[3]);
    } else if (kind == kVXRawMIDIMessage) {
        std::snprintf(line, sizeof line, "pass-through %s", HexString(r + 2, r[0] - 2u).c_str());
    } else {
        std::snprintf(line, sizeof line, "record %s", HexString(r, r[0]).c_str());
    }
    return line;
}

// Sits between the parser and the service: prints each record as it happens,
// then hands it on, so that the lines of what the actions do follow the
// record that caused them. Also the host-MIDI output of parser and service.
class DecodePrinter : public CVXRecordSink, public CVXHostMIDIOut {
  public:
    explicit DecodePrinter(bool inRecords) : mRecords(inRecords) {}

    void Service(const uint8_t* record) override {
        std::string text = mRecords ? HexString(record, record[0]) : DescribeRecord(record);
        std::printf("%s\n", text.c_str());
        if (mService) mService->Service(record);
    }
    void Send(const uint8_t* bytes, size_t length) override {
        std::printf("host: %s\n", HexString(bytes, length).c_str());
    }

    CVXRecordSink* mService = nullptr;

  private:
    bool mRecords;
};

// The driver of the replay: what it writes to the surface (the answers to
// host MIDI) is printed instead.
class DecodeDriver : public CVXUserSpaceDriver {
  public:
    using CVXUserSpaceDriver::CVXUserSpaceDriver;
    int WriteAsync(const uint8_t* inData, size_t inSize) override {
        std::printf("device: %s\n", HexString(inData, inSize).c_str());
        return 0;
    }
};

class FixedFrontApp : public CVXFrontAppSource {
  public:
    bool GetFrontSignature(uint32_t& outSignature) override {
        if (!mKnown) return false;
        outSignature = mSignature;
        return true;
    }
    bool mKnown = false;
    uint32_t mSignature = 0;
};

int Usage() {
    std::cerr
        << "usage: vxctl decode [--midi] [--records] [--prefs FILE] [--app SIGN] [CAPTURE|-]\n"
           "  Each line of CAPTURE (default: standard input) is one USB read in hex, the\n"
           "  bridge's two status bytes in front of every 64-byte packet; a line '+N' lets\n"
           "  N milliseconds pass (held keys repeat, delays run out); a line 'host HEX'\n"
           "  is MIDI from a host application: the driver's answer to the surface is\n"
           "  printed as 'device: ...'.\n"
           "  --midi        each line is plain MIDI bytes, framed as the bridge does\n"
           "  --records     print records and host messages as hex bytes only\n"
           "  --prefs FILE  keysets from this preferences file (default: none)\n"
           "  --app SIGN    the four-character signature of the application in front\n";
    return 2;
}

}  // namespace

int RunDecode(const std::vector<std::string>& inArgs) {
    bool midi = false, records = false, havePath = false;
    std::string path = "-", prefsPath, app;
    for (size_t i = 0; i < inArgs.size(); ++i) {
        const std::string& arg = inArgs[i];
        if (arg == "--midi") {
            midi = true;
        } else if (arg == "--records") {
            records = true;
        } else if ((arg == "--prefs" || arg == "--app") && i + 1 < inArgs.size()) {
            (arg == "--prefs" ? prefsPath : app) = inArgs[++i];
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
    if (!app.empty() && app.size() != 4) {
        std::cerr << "vxctl decode: --app takes four characters, like 'DAW1'\n";
        return 2;
    }

    std::vector<SCaptureStep> steps;
    std::string error;
    bool ok;
    if (path == "-") {
        ok = ReadCapture(std::cin, midi, steps, error);
    } else {
        std::ifstream file(path);
        if (!file) {
            std::cerr << "vxctl decode: cannot open '" << path << "'\n";
            return 1;
        }
        ok = ReadCapture(file, midi, steps, error);
    }
    if (!ok) {
        std::cerr << "vxctl decode: " << path << ": " << error << "\n";
        return 1;
    }
    std::vector<uint8_t> prefs;
    if (!prefsPath.empty() && !ReadBinaryFile(prefsPath, prefs)) {
        std::cerr << "vxctl decode: cannot read '" << prefsPath << "'\n";
        return 1;
    }

    DecodePrinter printer(records);
    CVXVirtualLoop loop;
    // In --records mode only records and host messages are printed.
    VXLineSink actionLines = [records](std::string inLine) {
        if (!records) std::printf("  %s\n", inLine.c_str());
    };
    CVXTextPoster poster(actionLines);
    CVXTextNotifier notifier(actionLines);
    FixedFrontApp front;
    if (!app.empty()) {
        front.mKnown = true;
        for (char c : app) front.mSignature = (front.mSignature << 8) | static_cast<uint8_t>(c);
    }
    SVXPlatform platform;
    platform.loop = &loop;
    platform.poster = &poster;
    platform.notifier = &notifier;
    platform.frontApp = &front;
    platform.hostMIDI = &printer;

    uint32_t errors = 0;
    {
        CVXPlatformScope scope(platform);
        CVXService service(std::move(prefs));
        printer.mService = &service;
        DecodeDriver driver(&printer, &printer);
        for (const SCaptureStep& step : steps) {
            if (step.fromHost) {
                // One packet list of one packet, answered by the keyset of
                // the application in front, as the driver's read procedure is.
                service.CheckForProcessChange();
                const SVXMIDIPacket packet = {step.read.data(), step.read.size()};
                driver.DoMIDIReadProc({&packet, 1});
                continue;
            }
            if (step.read.empty()) {
                loop.AdvanceBy(step.waitMicros);
                continue;
            }
            loop.AdvanceBy(kMicrosPerRead);
            driver.ProcessVXData(step.read.data(), step.read.size());
        }
        errors = driver.Parser().DebugErrorCount();
    }
    if (!records && errors != 0) std::printf("bridge status errors: %u\n", errors);
    std::fflush(stdout);
    return 0;
}

}  // namespace vxctl
