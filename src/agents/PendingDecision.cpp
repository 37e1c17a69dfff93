#include "agents/PendingDecision.h"

#include <QJsonArray>

namespace mirrowisp {

PendingDecision::PendingDecision(QString id, DecisionKind kind, Timestamp createdAt,
                                 std::shared_ptr<BridgeConnection> connection, QJsonObject payload)
    : id_(std::move(id)), kind_(std::move(kind)), createdAt_(createdAt), connection_(std::move(connection)),
      payload_(std::move(payload)) {}

bool PendingDecision::hasAlwaysAllowSuggestion() const {
    const QJsonValue suggestions = payload_.value(QStringLiteral("permission_suggestions"));
    return suggestions.isArray() && !suggestions.toArray().isEmpty();
}

void PendingDecision::markExpired() {
    if (!expired_) {
        expired_ = true;
        Q_EMIT expiredChanged();
    }
}

} // namespace mirrowisp
