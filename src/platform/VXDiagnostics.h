// The driver's diagnostics: printf-style lines on standard output, worded as
// the driver's own messages are. Every line goes through VXDiagnostic, so
// that a test (or a tool) can take them instead, whole and in order, without
// redirecting the process's standard output.
#pragma once

#include <string>

void VXDiagnostic(const char* inFormat, ...) __attribute__((format(printf, 1, 2)));

// While one exists, every diagnostic is appended to Text() instead of being
// printed. Scopes nest: the innermost one takes the lines, and the one before
// it takes them again when it ends. Loop-thread only, like the driver.
class CVXDiagnosticCapture {
  public:
    CVXDiagnosticCapture();
    ~CVXDiagnosticCapture();
    CVXDiagnosticCapture(const CVXDiagnosticCapture&) = delete;
    CVXDiagnosticCapture& operator=(const CVXDiagnosticCapture&) = delete;

    const std::string& Text() const { return mText; }
    // What was captured since the last Take(), and forget it.
    std::string Take();

  private:
    friend void VXDiagnostic(const char*, ...);
    std::string mText;
    CVXDiagnosticCapture* mPrevious;
};
