#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QThread>
#include <gtest/gtest.h>

namespace mirrowisp::test {

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents();
        if (!done()) {
            QThread::usleep(500); // yield to the bridge thread without spinning a core
        }
    }
    return true;
}

LogCapture::LogCapture()
    : previous_(qInstallMessageHandler(
          [](QtMsgType, const QMessageLogContext&, const QString& message) { lines().append(message); })) {}

LogCapture::~LogCapture() {
    qInstallMessageHandler(previous_);
    lines().clear();
}

QStringList& LogCapture::lines() {
    static QStringList captured;
    return captured;
}

void writeFile(const QString& path, const QByteArray& text, bool executable) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << qPrintable(path);
    file.write(text);
    file.close();
    if (executable) {
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject readJsonObject(const QString& path) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(readFile(path), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << qPrintable(path);
    EXPECT_TRUE(document.isObject()) << qPrintable(path);
    return document.object();
}

void drainMainQueue() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

namespace {
void restore(const char* name, bool had, const QByteArray& value) {
    if (had) {
        qputenv(name, value);
    } else {
        qunsetenv(name);
    }
}
} // namespace

TemporaryHome::TemporaryHome()
    : oldHome_(qgetenv("HOME")), oldConfig_(qgetenv("XDG_CONFIG_HOME")),
      oldSupport_(qgetenv("MIRROWISP_SUPPORT_DIR")), hadHome_(qEnvironmentVariableIsSet("HOME")),
      hadConfig_(qEnvironmentVariableIsSet("XDG_CONFIG_HOME")),
      hadSupport_(qEnvironmentVariableIsSet("MIRROWISP_SUPPORT_DIR")) {
    qputenv("HOME", QFile::encodeName(dir_.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir_.path() + QStringLiteral("/.config")));
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(supportDir()));
}

TemporaryHome::~TemporaryHome() {
    restore("HOME", hadHome_, oldHome_);
    restore("XDG_CONFIG_HOME", hadConfig_, oldConfig_);
    restore("MIRROWISP_SUPPORT_DIR", hadSupport_, oldSupport_);
}

QString TemporaryHome::supportDir() const {
    return dir_.path() + QStringLiteral("/support");
}

PrivateSessionBus::PrivateSessionBus() {
    daemon_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                  QStringLiteral("--print-address=1")});
    if (daemon_.waitForReadyRead(10000)) {
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
}

PrivateSessionBus::~PrivateSessionBus() {
    daemon_.kill();
    daemon_.waitForFinished(5000);
}

QProcessEnvironment appEnvironment(const QString& busAddress) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    for (const QString& name : env.keys()) {
        if (name.startsWith(QLatin1StringView("TMUX")) || name.startsWith(QLatin1StringView("KITTY_")) ||
            name.startsWith(QLatin1StringView("WEZTERM_")) || name.startsWith(QLatin1StringView("VSCODE_")) ||
            name.startsWith(QLatin1StringView("KONSOLE_")) || name == QLatin1StringView("WINDOWID") ||
            name == QLatin1StringView("TERM_PROGRAM")) {
            env.remove(name);
        }
    }
    return env;
}

} // namespace mirrowisp::test
