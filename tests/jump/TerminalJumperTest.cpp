#include "jump/TerminalJumper.h"

#include "agents/AgentSession.h"
#include "jump/JumpTestSupport.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QThread>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::TerminalJumper;
using mirrowisp::test::awkwardValue;
using mirrowisp::test::StandIns;
using mirrowisp::test::words;

namespace {

TerminalDrivers::Tools standInTools(const StandIns& standIns) {
    TerminalDrivers::Tools tools;
    tools.path = standIns.path();
    tools.procRoot = standIns.path(); // no process entries: the tree walk finds nothing
    return tools;
}

Target targetWith(const QMap<QString, QString>& environment,
                  const QString& cwd = QStringLiteral("/work/proj")) {
    Target target;
    target.cwd = cwd;
    target.context.environment = environment;
    return target;
}

class RecordingKonsole final : public KonsoleFocus {
public:
    bool focus(const QString& service, const QString& session) override {
        calls.append(service + QLatin1Char('|') + session);
        return answer;
    }
    QStringList calls;
    bool answer = true;
};

} // namespace

TEST(TerminalJumperDrivers, PassEveryValueAsOneIntactArgument) {
    StandIns standIns;
    const QString value = awkwardValue();
    const QString listen = QStringLiteral("unix:/tmp/") + value;
    struct Case {
        const char* tool;
        QMap<QString, QString> environment;
        QStringList arguments;
    };
    const Case cases[] = {
        {"kitty",
         {{QStringLiteral("KITTY_WINDOW_ID"), value}, {QStringLiteral("KITTY_LISTEN_ON"), listen}},
         QStringList{QStringLiteral("@"), QStringLiteral("--to"), listen} + words(u"focus-window --match")
             << QStringLiteral("id:") + value},
        {"wezterm",
         {{QStringLiteral("WEZTERM_PANE"), value}, {QStringLiteral("WEZTERM_UNIX_SOCKET"), value}},
         words(u"cli activate-pane --pane-id") << value},
        {"cmux",
         {{QStringLiteral("CMUX_SURFACE_ID"), value},
          {QStringLiteral("CMUX_WORKSPACE_ID"), QStringLiteral("w1")}},
         words(u"focus-surface --surface") << value},
    };
    for (const Case& c : cases) {
        const QString tool = QString::fromLatin1(c.tool);
        standIns.add(tool);
        EXPECT_EQ(jumpAndWait(targetWith(c.environment), standInTools(standIns), {}), tool);
        EXPECT_EQ(standIns.arguments(tool), c.arguments);
    }
    EXPECT_EQ(standIns.environment(QStringLiteral("wezterm")).value(QStringLiteral("WEZTERM_UNIX_SOCKET")),
              value);

    const QString herdr = standIns.add(QStringLiteral("herdr-bin"));
    QStringList activated;
    const Activate activate = [&](const std::optional<QString>& app, const Target&) {
        activated.append(app.value_or(QStringLiteral("?")));
        return true;
    };
    Target herdrTarget = targetWith({{QStringLiteral("HERDR_PANE_ID"), value},
                                     {QStringLiteral("HERDR_BIN_PATH"), herdr},
                                     {QStringLiteral("HERDR_SOCKET_PATH"), value}});
    herdrTarget.appID = QStringLiteral("kitty");
    EXPECT_EQ(jumpAndWait(herdrTarget, standInTools(standIns), activate), QStringLiteral("herdr"));
    EXPECT_EQ(standIns.arguments(QStringLiteral("herdr-bin")), words(u"agent focus") << value);
    EXPECT_EQ(standIns.environment(QStringLiteral("herdr-bin")).value(QStringLiteral("HERDR_SOCKET_PATH")),
              value);
    EXPECT_EQ(activated, QStringList{QStringLiteral("kitty")}); // the terminal around herdr comes up too

    auto konsole = std::make_shared<RecordingKonsole>();
    TerminalDrivers::Tools withKonsole = standInTools(standIns);
    withKonsole.konsole = konsole;
    EXPECT_EQ(
        jumpAndWait(targetWith({{QStringLiteral("KONSOLE_DBUS_SERVICE"), QStringLiteral(":1.42")},
                                {QStringLiteral("KONSOLE_DBUS_SESSION"), QStringLiteral("/Sessions/3")}}),
                    withKonsole, {}),
        QStringLiteral("konsole"));
    EXPECT_EQ(konsole->calls, QStringList{QStringLiteral(":1.42|/Sessions/3")});
}

TEST(TerminalJumperDrivers, OpenTheFolderInTheEditorWhoseTerminalRunsTheAgent) {
    const QString folder = QStringLiteral("/home/u/") + awkwardValue();
    struct Case {
        const char* editor;
        QMap<QString, QString> environment;
        std::optional<QString> appID;
    };
    const Case cases[] = {
        {"code", {{QStringLiteral("VSCODE_IPC_HOOK_CLI"), QStringLiteral("/run/user/1000/vscode.sock")}}, {}},
        {"cursor",
         {{QStringLiteral("TERM_PROGRAM"), QStringLiteral("vscode")},
          {QStringLiteral("VSCODE_GIT_ASKPASS_NODE"), QStringLiteral("/usr/share/cursor/cursor")}},
         {}},
        {"windsurf", {}, QStringLiteral("windsurf")},
        // A plain terminal is no editor: nothing is opened.
        {nullptr, {{QStringLiteral("TERM_PROGRAM"), QStringLiteral("xterm")}}, {}},
    };
    for (const Case& c : cases) {
        StandIns standIns;
        for (const char* editor : {"code", "cursor", "windsurf"}) {
            standIns.add(QString::fromLatin1(editor));
        }
        Target target = targetWith(c.environment, folder);
        target.appID = c.appID;
        EXPECT_EQ(jumpAndWait(target, standInTools(standIns), {}),
                  c.editor ? QStringLiteral("editor") : QStringLiteral("none"));
        for (const char* editor : {"code", "cursor", "windsurf"}) {
            const bool chosen = c.editor && QLatin1String(editor) == QLatin1String(c.editor);
            const QStringList expected = chosen ? QStringList{QStringLiteral("-r"), folder} : QStringList();
            EXPECT_EQ(standIns.arguments(QString::fromLatin1(editor)), expected) << editor;
        }
    }
}

TEST(TerminalJumperOrder, AFailingDriverHandsOnAndActivationComesLast) {
    StandIns standIns;
    standIns.add(QStringLiteral("kitty"), 1);
    standIns.add(QStringLiteral("wezterm"));
    const QMap<QString, QString> both{{QStringLiteral("KITTY_WINDOW_ID"), QStringLiteral("7")},
                                      {QStringLiteral("WEZTERM_PANE"), QStringLiteral("3")}};
    EXPECT_EQ(jumpAndWait(targetWith(both), standInTools(standIns), {}), QStringLiteral("wezterm"));
    EXPECT_TRUE(standIns.ran(QStringLiteral("kitty")));

    StandIns failing;
    failing.add(QStringLiteral("kitty"), 1);
    failing.add(QStringLiteral("wezterm"), 2);
    Target target = targetWith(both);
    target.appID = QStringLiteral("org.wezfurlong.wezterm");
    std::optional<QString> raised;
    const Activate activate = [&](const std::optional<QString>& app, const Target&) {
        raised = app;
        return true;
    };
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), activate), QStringLiteral("activated"));
    EXPECT_EQ(raised, QStringLiteral("org.wezfurlong.wezterm"));
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), [](const auto&, const auto&) { return false; }),
              QStringLiteral("none"));
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), {}), QStringLiteral("none"));

    // Variables without their tool: no driver can act.
    StandIns empty;
    EXPECT_EQ(jumpAndWait(targetWith(both), standInTools(empty), {}), QStringLiteral("none"));
}

TEST(TerminalJumperOrder, AppIDComesFromTheRecordedTerminal) {
    ProcessContext context;
    EXPECT_EQ(appID(context), std::nullopt);
    context.termProgram = QStringLiteral("WezTerm");
    EXPECT_EQ(appID(context), QStringLiteral("org.wezfurlong.wezterm"));
    context.termProgram = QStringLiteral("vscode");
    EXPECT_EQ(appID(context), QStringLiteral("code"));
    context.termProgram = QStringLiteral("something-new");
    EXPECT_EQ(appID(context), std::nullopt);
    context.terminalBundleID = QStringLiteral("org.kde.konsole");
    EXPECT_EQ(appID(context), QStringLiteral("org.kde.konsole"));
}

TEST(TerminalJumperAsync, RunsDriversInTheBackgroundAndReportsOnTheMainThread) {
    StandIns standIns;
    standIns.add(QStringLiteral("kitty"));
    AgentSession session(AgentKind::claude, QStringLiteral("local_abc-123"), 1'800'000'000.0);
    session.setCwd(QStringLiteral("/work/proj"));
    ProcessContext context;
    context.environment = QMap<QString, QString>{{QStringLiteral("KITTY_WINDOW_ID"), QStringLiteral("5")}};
    session.setContext(context);

    std::optional<QString> outcome;
    bool onMain = false;
    jump(
        session, {},
        [&](const QString& result) {
            outcome = result;
            onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
        },
        standInTools(standIns));
    EXPECT_FALSE(outcome); // returns at once
    ASSERT_TRUE(test::waitUntil([&] { return outcome.has_value(); }));
    // A desktop session id finds no desktop app on Linux: the terminal is focused instead.
    EXPECT_EQ(outcome, QStringLiteral("kitty"));
    EXPECT_TRUE(onMain);

    std::optional<QString> second;
    bool activatedOnMain = false;
    jump(
        session,
        [&](const std::optional<QString>&, const Target& target) {
            activatedOnMain = QThread::currentThread() == QCoreApplication::instance()->thread() &&
                              target.sessionID == QStringLiteral("local_abc-123");
            return true;
        },
        [&](const QString& result) { second = result; }, standInTools(StandIns()));
    ASSERT_TRUE(test::waitUntil([&] { return second.has_value(); }));
    EXPECT_EQ(second, QStringLiteral("activated"));
    EXPECT_TRUE(activatedOnMain);
}

namespace {

class RecordingWindows final : public WindowFocus {
public:
    bool activateWindow(quint32 windowID) override {
        calls.append(QStringLiteral("window %1").arg(windowID));
        return windowAnswer;
    }
    bool activateWindowOf(qint32 pid) override {
        calls.append(QStringLiteral("pid %1").arg(pid));
        return true;
    }
    QStringList calls;
    bool windowAnswer = true;
};

} // namespace

TEST(TerminalJumperWindows, RaisesTheWindowOfAnX11TerminalButNeverOfAnEditor) {
    test::FakeProc proc;
    proc.add(1, 0, QStringLiteral("/usr/lib/systemd/systemd"));
    proc.add(50, 1, QStringLiteral("/usr/libexec/gnome-terminal-server"));
    proc.add(60, 50, QStringLiteral("/usr/bin/bash"));
    StandIns standIns;
    standIns.add(QStringLiteral("code"));
    auto windows = std::make_shared<RecordingWindows>();
    TerminalDrivers::Tools tools = standInTools(standIns);
    tools.procRoot = proc.root();
    tools.windows = windows;

    Target byWindowID = targetWith({{QStringLiteral("WINDOWID"), QStringLiteral("62914567")}});
    byWindowID.context.agentPID = 60;
    EXPECT_EQ(jumpAndWait(byWindowID, tools, {}), QStringLiteral("ewmh"));
    EXPECT_EQ(windows->calls, QStringList{QStringLiteral("window 62914567")});

    // A window id that no longer exists: the terminal's process names the window.
    windows->calls.clear();
    windows->windowAnswer = false;
    EXPECT_EQ(jumpAndWait(byWindowID, tools, {}), QStringLiteral("ewmh"));
    EXPECT_EQ(windows->calls, (QStringList{QStringLiteral("window 62914567"), QStringLiteral("pid 50")}));

    windows->calls.clear();
    Target inEditor = targetWith({{QStringLiteral("TERM_PROGRAM"), QStringLiteral("vscode")},
                                  {QStringLiteral("WINDOWID"), QStringLiteral("62914567")}});
    inEditor.context.agentPID = 60;
    EXPECT_EQ(jumpAndWait(inEditor, tools, {}), QStringLiteral("editor"));
    EXPECT_TRUE(windows->calls.isEmpty());

    Target unknown = targetWith({});
    unknown.context.agentPID = 4242; // gone
    EXPECT_EQ(jumpAndWait(unknown, tools, {}), QStringLiteral("none"));
}
