#include "service/CVXApplicationMap.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "model/VXPrefs.h"

namespace {

bool IsBlank(char inChar) {
    return inChar == ' ' || inChar == '\t' || inChar == '\r' || inChar == '\v' || inChar == '\f';
}

// A signature is four bytes, each one character: text beyond ASCII would
// take more than one byte per character.
bool IsPrintableASCII(std::string_view inText) {
    for (char c : inText) {
        if (c < 0x21 || c > 0x7E) return false;
    }
    return true;
}

std::string_view Trim(std::string_view inText) {
    while (!inText.empty() && IsBlank(inText.front())) inText.remove_prefix(1);
    while (!inText.empty() && IsBlank(inText.back())) inText.remove_suffix(1);
    return inText;
}

std::string Lower(std::string_view inText) {
    std::string lower(inText);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

}  // namespace

void CVXApplicationMap::Parse(std::string_view inText, std::vector<std::string>* outErrors) {
    mSignatures.clear();
    size_t number = 0;
    while (!inText.empty()) {
        const size_t end = inText.find('\n');
        std::string_view line = inText.substr(0, end);
        inText.remove_prefix(end == std::string_view::npos ? inText.size() : end + 1);
        ++number;

        line = Trim(line.substr(0, line.find('#')));
        if (line.empty()) continue;
        size_t split = line.size();
        while (split > 0 && !IsBlank(line[split - 1])) --split;
        const std::string_view signature = line.substr(split);
        const std::string_view name = Trim(line.substr(0, split));
        const char* problem = nullptr;
        if (name.empty()) {
            problem = "an application and a four-character signature expected";
        } else if (signature.size() != 4 || !IsPrintableASCII(signature)) {
            problem = "the signature must be exactly four ASCII characters";
        }
        if (problem) {
            if (outErrors) outErrors->push_back("line " + std::to_string(number) + ": " + problem);
            continue;
        }
        uint32_t code = 0;
        for (char c : signature) code = (code << 8) | static_cast<uint8_t>(c);
        mSignatures.emplace(Lower(name), code);
    }
}

bool CVXApplicationMap::Load(const std::string& inPath, std::vector<std::string>* outErrors) {
    mSignatures.clear();
    std::error_code error;
    const auto status = std::filesystem::status(inPath, error);
    if (status.type() == std::filesystem::file_type::not_found) return true;
    // A folder opens as a stream and reads as nothing; it is no file.
    if (error || !std::filesystem::is_regular_file(status)) return false;
    std::ifstream file(inPath, std::ios::binary);
    if (!file) return false;
    std::ostringstream text;
    text << file.rdbuf();
    if (file.bad()) return false;
    Parse(text.str(), outErrors);
    return true;
}

uint32_t CVXApplicationMap::SignatureFor(std::string_view inName,
                                         std::string_view inOtherName) const {
    for (std::string_view name : {inName, inOtherName}) {
        if (name.empty()) continue;
        auto entry = mSignatures.find(Lower(name));
        if (entry != mSignatures.end()) return entry->second;
    }
    return kUnknownApplication;
}

std::string CVXApplicationMap::DefaultPath() {
    const std::string folder = VXPrefsFolder();
    return folder.empty() ? std::string() : folder + kFileName;
}
