#include "agents/AgentStore.h"
#include "agents/DecisionLog.h"
#include "agents/JsonValues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <algorithm>

namespace mirrowisp {

namespace {

const QString askUserQuestion = QStringLiteral("AskUserQuestion");
const QString exitPlanMode = QStringLiteral("ExitPlanMode");

// Question and plan cards, and rules for always allowing, exist only where the agent reads them.
bool speaksCards(AgentKind agent) {
    return agent == AgentKind::claude || agent == AgentKind::opencode;
}

// An array whose every element is an object; anything else counts as no list at all.
bool allObjects(const QJsonValue& value) {
    if (!value.isArray()) {
        return false;
    }
    const QJsonArray array = value.toArray();
    return std::all_of(array.begin(), array.end(), [](const QJsonValue& entry) { return entry.isObject(); });
}

QJsonObject behavior(const char* value) {
    return {{QStringLiteral("behavior"), QLatin1StringView(value)}};
}

} // namespace

void AgentStore::handlePermissionRequest(const std::shared_ptr<BridgeConnection>& connection,
                                         const QJsonObject& payload, AgentSession& session) {
    if (!settings_.approveFromNotch) {
        // The agent's own prompt decides; the island only calls the user.
        session.setStatus(AgentStatus::needsAttention());
        raise(AgentSignal::needsAttention, session);
        connection->reply();
        return;
    }
    const QString tool =
        json::string(payload, QLatin1StringView("tool_name")).value_or(QStringLiteral("Tool"));
    const QJsonObject input = json::object(payload, QLatin1StringView("tool_input")).value_or(QJsonObject());

    DecisionKind kind;
    if (tool == askUserQuestion && speaksCards(session.agent())) {
        const QList<AgentQuestion> questions = parseQuestions(input);
        if (questions.isEmpty()) {
            connection->reply();
            return;
        }
        kind = DecisionKind::question(questions);
    } else if (tool == exitPlanMode && speaksCards(session.agent())) {
        kind = DecisionKind::plan(
            json::string(input, QLatin1StringView("plan")).value_or(QStringLiteral("(empty plan)")));
    } else {
        kind = DecisionKind::permission(AgentStoreText::displayName(tool),
                                        AgentStoreText::summary(tool, input).value_or(tool),
                                        AgentStoreText::detail(tool, input));
    }

    const QString id = connection->request().id;
    QPointer<AgentStore> store(this);
    QPointer<AgentSession> weakSession(&session);
    connection->setOnDisconnect([store, weakSession, id] {
        // The tool went away: the hook timed out, or the user answered in the terminal.
        if (store && weakSession && store->contains(weakSession.data())) {
            if (const PendingDecision* decision = weakSession->findPending(id)) {
                store->record(*decision, *weakSession, DecisionOutcome::withdrawn, DecisionRoute::agent);
            }
            store->remove(id, *weakSession);
        }
    });
    session.appendPending(std::make_unique<PendingDecision>(id, kind, clock_.now(), connection, payload));
    session.setStatus(AgentStatus::needsAttention());
    raise(AgentSignal::needsAttention, session);
}

QList<AgentQuestion> AgentStore::parseQuestions(const QJsonObject& input) {
    QList<AgentQuestion> questions;
    const QJsonValue list = input.value(QLatin1StringView("questions"));
    if (!list.isArray()) {
        return questions;
    }
    if (!allObjects(list)) {
        return questions;
    }
    for (const QJsonValue& entry : list.toArray()) {
        const QJsonObject object = entry.toObject();
        const auto text = json::string(object, QLatin1StringView("question"));
        if (!text) {
            continue;
        }
        AgentQuestion question;
        question.question = *text;
        question.header = json::string(object, QLatin1StringView("header")).value_or(QString());
        question.multiSelect = object.value(QLatin1StringView("multiSelect")) == QJsonValue(true);
        const QJsonValue options = object.value(QLatin1StringView("options"));
        for (const QJsonValue& option : allObjects(options) ? options.toArray() : QJsonArray()) {
            const QJsonObject fields = option.toObject();
            const auto label = json::string(fields, QLatin1StringView("label"));
            if (!label) {
                continue;
            }
            question.options.append(
                {*label, json::string(fields, QLatin1StringView("description")).value_or(QString())});
        }
        questions.append(question);
    }
    return questions;
}

std::optional<qsizetype> AgentStore::answeredElsewhere(const QList<QJsonObject>& payloads,
                                                       const QString& tool,
                                                       const std::optional<QJsonObject>& input) {
    QList<qsizetype> candidates;
    for (qsizetype i = 0; i < payloads.size(); ++i) {
        if (json::string(payloads[i], QLatin1StringView("tool_name")) == tool) {
            candidates.append(i);
        }
    }
    // The agent adds "answers" to the input once a question is answered.
    auto stripped = [](const std::optional<QJsonObject>& value) -> std::optional<QJsonObject> {
        if (!value) {
            return std::nullopt;
        }
        QJsonObject copy = *value;
        copy.remove(QLatin1StringView("answers"));
        return copy;
    };
    if (const auto wanted = stripped(input)) {
        for (const qsizetype index : candidates) {
            const auto theirs = stripped(json::object(payloads[index], QLatin1StringView("tool_input")));
            if (theirs && json::deepEqual(*theirs, *wanted)) {
                return index;
            }
        }
    }
    // These two tools get their input rewritten by the agent: the tool name has to do.
    if ((tool == askUserQuestion || tool == exitPlanMode) && !candidates.isEmpty()) {
        return candidates.first();
    }
    return std::nullopt;
}

void AgentStore::allow(PendingDecision& decision, AgentSession& session, bool always, DecisionRoute route) {
    QJsonObject object = behavior("allow");
    const QJsonValue suggestions = decision.payload().value(QLatin1StringView("permission_suggestions"));
    // Only a rule the agent will store counts as "always".
    const bool rule =
        always && speaksCards(session.agent()) && suggestions.isArray() && !suggestions.toArray().isEmpty();
    if (rule) {
        object.insert(QStringLiteral("updatedPermissions"), suggestions);
    }
    record(decision, session, rule ? DecisionOutcome::alwaysAllowed : DecisionOutcome::allowed, route);
    respond(decision, session, object);
}

void AgentStore::answer(PendingDecision& decision, AgentSession& session, const QJsonObject& answers,
                        DecisionRoute route) {
    // Every other key of the input goes back as it came.
    QJsonObject input =
        json::object(decision.payload(), QLatin1StringView("tool_input")).value_or(QJsonObject());
    input.insert(QStringLiteral("answers"), answers);
    QJsonObject object = behavior("allow");
    object.insert(QStringLiteral("updatedInput"), input);
    if (decisionLog_ != nullptr) {
        record(decision, session, DecisionOutcome::answered, route,
               QString::fromUtf8(QJsonDocument(answers).toJson(QJsonDocument::Compact)));
    }
    respond(decision, session, object);
}

void AgentStore::approvePlan(PendingDecision& decision, AgentSession& session, bool autoAcceptEdits,
                             DecisionRoute route) {
    record(decision, session,
           autoAcceptEdits ? DecisionOutcome::planApprovedAutoEdit : DecisionOutcome::planApproved, route);
    QJsonObject object = behavior("allow");
    if (autoAcceptEdits) {
        object.insert(QStringLiteral("updatedPermissions"),
                      QJsonArray{QJsonObject{{QStringLiteral("type"), QStringLiteral("setMode")},
                                             {QStringLiteral("mode"), QStringLiteral("acceptEdits")},
                                             {QStringLiteral("destination"), QStringLiteral("session")}}});
    }
    respond(decision, session, object);
}

void AgentStore::keepPlanning(PendingDecision& decision, AgentSession& session, const QString& feedback,
                              DecisionRoute route) {
    const QString trimmed = feedback.trimmed();
    record(decision, session, DecisionOutcome::keptPlanning, route, trimmed);
    QJsonObject object = behavior("deny");
    object.insert(QStringLiteral("message"),
                  trimmed.isEmpty() ? QStringLiteral("The user wants to keep planning.") : trimmed);
    respond(decision, session, object);
}

void AgentStore::deny(PendingDecision& decision, AgentSession& session, DecisionRoute route) {
    record(decision, session, DecisionOutcome::denied, route);
    QJsonObject object = behavior("deny");
    object.insert(QStringLiteral("message"), denyMessage);
    respond(decision, session, object);
}

void AgentStore::handBack(PendingDecision& decision, AgentSession& session, DecisionRoute route) {
    record(decision, session, DecisionOutcome::terminal, route);
    const QString id = decision.id();
    decision.connection()->reply();
    remove(id, session);
}

std::optional<QString> AgentStore::replyText(AgentKind agent, const QJsonObject& decisionObject) {
    QJsonObject wrapped;
    if (agent == AgentKind::devin) {
        if (decisionObject.value(QLatin1StringView("behavior")) == QJsonValue(QStringLiteral("deny"))) {
            wrapped.insert(QStringLiteral("decision"), QStringLiteral("block"));
            wrapped.insert(QStringLiteral("reason"),
                           json::string(decisionObject, QLatin1StringView("message"))
                               .value_or(QStringLiteral("Denied in Mirrowisp.")));
        } else {
            wrapped.insert(QStringLiteral("decision"), QStringLiteral("approve"));
        }
    } else {
        wrapped.insert(QStringLiteral("hookSpecificOutput"),
                       QJsonObject{{QStringLiteral("hookEventName"), QStringLiteral("PermissionRequest")},
                                   {QStringLiteral("decision"), decisionObject}});
    }
    const QByteArray text = QJsonDocument(wrapped).toJson(QJsonDocument::Compact);
    if (text.isEmpty()) {
        return std::nullopt;
    }
    return QString::fromUtf8(text);
}

void AgentStore::respond(PendingDecision& decision, AgentSession& session,
                         const QJsonObject& decisionObject) {
    const QString id = decision.id();
    const std::shared_ptr<BridgeConnection> connection = decision.connection();
    connection->reply(replyText(session.agent(), decisionObject)); // no text is no decision
    remove(id, session);
    if (session.pending().empty()) {
        // The agent continues after an answer; its next event corrects the status if not.
        session.setStatus(AgentStatus::thinking());
    }
}

void AgentStore::record(const PendingDecision& decision, const AgentSession& session, DecisionOutcome outcome,
                        DecisionRoute route, QString answer) {
    // An expired decision was logged when it expired; whatever ends it later is no news.
    if (decisionLog_ == nullptr || decision.isExpired()) {
        return;
    }
    const DecisionKind& kind = decision.kind();
    DecisionRecord entry;
    entry.askedAt = decision.createdAt();
    entry.endedAt = clock_.now();
    entry.agent = session.agent();
    entry.sessionID = session.sessionID();
    entry.cwd = session.cwd();
    entry.kind = kind.caseName();
    entry.tool = json::string(decision.payload(), QLatin1StringView("tool_name")).value_or(QString());
    switch (kind.kind) {
    case DecisionKind::Case::permission:
        entry.summary = kind.summary;
        break;
    case DecisionKind::Case::question:
        entry.summary = kind.questions.isEmpty() ? QString() : kind.questions.first().question;
        break;
    case DecisionKind::Case::plan:
        entry.summary = kind.markdown.section(QLatin1Char('\n'), 0, 0, QString::SectionSkipEmpty);
        break;
    }
    entry.outcome = outcome;
    // The setup guide's sample is its own route however it was answered: it never reached an agent.
    entry.route = session.sessionID().startsWith(sampleSessionPrefix) ? DecisionRoute::setupGuide : route;
    entry.answer = std::move(answer);
    entry.toolInput =
        json::object(decision.payload(), QLatin1StringView("tool_input")).value_or(QJsonObject());
    decisionLog_->append(std::move(entry));
}

void AgentStore::expireStuckDecisions(Timestamp now) {
    for (const auto& session : sessions_) {
        const auto timeout = hookTimeouts_.constFind(session->agent());
        if (timeout == hookTimeouts_.constEnd()) {
            continue;
        }
        for (const auto& decision : session->pending()) {
            if (!decision->isExpired() && now - decision->createdAt() > *timeout) {
                record(*decision, *session, DecisionOutcome::expired, DecisionRoute::agent);
                decision->markExpired();
            }
        }
    }
}

void AgentStore::remove(QString decisionID, AgentSession& session) {
    // The id is a copy: the caller's may live in the decision that is freed here.
    while (session.takePending(decisionID)) {
    }
    if (session.pending().empty() && session.status().kind == AgentStatus::Case::needsAttention) {
        session.setStatus(AgentStatus::thinking());
    }
}

} // namespace mirrowisp
