// What the tool learns about the agent's process and terminal, from real processes on a real terminal.

#include "ToolHarness.h"
#include "support/TestSupport.h"

#include <QFileInfo>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

const QByteArray kEvent = R"({"hook_event_name":"PreToolUse","session_id":"s1"})";

QByteArray readTrimmed(const QByteArray& path) {
    return readFile(QString::fromUtf8(path)).trimmed();
}

} // namespace

// `script` gives the command a fresh terminal. `timeout` plays the agent: a process that is no shell,
// sits on that terminal, runs the hook's shell and waits for it. The hook's shell swaps its own
// standard streams for /dev/null, as an agent hands its hooks pipes.
TEST(ToolContext, FindsTheAgentsTerminalAndProcessAboveTheHookShell) {
    const struct {
        const char* hook;   // how the hook's shell runs the tool
        const char* around; // redirections of the agent's own streams
    } forms[] = {
        {"\"$T\" --agent claude < \"$W/event\"; :", ""},   // the shell waits for the tool
        {"exec \"$T\" --agent claude < \"$W/event\"", ""}, // the shell became the tool
        {"exec \"$T\" --agent claude < \"$W/event\"",
         " </dev/null >/dev/null 2>&1"}, // the terminal is known by its number only
    };
    for (const auto& form : forms) {
        ToolSandbox box;
        FakeApp app(box.socketPath());
        writeFile(QString::fromUtf8(box.path() + "/event"), kEvent);
        const QByteArray hook =
            QByteArray("exec </dev/null >/dev/null 2>&1; echo $PPID > \"$W/agent\"; ") + form.hook;
        Environment env = box.env;
        env["W"] = box.path();
        env["T"] = toolPath();
        env["SHELL"] = "/bin/sh";
        Child terminal({"/usr/bin/script", "-qec",
                        "tty > \"$W/tty\"; timeout 30 /bin/sh -c '" + hook + "'" + form.around, "/dev/null"},
                       env, {});
        auto request = app.next();
        ASSERT_TRUE(request) << form.hook;
        EXPECT_TRUE(terminal.finish().finished);

        const QByteArray tty = readTrimmed(box.path() + "/tty");
        ASSERT_TRUE(tty.startsWith("/dev/pts/")) << tty.constData();
        EXPECT_EQ(request->context().value(u"tty").toString().toUtf8(), tty) << form.hook << form.around;
        EXPECT_EQ(request->context().value(u"agentPID").toInt(), readTrimmed(box.path() + "/agent").toInt())
            << form.hook << form.around;
    }
}

TEST(ToolContext, CarriesTheVariablesAJumpNeedsAndNothingElse) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    const QByteArray longValue =
        "x" + QString(3000, QChar(0xE9)).toUtf8(); // the cut lands inside a character
    const QByteArray tmux = "/tmp/tmux-1/default," + QByteArray::number(getpid()) + ",0";
    auto tool = box.start({"--agent", "claude"}, kEvent,
                          {{"TERM_PROGRAM", "WezTerm"},
                           {"TMUX", tmux},
                           {"TMUX_PANE", "%7"},
                           {"GHOSTTY_RESOURCES_DIR", "/g"},
                           {"CLAUDE_CODE_ENTRYPOINT", "cli"},
                           {"KONSOLE_DBUS_SESSION", "/Sessions/2"},
                           {"KITTY_WINDOW_ID", "4"},
                           {"HERDR_PANE_ID", "p1"},
                           {"CMUX_SURFACE_ID", "sf"},
                           {"VSCODE_PID", "77"},
                           {"DISPLAY", ":1"},
                           {"WEZTERM_PANE", longValue},
                           {"WINDOWID", "\xff\xfe"},
                           {"API_TOKEN", "secret"},
                           {"DBUS_SESSION_BUS_ADDRESS", "x"}});
    auto request = app.next();
    ASSERT_TRUE(request);
    tool->finish();

    const QJsonObject context = request->context();
    EXPECT_EQ(context.value(u"termProgram").toString(), u"WezTerm"_s);
    EXPECT_EQ(context.value(u"tmuxPane").toString(), u"%7"_s);
    EXPECT_EQ(context.value(u"ghosttyResourcesDir").toString(), u"/g"_s);
    EXPECT_EQ(context.value(u"entrypoint").toString(), u"cli"_s);
    EXPECT_EQ(context.value(u"hostSessionID").toString(), u"/Sessions/2"_s);
    // The tmux that serves the pane is the server's own executable: here the test's.
    EXPECT_EQ(context.value(u"tmuxBinary").toString(), QFileInfo(u"/proc/self/exe"_s).symLinkTarget());

    const QJsonObject environment = context.value(u"environment").toObject();
    EXPECT_EQ(environment.keys(),
              (QStringList{u"CMUX_SURFACE_ID"_s, u"DISPLAY"_s, u"GHOSTTY_RESOURCES_DIR"_s, u"HERDR_PANE_ID"_s,
                           u"KITTY_WINDOW_ID"_s, u"KONSOLE_DBUS_SESSION"_s, u"TERM_PROGRAM"_s, u"TMUX"_s,
                           u"TMUX_PANE"_s, u"VSCODE_PID"_s, u"WEZTERM_PANE"_s, u"WINDOWID"_s}));
    EXPECT_EQ(environment.value(u"TMUX").toString().toUtf8(), tmux);
    const QByteArray cut = environment.value(u"WEZTERM_PANE").toString().toUtf8();
    EXPECT_GT(cut.size(), 1000);
    EXPECT_LE(cut.size(), 1024);
    EXPECT_TRUE(longValue.startsWith(cut));
    EXPECT_EQ(environment.value(u"WINDOWID").toString(), QString(2, QChar(0xFFFD)));
}

TEST(ToolContext, FindsTmuxOnThePathWhenItsServerIsGone) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    writeFile(QString::fromUtf8(box.path() + "/bin/tmux"), "", true);
    auto tool =
        box.start({"--agent", "claude"}, kEvent,
                  {{"TMUX", "/tmp/tmux-1/default,999999999,0"}, {"PATH", box.path() + "/bin:/usr/bin:/bin"}});
    auto request = app.next();
    ASSERT_TRUE(request);
    tool->finish();
    EXPECT_EQ(request->context().value(u"tmuxBinary").toString().toUtf8(), box.path() + "/bin/tmux");
}
