// The driver's object on a private session bus that the tests start: every
// editor command through the bus with what it writes to the surface, changes
// or answers; the error for an unknown command; the signals; the focus feed;
// and vxctl's subcommands as a user runs them, against the same bus.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "integration/DBusRig.h"
#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "output/VX_AE_Handlers.h"
#include "platform/CVXFedFrontApp.h"
#include "platform/VXDiagnostics.h"
#include "platform/bus/CVXBusClient.h"
#include "platform/bus/CVXBusObject.h"
#include "platform/loop/CVXSdEventLoop.h"
#include "service/CVXApplicationMap.h"
#include "service/CVXService.h"
#include "support/EditorParams.h"
#include "support/MIDIKeysets.h"
#include "support/PlatformFakes.h"
#include "support/Spawn.h"

extern char** environ;

namespace {

using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;
using namespace std::chrono_literals;

constexpr uint32_t kDeviceStatus[7] = {1, 16, 2, 0, 0, 0, 0};

Bytes KeysetRecord(const char* inName, uint32_t inSignature) {
    CVXKeysetStreamWriter w;
    w.KeysetHeader(inName, inSignature).EmptyStrips();
    return w.Take();
}

// A file name of this process's own: ctest runs tests in parallel processes.
std::string Scratch(const std::string& inName) {
    return ::testing::TempDir() + "vx-bus-" + std::to_string(getpid()) + "-" + inName;
}

std::string ReadFile(const std::string& inPath) {
    std::ifstream in(inPath);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class BusObjectTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { sDaemon = new CDBusDaemon; }
    static void TearDownTestSuite() {
        delete sDaemon;
        sDaemon = nullptr;
        const std::string prefix = "vx-bus-" + std::to_string(getpid()) + "-";
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(::testing::TempDir(), ignored))
            if (entry.path().filename().string().rfind(prefix, 0) == 0)
                std::filesystem::remove(entry.path(), ignored);
    }

    void SetUp() override {
        ASSERT_TRUE(sDaemon->Running()) << "dbus-daemon did not start";
        mApplications.Parse("ardour DAW1\norg.example.mixer MIX1\n");
        SVXPlatform platform;
        platform.loop = &mLoop;
        platform.device = &mDevice;
        platform.hostMIDI = &mHost;
        platform.frontApp = &mFocus;
        platform.notifier = &mBus;
        platform.monitor = &mBus;
        mScope = std::make_unique<CVXPlatformScope>(platform);
        mService = std::make_unique<CVXService>(MIDIKeysets());
        mHandlers = std::make_unique<VX_AE_Handlers>(&mDevice);
        mHandlers->Install();
        if (mOpenBus) {
            ASSERT_EQ(mBus.Open(), 0);
        }
    }
    void TearDown() override {
        mHandlers.reset();
        mService.reset();
        mScope.reset();
    }

    // Runs the loop (the driver's side) until inDone(); false after 10 s.
    bool RunUntil(const std::function<bool()>& inDone) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!inDone()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            sd_event_run(mLoop.Native(), 2000);
        }
        return true;
    }

    // A blocking client call on another thread while the loop serves it.
    template <class F>
    auto Call(F inCall) {
        auto result = std::async(std::launch::async, inCall);
        EXPECT_TRUE(RunUntil([&] { return result.wait_for(0s) == std::future_status::ready; }));
        return result.get();
    }
    // The command through the bus; the client's status.
    int Event(const std::string& inID, VXAEParams inParams, VXAEParams* outReply = nullptr,
              std::string* outErrorName = nullptr) {
        return Call([&] {
            CVXBusClient client;
            VXAEParams reply;
            const int r = client.Event(inID, inParams, reply);
            if (outReply) *outReply = reply;
            if (outErrorName) *outErrorName = client.ErrorName();
            return r;
        });
    }

    // vxctl with inArgs, to its end: exit status, and what it printed.
    int Vxctl(std::vector<std::string> inArgs, std::string* outOutput = nullptr,
              const char* inBusAddress = nullptr) {
        const std::string log = Scratch("vxctl.log");
        pid_t pid = SpawnVxctl(std::move(inArgs), log, inBusAddress);
        int status = -1;
        EXPECT_TRUE(RunUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }));
        if (outOutput) *outOutput = ReadFile(log);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static pid_t SpawnVxctl(std::vector<std::string> inArgs, const std::string& inLog,
                            const char* inBusAddress = nullptr) {
        inArgs.insert(inArgs.begin(), VXCTL_PATH);
        std::vector<std::string> env = EnvironmentWithout({});
        if (inBusAddress) {
            env = EnvironmentWithout({"DBUS_SESSION_BUS_ADDRESS="});
            env.push_back(std::string("DBUS_SESSION_BUS_ADDRESS=") + inBusAddress);
        }
        return SpawnProcess(inArgs, env, inLog);
    }

    CVX_KeysetData& Keysets() { return *mService->GetKeysetData(); }
    // The driver holds inCount keysets, and its KeysetCount says so.
    bool HeldKeysets(uint32_t inCount) {
        uint32_t count = 0;
        const int r = Call([&] { return CVXBusClient().KeysetCount(count); });
        return r == 0 && count == inCount && Keysets().GetNumKeysets() == inCount;
    }
    void Touch(uint8_t inKind, uint8_t inChannel, uint8_t inValue) {
        const uint8_t record[] = {4, inKind, inChannel, inValue};
        mService->Service(record);
    }

    static CDBusDaemon* sDaemon;
    bool mOpenBus = true;
    CEventLog mLog;
    CRecordingDevice mDevice{mLog};
    CRecordingHostMIDI mHost{mLog};
    CVXSdEventLoop mLoop;
    CVXApplicationMap mApplications;
    CFakeFrontApp mTracker;  // what an X11 tracker would say
    CVXFedFrontApp mFocus{&mTracker, &mApplications};
    CVXBusObject mBus{mLoop, &mFocus};
    std::unique_ptr<CVXPlatformScope> mScope;
    std::unique_ptr<CVXService> mService;
    std::unique_ptr<VX_AE_Handlers> mHandlers;
};

CDBusDaemon* BusObjectTest::sDaemon = nullptr;

TEST_F(BusObjectTest, EveryCommandWritesChangesOrAnswersThroughTheBus) {
    mHandlers->UpdateStatus(kDeviceStatus);
    const Bytes mixer = KeysetRecord("Mixer", VXTag("MIX1"));
    Bytes replace = {0, 0, 0, 2};
    const Bytes edited = KeysetRecord("Edited", VXTag("EDT1"));
    replace.insert(replace.end(), edited.begin(), edited.end());
    const Bytes button = ButtonMIDIUpdate(0, 3, 2, {0xB0, 0x10, 0xFD});
    CVXKeysetStreamWriter channelWriter;
    channelWriter.ChannelControlUpdateHeader(0, 4, 0xA1).ChannelControl("Muted", 0xA1, 4, true, 0);
    const Bytes channel = channelWriter.Take();
    auto sized = [](const char(&inKeyword)[5], const Bytes& inData) {
        return VXAEParams{Magn("QDSz", uint32_t(inData.size())), Text(inKeyword, inData)};
    };

    struct SCase {
        const char* id;
        VXAEParams params;
        Lines device;
        VXAEParams reply;
        std::function<bool()> changed;
    };
    const SCase cases[] = {
        {"QWrH", {Text("QRaw", {0x90, 0x3C, 0x7F})}, {"device 90 3C 7F"}, {}, {}},
        {"QWrH", {Text("QRaw", {})}, {}, {}, {}},
        {"QStL", {Magn("CtlN", 3), Long("CVal", 1)}, {}, {}, {}},
        {"QSCL",
         {Magn("CtlN", 0xA1), Magn("Chnl", 0), Long("CVal", 1)},
         {"device B0 46 7F"},
         {},
         {}},
        {"QSFd", {Magn("Chnl", 3), Long("CVal", 1020)}, {"device B3 07 7F 27 40"}, {}, {}},
        {"QSFd", {Magn("Chnl", 3), Long("CVal", 1023)}, {"device B3 07 7F 27 40"}, {}, {}},
        {"QSFd", {Magn("Chnl", 16), Long("CVal", 1020)}, {}, {}, {}},
        {"Stus",
         {},
         {},
         {Text("StDt", {0, 0, 0, 1, 0, 0, 0, 16, 0, 0, 0, 2, 0, 0,
                        0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0})},
         {}},
        {"QEdM", {Magn("QEdM", 1)}, {}, {}, [&] { return mService->IsEditMode(); }},
        {"QEdM", {Magn("QEdM", 0)}, {}, {}, [&] { return !mService->IsEditMode(); }},
        {"QAdK", sized("QKys", mixer), {}, {}, [&] { return HeldKeysets(3); }},
        {"QUpK",
         sized("QKys", replace),
         {},
         {},
         [&] { return Keysets().GetKeysetAt(2)->GetName() == "Edited"; }},
        {"QDlK", {Magn("QKys", 2)}, {}, {}, [&] { return HeldKeysets(2); }},
        {"QUpC",
         sized("QCtD", button),
         {},
         {},
         [&] { return Keysets().GetKeysetAt(0)->GetControlAt(3, 0)->GetAssignedName() == "MIDI"; }},
        {"QUCC",
         sized("QCtD", channel),
         {},
         {},
         [&] { return Keysets().GetKeysetAt(0)->GetChannelControlAt(0xA1, 4)->IsLatched(); }},
        {"QInK", {}, {}, {}, {}},
        {"QGCr", {}, {}, {Magn("QKyN", 0), Magn("QBkN", 0), Magn("CtlN", 0)}, {}},
        {"QStK", {Magn("QKyN", 1)}, {}, {}, [&] { return Keysets().GetCurrentKeysetIndex() == 0; }},
        {"QStB", {Magn("QBkN", 1)}, {}, {}, {}},
        {"QDTS", {Magn("QTSt", 1)}, {}, {}, [&] { return Keysets().IsTouchSenseMIDIDisabled(); }},
        {"QDTS", {Magn("QTSt", 0)}, {}, {}, [&] { return !Keysets().IsTouchSenseMIDIDisabled(); }},
        {"QGCC", {}, {}, {Magn("QKyN", 0), Magn("CtlN", 0), Magn("Chnl", 0)}, {}},
    };
    std::set<std::string> covered;
    for (const SCase& c : cases) {
        VXAEParams reply;
        EXPECT_EQ(Event(c.id, c.params, &reply), 0) << c.id;
        EXPECT_EQ(mLog.Take(), c.device) << c.id;
        EXPECT_EQ(reply, c.reply) << c.id;
        if (c.changed) {
            EXPECT_TRUE(c.changed()) << c.id;
        }
        covered.insert(c.id);
    }
    EXPECT_EQ(covered.size(), 17u);
}

TEST_F(BusObjectTest, BeforeTheStatusQueriesAnswerNothingAndChannelsAreCheckedAgainst32) {
    for (const char* id : {"Stus", "QGCr", "QGCC"}) {
        VXAEParams reply = {Magn("xxxx", 1)};
        EXPECT_EQ(Event(id, {}, &reply), 0);
        EXPECT_EQ(reply, VXAEParams{}) << id;
    }
    Event("QSFd", {Magn("Chnl", 16), Long("CVal", 1020)});
    Event("QSFd", {Magn("Chnl", 32), Long("CVal", 1020)});
    EXPECT_EQ(mLog.Take(), Lines{"device C0 07 7F 27 40"});
}

TEST_F(BusObjectTest, UnknownIDsAnswerTheNamedErrorAndIncompleteCommandsSucceedDoingNothing) {
    for (const char* id : {"QXYZ", "", "QSFdX", "qsfd"}) {
        std::string error;
        EXPECT_LT(Event(id, {}, nullptr, &error), 0) << id;
        EXPECT_EQ(error, CVXBusObject::kErrorEventNotHandled) << id;
    }
    mHandlers->UpdateStatus(kDeviceStatus);
    for (size_t i = 1; i < VX_AE_Handlers::kNumHandlers; ++i) {
        const std::string id = VXFourCCText(VX_AE_Handlers::kHandlerDescTypes[i]);
        EXPECT_EQ(Event(id, {}), 0) << id;
        // Keywords of other lengths and values of other types count as missing.
        EXPECT_EQ(Event(id, {{VXTag("CVal") >> 8, uint32_t(1)},
                             Text("QEdM", {1}),
                             Text("QTSt", {1}),
                             Magn("QRaw", 5),
                             Text("Chnl", {3})}),
                  0)
            << id;
    }
    EXPECT_EQ(mLog.Take(), Lines{});
    EXPECT_EQ(Keysets().GetNumKeysets(), 2u);
    EXPECT_FALSE(mService->IsEditMode());
    EXPECT_FALSE(Keysets().IsTouchSenseMIDIDisabled());
}

// A signal as one line: "control C CH V", or "SIGN ID" and each parameter
// as keyword=<type><value>, so that a value of the wrong type shows.
std::string Render(const CVXBusClient::SSignal& inSignal) {
    if (inSignal.control)
        return "control " + std::to_string(inSignal.controlNum) + " " +
               std::to_string(inSignal.channel) + " " + std::to_string(inSignal.value);
    std::string line = VXFourCCText(inSignal.signature) + " " + VXFourCCText(inSignal.eventID);
    for (const SVXAEParam& p : inSignal.params) {
        line += " " + VXFourCCText(p.keyword) + "=";
        if (const int32_t* i = std::get_if<int32_t>(&p.value))
            line += "i" + std::to_string(*i);
        else
            line += "other";
    }
    return line;
}

TEST_F(BusObjectTest, ControlAndApplicationEventsArriveInOrderWithTheirParameters) {
    Lines signals;
    CVXBusClient client;
    ASSERT_EQ(
        client.Subscribe([&](const CVXBusClient::SSignal& s) { signals.push_back(Render(s)); }), 0);
    // In edit mode every control reports to the editor ('VX4X').
    mService->SetEditMode(true);
    Touch(0xA0, 3, 129);
    Touch(0xA1, 0, 1);
    EXPECT_TRUE(mBus.SendApplicationEvent(VXTag("DAW1"), VXTag("QBtn"),
                                          {{VXTag("CtlN"), 3}, {VXTag("CVal"), -1}}));
    // A signature the bus cannot carry as a string is not sent.
    EXPECT_FALSE(mBus.SendApplicationEvent(0x00FF0041, VXTag("QBtn"), {}));
    ASSERT_TRUE(RunUntil([&] { return client.Wait(0) >= 0 && signals.size() >= 5; }));
    EXPECT_EQ(signals, (Lines{"control 160 3 129", "VX4X QFad CtlN=i160 Chnl=i3 CVal=i516",
                              "control 161 0 1", "VX4X QCBt CtlN=i161 Chnl=i0 CVal=i1",
                              "DAW1 QBtn CtlN=i3 CVal=i-1"}));
}

TEST_F(BusObjectTest, TouchSenseMIDIIsSilencedAndRestored) {
    mTracker.mSignature = VXTag("DAW1");  // the keyset whose controls send MIDI
    uint8_t channel = 0;
    auto touchSends = [&] {
        Touch(0xA5, channel++, 1);  // a strip of its own: no rate limit between them
        const Lines lines = mLog.Take();
        return lines.size() == 1 && lines[0].rfind("host ", 0) == 0;
    };
    EXPECT_TRUE(touchSends());
    Event("QDTS", {Magn("QTSt", 1)});
    EXPECT_FALSE(touchSends());
    Event("QDTS", {Magn("QTSt", 0)});
    EXPECT_TRUE(touchSends());
}

TEST_F(BusObjectTest, AFedApplicationTakesThePlaceOfTheTrackerAndSwitchesTheKeyset) {
    mTracker.mKnown = false;  // the tracker sees nothing (a Wayland desktop)
    mService->CheckForProcessChange();
    EXPECT_EQ(Keysets().GetCurrentKeysetIndex(), 0u);
    auto feed = [&](const std::string& inApplication) {
        return Call([&] { return CVXBusClient().SetFrontApplication(inApplication); });
    };
    EXPECT_EQ(feed("Ardour"), 0);  // case-insensitive, like a window class
    EXPECT_EQ(Keysets().GetCurrentKeysetIndex(), 1u);
    EXPECT_EQ(feed("org.example.unknown"), 0);
    EXPECT_EQ(Keysets().GetCurrentKeysetIndex(), 0u);
    // From now on the tracker is not asked.
    mTracker.mKnown = true;
    mTracker.mSignature = VXTag("DAW1");
    mService->CheckForProcessChange();
    EXPECT_EQ(Keysets().GetCurrentKeysetIndex(), 0u);
}

TEST_F(BusObjectTest, TheLiveInterfaceIsTheShippedDescription) {
    const char* source = std::getenv("VX_SOURCE_DIR");
    ASSERT_NE(source, nullptr);
    const std::string shipped =
        ReadFile(std::string(source) + "/packaging/org.velorix.Driver1.xml");
    std::string live = Call([] {
        CVXBusClient client;
        client.Connect();
        sd_bus_message* reply = nullptr;
        const char* xml = nullptr;
        std::string text;
        if (sd_bus_call_method(client.Native(), CVXBusObject::kBusName, CVXBusObject::kObjectPath,
                               "org.freedesktop.DBus.Introspectable", "Introspect", nullptr, &reply,
                               "") >= 0 &&
            sd_bus_message_read(reply, "s", &xml) >= 0)
            text = xml;
        sd_bus_message_unref(reply);
        return text;
    });
    // Members and arguments of our interface, in order, in both.
    auto members = [](const std::string& inXML) {
        const size_t start = inXML.find("<interface name=\"org.velorix.Driver1\">");
        const size_t end = inXML.find("</interface>", start);
        if (start == std::string::npos || end == std::string::npos) return Lines{};
        const std::string block = inXML.substr(start, end - start);
        auto attribute = [](const std::string& inTag, const std::string& inName) {
            const std::string key = " " + inName + "=\"";
            size_t at = inTag.find(key);
            if (at == std::string::npos) return std::string();
            at += key.size();
            return inTag.substr(at, inTag.find('"', at) - at);
        };
        Lines found;
        for (size_t at = block.find('<', 1); at != std::string::npos;
             at = block.find('<', at + 1)) {
            const std::string tag = block.substr(at, block.find('>', at) - at);
            const std::string kind = tag.substr(1, tag.find(' ') - 1);
            if (kind == "method" || kind == "signal" || kind == "arg" || kind == "property")
                found.push_back(kind + " " + attribute(tag, "name") + " " + attribute(tag, "type") +
                                " " + attribute(tag, "direction") + attribute(tag, "access"));
        }
        return found;
    };
    EXPECT_EQ(members(live), members(shipped));
    // two methods, two signals, ten arguments, one property
    EXPECT_EQ(members(shipped).size(), 15u);
}

TEST_F(BusObjectTest, VxctlSubcommandsDriveTheSurfaceAndTheKeysets) {
    mHandlers->UpdateStatus(kDeviceStatus);
    const std::string dir = Scratch("");
    {
        std::ofstream(dir + "one.keyset", std::ios::binary)
            .write(reinterpret_cast<const char*>(KeysetRecord("Mixer", VXTag("MIX1")).data()),
                   std::streamsize(KeysetRecord("Mixer", VXTag("MIX1")).size()));
        std::ofstream(dir + "broken.keyset") << "KstD broken";
        const Bytes channel = [] {
            CVXKeysetStreamWriter w;
            w.ChannelControlUpdateHeader(0, 5, 0xA2).ChannelControl("Solo", 0xA2, 5, true, 0);
            return w.Take();
        }();
        std::ofstream(dir + "control.update", std::ios::binary)
            .write(reinterpret_cast<const char*>(channel.data()), std::streamsize(channel.size()));
    }
    struct SCase {
        std::vector<std::string> args;
        int exit;
        std::string output;
        Lines device;
    };
    const SCase cases[] = {
        {{"status"}, 0, "status: 1 16 2 0 0 0 0\nchannel strips: 16\n", {}},
        {{"current"}, 0, "keyset 0 bank 0 control 0 channel 0\n", {}},
        {{"fader", "3", "255"}, 0, "", {"device B3 07 7F 27 40"}},
        {{"fader", "3", "256"}, 1, "vxctl fader: POSITION must be 0 to 255, not '256'\n", {}},
        {{"led", "15", "select", "off"}, 0, "", {"device BF 49 00"}},
        {{"led", "1", "fader", "on"},
         1,
         "vxctl led: no LED 'fader': mute, solo, aux or select\n",
         {}},
        {{"raw", "F0 15 26 01 F7"}, 0, "", {"device F0 15 26 01 F7"}},
        {{"raw", "F0 1"}, 1, "", {}},
        {{"keyset", "add", dir + "one.keyset"}, 0, "added 1 keyset\n", {}},
        {{"keyset", "replace", "2", dir + "one.keyset"}, 0, "", {}},
        {{"keyset", "delete", "2"}, 0, "", {}},
        {{"control", "update", dir + "control.update"}, 0, "", {}},
        {{"edit-mode", "on"}, 0, "", {}},
        {{"touch-sense-midi", "off"}, 0, "", {}},
        {{"focus-feed", "ardour"}, 0, "", {}},
    };
    for (const SCase& c : cases) {
        std::string output;
        EXPECT_EQ(Vxctl(c.args, &output), c.exit) << c.args[0] << " " << output;
        if (!c.output.empty() || c.exit == 0) {
            EXPECT_EQ(output, c.output) << c.args[0];
        }
        EXPECT_EQ(mLog.Take(), c.device) << c.args[0];
    }
    EXPECT_EQ(Keysets().GetNumKeysets(), 2u);
    EXPECT_TRUE(Keysets().GetKeysetAt(0)->GetChannelControlAt(0xA2, 5)->IsLatched());
    EXPECT_TRUE(mService->IsEditMode());
    EXPECT_TRUE(Keysets().IsTouchSenseMIDIDisabled());
    EXPECT_TRUE(mFocus.IsFed());

    // A malformed file is refused before anything is sent.
    std::string output;
    EXPECT_EQ(Vxctl({"keyset", "add", dir + "broken.keyset"}, &output), 1);
    EXPECT_NE(
        output.find("vxctl keyset add: '" + dir + "broken.keyset' is a malformed keyset file"),
        std::string::npos)
        << output;
    EXPECT_EQ(Keysets().GetNumKeysets(), 2u);
}

TEST_F(BusObjectTest, VxctlMonitorPrintsEventsInDecodesWords) {
    const std::string log = Scratch("monitor.log");
    const pid_t pid = SpawnVxctl({"monitor"}, log);
    ASSERT_GT(pid, 0);
    // Until the monitor has subscribed, what is emitted reaches nobody: a
    // transport release is sent until it shows.
    ASSERT_TRUE(RunUntil([&] {
        mBus.ControlEvent(2, 0, 0);
        for (int i = 0; i < 10; ++i) sd_event_run(mLoop.Native(), 2000);
        return !ReadFile(log).empty();
    }));
    const size_t before = ReadFile(log).size();
    mService->SetEditMode(true);
    Touch(0xA0, 3, 129);
    Touch(0xA5, 2, 1);
    const uint8_t play[] = {3, 3, kVXButtonPressed};
    mService->Service(play);
    const std::string expected =
        "fader channel 3 position 129\n"
        "  event VX4X QFad CtlN=160 Chnl=3 CVal=516\n"
        "touch channel 2 touched\n"
        "  event VX4X QCBt CtlN=165 Chnl=2 CVal=1\n"
        "button Play pressed\n"
        "  event VX4X QBtn CtlN=3 CVal=1\n";
    EXPECT_TRUE(RunUntil([&] { return ReadFile(log).size() >= before + expected.size(); }));
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(ReadFile(log).substr(before), expected);
}

class BusWithoutDriverTest : public BusObjectTest {
  protected:
    BusWithoutDriverTest() { mOpenBus = false; }
};

TEST_F(BusWithoutDriverTest, VxctlNamesTheCauseWhenNoDriverOrNoBusAnswers) {
    std::string output;
    EXPECT_EQ(Vxctl({"status"}, &output), 1);
    EXPECT_EQ(output,
              "vxctl status: vxd is not running (no org.velorix.Driver on the session bus)\n");
    EXPECT_EQ(Vxctl({"focus-feed", "ardour"}, &output), 1);
    EXPECT_EQ(output,
              "vxctl focus-feed: vxd is not running (no org.velorix.Driver on the session bus)\n");
    // The monitor waits for a driver to come, and says so.
    const std::string log = Scratch("monitor-waits.log");
    const pid_t monitor = SpawnVxctl({"monitor"}, log);
    EXPECT_TRUE(RunUntil([&] { return ReadFile(log).find('\n') != std::string::npos; }));
    kill(monitor, SIGTERM);
    waitpid(monitor, nullptr, 0);
    EXPECT_EQ(ReadFile(log),
              "vxctl monitor: vxd is not running (no org.velorix.Driver on the "
              "session bus); waiting for it\n");
    EXPECT_EQ(Vxctl({"fader", "0", "0"}, &output, "unix:path=/nonexistent/bus"), 1);
    EXPECT_EQ(output, "vxctl fader: no session bus (No such file or directory)\n");

    // Waiting for a driver gives up; asked for its keysets, the bus says
    // there is none.
    CVXBusClient client;
    uint32_t count = 0;
    EXPECT_EQ(client.WaitForDriver(100000), 0);
    EXPECT_LT(client.KeysetCount(count), 0);
    EXPECT_EQ(client.Error(), "vxd is not running (no org.velorix.Driver on the session bus)");

    // A second driver on the same bus: the name is taken, and it says so.
    CVXBusObject first(mLoop, nullptr);
    ASSERT_EQ(first.Open(), 0);
    EXPECT_EQ(client.WaitForDriver(10000000), 1);
    CVXDiagnosticCapture diagnostics;
    EXPECT_LT(mBus.Open(), 0);
    EXPECT_EQ(diagnostics.Text(),
              "D-Bus: org.velorix.Driver is taken by another process: no editor interface\n");
}

}  // namespace
