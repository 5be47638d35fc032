// A private configuration folder for the test's lifetime: a fresh temporary
// directory becomes both XDG_CONFIG_HOME and HOME. Both variables are restored
// and the directory removed on exit.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

class ScopedConfigHome {
  public:
    ScopedConfigHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vxd-XXXXXX").string();
        if (mkdtemp(pattern.data())) mPath = pattern;  // else both variables empty: no folder
        for (auto& [name, value] : mSaved) {
            if (const char* old = std::getenv(name)) value = old;
            setenv(name, mPath.c_str(), 1);
        }
    }
    ~ScopedConfigHome() {
        for (auto& [name, value] : mSaved) value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        std::error_code ignored;
        if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
    }
    const std::string& Path() const { return mPath; }

  private:
    std::string mPath;
    std::pair<const char*, std::optional<std::string>> mSaved[2] = {{"XDG_CONFIG_HOME", {}},
                                                                    {"HOME", {}}};
};
