#pragma once

#include "base/Clock.h"

#include <QObject>
#include <QPointer>
#include <QString>

namespace mirrowisp {

class AgentSession;
class AgentStore;

// One session row for QML: its texts, badge and the "Hide" action. It follows the session's signals
// and reads nothing once the session is gone.
class SessionRowModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString sessionId READ sessionId CONSTANT)
    Q_PROPERTY(QString projectName READ projectName NOTIFY changed)
    Q_PROPERTY(QString subtitle READ subtitle NOTIFY changed)
    Q_PROPERTY(QString activityLine READ activityLine NOTIFY changed)
    Q_PROPERTY(QString badge READ badge NOTIFY changed)
    Q_PROPERTY(bool showsSubagents READ showsSubagents NOTIFY changed)
    Q_PROPERTY(qint64 subagentCount READ subagentCount NOTIFY changed)
    Q_PROPERTY(bool approvesInHost READ approvesInHost NOTIFY changed)
    Q_PROPERTY(QString approveInHostText READ approveInHostText NOTIFY changed)

public:
    SessionRowModel(AgentStore& store, const Clock& clock, AgentSession& session, QObject* parent = nullptr);

    const QString& sessionId() const { return sessionId_; }
    QString projectName() const;
    QString subtitle() const;
    QString activityLine() const;
    // "needsYou", "done", "working" or empty.
    QString badge() const;
    bool showsSubagents() const;
    qint64 subagentCount() const;
    bool approvesInHost() const;
    // "Approve this in " and the host's name.
    QString approveInHostText() const;

    // The age label at the clock's current time; QML asks again on its own tick.
    Q_INVOKABLE QString ago() const;
    // "Hide": the store answers the session's waiting tools and drops it.
    Q_INVOKABLE void hide();

Q_SIGNALS:
    void changed();

private:
    AgentSession* live() const;

    AgentStore& store_;
    const Clock& clock_;
    QPointer<AgentSession> session_;
    const QString sessionId_;
};

} // namespace mirrowisp
