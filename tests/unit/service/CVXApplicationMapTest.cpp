// The applications file: its line rules, the case-insensitive lookup of a
// window's class then instance, and the file that is missing or unreadable.
#include "service/CVXApplicationMap.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

constexpr uint32_t kUnknown = CVXApplicationMap::kUnknownApplication;

uint32_t Sig(const char (&inCode)[5]) {
    return uint32_t(uint8_t(inCode[0])) << 24 | uint32_t(uint8_t(inCode[1])) << 16 |
           uint32_t(uint8_t(inCode[2])) << 8 | uint32_t(uint8_t(inCode[3]));
}

TEST(ApplicationMap, LinesPairAnApplicationWithTheLastFieldAndBadLinesAreNamed) {
    CVXApplicationMap map;
    std::vector<std::string> errors;
    map.Parse(
        "# comment line\n"
        "Ardour DAW1\n"
        "  Audacity\tAUDA   # trailing comment\r\n"
        "My Old Editor  EDIT\n"
        "\n"
        "lonely\n"
        "short SIG\n"
        "ardour LATE\n"
        "spaces ok \xC3\xA9"
        "12\n"  // four bytes, not four characters: refused
        "last LAST",
        &errors);
    EXPECT_EQ(errors, (std::vector<std::string>{
                          "line 6: an application and a four-character signature expected",
                          "line 7: the signature must be exactly four ASCII characters",
                          "line 9: the signature must be exactly four ASCII characters"}));
    EXPECT_EQ(map.Size(), 4u);

    // Name, other name: the signature found.
    const std::tuple<std::string, std::string, uint32_t> cases[] = {
        {"Ardour", "", Sig("DAW1")},             // the first entry of a name wins
        {"ARDOUR", "", Sig("DAW1")},             // case-insensitive
        {"audacity", "", Sig("AUDA")},           // tab, trailing comment and CR gone
        {"my old editor", "", Sig("EDIT")},      // blanks inside a name
        {"last", "", Sig("LAST")},               // no newline at the end
        {"Navigator", "audacity", Sig("AUDA")},  // the class misses, the instance hits
        {"Ardour", "audacity", Sig("DAW1")},     // the class first
        {"", "", kUnknown},
        {"xterm", "XTerm", kUnknown},
        {"lonely", "", kUnknown},
    };
    for (const auto& [name, other, signature] : cases) {
        EXPECT_EQ(map.SignatureFor(name, other), signature) << name << "/" << other;
    }

    map.Parse("");
    EXPECT_EQ(map.SignatureFor("Ardour"), kUnknown);
}

TEST(ApplicationMap, AMissingFileIsAnEmptyMapAndAnUnreadableOneAFailure) {
    const std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("vx-appmap-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    CVXApplicationMap map;
    map.Parse("x XXXX\n");

    EXPECT_TRUE(map.Load((dir / "applications").string()));
    EXPECT_EQ(map.Size(), 0u);

    std::ofstream(dir / "applications") << "Ardour DAW1\nbad\n";
    std::vector<std::string> errors;
    EXPECT_TRUE(map.Load((dir / "applications").string(), &errors));
    EXPECT_EQ(map.SignatureFor("ardour"), Sig("DAW1"));
    EXPECT_EQ(errors, std::vector<std::string>{
                          "line 2: an application and a four-character signature expected"});

    // A folder where the file should be cannot be read.
    EXPECT_FALSE(map.Load(dir.string()));
    EXPECT_EQ(map.Size(), 0u);
    std::filesystem::remove_all(dir);
}

}  // namespace
