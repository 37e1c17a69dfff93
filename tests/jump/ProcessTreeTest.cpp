#include "jump/ProcessTree.h"

#include "jump/JumpTestSupport.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ProcessTree;
using mirrowisp::test::FakeProc;

namespace {

const QString userApps = QStringLiteral("/user.slice/user-1000.slice/user@1000.service/app.slice/");

} // namespace

TEST(ProcessTreeCgroup, NamesTheDesktopApplicationOfASystemdScope) {
    const auto id = [](const QString& unit) {
        return desktopIDFromCgroup(QStringLiteral("0::") + userApps + unit);
    };
    EXPECT_EQ(id(QStringLiteral("app-kitty-1234.scope")), QStringLiteral("kitty"));
    EXPECT_EQ(id(QStringLiteral("app-gnome-org.gnome.Terminal-4242.scope")),
              QStringLiteral("org.gnome.Terminal"));
    EXPECT_EQ(id(QStringLiteral("app-flatpak-org.wezfurlong.wezterm-77.scope")),
              QStringLiteral("org.wezfurlong.wezterm"));
    EXPECT_EQ(id(QStringLiteral("app-gnome-gnome\\x2dterminal-5.scope")), QStringLiteral("gnome-terminal"));
    EXPECT_EQ(id(QStringLiteral("app-gnome-code.desktop-9.scope")), QStringLiteral("code"));
    EXPECT_EQ(id(QStringLiteral("app-org.kde.konsole@0a1b2c.service")), QStringLiteral("org.kde.konsole"));
    // A terminal's shells run in a scope of their own inside the terminal's slice.
    EXPECT_EQ(id(QStringLiteral("app-dbus\\x2d:1.2\\x2dorg.gnome.Terminal.slice/vte-spawn-0f3e.scope")),
              QStringLiteral("org.gnome.Terminal"));

    EXPECT_EQ(desktopIDFromCgroup(QStringLiteral("0::/user.slice/user-1000.slice/session-3.scope")),
              std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(QStringLiteral("0::/user.slice/user-1000.slice/user@1000.service/"
                                                 "session.slice/org.gnome.Shell@x11.service")),
              std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(QStringLiteral("0::") + userApps), std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(QString()), std::nullopt);
}

TEST(ProcessTreeFixture, ReadsStatAfterTheLastParenthesisAndDropsDeletedSuffix) {
    FakeProc proc;
    proc.add(1, 0, QStringLiteral("/usr/lib/systemd/systemd"));
    proc.add(30, 1, QStringLiteral("/usr/share/code/code (deleted)"), {}, QStringLiteral("code) S 9 (x"));
    const std::optional<ProcessInfo> info = read(30, proc.root());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->parentPID, 1);
    EXPECT_EQ(info->ttyNumber, 34817);
    EXPECT_EQ(info->executable, QStringLiteral("/usr/share/code/code"));
    EXPECT_EQ(info->desktopID, QStringLiteral("code"));
    EXPECT_EQ(read(31, proc.root()), std::nullopt);
}

TEST(ProcessTreeFixture, TheOutermostApplicationWinsAndTheWalkEndsCleanly) {
    FakeProc proc;
    proc.add(1, 0, QStringLiteral("/usr/lib/systemd/systemd"));
    proc.add(30, 1, QStringLiteral("/usr/share/code/code"),
             userApps + QStringLiteral("app-gnome-code-77.scope"));
    proc.add(50, 30, QStringLiteral("/usr/libexec/gnome-terminal-server"));
    proc.add(100, 50, QStringLiteral("/usr/bin/zsh"),
             userApps + QStringLiteral("app-org.gnome.Terminal.slice/vte-spawn-1.scope"));
    proc.add(101, 100, QStringLiteral("/usr/bin/tmux"));

    const QList<ProcessInfo> chain = ancestors(101, proc.root());
    ASSERT_EQ(chain.size(), 5);
    EXPECT_EQ(chain.first().pid, 101);
    EXPECT_EQ(chain.last().pid, 1);

    const QList<AppProcess> apps = appsAbove(101, proc.root());
    const QList<AppProcess> expected{{100, QStringLiteral("org.gnome.Terminal")},
                                     {50, QStringLiteral("org.gnome.Terminal")},
                                     {30, QStringLiteral("code")}};
    EXPECT_EQ(apps, expected);
    EXPECT_EQ(outermostApp(101, proc.root()), (AppProcess{30, QStringLiteral("code")}));

    // A parent that exited during the walk ends it with what was read so far.
    proc.add(200, 999, QStringLiteral("/usr/bin/kitty"));
    EXPECT_EQ(ancestors(200, proc.root()).size(), 1);
    EXPECT_EQ(outermostApp(200, proc.root()), (AppProcess{200, QStringLiteral("kitty")}));

    // Parent links that form a loop (reused ids read at the wrong moment) stop after the bound.
    proc.add(300, 301, QStringLiteral("/usr/bin/sh"));
    proc.add(301, 300, QStringLiteral("/usr/bin/sh"));
    EXPECT_EQ(ancestors(300, proc.root()).size(), maxSteps);
    EXPECT_TRUE(ancestors(12345, proc.root()).isEmpty());
    EXPECT_EQ(outermostApp(12345, proc.root()), std::nullopt);
}

TEST(ProcessTreeLive, WalksAChainOfRealProcessesToAKnownTerminal) {
    QTemporaryDir dir;
    // A shell under the name of a terminal, so the walk meets a known executable on a real chain.
    const QString terminal = dir.filePath(QStringLiteral("kitty"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/dash"), terminal));
    QFile::setPermissions(terminal, QFile::ReadOwner | QFile::ExeOwner);
    QProcess chain;
    chain.start(terminal, {QStringLiteral("-c"), QStringLiteral("sh -c 'echo $$; exec sleep 60'; :")});
    ASSERT_TRUE(chain.waitForStarted(5000));
    QByteArray printed;
    ASSERT_TRUE(test::waitUntil([&] {
        printed += chain.readAllStandardOutput();
        return printed.endsWith('\n');
    }));
    const qint32 sleeper = printed.trimmed().toInt();
    // The inner shell printed its id, then became sleep: wait until the exec has happened.
    ASSERT_TRUE(test::waitUntil([&] {
        const std::optional<ProcessInfo> info = read(sleeper);
        return info && info->executable.endsWith(QLatin1String("/sleep"));
    }));

    const QList<ProcessInfo> walked = ancestors(sleeper);
    ASSERT_GE(walked.size(), 3);
    EXPECT_EQ(walked[1].pid, chain.processId());
    EXPECT_EQ(walked[1].executable, terminal);
    EXPECT_EQ(walked[2].pid, QCoreApplication::applicationPid());
    const QList<AppProcess> apps = appsAbove(sleeper);
    EXPECT_TRUE(apps.contains(AppProcess{static_cast<qint32>(chain.processId()), QStringLiteral("kitty")}));

    chain.kill();
    chain.waitForFinished(5000);
    ::kill(sleeper, SIGKILL);
}
