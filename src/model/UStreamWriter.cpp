#include "model/UStreamWriter.h"

#include <utility>

void UStreamWriter::PutBytes(const void* inBytes, size_t inSize) {
    if (inSize == 0) return;
    const auto* bytes = static_cast<const uint8_t*>(inBytes);
    mBytes.insert(mBytes.end(), bytes, bytes + inSize);
}

void UStreamWriter::PutByte(uint8_t inByte) {
    mBytes.push_back(inByte);
}

void UStreamWriter::PutShort(uint16_t inShort) {
    PutByte(static_cast<uint8_t>(inShort >> 8));
    PutByte(static_cast<uint8_t>(inShort));
}

void UStreamWriter::PutLong(uint32_t inLong) {
    PutByte(static_cast<uint8_t>(inLong >> 24));
    PutByte(static_cast<uint8_t>(inLong >> 16));
    PutByte(static_cast<uint8_t>(inLong >> 8));
    PutByte(static_cast<uint8_t>(inLong));
}

void UStreamWriter::PutTag(uint32_t inTag) {
    PutLong(inTag);
}

bool UStreamWriter::PutPackedPString(std::string_view inText) {
    if (inText.size() > 255) return false;
    PutByte(static_cast<uint8_t>(inText.size()));
    PutBytes(inText.data(), inText.size());
    return true;
}

bool UStreamWriter::PutUnpackedPString(std::string_view inText, uint32_t inFieldSize) {
    if (inFieldSize == 0 || inText.size() > inFieldSize - 1 || inText.size() > 255) return false;
    PutByte(static_cast<uint8_t>(inText.size()));
    PutBytes(inText.data(), inText.size());
    mBytes.insert(mBytes.end(), inFieldSize - 1 - inText.size(), uint8_t{0});
    return true;
}

bool UStreamWriter::PutCString(std::string_view inText) {
    if (inText.size() > 255 || inText.find('\0') != std::string_view::npos) return false;
    PutBytes(inText.data(), inText.size());
    PutByte(0);
    return true;
}

std::vector<uint8_t> UStreamWriter::Take() {
    std::vector<uint8_t> bytes = std::move(mBytes);
    mBytes.clear();  // a moved-from vector is only "valid but unspecified"
    return bytes;
}
