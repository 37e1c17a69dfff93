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

TEST(SessionRowText, HomeBecomesATildeOnlyAsAWholeComponentAndAgesRead) {
    const char* const paths[][3] = {{"/home/ann", "/home/ann", "~"},
                                    {"/home/ann/src/app", "/home/ann", "~/src/app"},
                                    {"/home/anna/src", "/home/ann", "/home/anna/src"},
                                    {"/srv/home/ann", "/home/ann", "/srv/home/ann"},
                                    {"/home/ann/x", "/home/ann/", "~/x"},
                                    {"/etc", "/", "/etc"}, // a root home is no tilde
                                    {"", "/home/ann", ""}};
    for (const auto& [path, home, shown] : paths) {
        EXPECT_EQ(Row::subtitle(text(path), text(home)), text(shown)) << path << " in " << home;
    }
    const Timestamp now = 1'800'000'000;
    // A clock that stepped back (+30) is not a negative age.
    const std::pair<double, const char*> ages[] = {{0, "now"},      {-59.9, "now"},        {30, "now"},
                                                   {-60, "1m"},     {-3599, "59m"},        {-3600, "1h"},
                                                   {-86399, "23h"}, {-86400 * 3 - 5, "3d"}};
    for (const auto& [offset, shown] : ages) {
        EXPECT_EQ(Row::ago(now + offset, now), text(shown)) << offset;
    }
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
    const struct {
        const char* variable;
        const char* termProgram;
        const char* host;
    } cases[] = {{nullptr, "ghostty", "Ghostty"},         {nullptr, "gnome-terminal", "Terminal"},
                 {nullptr, "kitty", "the terminal"},      {nullptr, "some-new-terminal", "the terminal"},
                 {"CURSOR_TRACE_ID", "vscode", "Cursor"}, {nullptr, "vscode", "the terminal"},
                 {"CMUX_SURFACE_ID", "ghostty", "cmux"}};
    for (const auto& c : cases) {
        QMap<QString, QString> environment;
        if (c.variable != nullptr) {
            environment.insert(text(c.variable), text("x"));
        }
        session.setContext(withEnvironment(environment, text(c.termProgram)));
        EXPECT_EQ(Row::hostName(session), text(c.host)) << c.termProgram;
    }
    ProcessContext desktop;
    desktop.entrypoint = text("claude-desktop");
    session.setContext(desktop);
    EXPECT_EQ(Row::hostName(session), text("Claude"));
    ProcessContext codexApp;
    codexApp.terminalBundleID = text("com.openai.codex");
    session.setContext(codexApp);
    EXPECT_EQ(Row::hostName(session), text("Codex"));
}

TEST(SessionRowText, ARemoteProjectNamesItsHost) {
    const char* const cases[][3] = {{"", "shop", "/srv/shop"},
                                    {"box", "shop · box", "/srv/shop"},
                                    {"ann@box.lan", "shop · box.lan", "/srv/shop"},
                                    {"ann@box", "~ · box", ""}};
    for (const auto& [host, project, cwd] : cases) {
        AgentSession session(AgentKind::claude, text("s"), text(host), 0);
        session.setCwd(text(cwd));
        EXPECT_EQ(Row::project(session), text(project)) << host;
    }
}

TEST(SessionRowText, BadgeSubagentsAndTheApproveInHostLine) {
    AgentSession session(AgentKind::claude, text("s"), 0);
    EXPECT_EQ(Row::badge(session), RowBadge::none);
    session.setStatus(AgentStatus::thinking());
    EXPECT_EQ(Row::badge(session), RowBadge::working);
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
    EXPECT_EQ(CodexApprovalNotice::texts(CodexHookStatus::ready, true), std::nullopt);
    for (const auto status : {CodexHookStatus::disabled, CodexHookStatus::needsApproval}) {
        const auto withApp = CodexApprovalNotice::texts(status, true);
        const auto withoutApp = CodexApprovalNotice::texts(status, false);
        ASSERT_TRUE(withApp && withoutApp);
        EXPECT_EQ(withApp->title, withoutApp->title);
        EXPECT_NE(withApp->text, withoutApp->text) << "the way to the setting differs";
    }
    EXPECT_NE(CodexApprovalNotice::texts(CodexHookStatus::disabled, true)->title,
              CodexApprovalNotice::texts(CodexHookStatus::needsApproval, true)->title);
}

TEST_F(CodexApprovalNoticeTest, FollowsTheStoreAndRefreshesFromItsSource) {
    CodexHookStatus source = CodexHookStatus::needsApproval;
    store.setCodexStatusSource([&] { return source; });
    CodexApprovalNotice notice(store, [](const QString& id) { return id == text("com.openai.codex"); });
    QSignalSpy changed(&notice, &CodexApprovalNotice::changed);
    EXPECT_FALSE(notice.visible());

    notice.refresh();
    EXPECT_TRUE(notice.visible());
    EXPECT_EQ(notice.text(), CodexApprovalNotice::texts(CodexHookStatus::needsApproval, true)->text);
    EXPECT_GE(changed.count(), 1);

    source = CodexHookStatus::ready;
    notice.refresh();
    EXPECT_FALSE(notice.visible());
    EXPECT_TRUE(notice.title().isEmpty());
}
