#include "agents/AgentSession.h"
#include "bridge/BridgeConnection.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;

TEST(AgentKind, ReadsBackOnlyItsOwnRawValues) {
    for (AgentKind kind : AgentKinds::all) {
        EXPECT_EQ(AgentKinds::fromRawValue(QStringView(AgentKinds::rawValue(kind))), kind);
    }
    EXPECT_FALSE(AgentKinds::fromRawValue(QStringView(u"Claude")).has_value());
    EXPECT_FALSE(AgentKinds::fromRawValue(QStringView(u"")).has_value());
}

TEST(AgentStatus, GroupsWorkingAndQuietCases) {
    EXPECT_TRUE(AgentStatus::runningTool(QStringLiteral("Bash")).isWorking());
    EXPECT_TRUE(AgentStatus::thinking().isWorking());
    EXPECT_TRUE(AgentStatus::compacting().isWorking());
    for (const AgentStatus& quiet :
         {AgentStatus::idle(), AgentStatus::needsAttention(), AgentStatus::done(), AgentStatus::ended()}) {
        EXPECT_TRUE(quiet.isQuiet()) << quiet.caseName().toStdString();
    }
    EXPECT_NE(AgentStatus::runningTool(QStringLiteral("Bash")),
              AgentStatus::runningTool(QStringLiteral("Edit")));
}

TEST(AgentSession, NamesItselfAfterAgentAndDirectory) {
    AgentSession session(AgentKind::codex, QStringLiteral("abc"), 100);
    EXPECT_EQ(session.id(), QStringLiteral("codex:abc"));
    EXPECT_NE(session.id(), AgentSession(AgentKind::claude, QStringLiteral("abc"), 100).id());
    EXPECT_EQ(session.projectName(), QStringLiteral("~"));
    session.setCwd(QStringLiteral("/home/me/src/mirrowisp/"));
    EXPECT_EQ(session.projectName(), QStringLiteral("mirrowisp"));
    session.setCwd(QString());
    EXPECT_EQ(session.cwd(), QStringLiteral("/home/me/src/mirrowisp/"))
        << "an empty directory never replaces one";
    session.setCwd(QStringLiteral("/"));
    EXPECT_EQ(session.projectName(), QStringLiteral("/"));
}

TEST(AgentSession, NotifiesOnlyWhenAValueChanges) {
    AgentSession session(AgentKind::claude, QStringLiteral("s"), 100);
    QSignalSpy status(&session, &AgentSession::statusChanged);
    QSignalSpy needsUser(&session, &AgentSession::needsUserChanged);
    QSignalSpy subagents(&session, &AgentSession::activeSubagentsChanged);

    session.setStatus(AgentStatus::idle());
    EXPECT_EQ(status.count(), 0);
    session.setStatus(AgentStatus::runningTool(QStringLiteral("Bash")));
    session.setStatus(AgentStatus::runningTool(QStringLiteral("Bash")));
    EXPECT_EQ(status.count(), 1);
    session.setStatus(AgentStatus::needsAttention());
    EXPECT_EQ(needsUser.count(), 1);
    EXPECT_TRUE(session.needsUser());

    session.setActiveSubagents(-3);
    EXPECT_EQ(session.activeSubagents(), 0);
    EXPECT_EQ(subagents.count(), 0);
}

TEST(AgentSession, NeedsTheUserWhileADecisionWaitsWhateverItsStatus) {
    AgentSession session(AgentKind::claude, QStringLiteral("s"), 100);
    session.setStatus(AgentStatus::done());
    EXPECT_FALSE(session.needsUser());
    QSignalSpy needsUser(&session, &AgentSession::needsUserChanged);

    QJsonObject payload{{QStringLiteral("permission_suggestions"), QJsonArray{QJsonObject{}}}};
    auto connection = BridgeConnection::make({QStringLiteral("d1"), AgentKind::claude, "{}", false, {}}, -1);
    session.appendPending(std::make_unique<PendingDecision>(
        QStringLiteral("d1"),
        DecisionKind::permission(QStringLiteral("Bash"), QStringLiteral("ls"), std::nullopt), 101, connection,
        payload));
    EXPECT_TRUE(session.needsUser());
    EXPECT_EQ(needsUser.count(), 1);
    ASSERT_NE(session.findPending(QStringLiteral("d1")), nullptr);
    EXPECT_TRUE(session.findPending(QStringLiteral("d1"))->hasAlwaysAllowSuggestion());

    EXPECT_EQ(session.takePending(QStringLiteral("nope")), nullptr);
    EXPECT_NE(session.takePending(QStringLiteral("d1")), nullptr);
    EXPECT_FALSE(session.needsUser());
    EXPECT_EQ(needsUser.count(), 2);
}
