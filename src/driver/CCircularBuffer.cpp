#include "driver/CCircularBuffer.h"

#include <algorithm>

void CCircularBuffer::CopyBytes(const uint8_t* from, uint8_t* to, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = from[i];
}

void CCircularBuffer::AddBytes(const uint8_t* data, size_t count) {
    mBusy = true;
    bool oversized = count > kSize;
    if (oversized) {
        // A single write larger than the whole ring would run past the storage.
        // Keep its last kSize - 1 bytes, the most the ring can tell apart from
        // empty, and make exactly those readable below.
        data += count - (kSize - 1);
        count = kSize - 1;
    }
    uint32_t start = mBufferIn;
    if (mBufferIn + count > kSize) {
        size_t first = kSize - mBufferIn;
        CopyBytes(data, mBuffer + mBufferIn, first);
        CopyBytes(data + first, mBuffer, count - first);
        mBufferIn = static_cast<uint32_t>(count - first);
    } else {
        CopyBytes(data, mBuffer + mBufferIn, count);
        mBufferIn += static_cast<uint32_t>(count);
        if (mBufferIn == kSize) mBufferIn = 0;
    }
    if (oversized) mBufferOut = start;
    mBusy = false;
}

uint32_t CCircularBuffer::BytesRemaining() const {
    if (mBufferIn > mBufferOut) return mBufferIn - mBufferOut;
    if (mBufferIn < mBufferOut) return mBufferIn + kSize - mBufferOut;
    return 0;
}

bool CCircularBuffer::GetByte(uint8_t* out) {
    if (mBusy || IsEmpty()) return false;
    mBusy = true;
    *out = mBuffer[mBufferOut];
    if (++mBufferOut == kSize) mBufferOut = 0;
    mBusy = false;
    return true;
}

size_t CCircularBuffer::GetBytes(uint8_t* out, size_t count) {
    if (mBusy) return 0;
    mBusy = true;
    size_t n = std::min<size_t>(count, BytesRemaining());
    if (mBufferOut + n > kSize) {
        size_t first = kSize - mBufferOut;
        CopyBytes(mBuffer + mBufferOut, out, first);
        CopyBytes(mBuffer, out + first, n - first);
        mBufferOut = static_cast<uint32_t>(n - first);
    } else {
        CopyBytes(mBuffer + mBufferOut, out, n);
        mBufferOut += static_cast<uint32_t>(n);
        if (mBufferOut == kSize) mBufferOut = 0;
    }
    mBusy = false;
    return n;
}

size_t CCircularBuffer::MoveOutMarkBy(size_t count) {
    if (mBusy) return 0;
    mBusy = true;
    size_t n = std::min<size_t>(count, BytesRemaining());
    mBufferOut += static_cast<uint32_t>(n);
    if (mBufferOut > kSize - 1) mBufferOut -= kSize;
    mBusy = false;
    return n;
}

void CCircularBuffer::Reset(uint32_t in, uint32_t out) {
    mBusy = true;
    // Callers pass marks they read from this ring; anything else is folded back
    // into the storage so that no later access can leave it.
    mBufferIn = in % kSize;
    mBufferOut = out % kSize;
    mBusy = false;
}

bool CCircularBuffer::Take() {
    if (mBusy) return false;
    mBusy = true;
    return true;
}
