#include "KeysetTextCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "BusCommands.h"
#include "HexInput.h"
#include "model/CVX_KeysetData.h"
#include "model/UVX_ControlClass.h"
#include "model/VXPrefs.h"
#include "platform/CVXTextPlatform.h"
#include "platform/bus/CVXBusClient.h"
#include "text/VXKeysetText.h"

namespace fs = std::filesystem;

namespace vxctl {

namespace {

constexpr char kKeysetTextName[] = "keysets.toml";
constexpr double kDefaultSyncWait = 10;

int Usage(std::ostream& out = std::cerr) {
    out << "usage: vxctl keyset export PREFS [-o FILE]\n"
           "       vxctl keyset import FILE [-o PREFS]\n"
           "       vxctl keyset install FILE|PRESET [--signature SIGN]\n"
           "       vxctl keyset sync [--wait SECONDS]\n"
           "  export   writes the keysets of a preferences file as text (to standard output)\n"
           "  import   reads keyset text and writes the preferences file it makes\n"
           "  install  adds the keysets of FILE (or of a shipped preset: " VX_PRESET_LIST
           ")\n"
           "           to your keysets, replacing those with the same signature, and\n"
           "           uploads them to a running vxd\n"
           "  sync     sends the transport-button assignments of your keysets to vxd\n"
           "           (waiting up to SECONDS, by default 10, for it to start)\n";
    return 2;
}

int Fail(const std::string& inCommand, const std::string& inWhat) {
    std::cerr << "vxctl keyset " << inCommand << ": " << inWhat << "\n";
    return 1;
}

bool ReadText(const std::string& inPath, std::string& outText) {
    std::vector<uint8_t> bytes;
    if (!ReadBinaryFile(inPath, bytes)) return false;
    outText.assign(bytes.begin(), bytes.end());
    return true;
}

// Writes the file whole or not at all: a temporary beside it, renamed over
// it, after the old one is kept as PATH.bak.
bool WriteAtomically(const std::string& inPath, const void* inBytes, size_t inSize,
                     std::string& outError) {
    const std::string temporary = inPath + ".tmp" + std::to_string(getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(static_cast<const char*>(inBytes), static_cast<std::streamsize>(inSize));
        out.flush();
        if (!out) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            outError = "cannot write '" + temporary + "'";
            return false;
        }
    }
    std::error_code ec;
    if (fs::exists(inPath, ec)) {
        const std::string backup = inPath + ".bak";
        fs::remove(backup, ec);
        fs::copy_file(inPath, backup, ec);
        if (ec) {
            fs::remove(temporary, ec);
            outError = "cannot keep a copy of '" + inPath + "' as '" + backup + "'";
            return false;
        }
    }
    fs::rename(temporary, inPath, ec);
    if (ec) {
        fs::remove(temporary, ec);
        outError = "cannot replace '" + inPath + "' (" + ec.message() + ")";
        return false;
    }
    return true;
}

bool ReadKeysetText(const std::string& inPath, SVXKeysetFileModel& outFile, std::string& outError) {
    std::string text;
    if (!ReadText(inPath, text)) {
        outError = "cannot read '" + inPath + "'";
        return false;
    }
    return VXKeysetFileFromText(text, inPath, outFile, outError);
}

// "-o FILE" after the one argument; outOut stays empty without it.
bool OneArgAndOutput(const std::vector<std::string>& inArgs, std::string& outIn,
                     std::string& outOut) {
    if (inArgs.size() == 2) {
        outIn = inArgs[1];
        return true;
    }
    if (inArgs.size() == 4 && inArgs[2] == "-o") {
        outIn = inArgs[1];
        outOut = inArgs[3];
        return true;
    }
    return false;
}

int RunExport(const std::vector<std::string>& inArgs) {
    std::string in, out;
    if (!OneArgAndOutput(inArgs, in, out)) return Usage();
    std::vector<uint8_t> bytes;
    if (!ReadBinaryFile(in, bytes)) return Fail("export", "cannot read '" + in + "'");
    SVXKeysetFileModel file;
    size_t trailing = 0;
    std::string error;
    if (!VXReadKeysetFile(bytes.data(), bytes.size(), file, trailing, error))
        return Fail("export", "'" + in + "' is not a keyset file the driver reads whole: " + error);
    if (trailing)
        std::cerr << "vxctl keyset export: the " << trailing << " bytes after the last keyset of '"
                  << in << "' are left out (the driver ignores them)\n";
    const std::string text = VXKeysetFileToText(file);
    if (out.empty()) {
        std::cout << text;
        return std::cout ? 0 : 1;
    }
    return WriteAtomically(out, text.data(), text.size(), error) ? 0 : Fail("export", error);
}

bool HasButtons(const SVXKeysetFileModel& inFile) {
    for (const SVXKeysetModel& k : inFile.keysets)
        for (uint32_t n = 0; n < kVXModelButtons; ++n)
            if (!(k.buttons[n] == VXDefaultButton(n))) return true;
    return false;
}

int RunImport(const std::vector<std::string>& inArgs) {
    std::string in, out;
    if (!OneArgAndOutput(inArgs, in, out)) return Usage();
    SVXKeysetFileModel file;
    std::string error;
    if (!ReadKeysetText(in, file, error)) return Fail("import", error);
    const std::vector<uint8_t> bytes = VXWriteKeysetFile(file);
    if (HasButtons(file))
        std::cerr << "vxctl keyset import: transport-button assignments are not part of a "
                     "preferences file; `vxctl keyset install` keeps them and vxd gets them "
                     "from `vxctl keyset sync`\n";
    if (out.empty()) {
        if (isatty(STDOUT_FILENO))
            return Fail("import", "give -o PREFS: the keyset stream is binary");
        std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::streamsize>(bytes.size()));
        return std::cout ? 0 : 1;
    }
    return WriteAtomically(out, bytes.data(), bytes.size(), error) ? 0 : Fail("import", error);
}

// The shipped preset of that name, or the file itself.
std::optional<std::string> FindKeysetText(const std::string& inName) {
    std::error_code ec;
    if (fs::is_regular_file(inName, ec)) return inName;
    if (inName.find('/') != std::string::npos) return std::nullopt;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    const fs::path installed = self.parent_path().parent_path() / "share/vxd/presets";
    for (const fs::path& dir : {installed, fs::path(VX_SOURCE_PRESETS_DIR)}) {
        const fs::path path = dir / (inName + ".toml");
        if (fs::is_regular_file(path, ec)) return path.string();
    }
    return std::nullopt;
}

// What the user has now: the text file, else the preferences file (whose
// keysets carry no buttons), else the one keyset a driver starts with.
bool CurrentKeysets(const std::string& inFolder, SVXKeysetFileModel& outFile,
                    std::string& outError) {
    std::error_code ec;
    const std::string textPath = inFolder + kKeysetTextName;
    if (fs::exists(textPath, ec)) {
        if (ReadKeysetText(textPath, outFile, outError)) return true;
        outError += " (fix or remove it first)";
        return false;
    }
    const std::string prefsPath = inFolder + kVXPrefsFileName;
    if (fs::exists(prefsPath, ec)) {
        std::vector<uint8_t> bytes;
        size_t trailing = 0;
        if (ReadBinaryFile(prefsPath, bytes) &&
            VXReadKeysetFile(bytes.data(), bytes.size(), outFile, trailing, outError))
            return true;
        outError = "cannot add to '" + prefsPath + "': " + outError + " (move it away first)";
        return false;
    }
    outFile = {};
    outFile.keysets.push_back(VXDefaultKeyset("Default", kVXDefaultSignature));
    return true;
}

// Every transport-button record of every keyset the driver holds, by index.
// The count of those sent, or -1 when the bus failed.
int SendButtons(CVXBusClient& ioClient, const SVXKeysetFileModel& inFile, uint32_t inHeld) {
    int sent = 0;
    for (uint32_t i = 0; i < inFile.keysets.size() && i < inHeld; ++i) {
        for (uint32_t n = 0; n < kVXModelButtons; ++n) {
            VXAEParams reply;
            const std::vector<uint8_t> update =
                VXWriteButtonUpdate(i, n, inFile.keysets[i].buttons[n]);
            if (ioClient.Event(VXTag("QUpC"), UploadParams(update, "QCtD"), reply) < 0) return -1;
            ++sent;
        }
    }
    return sent;
}

// Says which keysets the driver does not hold; false when there are any.
bool ReportMissing(const SVXKeysetFileModel& inFile, uint32_t inHeld) {
    for (size_t i = inHeld; i < inFile.keysets.size(); ++i) {
        const SVXKeysetModel& k = inFile.keysets[i];
        std::cerr << "vxctl keyset sync: keyset " << i << " \"" << k.name << "\" ("
                  << VXFourCCText(k.signature) << ") is not in vxd, which holds " << inHeld
                  << " keysets: its buttons were not sent (restart vxd to load the file)\n";
    }
    return inFile.keysets.size() <= inHeld;
}

int Sync(CVXBusClient& ioClient, const SVXKeysetFileModel& inFile) {
    uint32_t held = 0;
    if (ioClient.KeysetCount(held) < 0) return Fail("sync", ioClient.Error());
    const int sent = SendButtons(ioClient, inFile, held);
    if (sent < 0) return Fail("sync", ioClient.Error());
    std::printf("sent %d transport-button records of %zu keysets to vxd\n", sent,
                std::min<size_t>(inFile.keysets.size(), held));
    std::fflush(stdout);
    return ReportMissing(inFile, held) ? 0 : 1;
}

int RunSync(const std::vector<std::string>& inArgs) {
    double wait = kDefaultSyncWait;
    if (inArgs.size() == 3 && inArgs[1] == "--wait") {
        char* end = nullptr;
        wait = std::strtod(inArgs[2].c_str(), &end);
        if (*end != '\0' || !(wait >= 0 && wait <= 3600))
            return Fail("sync", "--wait takes seconds from 0 to 3600, not '" + inArgs[2] + "'");
    } else if (inArgs.size() != 1) {
        return Usage();
    }
    const std::string folder = VXPrefsFolder();
    if (folder.empty())
        return Fail("sync", "no config folder (neither XDG_CONFIG_HOME nor HOME is set)");
    const std::string path = folder + kKeysetTextName;
    std::error_code ec;
    if (!fs::exists(path, ec)) {
        std::printf("no %s: no transport-button assignments to send\n", path.c_str());
        return 0;
    }
    // The whole file is read before anything is sent: a file with an error
    // sends nothing.
    SVXKeysetFileModel file;
    std::string error;
    if (!ReadKeysetText(path, file, error)) return Fail("sync", error + " (nothing sent)");
    CVXBusClient client;
    const int on = client.WaitForDriver(static_cast<uint64_t>(wait * 1e6));
    if (on < 0) return Fail("sync", client.Error());
    if (on == 0) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%g", wait);
        return Fail("sync", std::string("vxd is not running (no org.velorix.Driver on the session "
                                        "bus after ") +
                                seconds + " s): nothing sent");
    }
    return Sync(client, file);
}

int RunInstall(const std::vector<std::string>& inArgs) {
    std::optional<uint32_t> signature;
    if (inArgs.size() == 4 && inArgs[2] == "--signature") {
        if (inArgs[3].size() != 4) return Fail("install", "--signature takes four characters");
        uint32_t s = 0;
        for (char c : inArgs[3]) s = (s << 8) | static_cast<uint8_t>(c);
        signature = s;
    } else if (inArgs.size() != 2) {
        return Usage();
    }
    const std::optional<std::string> source = FindKeysetText(inArgs[1]);
    if (!source)
        return Fail("install",
                    "no file or preset '" + inArgs[1] + "' (presets: " VX_PRESET_LIST ")");
    SVXKeysetFileModel adding;
    std::string error;
    if (!ReadKeysetText(*source, adding, error)) return Fail("install", error);
    if (signature) {
        if (adding.keysets.size() != 1)
            return Fail("install", "--signature takes a file of one keyset; '" + *source +
                                       "' holds " + std::to_string(adding.keysets.size()));
        adding.keysets[0].signature = *signature;
    }
    const std::string folder = VXPrefsFolder();
    if (folder.empty())
        return Fail("install", "no config folder (neither XDG_CONFIG_HOME nor HOME is set)");
    SVXKeysetFileModel file;
    if (!CurrentKeysets(folder, file, error)) return Fail("install", error);
    const size_t before = file.keysets.size();

    // A keyset with the same signature is replaced where it stands; a new one
    // goes last. Keyset indices stay those the driver holds.
    struct SChange {
        uint32_t index;
        bool added;
    };
    std::vector<SChange> changes;
    for (SVXKeysetModel& k : adding.keysets) {
        size_t at = 0;
        while (at < file.keysets.size() && file.keysets[at].signature != k.signature) ++at;
        const bool added = at == file.keysets.size();
        if (added)
            file.keysets.push_back(std::move(k));
        else
            file.keysets[at] = std::move(k);
        changes.push_back({static_cast<uint32_t>(at), added});
    }

    std::error_code ec;
    fs::create_directories(folder, ec);
    const std::vector<uint8_t> bytes = VXWriteKeysetFile(file);
    const std::string text = VXKeysetFileToText(file);
    const std::string prefsPath = folder + kVXPrefsFileName;
    const std::string textPath = folder + kKeysetTextName;
    if (!WriteAtomically(prefsPath, bytes.data(), bytes.size(), error) ||
        !WriteAtomically(textPath, text.data(), text.size(), error))
        return Fail("install", error);
    for (const SChange& c : changes) {
        const SVXKeysetModel& k = file.keysets[c.index];
        std::printf("%s keyset %u \"%s\" (%s)\n", c.added ? "added" : "replaced", c.index,
                    k.name.c_str(), VXFourCCText(k.signature).c_str());
    }
    std::printf("wrote %s and %s\n", prefsPath.c_str(), textPath.c_str());
    std::fflush(stdout);

    // A running driver gets the same changes now.
    CVXBusClient client;
    const int on = client.DriverOnBus();
    if (on <= 0) {
        std::printf("vxd is not running: it reads the keysets when it starts\n");
        return 0;
    }
    uint32_t held = 0;
    if (client.KeysetCount(held) < 0) return Fail("install", client.Error());
    if (held != before) {
        std::cerr << "vxctl keyset install: vxd holds " << held << " keysets where the file held "
                  << before << ": restart vxd to load the new file\n";
        return 1;
    }
    for (const SChange& c : changes) {
        const std::vector<uint8_t> record = VXWriteKeysetRecord(file.keysets[c.index]);
        VXAEParams reply;
        const int r =
            c.added ? client.Event(VXTag("QAdK"), UploadParams(record, "QKys"), reply)
                    : client.Event(VXTag("QUpK"),
                                   UploadParams(KeysetUpdateBytes(c.index, record), "QKys"), reply);
        if (r < 0) return Fail("install", client.Error());
    }
    return Sync(client, file);
}

}  // namespace

bool IsKeysetTextCommand(const std::string& inSubcommand) {
    return inSubcommand == "export" || inSubcommand == "import" || inSubcommand == "install" ||
           inSubcommand == "sync";
}

int RunKeysetText(const std::vector<std::string>& inArgs) {
    for (const std::string& a : inArgs) {
        if (a == "-h" || a == "--help") {
            Usage(std::cout);
            return 0;
        }
    }
    if (inArgs[0] == "export") return RunExport(inArgs);
    if (inArgs[0] == "import") return RunImport(inArgs);
    if (inArgs[0] == "install") return RunInstall(inArgs);
    return RunSync(inArgs);
}

}  // namespace vxctl
