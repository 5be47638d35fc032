#include "platform/desktop/CVXXDisplay.h"

#include <sys/epoll.h>

#include <cstdlib>

#include "platform/VXDiagnostics.h"

CVXXDisplay::CVXXDisplay(CVXEventLoop& inLoop, const char* inName) : mLoop(inLoop) {
    int screenNumber = 0;
    mConnection = xcb_connect(inName, &screenNumber);
    if (xcb_connection_has_error(mConnection)) {
        xcb_disconnect(mConnection);
        mConnection = nullptr;
        return;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(mConnection));
    for (int i = 0; screens.rem > 0 && i < screenNumber; ++i) xcb_screen_next(&screens);
    if (screens.rem == 0) {
        xcb_disconnect(mConnection);
        mConnection = nullptr;
        return;
    }
    mScreen = screenNumber;
    mRoot = screens.data->root;
    mWidth = screens.data->width_in_pixels;
    mHeight = screens.data->height_in_pixels;
    mWatch = mLoop.AddIOWatch(xcb_get_file_descriptor(mConnection), EPOLLIN,
                              [this](uint32_t) { Dispatch(); });
    if (mWatch == 0) {
        xcb_disconnect(mConnection);
        mConnection = nullptr;
    }
}

CVXXDisplay::~CVXXDisplay() {
    if (mWatch != 0) mLoop.RemoveIOWatch(mWatch);
    if (mConnection) xcb_disconnect(mConnection);
}

bool CVXXDisplay::Valid() const {
    return mConnection != nullptr && !mLost;
}

void CVXXDisplay::Dispatch() {
    if (!Valid()) return;
    while (xcb_generic_event_t* event = xcb_poll_for_event(mConnection)) {
        if (mHandler) mHandler(*event);
        std::free(event);
    }
    if (xcb_connection_has_error(mConnection)) {
        // The server went away (or broke the connection): said once, and
        // from here on the desktop is simply not there.
        mLost = true;
        mLoop.RemoveIOWatch(mWatch);
        mWatch = 0;
        VXDiagnostic("X display: connection lost; key, mouse and focus go nowhere now\n");
    }
}
