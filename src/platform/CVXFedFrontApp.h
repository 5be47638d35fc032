// The front application as a focus helper reports it, for desktops where the
// driver cannot see the focus itself (Wayland compositors). Once fed, it
// answers the fed application's signature, mapped through the applications
// map as an X11 window class is; until then it asks the source it wraps.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/CVXFrontAppSource.h"

class CVXApplicationMap;

class CVXFedFrontApp : public CVXFrontAppSource {
  public:
    // Neither is owned; either may be null (no other source; no map, so that
    // every fed application is unknown).
    CVXFedFrontApp(CVXFrontAppSource* inWrapped, const CVXApplicationMap* inMap)
        : mWrapped(inWrapped), mMap(inMap) {}

    // From now on inApplication is in front. The name is kept, not its
    // signature, so that a map read again applies at once.
    void Feed(std::string_view inApplication);
    bool IsFed() const { return mFed; }

    bool GetFrontSignature(uint32_t& outSignature) override;

  private:
    CVXFrontAppSource* mWrapped;
    const CVXApplicationMap* mMap;
    std::string mApplication;
    bool mFed = false;
};
