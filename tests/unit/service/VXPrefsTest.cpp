#include "model/VXPrefs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "ServiceTestSupport.h"
#include "model/CVX_KeysetData.h"
#include "service/CVXService.h"

using Bytes = std::vector<uint8_t>;

class PrefsTest : public ::testing::Test {
  protected:
    PrefsTest() { std::filesystem::create_directories(mConfig.Path() + "/velorix"); }
    void Write(const Bytes& b) { std::ofstream(mFile) << std::string(b.begin(), b.end()); }
    // Junk in the buffer beforehand: a failure must leave it empty.
    std::pair<bool, Bytes> Load(Bytes d = Bytes(3, 0xEE)) { return {LoadPreferences(d), d}; }
    ScopedConfigHome mConfig;
    // Where the file belongs while XDG_CONFIG_HOME names the private folder: the
    // tests write it here and expect LoadPreferences to find it.
    const std::string mFile = mConfig.Path() + "/velorix/VX USB Prefs";
};

TEST_F(PrefsTest, TheFolderIsTheXDGConfigFolderElseTheOneInHome) {
    setenv("XDG_CONFIG_HOME", "", 1);  // empty counts as unset
    EXPECT_EQ(VXPrefsFolder(), mConfig.Path() + "/.config/velorix/");
    unsetenv("HOME");  // no folder at all
    EXPECT_EQ(VXPrefsFilePath(), "");
}

TEST_F(PrefsTest, OnlyAWholeNonEmptyRegularFileCounts) {
    EXPECT_EQ(Load(), std::pair(false, Bytes{}));  // missing
    Write({});
    EXPECT_EQ(Load(), std::pair(false, Bytes{}));
    Write({0x00, 0xFF, 0x10, 0x00, 0x7F});
    EXPECT_EQ(Load(), std::pair(true, Bytes{0x00, 0xFF, 0x10, 0x00, 0x7F}));
    std::filesystem::resize_file(mFile, kVXPrefsMaxSize);  // sparse: nothing really written
    EXPECT_EQ(Load().second.size(), kVXPrefsMaxSize);
    std::filesystem::resize_file(mFile, kVXPrefsMaxSize + 1);
    EXPECT_EQ(Load(), std::pair(false, Bytes{}));
    // A FIFO without a writer in the file's place must not hold start-up.
    std::filesystem::remove(mFile);
    ASSERT_EQ(mkfifo(mFile.c_str(), 0600), 0);
    EXPECT_EQ(Load(), std::pair(false, Bytes{}));
}

TEST_F(PrefsTest, TheServiceFillsItsKeysetsFromTheFile) {
    // Header, version 0x40000, no keysets: the set ends up empty.
    Write({'K', 's', 't', 'D', 'C', 'r', 'K', 'V', 0, 4, 0, 0, 'K', 's', 'C', 't', 0, 0, 0, 0});
    EXPECT_EQ(CVXService().GetKeysetData()->GetNumKeysets(), 0u);
}
