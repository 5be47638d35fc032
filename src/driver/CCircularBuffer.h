// A fixed 16 KiB byte ring with an in-mark and an out-mark. It never allocates
// after construction and never refuses a write: bytes that arrive faster than
// they are read overwrite unread ones, and the marks then describe a shorter or
// empty content. The device never sends that much between two reads, so this is
// accepted rather than guarded against.
#pragma once

#include <cstddef>
#include <cstdint>

class CCircularBuffer {
  public:
    static constexpr uint32_t kSize = 16384;

    CCircularBuffer() = default;
    CCircularBuffer(const CCircularBuffer&) = delete;
    CCircularBuffer& operator=(const CCircularBuffer&) = delete;

    void AddBytes(const uint8_t* data, size_t count);
    size_t GetBytes(uint8_t* out, size_t count);
    bool GetByte(uint8_t* out);
    uint32_t BytesRemaining() const;
    bool IsEmpty() const { return mBufferIn == mBufferOut; }
    void Reset(uint32_t in, uint32_t out);
    size_t MoveOutMarkBy(size_t count);
    // Claims the busy flag; nothing in the driver needs it, the flag being only
    // a "give up rather than wait" signal for readers.
    bool Take();
    uint32_t GetBufferIn() const { return mBufferIn; }
    uint32_t GetBufferOut() const { return mBufferOut; }

  private:
    static void CopyBytes(const uint8_t* from, uint8_t* to, size_t count);

    uint8_t mBuffer[kSize] = {};
    uint32_t mBufferIn = 0;
    uint32_t mBufferOut = 0;
    bool mBusy = false;
};
