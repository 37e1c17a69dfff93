#include "island/SessionRowModel.h"

#include "CardStoreFixture.h"
#include "agents/AgentSession.h"

#include <QSignalSpy>

using namespace mirrowisp;

class SessionRowModelTest : public test::CardStoreFixture {};

TEST_F(SessionRowModelTest, FollowsTheSessionAndHidesIt) {
    Waiting waiting = request(AgentKind::codex, "s1", "Bash", {{text("command"), text("ls")}});
    AgentSession& session = *store.findDecision(waiting.id).second;
    session.setCwd(home.path() + QStringLiteral("/work/app"));
    SessionRowModel row(store, clock, session);
    QSignalSpy changed(&row, &SessionRowModel::changed);

    EXPECT_EQ(row.projectName(), text("app"));
    EXPECT_EQ(row.subtitle(), text("~/work/app")) << "the test's home stands in for the user's";
    EXPECT_EQ(row.badge(), text("needsYou"));
    EXPECT_FALSE(row.approvesInHost());
    EXPECT_EQ(row.ago(), text("now"));
    clock.advance(125);
    EXPECT_EQ(row.ago(), text("2m"));

    session.setActiveSubagents(3);
    EXPECT_TRUE(row.showsSubagents());
    EXPECT_EQ(row.subagentCount(), 3);
    EXPECT_GE(changed.count(), 1);

    row.hide();
    ASSERT_TRUE(waiting.tool->reply().has_value()) << "hiding answers the waiting tool";
    EXPECT_EQ(store.findSession(row.sessionId()), nullptr);
    EXPECT_TRUE(row.subtitle().isEmpty()) << "a row outliving its session reads nothing";
    EXPECT_FALSE(row.showsSubagents());
    row.hide();
}

TEST_F(SessionRowModelTest, ApproveInHostNamesTheTerminal) {
    Waiting waiting = request(AgentKind::claude, "s1", "Bash", {{text("command"), text("ls")}});
    AgentSession& session = *store.findDecision(waiting.id).second;
    SessionRowModel row(store, clock, session);
    EXPECT_FALSE(row.approvesInHost()) << "the card answers it here";
    store.handBack(*session.pending().front(), session);
    ProcessContext context;
    context.termProgram = text("ghostty");
    session.setContext(context);
    session.setStatus(AgentStatus::needsAttention());
    EXPECT_TRUE(row.approvesInHost());
    EXPECT_EQ(row.approveInHostText(), text("Approve this in Ghostty"));
}
