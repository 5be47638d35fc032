// Which four-character signature an application has: the `applications` file
// of the config folder, which a user writes so that keysets follow the focus.
// One pair per line, "<application> <SIGN>": the signature is the last
// whitespace-separated field, exactly four ASCII characters; the application is
// everything before it, trimmed, so names with blanks work. '#' starts a
// comment. Names compare case-insensitively (ASCII), since window classes and
// application ids differ in case between toolkits.
//
//     # window class or application id     signature
//     Ardour                               DAW1
//     org.kde.kdenlive                     KDNL
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class CVXApplicationMap {
  public:
    // A focused application without an entry.
    static constexpr uint32_t kUnknownApplication = 0x3F3F3F3F;  // '????'
    // The file's name in the config folder.
    static constexpr char kFileName[] = "applications";

    // Replaces the map with the pairs of inText. Malformed lines are skipped,
    // each reported in outErrors as "line N: <what is wrong>". A name given
    // twice keeps its first signature, as a reader scanning the file would.
    void Parse(std::string_view inText, std::vector<std::string>* outErrors = nullptr);
    // Reads the file: a missing file gives an empty map and true (no file is
    // the usual state); one that exists but cannot be read leaves the map
    // empty and gives false.
    bool Load(const std::string& inPath, std::vector<std::string>* outErrors = nullptr);

    // The signature of the first of the names that has an entry (an X11
    // window's WM_CLASS class, then its instance; or one application id);
    // kUnknownApplication when none has. Empty names never match.
    uint32_t SignatureFor(std::string_view inName, std::string_view inOtherName = {}) const;
    size_t Size() const { return mSignatures.size(); }

    // The file in the preferences folder; empty when there is no folder.
    static std::string DefaultPath();

  private:
    std::unordered_map<std::string, uint32_t> mSignatures;  // keys in lower case
};
