// A keyset's registry of the objects that answer host MIDI, and the
// translation of host MIDI into device bytes. The host-MIDI read procedure
// hands each packet to the current keyset's unmapper, which cuts it into
// messages and asks every registered responder about each one; the answers of
// all responders that recognise a message replace it, and a message that no
// responder answers goes to the surface unchanged.
//
// Nothing on this path allocates: the lists only change while keysets are
// built or destroyed, and answers are written into the caller's buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class CVX_MIDIResponderMixIn;

class CMIDIUnmapper {
  public:
    static constexpr size_t kReservedResponders = 50;

    CMIDIUnmapper();
    // Responders still listed forget it: one that outlives its keyset's
    // unmapper never reaches back into it.
    virtual ~CMIDIUnmapper();
    CMIDIUnmapper(const CMIDIUnmapper&) = delete;
    CMIDIUnmapper& operator=(const CMIDIUnmapper&) = delete;

    // On the unmapper of the keyset under construction; nothing when no keyset
    // is under construction. Add appends without checking for duplicates;
    // Remove erases the first entry equal to inResponder, if there is one.
    static void AddCustomMIDIAction(CVX_MIDIResponderMixIn* inResponder);
    static void RemoveCustomMIDIAction(CVX_MIDIResponderMixIn* inResponder);
    static void AddCustomChannelMIDIAction(CVX_MIDIResponderMixIn* inResponder);
    static void RemoveCustomChannelMIDIAction(CVX_MIDIResponderMixIn* inResponder);

    // Every entry of inResponder, from both lists.
    void Forget(CVX_MIDIResponderMixIn* inResponder);

    // Translates *ioLength host bytes into device bytes at outBytes, which has
    // room for inRoom bytes. *ioLength becomes the number of device bytes the
    // translation makes, even where that is more than inRoom: only the first
    // inRoom of them are written, and the caller refuses the rest. True when
    // that number is not 0.
    bool UnmapHostMIDI(const uint8_t* inBytes, uint8_t* outBytes, size_t* ioLength, size_t inRoom);
    // Asks every responder about one message of *ioLength bytes, the general
    // list first, then the channel list, each in registration order, and
    // concatenates their answers at outBytes (room for inRoom bytes, as
    // above). *ioLength becomes the answers' total; true when it is not 0.
    bool UnmapOneMessage(const uint8_t* inMessage, uint8_t* outBytes, size_t* ioLength,
                         size_t inRoom);
    // The length of the message at inBytes, taken from *ioRemaining bytes:
    // its first byte, whatever it is, and every byte after it up to the next
    // status byte other than 0xF7 (which counts as data). There is no
    // running-status splitting, and a real-time byte starts a message of its
    // own with the data bytes after it. 0 when nothing remains.
    static size_t GetMessageLength(const uint8_t* inBytes, size_t* ioRemaining);

    const std::vector<CVX_MIDIResponderMixIn*>& GetCustomMIDIActions() const {
        return mCustomMIDIActions;
    }
    const std::vector<CVX_MIDIResponderMixIn*>& GetCustomChannelMIDIActions() const {
        return mCustomChannelMIDIActions;
    }

  private:
    using ResponderList = std::vector<CVX_MIDIResponderMixIn*>;

    static CMIDIUnmapper* UnmapperUnderConstruction();
    void Enlist(ResponderList& ioList, CVX_MIDIResponderMixIn* inResponder);
    void Delist(ResponderList& ioList, CVX_MIDIResponderMixIn* inResponder);
    size_t AskList(const ResponderList& inList, const uint8_t* inMessage, size_t inLength,
                   uint8_t* outBytes, size_t inRoom, size_t inTotal);

    ResponderList mCustomMIDIActions;
    ResponderList mCustomChannelMIDIActions;
};
