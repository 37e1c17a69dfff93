#pragma once

// The client side of a hook, for the benchmarks that talk to a bridge socket.
#include <QByteArray>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace mirrowisp::bench {

inline int connectTo(const QByteArray& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // A server that never answers shows as a failed round trip, not as a bench that hangs.
    const timeval limit{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

inline bool sendAll(int fd, const QByteArray& bytes) {
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n =
            ::send(fd, bytes.constData() + sent, static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += n;
    }
    return true;
}

// One hook-like round trip: connect, one line, read the answer to end of file.
inline bool roundTrip(const QByteArray& path, const QByteArray& line) {
    const int fd = connectTo(path);
    if (fd < 0) {
        return false;
    }
    bool ok = sendAll(fd, line);
    char buffer[512];
    ssize_t n = 0;
    qsizetype total = 0;
    while (ok && (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
        total += n;
    }
    ::close(fd);
    return ok && total > 0;
}

} // namespace mirrowisp::bench
