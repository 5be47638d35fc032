// The pool of buffers that every write to the surface goes through. A write
// copies its bytes into a buffer taken from the pool and gives it back once the
// (blocking) transfer returned, so at most one is busy at a time today; the
// pool keeps ten so that a writer on another thread never waits for one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class CWriteBuffer {
  public:
    static constexpr size_t kSize = 4096;

    CWriteBuffer() = default;
    virtual ~CWriteBuffer() = default;
    CWriteBuffer(const CWriteBuffer&) = delete;
    CWriteBuffer& operator=(const CWriteBuffer&) = delete;

    // Clears the whole buffer, then copies the bytes (at most kSize of them).
    void SetData(const uint8_t* data, size_t size);
    const uint8_t* DataPtr() const { return mData; }
    uint32_t DataSize() const { return mDataSize; }
    bool IsBusy() const { return mBusy; }
    void SetBusy(bool inBusy) { mBusy = inBusy; }

  private:
    uint8_t mData[kSize] = {};
    uint32_t mDataSize = 0;
    bool mBusy = false;
};

class CWriteBufferList {
  public:
    static constexpr size_t kCount = 10;

    CWriteBufferList();
    virtual ~CWriteBufferList() = default;
    CWriteBufferList(const CWriteBufferList&) = delete;
    CWriteBufferList& operator=(const CWriteBufferList&) = delete;

    // The first buffer that is not busy, now marked busy. When all are busy
    // the last one is returned as it is, still busy: the caller reuses it
    // rather than failing its write.
    CWriteBuffer* GrabNext();
    void PutBack(CWriteBuffer* inBuffer);

  private:
    std::unique_ptr<CWriteBuffer> mBuffers[kCount];
};
