// Agents' own event names and keys, as the app receives them.

#include "ToolHarness.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

struct Forwarded {
    QByteArray payload;
    QJsonObject event;
    bool expectsReply = false;
};

// Sends `input` for `agent`, gives the empty reply, and returns what the app got.
Forwarded forward(const char* agent, const QByteArray& input) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    auto tool = box.start({"--agent", agent}, input);
    auto request = app.next();
    Forwarded got;
    EXPECT_TRUE(request);
    if (request) {
        got = {request->payload, request->event(), request->expectsReply()};
        request->reply("{\"id\":\"1\"}\n");
    }
    expectClean(tool->finish());
    return got;
}

QJsonObject object(const QByteArray& json) {
    return QJsonDocument::fromJson(json).object();
}

struct Row {
    const char* agent;
    const char* sent;
    const char* received = nullptr; // nullptr: the name sent
    bool expectsReply = false;
};

std::ostream& operator<<(std::ostream& os, const Row& row) {
    return os << row.agent << ' ' << row.sent;
}

class ToolEventNames : public testing::TestWithParam<Row> {};

} // namespace

TEST_P(ToolEventNames, ArriveInTheAppsVocabularyWithEverythingElseKept) {
    const Row row = GetParam();
    QJsonObject event =
        object(R"({"session_id":"s1","tool_name":"Bash","tool_input":{"command":"ls","n":[1,2.5]}})");
    event.insert(u"hook_event_name", QString::fromUtf8(row.sent));
    const Forwarded got = forward(row.agent, QJsonDocument(event).toJson(QJsonDocument::Compact));
    EXPECT_EQ(got.expectsReply, row.expectsReply);
    QJsonObject received = got.event;
    EXPECT_EQ(received.value(u"hook_event_name").toString(),
              QString::fromUtf8(row.received ? row.received : row.sent));
    received.insert(u"hook_event_name", QString::fromUtf8(row.sent));
    EXPECT_EQ(received, event);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ToolEventNames,
    testing::Values(
        Row{"claude", "PermissionRequest", nullptr, true}, Row{"claude", "PreToolUse"},
        Row{"claude", "Notification"}, Row{"codex", "PermissionRequest", nullptr, true},
        Row{"devin", "PermissionRequest", nullptr, true}, Row{"devin", "Stop"},
        Row{"cursor", "beforeSubmitPrompt", "UserPromptSubmit"},
        Row{"cursor", "afterAgentResponse", "AgentResponse"},
        Row{"cursor", "postToolUseFailure", "PostToolUseFailure"},
        Row{"cursor", "sessionStart", "SessionStart"}, Row{"cursor", "sessionEnd", "SessionEnd"},
        Row{"cursor", "stop", "Stop"}, Row{"cursor", "preCompact", "PreCompact"},
        Row{"cursor", "preToolUse", "PreToolUse"}, Row{"cursor", "postToolUse", "PostToolUse"},
        Row{"cursor", "subagentStart", "SubagentStart"}, Row{"cursor", "subagentStop", "SubagentStop"},
        Row{"cursor", "afterAgentThought", "AfterAgentThought"},
        Row{"gemini", "BeforeAgent", "UserPromptSubmit"}, Row{"gemini", "AfterAgent", "Stop"},
        Row{"gemini", "BeforeTool", "PreToolUse"}, Row{"gemini", "AfterTool", "PostToolUse"},
        Row{"gemini", "PreCompress", "PreCompact"}, Row{"gemini", "SessionStart"},
        Row{"gemini", "Notification"}, Row{"copilot", "sessionStart", "SessionStart"},
        Row{"copilot", "sessionEnd", "SessionEnd"}, Row{"copilot", "userPromptSubmitted", "UserPromptSubmit"},
        Row{"copilot", "preToolUse", "PreToolUse"}, Row{"copilot", "postToolUse", "PostToolUse"},
        Row{"copilot", "postToolUseFailure", "PostToolUseFailure"}, Row{"copilot", "agentStop", "Stop"},
        Row{"copilot", "preCompact", "PreCompact"}, Row{"copilot", "errorOccurred", "ErrorOccurred"},
        Row{"copilot", "permissionRequest", "PermissionRequest", true}, Row{"copilot", "UserPromptSubmit"}));

TEST(ToolEvents, PassUntouchedWhenNothingNeedsChanging) {
    // Odd spacing and a name the app doesn't know: still the agent's bytes, exactly.
    const QByteArray claude = "{ \"session_id\" : \"s1\",\"hook_event_name\":\"preToolUse\" ,\"x\":[ ] }\n";
    EXPECT_EQ(forward("claude", claude).payload, claude);
    const QByteArray cursor = R"({"hook_event_name":"Stop","session_id":"s1","cwd":"/w"})";
    EXPECT_EQ(forward("cursor", cursor).payload, cursor);
}

TEST(ToolEvents, CopilotsPermissionPromptBecomesARequestThatWaits) {
    const QByteArray prompt = R"({"sessionId":"c1","cwd":"/w","hook_event_name":"Notification",)"
                              R"("notification_type":"permission_prompt","message":"Allow?"})";
    const Forwarded got = forward("copilot", prompt);
    EXPECT_TRUE(got.expectsReply);
    EXPECT_EQ(got.event.value(u"hook_event_name").toString(), u"PermissionRequest"_s);
    EXPECT_EQ(got.event.value(u"session_id").toString(), u"c1"_s);
    EXPECT_EQ(got.event.value(u"message").toString(), u"Allow?"_s);

    const Forwarded dialog =
        forward("copilot", QByteArray(prompt).replace("permission_prompt", "elicitation_dialog"));
    EXPECT_FALSE(dialog.expectsReply);
    EXPECT_EQ(dialog.event.value(u"hook_event_name").toString(), u"Notification"_s);
}

TEST(ToolEvents, KeysTheAppNeedsAreFilledFromAnAgentsOwnSpelling) {
    // Cursor: conversation instead of session, workspace roots instead of cwd, `text` for the message.
    const QJsonObject cursor = forward("cursor", R"({"conversation_id":"c9","workspace_roots":["/w","/x"],)"
                                                 R"("hook_event_name":"afterAgentResponse","text":"Done."})")
                                   .event;
    EXPECT_EQ(cursor.value(u"session_id").toString(), u"c9"_s);
    EXPECT_EQ(cursor.value(u"cwd").toString(), u"/w"_s);
    EXPECT_EQ(cursor.value(u"message").toString(), u"Done."_s);

    const QJsonObject gemini =
        forward("gemini", R"({"session_id":"g","hook_event_name":"AfterAgent","prompt_response":"Hi"})")
            .event;
    EXPECT_EQ(gemini.value(u"last_assistant_message").toString(), u"Hi"_s);

    // A name under another key.
    const QJsonObject named = forward("codex", R"({"hookEventName":"Stop"})").event;
    EXPECT_EQ(named.value(u"hook_event_name").toString(), u"Stop"_s);
    EXPECT_EQ(named.value(u"hookEventName").toString(), u"Stop"_s);
}
