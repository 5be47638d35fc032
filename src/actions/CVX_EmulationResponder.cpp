#include "actions/CVX_EmulationResponder.h"

#include <algorithm>
#include <cstring>

namespace {
// The serial number the emulated surface reports, the same in the connection
// query and the confirmation.
#define VX_MODE_B_SERIAL 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37  // "1234567"

constexpr uint8_t kDeviceQuery = 0x00;
constexpr uint8_t kConnectionReply = 0x02;
constexpr uint8_t kGoingOffline = 0x0F;
constexpr uint8_t kVersionRequest = 0x13;
constexpr size_t kCommandByte = 5;
}  // namespace

const uint8_t CVX_EmulationModeBResponder::kModeBSysexHeader[] = {0xF0, 0x00, 0x00, 0x66, 0x10};
const uint8_t CVX_EmulationModeBResponder::kModeBDeviceQuery[] = {0xF0, 0x00, 0x00, 0x66,
                                                                  0x10, 0x00, 0xF7};
const uint8_t CVX_EmulationModeBResponder::kModeBHostConnectionQuery[] = {
    0xF0, 0x00, 0x00, 0x66, 0x10, 0x01, VX_MODE_B_SERIAL, 0x01, 0x01, 0x01, 0x01, 0xF7};
const uint8_t CVX_EmulationModeBResponder::kModeBHostConnectionConfirmation[] = {
    0xF0, 0x00, 0x00, 0x66, 0x10, 0x03, VX_MODE_B_SERIAL, 0xF7};
const uint8_t CVX_EmulationModeBResponder::kModeBVersionReply[] = {
    0xF0, 0x00, 0x00, 0x66, 0x10, 0x14, 0x56, 0x32, 0x2E, 0x30, 0x30, 0xF7};  // "V2.00"

const uint8_t CVX_EmulationModeCResponder::kModeCActiveSense[] = {0x90, 0x00, 0x00};
const uint8_t CVX_EmulationModeCResponder::kModeCActiveSenseResponse[] = {0x90, 0x00, 0x7F};

void CVX_EmulationResponder::Name(char* outName) {
    std::strncpy(outName, "CVX_EmulationResponder", kVXResponderNameSize);
}

size_t CVX_EmulationModeBResponder::UnmapMessage(const uint8_t* inMessage, uint8_t*,
                                                 size_t inLength) {
    if (inLength < kModeBDeviceQuerySize) return 0;
    if (std::memcmp(inMessage, kModeBSysexHeader, kModeBSysexHeaderSize) != 0) return 0;
    switch (inMessage[kCommandByte]) {
        case kDeviceQuery:
            RespondToDeviceQuery(inMessage, inLength);
            break;
        case kConnectionReply:
            RespondToConnectionReply(inMessage, inLength);
            break;
        case kGoingOffline:
            RespondToOfflineMessage(inMessage, inLength);
            break;
        case kVersionRequest:
            RespondToVersionRequest(inMessage, inLength);
            break;
        default:
            break;
    }
    return 0;
}

void CVX_EmulationModeBResponder::Name(char* outName) {
    std::strncpy(outName, "CVX_EmulationModeBResponder", kVXResponderNameSize);
}

void CVX_EmulationModeBResponder::FirstMessageToHost() {
    SendMessageToHost(kModeBHostConnectionQuery, kModeBHostConnectionQuerySize);
}

void CVX_EmulationModeBResponder::RespondToDeviceQuery(const uint8_t*, size_t) {
    SendMessageToHost(kModeBHostConnectionQuery, kModeBHostConnectionQuerySize);
}

void CVX_EmulationModeBResponder::RespondToConnectionReply(const uint8_t*, size_t) {
    // The host's reply is not checked: any reply is confirmed.
    SendMessageToHost(kModeBHostConnectionConfirmation, kModeBHostConnectionConfirmationSize);
}

void CVX_EmulationModeBResponder::RespondToOfflineMessage(const uint8_t*, size_t) {}

void CVX_EmulationModeBResponder::RespondToVersionRequest(const uint8_t*, size_t) {
    SendMessageToHost(kModeBVersionReply, kModeBVersionReplySize);
}

void CVX_EmulationModeBResponder::SendMessageToHost(const uint8_t* inMessage, size_t inLength) {
    // Every answer is one system-exclusive message and ends at its F7. The
    // confirmation's stored size counts one byte more than its bytes (fifteen
    // for fourteen): that byte is no part of the message, and sent after the
    // F7 it would reach the host as a stray data byte.
    const uint8_t* end = std::find(inMessage, inMessage + inLength, uint8_t{0xF7});
    MIDIToHost(inMessage, end == inMessage + inLength ? inLength : size_t(end - inMessage) + 1);
}

size_t CVX_EmulationModeCResponder::UnmapMessage(const uint8_t* inMessage, uint8_t*,
                                                 size_t inLength) {
    if (inLength >= kModeCMessageSize &&
        std::memcmp(inMessage, kModeCActiveSense, kModeCMessageSize) == 0) {
        MIDIToHost(kModeCActiveSenseResponse, kModeCMessageSize);
    }
    return 0;
}

void CVX_EmulationModeCResponder::Name(char* outName) {
    std::strncpy(outName, "CVX_EmulationModeCResponder", kVXResponderNameSize);
}
