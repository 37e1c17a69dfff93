#pragma once

#include "support/TestSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QProcess>
#include <memory>
#include <vector>

namespace mirrowisp::test {

// A private bus standing in for the system bus, with python3-dbusmock templates of system services.
class MockServices {
public:
    MockServices()
        : connection_(QDBusConnection::connectToBus(bus_.address(), QStringLiteral("mock-services"))) {}
    ~MockServices() {
        for (auto& mock : mocks_) {
            stop(*mock);
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("mock-services"));
    }
    QDBusConnection& connection() { return connection_; }
    const QString& address() const { return bus_.address(); }

    // Starts the template under its well-known name; false when it does not appear.
    bool start(const QString& templateName, const QString& busName, const QString& parameters = {}) {
        QStringList args{QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session"),
                         QStringLiteral("--template"), templateName};
        if (!parameters.isEmpty()) {
            args << QStringLiteral("-p") << parameters;
        }
        return launch(args, busName);
    }
    // A plain mock of one object, for services without a template.
    bool startObject(const QString& busName, const QString& path, const QString& interface) {
        return launch({QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session"), busName,
                       path, interface},
                      busName);
    }
    // Stops the last started service, as a daemon that goes away.
    void stopLast() { stop(*mocks_.back()); }

    // A call on the mock's control interface; false on an error reply.
    bool mock(const QString& busName, const QString& path, const QString& method, const QVariantList& args,
              const QString& interface = QStringLiteral("org.freedesktop.DBus.Mock")) {
        QDBusMessage call = QDBusMessage::createMethodCall(busName, path, interface, method);
        call.setArguments(args);
        return connection_.call(call).type() == QDBusMessage::ReplyMessage;
    }

private:
    bool launch(const QStringList& args, const QString& busName) {
        auto process = std::make_unique<QProcess>();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus_.address());
        process->setProcessEnvironment(env);
        process->start(QStringLiteral("/usr/bin/python3"), args);
        mocks_.push_back(std::move(process));
        return waitUntil([&] { return connection_.interface()->isServiceRegistered(busName).value(); },
                         10000);
    }
    static void stop(QProcess& process) {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    PrivateSessionBus bus_;
    QDBusConnection connection_;
    std::vector<std::unique_ptr<QProcess>> mocks_;
};

} // namespace mirrowisp::test
