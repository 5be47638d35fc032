// Four-character codes as the bus carries them: a string of exactly four
// bytes, the first the most significant. Shared by the driver's object and
// its clients so that both spell a code the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline std::string VXCodeString(uint32_t inCode) {
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((inCode >> (24 - 8 * i)) & 0xFF);
    return s;
}

// Nothing for a string of another length.
inline std::optional<uint32_t> VXCodeFromString(std::string_view inText) {
    if (inText.size() != 4) return std::nullopt;
    uint32_t code = 0;
    for (char c : inText) code = (code << 8) | static_cast<uint8_t>(c);
    return code;
}

// Printable ASCII in every byte: a code the bus can carry as a string.
inline bool VXCodeIsASCII(uint32_t inCode) {
    for (int shift = 0; shift < 32; shift += 8) {
        const uint32_t c = (inCode >> shift) & 0xFF;
        if (c < 0x20 || c > 0x7E) return false;
    }
    return true;
}
