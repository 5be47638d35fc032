// Drives UStreamReader with a small program of reads over arbitrary bytes.
//
// Input layout: byte 0 holds the program length (bits 0-6) and whether the reader
// owns a copy of the stream or borrows it (bit 7); then come the program's bytes,
// two per step (operation, argument); everything after the program is the stream.
// Every output buffer is heap-allocated with exactly the size the operation is
// allowed to touch, so AddressSanitizer reports any overrun. After each step the
// outcome is checked against the stream bytes themselves, and any violation traps.
#include "model/UStreamReader.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

void Require(bool inCondition) {
    if (!inCondition) __builtin_trap();
}

struct Harness {
    UStreamReader& reader;
    const uint8_t* stream;  // the bytes the reader was built over
    uint32_t size;          // the stream's size as the reader must report it

    bool Fits(uint32_t inPos, uint64_t inCount) const { return inPos + inCount <= size; }
    uint32_t Remaining(uint32_t inPos) const { return inPos <= size ? size - inPos : 0; }

    uint32_t BigEndian(uint32_t inPos, uint32_t inCount) const {
        uint32_t value = 0;
        for (uint32_t i = 0; i < inCount; ++i) value = (value << 8) | stream[inPos + i];
        return value;
    }

    // A count for reads and moves: small, exactly what is left, one more than
    // that, or close enough to UINT32_MAX that a 32-bit sum would wrap.
    uint32_t PickCount(uint8_t inArg) const {
        const uint32_t rest = Remaining(reader.GetPos());
        switch (inArg >> 6) {
            case 0:
                return inArg & 0x3F;
            case 1:
                return rest;
            case 2:
                return rest + 1;
            default:
                return 0xFFFFFFFFu - (inArg & 0x3F);
        }
    }

    static uint32_t PickBufferSize(uint8_t inArg) {
        static const uint32_t kSizes[8] = {0, 1, 2, 3, 32, 64, 255, 256};
        return (inArg & 0x80) ? kSizes[inArg & 7] : inArg;
    }

    uint32_t PickPosition(uint8_t inArg) const {
        switch (inArg >> 6) {
            case 0:
                return inArg & 0x3F;
            case 1:
                return size;
            case 2:
                return size + 1;
            default:
                return 0xFFFFFFFFu - (inArg & 0x3F);
        }
    }

    void CheckBytes(uint32_t inCount) {
        const uint32_t pos = reader.GetPos();
        if (!Fits(pos, inCount)) {
            // Must fail without writing: a one-byte buffer with a known value.
            auto probe = std::make_unique<uint8_t[]>(1);
            probe[0] = 0xA5;
            Require(!reader.GetBytes(probe.get(), inCount));
            Require(probe[0] == 0xA5 && reader.GetPos() == pos);
            return;
        }
        auto out = std::make_unique<uint8_t[]>(inCount);
        Require(reader.GetBytes(out.get(), inCount));
        Require(reader.GetPos() == pos + inCount);
        Require(inCount == 0 || std::memcmp(out.get(), stream + pos, inCount) == 0);
    }

    // GetByte, GetShort, GetLong and GetTag: big-endian value or untouched output.
    void CheckNumber(uint32_t inWidth) {
        const uint32_t pos = reader.GetPos();
        const bool fits = Fits(pos, inWidth);
        const uint32_t expected = fits ? BigEndian(pos, inWidth) : 0;
        bool ok = false;
        uint32_t got = 0;
        if (inWidth == 1) {
            uint8_t v = 0x5A;
            ok = reader.GetByte(v);
            Require(ok || v == 0x5A);
            got = v;
        } else if (inWidth == 2) {
            uint16_t v = 0x5A5A;
            ok = reader.GetShort(v);
            Require(ok || v == 0x5A5A);
            got = v;
        } else {
            uint32_t v = 0x5A5A5A5A;
            ok = reader.GetLong(v);
            Require(ok || v == 0x5A5A5A5A);
            got = v;
        }
        Require(ok == fits && reader.GetPos() == pos + (fits ? inWidth : 0));
        Require(!ok || got == expected);
    }

    void CheckTag(uint8_t inArg, bool inCompare) {
        const uint32_t pos = reader.GetPos();
        const bool fits = Fits(pos, 4);
        const uint32_t actual = fits ? BigEndian(pos, 4) : 0;
        if (inCompare) {
            const uint32_t tag = (inArg & 1) ? actual : actual ^ inArg ^ 0x01000000u;
            // At the end GetTag's 0 is what is compared: TagIs(0) holds there.
            Require(reader.TagIs(tag) == (tag == actual));
        } else {
            Require(reader.GetTag() == actual);
        }
        Require(reader.GetPos() == pos + (fits ? 4 : 0));
    }

    // Packed strings: inBufferSize 256 stands for GetPackedPString, 32 and 64
    // for GetStr31 and GetStr63 when inVariant says so.
    void CheckPacked(uint32_t inBufferSize, int inVariant) {
        const uint32_t pos = reader.GetPos();
        auto out = std::make_unique<char[]>(inBufferSize);
        bool ok;
        switch (inVariant) {
            case 0:
                ok = reader.GetPackedPString(out.get());
                break;
            case 1:
                ok = reader.GetStr31(out.get());
                break;
            case 2:
                ok = reader.GetStr63(out.get());
                break;
            default:
                ok = reader.GetPackedPStringN(out.get(), inBufferSize);
                break;
        }
        if (inBufferSize == 0 || !Fits(pos, 1)) {
            Require(!ok && reader.GetPos() == pos);
            return;
        }
        uint32_t length = stream[pos];
        if (length >= inBufferSize) length = inBufferSize - 1;
        if (!Fits(pos + 1, length)) {
            Require(!ok && reader.GetPos() == pos + 1);
            return;
        }
        Require(ok && reader.GetPos() == pos + 1 + length && out[length] == '\0');
        Require(length == 0 || std::memcmp(out.get(), stream + pos + 1, length) == 0);
    }

    void CheckUnpacked(uint32_t inBufferSize) {
        const uint32_t pos = reader.GetPos();
        auto out = std::make_unique<char[]>(inBufferSize);
        const bool ok = reader.GetUnpackedPString(out.get(), inBufferSize);
        if (inBufferSize == 0 || !Fits(pos, 1)) {
            Require(!ok && reader.GetPos() == pos);
            return;
        }
        if (!Fits(pos + 1, inBufferSize - 1)) {
            Require(!ok && reader.GetPos() == pos + 1);
            return;
        }
        const uint32_t nul = stream[pos] < inBufferSize ? stream[pos] : inBufferSize - 1;
        Require(ok && reader.GetPos() == pos + inBufferSize && out[nul] == '\0');
        Require(nul == 0 || std::memcmp(out.get(), stream + pos + 1, nul) == 0);
    }

    void CheckCString() {
        const uint32_t pos = reader.GetPos();
        auto out = std::make_unique<char[]>(256);
        const bool ok = reader.GetCString(out.get());
        const uint32_t rest = Remaining(pos);
        const uint32_t scan = rest < 256 ? rest : 256;
        const void* nul = scan ? std::memchr(stream + pos, 0, scan) : nullptr;
        if (nul != nullptr) {
            const auto length =
                static_cast<uint32_t>(static_cast<const uint8_t*>(nul) - stream - pos);
            Require(ok && reader.GetPos() == pos + length + 1 && out[length] == '\0');
            Require(std::memcmp(out.get(), stream + pos, length) == 0);
        } else if (scan == 256) {
            // Cut to 255 characters; the 256th byte has been consumed all the same.
            Require(ok && reader.GetPos() == pos + 256 && out[255] == '\0');
            Require(std::memcmp(out.get(), stream + pos, 255) == 0);
        } else {
            // Ran into the end: everything up to it is consumed (nothing if the
            // position was already past it).
            Require(!ok && reader.GetPos() == (pos < size ? size : pos));
        }
    }

    void CheckMove(uint32_t inMoveBy) {
        const uint32_t pos = reader.GetPos();
        const bool fits = Fits(pos, inMoveBy);
        Require(reader.MovePosBy(inMoveBy) == fits);
        Require(reader.GetPos() == (fits ? pos + inMoveBy : pos));
    }

    void CheckSetPos(uint32_t inPos) {
        const uint32_t pos = reader.GetPos();
        const bool allowed = pos <= size;
        Require(reader.SetPos(inPos) == allowed);
        Require(reader.GetPos() == (allowed ? inPos : pos));
    }

    void Step(uint8_t inOp, uint8_t inArg) {
        switch (inOp % 15) {
            case 0:
                CheckBytes(PickCount(inArg));
                break;
            case 1:
                CheckNumber(1);
                break;
            case 2:
                CheckNumber(2);
                break;
            case 3:
                CheckNumber(4);
                break;
            case 4:
                CheckTag(inArg, false);
                break;
            case 5:
                CheckTag(inArg, true);
                break;
            case 6:
                CheckPacked(256, 0);
                break;
            case 7:
                CheckPacked(32, 1);
                break;
            case 8:
                CheckPacked(64, 2);
                break;
            case 9:
                CheckPacked(PickBufferSize(inArg), 3);
                break;
            case 10:
                CheckUnpacked(PickBufferSize(inArg));
                break;
            case 11:
                CheckCString();
                break;
            case 12:
                CheckMove(PickCount(inArg));
                break;
            case 13:
                CheckSetPos(PickPosition(inArg));
                break;
            default:
                Require(reader.GetSize() == size);
                break;
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool owned = (data[0] & 0x80) != 0;
    size_t programLength = data[0] & 0x7F;
    if (programLength > size - 1) programLength = size - 1;
    const uint8_t* program = data + 1;
    const uint8_t* stream = program + programLength;
    const size_t streamSize = size - 1 - programLength;

    // Both kinds of reader see the stream at the end of an exact-size heap block
    // (the fuzzer's own copy of the input, or the vector's storage), so a read
    // past the end is an overrun that ASan reports.
    std::unique_ptr<UStreamReader> reader;
    if (owned) {
        reader = std::make_unique<UStreamReader>(std::vector<uint8_t>(stream, stream + streamSize));
    } else {
        reader = std::make_unique<UStreamReader>(stream, streamSize);
    }
    const uint8_t* bytes = reader->GetDataPtr();
    Require(reader->GetPos() == 0 && reader->GetSize() == streamSize);
    Require(streamSize == 0 || bytes != nullptr);
    Require(owned || streamSize == 0 || bytes == stream);

    Harness harness{*reader, streamSize ? bytes : stream, static_cast<uint32_t>(streamSize)};
    for (size_t i = 0; i < programLength; i += 2) {
        const uint8_t arg = i + 1 < programLength ? program[i + 1] : 0;
        harness.Step(program[i], arg);
    }
    return 0;
}
