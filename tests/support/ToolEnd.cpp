#include "support/ToolEnd.h"

#include <QJsonDocument>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mirrowisp::test {

ToolEnd::~ToolEnd() {
    ::close(fd_);
}

bool ToolEnd::stillWaiting() const {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, 0) == 0;
}

std::optional<QByteArray> ToolEnd::replyLine() {
    if (stillWaiting()) {
        return std::nullopt;
    }
    QByteArray data;
    char buffer[65536];
    ssize_t n = 0;
    while ((n = ::recv(fd_, buffer, sizeof buffer, 0)) > 0) {
        data.append(buffer, n);
    }
    return data;
}

std::optional<QJsonObject> ToolEnd::reply() {
    const auto line = replyLine();
    if (!line) {
        return std::nullopt;
    }
    return QJsonDocument::fromJson(*line).object();
}

std::optional<QString> ToolEnd::printed() {
    const auto object = reply();
    if (!object) {
        return std::nullopt;
    }
    const QJsonValue text = object->value(QStringLiteral("stdout"));
    return text.isString() ? std::optional<QString>(text.toString()) : std::nullopt;
}

} // namespace mirrowisp::test
