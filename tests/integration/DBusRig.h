// A private session bus for the program's lifetime: `dbus-daemon --session
// --fork --nopidfile --print-address=1 --print-pid=1`, pointed at by
// DBUS_SESSION_BUS_ADDRESS while the rig lives (children inherit it), ended
// and the variable restored when it goes. No gtest here: the end-to-end test
// uses it too.
#pragma once

#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

class CDBusDaemon {
  public:
    CDBusDaemon() {
        if (const char* old = std::getenv("DBUS_SESSION_BUS_ADDRESS")) mOld = old;
        // The daemon forks and its first process exits once the bus is up and
        // both lines are written, so reading to the end waits for it.
        // Without any preload of the test's own (umockdev's, a sanitizer's):
        // the daemon is not what is tested.
        FILE* out = popen(
            "env -u LD_PRELOAD -u UMOCKDEV_DIR dbus-daemon --session --fork "
            "--nopidfile --print-address=1 --print-pid=1",
            "r");
        if (!out) return;
        char line[512];
        if (fgets(line, sizeof line, out)) mAddress = Trim(line);
        if (fgets(line, sizeof line, out)) mPid = std::atoi(line);
        pclose(out);
        if (Running()) setenv("DBUS_SESSION_BUS_ADDRESS", mAddress.c_str(), 1);
    }
    ~CDBusDaemon() {
        if (mPid > 0) kill(mPid, SIGTERM);  // not our child: nothing to reap
        if (mOld)
            setenv("DBUS_SESSION_BUS_ADDRESS", mOld->c_str(), 1);
        else
            unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    CDBusDaemon(const CDBusDaemon&) = delete;
    CDBusDaemon& operator=(const CDBusDaemon&) = delete;

    bool Running() const { return mPid > 0 && !mAddress.empty(); }
    const std::string& Address() const { return mAddress; }

  private:
    static std::string Trim(std::string inText) {
        while (!inText.empty() && (inText.back() == '\n' || inText.back() == ' '))
            inText.pop_back();
        return inText;
    }

    std::string mAddress;
    pid_t mPid = 0;
    std::optional<std::string> mOld;
};
