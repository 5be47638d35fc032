#include "model/UStreamReader.h"

#include <cstring>
#include <limits>
#include <utility>

#include "platform/VXDiagnostics.h"

namespace {

// The size is an unsigned 32-bit field, as is every position in it. A larger
// buffer is bounded to the largest size the field holds: the reader then sees only
// its first UINT32_MAX bytes, which no keyset comes near.
uint32_t BoundedSize(size_t inSize) {
    constexpr size_t kMax = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(inSize > kMax ? kMax : inSize);
}

}  // namespace

UStreamReader::UStreamReader() : mStreamPtr(nullptr), mPosition(0), mOwnsStream(false), mSize(0) {}

UStreamReader::UStreamReader(std::vector<uint8_t> inStream)
    : mStream(std::move(inStream)), mStreamPtr(nullptr), mPosition(0), mOwnsStream(true), mSize(0) {
    if (!mStream.empty()) {
        mStreamPtr = mStream.data();
        mSize = BoundedSize(mStream.size());
    }
}

UStreamReader::UStreamReader(const uint8_t* inBytes, size_t inSize)
    : mStreamPtr(inBytes), mPosition(0), mOwnsStream(false), mSize(0) {
    // Without bytes there is nothing to read, whatever size the caller claims:
    // a null pointer is the null stream, on which every read fails.
    if (inBytes != nullptr) mSize = BoundedSize(inSize);
}

// The owned vector releases itself; borrowed bytes stay the caller's.
UStreamReader::~UStreamReader() = default;

bool UStreamReader::GetBytes(void* outBytes, uint32_t inSize) {
    if (!Fits(inSize)) return false;
    // memcpy wants valid pointers even for zero bytes, and a null or empty stream
    // has no pointer; a zero-byte read succeeds without touching anything.
    if (inSize > 0) std::memcpy(outBytes, mStreamPtr + mPosition, inSize);
    mPosition += inSize;
    return true;
}

bool UStreamReader::GetByte(uint8_t& outByte) {
    return GetBytes(&outByte, 1);
}

bool UStreamReader::GetShort(uint16_t& outShort) {
    uint8_t bytes[2];
    if (!GetBytes(bytes, sizeof bytes)) return false;
    outShort = static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
    return true;
}

bool UStreamReader::GetLong(uint32_t& outLong) {
    uint8_t bytes[4];
    if (!GetBytes(bytes, sizeof bytes)) return false;
    outLong = (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) |
              uint32_t{bytes[3]};
    return true;
}

uint32_t UStreamReader::GetTag() {
    uint32_t tag = 0;  // stays 0 when the read fails
    GetLong(tag);
    return tag;
}

bool UStreamReader::TagIs(uint32_t inTag) {
    return GetTag() == inTag;
}

bool UStreamReader::GetPackedPString(char* outString) {
    uint8_t length;
    if (!GetByte(length)) return false;
    if (!GetBytes(outString, length)) return false;
    outString[length] = '\0';
    return true;
}

bool UStreamReader::GetPackedPStringN(char* outString, uint32_t inBufferSize) {
    // A buffer of no bytes cannot even hold the NUL; cutting the length to
    // inBufferSize - 1 would ask for about 4 GiB. Fail before reading anything.
    if (inBufferSize == 0) return false;

    uint8_t lengthByte;
    if (!GetByte(lengthByte)) return false;
    uint32_t length = lengthByte;
    if (length >= inBufferSize) {
        // Only the part that fits is consumed; the rest of the string stays in
        // the stream and the next read starts inside it. What a keyset with an
        // over-long name does to the rest of its stream depends on exactly this.
        length = inBufferSize - 1;
        VXDiagnostic("string length changed\n");
    }
    if (!GetBytes(outString, length)) return false;
    outString[length] = '\0';
    return true;
}

bool UStreamReader::GetStr31(char* outString) {
    return GetPackedPStringN(outString, 32);
}

bool UStreamReader::GetStr63(char* outString) {
    return GetPackedPStringN(outString, 64);
}

bool UStreamReader::GetUnpackedPString(char* outString, uint32_t inBufferSize) {
    // As for GetPackedPStringN: a field size of 0 would mean a 4 GiB field and
    // leaves no room for the NUL.
    if (inBufferSize == 0) return false;

    uint8_t length;
    if (!GetByte(length)) return false;
    if (!GetBytes(outString, inBufferSize - 1)) return false;
    // The length byte is not checked against the field: the whole field is
    // consumed and the NUL goes at index L. A length byte beyond the field would
    // put the NUL past the buffer, so there it closes the buffer's last byte
    // instead; every length that fits keeps its exact place.
    outString[length < inBufferSize ? length : inBufferSize - 1] = '\0';
    return true;
}

bool UStreamReader::GetCString(char* outString) {
    uint32_t count = 0;
    uint8_t current = 0;
    bool readOK;
    do {
        readOK = GetByte(current);
        // Stored even after a failed read (then it is the previous byte, or 0):
        // the result is false then and the buffer's contents mean nothing.
        outString[count++] = static_cast<char>(current);
    } while (readOK && current != 0 && count < 256);

    if (!readOK) return false;
    // 256 bytes without a NUL: cut to 255 characters; the rest of the string
    // stays in the stream, as with packed strings.
    if (count > 255) outString[255] = '\0';
    return true;
}

bool UStreamReader::MovePosBy(uint32_t inMoveBy) {
    if (!Fits(inMoveBy)) return false;
    mPosition += inMoveBy;
    return true;
}

bool UStreamReader::SetPos(uint32_t inPos) {
    // The old position is tested, deliberately not the new one: a position past
    // the end is accepted here and makes the next read fail.
    if (mPosition > mSize) return false;
    mPosition = inPos;
    return true;
}
