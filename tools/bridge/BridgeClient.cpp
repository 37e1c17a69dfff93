#include "BridgeClient.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bridge {

namespace {

// A listener that stops accepting (its backlog full) or reading must not hold the agent up for good:
// a blocking connect or send on a Unix socket gives up after the send timeout.
constexpr int kStallSeconds = 5;

// A reply holds at most an edited tool input; anything beyond this is not a reply of the app.
constexpr size_t kMaxReply = 64u << 20;

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return home;
    }
    // The tool is linked statically, where getpwuid would need the C library's shared NSS modules:
    // the passwd file is read as it stands instead.
    FILE* passwd = std::fopen("/etc/passwd", "re");
    if (passwd == nullptr) {
        return {};
    }
    const std::string uid = std::to_string(getuid());
    std::string home;
    char line[4096];
    while (home.empty() && std::fgets(line, sizeof line, passwd) != nullptr) {
        // name:password:uid:gid:gecos:home:shell
        std::string fields[7];
        size_t field = 0;
        for (const char* c = line; *c != '\0' && *c != '\n' && field < 7; ++c) {
            if (*c == ':') {
                ++field;
            } else if (field < 7) {
                fields[field] += *c;
            }
        }
        if (field >= 5 && fields[2] == uid) {
            home = fields[5];
        }
    }
    std::fclose(passwd);
    return home;
}

} // namespace

std::optional<std::string> socketPath() {
    std::string dir;
    if (const char* support = std::getenv("MIRROWISP_SUPPORT_DIR"); support != nullptr && *support != '\0') {
        dir = support;
    } else {
        dir = homeDirectory();
        if (dir.empty()) {
            return std::nullopt;
        }
        dir += dir.back() == '/' ? ".mirrowisp" : "/.mirrowisp";
    }
    while (dir.size() > 1 && dir.back() == '/') {
        dir.pop_back();
    }
    std::string path = dir + (dir == "/" ? "bridge.sock" : "/bridge.sock");
    if (path.size() >= sizeof(sockaddr_un{}.sun_path)) {
        return std::nullopt;
    }
    return path;
}

int connectTo(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    const timeval stall{kStallSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &stall, sizeof stall);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        // MSG_NOSIGNAL: an app that went away must not take us down with SIGPIPE.
        const ssize_t n = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

std::string readLine(int fd) {
    std::string line;
    char chunk[4096];
    while (line.size() < kMaxReply) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        const std::string_view got(chunk, static_cast<size_t>(n));
        if (const size_t newline = got.find('\n'); newline != std::string_view::npos) {
            line.append(got.substr(0, newline));
            break;
        }
        line.append(got);
    }
    return line;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

} // namespace bridge
