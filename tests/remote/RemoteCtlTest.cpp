#include "support/RealApp.h"
#include "support/SshServer.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

// The real app, asked through `mirrowisp ctl`, setting up the test's sshd as a remote host; an agent
// there asks through the forwarded socket and is answered with `ctl allow`.
TEST(RemoteCtlTest, AddAnswerListAndRemoveAHost) {
    test::SshServer server;
    ASSERT_TRUE(server.start()) << server.error().toStdString();
    test::RealApp app;
    ASSERT_TRUE(app.busStarted());
    app.environment().insert(QStringLiteral("PATH"), QString::fromUtf8(server.path()));
    ASSERT_TRUE(app.start());
    const QString settings = server.remoteHome() + QStringLiteral("/.claude/settings.json");
    const QByteArray before = R"({"env": {"A": "1"}})";
    test::writeFile(settings, before);
    const auto list = [&] {
        return QJsonDocument::fromJson(app.ctl({QStringLiteral("remote"), QStringLiteral("list")}).out)
            .array();
    };

    const test::RunResult added =
        app.ctl({QStringLiteral("remote"), QStringLiteral("add"), test::SshServer::host()});
    ASSERT_EQ(added.exitCode, 0) << added.err.toStdString();
    EXPECT_TRUE(added.out.contains("hooks for claude")) << added.out.toStdString();
    EXPECT_TRUE(
        QFileInfo(server.remoteHome() + QStringLiteral("/.mirrowisp/bin/mirrowisp-bridge")).isExecutable());

    // A host that cannot be reached is listed with the reason, beside the one that works.
    const test::RunResult unreachable =
        app.ctl({QStringLiteral("remote"), QStringLiteral("add"), QStringLiteral("nowhere.invalid")});
    EXPECT_EQ(unreachable.exitCode, 1);
    EXPECT_TRUE(unreachable.err.contains("does not answer")) << unreachable.err.toStdString();
    QJsonArray hosts = list();
    ASSERT_EQ(hosts.size(), 2);
    EXPECT_EQ(hosts[0][QStringLiteral("setup")], QStringLiteral("ready"));
    EXPECT_EQ(hosts[0][QStringLiteral("home")], server.remoteHome());
    EXPECT_EQ(hosts[1][QStringLiteral("setup")], QStringLiteral("failed"));
    EXPECT_TRUE(hosts[1][QStringLiteral("message")].toString().contains(QLatin1String("does not answer")));

    const auto connection = [&] {
        return list()[0][QStringLiteral("connection")][QStringLiteral("state")].toString();
    };
    ASSERT_TRUE(test::waitUntil([&] { return connection() == QStringLiteral("connected"); }, 20000))
        << connection().toStdString();

    // The hook the installer wrote, run by an agent on the host.
    QProcess agent;
    agent.setProcessEnvironment(app.environment());
    agent.start(server.binDir() + QStringLiteral("/ssh"),
                {test::SshServer::host(),
                 server.remoteHome() + QStringLiteral("/.mirrowisp/bin/mirrowisp-bridge --agent claude")});
    const QJsonObject request{
        {QStringLiteral("hook_event_name"), QStringLiteral("PermissionRequest")},
        {QStringLiteral("session_id"), QStringLiteral("far-1")},
        {QStringLiteral("cwd"), QStringLiteral("/srv/site")},
        {QStringLiteral("tool_name"), QStringLiteral("Bash")},
        {QStringLiteral("tool_input"), QJsonObject{{QStringLiteral("command"), QStringLiteral("make")}}}};
    agent.write(QJsonDocument(request).toJson(QJsonDocument::Compact));
    agent.closeWriteChannel();
    const QString decision = app.waitForDecision();
    ASSERT_FALSE(decision.isEmpty());
    const QJsonObject session = app.sessions().first().toObject();
    EXPECT_EQ(session[QStringLiteral("host")], test::SshServer::host());
    EXPECT_EQ(app.ctl({QStringLiteral("allow"), decision}).exitCode, 0);
    ASSERT_TRUE(agent.waitForFinished(10000));
    EXPECT_TRUE(agent.readAllStandardOutput().contains(R"("behavior":"allow")"));

    for (const QString& host : {test::SshServer::host(), QStringLiteral("nowhere.invalid")}) {
        const test::RunResult removed = app.ctl({QStringLiteral("remote"), QStringLiteral("remove"), host});
        EXPECT_EQ(removed.exitCode, 0) << removed.err.toStdString();
    }
    EXPECT_TRUE(list().isEmpty());
    EXPECT_EQ(QJsonDocument::fromJson(test::readFile(settings)), QJsonDocument::fromJson(before));
    EXPECT_EQ(app.ctl({QStringLiteral("remote"), QStringLiteral("remove"), test::SshServer::host()}).exitCode,
              1);
    EXPECT_EQ(app.ctl({QStringLiteral("remote"), QStringLiteral("add"), QStringLiteral("-oProxyCommand=x")})
                  .exitCode,
              1);
}

} // namespace
} // namespace mirrowisp
