#include "HexInput.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "driver/VXBridgeFraming.h"
#include "model/UVX_ControlClass.h"

namespace vxctl {

namespace {
int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

bool ParseHexLine(const std::string& inLine, std::vector<uint8_t>& outBytes,
                  std::string& outError) {
    outBytes.clear();
    std::string line = inLine.substr(0, inLine.find('#'));
    size_t i = 0;
    while (i < line.size()) {
        if (std::isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < line.size() && !std::isspace(static_cast<unsigned char>(line[end]))) ++end;
        std::string token = line.substr(i, end - i);
        if (token.size() > 2 && (token[0] == '0') && (token[1] == 'x' || token[1] == 'X'))
            token = token.substr(2);
        if (token.size() % 2 != 0) {
            outError = "odd number of hex digits in '" + line.substr(i, end - i) + "'";
            return false;
        }
        for (size_t k = 0; k < token.size(); k += 2) {
            int hi = HexDigit(token[k]);
            int lo = HexDigit(token[k + 1]);
            if (hi < 0 || lo < 0) {
                outError = "not a hex byte: '" + token.substr(k, 2) + "'";
                return false;
            }
            outBytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
        }
        i = end;
    }
    return true;
}

bool ReadCapture(std::istream& in, bool inMIDI, std::vector<SCaptureStep>& outSteps,
                 std::string& outError) {
    std::string line;
    std::vector<uint8_t> bytes;
    for (size_t number = 1; std::getline(in, line); ++number) {
        std::string error;
        size_t first = line.find_first_not_of(" \t");
        if (first != std::string::npos && line[first] == '+') {
            char* end = nullptr;
            unsigned long long ms = std::strtoull(line.c_str() + first + 1, &end, 10);
            std::string rest = std::string(end).substr(0, std::string(end).find('#'));
            if (end == line.c_str() + first + 1 ||
                rest.find_first_not_of(" \t\r") != std::string::npos || ms > 86400000ULL) {
                outError = "line " + std::to_string(number) +
                           ": a wait is '+' and a number of milliseconds (at most a day)";
                return false;
            }
            outSteps.push_back({{}, ms * 1000});
            continue;
        }
        const bool fromHost =
            first != std::string::npos && line.compare(first, 4, "host") == 0 &&
            (first + 4 == line.size() || std::isspace(static_cast<unsigned char>(line[first + 4])));
        if (!ParseHexLine(fromHost ? line.substr(first + 4) : line, bytes, error)) {
            outError = "line " + std::to_string(number) + ": " + error;
            return false;
        }
        if (fromHost) {
            if (bytes.empty()) {
                outError = "line " + std::to_string(number) + ": 'host' needs hex bytes after it";
                return false;
            }
            outSteps.push_back({bytes, 0, true});
            continue;
        }
        if (bytes.empty()) continue;
        outSteps.push_back({inMIDI ? VXFrameBridgeRead(bytes) : bytes, 0});
    }
    return true;
}

std::string HexString(const uint8_t* bytes, size_t length) {
    std::string text(length == 0 ? 1 : 3 * length, '\0');
    HexDataToCString(bytes, length, text.data());
    text.resize(length == 0 ? 0 : 3 * length - 1);
    return text;
}

bool ReadBinaryFile(const std::string& inPath, std::vector<uint8_t>& outBytes) {
    std::ifstream file(inPath, std::ios::binary);
    if (!file) return false;
    outBytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

}  // namespace vxctl
