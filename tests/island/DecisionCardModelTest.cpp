#include "island/DecisionCardModel.h"

#include "CardStoreFixture.h"
#include "agents/DecisionLog.h"
#include "agents/DecisionLogReader.h"

#include <QSignalSpy>

using namespace mirrowisp;

namespace {

const QJsonObject bashInput{{QStringLiteral("command"), QStringLiteral("make test")}};

} // namespace

class DecisionCardModelTest : public test::CardStoreFixture {};

TEST_F(DecisionCardModelTest, PermissionCardShowsTheAgentAndTool) {
    Waiting waiting = request(
        AgentKind::claude, "s1", "Bash", bashInput,
        {{text("permission_suggestions"), QJsonArray{QJsonObject{{text("type"), text("addRules")}}}}});
    DecisionCardModel card(actions, waiting.id);
    EXPECT_EQ(card.kind(), text("permission"));
    EXPECT_EQ(card.title(), text("Claude Code wants to use Bash"));
    EXPECT_EQ(card.summary(), text("make test"));
    EXPECT_EQ(card.detail(), text("make test"));
    EXPECT_TRUE(card.hasAlwaysAllowSuggestion());

    Waiting other = request(AgentKind::gemini, "s2", "mcp__server__lookup", {});
    DecisionCardModel geminiCard(actions, other.id);
    EXPECT_EQ(geminiCard.title(), text("Gemini CLI wants to use lookup"));
    EXPECT_FALSE(geminiCard.hasAlwaysAllowSuggestion());
}

TEST_F(DecisionCardModelTest, EachPermissionButtonReachesTheTool) {
    const QJsonObject rules{
        {text("permission_suggestions"), QJsonArray{QJsonObject{{text("type"), text("addRules")}}}}};
    Waiting denied = request(AgentKind::claude, "s1", "Bash", bashInput);
    Waiting allowed = request(AgentKind::claude, "s1", "Bash", bashInput);
    Waiting always = request(AgentKind::claude, "s1", "Bash", bashInput, rules);
    Waiting handedBack = request(AgentKind::claude, "s1", "Bash", bashInput);

    DecisionCardModel(actions, denied.id).deny();
    EXPECT_EQ(decisionOf(denied),
              (QJsonObject{{text("behavior"), text("deny")},
                           {text("message"), text("The user denied this from Mirrowisp.")}}));
    DecisionCardModel(actions, allowed.id).allow();
    EXPECT_EQ(decisionOf(allowed), (QJsonObject{{text("behavior"), text("allow")}}));
    DecisionCardModel(actions, always.id).alwaysAllow();
    EXPECT_EQ(decisionOf(always)[text("updatedPermissions")], rules[text("permission_suggestions")]);

    DecisionCardModel last(actions, handedBack.id);
    QSignalSpy pending(&last, &DecisionCardModel::isPendingChanged);
    last.terminal();
    const std::optional<QJsonObject> reply = handedBack.tool->reply();
    ASSERT_TRUE(reply.has_value());
    EXPECT_FALSE(reply->contains(text("stdout"))) << "handing back gives the empty reply, never a denial";
    EXPECT_FALSE(last.isPending());
    EXPECT_EQ(pending.count(), 1);
}

TEST_F(DecisionCardModelTest, KeepPlanningFirstRevealsTheBoxThenSendsAndApproveSends) {
    Waiting empty =
        request(AgentKind::claude, "s1", "ExitPlanMode", {{text("plan"), text("# Plan\n- step")}});
    DecisionCardModel card(actions, empty.id);
    EXPECT_EQ(card.kind(), text("plan"));
    EXPECT_EQ(card.markdown(), text("# Plan\n- step"));

    QSignalSpy feedback(&card, &DecisionCardModel::showFeedbackChanged);
    card.keepPlanning(text("ignored on the first press"));
    EXPECT_TRUE(card.showFeedback());
    EXPECT_EQ(feedback.count(), 1);
    EXPECT_TRUE(empty.tool->stillWaiting()) << "the first press only opens the box";

    card.keepPlanning(text(" \n "));
    EXPECT_EQ(decisionOf(empty), (QJsonObject{{text("behavior"), text("deny")},
                                              {text("message"), text("The user wants to keep planning.")}}));

    Waiting written = request(AgentKind::claude, "s1", "ExitPlanMode", {{text("plan"), text("x")}});
    DecisionCardModel second(actions, written.id);
    second.keepPlanning();
    second.keepPlanning(text("  Split the migration first.\n"));
    EXPECT_EQ(decisionOf(written)[text("message")], text("Split the migration first."));

    Waiting plain = request(AgentKind::claude, "s1", "ExitPlanMode", {{text("plan"), text("x")}});
    Waiting autoEdit = request(AgentKind::claude, "s1", "ExitPlanMode", {{text("plan"), text("y")}});
    DecisionCardModel(actions, plain.id).approve();
    EXPECT_EQ(decisionOf(plain), (QJsonObject{{text("behavior"), text("allow")}}));
    DecisionCardModel(actions, autoEdit.id).approveAutoEdit();
    EXPECT_EQ(decisionOf(autoEdit)[text("updatedPermissions")][0][text("mode")], text("acceptEdits"));
}

TEST_F(DecisionCardModelTest, AButtonOnADecisionThatWentAwayDoesNothing) {
    Waiting gone = request(AgentKind::claude, "s1", "Bash", bashInput);
    Waiting stays = request(AgentKind::claude, "s2", "Bash", bashInput);
    DecisionCardModel card(actions, gone.id);
    store.dismiss(AgentSession::makeID(AgentKind::claude, text("s1")));
    ASSERT_TRUE(gone.tool->reply().has_value()) << "hiding the session answers its tool";
    EXPECT_FALSE(card.isPending());

    for (auto press :
         {&DecisionCardModel::allow, &DecisionCardModel::deny, &DecisionCardModel::alwaysAllow,
          &DecisionCardModel::terminal, &DecisionCardModel::approve, &DecisionCardModel::approveAutoEdit}) {
        (card.*press)();
    }
    card.keepPlanning();
    card.keepPlanning(text("late"));
    EXPECT_TRUE(scheduled.empty());
    EXPECT_TRUE(stays.tool->stillWaiting()) << "another decision is never answered in its place";

    DecisionCardModel never(actions, text("no-such-id"));
    EXPECT_TRUE(never.kind().isEmpty());
    never.allow();
    EXPECT_TRUE(stays.tool->stillWaiting());
}

TEST_F(DecisionCardModelTest, ClicksAndKeysAreLoggedByTheirRouteAndAnExpiredCardSaysSo) {
    DecisionLog log(home.supportDir());
    store.setDecisionLog(&log);
    store.setHookTimeout(AgentKind::claude, 60);
    Waiting clicked = request(AgentKind::claude, "s1", "Bash", bashInput);
    Waiting keyed = request(AgentKind::claude, "s1", "Bash", bashInput);
    Waiting stuck = request(AgentKind::claude, "s1", "Bash", bashInput);

    DecisionCardModel(actions, clicked.id).deny();
    DecisionCardModel(actions, keyed.id).answerWithKey(true);
    DecisionCardModel late(actions, stuck.id);
    QSignalSpy expired(&late, &DecisionCardModel::expiredChanged);
    EXPECT_FALSE(late.isExpired());
    store.expireStuckDecisions(clock.now() + 61);
    EXPECT_TRUE(late.isExpired());
    EXPECT_EQ(expired.count(), 1);
    EXPECT_TRUE(late.isPending()) << "it stays until the agent's tool goes";

    log.flush();
    QStringList ends;
    DecisionLogReader::read(home.supportDir(), {}, [&](const DecisionRecord& record, QByteArrayView) {
        ends.append(DecisionNames::outcome(record.outcome) + QLatin1Char('/') +
                    DecisionNames::route(record.route));
        return true;
    });
    EXPECT_EQ(ends, (QStringList{text("denied/island"), text("allowed/key"), text("expired/agent")}));
}
