// Recording receivers of what the input parser produces: notify records and
// messages for the host, kept in one ordered log so that tests can check both
// the contents and the interleaving.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver/CVXRecordSink.h"
#include "platform/CVXMIDISystem.h"

struct SRecordedEvent {
    bool toHost;  // false: a notify record; true: a message for the host
    std::vector<uint8_t> bytes;
    bool operator==(const SRecordedEvent&) const = default;
};

// Also a MIDI system whose sign-in always succeeds, so that a whole driver
// can send to it.
class CRecordingParserOutput : public CVXRecordSink, public CVXMIDISystem {
  public:
    int SignIn(const char*, const char*, const char*, CVXHostMIDIIn*) override { return 0; }
    void SignOut() override {}
    const char* Name() const override { return "recording"; }
    void Service(const uint8_t* record) override {
        mEvents.push_back({false, std::vector<uint8_t>(record, record + record[0])});
    }
    void Send(const uint8_t* bytes, size_t length) override {
        mEvents.push_back({true, std::vector<uint8_t>(bytes, bytes + length)});
    }

    std::vector<std::vector<uint8_t>> Records() const {
        std::vector<std::vector<uint8_t>> out;
        for (const auto& e : mEvents)
            if (!e.toHost) out.push_back(e.bytes);
        return out;
    }
    std::vector<std::vector<uint8_t>> HostMessages() const {
        std::vector<std::vector<uint8_t>> out;
        for (const auto& e : mEvents)
            if (e.toHost) out.push_back(e.bytes);
        return out;
    }

    std::vector<SRecordedEvent> mEvents;
};
