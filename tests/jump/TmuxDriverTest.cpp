#include "jump/JumpTestSupport.h"
#include "jump/TerminalJumper.h"
#include "support/TestSupport.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <csignal>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::TerminalDrivers;
using namespace Qt::StringLiterals;
using mirrowisp::test::TmuxServer;
using mirrowisp::test::words;

namespace {

Tools tmuxTools(double timeout = toolTimeoutSeconds) {
    Tools tools;
    tools.path = u"/usr/bin:/bin"_s;
    tools.timeoutSeconds = timeout;
    return tools;
}

// The agent's server: session "work" with two windows, the second split in two, and session
// "other" where the clients start.
struct AgentServer {
    TmuxServer server;
    QString pane; // the agent's pane: window 1, not its active pane

    AgentServer() {
        server.tmux(words(u"new-session -d -s work -x 80 -y 24 cat"));
        pane = server.query(words(u"new-window -d -t work:1 -P -F #{pane_id} cat"));
        server.tmux(words(u"split-window -d -t") << pane << u"cat"_s);
        server.tmux(words(u"new-session -d -s other -x 80 -y 24 cat"));
    }

    // client tty -> the client's value of a format such as #{client_session}
    QMap<QString, QString> clients(const QString& format = u"#{client_session}"_s) const {
        QMap<QString, QString> values;
        const QString text = server.query(words(u"list-clients -F") << u"#{client_tty} "_s + format);
        for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            values.insert(line.section(QLatin1Char(' '), 0, 0), line.section(QLatin1Char(' '), 1));
        }
        return values;
    }
    qint64 activity(const QString& tty) const {
        return clients(u"#{client_activity}"_s).value(tty, u"-1"_s).toLongLong();
    }
};

// Real clients need terminals: each is attached from a pane of a second server.
struct ClientHost {
    TmuxServer host;

    QString attach(const QString& name, const TmuxServer& target, const QString& session) {
        host.tmux(words(u"new-session -d -s") << name << words(u"-x 100 -y 30 env -u TMUX tmux -S")
                                              << target.socket() << words(u"attach -t") << session);
        return host.query(words(u"display-message -p -t") << name << u"#{pane_tty}"_s);
    }
    void type(const QString& name) { host.tmux(words(u"send-keys -t") << name << u"x"_s); }
};

} // namespace

TEST(TmuxDriver, SwitchesTheMostRecentlyActiveClientAndSelectsThePane) {
    AgentServer agent;
    ClientHost clients;
    const QString older = clients.attach(u"older"_s, agent.server, u"other"_s);
    const QString recent = clients.attach(u"recent"_s, agent.server, u"other"_s);
    ASSERT_TRUE(test::waitUntil([&] { return agent.clients().size() == 2; }, 10000));
    // Activity is counted in whole seconds: type into one client until it is strictly more recent.
    ASSERT_TRUE(test::waitUntil(
        [&] {
            clients.type(u"recent"_s);
            return agent.activity(recent) > agent.activity(older);
        },
        10000));

    const std::optional<TmuxClient> client =
        focusTmux(agent.pane, agent.server.tmuxVariable(), std::nullopt, tmuxTools());
    ASSERT_TRUE(client);
    EXPECT_EQ(client->tty, recent);
    EXPECT_GT(client->pid, 0);
    const QMap<QString, QString> sessions = agent.clients();
    EXPECT_EQ(sessions.value(recent), u"work"_s);
    EXPECT_EQ(sessions.value(older), u"other"_s);
    EXPECT_EQ(agent.server.query(words(u"display-message -p -t work") << u"#{window_index} #{pane_id}"_s),
              u"1 "_s + agent.pane);

    // A client showing the session itself comes before more recent clients elsewhere.
    agent.server.tmux(words(u"switch-client -c") << recent << words(u"-t other"));
    agent.server.tmux(words(u"switch-client -c") << older << words(u"-t work"));
    const std::optional<TmuxClient> again =
        focusTmux(agent.pane, agent.server.tmuxVariable(), std::nullopt, tmuxTools());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->tty, older);

    // Through the whole jump the driver is named; the pane may come from the agent's TMUX_PANE and
    // the binary from the one the hook tool recorded, with nothing on the search path.
    TerminalJumper::Target target;
    target.context.tmuxBinary = QStandardPaths::findExecutable(u"tmux"_s);
    target.context.environment =
        QMap<QString, QString>{{u"TMUX"_s, agent.server.tmuxVariable()}, {u"TMUX_PANE"_s, agent.pane}};
    Tools nothingOnPath = tmuxTools();
    nothingOnPath.path.clear();
    EXPECT_EQ(TerminalJumper::jumpAndWait(target, nothingOnPath, {}), u"tmux"_s);
}

TEST(TmuxDriver, FailsOverWithoutClientsOrAUsableSocket) {
    AgentServer agent;
    EXPECT_FALSE(focusTmux(agent.pane, agent.server.tmuxVariable(), std::nullopt, tmuxTools()));
    EXPECT_EQ(agent.server.query(words(u"display-message -p -t work #{window_index}")), u"0"_s);

    // A TMUX value without a comma is not tmux's own: no call is made.
    EXPECT_EQ(tmuxSocket(agent.server.socket()), std::nullopt);
    EXPECT_EQ(tmuxSocket(u"/tmp/s,1,0"_s), u"/tmp/s"_s);
    EXPECT_FALSE(focusTmux(agent.pane, agent.server.socket(), std::nullopt, tmuxTools()));
    EXPECT_FALSE(focusTmux(u"%999"_s, agent.server.tmuxVariable(), std::nullopt, tmuxTools()));

    QTemporaryDir nobody;
    EXPECT_FALSE(
        focusTmux(agent.pane, nobody.filePath(u"gone.sock"_s) + u",1,0"_s, std::nullopt, tmuxTools()));

    TerminalJumper::Target target;
    target.context.tmuxPane = agent.pane;
    target.context.environment = QMap<QString, QString>{{u"TMUX"_s, agent.server.tmuxVariable()}};
    EXPECT_EQ(TerminalJumper::jumpAndWait(target, tmuxTools(), {}), u"none"_s);
}

TEST(TmuxDriver, AStoppedServerCostsAtMostItsTimeOut) {
    AgentServer agent;
    ClientHost clients;
    clients.attach(u"one"_s, agent.server, u"work"_s);
    ASSERT_TRUE(test::waitUntil([&] { return agent.clients().size() == 1; }, 10000));
    const pid_t serverPID = agent.server.query(words(u"display-message -p #{pid}")).toInt();
    ASSERT_GT(serverPID, 0);
    ASSERT_EQ(::kill(serverPID, SIGSTOP), 0);
    QElapsedTimer elapsed;
    elapsed.start();
    const std::optional<TmuxClient> client =
        focusTmux(agent.pane, agent.server.tmuxVariable(), std::nullopt, tmuxTools(0.5));
    const qint64 ms = elapsed.elapsed();
    ::kill(serverPID, SIGCONT);
    EXPECT_FALSE(client);
    EXPECT_GE(ms, 450);
    EXPECT_LT(ms, 1500);
}
