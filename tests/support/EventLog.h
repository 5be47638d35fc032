// A log of lines that fakes write one per call, shared between fakes so that a
// test sees the order of events across them. No gtest here: the fuzz targets
// use it too.
#pragma once

#include <string>
#include <utility>
#include <vector>

class CEventLog {
  public:
    void Add(std::string inLine) { mLines.push_back(std::move(inLine)); }
    // The lines logged since the last Take(), and forget them.
    std::vector<std::string> Take() { return std::exchange(mLines, {}); }
    const std::vector<std::string>& Lines() const { return mLines; }

  private:
    std::vector<std::string> mLines;
};
