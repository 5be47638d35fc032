#include "platform/desktop/CVXUinputPoster.h"

#include <libevdev/libevdev.h>
#include <linux/input.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/VXDiagnostics.h"
#include "platform/desktop/VXKeyTable.h"

namespace {

constexpr SVXDesktopSize kFallbackDesktop{1920, 1080};

int32_t ToRange(double inValue, int32_t inSize) {
    if (!(inValue == inValue)) return 0;  // NaN
    return static_cast<int32_t>(std::clamp(std::lround(inValue), 0L, long(inSize) - 1));
}

// A device as the kernel's uinput makes it from inTemplate, or nullptr. Each
// device is one open of /dev/uinput, which libevdev keeps and closes.
libevdev_uinput* MakeDevice(libevdev* inTemplate, int* outError) {
    libevdev_uinput* device = nullptr;
    const int r =
        libevdev_uinput_create_from_device(inTemplate, LIBEVDEV_UINPUT_OPEN_MANAGED, &device);
    libevdev_free(inTemplate);
    if (r < 0) {
        *outError = r;
        return nullptr;
    }
    return device;
}

}  // namespace

CVXUinputPoster::CVXUinputPoster(int inKeyboardFd, int inPointerFd, SVXDesktopSize inDesktop)
    : mKeyboardFd(inKeyboardFd), mPointerFd(inPointerFd), mDesktop(inDesktop) {}

CVXUinputPoster::~CVXUinputPoster() {
    // Destroying a device lets the kernel release whatever it still holds.
    if (mKeyboard) libevdev_uinput_destroy(mKeyboard);
    if (mPointer) libevdev_uinput_destroy(mPointer);
}

std::unique_ptr<CVXUinputPoster> CVXUinputPoster::Open(SVXDesktopSize inDesktop, int* outError) {
    int error = 0;
    libevdev* keyboard = libevdev_new();
    libevdev_set_name(keyboard, kKeyboardName);
    libevdev_set_id_bustype(keyboard, BUS_VIRTUAL);
    // Every key of the table, and no EV_REP: a held key repeats by the
    // action's own timing, never by the kernel's.
    libevdev_enable_event_type(keyboard, EV_KEY);
    for (const SVXKey& key : VXKeyTable())
        libevdev_enable_event_code(keyboard, EV_KEY, key.evdevCode, nullptr);
    libevdev_uinput* keyboardDevice = MakeDevice(keyboard, &error);

    // An absolute pointer with a left button: what desktops take as a mouse
    // that reports positions (a virtual machine's tablet), mapped onto the
    // whole desktop.
    libevdev* pointer = libevdev_new();
    libevdev_set_name(pointer, kPointerName);
    libevdev_set_id_bustype(pointer, BUS_VIRTUAL);
    libevdev_enable_event_type(pointer, EV_KEY);
    libevdev_enable_event_code(pointer, EV_KEY, BTN_LEFT, nullptr);
    libevdev_enable_event_code(pointer, EV_KEY, BTN_RIGHT, nullptr);
    libevdev_enable_event_type(pointer, EV_ABS);
    input_absinfo x{0, 0, std::max(inDesktop.width, 1) - 1, 0, 0, 1};
    input_absinfo y{0, 0, std::max(inDesktop.height, 1) - 1, 0, 0, 1};
    libevdev_enable_event_code(pointer, EV_ABS, ABS_X, &x);
    libevdev_enable_event_code(pointer, EV_ABS, ABS_Y, &y);
    libevdev_uinput* pointerDevice =
        keyboardDevice ? MakeDevice(pointer, &error) : (libevdev_free(pointer), nullptr);
    if (!keyboardDevice || !pointerDevice) {
        if (keyboardDevice) libevdev_uinput_destroy(keyboardDevice);
        if (outError) *outError = error;
        return nullptr;
    }
    auto poster = std::make_unique<CVXUinputPoster>(
        libevdev_uinput_get_fd(keyboardDevice), libevdev_uinput_get_fd(pointerDevice), inDesktop);
    poster->mKeyboard = keyboardDevice;
    poster->mPointer = pointerDevice;
    return poster;
}

SVXDesktopSize CVXUinputPoster::ConnectedDesktopSize(const std::string& inDrmFolder) {
    namespace fs = std::filesystem;
    SVXDesktopSize size{0, 0};
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(inDrmFolder, error)) {
        std::ifstream statusFile(entry.path() / "status");
        std::string status;
        if (!std::getline(statusFile, status) || status != "connected") continue;
        // The first mode listed is the preferred one, "1920x1080".
        std::ifstream modes(entry.path() / "modes");
        std::string mode;
        int width = 0, height = 0;
        if (!std::getline(modes, mode) || std::sscanf(mode.c_str(), "%dx%d", &width, &height) != 2)
            continue;
        if (width <= 0 || height <= 0) continue;
        size.width += width;
        size.height = std::max(size.height, height);
    }
    return size.width > 0 ? size : kFallbackDesktop;
}

const char* CVXUinputPoster::KeyboardNode() const {
    return mKeyboard ? libevdev_uinput_get_devnode(mKeyboard) : nullptr;
}

const char* CVXUinputPoster::PointerNode() const {
    return mPointer ? libevdev_uinput_get_devnode(mPointer) : nullptr;
}

void CVXUinputPoster::Write(int inFd, const SEvent* inEvents, size_t inCount) {
    input_event events[4] = {};
    inCount = std::min(inCount, std::size(events));
    for (size_t i = 0; i < inCount; ++i) {
        events[i].type = inEvents[i].type;
        events[i].code = inEvents[i].code;
        events[i].value = inEvents[i].value;
    }
    // One write per report: the kernel takes the events together.
    const ssize_t n = write(inFd, events, inCount * sizeof(input_event));
    if (n == static_cast<ssize_t>(inCount * sizeof(input_event)) || mWriteFailed) return;
    mWriteFailed = true;
    VXDiagnostic("uinput: cannot post an input event (%s)\n",
                 n < 0 ? std::strerror(errno) : "short write");
}

void CVXUinputPoster::PostKeyboardEvent(uint8_t /*inCharCode*/, uint16_t inVirtualKey,
                                        bool inKeyDown) {
    const int code = VXEvdevCodeForVirtualKey(inVirtualKey);
    if (code < 0) return;
    const SEvent events[] = {{EV_KEY, uint16_t(code), inKeyDown ? 1 : 0}, {EV_SYN, SYN_REPORT, 0}};
    Write(mKeyboardFd, events, std::size(events));
}

void CVXUinputPoster::PostMouseEvent(double inX, double inY, bool inButtonDown) {
    const SEvent move[] = {{EV_ABS, ABS_X, ToRange(inX, mDesktop.width)},
                           {EV_ABS, ABS_Y, ToRange(inY, mDesktop.height)},
                           {EV_SYN, SYN_REPORT, 0}};
    Write(mPointerFd, move, std::size(move));
    if (inButtonDown == mButtonDown) return;
    mButtonDown = inButtonDown;
    const SEvent button[] = {{EV_KEY, BTN_LEFT, inButtonDown ? 1 : 0}, {EV_SYN, SYN_REPORT, 0}};
    Write(mPointerFd, button, std::size(button));
}
