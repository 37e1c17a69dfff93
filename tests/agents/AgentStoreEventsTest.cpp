#include "AgentStoreFixture.h"
#include "agents/AgentActivity.h"

#include <QJsonArray>

using namespace mirrowisp;
using test::AgentStoreFixture;

class AgentStoreEvents : public AgentStoreFixture {};

TEST_F(AgentStoreEvents, FollowsAConversationFromStartToEnd) {
    ProcessContext terminal;
    terminal.tty = text("/dev/pts/7");
    terminal.agentPID = 4242;
    sendAnswered(AgentKind::claude, event("SessionStart", "s1", {{text("cwd"), text("/home/me/app")}}),
                 terminal);
    AgentSession* s = session(AgentKind::claude, text("s1"));
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->status(), AgentStatus::idle());
    EXPECT_EQ(s->projectName(), text("app"));
    EXPECT_EQ(s->context().tty, text("/dev/pts/7"));
    EXPECT_EQ(signalCount(AgentSignal::sessionStarted), 1);

    clock.advance(1);
    sendAnswered(AgentKind::claude,
                 event("UserPromptSubmit", "s1",
                       {{text("prompt"), text("Fix the **failing** test")}, {text("model"), text("opus")}}));
    EXPECT_EQ(s->status(), AgentStatus::thinking());
    EXPECT_EQ(s->lastPrompt(), text("Fix the failing test"));
    EXPECT_EQ(s->turnStartedAt(), clock.now());
    EXPECT_EQ(s->model(), text("opus"));
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::claude, 1, clock.now()), 1);

    clock.advance(1);
    sendAnswered(AgentKind::claude,
                 event("PreToolUse", "s1",
                       {{text("tool_name"), text("Bash")},
                        {text("tool_input"), QJsonObject{{text("command"), text("npm   test")}}}}));
    EXPECT_EQ(s->status(), AgentStatus::runningTool(text("Bash")));
    EXPECT_EQ(s->toolDetail(), text("npm test"));
    EXPECT_EQ(s->activity(), text("Running npm test"));
    EXPECT_EQ(s->updatedAt(), clock.now());

    sendAnswered(AgentKind::claude, event("PostToolUse", "s1", {{text("tool_name"), text("Bash")}}));
    EXPECT_EQ(s->status(), AgentStatus::thinking());
    EXPECT_FALSE(s->toolDetail().has_value());
    EXPECT_EQ(s->activity(), text("Running npm test")) << "the activity line stays until the next turn";

    sendAnswered(AgentKind::claude,
                 event("Stop", "s1", {{text("last_assistant_message"), text("All   `green`.")}}));
    EXPECT_EQ(s->status(), AgentStatus::done());
    EXPECT_EQ(s->lastMessage(), text("All green."));
    EXPECT_EQ(signalCount(AgentSignal::finished), 1);

    sendAnswered(AgentKind::claude, event("PostToolUse", "s1", {{text("tool_name"), text("Bash")}}));
    EXPECT_EQ(s->status(), AgentStatus::done())
        << "a late post-tool event does not bring a finished session back";

    sendAnswered(AgentKind::claude, event("SessionEnd", "s1"));
    EXPECT_EQ(s->status(), AgentStatus::ended());
    EXPECT_EQ(signalCount(AgentSignal::ended), 1);
    clock.advance(10);
    sendAnswered(AgentKind::claude,
                 event("Notification", "s1", {{text("notification_type"), text("idle_prompt")}}));
    EXPECT_EQ(s->status(), AgentStatus::idle()) << "any event revives an ended session";
}

TEST_F(AgentStoreEvents, DropsMalformedEventsWithTheEmptyReply) {
    const QByteArray payloads[] = {
        "",
        "not json",
        "[1,2]",
        "\"text\"",
        "{\"session_id\":\"s\"}",
        "{\"hook_event_name\":\"Stop\"}",
        "{\"hook_event_name\":\"Stop\",\"session_id\":5}",
        "{\"hook_event_name\":7,\"session_id\":\"s\"}",
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"caf\xc3\"}",
        QByteArray(100'000, '[') + QByteArray(100'000, ']'),
    };
    for (const QByteArray& payload : payloads) {
        auto sent = sendRaw(AgentKind::claude, payload);
        const auto line = sent.tool->replyLine();
        ASSERT_TRUE(line.has_value()) << payload.left(40).toStdString();
        EXPECT_EQ(*line, "{\"id\":\"" + sent.connection->request().id.toUtf8() + "\"}\n");
    }
    EXPECT_TRUE(store.sessions().empty());
    EXPECT_TRUE(raised.empty());
}

TEST_F(AgentStoreEvents, KeepsTheTerminalAndDirectoryItAlreadyKnows) {
    ProcessContext withTTY;
    withTTY.tty = text("/dev/pts/1");
    ProcessContext without;
    without.termProgram = text("vscode");
    sendAnswered(AgentKind::codex, event("SessionStart", "x", {{text("cwd"), text("/src/one")}}), without);
    AgentSession* s = session(AgentKind::codex, text("x"));
    EXPECT_EQ(s->context(), without) << "a context replaces one without a terminal";
    sendAnswered(AgentKind::codex, event("PreToolUse", "x", {{text("cwd"), text("")}}), withTTY);
    EXPECT_EQ(s->context(), withTTY);
    EXPECT_EQ(s->cwd(), text("/src/one"));
    sendAnswered(AgentKind::codex, event("PostToolUse", "x"), without);
    EXPECT_EQ(s->context(), withTTY) << "a hook without a terminal never erases the known one";

    sendAnswered(AgentKind::claude, event("SessionStart", "x"));
    EXPECT_EQ(store.sessions().size(), 2U) << "one session id under two agents is two sessions";
}

TEST_F(AgentStoreEvents, MakesASessionForAnUnknownEventAndAgainAfterDismissal) {
    sendAnswered(AgentKind::amp, event("SomethingNew", "a"));
    AgentSession* s = session(AgentKind::amp, text("a"));
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->status(), AgentStatus::idle());
    clock.advance(5);
    sendAnswered(AgentKind::amp, event("stop", "a")); // names are case-sensitive
    EXPECT_EQ(s->status(), AgentStatus::idle());
    EXPECT_EQ(s->updatedAt(), clock.now());

    sendAnswered(AgentKind::amp, event("SubagentStart", "a"));
    sendAnswered(AgentKind::amp, event("SubagentStop", "a"));
    sendAnswered(AgentKind::amp, event("SubagentStop", "a"));
    EXPECT_EQ(s->activeSubagents(), 0);

    store.dismiss(s->id());
    EXPECT_EQ(session(AgentKind::amp, text("a")), nullptr);
    sendAnswered(AgentKind::amp, event("SubagentStart", "a"));
    AgentSession* again = session(AgentKind::amp, text("a"));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->activeSubagents(), 1);
}

TEST_F(AgentStoreEvents, PromptsThatCleanToNothingKeepTheLastPrompt) {
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "s1", {{text("prompt"), text("first")}}));
    sendAnswered(AgentKind::claude, event("AgentResponse", "s1", {{text("message"), text("Working on it")}}));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    EXPECT_EQ(s->lastMessage(), text("Working on it"));
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "s1",
                                          {{text("prompt"), text("<system-reminder>x</system-reminder>")}}));
    EXPECT_EQ(s->lastPrompt(), text("first"));
    EXPECT_FALSE(s->lastMessage().has_value());
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::claude, 1, clock.now()), 1);
    EXPECT_EQ(signalCount(AgentSignal::promptSubmitted), 2);
}

TEST_F(AgentStoreEvents, NotificationsCallTheUserOnlyWhenSomethingWaits) {
    sendAnswered(AgentKind::claude,
                 event("Notification", "s1", {{text("message"), text("Claude needs your permission")}}));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
    EXPECT_EQ(s->lastMessage(), text("Claude needs your permission"));
    EXPECT_EQ(signalCount(AgentSignal::needsAttention), 1);

    sendAnswered(AgentKind::claude,
                 event("Notification", "s1",
                       {{text("notification_type"), text("idle_prompt")}, {text("message"), text("x")}}));
    sendAnswered(AgentKind::claude,
                 event("Notification", "s1", {{text("message"), text("Claude is WAITING for your INPUT")}}));
    sendAnswered(AgentKind::claude,
                 event("Notification", "s1", {{text("notification_type"), text("auth_success")}}));
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
    EXPECT_EQ(s->lastMessage(), text("Claude needs your permission"));
    EXPECT_EQ(signalCount(AgentSignal::needsAttention), 1);

    sendAnswered(AgentKind::gemini, event("Notification", "g"));
    EXPECT_EQ(session(AgentKind::gemini, text("g"))->lastMessage(), QString())
        << "an empty message is still set";
}

TEST_F(AgentStoreEvents, CompactionAndStopWithoutAMessageReadTheTranscript) {
    const QString path = home.path() + text("/t.jsonl");
    test::writeFile(path,
                    R"({"type":"user","message":{"content":"hello"}})"
                    "\n"
                    R"({"type":"assistant","message":{"content":[{"type":"text","text":"Done with   it"}]}})"
                    "\n");
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "s1",
                                          {{text("prompt"), text("hi")}, {text("transcript_path"), path}}));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    sendAnswered(AgentKind::claude, event("PreCompact", "s1"));
    EXPECT_EQ(s->status(), AgentStatus::compacting());
    sendAnswered(AgentKind::claude, event("PostCompact", "s1"));
    EXPECT_EQ(s->status(), AgentStatus::thinking());
    sendAnswered(AgentKind::claude, event("Stop", "s1"));
    EXPECT_EQ(s->lastMessage(), text("Done with it"));
}

TEST_F(AgentStoreEvents, BackfillsThePromptOfASessionMetMidway) {
    const QString path = home.path() + text("/t.jsonl");
    test::writeFile(path, R"({"type":"user","message":{"content":"Refactor the parser"}})"
                          "\n");
    sendAnswered(
        AgentKind::claude,
        event("PreToolUse", "mid", {{text("transcript_path"), path}, {text("tool_name"), text("Read")}}));
    AgentSession* s = session(AgentKind::claude, text("mid"));
    ASSERT_TRUE(test::waitUntil([&] { return s->lastPrompt().has_value(); }));
    EXPECT_EQ(s->lastPrompt(), text("Refactor the parser"));
}

TEST_F(AgentStoreEvents, TurnedOffAgentsAreHeardButNotTracked) {
    setting([](AgentStoreSettings& s) { s.disabledAgents.insert(AgentKind::cursor); });
    sendAnswered(AgentKind::cursor, event("SessionStart", "c"));
    EXPECT_TRUE(store.sessions().empty());
    EXPECT_EQ(store.lastSeen().value(AgentKind::cursor), clock.now());
    EXPECT_EQ(defaults.doubleValue(text("lastSeen.cursor")), clock.now());
}

TEST_F(AgentStoreEvents, WritesWhenAnAgentWasLastHeardAtMostEveryTwentySeconds) {
    const double start = clock.now();
    sendAnswered(AgentKind::claude, event("SessionStart", "s1"));
    clock.advance(19.9);
    sendAnswered(AgentKind::claude, event("PreToolUse", "s1"));
    EXPECT_EQ(defaults.doubleValue(text("lastSeen.claude")), start);
    clock.advance(0.2);
    sendAnswered(AgentKind::claude, event("PostToolUse", "s1"));
    EXPECT_EQ(defaults.doubleValue(text("lastSeen.claude")), clock.now());

    // A new store reads what was written.
    AgentStore reopened(defaults, clock);
    EXPECT_EQ(reopened.lastSeen().value(AgentKind::claude), clock.now());
}

TEST_F(AgentStoreEvents, ACodexEventProvesItsHooksRun) {
    store.setCodexHookStatus(CodexHookStatus::needsApproval);
    sendAnswered(AgentKind::claude, event("SessionStart", "s"));
    EXPECT_EQ(store.codexHookStatus(), CodexHookStatus::needsApproval);
    sendAnswered(AgentKind::codex, event("SessionStart", "s"));
    EXPECT_EQ(store.codexHookStatus(), CodexHookStatus::ready);
}

TEST_F(AgentStoreEvents, SurvivesHugeInput) {
    const QString prompt = QString(32 << 20, QLatin1Char('a'));
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "big", {{text("prompt"), prompt}}));
    AgentSession* s = session(AgentKind::claude, text("big"));
    ASSERT_TRUE(s->lastPrompt().has_value());
    EXPECT_EQ(s->lastPrompt()->size(), 401) << "400 characters and the ellipsis";

    QJsonObject input{{text("command"), QString(30 << 20, QLatin1Char('x'))}};
    sendAnswered(AgentKind::claude, event("PreToolUse", "big",
                                          {{text("tool_name"), text("Bash")}, {text("tool_input"), input}}));
    EXPECT_EQ(s->status(), AgentStatus::runningTool(text("Bash")));
    EXPECT_EQ(s->toolDetail()->size(), 401);
}
