#include "BusCommands.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "ActionText.h"
#include "HexInput.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UStreamWriter.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXTextPlatform.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"
#include "platform/bus/CVXBusClient.h"

namespace vxctl {

namespace {

struct SUsage {
    const char* command;
    const char* text;
};

// Each subcommand's synopsis and what it does, for its --help and errors.
const SUsage kUsages[] = {
    {"status", "status\n  the surface's status words as the driver read them"},
    {"current", "current\n  the current keyset, bank, control and channel"},
    {"keyset add",
     "keyset add FILE\n  adds every keyset of FILE (a keyset file, or one keyset record)"},
    {"keyset replace",
     "keyset replace INDEX FILE\n  replaces keyset INDEX with the one keyset of FILE"},
    {"keyset delete", "keyset delete INDEX\n  deletes keyset INDEX"},
    {"control update",
     "control update FILE\n  sends FILE, one button or channel control update as the editor\n"
     "  writes it (keyset index, bank or channel, control number, then the record)"},
    {"led", "led CHANNEL mute|solo|aux|select on|off\n  switches a channel button's LED"},
    {"fader", "fader CHANNEL POSITION\n  moves a motor fader to POSITION (0 to 255)"},
    {"raw", "raw HEX\n  writes the bytes (at most 1024) to the surface as they are"},
    {"edit-mode", "edit-mode on|off\n  controls report to the editor instead of acting"},
    {"touch-sense-midi", "touch-sense-midi on|off\n  whether the touch sensors' MIDI actions send"},
    {"monitor",
     "monitor [--count N]\n  prints every control event and application event as it comes\n"
     "  (after N of them, ends)"},
    {"focus-feed",
     "focus-feed APPLICATION\n  tells the driver which application is in front (for desktops\n"
     "  where it cannot see the focus); mapped through the applications file"},
};

int Usage(const std::string& inCommand, bool inAsked) {
    for (const SUsage& u : kUsages) {
        if (inCommand == u.command) {
            (inAsked ? std::cout : std::cerr) << "usage: vxctl " << u.text << "\n";
            return inAsked ? 0 : 2;
        }
    }
    return 2;
}

bool Asked(const std::vector<std::string>& inArgs) {
    for (const std::string& a : inArgs)
        if (a == "-h" || a == "--help") return true;
    return false;
}

std::optional<uint32_t> Number(const std::string& inText, uint32_t inMax) {
    if (inText.empty() || inText.size() > 10) return std::nullopt;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(inText.c_str(), &end, 10);
    if (*end != '\0' || inText[0] == '-' || v > inMax) return std::nullopt;
    return static_cast<uint32_t>(v);
}

std::optional<bool> OnOff(const std::string& inText) {
    if (inText == "on") return true;
    if (inText == "off") return false;
    return std::nullopt;
}

int Fail(const std::string& inCommand, const std::string& inWhat) {
    std::cerr << "vxctl " << inCommand << ": " << inWhat << "\n";
    return 1;
}

// One command to the driver; the reply in outReply. The exit status: 0, or 1
// with the cause printed.
int Send(const std::string& inCommand, const char (&inEventID)[5], const VXAEParams& inParams,
         VXAEParams* outReply = nullptr) {
    CVXBusClient client;
    VXAEParams reply;
    if (client.Event(VXTag(inEventID), inParams, reply) < 0) return Fail(inCommand, client.Error());
    if (outReply) *outReply = std::move(reply);
    return 0;
}

std::optional<uint32_t> ReplyMagn(const VXAEParams& inReply, const char (&inKeyword)[5]) {
    uint32_t v = 0;
    if (!VX_AE_Handlers::GetParamMagn(inReply, VXTag(inKeyword), v)) return std::nullopt;
    return v;
}

constexpr char kNoStatus[] = "the driver has no status from a surface yet (none is linked)";

int RunStatus() {
    VXAEParams reply;
    if (int r = Send("status", "Stus", {}, &reply)) return r;
    const std::vector<uint8_t>* data = VX_AE_Handlers::GetParamText(reply, VXTag("StDt"));
    if (!data || data->size() != 4 * VX_AE_Handlers::kNumStatusWords)
        return Fail("status", kNoStatus);
    std::printf("status:");
    for (size_t i = 0; i < data->size(); i += 4) {
        const uint32_t word = (uint32_t{(*data)[i]} << 24) | (uint32_t{(*data)[i + 1]} << 16) |
                              (uint32_t{(*data)[i + 2]} << 8) | (*data)[i + 3];
        std::printf(" %u", word);
    }
    std::printf("\nchannel strips: %u\n", (uint32_t{(*data)[4]} << 24) |
                                              (uint32_t{(*data)[5]} << 16) |
                                              (uint32_t{(*data)[6]} << 8) | (*data)[7]);
    return 0;
}

int RunCurrent() {
    VXAEParams bank, channel;
    if (int r = Send("current", "QGCr", {}, &bank)) return r;
    if (int r = Send("current", "QGCC", {}, &channel)) return r;
    const auto keyset = ReplyMagn(channel, "QKyN");
    if (!keyset) return Fail("current", kNoStatus);
    std::printf("keyset %u", *keyset);
    if (auto b = ReplyMagn(bank, "QBkN")) std::printf(" bank %u", *b);
    if (auto c = ReplyMagn(channel, "CtlN")) std::printf(" control %u", *c);
    if (auto c = ReplyMagn(channel, "Chnl")) std::printf(" channel %u", *c);
    std::printf("\n");
    return 0;
}

// The keyset records of a keyset file (or of a file holding one record), each
// as its bytes, checked with the driver's own readers: false with outError
// set when the file does not load completely.
bool KeysetRecords(const std::string& inPath, std::vector<std::vector<uint8_t>>& outRecords,
                   std::string& outError) {
    std::vector<uint8_t> bytes;
    if (!ReadBinaryFile(inPath, bytes)) {
        outError = "cannot read '" + inPath + "'";
        return false;
    }
    CVXVirtualLoop loop;
    SVXPlatform platform;
    platform.loop = &loop;
    CVXPlatformScope scope(platform);
    CVX_KeysetData data;
    UStreamReader reader(bytes.data(), bytes.size());
    uint32_t count = 1;
    if (reader.GetSize() >= 4 && reader.GetTag() == VXTag("KstD")) {
        uint32_t version = 0;
        if (!reader.TagIs(VXTag("CrKV")) || !reader.GetLong(version) || version < 0x40000 ||
            !reader.TagIs(VXTag("KsCt")) || !reader.GetLong(count)) {
            outError = "'" + inPath + "' is a malformed keyset file (its header)";
            return false;
        }
    } else {
        reader.SetPos(0);
    }
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t start = reader.GetPos();
        if (!data.NewKeysetFromStream(&reader)) {
            outError =
                "'" + inPath + "' is a malformed keyset file (keyset " + std::to_string(i) + ")";
            return false;
        }
        outRecords.emplace_back(bytes.begin() + start, bytes.begin() + reader.GetPos());
    }
    if (outRecords.empty()) {
        outError = "'" + inPath + "' holds no keyset";
        return false;
    }
    return true;
}

int RunKeysetBus(const std::vector<std::string>& inArgs) {
    const std::string command = "keyset " + inArgs[0];
    if (inArgs[0] == "delete") {
        if (inArgs.size() != 2) return Usage(command, false);
        const auto index = Number(inArgs[1], UINT32_MAX);
        if (!index) return Fail(command, "INDEX must be a number, not '" + inArgs[1] + "'");
        return Send(command, "QDlK", {{VXTag("QKys"), *index}});
    }
    const bool add = inArgs[0] == "add";
    if (inArgs.size() != (add ? 2u : 3u)) return Usage(command, false);
    std::optional<uint32_t> index;
    if (!add && !(index = Number(inArgs[1], UINT32_MAX)))
        return Fail(command, "INDEX must be a number, not '" + inArgs[1] + "'");
    std::vector<std::vector<uint8_t>> records;
    std::string error;
    if (!KeysetRecords(inArgs.back(), records, error)) return Fail(command, error);
    if (add) {
        for (const auto& record : records)
            if (int r = Send(command, "QAdK", UploadParams(record, "QKys"))) return r;
        std::printf("added %zu keyset%s\n", records.size(), records.size() == 1 ? "" : "s");
        return 0;
    }
    if (records.size() != 1)
        return Fail(command, "'" + inArgs.back() + "' holds " + std::to_string(records.size()) +
                                 " keysets: replace takes one");
    return Send(command, "QUpK", UploadParams(KeysetUpdateBytes(*index, records[0]), "QKys"));
}

int RunControl(const std::vector<std::string>& inArgs) {
    if (inArgs.size() != 2 || inArgs[0] != "update") return Usage("control update", false);
    std::vector<uint8_t> bytes;
    if (!ReadBinaryFile(inArgs[1], bytes))
        return Fail("control update", "cannot read '" + inArgs[1] + "'");
    // Three longs, then a channel control record opens with its tag; a
    // button record has none.
    if (bytes.size() < 16)
        return Fail("control update", "'" + inArgs[1] + "' is too short for a control update");
    UStreamReader reader(bytes.data(), bytes.size());
    reader.SetPos(12);
    const bool channel = reader.GetTag() == VXTag("CtlD");
    return Send("control update", channel ? "QUCC" : "QUpC", UploadParams(bytes, "QCtD"));
}

int RunLed(const std::vector<std::string>& inArgs) {
    if (inArgs.size() != 3) return Usage("led", false);
    const auto channel = Number(inArgs[0], 15);
    const char* names[] = {"mute", "solo", "aux", "select"};
    std::optional<uint32_t> control;
    for (uint32_t i = 0; i < 4; ++i)
        if (inArgs[1] == names[i]) control = kVXChannelMute + i;
    const auto on = OnOff(inArgs[2]);
    if (!channel) return Fail("led", "CHANNEL must be 0 to 15, not '" + inArgs[0] + "'");
    if (!control) return Fail("led", "no LED '" + inArgs[1] + "': mute, solo, aux or select");
    if (!on) return Usage("led", false);
    return Send(
        "led", "QSCL",
        {{VXTag("CtlN"), *control}, {VXTag("Chnl"), *channel}, {VXTag("CVal"), *on ? 1 : 0}});
}

int RunFader(const std::vector<std::string>& inArgs) {
    if (inArgs.size() != 2) return Usage("fader", false);
    const auto channel = Number(inArgs[0], 15);
    const auto position = Number(inArgs[1], 255);
    if (!channel) return Fail("fader", "CHANNEL must be 0 to 15, not '" + inArgs[0] + "'");
    if (!position) return Fail("fader", "POSITION must be 0 to 255, not '" + inArgs[1] + "'");
    // The command takes the 0..1020 scale of the driver's fader events.
    return Send("fader", "QSFd",
                {{VXTag("Chnl"), *channel}, {VXTag("CVal"), static_cast<int32_t>(*position * 4)}});
}

int RunRaw(const std::vector<std::string>& inArgs) {
    if (inArgs.empty()) return Usage("raw", false);
    std::string text;
    for (const std::string& a : inArgs) text += a + " ";
    std::vector<uint8_t> bytes;
    std::string error;
    if (!ParseHexLine(text, bytes, error)) return Fail("raw", error);
    if (bytes.empty() || bytes.size() > VX_AE_Handlers::kRawBufferSize)
        return Fail("raw", "give 1 to 1024 bytes");
    return Send("raw", "QWrH", {{VXTag("QRaw"), bytes}});
}

int RunSwitch(const std::string& inCommand, const std::vector<std::string>& inArgs) {
    const auto on = inArgs.size() == 1 ? OnOff(inArgs[0]) : std::nullopt;
    if (!on) return Usage(inCommand, false);
    if (inCommand == "edit-mode") return Send(inCommand, "QEdM", {{VXTag("QEdM"), uint32_t(*on)}});
    // The command disables: on sends 0.
    return Send(inCommand, "QDTS", {{VXTag("QTSt"), uint32_t(!*on)}});
}

int RunMonitor(const std::vector<std::string>& inArgs) {
    std::optional<uint32_t> count;
    if (inArgs.size() == 2 && inArgs[0] == "--count") count = Number(inArgs[1], UINT32_MAX);
    if (!inArgs.empty() && !count) return Usage("monitor", false);
    CVXBusClient client;
    uint32_t seen = 0;
    const int r = client.Subscribe([&](const CVXBusClient::SSignal& inSignal) {
        if (inSignal.control) {
            std::printf("%s\n",
                        DescribeControlEvent(inSignal.controlNum, inSignal.channel, inSignal.value)
                            .c_str());
        } else {
            // The words of decode's action lines, beneath the event that caused them.
            std::vector<SVXEventParam> params;
            for (const SVXAEParam& p : inSignal.params) {
                int32_t v = 0;
                if (VX_AE_Handlers::GetParamLong(inSignal.params, p.keyword, v))
                    params.push_back({p.keyword, v});
            }
            CVXTextNotifier([](std::string inLine) {
                std::printf("  %s\n", inLine.c_str());
            }).SendApplicationEvent(inSignal.signature, inSignal.eventID, params);
        }
        std::fflush(stdout);
        ++seen;
    });
    if (r < 0) return Fail("monitor", client.Error());
    // Events come from whichever vxd takes the name, now or later.
    if (client.DriverOnBus() == 0) {
        std::cerr << "vxctl monitor: vxd is not running (no org.velorix.Driver on the session "
                     "bus); waiting for it\n";
    }
    while (!count || seen < *count) {
        if (int w = client.Wait(UINT64_MAX); w < 0)
            return Fail("monitor", std::string("the session bus went away"));
    }
    return 0;
}

int RunFocusFeed(const std::vector<std::string>& inArgs) {
    if (inArgs.size() != 1) return Usage("focus-feed", false);
    CVXBusClient client;
    if (client.SetFrontApplication(inArgs[0]) < 0) return Fail("focus-feed", client.Error());
    return 0;
}

}  // namespace

VXAEParams UploadParams(const std::vector<uint8_t>& inData, const char (&inKeyword)[5]) {
    return {{VXTag("QDSz"), static_cast<uint32_t>(inData.size())}, {VXTag(inKeyword), inData}};
}

std::vector<uint8_t> KeysetUpdateBytes(uint32_t inIndex, const std::vector<uint8_t>& inRecord) {
    UStreamWriter w;
    w.PutLong(inIndex);
    w.PutBytes(inRecord.data(), inRecord.size());
    return w.Take();
}

bool IsBusCommand(const std::string& inCommand) {
    for (const SUsage& u : kUsages)
        if (inCommand == u.command) return true;
    return inCommand == "control";
}

int RunBusCommand(const std::string& inCommand, const std::vector<std::string>& inArgs) {
    const std::string full = (inCommand == "keyset" || inCommand == "control") && !inArgs.empty()
                                 ? inCommand + " " + inArgs[0]
                                 : inCommand;
    if (Asked(inArgs)) return Usage(full == "control" ? "control update" : full, true);
    if (inCommand == "status" && inArgs.empty()) return RunStatus();
    if (inCommand == "current" && inArgs.empty()) return RunCurrent();
    if (inCommand == "keyset") return RunKeysetBus(inArgs);
    if (inCommand == "control") return RunControl(inArgs);
    if (inCommand == "led") return RunLed(inArgs);
    if (inCommand == "fader") return RunFader(inArgs);
    if (inCommand == "raw") return RunRaw(inArgs);
    if (inCommand == "edit-mode" || inCommand == "touch-sense-midi")
        return RunSwitch(inCommand, inArgs);
    if (inCommand == "monitor") return RunMonitor(inArgs);
    if (inCommand == "focus-feed") return RunFocusFeed(inArgs);
    return Usage(full, false);
}

std::string BusUsage() {
    std::string text;
    for (const SUsage& u : kUsages) text += std::string("  ") + u.text + "\n";
    return text;
}

}  // namespace vxctl
