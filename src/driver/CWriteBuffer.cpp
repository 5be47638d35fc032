#include "driver/CWriteBuffer.h"

#include <algorithm>
#include <cstring>

void CWriteBuffer::SetData(const uint8_t* data, size_t size) {
    std::memset(mData, 0, sizeof mData);
    // Callers send device messages of a few bytes, but a host application's
    // sysex or an editor's raw write could be longer than the buffer: only
    // what fits is copied (and sent) rather than writing past its end.
    size_t count = data ? std::min(size, kSize) : 0;
    if (count) std::memcpy(mData, data, count);
    mDataSize = static_cast<uint32_t>(count);
}

CWriteBufferList::CWriteBufferList() {
    for (auto& buffer : mBuffers) buffer = std::make_unique<CWriteBuffer>();
}

CWriteBuffer* CWriteBufferList::GrabNext() {
    for (auto& buffer : mBuffers) {
        if (!buffer->IsBusy()) {
            buffer->SetBusy(true);
            return buffer.get();
        }
    }
    return mBuffers[kCount - 1].get();
}

void CWriteBufferList::PutBack(CWriteBuffer* inBuffer) {
    if (inBuffer) inBuffer->SetBusy(false);
}
