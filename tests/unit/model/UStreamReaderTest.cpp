#include "model/UStreamReader.h"
#include "model/UStreamWriter.h"
#include "platform/VXDiagnostics.h"

#include <gtest/gtest.h>

#include <string>

using Bytes = std::vector<uint8_t>;

TEST(UStreamReader, NumbersAndTagsAreBigEndianAndFailInPlace) {
    // An unaligned long, two tags, then a short and one byte.
    const Bytes bytes = {0x00, 0x80, 0x01, 0x02, 0xFF, 'K',  'S',  'e',
                         't',  'C',  't',  'r',  'l',  0x12, 0x34, 0x56};
    UStreamReader r(bytes.data(), bytes.size());
    uint32_t l = 0;
    uint16_t s = 0;
    EXPECT_TRUE(r.MovePosBy(1) && r.GetLong(l));
    EXPECT_EQ(l, 0x800102FFu);
    EXPECT_FALSE(r.TagIs(VXTag("Ctrl")));  // a wrong tag is consumed all the same
    EXPECT_TRUE(r.TagIs(VXTag("Ctrl")));
    EXPECT_FALSE(r.GetLong(l));  // three bytes left: fails, the long is untouched
    EXPECT_EQ(l, 0x800102FFu);
    EXPECT_TRUE(r.GetShort(s));  // from where the long failed
    EXPECT_EQ(s, 0x1234);
    EXPECT_EQ(r.GetTag(), 0u);  // end of data

    // Position bounds do not wrap: 15 + 0xFFFFFFFF is 14 in 32 bits.
    EXPECT_FALSE(r.MovePosBy(0xFFFFFFFF) || r.GetBytes(&l, 0xFFFFFFFF));
    EXPECT_TRUE(r.MovePosBy(1));  // exactly to the end
    EXPECT_FALSE(r.MovePosBy(1));
    // SetPos tests the old position: past the end is accepted once, then refused.
    EXPECT_TRUE(r.SetPos(0xFFFFFFFF));
    EXPECT_FALSE(r.GetShort(s) || r.SetPos(0));
    EXPECT_EQ(UStreamReader(nullptr, 10).GetSize(), 0u);
    EXPECT_EQ(UStreamReader(bytes.data(), size_t{0x100000005}).GetSize(), 0xFFFFFFFFu);
}

TEST(UStreamReader, StringsAreCutAndBounded) {
    // Str31 over 40 letters: 31 are taken and the next read starts inside the string.
    Bytes bytes(1, 40);
    for (int i = 0; i < 40; ++i) bytes.push_back(static_cast<uint8_t>('A' + i));
    UStreamReader r(bytes);
    char out[256];
    CVXDiagnosticCapture printed;
    EXPECT_TRUE(r.GetStr31(out));
    EXPECT_EQ(printed.Text(), "string length changed\n");
    EXPECT_EQ(std::string(out), std::string(bytes.begin() + 1, bytes.begin() + 32));
    EXPECT_EQ(r.GetPos(), 32u);

    // Unpacked: the whole field is consumed; a length byte beyond a 4-byte field
    // puts the NUL at the buffer's last byte, not past it.
    Bytes field{3, 'a', 'b', 'c'};
    field.resize(32, 'z');
    field.insert(field.end(), {200, 'p', 'q', 'r', 9});
    UStreamReader u(field);
    EXPECT_TRUE(u.GetUnpackedPString(out, 32));
    EXPECT_STREQ(out, "abc");
    EXPECT_TRUE(u.GetUnpackedPString(out, 4));  // out[4] keeps a 'z' of the field before
    EXPECT_EQ(std::string(out, 5), std::string("pqr\0z", 5));
    EXPECT_FALSE(u.GetPackedPStringN(out, 0));  // no room even for the NUL: nothing read
    EXPECT_EQ(u.GetPos(), 36u);
    EXPECT_FALSE(u.GetPackedPString(out));  // text past the end: length byte consumed
    EXPECT_EQ(u.GetPos(), 37u);

    UStreamReader c(Bytes(300, 'x'));
    EXPECT_TRUE(c.GetCString(out));
    EXPECT_EQ(std::string(out), std::string(255, 'x'));
    EXPECT_EQ(c.GetPos(), 256u);
}

TEST(UStreamWriter, RoundTripsThroughTheReader) {
    UStreamWriter w;
    w.PutTag(VXTag("KSet"));
    w.PutShort(0xBEEF);
    w.PutLong(0x01020304);
    EXPECT_TRUE(w.PutPackedPString("name") && w.PutUnpackedPString("abc", 8) &&
                w.PutCString("tail"));
    // Text the reader could not give back unchanged is refused, and nothing is written.
    EXPECT_FALSE(w.PutPackedPString(std::string(256, 'x')) || w.PutUnpackedPString("abcd", 4) ||
                 w.PutCString(std::string_view("a\0b", 3)));

    UStreamReader r(w.Take());
    EXPECT_TRUE(w.Bytes().empty());
    uint16_t s = 0;
    uint32_t l = 0;
    char p[256], u[8], c[256];
    EXPECT_TRUE(r.TagIs(VXTag("KSet")) && r.GetShort(s) && r.GetLong(l) && r.GetPackedPString(p) &&
                r.GetUnpackedPString(u, 8) && r.GetCString(c));
    EXPECT_EQ(std::to_string(s) + "|" + std::to_string(l) + "|" + p + "|" + u + "|" + c,
              "48879|16909060|name|abc|tail");
    EXPECT_EQ(r.GetPos(), r.GetSize());
}
