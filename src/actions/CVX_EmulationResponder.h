// What a keyset in an emulation mode answers the host with. A keyset owns at
// most one; waking the keyset (it became current) lets the responder open the
// emulated protocol's conversation.
#pragma once

class CVX_EmulationResponder {
  public:
    virtual ~CVX_EmulationResponder() = default;
    virtual void FirstMessageToHost() = 0;
};
