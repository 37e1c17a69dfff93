#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace mirrowisp::test {

// A plain blocking Unix-socket client, the way a hook tool talks to the app: connected by path, or
// handed the tool's end of a connection's socket pair.
class SocketClient {
public:
    SocketClient() = default;
    explicit SocketClient(int fd) : fd_(fd) {}
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

    // True while the app has neither answered nor closed.
    bool stillWaiting() const;
    // The reply line, read to end of file; nothing if the app has not answered.
    std::optional<QByteArray> replyLine();
    // The reply line as an object; nothing while the app has not answered.
    std::optional<QJsonObject> reply();
    // The `stdout` text of the reply, or nothing for the empty reply.
    std::optional<QString> printed();

private:
    int fd_ = -1;
};

} // namespace mirrowisp::test
