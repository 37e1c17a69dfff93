#include "island/SessionRowText.h"

#include "CardStoreFixture.h"
#include "agents/AgentSession.h"
#include "island/CodexApprovalNotice.h"

#include <QSignalSpy>

using namespace mirrowisp;
namespace Row = SessionRowText;

namespace {

using mirrowisp::test::text;

ProcessContext withEnvironment(QMap<QString, QString> environment, std::optional<QString> termProgram = {}) {
    ProcessContext context;
    context.environment = std::move(environment);
    context.termProgram = std::move(termProgram);
    return context;
}

} // namespace

TEST(SessionRowText, HomeBecomesATildeOnlyAsAWholeComponent) {
    const QString home = text("/home/ann");
    EXPECT_EQ(Row::subtitle(text("/home/ann"), home), text("~"));
    EXPECT_EQ(Row::subtitle(text("/home/ann/src/app"), home), text("~/src/app"));
    EXPECT_EQ(Row::subtitle(text("/home/anna/src"), home), text("/home/anna/src"));
    EXPECT_EQ(Row::subtitle(text("/srv/home/ann"), home), text("/srv/home/ann"));
    EXPECT_EQ(Row::subtitle(text("/home/ann/x"), text("/home/ann/")), text("~/x"));
    EXPECT_EQ(Row::subtitle(text("/etc"), text("/")), text("/etc"))
        << "a root home would turn every path into ~";
    EXPECT_EQ(Row::subtitle(QString(), home), QString());
}

TEST(SessionRowText, AgeReadsNowThenMinutesHoursAndDays) {
    const Timestamp now = 1'800'000'000;
    EXPECT_EQ(Row::ago(now, now), text("now"));
    EXPECT_EQ(Row::ago(now - 59.9, now), text("now"));
    EXPECT_EQ(Row::ago(now + 30, now), text("now")) << "a clock that stepped back is not a negative age";
    EXPECT_EQ(Row::ago(now - 60, now), text("1m"));
    EXPECT_EQ(Row::ago(now - 3599, now), text("59m"));
    EXPECT_EQ(Row::ago(now - 3600, now), text("1h"));
    EXPECT_EQ(Row::ago(now - 86399, now), text("23h"));
    EXPECT_EQ(Row::ago(now - 86400 * 3 - 5, now), text("3d"));
}

TEST(SessionRowText, ActivityLineFollowsTheState) {
    AgentSession session(AgentKind::claude, text("s"), 0);
    EXPECT_EQ(Row::activityLine(session), QString());
    session.setLastPrompt(text("fix the build"));
    EXPECT_EQ(Row::activityLine(session), text("fix the build"));

    session.setStatus(AgentStatus::runningTool(text("Bash")));
    session.setToolDetail(text("make"));
    EXPECT_EQ(Row::activityLine(session), text("Running make")) << "without a stored sentence, one is made";
    session.setActivity(text("Reading main.cpp"));
    EXPECT_EQ(Row::activityLine(session), text("Reading main.cpp"));

    session.setLastMessage(text("All tests pass."));
    session.setStatus(AgentStatus::done());
    EXPECT_EQ(Row::activityLine(session), text("All tests pass.")) << "once quiet, what it said last";

    session.setStatus(AgentStatus::compacting());
    EXPECT_EQ(Row::activityLine(session), text("Compacting the conversation…"));
}

TEST(SessionRowText, HostNameFromWhereTheAgentRuns) {
    AgentSession session(AgentKind::amp, text("s"), 0);
    EXPECT_EQ(Row::hostName(session), text("Amp")) << "with no terminal known, the agent's own name";

    session.setContext(withEnvironment({}, text("ghostty")));
    EXPECT_EQ(Row::hostName(session), text("Ghostty"));
    session.setContext(withEnvironment({}, text("gnome-terminal")));
    EXPECT_EQ(Row::hostName(session), text("Terminal"));
    session.setContext(withEnvironment({}, text("kitty")));
    EXPECT_EQ(Row::hostName(session), text("the terminal"));
    session.setContext(withEnvironment({}, text("some-new-terminal")));
    EXPECT_EQ(Row::hostName(session), text("the terminal"));
    session.setContext(withEnvironment({{text("CURSOR_TRACE_ID"), text("x")}}, text("vscode")));
    EXPECT_EQ(Row::hostName(session), text("Cursor"));
    session.setContext(withEnvironment({}, text("vscode")));
    EXPECT_EQ(Row::hostName(session), text("the terminal"));
    session.setContext(withEnvironment({{text("CMUX_SURFACE_ID"), text("surface")}}, text("ghostty")));
    EXPECT_EQ(Row::hostName(session), text("cmux"));

    ProcessContext desktop;
    desktop.entrypoint = text("claude-desktop");
    session.setContext(desktop);
    EXPECT_EQ(Row::hostName(session), text("Claude"));
    ProcessContext codexApp;
    codexApp.terminalBundleID = text("com.openai.codex");
    session.setContext(codexApp);
    EXPECT_EQ(Row::hostName(session), text("Codex"));
}

TEST(SessionRowText, BadgeSubagentsAndTheApproveInHostLine) {
    AgentSession session(AgentKind::claude, text("s"), 0);
    EXPECT_EQ(Row::badge(session), RowBadge::none);
    session.setStatus(AgentStatus::thinking());
    EXPECT_EQ(Row::badge(session), RowBadge::working);
    EXPECT_EQ(Row::badgeName(Row::badge(session)), text("working"));
    session.setStatus(AgentStatus::done());
    EXPECT_EQ(Row::badge(session), RowBadge::done);
    session.setStatus(AgentStatus::needsAttention());
    EXPECT_EQ(Row::badge(session), RowBadge::needsYou);
    EXPECT_TRUE(Row::approvesInHost(session)) << "nothing here to answer: the agent asks in its own prompt";

    EXPECT_EQ(Row::subagentCount(session), std::nullopt);
    session.setActiveSubagents(2);
    EXPECT_EQ(Row::subagentCount(session), 2);
    session.setStatus(AgentStatus::ended());
    EXPECT_EQ(Row::subagentCount(session), std::nullopt);
}

class SessionRowWithDecision : public test::CardStoreFixture {};

TEST_F(SessionRowWithDecision, AWaitingCardNeedsYouButIsAnsweredHere) {
    Waiting waiting = request(AgentKind::claude, "s1", "Bash", {{text("command"), text("ls")}});
    AgentSession& session = *store.findDecision(waiting.id).second;
    session.setStatus(AgentStatus::done());
    EXPECT_EQ(Row::badge(session), RowBadge::needsYou) << "a pending decision outranks a finished turn";
    EXPECT_FALSE(Row::approvesInHost(session));
}

class CodexApprovalNoticeTest : public test::CardStoreFixture {};

TEST_F(CodexApprovalNoticeTest, TextsByStatusAndWhetherTheAppIsHere) {
    using Texts = CodexApprovalNotice::Texts;
    EXPECT_EQ(CodexApprovalNotice::texts(CodexHookStatus::ready, true), std::nullopt);
    EXPECT_EQ(
        CodexApprovalNotice::texts(CodexHookStatus::disabled, true),
        (Texts{text("Mirrowisp is turned off in Codex"),
               text("Codex sessions do not show here. In Codex Settings, open Hooks and turn them on.")}));
    EXPECT_EQ(CodexApprovalNotice::texts(CodexHookStatus::disabled, false),
              (Texts{text("Mirrowisp is turned off in Codex"),
                     text("Codex sessions do not show here. In Codex, type /hooks and turn them on.")}));
    EXPECT_EQ(
        CodexApprovalNotice::texts(CodexHookStatus::needsApproval, true),
        (Texts{text("Approve Mirrowisp in Codex"),
               text("Codex runs only trusted hooks. In Codex Settings, open Hooks and click Trust all.")}));
    EXPECT_EQ(
        CodexApprovalNotice::texts(CodexHookStatus::needsApproval, false),
        (Texts{text("Approve Mirrowisp in Codex"), text("Codex runs only trusted hooks. Start codex in "
                                                        "Terminal and choose Trust all and continue.")}));
}

TEST_F(CodexApprovalNoticeTest, FollowsTheStoreAndRefreshesFromItsSource) {
    CodexHookStatus source = CodexHookStatus::needsApproval;
    store.setCodexStatusSource([&] { return source; });
    CodexApprovalNotice notice(store, [](const QString& id) { return id == text("com.openai.codex"); });
    QSignalSpy changed(&notice, &CodexApprovalNotice::changed);
    EXPECT_FALSE(notice.visible());

    notice.refresh();
    EXPECT_TRUE(notice.visible());
    EXPECT_EQ(notice.title(), text("Approve Mirrowisp in Codex"));
    EXPECT_TRUE(notice.text().contains(text("In Codex Settings")));
    EXPECT_GE(changed.count(), 1);

    source = CodexHookStatus::ready;
    notice.refresh();
    EXPECT_FALSE(notice.visible());
    EXPECT_TRUE(notice.title().isEmpty());
}
