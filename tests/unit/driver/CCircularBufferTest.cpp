#include "driver/CCircularBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

constexpr uint32_t N = CCircularBuffer::kSize;

// Bytes `from` to `from + count` of an endless test stream that, unlike a
// plain count, does not repeat every 256 bytes.
std::vector<uint8_t> Stream(size_t from, size_t count) {
    std::vector<uint8_t> v(count);
    for (size_t i = from; i < from + count; ++i) v[i - from] = uint8_t(i * 7 + i / 251);
    return v;
}

TEST(CircularBuffer, WritesAndReadsWrapAtTheEndOfStorage) {
    // {marks before, count, both marks after}: 4 bytes at the end and 6 at the
    // start; one at each end; exactly reaching the end wraps to 0.
    const uint32_t cases[][3] = {{16380, 10, 6}, {16383, 2, 1}, {16000, 384, 0}};
    for (auto [start, count, after] : cases) {
        CCircularBuffer ring;
        ring.Reset(start, start);
        auto data = Stream(0, count);
        ring.AddBytes(data.data(), count);
        EXPECT_EQ(ring.GetBufferIn(), after);
        std::vector<uint8_t> out(count + 5);
        EXPECT_EQ(ring.GetBytes(out.data(), count + 5), count);  // only what is there
        EXPECT_TRUE(std::equal(data.begin(), data.end(), out.begin()));
        EXPECT_EQ(ring.GetBufferOut(), after);
    }
}

TEST(CircularBuffer, GetByteAndResetPutBytesBack) {
    CCircularBuffer ring;
    uint8_t b = 0;
    EXPECT_FALSE(ring.GetByte(&b));
    ring.Reset(N - 2, N - 2);  // the message straddles the end of storage
    const uint8_t data[] = {0xB0, 0x07, 0x40, 0x27};
    ring.AddBytes(data, 4);
    EXPECT_TRUE(ring.GetByte(&b) && b == 0xB0);
    ring.Reset(ring.GetBufferIn(), N - 2);  // the marks as they were before the read
    EXPECT_TRUE(ring.GetByte(&b) && b == 0xB0);
    EXPECT_EQ(ring.MoveOutMarkBy(1), 1u);  // to the end of storage, and so to 0
    EXPECT_TRUE(ring.GetByte(&b) && b == 0x40);
    // While the flag is held, readers give up instead of waiting.
    ASSERT_TRUE(ring.Take());
    EXPECT_FALSE(ring.Take() || ring.GetByte(&b) || ring.GetBytes(&b, 1) || ring.MoveOutMarkBy(1));
}

TEST(CircularBuffer, OverflowOverwritesUnreadBytesWithoutReport) {
    // Writes on marks (in 100, out 50), and how many of the newest bytes the
    // marks then describe. A ring's worth wraps onto itself and leaves the old
    // 50; a single larger write keeps its last N - 1 bytes and moves the out-mark.
    const size_t cases[][3] = {
        {16000, 1000, 666}, {0, N, 50}, {0, N + 1, N - 1}, {0, 3 * N + 5, N - 1}};
    for (auto [first, second, kept] : cases) {
        CCircularBuffer ring;
        ring.Reset(100, 50);
        ring.AddBytes(Stream(0, first).data(), first);
        ring.AddBytes(Stream(first, second).data(), second);
        std::vector<uint8_t> out(N);
        ASSERT_EQ(ring.GetBytes(out.data(), N), kept) << second;
        out.resize(kept);
        EXPECT_EQ(out, Stream(first + second - kept, kept)) << second;
    }
}

}  // namespace
