#include "AgentStoreFixture.h"

#include <QJsonArray>
#include <algorithm>
#include <array>

using namespace mirrowisp;
using test::AgentStoreFixture;

namespace {

using mirrowisp::test::text;

QJsonObject parsed(const std::optional<QString>& printed) {
    return printed ? QJsonDocument::fromJson(printed->toUtf8()).object() : QJsonObject();
}

QJsonObject permission(const char* tool, QJsonObject input, QJsonObject extra = {}) {
    extra.insert(text("tool_name"), QLatin1StringView(tool));
    extra.insert(text("tool_input"), input);
    return extra;
}

const QJsonArray suggestions{
    QJsonObject{{text("type"), text("addRules")},
                {text("rules"), QJsonArray{QJsonObject{{text("toolName"), text("Bash")}}}}}};

} // namespace

class AgentStoreDecisions : public AgentStoreFixture {
protected:
    // A permission request that waits; returns the tool's end and the decision.
    std::pair<Sent, PendingDecision*> request(AgentKind agent, const QJsonObject& fields,
                                              const char* sessionID = "s1") {
        Sent sent = send(agent, event("PermissionRequest", sessionID, fields));
        AgentSession* s = session(agent, QString::fromUtf8(sessionID));
        PendingDecision* decision = s ? s->findPending(sent.connection->request().id) : nullptr;
        return {std::move(sent), decision};
    }
};

TEST_F(AgentStoreDecisions, APermissionWaitsForTheUserAndAllowReachesTheToolExactly) {
    auto [sent, decision] =
        request(AgentKind::claude, permission("Bash", {{text("command"), text("rm -rf build")}}));
    ASSERT_NE(decision, nullptr);
    AgentSession* s = session(AgentKind::claude, text("s1"));
    EXPECT_TRUE(sent.tool->stillWaiting());
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
    EXPECT_EQ(signalCount(AgentSignal::needsAttention), 1);
    EXPECT_EQ(decision->kind(),
              DecisionKind::permission(text("Bash"), text("rm -rf build"), text("rm -rf build")));
    EXPECT_EQ(decision->createdAt(), clock.now());

    store.allow(*decision, *s, false);
    EXPECT_EQ(
        sent.tool->printed(),
        text(
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"));
    EXPECT_TRUE(s->pending().empty());
    EXPECT_EQ(s->status(), AgentStatus::thinking());
}

TEST_F(AgentStoreDecisions, AlwaysAllowCarriesTheSuggestionsOnlyWhereTheAgentReadsThem) {
    const QJsonObject withRules =
        permission("Bash", {{text("command"), text("ls")}}, {{text("permission_suggestions"), suggestions}});
    auto [claude, claudeDecision] = request(AgentKind::claude, withRules, "a");
    store.allow(*claudeDecision, *session(AgentKind::claude, text("a")), true);
    const QJsonObject claudeReply = parsed(claude.tool->printed());
    EXPECT_EQ(claudeReply[text("hookSpecificOutput")][text("decision")][text("updatedPermissions")],
              QJsonValue(suggestions));

    auto [codex, codexDecision] = request(AgentKind::codex, withRules, "b");
    store.allow(*codexDecision, *session(AgentKind::codex, text("b")), true);
    EXPECT_EQ(parsed(codex.tool->printed())[text("hookSpecificOutput")][text("decision")].toObject(),
              (QJsonObject{{text("behavior"), text("allow")}}));

    auto [bare, bareDecision] = request(
        AgentKind::claude, permission("Bash", {}, {{text("permission_suggestions"), QJsonArray{}}}), "c");
    EXPECT_FALSE(bareDecision->hasAlwaysAllowSuggestion());
    store.allow(*bareDecision, *session(AgentKind::claude, text("c")), true);
    EXPECT_EQ(
        bare.tool->printed(),
        text(
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"));
}

TEST_F(AgentStoreDecisions, DenyAndTheDevinShape) {
    auto [claude, claudeDecision] =
        request(AgentKind::claude, permission("Write", {{text("file_path"), text("/a/b.txt")}}));
    store.deny(*claudeDecision, *session(AgentKind::claude, text("s1")));
    EXPECT_EQ(
        claude.tool->printed(),
        text(
            R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"The user denied this from Mirrowisp."},"hookEventName":"PermissionRequest"}})"));

    auto [allowed, allowedDecision] =
        request(AgentKind::devin, permission("exec_command", {{text("cmd"), text("make")}}), "d1");
    AgentSession* devin = session(AgentKind::devin, text("d1"));
    EXPECT_EQ(allowedDecision->kind().tool, text("Bash"));
    store.allow(*allowedDecision, *devin, true);
    EXPECT_EQ(allowed.tool->printed(), text(R"({"decision":"approve"})"));

    auto [denied, deniedDecision] = request(AgentKind::devin, permission("exec_command", {}), "d1");
    store.deny(*deniedDecision, *devin);
    EXPECT_EQ(denied.tool->printed(),
              text(R"({"decision":"block","reason":"The user denied this from Mirrowisp."})"));

    auto [bare, bareDecision] = request(AgentKind::devin, permission("exec_command", {}), "d1");
    store.respond(*bareDecision, *devin, {{text("behavior"), text("deny")}});
    EXPECT_EQ(bare.tool->printed(), text(R"({"decision":"block","reason":"Denied in Mirrowisp."})"));
}

TEST_F(AgentStoreDecisions, QuestionsBecomeCardsForAgentsThatAskThem) {
    const QJsonArray questions{
        QJsonObject{
            {text("question"), text("Which database?")},
            {text("header"), text("DB")},
            {text("options"),
             QJsonArray{QJsonObject{{text("label"), text("SQLite")}, {text("description"), text("file")}},
                        QJsonObject{{text("label"), 5}}, QJsonObject{{text("label"), text("Postgres")}}}},
            {text("multiSelect"), true}},
        QJsonObject{{text("question"), 3}},
        QJsonObject{{text("question"), text("Why?")}, {text("multiSelect"), text("true")}},
    };
    const QJsonObject input{{text("questions"), questions},
                            {text("answers"), QJsonObject{{text("old"), text("x")}}},
                            {text("keep"), 1}};
    auto [sent, decision] = request(AgentKind::claude, permission("AskUserQuestion", input));
    ASSERT_NE(decision, nullptr);
    ASSERT_EQ(decision->kind().kind, DecisionKind::Case::question);
    const QList<AgentQuestion>& parsedQuestions = decision->kind().questions;
    ASSERT_EQ(parsedQuestions.size(), 2);
    EXPECT_EQ(parsedQuestions[0].options,
              (QList<AgentQuestion::Option>{{text("SQLite"), text("file")}, {text("Postgres"), QString()}}));
    EXPECT_TRUE(parsedQuestions[0].multiSelect);
    EXPECT_FALSE(parsedQuestions[1].multiSelect);
    EXPECT_EQ(parsedQuestions[1].header, QString());

    store.answer(*decision, *session(AgentKind::claude, text("s1")),
                 {{text("Which database?"), text("SQLite, Postgres")}, {text("Why?"), text("speed")}});
    const QJsonObject reply =
        parsed(sent.tool->printed())[text("hookSpecificOutput")][text("decision")].toObject();
    EXPECT_EQ(reply[text("behavior")], text("allow"));
    const QJsonObject updated = reply[text("updatedInput")].toObject();
    EXPECT_EQ(updated[text("questions")], QJsonValue(questions));
    EXPECT_EQ(updated[text("keep")], 1);
    EXPECT_EQ(updated[text("answers")], (QJsonObject{{text("Which database?"), text("SQLite, Postgres")},
                                                     {text("Why?"), text("speed")}}));

    auto [codex, codexDecision] = request(AgentKind::codex, permission("AskUserQuestion", input));
    EXPECT_EQ(codexDecision->kind().kind, DecisionKind::Case::permission);

    AgentSession* s = session(AgentKind::claude, text("s1"));
    const AgentStatus before = s->status();
    auto [empty, none] =
        request(AgentKind::claude, permission("AskUserQuestion", {{text("questions"), QJsonArray{}}}));
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(empty.tool->printed(), std::nullopt);
    EXPECT_FALSE(empty.tool->stillWaiting());
    EXPECT_EQ(s->status(), before);
}

TEST_F(AgentStoreDecisions, PlansAreApprovedWithOrWithoutAutoEditOrSentBack) {
    auto [noPlan, empty] = request(AgentKind::claude, permission("ExitPlanMode", {}));
    EXPECT_EQ(empty->kind(), DecisionKind::plan(text("(empty plan)")));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    store.keepPlanning(*empty, *s, text("  \n "));
    EXPECT_EQ(parsed(noPlan.tool->printed())[text("hookSpecificOutput")][text("decision")].toObject(),
              (QJsonObject{{text("behavior"), text("deny")},
                           {text("message"), text("The user wants to keep planning.")}}));

    auto [withFeedback, second] =
        request(AgentKind::claude, permission("ExitPlanMode", {{text("plan"), text("# Steps")}}));
    EXPECT_EQ(second->kind().markdown, text("# Steps"));
    store.keepPlanning(*second, *s, text("  Use a queue instead.\n"));
    EXPECT_EQ(
        parsed(withFeedback.tool->printed())[text("hookSpecificOutput")][text("decision")][text("message")],
        text("Use a queue instead."));

    auto [approved, third] =
        request(AgentKind::opencode, permission("ExitPlanMode", {{text("plan"), text("x")}}), "o");
    store.approvePlan(*third, *session(AgentKind::opencode, text("o")), true);
    EXPECT_EQ(
        approved.tool->printed(),
        text(
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":[{"destination":"session","mode":"acceptEdits","type":"setMode"}]},"hookEventName":"PermissionRequest"}})"));
}

TEST_F(AgentStoreDecisions, APostToolEventWithdrawsTheCardAnsweredInTheAgent) {
    const QJsonObject input{{text("questions"), QJsonArray{QJsonObject{{text("question"), text("Q?")}}}},
                            {text("n"), 1}};
    auto [first, firstDecision] =
        request(AgentKind::claude, permission("Bash", {{text("command"), text("ls")}, {text("timeout"), 5}}));
    auto [second, secondDecision] =
        request(AgentKind::claude, permission("Bash", {{text("timeout"), 5}, {text("command"), text("ls")}}));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    ASSERT_EQ(s->pending().size(), 2U);

    // Same input, numbers by value and keys in another order: only the first card goes.
    sendAnswered(AgentKind::claude,
                 event("PostToolUse", "s1",
                       permission("Bash", {{text("timeout"), 5.0}, {text("command"), text("ls")}})));
    EXPECT_EQ(first.tool->printed(), std::nullopt);
    EXPECT_FALSE(first.tool->stillWaiting());
    EXPECT_TRUE(second.tool->stillWaiting());
    ASSERT_EQ(s->pending().size(), 1U);
    EXPECT_EQ(s->status(), AgentStatus::needsAttention())
        << "a post-tool event does not leave needsAttention while a card waits";

    sendAnswered(AgentKind::claude,
                 event("PostToolUse", "s1", permission("Bash", {{text("command"), text("pwd")}})));
    EXPECT_EQ(s->pending().size(), 1U) << "a different input settles nothing";

    // A question answered in the terminal comes back with "answers" added to its input.
    auto [question, questionDecision] = request(AgentKind::claude, permission("AskUserQuestion", input));
    QJsonObject answeredInput = input;
    answeredInput.insert(text("answers"), QJsonObject{{text("Q?"), text("yes")}});
    sendAnswered(AgentKind::claude, event("PostToolUse", "s1", permission("AskUserQuestion", answeredInput)));
    EXPECT_FALSE(question.tool->stillWaiting());
    EXPECT_EQ(s->pending().size(), 1U);
}

// Three cards taken in every order by every route: each tool hears once, the others keep waiting,
// and the status leaves needsAttention with the last. The routes that end the turn or hide the
// session take all that remain, after one card was answered in the terminal.
TEST_F(AgentStoreDecisions, CardsGoByEveryRouteInEveryOrder) {
    const std::pair<const char*, AgentStatus> routes[] = {
        {"allow", AgentStatus::thinking()}, {"handBack", AgentStatus::thinking()},
        {"lost", AgentStatus::thinking()},  {"PostToolUse", AgentStatus::thinking()},
        {"hide", AgentStatus::thinking()},  {"UserPromptSubmit", AgentStatus::thinking()},
        {"Stop", AgentStatus::done()},      {"SessionEnd", AgentStatus::ended()},
    };
    int run = 0;
    for (const auto& [route, after] : routes) {
        const QString how = QLatin1StringView(route);
        const bool takesAll = how == text("hide") || (how.front().isUpper() && how != text("PostToolUse"));
        std::array<int, 3> order{0, 1, 2};
        do {
            const QByteArray id = QByteArray("r") + QByteArray::number(run++);
            SCOPED_TRACE(id.toStdString() + " " + route);
            std::vector<Sent> tools;
            for (int i = 0; i < 3; ++i) {
                const QJsonObject input{{text("command"), QString::number(i)}};
                tools.push_back(request(AgentKind::claude, permission("Bash", input), id.constData()).first);
            }
            AgentSession* s = session(AgentKind::claude, QString::fromLatin1(id));
            std::array<bool, 3> answered{};
            for (const int index : order) {
                const bool first = std::count(answered.begin(), answered.end(), true) == 0;
                const QString step = takesAll && first ? text("PostToolUse") : how;
                PendingDecision& card = *s->findPending(tools[index].connection->request().id);
                if (step == text("allow")) {
                    store.allow(card, *s, false);
                } else if (step == text("handBack")) {
                    store.handBack(card, *s);
                } else if (step == text("lost")) {
                    tools[index].connection->peerClosed();
                    test::drainMainQueue();
                } else if (step == text("hide")) {
                    store.dismiss(s->id());
                } else {
                    const QJsonObject input{{text("command"), QString::number(index)}};
                    sendAnswered(AgentKind::claude, event(step.toLatin1().constData(), id.constData(),
                                                          permission("Bash", input)));
                }
                for (int i = 0; i < 3; ++i) {
                    const bool now = !answered[i] && (i == index || (takesAll && !first));
                    EXPECT_EQ(tools[i].tool->stillWaiting(), !answered[i] && !now) << "card " << i;
                    if (now && step != text("allow")) {
                        EXPECT_EQ(tools[i].tool->printed(), std::nullopt) << "no decision for card " << i;
                    }
                    answered[i] = answered[i] || now;
                }
                if (step == text("hide")) {
                    break; // the session went with its cards
                }
                const auto waiting = std::count(answered.begin(), answered.end(), false);
                EXPECT_EQ(s->pending().size(), static_cast<size_t>(waiting));
                EXPECT_EQ(s->status(), waiting == 0 ? after : AgentStatus::needsAttention());
                if (waiting == 0) {
                    break;
                }
            }
        } while (std::next_permutation(order.begin(), order.end()));
    }

    // A card whose tool went away while the session was done leaves it done.
    auto [c, third] = request(AgentKind::claude, permission("Bash", {}));
    AgentSession* s = session(AgentKind::claude, text("s1"));
    s->setStatus(AgentStatus::done());
    store.remove(third->id(), *s);
    EXPECT_EQ(s->status(), AgentStatus::done());
}

TEST_F(AgentStoreDecisions, WithApprovalsOffTheAgentsOwnPromptDecides) {
    setting([](AgentStoreSettings& s) { s.approveFromNotch = false; });
    bool waitingWhenRaised = false;
    store.setOnSignal([&](AgentSignal signal, AgentSession&) {
        if (signal == AgentSignal::needsAttention) {
            waitingWhenRaised = lastTool->stillWaiting();
        }
    });
    Sent sent = send(AgentKind::claude, event("PermissionRequest", "s1", permission("Bash", {})));
    EXPECT_TRUE(waitingWhenRaised) << "the signal comes first, then the empty reply";
    EXPECT_EQ(sent.tool->printed(), std::nullopt);
    EXPECT_FALSE(sent.tool->stillWaiting());
    AgentSession* s = session(AgentKind::claude, text("s1"));
    EXPECT_TRUE(s->pending().empty());
    EXPECT_EQ(s->status(), AgentStatus::needsAttention());
}
