// The inverse of UStreamReader: builds a byte stream in the keyset encoding.
// Tests and the keyset tools write streams with it; the driver itself only reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class UStreamWriter {
  public:
    void PutBytes(const void* inBytes, size_t inSize);
    void PutByte(uint8_t inByte);
    void PutShort(uint16_t inShort);  // big-endian
    void PutLong(uint32_t inLong);    // big-endian
    void PutTag(uint32_t inTag);      // see VXTag

    // The strings below write nothing and answer false when the text cannot be
    // encoded so that the reader gives it back unchanged.

    // Length byte, then the text: at most 255 characters.
    bool PutPackedPString(std::string_view inText);
    // Length byte, then the text zero-padded to exactly inFieldSize - 1 bytes: the
    // text must fit in the field (at most inFieldSize - 1 and 255 characters).
    bool PutUnpackedPString(std::string_view inText, uint32_t inFieldSize);
    // The text, then a NUL: at most 255 characters and no NUL inside.
    bool PutCString(std::string_view inText);

    const std::vector<uint8_t>& Bytes() const { return mBytes; }
    // Hands the stream over (ready for UStreamReader's owning constructor) and
    // leaves the writer empty.
    std::vector<uint8_t> Take();

  private:
    std::vector<uint8_t> mBytes;
};
