#include "platform/VXDiagnostics.h"

#include <cstdarg>
#include <cstdio>

namespace {
CVXDiagnosticCapture* sCapture = nullptr;
}

void VXDiagnostic(const char* inFormat, ...) {
    va_list args;
    va_start(args, inFormat);
    if (!sCapture) {
        std::vprintf(inFormat, args);
        va_end(args);
        return;
    }
    va_list again;
    va_copy(again, args);
    char small[256];
    int n = std::vsnprintf(small, sizeof small, inFormat, args);
    if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
        sCapture->mText.append(small, static_cast<size_t>(n));
    } else if (n > 0) {
        std::string line(static_cast<size_t>(n), '\0');
        std::vsnprintf(line.data(), line.size() + 1, inFormat, again);
        sCapture->mText += line;
    }
    va_end(again);
    va_end(args);
}

CVXDiagnosticCapture::CVXDiagnosticCapture() : mPrevious(sCapture) {
    sCapture = this;
}

CVXDiagnosticCapture::~CVXDiagnosticCapture() {
    // Scopes end in reverse order; one that ends out of order still leaves
    // no pointer to itself behind.
    if (sCapture == this) sCapture = mPrevious;
}

std::string CVXDiagnosticCapture::Take() {
    std::string text;
    text.swap(mText);
    return text;
}
