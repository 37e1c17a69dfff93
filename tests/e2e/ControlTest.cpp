// `mirrowisp ctl` against the real app on a private session bus, with the real hook tool waiting.
#include "support/RealApp.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;

using mirrowisp::test::RunResult;

class Control : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(real.busStarted()) << "dbus-daemon did not start"; }
    void startApp() { ASSERT_TRUE(real.start()); }
    RunResult run(const QStringList& arguments) { return real.run(arguments); }
    RunResult ctl(const QStringList& arguments) { return real.ctl(arguments); }
    std::unique_ptr<QProcess> startCopy(const QStringList& arguments = {}) {
        return real.startCopy(arguments);
    }
    std::unique_ptr<QProcess> hook(const QJsonObject& event) { return real.hook(event); }
    QJsonArray sessions() { return real.sessions(); }
    QString waitForDecision() { return real.waitForDecision(); }

    // Sends a session start through the socket and waits until the bus lists it: the copy that
    // serves the socket also holds the name.
    bool socketAndBusReachOneCopy(const QString& sessionID) {
        if (!mirrowisp::test::waitUntil([&] { return ctl({text("sessions")}).exitCode == 0; }, 10000)) {
            return false;
        }
        auto tool = hook({{text("hook_event_name"), text("SessionStart")}, {text("session_id"), sessionID}});
        return tool->waitForFinished(10000) &&
               mirrowisp::test::waitUntil(
                   [&] { return ctl({text("sessions")}).out.contains(sessionID.toUtf8()); }, 10000);
    }

    mirrowisp::test::RealApp real;
    QProcess& app = real.process();
    const mirrowisp::test::TemporaryHome& home = real.home();
};

const QJsonObject bashRequest{{text("hook_event_name"), text("PermissionRequest")},
                              {text("session_id"), text("ctl-1")},
                              {text("cwd"), text("/home/dev/site")},
                              {text("tool_name"), text("Bash")},
                              {text("tool_input"), QJsonObject{{text("command"), text("make deploy")}}}};

} // namespace

TEST_F(Control, ListsSessionsAndAnswersAWaitingToolLikeTheCardWould) {
    startApp();
    auto tool = hook(bashRequest);
    ASSERT_FALSE(waitForDecision().isEmpty());

    const QJsonObject session = sessions().first().toObject();
    EXPECT_EQ(session[text("id")], text("claude:ctl-1"));
    EXPECT_EQ(session[text("agent")], text("claude"));
    EXPECT_EQ(session[text("projectName")], text("site"));
    EXPECT_EQ(session[text("status")], text("needsAttention"));
    EXPECT_TRUE(session[text("updatedAt")].toString().endsWith(QLatin1Char('Z')));
    const QJsonObject decision = session[text("pending")][0].toObject();
    EXPECT_EQ(decision[text("kind")], text("permission"));
    EXPECT_EQ(decision[text("tool")], text("Bash"));
    EXPECT_EQ(decision[text("summary")], text("make deploy"));

    const RunResult unknown = ctl({text("allow"), text("no-such-id")});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_TRUE(unknown.err.contains("no-such-id"));
    EXPECT_EQ(unknown.err.count('\n'), 1) << unknown.err.toStdString();

    // Each answer reaches the waiting tool as the card's would; the first request is still waiting.
    const std::pair<const char*, QByteArray> answers[] = {
        {"allow", R"({"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"})"},
        {"deny", R"({"decision":{"behavior":"deny",)"},
        {"terminal", ""}};
    for (const auto& [command, printed] : answers) {
        auto waiting = tool ? std::move(tool) : hook(bashRequest);
        EXPECT_EQ(ctl({text(command), waitForDecision()}).exitCode, 0);
        ASSERT_TRUE(waiting->waitForFinished(10000));
        const QByteArray out = waiting->readAllStandardOutput();
        EXPECT_TRUE(printed.isEmpty() ? out.isEmpty() : out.contains(printed))
            << command << out.toStdString();
        EXPECT_EQ(sessions().first()[text("status")], text("thinking"));
    }

    const QJsonObject usage = QJsonDocument::fromJson(ctl({text("usage")}).out).object();
    EXPECT_TRUE(usage[text("claude")].isObject());
    EXPECT_TRUE(usage[text("meters")].isObject());

    // No terminal the drivers know and no window system here: the jump reports that it found none.
    const RunResult jumped = ctl({text("jump"), text("claude:ctl-1")});
    EXPECT_EQ(jumped.exitCode, 0);
    EXPECT_EQ(jumped.out.trimmed(), QByteArray("none"));
    EXPECT_EQ(ctl({text("jump"), text("nope")}).exitCode, 1);

    EXPECT_EQ(ctl({text("hide"), text("nope")}).exitCode, 1);
    EXPECT_EQ(ctl({text("hide"), text("claude:ctl-1")}).exitCode, 0);
    EXPECT_TRUE(sessions().isEmpty());
}

TEST_F(Control, AnswersQuestionsAndPlans) {
    startApp();
    QJsonObject question = bashRequest;
    question.insert(text("tool_name"), text("AskUserQuestion"));
    question.insert(
        text("tool_input"),
        QJsonObject{{text("questions"), QJsonArray{QJsonObject{{text("question"), text("Ship it?")}}}}});
    auto asked = hook(question);
    const QString id = waitForDecision();
    EXPECT_EQ(sessions().first()[text("pending")][0][text("questions")][0][text("question")],
              text("Ship it?"));
    EXPECT_EQ(ctl({text("answer"), id, text("--json"), text("[1]")}).exitCode, 1) << "answers are an object";
    EXPECT_EQ(ctl({text("answer"), id, text("--json"), text(R"({"Ship it?":"yes"})")}).exitCode, 0);
    ASSERT_TRUE(asked->waitForFinished(10000));
    EXPECT_TRUE(asked->readAllStandardOutput().contains(R"("answers":{"Ship it?":"yes"})"));

    QJsonObject plan = bashRequest;
    plan.insert(text("tool_name"), text("ExitPlanMode"));
    plan.insert(text("tool_input"), QJsonObject{{text("plan"), text("# Steps")}});
    auto planned = hook(plan);
    const QString planID = waitForDecision();
    EXPECT_EQ(sessions().first()[text("pending")][0][text("markdown")], text("# Steps"));
    EXPECT_EQ(ctl({text("keep-planning"), planID, text("--feedback"), text("smaller steps")}).exitCode, 0);
    ASSERT_TRUE(planned->waitForFinished(10000));
    EXPECT_TRUE(planned->readAllStandardOutput().contains(R"("message":"smaller steps")"));
}

TEST_F(Control, AnswersHelpAndRefusesWrongCommandLinesWithoutStarting) {
    struct Case {
        QStringList arguments;
        int exitCode;
        const char* out;
        const char* err;
    };
    const Case cases[] = {
        {{text("--help")}, 0, "--replace", ""},
        {{text("-h")}, 0, "--replace", ""},
        {{text("--version")}, 0, "mirrowisp ", ""},
        {{text("--frobnicate")}, 2, "", "unknown option '--frobnicate'"},
        {{text("--replace"), text("now")}, 2, "", "unknown option 'now'"},
        {{text("ctl"), text("--help")}, 0, "usage: mirrowisp ctl", ""},
        {{text("ctl"), text("allow"), text("--help")}, 0, "usage: mirrowisp ctl", ""},
        {{text("ctl"), text("allow")}, 64, "", "usage: mirrowisp ctl"},
        {{text("ctl"), text("frobnicate"), text("x")}, 64, "", "usage: mirrowisp ctl"},
        {{text("ctl"), text("--timeout"), text("soon"), text("sessions")}, 64, "", "usage: mirrowisp ctl"},
        {{text("ctl"), text("sessions")}, 2, "", "mirrowisp ctl: Mirrowisp is not running\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(QLatin1Char(' ')).toStdString());
        const RunResult result = run(c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode);
        EXPECT_TRUE(result.out.contains(c.out)) << result.out.toStdString();
        EXPECT_TRUE(result.err.contains(c.err)) << result.err.toStdString();
    }
    EXPECT_FALSE(QFileInfo::exists(home.supportDir())) << "nothing started, nothing installed";

    // A copy that holds the name but does not answer in time is not "not running".
    startApp();
    ::kill(static_cast<pid_t>(app.processId()), SIGSTOP);
    const RunResult slow = ctl({text("--timeout"), text("0.3"), text("sessions")});
    ::kill(static_cast<pid_t>(app.processId()), SIGCONT);
    EXPECT_EQ(slow.exitCode, 3);
    EXPECT_EQ(slow.err, QByteArray("mirrowisp ctl: Mirrowisp is not answering (timed out)\n"));
}

TEST_F(Control, OfTwoCopiesStartedTogetherOneServesBothTheSocketAndTheName) {
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        std::unique_ptr<QProcess> copies[] = {startCopy(), startCopy()};
        std::size_t left = 2;
        ASSERT_TRUE(mirrowisp::test::waitUntil(
            [&] {
                for (std::size_t i = 0; i < 2; ++i) {
                    left = copies[i]->state() == QProcess::NotRunning ? i : left;
                }
                return left < 2;
            },
            10000));
        EXPECT_EQ(copies[left]->exitCode(), 0);
        EXPECT_TRUE(copies[left]->readAllStandardError().contains("already running; asked the running copy"));
        EXPECT_TRUE(socketAndBusReachOneCopy(QStringLiteral("together-%1").arg(round)));
        QProcess& running = *copies[1 - left];
        EXPECT_EQ(running.state(), QProcess::Running);
        running.terminate();
        ASSERT_TRUE(running.waitForFinished(10000));
    }
}

TEST_F(Control, ACopyStartedToReplaceTakesBothOverAndTheOldOneQuits) {
    startApp();
    auto newer = startCopy({text("--replace")});
    ASSERT_TRUE(app.waitForFinished(10000));
    EXPECT_EQ(app.exitCode(), 0);
    const QByteArray log = app.readAllStandardError();
    EXPECT_EQ(log.count("over; quitting"), 1) << log.toStdString();
    EXPECT_TRUE(socketAndBusReachOneCopy(text("replaced")));
    EXPECT_TRUE(QFileInfo::exists(home.supportDir() + text("/bridge.sock")));
    newer->terminate();
    EXPECT_TRUE(newer->waitForFinished(10000));
}

TEST_F(Control, InstallsHooksForAgentsOnTheMachineAndConnectsOrDisconnectsThemOnRequest) {
    // A file Claude Code leaves behind is enough to count it as installed.
    QFile trace(home.path() + text("/.claude.json"));
    ASSERT_TRUE(trace.open(QIODevice::WriteOnly));
    trace.write("{}");
    trace.close();
    startApp();
    const QString settings = home.path() + text("/.claude/settings.json");
    auto hooked = [&] {
        QFile file(settings);
        return file.open(QIODevice::ReadOnly) && file.readAll().contains("mirrowisp-bridge");
    };
    ASSERT_TRUE(mirrowisp::test::waitUntil(hooked, 20000))
        << "the start-up connection pass installs the hooks";
    EXPECT_FALSE(QFile::exists(home.path() + text("/.codex/hooks.json"))) << "Codex is not on this machine";

    auto setupOf = [&](const char* agent) {
        for (const QJsonValue& entry : QJsonDocument::fromJson(ctl({text("agents")}).out).array()) {
            if (entry[text("agent")] == QLatin1StringView(agent)) {
                return entry.toObject();
            }
        }
        return QJsonObject();
    };
    EXPECT_EQ(setupOf("claude")[text("setup")], text("connected"));
    EXPECT_EQ(setupOf("codex")[text("setup")], text("notInstalled"));
    EXPECT_EQ(QJsonDocument::fromJson(ctl({text("agents")}).out).array().size(), 8);

    EXPECT_EQ(ctl({text("disconnect"), text("claude")}).exitCode, 0);
    EXPECT_FALSE(hooked());
    EXPECT_EQ(setupOf("claude")[text("setup")], text("disconnected"));
    // Backups are stamped to the second and a second change within it is refused; start afresh.
    QDir(home.supportDir() + text("/backups")).removeRecursively();
    EXPECT_EQ(ctl({text("connect"), text("claude")}).exitCode, 0);
    EXPECT_TRUE(hooked());
    EXPECT_EQ(ctl({text("connect"), text("vim")}).exitCode, 1);
}
