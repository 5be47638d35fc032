// The process-wide platform context. The driver's objects are built by static
// factories and singletons that take no context, yet actions need the loop and
// clock, the input poster, the application notifier, the front application and
// the way to the host. vxd, vxctl and each test fixture install one before
// building anything, and it outlives everything built under it. Any member may
// be null: whatever would use it then does nothing.
#pragma once

class CVXEventLoop;
class CVXEventPoster;
class CVXAppNotifier;
class CVXFrontAppSource;
class CVXHostMIDIOut;

struct SVXPlatform {
    CVXEventLoop* loop = nullptr;
    CVXEventPoster* poster = nullptr;
    CVXAppNotifier* notifier = nullptr;
    CVXFrontAppSource* frontApp = nullptr;
    CVXHostMIDIOut* hostMIDI = nullptr;

    // The installed context; a context with every member null until one is.
    static SVXPlatform& Get();
    static void Install(const SVXPlatform& inPlatform);
    static void Uninstall() { Install(SVXPlatform{}); }
    // Seconds on the installed loop's clock, as actions compare times; without
    // a loop there is no time, and every comparison then sees 0.
    static double Now();
};
