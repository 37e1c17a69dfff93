#include "app/ControlCommands.h"

#include "agents/AgentStore.h"

#include <QDateTime>
#include <QJsonDocument>

namespace mirrowisp::ControlCommands {

namespace {

QJsonValue optional(const std::optional<QString>& value) {
    return value ? QJsonValue(*value) : QJsonValue();
}

QJsonObject decisionJson(const PendingDecision& decision) {
    QJsonObject object{{QStringLiteral("id"), decision.id()},
                       {QStringLiteral("kind"), decision.kind().caseName()}};
    const DecisionKind& kind = decision.kind();
    switch (kind.kind) {
    case DecisionKind::Case::permission:
        object.insert(QStringLiteral("tool"), kind.tool);
        object.insert(QStringLiteral("summary"), kind.summary);
        object.insert(QStringLiteral("detail"), optional(kind.detail));
        break;
    case DecisionKind::Case::question: {
        QJsonArray questions;
        for (const AgentQuestion& question : kind.questions) {
            QJsonArray options;
            for (const auto& option : question.options) {
                options.append(QJsonObject{{QStringLiteral("label"), option.label},
                                           {QStringLiteral("description"), option.description}});
            }
            questions.append(QJsonObject{{QStringLiteral("question"), question.question},
                                         {QStringLiteral("header"), question.header},
                                         {QStringLiteral("options"), options},
                                         {QStringLiteral("multiSelect"), question.multiSelect}});
        }
        object.insert(QStringLiteral("questions"), questions);
        break;
    }
    case DecisionKind::Case::plan:
        object.insert(QStringLiteral("markdown"), kind.markdown);
        break;
    }
    return object;
}

template <typename Action> Result withDecision(AgentStore& store, const QString& decisionID, Action action) {
    auto [decision, session] = store.findDecision(decisionID);
    if (decision == nullptr) {
        return Result::unknownDecision;
    }
    action(*decision, *session);
    return Result::ok;
}

} // namespace

QJsonObject sessionJson(const AgentSession& session) {
    QJsonObject object{
        {QStringLiteral("id"), session.id()},
        {QStringLiteral("agent"), AgentKinds::rawValue(session.agent())},
        {QStringLiteral("sessionID"), session.sessionID()},
        {QStringLiteral("cwd"), session.cwd()},
        {QStringLiteral("projectName"), session.projectName()},
        {QStringLiteral("status"), session.status().caseName()},
        {QStringLiteral("toolDetail"), optional(session.toolDetail())},
        {QStringLiteral("activity"), optional(session.activity())},
        {QStringLiteral("lastPrompt"), optional(session.lastPrompt())},
        {QStringLiteral("lastMessage"), optional(session.lastMessage())},
        {QStringLiteral("model"), optional(session.model())},
        {QStringLiteral("activeSubagents"), session.activeSubagents()},
        {QStringLiteral("updatedAt"),
         QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(session.updatedAt() * 1000), Qt::UTC)
             .toString(Qt::ISODateWithMs)},
    };
    if (session.status().kind == AgentStatus::Case::runningTool) {
        object.insert(QStringLiteral("tool"), session.status().tool);
    }
    if (session.isRemote()) {
        object.insert(QStringLiteral("host"), session.host());
    }
    QJsonArray pending;
    for (const auto& decision : session.pending()) {
        pending.append(decisionJson(*decision));
    }
    object.insert(QStringLiteral("pending"), pending);
    return object;
}

QJsonArray sessionsJson(const AgentStore& store) {
    QJsonArray sessions;
    for (const AgentSession* session : store.orderedSessions()) {
        sessions.append(sessionJson(*session));
    }
    return sessions;
}

Result allow(AgentStore& store, const QString& decisionID, bool always) {
    return withDecision(store, decisionID, [&](PendingDecision& d, AgentSession& s) {
        store.allow(d, s, always, DecisionRoute::ctl);
    });
}

Result deny(AgentStore& store, const QString& decisionID) {
    return withDecision(store, decisionID,
                        [&](PendingDecision& d, AgentSession& s) { store.deny(d, s, DecisionRoute::ctl); });
}

Result answer(AgentStore& store, const QString& decisionID, const QString& answersJson) {
    const QJsonDocument document = QJsonDocument::fromJson(answersJson.toUtf8());
    if (!document.isObject()) {
        return Result::badArgument;
    }
    for (const QJsonValue& value : document.object()) {
        if (!value.isString()) {
            return Result::badArgument;
        }
    }
    return withDecision(store, decisionID, [&](PendingDecision& d, AgentSession& s) {
        store.answer(d, s, document.object(), DecisionRoute::ctl);
    });
}

Result approvePlan(AgentStore& store, const QString& decisionID, bool autoEdit) {
    return withDecision(store, decisionID, [&](PendingDecision& d, AgentSession& s) {
        store.approvePlan(d, s, autoEdit, DecisionRoute::ctl);
    });
}

Result keepPlanning(AgentStore& store, const QString& decisionID, const QString& feedback) {
    return withDecision(store, decisionID, [&](PendingDecision& d, AgentSession& s) {
        store.keepPlanning(d, s, feedback, DecisionRoute::ctl);
    });
}

Result terminal(AgentStore& store, const QString& decisionID) {
    return withDecision(store, decisionID, [&](PendingDecision& d, AgentSession& s) {
        store.handBack(d, s, DecisionRoute::ctl);
    });
}

Result hide(AgentStore& store, const QString& sessionID) {
    for (const auto& session : store.sessions()) {
        if (session->id() == sessionID || session->sessionID() == sessionID) {
            store.dismiss(session->id());
            return Result::ok;
        }
    }
    return Result::unknownSession;
}

QString message(Result result, const QString& subject) {
    switch (result) {
    case Result::ok:
        return {};
    case Result::unknownDecision:
        return QStringLiteral("no waiting decision with id ") + subject;
    case Result::unknownSession:
        return QStringLiteral("no session with id ") + subject;
    case Result::badArgument:
        return QStringLiteral("not a JSON object of question to answer: ") + subject;
    }
    return {};
}

} // namespace mirrowisp::ControlCommands
