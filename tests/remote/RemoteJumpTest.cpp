#include "remote/RemoteJump.h"

#include "support/SshServer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

struct ClientCase {
    const char* name;
    QString destination;
    // pid, parent pid, command line (words separated by spaces)
    std::vector<std::tuple<qint32, qint32, QString>> processes;
    std::optional<qint32> found;
};

class RemoteJumpClient : public testing::TestWithParam<ClientCase> {};

TEST_P(RemoteJumpClient, FindsTheNewestSshToTheHostButNotOurOwn) {
    QTemporaryDir proc;
    for (const auto& [pid, parent, line] : GetParam().processes) {
        const QString dir = proc.filePath(QString::number(pid));
        QDir().mkpath(dir);
        writeFile(dir + u"/cmdline"_s, line.toUtf8().replace(' ', '\0') + '\0');
        writeFile(dir + u"/stat"_s, u"%1 (a b) S %2 1 1 0"_s.arg(pid).arg(parent).toUtf8());
    }
    const RemoteHost host{GetParam().destination, std::nullopt, {}, u"/home/ann"_s, {}};
    EXPECT_EQ(RemoteJump::findClient(host, 900, proc.path()), GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Processes, RemoteJumpClient,
    testing::Values(ClientCase{"ByDestination", u"ann@box"_s, {{10, 1, u"ssh -p 2222 ann@box"_s}}, 10},
                    ClientCase{"ByHostNameAlone", u"ann@box"_s, {{10, 1, u"/usr/bin/ssh box"_s}}, 10},
                    ClientCase{"NewestWins", u"box"_s, {{10, 1, u"ssh box"_s}, {12, 1, u"ssh -t box"_s}}, 12},
                    ClientCase{"OurOwnForwardIsSkipped",
                               u"box"_s,
                               {{10, 1, u"ssh box"_s}, {12, 900, u"ssh -N box"_s}},
                               10},
                    ClientCase{"OtherHostsAndProgramsAreNot",
                               u"box"_s,
                               {{10, 1, u"ssh boxer"_s}, {11, 1, u"sshd box"_s}, {12, 1, u"mosh box"_s}},
                               std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

struct PaneCase {
    const char* name;
    std::optional<QString> pane;
    std::optional<QString> tmuxVariable;
    QString words; // what the remote tmux receives, one word a line; empty: no command at all
};

class RemoteJumpPane : public testing::TestWithParam<PaneCase> {};

// The remote command runs through a real shell with a stand-in tmux that prints its words, so a
// quoting fault shows as a changed word or a command of its own.
TEST_P(RemoteJumpPane, TheRemoteShellSeesEveryValueAsOneWord) {
    QTemporaryDir dir;
    const QString tmux = dir.filePath(u"my tmux"_s);
    writeFile(tmux, "#!/bin/sh\nprintf '%s\\n' \"$@\"\n", true);
    ProcessContext context;
    context.tmuxPane = GetParam().pane;
    context.tmuxBinary = tmux;
    if (GetParam().tmuxVariable) {
        context.environment = QMap<QString, QString>{{u"TMUX"_s, *GetParam().tmuxVariable}};
    }
    const auto arguments = RemoteJump::tmuxArguments(RemoteHost{u"box"_s, 2222, {}, {}, {}}, context);
    if (GetParam().words.isEmpty()) {
        EXPECT_FALSE(arguments.has_value());
        return;
    }
    ASSERT_TRUE(arguments.has_value());
    EXPECT_EQ(arguments->at(arguments->size() - 2), u"box"_s);
    QProcess shell;
    shell.start(u"/bin/sh"_s, {u"-c"_s, arguments->last()});
    ASSERT_TRUE(shell.waitForFinished(5000));
    EXPECT_EQ(QString::fromUtf8(shell.readAllStandardOutput()), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(
    Panes, RemoteJumpPane,
    testing::Values(
        PaneCase{"NoPane", std::nullopt, std::nullopt, {}},
        PaneCase{"PaneOnTheDefaultServer", u"%3"_s, std::nullopt,
                 u"select-window\n-t\n%3\n;\nselect-pane\n-t\n%3\n"_s},
        PaneCase{"PaneOnItsSocket", u"%3"_s, u"/tmp/tmux-1000/my sock,42,0"_s,
                 u"-S\n/tmp/tmux-1000/my sock\nselect-window\n-t\n%3\n;\nselect-pane\n-t\n%3\n"_s},
        PaneCase{
            "HostileValues", u"%1'; touch /tmp/x; '"_s, u"$(id),1,0"_s,
            u"-S\n$(id)\nselect-window\n-t\n%1'; touch /tmp/x; '\n;\nselect-pane\n-t\n%1'; touch /tmp/x; '\n"_s}),
    [](const auto& row) { return std::string(row.param.name); });

// An agent in a tmux pane on the host: the jump selects its window and pane there through ssh.
TEST(RemoteJump, SelectsTheAgentsPaneOnTheHost) {
    SshServer server;
    ASSERT_TRUE(server.start()) << server.error().toStdString();
    QTemporaryDir dir;
    const QString socket = dir.filePath(u"tmux.sock"_s);
    auto tmux = [&](const QStringList& words) {
        QProcess process;
        process.start(u"tmux"_s, QStringList{u"-S"_s, socket, u"-f"_s, u"/dev/null"_s} + words);
        process.waitForFinished(10000);
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    };
    tmux({u"new-session"_s, u"-d"_s, u"-s"_s, u"agents"_s});
    const QString pane =
        tmux({u"new-window"_s, u"-d"_s, u"-P"_s, u"-F"_s, u"#{pane_id}"_s, u"-t"_s, u"agents"_s});
    ASSERT_TRUE(pane.startsWith(u'%'));
    ASSERT_NE(tmux({u"display-message"_s, u"-p"_s, u"-t"_s, u"agents"_s, u"#{pane_id}"_s}), pane);

    TerminalJumper::Target target;
    target.host = SshServer::host();
    target.context.tmuxPane = pane;
    target.context.environment = QMap<QString, QString>{{u"TMUX"_s, socket + u",1,0"_s}};
    TerminalDrivers::Tools tools;
    tools.path = server.binDir() + u":/usr/bin:/bin"_s;
    tools.procRoot = dir.path(); // no local ssh client: other tests' ones are not this terminal's
    const RemoteHost host{SshServer::host(), std::nullopt, {}, server.remoteHome(), {}};
    const QString outcome = RemoteJump::jumpAndWait(target, host, tools, {});
    EXPECT_EQ(outcome, u"remote-pane"_s);
    EXPECT_EQ(tmux({u"display-message"_s, u"-p"_s, u"-t"_s, u"agents"_s, u"#{pane_id}"_s}), pane);
    tmux({u"kill-server"_s});
}

} // namespace
