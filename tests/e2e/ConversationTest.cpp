// A whole conversation through the real socket and the real hook tool, the way an agent drives it.
#include "agents/AgentStore.h"
#include "base/UserDefaults.h"
#include "bridge/BridgeServer.h"
#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

QString text(const char* s) {
    return QString::fromUtf8(s);
}

class Conversation : public testing::Test {
protected:
    Conversation()
        : defaults(home.path() + text("/defaults.json")), store(defaults, SystemClock::shared()),
          server([this](const std::shared_ptr<BridgeConnection>& connection) {
              store.handle(connection);
              ++handled;
          }) {}

    void SetUp() override { ASSERT_FALSE(server.start().has_value()); }

    // Starts the hook tool as Claude Code's hook would, with the event on its standard input.
    std::unique_ptr<QProcess> hook(QJsonObject event) {
        event.insert(text("session_id"), sessionID);
        event.insert(text("cwd"), text("/home/dev/shop"));
        auto process = std::make_unique<QProcess>();
        process->start(text(MIRROWISP_BRIDGE_TOOL_PATH), {text("--agent"), text("claude")});
        process->write(QJsonDocument(event).toJson(QJsonDocument::Compact));
        process->closeWriteChannel();
        return process;
    }

    // Runs a hook that is answered at once; returns what the tool printed once the store has the event
    // (a tool that expects no answer may exit before the app has read its line).
    QByteArray quickHook(const QJsonObject& event) {
        const int before = handled;
        auto process = hook(event);
        EXPECT_TRUE(test::waitUntil(
            [&] { return process->state() == QProcess::NotRunning && handled > before; }, 10000));
        EXPECT_EQ(process->exitCode(), 0);
        return process->readAllStandardOutput();
    }

    // Starts a permission request and waits until its card stands in the session.
    std::pair<std::unique_ptr<QProcess>, PendingDecision*> ask(QJsonObject fields) {
        fields.insert(text("hook_event_name"), text("PermissionRequest"));
        auto process = hook(fields);
        PendingDecision* decision = nullptr;
        test::waitUntil(
            [&] {
                AgentSession* s = current();
                decision = s && !s->pending().empty() ? s->pending().back().get() : nullptr;
                return decision != nullptr;
            },
            10000);
        return {std::move(process), decision};
    }

    QByteArray printedAfterAnswer(QProcess& process) {
        EXPECT_TRUE(test::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 10000));
        EXPECT_EQ(process.exitCode(), 0);
        return process.readAllStandardOutput();
    }

    AgentSession* current() const {
        return store.findSession(AgentSession::makeID(AgentKind::claude, sessionID));
    }

    test::TemporaryHome home;
    UserDefaults defaults;
    AgentStore store;
    BridgeServer server;
    QString sessionID = text("conv-1");
    int handled = 0;
};

QJsonObject ev(const char* name, QJsonObject extra = {}) {
    extra.insert(text("hook_event_name"), QLatin1StringView(name));
    return extra;
}

} // namespace

TEST_F(Conversation, AClaudeCodeSessionThroughTheRealTool) {
    EXPECT_EQ(quickHook(ev("SessionStart", {{text("source"), text("startup")}})), QByteArray());
    AgentSession* s = current();
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->status(), AgentStatus::idle());
    EXPECT_EQ(s->projectName(), text("shop"));
    EXPECT_TRUE(s->context().agentPID.has_value()) << "the tool names the process that ran it";

    quickHook(ev("UserPromptSubmit", {{text("prompt"), text("list the files")}}));
    EXPECT_EQ(s->status(), AgentStatus::thinking());
    EXPECT_EQ(s->lastPrompt(), text("list the files"));

    const QJsonObject bash{{text("tool_name"), text("Bash")},
                           {text("tool_input"), QJsonObject{{text("command"), text("ls -la")}}}};
    quickHook(ev("PreToolUse", bash));
    EXPECT_EQ(s->status(), AgentStatus::runningTool(text("Bash")));

    auto [allowTool, allowCard] = ask(bash);
    ASSERT_NE(allowCard, nullptr);
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
    EXPECT_EQ(allowTool->state(), QProcess::Running) << "the tool waits for the answer";
    store.allow(*allowCard, *s, false);
    EXPECT_EQ(
        printedAfterAnswer(*allowTool),
        QByteArray(
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"));

    quickHook(ev("PostToolUse", bash));
    EXPECT_EQ(s->status(), AgentStatus::thinking());

    // The tool prints each answer as the store wrote it, whatever the agent; the store's tests check
    // every kind of answer and agent.
    const QJsonObject question{
        {text("tool_name"), text("AskUserQuestion")},
        {text("tool_input"),
         QJsonObject{{text("questions"),
                      QJsonArray{QJsonObject{
                          {text("question"), text("Which port?")},
                          {text("header"), text("Port")},
                          {text("options"), QJsonArray{QJsonObject{{text("label"), text("8080")}}}}}}}}}};
    auto [questionTool, questionCard] = ask(question);
    ASSERT_EQ(questionCard->kind().kind, DecisionKind::Case::question);
    store.answer(*questionCard, *s, {{text("Which port?"), text("8080")}});
    EXPECT_EQ(
        printedAfterAnswer(*questionTool),
        QByteArray(
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Which port?":"8080"},"questions":[{"header":"Port","options":[{"label":"8080"}],"question":"Which port?"}]}},"hookEventName":"PermissionRequest"}})"));

    quickHook(ev("Stop", {{text("last_assistant_message"), text("Listed.")}}));
    EXPECT_EQ(s->status(), AgentStatus::done());
    EXPECT_EQ(s->lastMessage(), text("Listed."));
    quickHook(ev("SessionEnd"));
    EXPECT_EQ(s->status(), AgentStatus::ended());
}

TEST_F(Conversation, AToolKilledWhileItsCardWaitsTakesTheCardAway) {
    quickHook(ev("UserPromptSubmit", {{text("prompt"), text("go")}}));
    AgentSession* s = current();
    const QJsonObject bash{{text("tool_name"), text("Bash")},
                           {text("tool_input"), QJsonObject{{text("command"), text("ls")}}}};
    auto [tool, card] = ask(bash);
    ASSERT_NE(card, nullptr);
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
    tool->kill(); // the agent's hook timeout, or the user answering in the terminal
    ASSERT_TRUE(test::waitUntil([&] { return s->pending().empty(); }, 10000));
    EXPECT_EQ(s->status(), AgentStatus::thinking());
}
