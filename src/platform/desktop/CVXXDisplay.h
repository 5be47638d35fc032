// One connection to an X server, shared by the key and mouse poster and the
// focus tracker. Its socket is watched by the event loop: whatever the server
// sends is read there and handed to the event handler, so nothing is polled
// and nothing piles up unread. xcb rather than Xlib: xcb reports a lost
// server as a state of the connection, where Xlib's default handler would end
// the whole daemon.
#pragma once

#include <xcb/xcb.h>

#include <functional>

#include "platform/CVXEventLoop.h"

class CVXXDisplay {
  public:
    using EventHandler = std::function<void(const xcb_generic_event_t& inEvent)>;

    // Connects to inName, or to $DISPLAY when it is null. Valid() says
    // whether that worked; nothing is printed, the caller decides.
    explicit CVXXDisplay(CVXEventLoop& inLoop, const char* inName = nullptr);
    ~CVXXDisplay();
    CVXXDisplay(const CVXXDisplay&) = delete;
    CVXXDisplay& operator=(const CVXXDisplay&) = delete;

    // Connected, and the connection has not broken since.
    bool Valid() const;
    xcb_connection_t* Connection() const { return mConnection; }
    xcb_window_t Root() const { return mRoot; }
    int ScreenNumber() const { return mScreen; }
    uint16_t Width() const { return mWidth; }
    uint16_t Height() const { return mHeight; }

    // Every event the server sends, one at a time, on the loop thread.
    void SetEventHandler(EventHandler inHandler) { mHandler = std::move(inHandler); }
    // Hands over the events xcb holds already. The loop's watch only sees the
    // socket: events that xcb read while waiting for a reply outside the
    // watch's callback (a start-up round trip) would otherwise wait for the
    // next byte from the server.
    void Dispatch();

  private:
    CVXEventLoop& mLoop;
    xcb_connection_t* mConnection = nullptr;
    xcb_window_t mRoot = XCB_NONE;
    int mScreen = 0;
    uint16_t mWidth = 0;
    uint16_t mHeight = 0;
    CVXEventLoop::WatchId mWatch = 0;
    EventHandler mHandler;
    bool mLost = false;
};
