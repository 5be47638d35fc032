// How the serial bridge frames what the surface sends: every 64-byte USB packet
// starts with a modem-status and a line-status byte (11 60 on a healthy line),
// leaving 62 bytes of MIDI per packet. Tools and tests use this to turn plain
// MIDI into reads as the driver receives them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr uint8_t kVXBridgeModemStatus = 0x11;
constexpr uint8_t kVXBridgeLineStatus = 0x60;
constexpr size_t kVXBridgePacketSize = 64;
constexpr size_t kVXBridgePacketPayload = kVXBridgePacketSize - 2;

std::vector<uint8_t> VXFrameBridgeRead(const uint8_t* inMIDI, size_t inLength);

inline std::vector<uint8_t> VXFrameBridgeRead(const std::vector<uint8_t>& inMIDI) {
    return VXFrameBridgeRead(inMIDI.data(), inMIDI.size());
}
