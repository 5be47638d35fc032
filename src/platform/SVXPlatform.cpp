#include "platform/SVXPlatform.h"

#include <cmath>

#include "platform/CVXEventLoop.h"

namespace {
SVXPlatform sPlatform;
}

const SVXPlatform& SVXPlatform::Get() {
    return sPlatform;
}

void SVXPlatform::Install(const SVXPlatform& inPlatform) {
    sPlatform = inPlatform;
}

CVXPlatformScope::CVXPlatformScope(const SVXPlatform& inPlatform) : mPrevious(SVXPlatform::Get()) {
    SVXPlatform::Install(inPlatform);
}

CVXPlatformScope::~CVXPlatformScope() {
    SVXPlatform::Install(mPrevious);
}

double SVXPlatform::Now() {
    return sPlatform.loop ? sPlatform.loop->Now() : 0.0;
}

uint64_t CVXEventLoop::SecondsToMicros(double inSeconds) {
    if (!(inSeconds > 0)) return 0;  // negative and NaN delays fire at once
    double micros = std::ceil(inSeconds * 1e6 - 1e-6);
    // Bounded: a delay read from a stream could ask for centuries.
    if (micros > 1e15) return static_cast<uint64_t>(1e15);
    return static_cast<uint64_t>(micros);
}
