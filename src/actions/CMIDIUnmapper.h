// A keyset's registry of the objects that answer host MIDI. Its responder lists
// and the cutting of host MIDI come with the MIDI path; until then a keyset
// holds an empty one so that everything that asks for it finds it.
#pragma once

class CMIDIUnmapper {
  public:
    CMIDIUnmapper() = default;
    CMIDIUnmapper(const CMIDIUnmapper&) = delete;
    CMIDIUnmapper& operator=(const CMIDIUnmapper&) = delete;
};
