#include "driver/CBufferManager.h"

CBufferManager::CBufferManager() : mBufferList(std::make_unique<CFTDiBuffer[]>(kCount)) {
    for (uint16_t i = 0; i < kCount; ++i) {
        mBufferList[i].mIndex = i;
        mBufferList[i].mNextFree =
            (i + 1 < kCount) ? static_cast<uint16_t>(i + 1) : CFTDiBuffer::kNoNext;
        mBufferList[i].mInUse = false;
    }
    mFreeHead = 0;
}

CFTDiBuffer* CBufferManager::Allocate() {
    if (!mBufferList || mFreeHead == CFTDiBuffer::kNoNext) return nullptr;
    CFTDiBuffer* buffer = &mBufferList[mFreeHead];
    buffer->mInUse = true;
    mFreeHead = buffer->mNextFree;
    return buffer;
}

void CBufferManager::Release(CFTDiBuffer* inBuffer) {
    if (!mBufferList || !inBuffer) return;
    // A record from elsewhere, or one released twice, would link the free
    // list into a cycle and hand the same record out twice: only a record of
    // this pool that is in use goes back.
    if (inBuffer->mIndex >= kCount || inBuffer != &mBufferList[inBuffer->mIndex] ||
        !inBuffer->mInUse)
        return;
    inBuffer->mNextFree = mFreeHead;
    mFreeHead = inBuffer->mIndex;
    inBuffer->mInUse = false;
}
