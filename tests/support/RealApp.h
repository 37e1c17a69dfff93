#pragma once

#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <memory>

namespace mirrowisp::test {

// What a finished run of the app's command line gave.
struct RunResult {
    int exitCode = -1; // -1: it did not end within its time
    QByteArray out;
    QByteArray err;
};

// The real app as a user starts it, in a temporary home on a session bus of its own (so it never meets
// a copy the user runs), with the real hook tool beside it.
class RealApp {
public:
    // Without `display` the app runs the bridge only, as on a machine with no X server.
    explicit RealApp(bool display = false);
    ~RealApp();
    RealApp(const RealApp&) = delete;
    RealApp& operator=(const RealApp&) = delete;

    bool busStarted() const { return !bus_.address().isEmpty(); }
    QProcessEnvironment& environment() { return env_; }
    const TemporaryHome& home() const { return home_; }
    QProcess& process() { return *app_; }

    // Starts the app and waits until `ctl sessions` gets through (the bridge listens before that). Its
    // log stays in `process()` for the test to read.
    bool start(const QStringList& arguments = {});
    void stop();
    // Another copy of the app with these arguments, left running; its output is the caller's to read.
    std::unique_ptr<QProcess> startCopy(const QStringList& arguments = {}) const;
    // A copy run to its end; one still running after ten seconds is killed.
    RunResult run(const QStringList& arguments) const;
    RunResult ctl(const QStringList& arguments) const;
    QJsonArray sessions() const;
    // Starts the hook tool for `agent` with the event on its standard input.
    std::unique_ptr<QProcess> hook(const QJsonObject& event,
                                   const QString& agent = QStringLiteral("claude")) const;
    // Waits until the first session lists a pending decision; its id, or empty.
    QString waitForDecision() const;

private:
    TemporaryHome home_;
    PrivateSessionBus bus_;
    QProcessEnvironment env_;
    std::unique_ptr<QProcess> app_;
};

} // namespace mirrowisp::test
