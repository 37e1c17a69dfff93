#include "support/SocketClient.h"

#include <QFile>
#include <QJsonDocument>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace mirrowisp::test {

SocketClient::~SocketClient() {
    close();
}

bool SocketClient::connectTo(const QString& path) {
    close();
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray bytes = QFile::encodeName(path);
    std::memcpy(address.sun_path, bytes.constData(),
                std::min<std::size_t>(bytes.size(), sizeof address.sun_path - 1));
    return ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool SocketClient::send(const QByteArray& bytes) {
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n =
            ::send(fd_, bytes.constData() + sent, static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += n;
    }
    return true;
}

void SocketClient::shutdownWrite() {
    ::shutdown(fd_, SHUT_WR);
}

void SocketClient::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

std::optional<QByteArray> SocketClient::readToEnd(int timeoutMs) {
    QByteArray data;
    char buffer[4096];
    for (;;) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, timeoutMs) <= 0) {
            return std::nullopt;
        }
        const ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
        if (n <= 0) {
            return data;
        }
        data.append(buffer, n);
    }
}

bool SocketClient::sawEndOfFile(int timeoutMs) {
    const auto data = readToEnd(timeoutMs);
    return data.has_value() && data->isEmpty();
}

bool SocketClient::peerClosed(int timeoutMs) {
    pollfd p{fd_, POLLRDHUP, 0};
    return ::poll(&p, 1, timeoutMs) > 0 && (p.revents & (POLLRDHUP | POLLHUP)) != 0;
}

bool SocketClient::stillWaiting() const {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, 0) == 0;
}

std::optional<QByteArray> SocketClient::replyLine() {
    return stillWaiting() ? std::nullopt : readToEnd();
}

std::optional<QJsonObject> SocketClient::reply() {
    const auto line = replyLine();
    return line ? std::optional(QJsonDocument::fromJson(*line).object()) : std::nullopt;
}

std::optional<QString> SocketClient::printed() {
    const auto object = reply();
    const QJsonValue text = object ? object->value(QStringLiteral("stdout")) : QJsonValue();
    return text.isString() ? std::optional(text.toString()) : std::nullopt;
}

} // namespace mirrowisp::test
