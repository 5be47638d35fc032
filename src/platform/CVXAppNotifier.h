// Fire-and-forget notifications to an application named by its four-character
// signature: the button, fader and channel-button events that special actions
// send ('QBtn', 'QFad', 'QCBt'), each with 32-bit integer parameters under
// four-character keywords, in order.
#pragma once

#include <cstdint>
#include <vector>

struct SVXEventParam {
    uint32_t keyword;
    int32_t value;
    bool operator==(const SVXEventParam&) const = default;
};

class CVXAppNotifier {
  public:
    virtual ~CVXAppNotifier() = default;
    // Returns false when the event could not be sent.
    virtual bool SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                                      const std::vector<SVXEventParam>& inParams) = 0;
};
