#include "AgentStoreFixture.h"

#include <QProcess>
#include <unistd.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using test::AgentStoreFixture;

namespace {

// The id of a process that has exited and been reaped: signalling it fails with "no such process".
qint32 goneProcess() {
    QProcess process;
    process.start(u"true"_s, {});
    process.waitForStarted();
    const auto pid = static_cast<qint32>(process.processId());
    process.waitForFinished();
    return pid;
}

} // namespace

class AgentStoreLifecycle : public AgentStoreFixture {
protected:
    AgentSession* make(const char* id, const char* event, std::optional<qint32> pid = std::nullopt) {
        ProcessContext context;
        context.agentPID = pid;
        send(AgentKind::claude, AgentStoreFixture::event(event, id), context);
        return session(AgentKind::claude, QString::fromUtf8(id));
    }
    bool kept(const char* id) const { return session(AgentKind::claude, QString::fromUtf8(id)) != nullptr; }
};

TEST_F(AgentStoreLifecycle, OrdersWaitingThenWorkingThenNewest) {
    AgentSession* old = make("old", "Stop");
    clock.advance(1);
    AgentSession* newer = make("newer", "Stop");
    clock.advance(1);
    AgentSession* working = make("working", "UserPromptSubmit");
    working->setUpdatedAt(0); // working beats a newer quiet session
    clock.advance(1);
    AgentSession* waiting = make("waiting", "Notification");
    waiting->setUpdatedAt(0);
    clock.advance(1);
    AgentSession* ended = make("ended", "SessionEnd");

    const std::vector<AgentSession*> expected{waiting, working, ended, newer, old};
    EXPECT_EQ(store.orderedSessions(), expected);
    EXPECT_EQ(store.visibleSessions(), (std::vector<AgentSession*>{waiting, working, newer, old}));
    EXPECT_EQ(store.attentionSession(), waiting);
    store.dismiss(waiting->id());
    EXPECT_EQ(store.attentionSession(), nullptr);
}

TEST_F(AgentStoreLifecycle, CleanupRemovesWhatIsOverAndKeepsWhatWaits) {
    setting([](AgentStoreSettings& s) { s.hideFinishedAfter = 0; });
    const qint32 alive = static_cast<qint32>(::getpid());
    const qint32 dead = goneProcess();
    make("ended", "SessionEnd");
    make("doneAlive", "Stop", alive);
    make("doneDead", "Stop", dead);
    make("idleDead", "SessionStart", dead);
    make("workingDead", "UserPromptSubmit", dead);
    make("workingAlive", "UserPromptSubmit", alive);
    make("workingUnknown", "UserPromptSubmit");
    auto card = send(AgentKind::claude,
                     event("PermissionRequest", "waitingDead", {{text("tool_name"), text("Bash")}}), [&] {
                         ProcessContext c;
                         c.agentPID = dead;
                         return c;
                     }());

    clock.advance(30.0);
    store.cleanup(clock.now());
    // 30.0 seconds exactly keeps the ended one, hiding is off, and an open decision keeps its session.
    const std::pair<const char*, bool> after30[] = {
        {"ended", true},     {"doneDead", false},    {"idleDead", false},      {"workingDead", false},
        {"doneAlive", true}, {"workingAlive", true}, {"workingUnknown", true}, {"waitingDead", true}};
    for (const auto& [id, stays] : after30) {
        EXPECT_EQ(kept(id), stays) << id;
    }
    clock.advance(0.1);
    store.cleanup(clock.now());
    EXPECT_FALSE(kept("ended"));

    setting([](AgentStoreSettings& s) { s.hideFinishedAfter = 600; });
    clock.advance(569); // 599.1 s since its last event
    store.cleanup(clock.now());
    EXPECT_TRUE(kept("doneAlive"));
    clock.advance(1);
    store.cleanup(clock.now());
    EXPECT_FALSE(kept("doneAlive"));
    EXPECT_TRUE(kept("workingAlive"));
    EXPECT_FALSE(AgentStore::processIsGone(1)) << "init is alive";
}

TEST_F(AgentStoreLifecycle, RemoteSessionsEndWithTheirHostNotWithALocalProcess) {
    const qint32 dead = goneProcess();
    make("s", "UserPromptSubmit", dead); // a local session of the same id
    fromHost = u"ann@box"_s;
    ProcessContext context;
    context.agentPID = dead; // a process id on the host, which says nothing about this machine
    send(AgentKind::claude, event("UserPromptSubmit", "s"), context);
    fromHost = u"other"_s;
    send(AgentKind::claude, event("UserPromptSubmit", "s"), context);
    auto remote = [&](const QString& host) {
        return store.findSession(AgentSession::makeID(AgentKind::claude, u"s"_s, host));
    };
    ASSERT_NE(remote(u"ann@box"_s), nullptr);
    EXPECT_EQ(remote(u"ann@box"_s)->host(), u"ann@box"_s);

    store.setHostAway(u"ann@box"_s, clock.now());
    store.setHostAway(u"other"_s, clock.now());
    clock.advance(20);
    store.setHostAway(u"ann@box"_s, clock.now()); // a failed retry does not restart the count
    store.setHostAway(u"other"_s, std::nullopt);  // back in time
    clock.advance(10);
    store.cleanup(clock.now());
    EXPECT_FALSE(kept("s")) << "the local process is gone";
    EXPECT_NE(remote(u"ann@box"_s), nullptr) << "30 s away exactly stays";
    clock.advance(0.1);
    store.cleanup(clock.now());
    EXPECT_EQ(remote(u"ann@box"_s), nullptr);
    EXPECT_NE(remote(u"other"_s), nullptr);
}

TEST_F(AgentStoreLifecycle, ReconciliationFinishesTurnsThatLostTheirStop) {
    const QString path = home.path() + text("/t.jsonl");
    test::writeFile(path, R"({"type":"assistant","message":{"content":"All done"}})"
                          "\n"
                          R"({"type":"system","subtype":"turn_duration"})"
                          "\n");
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "quiet",
                                          {{text("transcript_path"), path}, {text("prompt"), text("x")}}));
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "noPath", {{text("prompt"), text("x")}}));
    sendAnswered(AgentKind::claude, event("Notification", "attention", {{text("transcript_path"), path}}));
    AgentSession* quiet = session(AgentKind::claude, text("quiet"));
    AgentSession* noPath = session(AgentKind::claude, text("noPath"));

    clock.advance(15.0);
    store.reconcileQuietSessions(clock.now());
    test::drainMainQueue();
    EXPECT_EQ(quiet->status(), AgentStatus::thinking()) << "15 seconds of silence is not yet enough";

    clock.advance(1.0);
    store.reconcileQuietSessions(clock.now());
    ASSERT_TRUE(test::waitUntil([&] { return quiet->status() == AgentStatus::done(); }));
    EXPECT_EQ(quiet->lastMessage(), text("All done"));
    EXPECT_EQ(signalCount(AgentSignal::finished), 1);
    EXPECT_EQ(noPath->status(), AgentStatus::thinking());
    EXPECT_EQ(session(AgentKind::claude, text("attention"))->status(), AgentStatus::needsAttention());
}

TEST_F(AgentStoreLifecycle, AnEventDuringTheTranscriptReadWins) {
    const QString path = home.path() + text("/t.jsonl");
    test::writeFile(path, R"({"type":"system","subtype":"stop_hook_summary"})"
                          "\n");
    sendAnswered(AgentKind::claude, event("UserPromptSubmit", "s",
                                          {{text("transcript_path"), path}, {text("prompt"), text("x")}}));
    AgentSession* s = session(AgentKind::claude, text("s"));
    clock.advance(20);
    store.reconcileQuietSessions(clock.now());
    // The read runs in the background; an event lands before its result is applied.
    sendAnswered(AgentKind::claude, event("PreToolUse", "s", {{text("tool_name"), text("Read")}}));
    test::waitUntil([] { return false; }, 200);
    EXPECT_EQ(s->status(), AgentStatus::runningTool(text("Read")));
    EXPECT_EQ(signalCount(AgentSignal::finished), 0);
}

TEST_F(AgentStoreLifecycle, CodexApprovalFollowsTheInstallerUnlessCodexIsOff) {
    CodexHookStatus installer = CodexHookStatus::needsApproval;
    store.setCodexStatusSource([&] { return installer; });
    store.refreshCodexApproval();
    EXPECT_EQ(store.codexHookStatus(), CodexHookStatus::needsApproval);
    setting([](AgentStoreSettings& s) { s.disabledAgents.insert(AgentKind::codex); });
    store.refreshCodexApproval();
    EXPECT_EQ(store.codexHookStatus(), CodexHookStatus::ready);
    setting([](AgentStoreSettings& s) { s.disabledAgents.clear(); });
    installer = CodexHookStatus::disabled;
    store.cleanup(clock.now()); // cleanup refreshes it too
    EXPECT_EQ(store.codexHookStatus(), CodexHookStatus::disabled);
}
