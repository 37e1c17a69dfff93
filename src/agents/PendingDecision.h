#pragma once

#include "agents/AgentModels.h"
#include "base/Clock.h"
#include "bridge/BridgeConnection.h"

#include <QJsonObject>
#include <QObject>
#include <memory>

namespace mirrowisp {

// A permission request, question or plan that waits for the user. It holds the tool's open
// connection: answering writes through it, and the tool's going away withdraws the decision.
class PendingDecision : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString id READ id CONSTANT)
    Q_PROPERTY(double createdAt READ createdAt CONSTANT)
    Q_PROPERTY(bool hasAlwaysAllowSuggestion READ hasAlwaysAllowSuggestion CONSTANT)
    Q_PROPERTY(bool expired READ isExpired NOTIFY expiredChanged)

public:
    PendingDecision(QString id, DecisionKind kind, Timestamp createdAt,
                    std::shared_ptr<BridgeConnection> connection, QJsonObject payload);

    const QString& id() const { return id_; }
    const DecisionKind& kind() const { return kind_; }
    Timestamp createdAt() const { return createdAt_; }
    const std::shared_ptr<BridgeConnection>& connection() const { return connection_; }
    const QJsonObject& payload() const { return payload_; }

    // The agent offered rules for allowing this kind of call from now on.
    bool hasAlwaysAllowSuggestion() const;

    // Waited past the agent's own hook time-out: the agent has moved on without it.
    bool isExpired() const { return expired_; }
    void markExpired();

Q_SIGNALS:
    void expiredChanged();

private:
    const QString id_;
    const DecisionKind kind_;
    const Timestamp createdAt_;
    const std::shared_ptr<BridgeConnection> connection_;
    const QJsonObject payload_;
    bool expired_ = false;
};

} // namespace mirrowisp
