// Reading captures: text where each line is one USB read (or, in MIDI mode, the
// plain MIDI bytes of one read), written as hex bytes.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace vxctl {

// Parses the hex bytes of one line. Bytes may be separated by blanks or run
// together in pairs; '#' starts a comment. Returns false with `outError` set
// when the line holds anything else.
bool ParseHexLine(const std::string& inLine, std::vector<uint8_t>& outBytes, std::string& outError);

// One step of a capture: a USB read, time passing ("+<milliseconds>"), or
// MIDI from a host application ("host <hex bytes>", never framed).
struct SCaptureStep {
    std::vector<uint8_t> read;
    uint64_t waitMicros = 0;
    bool fromHost = false;  // `read` is one packet of host MIDI
};

// Reads every non-empty line of `in` as one step. On a bad line writes a
// message naming it to `outError` and returns false.
bool ReadCapture(std::istream& in, bool inMIDI, std::vector<SCaptureStep>& outSteps,
                 std::string& outError);

std::string HexString(const uint8_t* bytes, size_t length);

// The whole file; false when it cannot be opened or read.
bool ReadBinaryFile(const std::string& inPath, std::vector<uint8_t>& outBytes);

}  // namespace vxctl
