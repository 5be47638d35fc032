#include "driver/CCircularBuffer.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

constexpr uint32_t N = CCircularBuffer::kSize;

std::vector<uint8_t> Sequence(size_t count, uint8_t first = 0) {
    std::vector<uint8_t> v(count);
    std::iota(v.begin(), v.end(), first);
    return v;
}

TEST(CircularBuffer, WritesAndReadsWrapAtTheEndOfStorage) {
    CCircularBuffer ring;
    ring.Reset(16380, 16380);
    auto data = Sequence(10, 1);
    ring.AddBytes(data.data(), data.size());
    EXPECT_EQ(ring.GetBufferIn(), 6u);  // 4 at the end, 6 at the start
    EXPECT_EQ(ring.BytesRemaining(), 10u);

    std::vector<uint8_t> out(20, 0xEE);
    EXPECT_EQ(ring.GetBytes(out.data(), 20), 10u);  // only what is there
    EXPECT_TRUE(std::equal(data.begin(), data.end(), out.begin()));
    EXPECT_EQ(out[10], 0xEE);
    EXPECT_TRUE(ring.IsEmpty());
    EXPECT_EQ(ring.GetBufferOut(), 6u);

    ring.Reset(16000, 16000);
    auto fill = Sequence(384);
    ring.AddBytes(fill.data(), fill.size());
    EXPECT_EQ(ring.GetBufferIn(), 0u);  // exactly reaching the end wraps to 0
    EXPECT_EQ(ring.BytesRemaining(), 384u);
    EXPECT_EQ(ring.MoveOutMarkBy(1000), 384u);
    EXPECT_EQ(ring.GetBufferOut(), 0u);
}

TEST(CircularBuffer, GetByteAndResetPutBytesBack) {
    CCircularBuffer ring;
    uint8_t b = 0;
    EXPECT_FALSE(ring.GetByte(&b));
    const uint8_t data[] = {0xB0, 0x07, 0x40};
    ring.AddBytes(data, 3);
    uint32_t in = ring.GetBufferIn(), out = ring.GetBufferOut();
    ASSERT_TRUE(ring.GetByte(&b));
    EXPECT_EQ(b, 0xB0);
    ring.Reset(in, out);
    ASSERT_TRUE(ring.GetByte(&b));
    EXPECT_EQ(b, 0xB0);
    EXPECT_EQ(ring.MoveOutMarkBy(1), 1u);
    ASSERT_TRUE(ring.GetByte(&b));
    EXPECT_EQ(b, 0x40);

    // While the flag is held, readers give up instead of waiting.
    ring.AddBytes(data, 3);
    ASSERT_TRUE(ring.Take());
    EXPECT_FALSE(ring.Take());
    EXPECT_FALSE(ring.GetByte(&b));
    EXPECT_EQ(ring.GetBytes(&b, 1), 0u);
    EXPECT_EQ(ring.MoveOutMarkBy(1), 0u);
    EXPECT_EQ(ring.BytesRemaining(), 3u);
}

TEST(CircularBuffer, OverflowOverwritesUnreadBytesWithoutReport) {
    CCircularBuffer ring;
    auto first = Sequence(16000);
    ring.AddBytes(first.data(), first.size());
    auto second = Sequence(1000, 7);
    ring.AddBytes(second.data(), second.size());
    // 17000 bytes went in; the marks now describe only 616 of them.
    EXPECT_EQ(ring.GetBufferIn(), 616u);
    EXPECT_EQ(ring.BytesRemaining(), 616u);
    uint8_t b;
    ASSERT_TRUE(ring.GetByte(&b));
    EXPECT_EQ(b, second[384]);  // storage start was overwritten by the second write

    // A full ring's worth looks empty again.
    CCircularBuffer full;
    auto whole = Sequence(N);
    full.AddBytes(whole.data(), whole.size());
    EXPECT_TRUE(full.IsEmpty());
}

TEST(CircularBuffer, AWriteLargerThanTheRingKeepsItsLastBytes) {
    CCircularBuffer ring;
    ring.Reset(100, 50);
    std::vector<uint8_t> big(3 * N + 5);
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i * 7);
    ring.AddBytes(big.data(), big.size());
    ASSERT_EQ(ring.BytesRemaining(), N - 1);
    std::vector<uint8_t> out(N);
    ASSERT_EQ(ring.GetBytes(out.data(), N), N - 1);
    EXPECT_TRUE(std::equal(big.end() - (N - 1), big.end(), out.begin()));
}

}  // namespace
