// The real programs: the app as a user starts it, and the hook tool as an agent starts it.
#include "support/RealApp.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;

class AppProcess : public testing::Test {
protected:
    std::unique_ptr<QProcess> startApp() { return real.startCopy(); }

    bool waitForLog(QProcess& app, const QByteArray& line, QByteArray& log) {
        return mirrowisp::test::waitUntil(
            [&] {
                log += app.readAllStandardError();
                return log.contains(line);
            },
            10000);
    }

    // Runs the hook tool, which must always exit 0, and returns what it printed.
    QByteArray runTool(const QJsonObject& event) {
        const auto tool = real.hook(event);
        EXPECT_TRUE(tool->waitForFinished(10000));
        EXPECT_EQ(tool->exitCode(), 0);
        return tool->readAllStandardOutput();
    }

    QString socketPath() const { return real.home().supportDir() + text("/bridge.sock"); }

    mirrowisp::test::RealApp real;
};

const QJsonObject sessionStart{{text("hook_event_name"), text("SessionStart")},
                               {text("session_id"), text("e2e")}};

} // namespace

TEST_F(AppProcess, RunsWithoutADisplayCleansUpOnSigtermAndTheToolStaysQuietWithoutIt) {
    EXPECT_EQ(runTool(sessionStart), QByteArray());
    auto app = startApp();
    QByteArray log;
    ASSERT_TRUE(waitForLog(*app, "bridge listening on " + QFile::encodeName(socketPath()), log))
        << log.toStdString();
    EXPECT_TRUE(log.contains("Mirrowisp: no display found; running the agent bridge only"));
    EXPECT_EQ(log.count("no display"), 1);
    EXPECT_EQ(runTool(sessionStart), QByteArray());

    ::kill(static_cast<pid_t>(app->processId()), SIGTERM);
    ASSERT_TRUE(app->waitForFinished(10000));
    EXPECT_EQ(app->exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app->exitCode(), 0);
    EXPECT_FALSE(QFileInfo::exists(socketPath()));

    // A socket file left by a crashed app: nobody listens behind it.
    app = startApp();
    log.clear();
    ASSERT_TRUE(waitForLog(*app, "bridge listening", log));
    app->kill();
    ASSERT_TRUE(app->waitForFinished(10000));
    ASSERT_TRUE(QFileInfo::exists(socketPath()));
    QJsonObject permission = sessionStart;
    permission.insert(text("hook_event_name"), text("PermissionRequest"));
    EXPECT_EQ(runTool(permission), QByteArray());
}
