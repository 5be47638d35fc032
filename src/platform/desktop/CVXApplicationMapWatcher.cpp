#include "platform/desktop/CVXApplicationMapWatcher.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "platform/VXDiagnostics.h"

namespace {

// What a change of the file looks like in its folder: written and closed,
// renamed into place (editors that save through a temporary file), removed
// or renamed away. A creation is followed by its close.
constexpr uint32_t kFileEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
// The folder itself going away ends its watch (IN_IGNORED follows).
constexpr uint32_t kFolderEvents = kFileEvents | IN_DELETE_SELF | IN_MOVE_SELF;
// The folder appearing in its parent.
constexpr uint32_t kParentEvents = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;

}  // namespace

CVXApplicationMapWatcher::CVXApplicationMapWatcher(CVXEventLoop& inLoop, std::string inPath)
    : mLoop(inLoop), mPath(std::move(inPath)) {
    const std::filesystem::path path(mPath);
    mFolder = path.parent_path().string();
    mParent = path.parent_path().parent_path().string();
    mFolderName = path.parent_path().filename().string();
    mFileName = path.filename().string();
    Load();
    if (mPath.empty() || mFolder.empty()) return;
    mInotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (mInotify < 0) return;
    mWatch = mLoop.AddIOWatch(mInotify, EPOLLIN, [this](uint32_t) { OnEvents(); });
    WatchFolder();
}

CVXApplicationMapWatcher::~CVXApplicationMapWatcher() {
    if (mWatch != 0) mLoop.RemoveIOWatch(mWatch);
    if (mInotify >= 0) close(mInotify);
}

void CVXApplicationMapWatcher::Load() {
    if (mPath.empty()) return;
    std::vector<std::string> errors;
    if (!mMap.Load(mPath, &errors)) {
        VXDiagnostic("applications file %s: cannot be read\n", mPath.c_str());
        return;
    }
    for (const std::string& error : errors)
        VXDiagnostic("applications file %s: %s\n", mPath.c_str(), error.c_str());
}

void CVXApplicationMapWatcher::WatchFolder() {
    mFolderWatch = inotify_add_watch(mInotify, mFolder.c_str(), kFolderEvents);
    if (mFolderWatch >= 0) {
        if (mParentWatch >= 0) inotify_rm_watch(mInotify, mParentWatch);
        mParentWatch = -1;
        return;
    }
    if (mParentWatch < 0 && !mParent.empty())
        mParentWatch = inotify_add_watch(mInotify, mParent.c_str(), kParentEvents);
}

void CVXApplicationMapWatcher::OnEvents() {
    alignas(inotify_event) char buffer[4096];
    bool fileChanged = false;
    bool folderChanged = false;
    for (;;) {
        const ssize_t n = read(mInotify, buffer, sizeof buffer);
        if (n <= 0) break;
        for (ssize_t at = 0; at < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            const std::string name = event->len > 0 ? event->name : "";
            if (event->wd == mFolderWatch) {
                if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
                    folderChanged = true;  // gone: wait for it in the parent
                    inotify_rm_watch(mInotify, mFolderWatch);
                    mFolderWatch = -1;
                } else if (name == mFileName) {
                    fileChanged = true;
                }
            } else if (event->wd == mParentWatch && name == mFolderName) {
                folderChanged = true;  // created: its file may be there already
            }
        }
    }
    if (folderChanged) {
        WatchFolder();
        fileChanged = true;
    }
    // A burst of events (an editor's save) gives one reading.
    if (!fileChanged) return;
    Load();
    if (mOnChange) mOnChange();
}
