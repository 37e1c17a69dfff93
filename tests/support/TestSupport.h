#pragma once

#include "base/Clock.h"

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>

namespace mirrowisp::test {

// A clock the test moves by hand.
class ManualClock final : public Clock {
public:
    explicit ManualClock(Timestamp start = 1'800'000'000.0) : now_(start) {}
    Timestamp now() const override { return now_; }
    void set(Timestamp t) { now_ = t; }
    void advance(double seconds) { now_ += seconds; }

private:
    Timestamp now_;
};

// A QString from the UTF-8 text of a test's literals.
inline QString text(const char* utf8) {
    return QString::fromUtf8(utf8);
}

// Collects the app's diagnostic lines for the lifetime of the object.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    static QStringList& lines();

private:
    QtMessageHandler previous_;
};

// Writes `text` to `path`, making its folder; fails the test when the file cannot be written.
void writeFile(const QString& path, const QByteArray& text, bool executable = false);
// The file's bytes; empty when it cannot be read.
QByteArray readFile(const QString& path);
// The file as a JSON object; fails the test when it isn't one.
QJsonObject readJsonObject(const QString& path);

// Runs the main event loop until `done` holds or `timeoutMs` passes; returns whether it held.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

// Runs whatever is queued on the main thread now.
void drainMainQueue();

// A temporary folder set as HOME, XDG_CONFIG_HOME and MIRROWISP_SUPPORT_DIR for the test's lifetime,
// so no test ever touches the real home. The previous values come back on destruction.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    QString path() const { return dir_.path(); }
    QString supportDir() const;

private:
    QTemporaryDir dir_;
    QByteArray oldHome_, oldConfig_, oldSupport_;
    bool hadHome_, hadConfig_, hadSupport_;
};

// A session bus of the test's own, stopped on destruction; empty address when it did not start.
class PrivateSessionBus {
public:
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;
    const QString& address() const { return address_; }

private:
    QProcess daemon_;
    QString address_;
};

// The environment for the real app and its tools in a test: this bus, and none of the terminal
// variables the test itself may run under, so the hooks see no terminal the drivers know.
QProcessEnvironment appEnvironment(const QString& busAddress);

} // namespace mirrowisp::test
