#include "platform/midi/VXMIDIMessages.h"

#include <vector>

int VXMIDIDataBytes(uint8_t inStatus) {
    if (inStatus < 0xF0) {
        const uint8_t kind = inStatus & 0xF0;
        return kind == 0xC0 || kind == 0xD0 ? 1 : 2;
    }
    switch (inStatus) {
        case 0xF0:
            return -1;
        case 0xF1:  // time code quarter frame
        case 0xF3:  // song select
            return 1;
        case 0xF2:  // song position
            return 2;
        default:  // tune request, undefined system common, real-time
            return 0;
    }
}

void VXCutMIDIMessages(const uint8_t* inBytes, size_t inLength, const VXMIDIMessageFn& inMessage) {
    uint8_t message[3];   // the channel or system common message being completed
    size_t have = 0;      // its bytes so far; 0: none under way
    size_t need = 0;      // its full length
    uint8_t running = 0;  // the last channel status, for running status
    std::vector<uint8_t> sysex;
    bool inSysex = false;

    const auto endSysex = [&] {
        inMessage(sysex.data(), sysex.size());
        sysex.clear();
        inSysex = false;
    };
    for (size_t i = 0; i < inLength; ++i) {
        const uint8_t byte = inBytes[i];
        if (byte >= 0xF8) {  // real-time: between any two bytes, alone
            inMessage(&byte, 1);
            continue;
        }
        if (inSysex) {
            if (byte < 0x80 || byte == 0xF7) {
                sysex.push_back(byte);
                if (byte == 0xF7) endSysex();
                continue;
            }
            endSysex();  // cut short by the next message's status
        }
        if (byte >= 0x80) {
            have = 0;                    // a message still short of data bytes is abandoned
            if (byte == 0xF7) continue;  // end of a system-exclusive never begun
            if (byte == 0xF0) {
                running = 0;
                inSysex = true;
                sysex.push_back(byte);
                continue;
            }
            running = byte < 0xF0 ? byte : 0;  // system common cancels running status
            message[0] = byte;
            have = 1;
            need = 1 + size_t(VXMIDIDataBytes(byte));
        } else if (have > 0) {
            message[have++] = byte;
        } else if (running) {
            message[0] = running;
            message[1] = byte;
            have = 2;
            need = 1 + size_t(VXMIDIDataBytes(running));
        } else {
            continue;  // a data byte that belongs to nothing
        }
        if (have == need) {
            inMessage(message, have);
            have = 0;
        }
    }
    if (inSysex) endSysex();
}
