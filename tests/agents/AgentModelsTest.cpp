#include "agents/AgentSession.h"
#include "bridge/BridgeConnection.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

TEST(AgentKind, ReadsBackOnlyItsOwnRawValues) {
    for (AgentKind kind : AgentKinds::all) {
        EXPECT_EQ(AgentKinds::fromRawValue(QStringView(AgentKinds::rawValue(kind))), kind);
    }
    EXPECT_FALSE(AgentKinds::fromRawValue(QStringView(u"Claude")).has_value());
    EXPECT_FALSE(AgentKinds::fromRawValue(QStringView(u"")).has_value());
}

TEST(AgentStatus, GroupsWorkingAndQuietCases) {
    EXPECT_TRUE(AgentStatus::runningTool(u"Bash"_s).isWorking());
    EXPECT_TRUE(AgentStatus::thinking().isWorking());
    EXPECT_TRUE(AgentStatus::compacting().isWorking());
    for (const AgentStatus& quiet :
         {AgentStatus::idle(), AgentStatus::needsAttention(), AgentStatus::done(), AgentStatus::ended()}) {
        EXPECT_TRUE(quiet.isQuiet()) << quiet.caseName().toStdString();
    }
    EXPECT_NE(AgentStatus::runningTool(u"Bash"_s), AgentStatus::runningTool(u"Edit"_s));
}

TEST(AgentSession, NamesItselfAfterAgentAndDirectory) {
    AgentSession session(AgentKind::codex, u"abc"_s, 100);
    EXPECT_EQ(session.id(), u"codex:abc"_s);
    EXPECT_NE(session.id(), AgentSession(AgentKind::claude, u"abc"_s, 100).id());
    EXPECT_EQ(session.projectName(), u"~"_s);
    session.setCwd(u"/home/me/src/mirrowisp/"_s);
    EXPECT_EQ(session.projectName(), u"mirrowisp"_s);
    session.setCwd(QString());
    EXPECT_EQ(session.cwd(), u"/home/me/src/mirrowisp/"_s) << "an empty directory never replaces one";
    session.setCwd(u"/"_s);
    EXPECT_EQ(session.projectName(), u"/"_s);
}

TEST(AgentSession, NotifiesOnlyWhenAValueChanges) {
    AgentSession session(AgentKind::claude, u"s"_s, 100);
    QSignalSpy status(&session, &AgentSession::statusChanged);
    QSignalSpy needsUser(&session, &AgentSession::needsUserChanged);
    QSignalSpy subagents(&session, &AgentSession::activeSubagentsChanged);

    session.setStatus(AgentStatus::idle());
    EXPECT_EQ(status.count(), 0);
    session.setStatus(AgentStatus::runningTool(u"Bash"_s));
    session.setStatus(AgentStatus::runningTool(u"Bash"_s));
    EXPECT_EQ(status.count(), 1);
    session.setStatus(AgentStatus::needsAttention());
    EXPECT_EQ(needsUser.count(), 1);
    EXPECT_TRUE(session.needsUser());

    session.setActiveSubagents(-3);
    EXPECT_EQ(session.activeSubagents(), 0);
    EXPECT_EQ(subagents.count(), 0);
}

TEST(AgentSession, NeedsTheUserWhileADecisionWaitsWhateverItsStatus) {
    AgentSession session(AgentKind::claude, u"s"_s, 100);
    session.setStatus(AgentStatus::done());
    EXPECT_FALSE(session.needsUser());
    QSignalSpy needsUser(&session, &AgentSession::needsUserChanged);

    QJsonObject payload{{u"permission_suggestions"_s, QJsonArray{QJsonObject{}}}};
    auto connection = BridgeConnection::make({u"d1"_s, AgentKind::claude, "{}", false, {}}, -1);
    session.appendPending(std::make_unique<PendingDecision>(
        u"d1"_s, DecisionKind::permission(u"Bash"_s, u"ls"_s, std::nullopt), 101, connection, payload));
    EXPECT_TRUE(session.needsUser());
    EXPECT_EQ(needsUser.count(), 1);
    ASSERT_NE(session.findPending(u"d1"_s), nullptr);
    EXPECT_TRUE(session.findPending(u"d1"_s)->hasAlwaysAllowSuggestion());

    EXPECT_EQ(session.takePending(u"nope"_s), nullptr);
    EXPECT_NE(session.takePending(u"d1"_s), nullptr);
    EXPECT_FALSE(session.needsUser());
    EXPECT_EQ(needsUser.count(), 2);
}
