#include "island/AgentsViewModel.h"

#include "agents/AgentSession.h"
#include "agents/PendingDecision.h"
#include "island/CodexApprovalNotice.h"
#include "island/DecisionCardActions.h"
#include "island/DecisionCardModel.h"
#include "island/QuestionCardModel.h"
#include "island/SessionRowText.h"

#include <QTimer>

namespace mirrowisp {

AgentsViewModel::AgentsViewModel(AgentStore& store, const DecisionCardActions& actions,
                                 CodexApprovalNotice& notice, const Clock& clock, Jump jump, QObject* parent)
    : QAbstractListModel(parent), store_(store), actions_(actions), notice_(notice), clock_(clock),
      jump_(std::move(jump)) {
    connect(&store_, &AgentStore::sessionsChanged, this, &AgentsViewModel::scheduleRebuild);
    rebuild();
}

AgentsViewModel::~AgentsViewModel() {
    for (const QMetaObject::Connection& connection : std::as_const(watched_)) {
        disconnect(connection);
    }
}

QObject* AgentsViewModel::codexNotice() const {
    return &notice_;
}

int AgentsViewModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant AgentsViewModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || static_cast<size_t>(index.row()) >= rows_.size()) {
        return {};
    }
    const Row& row = rows_[static_cast<size_t>(index.row())];
    switch (role) {
    case SessionKeyRole:
        return row.key;
    case AgentRole:
        return row.agent;
    case ProjectRole:
        return row.project;
    case SubtitleRole:
        return row.subtitle;
    case ActivityRole:
        return row.activity;
    case AgeRole:
        return row.age;
    case BadgeRole:
        return row.badge;
    case SubagentsRole:
        return row.subagents;
    case HostLineRole:
        return row.hostLine;
    case DecisionIDRole:
        return row.decisionID;
    case DecisionKindRole:
        return row.decisionKind;
    default:
        return {};
    }
}

QHash<int, QByteArray> AgentsViewModel::roleNames() const {
    return {{SessionKeyRole, "sessionKey"},
            {AgentRole, "agent"},
            {ProjectRole, "project"},
            {SubtitleRole, "subtitle"},
            {ActivityRole, "activity"},
            {AgeRole, "age"},
            {BadgeRole, "badge"},
            {SubagentsRole, "subagents"},
            {HostLineRole, "hostLine"},
            {DecisionIDRole, "decisionID"},
            {DecisionKindRole, "decisionKind"}};
}

AgentsViewModel::Row AgentsViewModel::rowFor(const AgentSession& session) const {
    Row row;
    row.key = session.id();
    row.agent = AgentKinds::rawValue(session.agent());
    row.project = SessionRowText::project(session);
    row.subtitle = SessionRowText::subtitle(session);
    row.activity = SessionRowText::activityLine(session);
    row.age = SessionRowText::ago(session.updatedAt(), clock_.now());
    row.badge = SessionRowText::badgeName(SessionRowText::badge(session));
    row.subagents = static_cast<int>(SessionRowText::subagentCount(session).value_or(0));
    if (SessionRowText::approvesInHost(session)) {
        row.hostLine = QStringLiteral("Approve this in ") + SessionRowText::hostName(session);
    }
    if (!session.pending().empty()) {
        const PendingDecision& decision = *session.pending().front();
        row.decisionID = decision.id();
        row.decisionKind = decision.kind().caseName();
    }
    return row;
}

void AgentsViewModel::scheduleRebuild() {
    if (rebuildQueued_) {
        return;
    }
    rebuildQueued_ = true;
    QTimer::singleShot(0, this, [this] {
        rebuildQueued_ = false;
        rebuild();
    });
}

void AgentsViewModel::watch(AgentSession& session) {
    if (watched_.contains(&session)) {
        return;
    }
    // Any change of what a row shows: one rebuild per turn of the event loop covers them all.
    for (auto changed :
         {&AgentSession::statusChanged, &AgentSession::activityChanged, &AgentSession::pendingChanged,
          &AgentSession::updatedAtChanged, &AgentSession::cwdChanged, &AgentSession::activeSubagentsChanged,
          &AgentSession::lastPromptChanged, &AgentSession::lastMessageChanged,
          &AgentSession::toolDetailChanged, &AgentSession::contextChanged}) {
        connect(&session, changed, this, &AgentsViewModel::scheduleRebuild, Qt::UniqueConnection);
    }
    watched_.insert(&session, connect(&session, &QObject::destroyed, this, [this, key = &session] {
        watched_.remove(key);
        scheduleRebuild();
    }));
}

void AgentsViewModel::rebuild() {
    std::vector<Row> rows;
    int working = 0, waiting = 0;
    // Every session is watched, not only the shown ones: a change can bring a hidden one back.
    for (const auto& session : store_.sessions()) {
        watch(*session);
    }
    for (AgentSession* session : store_.visibleSessions()) {
        rows.push_back(rowFor(*session));
        working += session->status().isWorking() ? 1 : 0;
        waiting += session->needsUser() ? 1 : 0;
    }
    const bool sameRows =
        rows.size() == rows_.size() && std::equal(rows.begin(), rows.end(), rows_.begin(),
                                                  [](const Row& a, const Row& b) { return a.key == b.key; });
    if (sameRows) {
        for (size_t i = 0; i < rows.size(); ++i) {
            if (!(rows[i] == rows_[i])) {
                rows_[i] = rows[i];
                const QModelIndex at = index(static_cast<int>(i));
                Q_EMIT dataChanged(at, at);
            }
        }
    } else {
        beginResetModel();
        rows_ = std::move(rows);
        endResetModel();
    }

    QStringList parts;
    if (working > 0) {
        parts.append(working == 1 ? QStringLiteral("1 agent working")
                                  : QStringLiteral("%1 agents working").arg(working));
    }
    if (waiting > 0) {
        parts.append(waiting == 1 ? QStringLiteral("1 needs you")
                                  : QStringLiteral("%1 need you").arg(waiting));
    }
    QString summary = parts.isEmpty()
                          ? (rows_.empty() ? QStringLiteral("No agents running")
                                           : QStringLiteral("%1 sessions, all quiet").arg(rows_.size()))
                          : parts.join(QStringLiteral(" · "));
    if (rows_.size() == 1 && parts.isEmpty()) {
        summary = QStringLiteral("1 session, quiet");
    }
    if (summary != summary_) {
        summary_ = summary;
        Q_EMIT summaryChanged();
    }
    dropStaleCards();
}

void AgentsViewModel::dropStaleCards() {
    auto stale = [this](const QString& id) { return store_.findDecision(id).first == nullptr; };
    for (auto it = cards_.begin(); it != cards_.end();) {
        if (it.value().isNull() || stale(it.key())) {
            if (it.value()) {
                it.value()->deleteLater();
            }
            it = cards_.erase(it);
        } else {
            ++it;
        }
    }
    for (auto it = questionCards_.begin(); it != questionCards_.end();) {
        if (it.value().isNull() || stale(it.key())) {
            if (it.value()) {
                it.value()->deleteLater();
            }
            it = questionCards_.erase(it);
        } else {
            ++it;
        }
    }
}

QObject* AgentsViewModel::card(const QString& decisionID) {
    if (store_.findDecision(decisionID).first == nullptr) {
        return nullptr;
    }
    QPointer<DecisionCardModel>& slot = cards_[decisionID];
    if (slot.isNull()) {
        slot = new DecisionCardModel(actions_, decisionID, this);
    }
    return slot.data();
}

QObject* AgentsViewModel::questionCard(const QString& decisionID) {
    if (store_.findDecision(decisionID).first == nullptr) {
        return nullptr;
    }
    QPointer<QuestionCardModel>& slot = questionCards_[decisionID];
    if (slot.isNull()) {
        slot = new QuestionCardModel(actions_, decisionID, this);
    }
    return slot.data();
}

void AgentsViewModel::jump(const QString& sessionKey) {
    if (AgentSession* session = store_.findSession(sessionKey); session != nullptr && jump_) {
        jump_(*session);
    }
}

void AgentsViewModel::hide(const QString& sessionKey) {
    store_.dismiss(sessionKey);
}

void AgentsViewModel::refreshCodexApproval() {
    notice_.refresh();
}

void AgentsViewModel::refreshAges() {
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (AgentSession* session = store_.findSession(rows_[i].key)) {
            const QString age = SessionRowText::ago(session->updatedAt(), clock_.now());
            if (age != rows_[i].age) {
                rows_[i].age = age;
                const QModelIndex at = index(static_cast<int>(i));
                Q_EMIT dataChanged(at, at, {AgeRole});
            }
        }
    }
}

} // namespace mirrowisp
