// The process-wide platform context. The driver's objects are built by static
// factories and singletons that take no context, yet actions need the loop and
// clock, the input poster, the application notifier, the front application,
// the way to the host and the way to the surface. vxd, vxctl and each test
// fixture install one with a CVXPlatformScope before building anything, and it
// outlives everything built under it. Any member may be null: whatever would
// use it then does nothing.
//
// Parts that are built with their collaborators in hand (the input parser, the
// backends) take them through their constructors instead of reading this.
#pragma once

class CVXEventLoop;
class CVXEventPoster;
class CVXAppNotifier;
class CVXFrontAppSource;
class CVXHostMIDIOut;
class CVXDeviceWriter;
class CVXControlMonitor;

struct SVXPlatform {
    CVXEventLoop* loop = nullptr;
    CVXEventPoster* poster = nullptr;
    CVXAppNotifier* notifier = nullptr;
    CVXFrontAppSource* frontApp = nullptr;
    CVXHostMIDIOut* hostMIDI = nullptr;
    CVXDeviceWriter* device = nullptr;
    CVXControlMonitor* monitor = nullptr;

    // The installed context; a context with every member null until one is.
    static const SVXPlatform& Get();
    // Seconds on the installed loop's clock, as actions compare times; without
    // a loop there is no time, and every comparison then sees 0.
    static double Now();

  private:
    friend class CVXPlatformScope;
    static void Install(const SVXPlatform& inPlatform);
};

// Installs a context for its lifetime and puts back the one before it when it
// ends, so that nested scopes (a tool inside a test, say) restore each other.
class CVXPlatformScope {
  public:
    explicit CVXPlatformScope(const SVXPlatform& inPlatform);
    ~CVXPlatformScope();
    CVXPlatformScope(const CVXPlatformScope&) = delete;
    CVXPlatformScope& operator=(const CVXPlatformScope&) = delete;

  private:
    SVXPlatform mPrevious;
};
