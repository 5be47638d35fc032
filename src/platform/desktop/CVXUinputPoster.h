// Key and mouse input through the kernel's uinput: a virtual keyboard and an
// absolute pointer that any Linux desktop (X11, Wayland, the console) takes
// as real devices. The poster writes input events to the two devices' file
// descriptors; tests give it any descriptor that stands in for them.
#pragma once

#include <libevdev/libevdev-uinput.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/CVXEventPoster.h"

// The desktop in pixels, which the pointer's absolute range covers: one unit
// of the range is one pixel, so a point of a keyset is the value posted.
struct SVXDesktopSize {
    int32_t width;
    int32_t height;
};

class CVXUinputPoster : public CVXEventPoster {
  public:
    static constexpr const char* kKeyboardName = "Velorix Series keyboard";
    static constexpr const char* kPointerName = "Velorix Series pointer";

    // Writes to the two descriptors (not owned); the pointer's range is
    // inDesktop.
    CVXUinputPoster(int inKeyboardFd, int inPointerFd, SVXDesktopSize inDesktop);
    ~CVXUinputPoster() override;
    CVXUinputPoster(const CVXUinputPoster&) = delete;
    CVXUinputPoster& operator=(const CVXUinputPoster&) = delete;

    // Creates both devices through /dev/uinput, or returns nullptr with the
    // negative errno in outError (-EACCES without the permission).
    static std::unique_ptr<CVXUinputPoster> Open(SVXDesktopSize inDesktop, int* outError);
    // The desktop as the kernel's display connectors report it: the modes
    // of the connected ones side by side (the sum of their widths, the
    // largest height), or 1920 x 1080 when none says.
    static SVXDesktopSize ConnectedDesktopSize(const std::string& inDrmFolder = "/sys/class/drm");

    // The key at the virtual key's place (EV_KEY, then SYN_REPORT); a
    // virtual key no key has posts nothing.
    void PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey, bool inKeyDown) override;
    // The pointer to the point (ABS_X, ABS_Y, SYN_REPORT), clamped to the
    // range; then BTN_LEFT and SYN_REPORT if the button changes.
    void PostMouseEvent(double inX, double inY, bool inButtonDown) override;

    const char* KeyboardNode() const;
    const char* PointerNode() const;
    SVXDesktopSize Desktop() const { return mDesktop; }

  private:
    struct SEvent {
        uint16_t type, code;
        int32_t value;
    };
    void Write(int inFd, const SEvent* inEvents, size_t inCount);

    int mKeyboardFd;
    int mPointerFd;
    SVXDesktopSize mDesktop;
    bool mButtonDown = false;
    bool mWriteFailed = false;             // said once
    libevdev_uinput* mKeyboard = nullptr;  // the devices, when Open made them
    libevdev_uinput* mPointer = nullptr;
};
