#include "ProcFs.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace bridge {

namespace {

std::string entryPath(const std::string& root, pid_t pid, const char* name) {
    return root + '/' + std::to_string(pid) + '/' + name;
}

} // namespace

bool readProcess(const std::string& root, pid_t pid, Process& out) {
    const int fd = open(entryPath(root, pid, "stat").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buf[512];
    const ssize_t n = read(fd, buf, sizeof buf - 1);
    close(fd);
    if (n <= 0) {
        return false;
    }
    buf[n] = '\0';
    // The name may itself hold ") ", so the fields start after the last ')'.
    const char* open = std::strchr(buf, '(');
    const char* close = std::strrchr(buf, ')');
    if (open == nullptr || close == nullptr || close < open) {
        return false;
    }
    const auto nameLength = std::min(static_cast<size_t>(close - open - 1), sizeof out.comm - 1);
    std::memcpy(out.comm, open + 1, nameLength);
    out.comm[nameLength] = '\0';
    char state = 0;
    int ppid = 0;
    int group = 0;
    int session = 0;
    int tty = 0;
    if (std::sscanf(close + 1, " %c %d %d %d %d", &state, &ppid, &group, &session, &tty) != 5) {
        return false;
    }
    out.pid = pid;
    out.ppid = ppid;
    out.session = session;
    out.ttyNr = tty;
    return true;
}

std::string readLink(const std::string& root, pid_t pid, const char* name) {
    char target[4096];
    const ssize_t n = readlink(entryPath(root, pid, name).c_str(), target, sizeof target);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof target) {
        return {};
    }
    return std::string(target, static_cast<size_t>(n));
}

std::string readEntry(const std::string& root, pid_t pid, const char* name, size_t limit) {
    const int fd = open(entryPath(root, pid, name).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    std::string out(limit, '\0');
    size_t used = 0;
    while (used < limit) {
        const ssize_t n = read(fd, out.data() + used, limit - used);
        if (n <= 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    close(fd);
    out.resize(used);
    return out;
}

} // namespace bridge
