// Drives UStreamReader with a small program of reads over arbitrary bytes.
//
// Input layout: byte 0 holds the program length (bits 0-6) and whether the reader
// owns a copy of the stream or borrows it (bit 7); then come the program's bytes,
// two per step (operation, argument); everything after the program is the stream.
// Every output buffer is heap-allocated with exactly the size the operation is
// allowed to touch, so AddressSanitizer reports any overrun. After each step the
// invariants every read keeps are checked, and any violation traps.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "model/UStreamReader.h"

namespace {

void Require(bool inCondition) {
    if (!inCondition) __builtin_trap();
}

// A count or position: small, exactly inEnd, one more than that, or close
// enough to UINT32_MAX that a 32-bit sum would wrap.
uint32_t Pick(uint8_t inArg, uint32_t inEnd) {
    const uint32_t choices[4] = {inArg & 0x3Fu, inEnd, inEnd + 1, 0xFFFFFFFFu - (inArg & 0x3F)};
    return choices[inArg >> 6];
}

// A buffer size for the strings that take one, 0 included.
uint32_t PickSize(uint8_t inArg) {
    static const uint32_t kSizes[8] = {0, 1, 2, 3, 32, 64, 255, 256};
    return (inArg & 0x80) ? kSizes[inArg & 7] : inArg;
}

// A number read into a variable holding a marker, which a failure must leave.
template <class T>
bool Number(UStreamReader& r, bool (UStreamReader::*inGet)(T&)) {
    T value = T(0x5A5A5A5A);
    const bool ok = (r.*inGet)(value);
    Require(ok || value == T(0x5A5A5A5A));
    return ok;
}

void Step(UStreamReader& r, uint32_t inSize, uint8_t inOp, uint8_t inArg) {
    const uint32_t pos = r.GetPos();
    const unsigned op = inOp % 14;
    const uint32_t n = Pick(inArg, op == 7 ? inSize : (pos <= inSize ? inSize - pos : 0));
    // Ops 0 to 6 consume `want` bytes or none at all.
    const uint32_t want = op == 0 || op == 6 ? n : op == 1 ? 1 : op == 2 ? 2 : 4;
    const bool fits = uint64_t{pos} + want <= inSize;
    // Output bytes: GetBytes takes n (one probe byte when n does not fit); the
    // strings 256, 32, 64, a picked size (twice) and 256.
    const uint32_t p = PickSize(inArg),
                   sizes[14] = {fits ? n : 1, 1, 1, 1, 1, 1, 1, 1, 256, 32, 64, p, p, 256};
    const uint32_t bufSize = sizes[op];
    auto buf = std::make_unique<char[]>(bufSize);
    std::memset(buf.get(), 0xA5, bufSize);
    bool ok = false;
    switch (op) {
        case 0:
            ok = r.GetBytes(buf.get(), n);
            break;
        case 1:
            ok = Number(r, &UStreamReader::GetByte);
            break;
        case 2:
            ok = Number(r, &UStreamReader::GetShort);
            break;
        case 3:
            ok = Number(r, &UStreamReader::GetLong);
            break;
        case 4:
            ok = r.GetTag() != 0 || r.GetPos() != pos;  // 0 (no tag) at the end
            break;
        case 5:
            // Consumes the four bytes, whether they match or not.
            ok = (r.TagIs(inArg * 0x01010101u), r.GetPos() != pos);
            break;
        case 6:
            ok = r.MovePosBy(n);
            break;
        case 7:
            // The old position is tested, not the new one.
            ok = r.SetPos(n);
            Require(ok == (pos <= inSize) && r.GetPos() == (ok ? n : pos));
            return;
        case 8:
            ok = r.GetPackedPString(buf.get());
            break;
        case 9:
            ok = r.GetStr31(buf.get());
            break;
        case 10:
            ok = r.GetStr63(buf.get());
            break;
        case 11:
            ok = r.GetPackedPStringN(buf.get(), bufSize);
            break;
        case 12:
            ok = r.GetUnpackedPString(buf.get(), bufSize);
            break;
        default:
            ok = r.GetCString(buf.get());
            break;
    }
    const uint32_t after = r.GetPos();
    if (op < 7) {
        // All or nothing: a failing read leaves the position, and the buffer, alone.
        Require(ok == fits && after == (ok ? pos + want : pos) && (ok || buf[0] == char(0xA5)));
    } else if (ok) {
        // The NUL lies inside the buffer, right after the characters consumed;
        // the unpacked kind consumes its whole field.
        const uint32_t nul = after - pos - 1;
        Require(after > pos && after <= inSize && nul < bufSize);
        Require(op == 12 ? after == pos + bufSize && std::memchr(buf.get(), 0, bufSize)
                         : buf[nul] == '\0');
    } else {
        // A failing string read keeps at most its length byte; a C string
        // consumes everything up to the end it ran into.
        Require(op == 13 ? after == std::max(pos, inSize) : after - pos <= 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool owned = (data[0] & 0x80) != 0;
    const size_t programLength = std::min<size_t>(data[0] & 0x7F, size - 1);
    const uint8_t* stream = data + 1 + programLength;
    const size_t streamSize = size - 1 - programLength;

    // Both kinds of reader see the stream at the end of an exact-size heap block
    // (the fuzzer's own copy of the input, or the vector's storage), so a read
    // past the end is an overrun that ASan reports.
    auto reader =
        owned ? std::make_unique<UStreamReader>(std::vector<uint8_t>(stream, stream + streamSize))
              : std::make_unique<UStreamReader>(stream, streamSize);
    Require(reader->GetPos() == 0 && reader->GetSize() == streamSize);
    Require(owned || streamSize == 0 || reader->GetDataPtr() == stream);
    for (size_t i = 0; i < programLength; i += 2) {
        Step(*reader, uint32_t(streamSize), data[1 + i], i + 1 < programLength ? data[2 + i] : 0);
    }
    return 0;
}
