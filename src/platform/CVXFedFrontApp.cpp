#include "platform/CVXFedFrontApp.h"

#include "service/CVXApplicationMap.h"

void CVXFedFrontApp::Feed(std::string_view inApplication) {
    mApplication = inApplication;
    mFed = true;
}

bool CVXFedFrontApp::GetFrontSignature(uint32_t& outSignature) {
    if (!mFed) return mWrapped && mWrapped->GetFrontSignature(outSignature);
    outSignature = mMap ? mMap->SignatureFor(mApplication) : CVXApplicationMap::kUnknownApplication;
    return true;
}
