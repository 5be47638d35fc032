// The cursor over a keyset byte stream: the preferences file read at start-up or
// the bytes an editor command hands over. It defines the primitive encoding the
// whole keyset format rests on: big-endian integers, four-character tags and three
// kinds of string, packed byte to byte with no alignment and no padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A four-character code as the stream stores it: the first character in the most
// significant byte. VXTag("KSet") spares writing 'KSet' as a multi-character
// literal, whose value is implementation-defined.
constexpr uint32_t VXTag(const char (&s)[5]) {
    return (uint32_t{static_cast<uint8_t>(s[0])} << 24) |
           (uint32_t{static_cast<uint8_t>(s[1])} << 16) |
           (uint32_t{static_cast<uint8_t>(s[2])} << 8) | uint32_t{static_cast<uint8_t>(s[3])};
}

// Every read checks the bounds for itself and answers true or false; there is no
// sticky error state. A failing read leaves the position where that step found it,
// although earlier steps of a compound read (a length byte, say) stay consumed.
//
// The bytes are either owned (moved in as a vector) or borrowed (the caller keeps
// them alive for the reader's lifetime). Either way they never move while the
// reader lives, so there is no lock state to save and restore as there would be
// for a relocatable memory block.
class UStreamReader {
  public:
    // No stream at all: size 0, every read fails.
    UStreamReader();
    explicit UStreamReader(std::vector<uint8_t> inStream);
    UStreamReader(const uint8_t* inBytes, size_t inSize);
    ~UStreamReader();

    // mStreamPtr points into the reader's own storage: a copy would share or
    // dangle it, and no parse needs to hand a reader on.
    UStreamReader(const UStreamReader&) = delete;
    UStreamReader& operator=(const UStreamReader&) = delete;

    bool GetBytes(void* outBytes, uint32_t inSize);
    bool GetByte(uint8_t& outByte);
    bool GetShort(uint16_t& outShort);  // big-endian; untouched on failure
    bool GetLong(uint32_t& outLong);    // big-endian; untouched on failure
    uint32_t GetTag();                  // 0 (no tag of the format) at end of data
    bool TagIs(uint32_t inTag);         // always consumes the four bytes: no peeking

    // Length byte L, then L bytes, then a NUL: outString must hold 256 bytes.
    bool GetPackedPString(char* outString);
    // As above, but a length that does not fit is cut to inBufferSize - 1, and only
    // that many bytes are consumed: the rest of the string stays in the stream.
    bool GetPackedPStringN(char* outString, uint32_t inBufferSize);
    bool GetStr31(char* outString);  // outString holds 32 bytes
    bool GetStr63(char* outString);  // outString holds 64 bytes
    // Length byte L, then the whole fixed field of inBufferSize - 1 bytes whatever L
    // is, then a NUL at index L.
    bool GetUnpackedPString(char* outString, uint32_t inBufferSize);
    // Bytes up to and including a NUL, at most 256: outString must hold 256 bytes.
    bool GetCString(char* outString);

    bool MovePosBy(uint32_t inMoveBy);
    bool SetPos(uint32_t inPos);
    uint32_t GetPos() const { return mPosition; }
    uint32_t GetSize() const { return mSize; }
    const uint8_t* GetDataPtr() const { return mStreamPtr; }
    // True when the reader holds its own copy of the bytes, false when it borrows them.
    bool OwnsStream() const { return mOwnsStream; }

  private:
    // True when `inCount` more bytes from the current position lie within the
    // stream. The sum is taken in 64 bits: a 32-bit sum would wrap for a position
    // or count near UINT32_MAX and let a read run far past the end.
    bool Fits(uint32_t inCount) const {
        return uint64_t{mPosition} + uint64_t{inCount} <= uint64_t{mSize};
    }

    std::vector<uint8_t> mStream;  // the bytes when owned; empty when borrowed
    const uint8_t* mStreamPtr;     // first byte of the stream; null when there is none
    uint32_t mPosition;
    bool mOwnsStream;
    uint32_t mSize;
};
