#include "agents/AgentSession.h"

#include <algorithm>

namespace mirrowisp {

AgentSession::AgentSession(AgentKind agent, QString sessionID, Timestamp now, QObject* parent)
    : AgentSession(agent, std::move(sessionID), QString(), now, parent) {}

AgentSession::AgentSession(AgentKind agent, QString sessionID, QString host, Timestamp now, QObject* parent)
    : QObject(parent), id_(makeID(agent, sessionID, host)), agent_(agent), sessionID_(std::move(sessionID)),
      host_(std::move(host)), startedAt_(now), updatedAt_(now) {}

AgentSession::~AgentSession() = default;

QString AgentSession::makeID(AgentKind agent, const QString& sessionID, const QString& host) {
    const QString local = AgentKinds::rawValue(agent) + QLatin1Char(':') + sessionID;
    return host.isEmpty() ? local : local + QLatin1Char('@') + host;
}

template <typename T, typename Signal> void AgentSession::assign(T& member, const T& value, Signal changed) {
    if (member == value) {
        return;
    }
    member = value;
    (this->*changed)();
}

template <typename Change> void AgentSession::keepingNeedsUser(Change change) {
    const bool before = needsUser();
    change();
    if (needsUser() != before) {
        Q_EMIT needsUserChanged();
    }
}

void AgentSession::setCwd(const QString& cwd) {
    if (!cwd.isEmpty()) {
        assign(cwd_, cwd, &AgentSession::cwdChanged);
    }
}

void AgentSession::setTranscriptPath(const std::optional<QString>& path) {
    assign(transcriptPath_, path, &AgentSession::transcriptPathChanged);
}
void AgentSession::setContext(const ProcessContext& context) {
    assign(context_, context, &AgentSession::contextChanged);
}
void AgentSession::setStatus(const AgentStatus& status) {
    keepingNeedsUser([&] { assign(status_, status, &AgentSession::statusChanged); });
}
void AgentSession::setToolDetail(const std::optional<QString>& detail) {
    assign(toolDetail_, detail, &AgentSession::toolDetailChanged);
}
void AgentSession::setActivity(const std::optional<QString>& activity) {
    assign(activity_, activity, &AgentSession::activityChanged);
}
void AgentSession::setLastPrompt(const std::optional<QString>& prompt) {
    assign(lastPrompt_, prompt, &AgentSession::lastPromptChanged);
}
void AgentSession::setLastMessage(const std::optional<QString>& message) {
    assign(lastMessage_, message, &AgentSession::lastMessageChanged);
}
void AgentSession::setStartedAt(Timestamp at) {
    assign(startedAt_, at, &AgentSession::startedAtChanged);
}
void AgentSession::setUpdatedAt(Timestamp at) {
    assign(updatedAt_, at, &AgentSession::updatedAtChanged);
}
void AgentSession::setTurnStartedAt(const std::optional<Timestamp>& at) {
    assign(turnStartedAt_, at, &AgentSession::turnStartedAtChanged);
}
void AgentSession::setActiveSubagents(qint64 count) {
    assign(activeSubagents_, std::max<qint64>(0, count), &AgentSession::activeSubagentsChanged);
}
void AgentSession::setModel(const std::optional<QString>& model) {
    assign(model_, model, &AgentSession::modelChanged);
}

PendingDecision* AgentSession::appendPending(std::unique_ptr<PendingDecision> decision) {
    PendingDecision* added = decision.get();
    keepingNeedsUser([&] { pending_.push_back(std::move(decision)); });
    Q_EMIT pendingChanged();
    return added;
}

std::unique_ptr<PendingDecision> AgentSession::takePending(const QString& decisionID) {
    const auto it = std::find_if(pending_.begin(), pending_.end(),
                                 [&](const auto& decision) { return decision->id() == decisionID; });
    if (it == pending_.end()) {
        return nullptr;
    }
    std::unique_ptr<PendingDecision> taken;
    keepingNeedsUser([&] {
        taken = std::move(*it);
        pending_.erase(it);
    });
    Q_EMIT pendingChanged();
    return taken;
}

std::vector<std::unique_ptr<PendingDecision>> AgentSession::takeAllPending() {
    std::vector<std::unique_ptr<PendingDecision>> taken;
    if (pending_.empty()) {
        return taken;
    }
    keepingNeedsUser([&] { taken.swap(pending_); });
    Q_EMIT pendingChanged();
    return taken;
}

PendingDecision* AgentSession::findPending(const QString& decisionID) const {
    for (const auto& decision : pending_) {
        if (decision->id() == decisionID) {
            return decision.get();
        }
    }
    return nullptr;
}

QString AgentSession::projectName() const {
    QStringView path(cwd_);
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    if (path == QLatin1String("/")) {
        return QStringLiteral("/");
    }
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    const QStringView last = slash < 0 ? path : path.sliced(slash + 1);
    return last.isEmpty() ? QStringLiteral("~") : last.toString();
}

bool AgentSession::needsUser() const {
    return !pending_.empty() || status_.kind == AgentStatus::Case::needsAttention;
}

} // namespace mirrowisp
