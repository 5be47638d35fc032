#include "driver/VXBridgeFraming.h"

#include <algorithm>

std::vector<uint8_t> VXFrameBridgeRead(const uint8_t* inMIDI, size_t inLength) {
    std::vector<uint8_t> read;
    read.reserve(inLength + 2 * (inLength / kVXBridgePacketPayload + 1));
    for (size_t off = 0; off < inLength; off += kVXBridgePacketPayload) {
        read.push_back(kVXBridgeModemStatus);
        read.push_back(kVXBridgeLineStatus);
        size_t n = std::min(kVXBridgePacketPayload, inLength - off);
        read.insert(read.end(), inMIDI + off, inMIDI + off + n);
    }
    return read;
}
