// A fixed pool of 64-byte records for the serial bridge's packets, handed out
// last-in-first-out through a free list threaded by index. Nothing in the
// running driver allocates from it today; it is kept ready for packet-sized
// work on the bridge.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct CFTDiBuffer {
    static constexpr uint16_t kNoNext = 0xFFFF;

    uint8_t mBuffer[64] = {};
    uint16_t mIndex = 0;           // its own position in the pool
    uint16_t mNextFree = kNoNext;  // next free record, kNoNext at the end
    bool mInUse = false;
};

class CBufferManager {
  public:
    static constexpr uint16_t kCount = 64;

    CBufferManager();
    virtual ~CBufferManager() = default;
    CBufferManager(const CBufferManager&) = delete;
    CBufferManager& operator=(const CBufferManager&) = delete;

    // The most recently released free record, or null when none is free.
    CFTDiBuffer* Allocate();
    void Release(CFTDiBuffer* inBuffer);

  private:
    std::unique_ptr<CFTDiBuffer[]> mBufferList;
    uint16_t mFreeHead = 0;
};
