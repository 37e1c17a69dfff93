#include "island/SessionRowModel.h"

#include "agents/AgentStore.h"
#include "island/SessionRowText.h"

namespace mirrowisp {

SessionRowModel::SessionRowModel(AgentStore& store, const Clock& clock, AgentSession& session,
                                 QObject* parent)
    : QObject(parent), store_(store), clock_(clock), session_(&session), sessionId_(session.id()) {
    for (auto signal :
         {&AgentSession::cwdChanged, &AgentSession::contextChanged, &AgentSession::statusChanged,
          &AgentSession::toolDetailChanged, &AgentSession::activityChanged, &AgentSession::lastPromptChanged,
          &AgentSession::lastMessageChanged, &AgentSession::activeSubagentsChanged,
          &AgentSession::pendingChanged}) {
        connect(&session, signal, this, &SessionRowModel::changed);
    }
}

QString SessionRowModel::projectName() const {
    return session_ ? session_->projectName() : QString();
}

QString SessionRowModel::subtitle() const {
    return session_ ? SessionRowText::subtitle(*session_) : QString();
}

QString SessionRowModel::activityLine() const {
    return session_ ? SessionRowText::activityLine(*session_) : QString();
}

QString SessionRowModel::badge() const {
    return session_ ? SessionRowText::badgeName(SessionRowText::badge(*session_)) : QString();
}

bool SessionRowModel::showsSubagents() const {
    return session_ && SessionRowText::subagentCount(*session_).has_value();
}

qint64 SessionRowModel::subagentCount() const {
    return session_ ? SessionRowText::subagentCount(*session_).value_or(0) : 0;
}

bool SessionRowModel::approvesInHost() const {
    return session_ && SessionRowText::approvesInHost(*session_);
}

QString SessionRowModel::approveInHostText() const {
    return session_ ? QStringLiteral("Approve this in ") + SessionRowText::hostName(*session_) : QString();
}

QString SessionRowModel::ago() const {
    return session_ ? SessionRowText::ago(session_->updatedAt(), clock_.now()) : QString();
}

void SessionRowModel::hide() {
    if (session_) {
        store_.dismiss(sessionId_);
    }
}

} // namespace mirrowisp
