#include "island/AgentsViewModel.h"

#include "CardStoreFixture.h"
#include "agents/AgentSession.h"
#include "island/CodexApprovalNotice.h"
#include "island/DecisionCardModel.h"

#include <QSignalSpy>

using namespace mirrowisp;

namespace {

class AgentsViewModelTest : public test::CardStoreFixture {
protected:
    AgentsViewModelTest()
        : notice(store, {}), rows(store, actions, notice, clock,
                                  [this](const AgentSession& session) { jumped.append(session.id()); }) {}

    QVariant at(int row, AgentsViewModel::Role role) { return rows.data(rows.index(row), role); }

    // Session changes reach the rows on the next turn of the event loop.
    void settle() { test::drainMainQueue(); }

    CodexApprovalNotice notice;
    QStringList jumped;
    AgentsViewModel rows;
};

} // namespace

TEST_F(AgentsViewModelTest, RowsFollowTheSessionsAndTheirWaitingDecisions) {
    Waiting waiting = request(AgentKind::codex, "s1", "Bash", {{text("command"), text("ls")}});
    AgentSession& session = *store.findDecision(waiting.id).second;
    session.setCwd(home.path() + QStringLiteral("/work/app"));
    settle();

    ASSERT_EQ(rows.rowCount(), 1);
    EXPECT_EQ(at(0, AgentsViewModel::ProjectRole), text("app"));
    EXPECT_EQ(at(0, AgentsViewModel::SubtitleRole), text("~/work/app"))
        << "the test's home stands in for the user's";
    EXPECT_EQ(at(0, AgentsViewModel::BadgeRole), text("needsYou"));
    EXPECT_EQ(at(0, AgentsViewModel::DecisionIDRole), waiting.id);
    EXPECT_EQ(at(0, AgentsViewModel::DecisionKindRole), text("permission"));
    EXPECT_EQ(at(0, AgentsViewModel::AgeRole), text("now"));
    EXPECT_EQ(rows.summary(), text("1 needs you"));

    clock.advance(125);
    rows.refreshAges();
    EXPECT_EQ(at(0, AgentsViewModel::AgeRole), text("2m"));

    QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
    session.setActiveSubagents(3);
    session.setActiveSubagents(2);
    settle();
    EXPECT_EQ(changed.count(), 1) << "changes within one turn of the loop redraw the row once";
    EXPECT_EQ(at(0, AgentsViewModel::SubagentsRole), 2);

    rows.jump(session.id());
    EXPECT_EQ(jumped, QStringList{session.id()});

    rows.hide(session.id());
    settle();
    EXPECT_EQ(rows.rowCount(), 0);
    ASSERT_TRUE(waiting.tool->reply().has_value()) << "hiding answers the waiting tool";
    EXPECT_EQ(rows.summary(), text("No agents running"));
}

TEST_F(AgentsViewModelTest, ACardLivesAsLongAsItsDecisionAndAnswersIt) {
    Waiting waiting = request(AgentKind::claude, "s1", "Bash", {{text("command"), text("ls")}});
    settle();
    auto* card = qobject_cast<DecisionCardModel*>(rows.card(waiting.id));
    ASSERT_NE(card, nullptr);
    EXPECT_EQ(rows.card(waiting.id), card) << "one card per decision";
    EXPECT_EQ(card->title(), text("Claude Code wants to use Bash"));
    EXPECT_EQ(rows.card(text("no-such-decision")), nullptr);

    QPointer<DecisionCardModel> held(card);
    card->allow();
    settle();
    const auto reply = waiting.tool->reply();
    ASSERT_TRUE(reply.has_value());
    EXPECT_TRUE((*reply)[text("stdout")].toString().contains(text(R"("behavior":"allow")")));
    EXPECT_EQ(at(0, AgentsViewModel::DecisionIDRole), QString());
    EXPECT_EQ(rows.card(waiting.id), nullptr);
    test::waitUntil([&] { return held.isNull(); }, 1000);
    EXPECT_TRUE(held.isNull()) << "the answered decision's card is released";
}

TEST_F(AgentsViewModelTest, ASessionThatWaitsInItsTerminalSaysWhereToApprove) {
    Waiting waiting = request(AgentKind::claude, "s1", "Bash", {{text("command"), text("ls")}});
    AgentSession& session = *store.findDecision(waiting.id).second;
    settle();
    EXPECT_EQ(at(0, AgentsViewModel::HostLineRole), QString()) << "the card answers it here";

    store.handBack(*session.pending().front(), session);
    ProcessContext context;
    context.termProgram = text("ghostty");
    session.setContext(context);
    session.setStatus(AgentStatus::needsAttention());
    settle();
    EXPECT_EQ(at(0, AgentsViewModel::HostLineRole), text("Approve this in Ghostty"));
}
