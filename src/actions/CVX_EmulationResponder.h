// What a keyset in an emulation mode answers the host with at the protocol
// level: a host that expects another kind of control surface asks who is
// there, expects a connection hand-shake, asks for a firmware version or polls
// with a keep-alive, and only then trusts the control traffic of the emulation
// actions. A keyset owns at most one responder, chosen by its mode. Responders
// answer only towards the host; they never produce device bytes, so the host's
// message itself then goes on to the surface as any unanswered one does.
#pragma once

#include <cstddef>
#include <cstdint>

#include "actions/CVX_MIDIResponderMixIn.h"

class CVX_EmulationResponder : public CVX_MIDIResponderMixIn {
  public:
    // Accepts MIDI: registered with the keyset under construction.
    CVX_EmulationResponder() : CVX_MIDIResponderMixIn(true) {}

    void Name(char* outName) override;
    // The message with which the emulated surface opens the conversation,
    // sent when its keyset becomes current and when the MIDI ports come up.
    virtual void FirstMessageToHost() {}
};

// Mode B: the hand-shake of system-exclusive messages under one header.
class CVX_EmulationModeBResponder : public CVX_EmulationResponder {
  public:
    static constexpr size_t kModeBSysexHeaderSize = 5;
    static constexpr size_t kModeBDeviceQuerySize = 7;
    static constexpr size_t kModeBHostConnectionQuerySize = 18;
    static constexpr size_t kModeBHostConnectionConfirmationSize = 15;
    static constexpr size_t kModeBVersionReplySize = 12;
    static const uint8_t kModeBSysexHeader[kModeBSysexHeaderSize];
    static const uint8_t kModeBDeviceQuery[kModeBDeviceQuerySize];
    static const uint8_t kModeBHostConnectionQuery[kModeBHostConnectionQuerySize];
    static const uint8_t kModeBHostConnectionConfirmation[kModeBHostConnectionConfirmationSize];
    static const uint8_t kModeBVersionReply[kModeBVersionReplySize];

    // Messages of at least 7 bytes under the header, by their command byte:
    // the device query gets the connection query, the host's connection reply
    // (whatever it holds) the confirmation, the version request the version.
    // Always 0: the answers go to the host.
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                        size_t inLength) override;
    void Name(char* outName) override;
    // The connection query.
    void FirstMessageToHost() override;

    void RespondToDeviceQuery(const uint8_t* inMessage, size_t inLength);
    void RespondToConnectionReply(const uint8_t* inMessage, size_t inLength);
    void RespondToOfflineMessage(const uint8_t* inMessage, size_t inLength);
    void RespondToVersionRequest(const uint8_t* inMessage, size_t inLength);
    void SendMessageToHost(const uint8_t* inMessage, size_t inLength);
};

// Mode C: the host's keep-alive, answered.
class CVX_EmulationModeCResponder : public CVX_EmulationResponder {
  public:
    static constexpr size_t kModeCMessageSize = 3;
    static const uint8_t kModeCActiveSense[kModeCMessageSize];
    static const uint8_t kModeCActiveSenseResponse[kModeCMessageSize];

    // A message that begins 90 00 00 gets 90 00 7F. Always 0.
    size_t UnmapMessage(const uint8_t* inMessage, uint8_t* outUnmappedMessage,
                        size_t inLength) override;
    void Name(char* outName) override;
};
