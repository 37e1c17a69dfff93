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
    // Leaving the store blanks the row, so the row hears about it.
    connect(&store_, &AgentStore::sessionsChanged, this, &SessionRowModel::changed);
}

AgentSession* SessionRowModel::live() const {
    // A hidden session leaves the store at once but is deleted only later; it shows nothing meanwhile.
    AgentSession* session = store_.findSession(sessionId_);
    return session && session == session_.data() ? session : nullptr;
}

QString SessionRowModel::projectName() const {
    const AgentSession* s = live();
    return s ? s->projectName() : QString();
}

QString SessionRowModel::subtitle() const {
    const AgentSession* s = live();
    return s ? SessionRowText::subtitle(*s) : QString();
}

QString SessionRowModel::activityLine() const {
    const AgentSession* s = live();
    return s ? SessionRowText::activityLine(*s) : QString();
}

QString SessionRowModel::badge() const {
    const AgentSession* s = live();
    return s ? SessionRowText::badgeName(SessionRowText::badge(*s)) : QString();
}

bool SessionRowModel::showsSubagents() const {
    const AgentSession* s = live();
    return s && SessionRowText::subagentCount(*s).has_value();
}

qint64 SessionRowModel::subagentCount() const {
    const AgentSession* s = live();
    return s ? SessionRowText::subagentCount(*s).value_or(0) : 0;
}

bool SessionRowModel::approvesInHost() const {
    const AgentSession* s = live();
    return s && SessionRowText::approvesInHost(*s);
}

QString SessionRowModel::approveInHostText() const {
    const AgentSession* s = live();
    return s ? QStringLiteral("Approve this in ") + SessionRowText::hostName(*s) : QString();
}

QString SessionRowModel::ago() const {
    const AgentSession* s = live();
    return s ? SessionRowText::ago(s->updatedAt(), clock_.now()) : QString();
}

void SessionRowModel::hide() {
    if (live()) {
        store_.dismiss(sessionId_);
    }
}

} // namespace mirrowisp
