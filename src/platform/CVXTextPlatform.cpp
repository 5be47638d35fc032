#include "platform/CVXTextPlatform.h"

#include <cstdio>

std::string VXFourCCText(uint32_t inCode) {
    std::string s;
    for (int shift = 24; shift >= 0; shift -= 8) s += static_cast<char>((inCode >> shift) & 0xFF);
    return s;
}

void CVXTextPoster::PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey, bool inKeyDown) {
    std::string line = "key " + std::to_string(inVirtualKey) + (inKeyDown ? " down" : " up");
    if (inCharCode != 0) line += " char " + std::to_string(inCharCode);
    mSink(std::move(line));
}

void CVXTextPoster::PostMouseEvent(double inX, double inY, bool inButtonDown) {
    char line[96];
    std::snprintf(line, sizeof line, "mouse %g,%g %s", inX, inY, inButtonDown ? "down" : "up");
    mSink(line);
}

bool CVXTextNotifier::SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                                           const std::vector<SVXEventParam>& inParams) {
    std::string line = "event " + VXFourCCText(inSignature) + " " + VXFourCCText(inEventID);
    for (const auto& p : inParams) {
        line += " " + VXFourCCText(p.keyword) + "=" + std::to_string(p.value);
    }
    mSink(std::move(line));
    return true;
}
