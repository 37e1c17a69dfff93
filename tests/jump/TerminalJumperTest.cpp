#include "jump/TerminalJumper.h"

#include "agents/AgentSession.h"
#include "jump/JumpTestSupport.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QThread>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::TerminalJumper;
using namespace Qt::StringLiterals;
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

Target targetWith(const QMap<QString, QString>& environment, const QString& cwd = u"/work/proj"_s) {
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
    const QString listen = u"unix:/tmp/"_s + value;
    struct Case {
        const char* tool;
        QMap<QString, QString> environment;
        QStringList arguments;
    };
    const Case cases[] = {
        {"kitty",
         {{u"KITTY_WINDOW_ID"_s, value}, {u"KITTY_LISTEN_ON"_s, listen}},
         QStringList{u"@"_s, u"--to"_s, listen} + words(u"focus-window --match") << u"id:"_s + value},
        {"wezterm",
         {{u"WEZTERM_PANE"_s, value}, {u"WEZTERM_UNIX_SOCKET"_s, value}},
         words(u"cli activate-pane --pane-id") << value},
        {"cmux",
         {{u"CMUX_SURFACE_ID"_s, value}, {u"CMUX_WORKSPACE_ID"_s, u"w1"_s}},
         words(u"focus-surface --surface") << value},
    };
    for (const Case& c : cases) {
        const QString tool = QString::fromLatin1(c.tool);
        standIns.add(tool);
        EXPECT_EQ(jumpAndWait(targetWith(c.environment), standInTools(standIns), {}), tool);
        EXPECT_EQ(standIns.arguments(tool), c.arguments);
    }
    EXPECT_EQ(standIns.environment(u"wezterm"_s).value(u"WEZTERM_UNIX_SOCKET"_s), value);

    const QString herdr = standIns.add(u"herdr-bin"_s);
    QStringList activated;
    const Activate activate = [&](const std::optional<QString>& app, const Target&) {
        activated.append(app.value_or(u"?"_s));
        return true;
    };
    Target herdrTarget = targetWith(
        {{u"HERDR_PANE_ID"_s, value}, {u"HERDR_BIN_PATH"_s, herdr}, {u"HERDR_SOCKET_PATH"_s, value}});
    herdrTarget.appID = u"kitty"_s;
    EXPECT_EQ(jumpAndWait(herdrTarget, standInTools(standIns), activate), u"herdr"_s);
    EXPECT_EQ(standIns.arguments(u"herdr-bin"_s), words(u"agent focus") << value);
    EXPECT_EQ(standIns.environment(u"herdr-bin"_s).value(u"HERDR_SOCKET_PATH"_s), value);
    EXPECT_EQ(activated, QStringList{u"kitty"_s}); // the terminal around herdr comes up too

    auto konsole = std::make_shared<RecordingKonsole>();
    TerminalDrivers::Tools withKonsole = standInTools(standIns);
    withKonsole.konsole = konsole;
    EXPECT_EQ(jumpAndWait(targetWith({{u"KONSOLE_DBUS_SERVICE"_s, u":1.42"_s},
                                      {u"KONSOLE_DBUS_SESSION"_s, u"/Sessions/3"_s}}),
                          withKonsole, {}),
              u"konsole"_s);
    EXPECT_EQ(konsole->calls, QStringList{u":1.42|/Sessions/3"_s});
}

TEST(TerminalJumperDrivers, OpenTheFolderInTheEditorWhoseTerminalRunsTheAgent) {
    const QString folder = u"/home/u/"_s + awkwardValue();
    struct Case {
        const char* editor;
        QMap<QString, QString> environment;
        std::optional<QString> appID;
    };
    const Case cases[] = {
        {"code", {{u"VSCODE_IPC_HOOK_CLI"_s, u"/run/user/1000/vscode.sock"_s}}, {}},
        {"cursor",
         {{u"TERM_PROGRAM"_s, u"vscode"_s}, {u"VSCODE_GIT_ASKPASS_NODE"_s, u"/usr/share/cursor/cursor"_s}},
         {}},
        {"windsurf", {}, u"windsurf"_s},
        // A plain terminal is no editor: nothing is opened.
        {nullptr, {{u"TERM_PROGRAM"_s, u"xterm"_s}}, {}},
    };
    for (const Case& c : cases) {
        StandIns standIns;
        for (const char* editor : {"code", "cursor", "windsurf"}) {
            standIns.add(QString::fromLatin1(editor));
        }
        Target target = targetWith(c.environment, folder);
        target.appID = c.appID;
        EXPECT_EQ(jumpAndWait(target, standInTools(standIns), {}), c.editor ? u"editor"_s : u"none"_s);
        for (const char* editor : {"code", "cursor", "windsurf"}) {
            const bool chosen = c.editor && QLatin1String(editor) == QLatin1String(c.editor);
            const QStringList expected = chosen ? QStringList{u"-r"_s, folder} : QStringList();
            EXPECT_EQ(standIns.arguments(QString::fromLatin1(editor)), expected) << editor;
        }
    }
}

TEST(TerminalJumperOrder, AFailingDriverHandsOnAndActivationComesLast) {
    StandIns standIns;
    standIns.add(u"kitty"_s, 1);
    standIns.add(u"wezterm"_s);
    const QMap<QString, QString> both{{u"KITTY_WINDOW_ID"_s, u"7"_s}, {u"WEZTERM_PANE"_s, u"3"_s}};
    EXPECT_EQ(jumpAndWait(targetWith(both), standInTools(standIns), {}), u"wezterm"_s);
    EXPECT_TRUE(standIns.ran(u"kitty"_s));

    StandIns failing;
    failing.add(u"kitty"_s, 1);
    failing.add(u"wezterm"_s, 2);
    Target target = targetWith(both);
    target.appID = u"org.wezfurlong.wezterm"_s;
    std::optional<QString> raised;
    const Activate activate = [&](const std::optional<QString>& app, const Target&) {
        raised = app;
        return true;
    };
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), activate), u"activated"_s);
    EXPECT_EQ(raised, u"org.wezfurlong.wezterm"_s);
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), [](const auto&, const auto&) { return false; }),
              u"none"_s);
    EXPECT_EQ(jumpAndWait(target, standInTools(failing), {}), u"none"_s);

    // Variables without their tool: no driver can act.
    StandIns empty;
    EXPECT_EQ(jumpAndWait(targetWith(both), standInTools(empty), {}), u"none"_s);
}

TEST(TerminalJumperOrder, AppIDComesFromTheRecordedTerminal) {
    ProcessContext context;
    EXPECT_EQ(appID(context), std::nullopt);
    context.termProgram = u"WezTerm"_s;
    EXPECT_EQ(appID(context), u"org.wezfurlong.wezterm"_s);
    context.termProgram = u"vscode"_s;
    EXPECT_EQ(appID(context), u"code"_s);
    context.termProgram = u"something-new"_s;
    EXPECT_EQ(appID(context), std::nullopt);
    context.terminalBundleID = u"org.kde.konsole"_s;
    EXPECT_EQ(appID(context), u"org.kde.konsole"_s);
}

TEST(TerminalJumperAsync, RunsDriversInTheBackgroundAndReportsOnTheMainThread) {
    StandIns standIns;
    standIns.add(u"kitty"_s);
    AgentSession session(AgentKind::claude, u"local_abc-123"_s, 1'800'000'000.0);
    session.setCwd(u"/work/proj"_s);
    ProcessContext context;
    context.environment = QMap<QString, QString>{{u"KITTY_WINDOW_ID"_s, u"5"_s}};
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
    EXPECT_EQ(outcome, u"kitty"_s);
    EXPECT_TRUE(onMain);

    std::optional<QString> second;
    bool activatedOnMain = false;
    jump(
        session,
        [&](const std::optional<QString>&, const Target& target) {
            activatedOnMain = QThread::currentThread() == QCoreApplication::instance()->thread() &&
                              target.sessionID == u"local_abc-123"_s;
            return true;
        },
        [&](const QString& result) { second = result; }, standInTools(StandIns()));
    ASSERT_TRUE(test::waitUntil([&] { return second.has_value(); }));
    EXPECT_EQ(second, u"activated"_s);
    EXPECT_TRUE(activatedOnMain);
}

namespace {

class RecordingWindows final : public WindowFocus {
public:
    bool activateWindow(quint32 windowID) override {
        calls.append(u"window %1"_s.arg(windowID));
        return windowAnswer;
    }
    bool activateWindowOf(qint32 pid) override {
        calls.append(u"pid %1"_s.arg(pid));
        return true;
    }
    QStringList calls;
    bool windowAnswer = true;
};

} // namespace

TEST(TerminalJumperWindows, RaisesTheWindowOfAnX11TerminalButNeverOfAnEditor) {
    test::FakeProc proc;
    proc.add(1, 0, u"/usr/lib/systemd/systemd"_s);
    proc.add(50, 1, u"/usr/libexec/gnome-terminal-server"_s);
    proc.add(60, 50, u"/usr/bin/bash"_s);
    StandIns standIns;
    standIns.add(u"code"_s);
    auto windows = std::make_shared<RecordingWindows>();
    TerminalDrivers::Tools tools = standInTools(standIns);
    tools.procRoot = proc.root();
    tools.windows = windows;

    Target byWindowID = targetWith({{u"WINDOWID"_s, u"62914567"_s}});
    byWindowID.context.agentPID = 60;
    EXPECT_EQ(jumpAndWait(byWindowID, tools, {}), u"ewmh"_s);
    EXPECT_EQ(windows->calls, QStringList{u"window 62914567"_s});

    // A window id that no longer exists: the terminal's process names the window.
    windows->calls.clear();
    windows->windowAnswer = false;
    EXPECT_EQ(jumpAndWait(byWindowID, tools, {}), u"ewmh"_s);
    EXPECT_EQ(windows->calls, (QStringList{u"window 62914567"_s, u"pid 50"_s}));

    windows->calls.clear();
    Target inEditor = targetWith({{u"TERM_PROGRAM"_s, u"vscode"_s}, {u"WINDOWID"_s, u"62914567"_s}});
    inEditor.context.agentPID = 60;
    EXPECT_EQ(jumpAndWait(inEditor, tools, {}), u"editor"_s);
    EXPECT_TRUE(windows->calls.isEmpty());

    Target unknown = targetWith({});
    unknown.context.agentPID = 4242; // gone
    EXPECT_EQ(jumpAndWait(unknown, tools, {}), u"none"_s);
}
