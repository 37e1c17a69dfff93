#pragma once

#include "agents/AgentModels.h"
#include "agents/PendingDecision.h"
#include "base/Clock.h"
#include "bridge/BridgeProtocol.h"

#include <QObject>
#include <memory>
#include <optional>
#include <vector>

namespace mirrowisp {

// One agent session as the app tracks it, from its first event to its end. Setters notify only
// when the value really changes, so views redraw only what moved.
class AgentSession : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString id READ id CONSTANT)
    Q_PROPERTY(QString sessionID READ sessionID CONSTANT)
    Q_PROPERTY(QString host READ host CONSTANT)
    Q_PROPERTY(QString cwd READ cwd NOTIFY cwdChanged)
    Q_PROPERTY(QString projectName READ projectName NOTIFY cwdChanged)
    Q_PROPERTY(bool needsUser READ needsUser NOTIFY needsUserChanged)
    Q_PROPERTY(qint64 activeSubagents READ activeSubagents NOTIFY activeSubagentsChanged)
    Q_PROPERTY(double updatedAt READ updatedAt NOTIFY updatedAtChanged)

public:
    AgentSession(AgentKind agent, QString sessionID, Timestamp now, QObject* parent = nullptr);
    // A session of an agent on a remote host (empty: this machine).
    AgentSession(AgentKind agent, QString sessionID, QString host, Timestamp now, QObject* parent = nullptr);
    ~AgentSession() override;

    // The agent's raw value, ":" and its session id: one session id under two agents is two sessions.
    // A remote session's id ends in "@" and its host, so no host can reach another's sessions.
    static QString makeID(AgentKind agent, const QString& sessionID, const QString& host = {});

    const QString& id() const { return id_; }
    AgentKind agent() const { return agent_; }
    const QString& sessionID() const { return sessionID_; }
    // The remote host the agent runs on, as the app knows it (a destination such as "ann@box");
    // empty on this machine. Its process ids and paths belong to that host.
    const QString& host() const { return host_; }
    bool isRemote() const { return !host_.isEmpty(); }

    const QString& cwd() const { return cwd_; }
    // Keeps the last known directory: an empty value never replaces it.
    void setCwd(const QString& cwd);
    const std::optional<QString>& transcriptPath() const { return transcriptPath_; }
    void setTranscriptPath(const std::optional<QString>& path);
    const ProcessContext& context() const { return context_; }
    void setContext(const ProcessContext& context);
    const AgentStatus& status() const { return status_; }
    void setStatus(const AgentStatus& status);
    const std::optional<QString>& toolDetail() const { return toolDetail_; }
    void setToolDetail(const std::optional<QString>& detail);
    const std::optional<QString>& activity() const { return activity_; }
    void setActivity(const std::optional<QString>& activity);
    const std::optional<QString>& lastPrompt() const { return lastPrompt_; }
    void setLastPrompt(const std::optional<QString>& prompt);
    const std::optional<QString>& lastMessage() const { return lastMessage_; }
    void setLastMessage(const std::optional<QString>& message);
    Timestamp startedAt() const { return startedAt_; }
    void setStartedAt(Timestamp at);
    Timestamp updatedAt() const { return updatedAt_; }
    void setUpdatedAt(Timestamp at);
    const std::optional<Timestamp>& turnStartedAt() const { return turnStartedAt_; }
    void setTurnStartedAt(const std::optional<Timestamp>& at);
    qint64 activeSubagents() const { return activeSubagents_; }
    // Clamped at zero: a stop without its start must not drive the count negative.
    void setActiveSubagents(qint64 count);
    const std::optional<QString>& model() const { return model_; }
    void setModel(const std::optional<QString>& model);

    // Waiting decisions, oldest first.
    const std::vector<std::unique_ptr<PendingDecision>>& pending() const { return pending_; }
    PendingDecision* appendPending(std::unique_ptr<PendingDecision> decision);
    std::unique_ptr<PendingDecision> takePending(const QString& decisionID);
    // Empties the list in one step.
    std::vector<std::unique_ptr<PendingDecision>> takeAllPending();
    PendingDecision* findPending(const QString& decisionID) const;

    // The last component of the working directory, "~" when there is none.
    QString projectName() const;
    bool needsUser() const;

Q_SIGNALS:
    void cwdChanged();
    void transcriptPathChanged();
    void contextChanged();
    void statusChanged();
    void toolDetailChanged();
    void activityChanged();
    void lastPromptChanged();
    void lastMessageChanged();
    void startedAtChanged();
    void updatedAtChanged();
    void turnStartedAtChanged();
    void activeSubagentsChanged();
    void modelChanged();
    void pendingChanged();
    void needsUserChanged();

private:
    template <typename T, typename Signal> void assign(T& member, const T& value, Signal changed);
    template <typename Change> void keepingNeedsUser(Change change);

    const QString id_;
    const AgentKind agent_;
    const QString sessionID_;
    const QString host_;
    QString cwd_;
    std::optional<QString> transcriptPath_;
    ProcessContext context_;
    AgentStatus status_;
    std::optional<QString> toolDetail_;
    std::optional<QString> activity_;
    std::optional<QString> lastPrompt_;
    std::optional<QString> lastMessage_;
    Timestamp startedAt_;
    Timestamp updatedAt_;
    std::optional<Timestamp> turnStartedAt_;
    qint64 activeSubagents_ = 0;
    std::vector<std::unique_ptr<PendingDecision>> pending_;
    std::optional<QString> model_;
};

} // namespace mirrowisp
