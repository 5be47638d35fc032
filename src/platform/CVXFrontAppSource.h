// Which application is in front, as a four-character signature. Backends keep
// the answer current from window-system events, so asking is cheap and never
// blocks.
#pragma once

#include <cstdint>

class CVXFrontAppSource {
  public:
    virtual ~CVXFrontAppSource() = default;
    // False when there is no focus information at all (nothing then changes).
    virtual bool GetFrontSignature(uint32_t& outSignature) = 0;
};
