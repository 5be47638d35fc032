#include "model/UStreamReader.h"
#include "model/UStreamWriter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

TEST(UStreamReader, NumbersAndTagsAreBigEndianAndFailInPlace) {
    UStreamReader three(Bytes{0x12, 0x34, 0x56});
    uint32_t l = 0xDEADBEEF;
    uint16_t s = 0;
    EXPECT_FALSE(three.GetLong(l));
    EXPECT_EQ(l, 0xDEADBEEFu);
    EXPECT_EQ(three.GetPos(), 0u);
    EXPECT_TRUE(three.GetShort(s));
    EXPECT_EQ(s, 0x1234);
    EXPECT_EQ(three.GetTag(), 0u);  // end of data
    EXPECT_EQ(three.GetPos(), 2u);

    // Unaligned long, then tags: a wrong tag is consumed all the same.
    UStreamReader r(Bytes{0x00, 0x80, 0x01, 0x02, 0xFF, 'K', 'S', 'e', 't', 'K', 'S', 'e', 't'});
    EXPECT_TRUE(r.MovePosBy(1) && r.GetLong(l));
    EXPECT_EQ(l, 0x800102FFu);
    EXPECT_FALSE(r.TagIs(VXTag("Ctrl")));
    EXPECT_EQ(r.GetPos(), 9u);
    EXPECT_TRUE(r.TagIs(VXTag("KSet")));
}

TEST(UStreamReader, StringsAreCutAndBounded) {
    Bytes bytes(1, 40);
    for (int i = 0; i < 40; ++i) bytes.push_back(static_cast<uint8_t>('A' + i));
    UStreamReader r(bytes);
    char out[256];
    uint8_t next = 0;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(r.GetStr31(out));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "string length changed\n");
    EXPECT_EQ(std::string(out), std::string(reinterpret_cast<char*>(&bytes[1]), 31));
    EXPECT_EQ(r.GetPos(), 32u);
    EXPECT_TRUE(r.GetByte(next));  // the next read starts inside the string
    EXPECT_EQ(next, 'A' + 31);

    // Unpacked: the whole field is consumed; a length byte beyond a 4-byte field
    // puts the NUL at the buffer's last byte, not past it.
    Bytes field{3, 'a', 'b', 'c'};
    field.resize(32, 'z');
    field.insert(field.end(), {200, 'p', 'q', 'r', 9});
    UStreamReader u(field);
    EXPECT_TRUE(u.GetUnpackedPString(out, 32));
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(u.GetPos(), 32u);
    std::memset(out, '#', sizeof out);
    EXPECT_TRUE(u.GetUnpackedPString(out, 4));
    EXPECT_STREQ(out, "pqr");
    EXPECT_EQ(out[4], '#');
    EXPECT_FALSE(u.GetPackedPStringN(out, 0));  // no room even for the NUL: nothing read
    EXPECT_FALSE(u.GetPackedPString(out));      // text past the end: length byte consumed
    EXPECT_EQ(u.GetPos(), 37u);

    UStreamReader c(Bytes(300, 'x'));
    EXPECT_TRUE(c.GetCString(out));
    EXPECT_EQ(std::string(out), std::string(255, 'x'));
    EXPECT_EQ(c.GetPos(), 256u);
}

TEST(UStreamReader, PositionBoundsDoNotWrap) {
    const uint8_t raw[4] = {1, 2, 3, 4};
    UStreamReader r(raw, sizeof raw);
    uint8_t buf[4];
    EXPECT_TRUE(r.MovePosBy(1));
    EXPECT_FALSE(r.MovePosBy(0xFFFFFFFF));  // 1 + 0xFFFFFFFF wraps to 0 in 32 bits
    EXPECT_FALSE(r.GetBytes(buf, 0xFFFFFFFF));
    EXPECT_TRUE(r.MovePosBy(3));  // exactly to the end
    EXPECT_FALSE(r.MovePosBy(1));
    EXPECT_EQ(r.GetPos(), 4u);

    // SetPos tests the old position: past the end is accepted once, then refused.
    EXPECT_TRUE(r.SetPos(0xFFFFFFFF));
    EXPECT_FALSE(r.GetByte(buf[0]));
    EXPECT_FALSE(r.SetPos(0));
    EXPECT_EQ(r.GetPos(), 0xFFFFFFFFu);

    EXPECT_FALSE(UStreamReader().GetByte(buf[0]));
    EXPECT_EQ(UStreamReader(nullptr, 10).GetSize(), 0u);
    EXPECT_EQ(UStreamReader(raw, size_t{0x100000005}).GetSize(), 0xFFFFFFFFu);
}

TEST(UStreamWriter, RoundTripsThroughTheReader) {
    UStreamWriter w;
    w.PutTag(VXTag("KSet"));
    w.PutShort(0xBEEF);
    w.PutLong(0x01020304);
    EXPECT_TRUE(w.PutPackedPString("name") && w.PutUnpackedPString("abc", 8) &&
                w.PutCString("tail"));
    EXPECT_FALSE(w.PutPackedPString(std::string(256, 'x')));
    EXPECT_FALSE(w.PutUnpackedPString("abcd", 4));
    EXPECT_FALSE(w.PutCString(std::string_view("a\0b", 3)));

    UStreamReader r(w.Take());
    EXPECT_TRUE(w.Bytes().empty());
    uint16_t s = 0;
    uint32_t l = 0;
    char p[256], u[8], c[256];
    EXPECT_TRUE(r.TagIs(VXTag("KSet")) && r.GetShort(s) && r.GetLong(l));
    EXPECT_EQ(s, 0xBEEF);
    EXPECT_EQ(l, 0x01020304u);
    EXPECT_TRUE(r.GetPackedPString(p) && r.GetUnpackedPString(u, 8) && r.GetCString(c));
    EXPECT_EQ(std::string(p) + "|" + u + "|" + c, "name|abc|tail");
    EXPECT_EQ(r.GetPos(), r.GetSize());
}
