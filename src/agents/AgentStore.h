#pragma once

#include "agents/AgentSession.h"
#include "agents/AgentStoreText.h"
#include "agents/CodexHookStatus.h"
#include "agents/DecisionRecord.h"
#include "agents/HookTimings.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "bridge/BridgeConnection.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace mirrowisp {

class UserDefaults;
class DecisionLog;

// The user's settings the store reads, handed in as values whenever they change.
struct AgentStoreSettings {
    QSet<AgentKind> disabledAgents;
    // Decisions wait for an answer from the island; without it the agent's own prompt decides.
    bool approveFromNotch = true;
    // Finished sessions leave the list after this many seconds.
    double hideFinishedAfter = 600;

    bool isAgentEnabled(AgentKind kind) const { return !disabledAgents.contains(kind); }
    bool operator==(const AgentStoreSettings&) const = default;
};

// Sessions leave the list at once but are deleted on the next turn of the event loop, so a view
// that still draws one never holds a dangling pointer.
struct DeleteLater {
    void operator()(QObject* object) const { object->deleteLater(); }
};

// The state machine of the agent side: every hook event arrives here on the main thread, finds or
// makes its session, changes it, and is answered at once, except a decision, which waits for the user.
class AgentStore : public QObject {
    Q_OBJECT

public:
    using SessionList = std::vector<std::unique_ptr<AgentSession, DeleteLater>>;
    using SignalHandler = std::function<void(AgentSignal, AgentSession&)>;

    AgentStore(UserDefaults& defaults, const Clock& clock, QObject* parent = nullptr);
    ~AgentStore() override;

    // All known sessions, in order of first appearance.
    const SessionList& sessions() const { return sessions_; }
    AgentSession* findSession(const QString& sessionKey) const;
    // The waiting decision with this id, and its session.
    std::pair<PendingDecision*, AgentSession*> findDecision(const QString& decisionID) const;

    const AgentStoreSettings& settings() const { return settings_; }
    void setSettings(AgentStoreSettings settings) { settings_ = std::move(settings); }

    CodexHookStatus codexHookStatus() const { return codexHookStatus_; }
    void setCodexHookStatus(CodexHookStatus status);
    bool hasUnseenFinish() const { return hasUnseenFinish_; }
    void setHasUnseenFinish(bool unseen);
    const QHash<AgentKind, Timestamp>& lastSeen() const { return lastSeen_; }
    void setOnSignal(SignalHandler handler) { onSignal_ = std::move(handler); }

    // One bridge request: an agent's hook event.
    void handle(const std::shared_ptr<BridgeConnection>& connection);
    // The same, with the payload already parsed by the caller (nothing when it is no JSON object).
    void handle(const std::shared_ptr<BridgeConnection>& connection,
                const std::optional<QJsonObject>& payload);
    // The event object carried by a request, if its payload is one.
    static std::optional<QJsonObject> parsePayload(const QByteArray& payload);
    // Remembers when the agent was last heard; written at most every 20 seconds per agent.
    void noteSeen(AgentKind agent);

    // What the decision cards do. `route` is what the decision log says answered it.
    void allow(PendingDecision& decision, AgentSession& session, bool always,
               DecisionRoute route = DecisionRoute::island);
    void answer(PendingDecision& decision, AgentSession& session, const QJsonObject& answers,
                DecisionRoute route = DecisionRoute::island);
    void approvePlan(PendingDecision& decision, AgentSession& session, bool autoAcceptEdits,
                     DecisionRoute route = DecisionRoute::island);
    void keepPlanning(PendingDecision& decision, AgentSession& session, const QString& feedback,
                      DecisionRoute route = DecisionRoute::island);
    void deny(PendingDecision& decision, AgentSession& session, DecisionRoute route = DecisionRoute::island);
    // "Terminal": no answer from here; the agent's own prompt decides.
    void handBack(PendingDecision& decision, AgentSession& session,
                  DecisionRoute route = DecisionRoute::island);
    // Sends the decision object in the agent's reply shape and retires the decision.
    void respond(PendingDecision& decision, AgentSession& session, const QJsonObject& decisionObject);
    // Drops the decision with this id; the tool is answered by whoever calls this.
    void remove(QString decisionID, AgentSession& session);
    // Answers every waiting decision of the session with the empty reply and drops them.
    void failPending(AgentSession& session);
    // The user hides a session; its next event makes it anew.
    void dismiss(const QString& sessionKey);
    // A permission request for the setup guide to show how answering works. It waits and is answered
    // like any other, but no agent waits for it: the answer goes nowhere, and its session leaves once
    // it is answered by any route. Answers the decision's id.
    QString addSampleRequest();
    static inline const QString sampleSessionPrefix = QStringLiteral("mirrowisp-sample-");

    static QList<AgentQuestion> parseQuestions(const QJsonObject& input);
    // Which waiting decision a post-tool event shows was settled in the agent itself.
    static std::optional<qsizetype> answeredElsewhere(const QList<QJsonObject>& payloads, const QString& tool,
                                                      const std::optional<QJsonObject>& input);
    // The text the waiting tool prints for a decision object.
    static std::optional<QString> replyText(AgentKind agent, const QJsonObject& decisionObject);

    static inline const QString denyMessage = QStringLiteral("The user denied this from Mirrowisp.");

    // Lifecycle. `start` schedules cleanup every 30 s and reconciliation every 10 s; both are also
    // public steps that take the time, so tests drive them without waiting.
    void start();
    std::vector<AgentSession*> orderedSessions() const;
    std::vector<AgentSession*> visibleSessions() const;
    AgentSession* attentionSession() const;
    void cleanup(Timestamp now);
    void reconcileQuietSessions(Timestamp now);
    // A remote host's connection went away at `since`, or (nullopt) is back. The sessions of a host
    // away longer than the cleanup period end at the next cleanup, as a local one whose process died.
    void setHostAway(const QString& host, std::optional<Timestamp> since);
    // Where the Codex hook trust state comes from (the installer's reading of config.toml).
    void setCodexStatusSource(std::function<CodexHookStatus()> source) {
        codexStatusSource_ = std::move(source);
    }
    void refreshCodexApproval();

    // Where ended decisions are recorded; none by default. The log must outlive the store's use of it.
    void setDecisionLog(DecisionLog* log) { decisionLog_ = log; }
    // How long the agent's own hook waits for a decision; past it the decision is stuck.
    void setHookTimeout(AgentKind agent, double seconds) { hookTimeouts_.insert(agent, seconds); }
    // Marks decisions that waited past their agent's hook time-out as expired and logs them; they stay
    // until the agent's tool goes away. Runs with the reconciliation.
    void expireStuckDecisions(Timestamp now);
    // Hook round trips of the events handled so far.
    const HookTimings& hookTimings() const { return hookTimings_; }
    // Whether a process is gone: only "no such process" counts; any other failure means alive.
    static bool processIsGone(qint32 pid);

Q_SIGNALS:
    void sessionsChanged();
    void codexHookStatusChanged();
    void hasUnseenFinishChanged();
    // The sample request left its session: answered or withdrawn.
    void sampleRequestAnswered(const QString& decisionID);

private:
    AgentSession& sessionFor(const BridgeRequest& request, const QString& sessionID,
                             const QJsonObject& payload, const QString& eventName);
    void applyRow(const QString& event, AgentSession& session, const QJsonObject& payload,
                  const std::shared_ptr<BridgeConnection>& connection);
    void applyPostTool(AgentSession& session, const QJsonObject& payload);
    void applyNotification(AgentSession& session, const QJsonObject& payload);
    void applyStop(AgentSession& session, const QJsonObject& payload);
    void handlePermissionRequest(const std::shared_ptr<BridgeConnection>& connection,
                                 const QJsonObject& payload, AgentSession& session);
    void backfillPrompt(AgentSession& session, const QString& path);
    void raise(AgentSignal signal, AgentSession& session);
    bool contains(const AgentSession* session) const;
    void record(const PendingDecision& decision, const AgentSession& session, DecisionOutcome outcome,
                DecisionRoute route, QString answer = {});

    AgentStoreSettings settings_;
    UserDefaults& defaults_;
    const Clock& clock_;
    SessionList sessions_;
    CodexHookStatus codexHookStatus_ = CodexHookStatus::ready;
    bool hasUnseenFinish_ = false;
    QHash<AgentKind, Timestamp> lastSeen_;
    SignalHandler onSignal_;
    std::unique_ptr<SerialQueue> transcripts_;
    std::function<CodexHookStatus()> codexStatusSource_;
    std::unique_ptr<class QTimer> cleanupTimer_;
    std::unique_ptr<class QTimer> reconcileTimer_;
    DecisionLog* decisionLog_ = nullptr;
    QHash<AgentKind, double> hookTimeouts_;
    QHash<QString, Timestamp> hostsAway_;
    HookTimings hookTimings_;
};

} // namespace mirrowisp
