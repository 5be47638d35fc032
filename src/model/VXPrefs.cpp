#include "model/VXPrefs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

// An environment variable's value, or empty when it is unset.
std::string EnvValue(const char* inName) {
    const char* value = std::getenv(inName);
    return value ? std::string(value) : std::string();
}

}  // namespace

std::string VXPrefsFolder() {
    std::string base = EnvValue("XDG_CONFIG_HOME");
    if (base.empty()) {
        std::string home = EnvValue("HOME");
        // Without a home there is no user folder to look in; the driver then
        // runs with its default keyset, as it does when the file is missing.
        if (home.empty()) return std::string();
        base = home + "/.config";
    }
    if (base.back() != '/') base += '/';
    return base + "velorix/";
}

std::string VXPrefsFilePath() {
    std::string folder = VXPrefsFolder();
    if (folder.empty()) return folder;
    return folder + kVXPrefsFileName;
}

int OpenPrefsFile() {
    std::string path = VXPrefsFilePath();
    if (path.empty()) return -1;
    // Read-only: the editor application owns the file. O_NONBLOCK keeps a FIFO
    // put in its place from holding start-up until a writer appears; it has no
    // effect on a regular file.
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool LoadPreferences(std::vector<uint8_t>& outData) {
    outData.clear();
    int fd = OpenPrefsFile();
    if (fd < 0) return false;

    bool ok = false;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
        static_cast<uint64_t>(info.st_size) <= kVXPrefsMaxSize) {
        size_t size = static_cast<size_t>(info.st_size);
        outData.assign(size, 0);
        size_t done = 0;
        while (done < size) {
            ssize_t got = ::read(fd, outData.data() + done, size - done);
            if (got < 0 && errno == EINTR) continue;
            // An error, or a file that shrank while it was read: not whole.
            if (got <= 0) break;
            done += static_cast<size_t>(got);
        }
        ok = done == size;
    }
    ::close(fd);
    if (!ok) outData.clear();
    return ok;
}
