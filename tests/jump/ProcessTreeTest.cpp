#include "jump/ProcessTree.h"

#include "jump/JumpTestSupport.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ProcessTree;
using namespace Qt::StringLiterals;
using mirrowisp::test::FakeProc;

namespace {

const QString userApps = u"/user.slice/user-1000.slice/user@1000.service/app.slice/"_s;

} // namespace

TEST(ProcessTreeCgroup, NamesTheDesktopApplicationOfASystemdScope) {
    const auto id = [](const QString& unit) { return desktopIDFromCgroup(u"0::"_s + userApps + unit); };
    EXPECT_EQ(id(u"app-kitty-1234.scope"_s), u"kitty"_s);
    EXPECT_EQ(id(u"app-gnome-org.gnome.Terminal-4242.scope"_s), u"org.gnome.Terminal"_s);
    EXPECT_EQ(id(u"app-flatpak-org.wezfurlong.wezterm-77.scope"_s), u"org.wezfurlong.wezterm"_s);
    EXPECT_EQ(id(u"app-gnome-gnome\\x2dterminal-5.scope"_s), u"gnome-terminal"_s);
    EXPECT_EQ(id(u"app-gnome-code.desktop-9.scope"_s), u"code"_s);
    EXPECT_EQ(id(u"app-org.kde.konsole@0a1b2c.service"_s), u"org.kde.konsole"_s);
    // A terminal's shells run in a scope of their own inside the terminal's slice.
    EXPECT_EQ(id(u"app-dbus\\x2d:1.2\\x2dorg.gnome.Terminal.slice/vte-spawn-0f3e.scope"_s),
              u"org.gnome.Terminal"_s);

    EXPECT_EQ(desktopIDFromCgroup(u"0::/user.slice/user-1000.slice/session-3.scope"_s), std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(QStringLiteral("0::/user.slice/user-1000.slice/user@1000.service/"
                                                 "session.slice/org.gnome.Shell@x11.service")),
              std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(u"0::"_s + userApps), std::nullopt);
    EXPECT_EQ(desktopIDFromCgroup(QString()), std::nullopt);
}

TEST(ProcessTreeFixture, ReadsStatAfterTheLastParenthesisAndDropsDeletedSuffix) {
    FakeProc proc;
    proc.add(1, 0, u"/usr/lib/systemd/systemd"_s);
    proc.add(30, 1, u"/usr/share/code/code (deleted)"_s, {}, u"code) S 9 (x"_s);
    const std::optional<ProcessInfo> info = read(30, proc.root());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->parentPID, 1);
    EXPECT_EQ(info->ttyNumber, 34817);
    EXPECT_EQ(info->executable, u"/usr/share/code/code"_s);
    EXPECT_EQ(info->desktopID, u"code"_s);
    EXPECT_EQ(read(31, proc.root()), std::nullopt);
}

TEST(ProcessTreeFixture, TheOutermostApplicationWinsAndTheWalkEndsCleanly) {
    FakeProc proc;
    proc.add(1, 0, u"/usr/lib/systemd/systemd"_s);
    proc.add(30, 1, u"/usr/share/code/code"_s, userApps + u"app-gnome-code-77.scope"_s);
    proc.add(50, 30, u"/usr/libexec/gnome-terminal-server"_s);
    proc.add(100, 50, u"/usr/bin/zsh"_s, userApps + u"app-org.gnome.Terminal.slice/vte-spawn-1.scope"_s);
    proc.add(101, 100, u"/usr/bin/tmux"_s);

    const QList<ProcessInfo> chain = ancestors(101, proc.root());
    ASSERT_EQ(chain.size(), 5);
    EXPECT_EQ(chain.first().pid, 101);
    EXPECT_EQ(chain.last().pid, 1);

    const QList<AppProcess> apps = appsAbove(101, proc.root());
    const QList<AppProcess> expected{
        {100, u"org.gnome.Terminal"_s}, {50, u"org.gnome.Terminal"_s}, {30, u"code"_s}};
    EXPECT_EQ(apps, expected);
    EXPECT_EQ(outermostApp(101, proc.root()), (AppProcess{30, u"code"_s}));

    // A parent that exited during the walk ends it with what was read so far.
    proc.add(200, 999, u"/usr/bin/kitty"_s);
    EXPECT_EQ(ancestors(200, proc.root()).size(), 1);
    EXPECT_EQ(outermostApp(200, proc.root()), (AppProcess{200, u"kitty"_s}));

    // Parent links that form a loop (reused ids read at the wrong moment) stop after the bound.
    proc.add(300, 301, u"/usr/bin/sh"_s);
    proc.add(301, 300, u"/usr/bin/sh"_s);
    EXPECT_EQ(ancestors(300, proc.root()).size(), maxSteps);
    EXPECT_TRUE(ancestors(12345, proc.root()).isEmpty());
    EXPECT_EQ(outermostApp(12345, proc.root()), std::nullopt);
}

TEST(ProcessTreeLive, WalksAChainOfRealProcessesToAKnownTerminal) {
    QTemporaryDir dir;
    // A shell under the name of a terminal, so the walk meets a known executable on a real chain.
    const QString terminal = dir.filePath(u"kitty"_s);
    ASSERT_TRUE(QFile::copy(u"/bin/dash"_s, terminal));
    QFile::setPermissions(terminal, QFile::ReadOwner | QFile::ExeOwner);
    QProcess chain;
    chain.start(terminal, {u"-c"_s, u"sh -c 'echo $$; exec sleep 60'; :"_s});
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
    EXPECT_TRUE(apps.contains(AppProcess{static_cast<qint32>(chain.processId()), u"kitty"_s}));

    chain.kill();
    chain.waitForFinished(5000);
    ::kill(sleeper, SIGKILL);
}
