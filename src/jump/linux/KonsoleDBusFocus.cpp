#include "jump/linux/KonsoleDBusFocus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QRegularExpression>

namespace mirrowisp {

namespace {

constexpr int callTimeoutMs = 3000;

QDBusMessage call(QDBusConnection& bus, const QString& service, const QString& path, const QString& interface,
                  const QString& method, const QVariantList& arguments = {}) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return bus.call(message, QDBus::Block, callTimeoutMs);
}

// The window objects Konsole publishes under /Windows, from the introspection of that node.
QStringList windowPaths(QDBusConnection& bus, const QString& service) {
    const QDBusMessage reply =
        call(bus, service, QStringLiteral("/Windows"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
             QStringLiteral("Introspect"));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return {};
    }
    static const QRegularExpression node(QStringLiteral(R"re(<node\s+name="(\d+)")re"));
    QStringList paths;
    auto matches = node.globalMatch(reply.arguments().constFirst().toString());
    while (matches.hasNext()) {
        paths << QStringLiteral("/Windows/") + matches.next().captured(1);
    }
    return paths;
}

} // namespace

KonsoleDBusFocus::KonsoleDBusFocus(QString connectionName) : connectionName_(std::move(connectionName)) {}

bool KonsoleDBusFocus::focus(const QString& service, const QString& session) {
    static const QRegularExpression sessionPath(QStringLiteral(R"re(^/Sessions/(\d+)$)re"));
    const QRegularExpressionMatch match = sessionPath.match(session);
    if (!match.hasMatch() || service.isEmpty()) {
        return false;
    }
    const QString id = match.captured(1);
    QDBusConnection bus =
        connectionName_.isEmpty() ? QDBusConnection::sessionBus() : QDBusConnection(connectionName_);
    if (!bus.isConnected()) {
        return false;
    }
    const QString window = QStringLiteral("org.kde.konsole.Window");
    for (const QString& path : windowPaths(bus, service)) {
        const QDBusMessage list = call(bus, service, path, window, QStringLiteral("sessionList"));
        if (list.type() != QDBusMessage::ReplyMessage || list.arguments().isEmpty() ||
            !list.arguments().constFirst().toStringList().contains(id)) {
            continue;
        }
        const QDBusMessage set =
            call(bus, service, path, window, QStringLiteral("setCurrentSession"), {id.toInt()});
        return set.type() == QDBusMessage::ReplyMessage;
    }
    return false;
}

} // namespace mirrowisp
