// The applications map of the config folder, kept current: the file is read
// at start and again whenever it changes (written, replaced, created or
// removed), seen through inotify on the folder, so that a user can add an
// application without restarting anything. Any source of the front
// application (the X11 tracker, a focus helper on the bus) maps its names
// through it.
#pragma once

#include <functional>
#include <string>

#include "platform/CVXEventLoop.h"
#include "service/CVXApplicationMap.h"

class CVXApplicationMapWatcher {
  public:
    // Reads inPath and watches its folder on inLoop. A folder that does not
    // exist yet is waited for in the folder above it (the usual case before a
    // user has written anything to ~/.config/velorix/).
    explicit CVXApplicationMapWatcher(CVXEventLoop& inLoop,
                                      std::string inPath = CVXApplicationMap::DefaultPath());
    ~CVXApplicationMapWatcher();
    CVXApplicationMapWatcher(const CVXApplicationMapWatcher&) = delete;
    CVXApplicationMapWatcher& operator=(const CVXApplicationMapWatcher&) = delete;

    const CVXApplicationMap& Map() const { return mMap; }
    const std::string& Path() const { return mPath; }
    // Called after each reading that follows a change of the file.
    void SetChangeHandler(std::function<void()> inHandler) { mOnChange = std::move(inHandler); }
    // Whether changes are seen (inotify and a folder to watch were there).
    bool Watching() const { return mFolderWatch >= 0 || mParentWatch >= 0; }

  private:
    // Reads the file; malformed lines and an unreadable file are reported.
    void Load();
    // Watches the folder, or its parent while the folder is missing.
    void WatchFolder();
    void OnEvents();

    CVXEventLoop& mLoop;
    std::string mPath;
    std::string mFolder;
    std::string mParent;
    std::string mFolderName;  // mFolder's last component, looked for in mParent
    std::string mFileName;
    CVXApplicationMap mMap;
    std::function<void()> mOnChange;
    int mInotify = -1;
    int mFolderWatch = -1;
    int mParentWatch = -1;
    CVXEventLoop::WatchId mWatch = 0;
};
