#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace mirrowisp::test {

// A plain blocking Unix-socket client, the way a hook tool talks to the app.
class SocketClient {
public:
    SocketClient() = default;
    ~SocketClient();
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    bool connectTo(const QString& path);
    bool send(const QByteArray& bytes);
    void shutdownWrite();
    void close();
    // Reads until end of file; nothing when `timeoutMs` passes first.
    std::optional<QByteArray> readToEnd(int timeoutMs = 5000);
    // True when the server has closed its side (end of file is readable without blocking long).
    bool sawEndOfFile(int timeoutMs);
    // True once the server has closed its side, whether or not its data has been read yet.
    bool peerClosed(int timeoutMs);
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

} // namespace mirrowisp::test
