#include "agents/AgentStore.h"

#include "agents/AgentActivity.h"
#include "agents/JsonValues.h"
#include "agents/TranscriptReader.h"
#include "base/MainQueue.h"
#include "base/UserDefaults.h"

#include <QJsonDocument>
#include <QPointer>

namespace mirrowisp {

namespace {

QString lastSeenKey(AgentKind agent) {
    return QStringLiteral("lastSeen.") + AgentKinds::rawValue(agent);
}

} // namespace

AgentStore::AgentStore(UserDefaults& defaults, const Clock& clock, QObject* parent)
    : QObject(parent), defaults_(defaults), clock_(clock),
      transcripts_(std::make_unique<SerialQueue>("mirrowisp.prompts")) {
    for (AgentKind agent : AgentKinds::all) {
        if (const auto seen = defaults_.doubleValue(lastSeenKey(agent))) {
            lastSeen_.insert(agent, *seen);
        }
    }
}

AgentStore::~AgentStore() {
    // Back-fills still running finish before the queue goes; their results find no store.
    transcripts_.reset();
}

AgentSession* AgentStore::findSession(const QString& sessionKey) const {
    for (const auto& session : sessions_) {
        if (session->id() == sessionKey) {
            return session.get();
        }
    }
    return nullptr;
}

std::pair<PendingDecision*, AgentSession*> AgentStore::findDecision(const QString& decisionID) const {
    for (const auto& session : sessions_) {
        if (PendingDecision* decision = session->findPending(decisionID)) {
            return {decision, session.get()};
        }
    }
    return {nullptr, nullptr};
}

bool AgentStore::contains(const AgentSession* session) const {
    for (const auto& candidate : sessions_) {
        if (candidate.get() == session) {
            return true;
        }
    }
    return false;
}

void AgentStore::setCodexHookStatus(CodexHookStatus status) {
    if (codexHookStatus_ != status) {
        codexHookStatus_ = status;
        Q_EMIT codexHookStatusChanged();
    }
}

void AgentStore::setHasUnseenFinish(bool unseen) {
    if (hasUnseenFinish_ != unseen) {
        hasUnseenFinish_ = unseen;
        Q_EMIT hasUnseenFinishChanged();
    }
}

void AgentStore::raise(AgentSignal signal, AgentSession& session) {
    if (onSignal_) {
        onSignal_(signal, session);
    }
}

void AgentStore::noteSeen(AgentKind agent) {
    const Timestamp now = clock_.now();
    const auto it = lastSeen_.constFind(agent);
    if (it != lastSeen_.constEnd() && now - *it < 20.0) {
        return;
    }
    lastSeen_.insert(agent, now);
    defaults_.set(lastSeenKey(agent), now);
}

std::optional<QJsonObject> AgentStore::parsePayload(const QByteArray& payload) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    return document.object();
}

void AgentStore::handle(const std::shared_ptr<BridgeConnection>& connection) {
    handle(connection, parsePayload(connection->request().payload));
}

void AgentStore::handle(const std::shared_ptr<BridgeConnection>& connection,
                        const std::optional<QJsonObject>& parsed) {
    const BridgeRequest& request = connection->request();
    const Timestamp arrived = clock_.now();
    noteSeen(request.agent);
    // Decisions wait for the user: only events answered here and now say how fast the hook is.
    struct TimeAnswer {
        HookTimings& timings;
        const Clock& clock;
        const BridgeConnection& connection;
        Timestamp arrived;
        ~TimeAnswer() {
            const BridgeRequest& request = connection.request();
            if (request.startedAt && connection.isFinished()) {
                timings.add(request.agent, *request.startedAt, arrived, clock.now());
            }
        }
    } timeAnswer{hookTimings_, clock_, *connection, arrived};
    if (!settings_.isAgentEnabled(request.agent) || !parsed) {
        connection->reply();
        return;
    }
    const QJsonObject& payload = *parsed;
    const auto event = json::string(payload, QLatin1StringView("hook_event_name"));
    const auto sessionID = json::string(payload, QLatin1StringView("session_id"));
    if (!event || !sessionID) {
        connection->reply();
        return;
    }
    if (request.agent == AgentKind::codex) {
        // An event from Codex proves that it runs our hooks.
        setCodexHookStatus(CodexHookStatus::ready);
    }
    AgentSession& session = sessionFor(request, *sessionID, payload, *event);
    session.setUpdatedAt(clock_.now());
    if (const auto model = json::string(payload, QLatin1StringView("model"))) {
        session.setModel(model);
    }
    applyRow(*event, session, payload, connection);
}

AgentSession& AgentStore::sessionFor(const BridgeRequest& request, const QString& sessionID,
                                     const QJsonObject& payload, const QString& eventName) {
    const AgentKind agent = request.agent;
    const ProcessContext& context = request.context;
    const QString cwd = json::string(payload, QLatin1StringView("cwd")).value_or(QString());
    const QString key = AgentSession::makeID(agent, sessionID, request.host);
    AgentSession* session = findSession(key);
    if (session != nullptr) {
        session->setCwd(cwd);
        // A hook that runs without a terminal must not erase the terminal we know.
        if (context.tty || !session->context().tty) {
            session->setContext(context);
        }
    } else {
        const Timestamp now = clock_.now();
        sessions_.emplace_back(new AgentSession(agent, sessionID, request.host, now));
        session = sessions_.back().get();
        session->setCwd(cwd);
        session->setContext(context);
        Q_EMIT sessionsChanged();
    }
    if (const auto path = json::string(payload, QLatin1StringView("transcript_path"))) {
        const bool hadPath = session->transcriptPath().has_value();
        session->setTranscriptPath(path);
        // A remote transcript lies on its host: a local file of that name is not it.
        if (!hadPath && !session->lastPrompt() && !session->isRemote() &&
            eventName != QLatin1StringView("UserPromptSubmit")) {
            backfillPrompt(*session, *path);
        }
    }
    if (session->status().kind == AgentStatus::Case::ended) {
        session->setStatus(AgentStatus::idle());
    }
    return *session;
}

void AgentStore::backfillPrompt(AgentSession& session, const QString& path) {
    // The app met a session that was already running: its last prompt is in the transcript.
    QPointer<AgentStore> store(this);
    QPointer<AgentSession> weakSession(&session);
    const AgentKind agent = session.agent();
    transcripts_->async([store, weakSession, agent, path] {
        std::optional<QString> prompt;
        for (const qint64 bytes : {qint64(262'144), qint64(4'194'304), qint64(33'554'432)}) {
            prompt = TranscriptReader::lastUserPrompt(TranscriptReader::tailObjects(path, bytes), agent);
            if (prompt) {
                break;
            }
        }
        postToMain([store, weakSession, prompt] {
            // A prompt that arrived meanwhile wins.
            if (store && weakSession && store->contains(weakSession.data()) && !weakSession->lastPrompt()) {
                weakSession->setLastPrompt(prompt);
            }
        });
    });
}

void AgentStore::applyRow(const QString& event, AgentSession& session, const QJsonObject& payload,
                          const std::shared_ptr<BridgeConnection>& connection) {
    const Timestamp now = clock_.now();
    if (event == QLatin1StringView("PermissionRequest")) {
        handlePermissionRequest(connection, payload, session);
        return; // the reply waits for the user
    }
    connection->reply();

    if (event == QLatin1StringView("SessionStart")) {
        if (session.status().isQuiet()) {
            session.setStatus(AgentStatus::idle());
        }
        session.setStartedAt(now);
        raise(AgentSignal::sessionStarted, session);
    } else if (event == QLatin1StringView("UserPromptSubmit")) {
        failPending(session);
        session.setStatus(AgentStatus::thinking());
        session.setActivity(std::nullopt);
        session.setTurnStartedAt(now);
        if (const auto prompt = json::string(payload, QLatin1StringView("prompt"))) {
            if (const auto preview = AgentStoreText::promptPreview(*prompt)) {
                AgentActivity::recordPrompt(defaults_, session.agent(), now);
                session.setLastPrompt(preview);
            }
        }
        session.setLastMessage(std::nullopt);
        raise(AgentSignal::promptSubmitted, session);
    } else if (event == QLatin1StringView("PreToolUse")) {
        const QString name =
            json::string(payload, QLatin1StringView("tool_name")).value_or(QStringLiteral("Tool"));
        const QJsonObject input =
            json::object(payload, QLatin1StringView("tool_input")).value_or(QJsonObject());
        const QString shown = AgentStoreText::displayName(name);
        session.setStatus(AgentStatus::runningTool(shown));
        session.setToolDetail(AgentStoreText::summary(name, input));
        session.setActivity(AgentStoreText::activity(shown, session.toolDetail()));
    } else if (event == QLatin1StringView("PostToolUse") ||
               event == QLatin1StringView("PostToolUseFailure") ||
               event == QLatin1StringView("PostToolBatch") ||
               event == QLatin1StringView("PermissionDenied")) {
        applyPostTool(session, payload);
    } else if (event == QLatin1StringView("AgentResponse")) {
        const auto message = json::string(payload, QLatin1StringView("message"));
        if (message && !message->isEmpty()) {
            session.setLastMessage(AgentStoreText::condense(*message));
        }
    } else if (event == QLatin1StringView("PreCompact")) {
        session.setStatus(AgentStatus::compacting());
    } else if (event == QLatin1StringView("PostCompact")) {
        session.setStatus(AgentStatus::thinking());
    } else if (event == QLatin1StringView("SubagentStart")) {
        session.setActiveSubagents(session.activeSubagents() + 1);
    } else if (event == QLatin1StringView("SubagentStop")) {
        session.setActiveSubagents(session.activeSubagents() - 1);
    } else if (event == QLatin1StringView("Notification")) {
        applyNotification(session, payload);
    } else if (event == QLatin1StringView("Stop") || event == QLatin1StringView("StopFailure")) {
        applyStop(session, payload);
    } else if (event == QLatin1StringView("SessionEnd")) {
        session.setStatus(AgentStatus::ended());
        failPending(session);
        raise(AgentSignal::ended, session);
    }
}

void AgentStore::applyPostTool(AgentSession& session, const QJsonObject& payload) {
    if (const auto tool = json::string(payload, QLatin1StringView("tool_name"))) {
        QList<QJsonObject> payloads;
        payloads.reserve(static_cast<qsizetype>(session.pending().size()));
        for (const auto& decision : session.pending()) {
            payloads.append(decision->payload());
        }
        const auto index =
            answeredElsewhere(payloads, *tool, json::object(payload, QLatin1StringView("tool_input")));
        if (index) {
            const PendingDecision& settled = *session.pending()[static_cast<std::size_t>(*index)];
            record(settled, session, DecisionOutcome::terminal, DecisionRoute::agent);
            const QString id = settled.id();
            settled.connection()->reply();
            remove(id, session);
        }
    }
    if (session.pending().empty() && session.status().isWorking()) {
        // A late post-tool event must not bring a finished session back to work.
        session.setStatus(AgentStatus::thinking());
    }
    session.setToolDetail(std::nullopt);
}

void AgentStore::applyNotification(AgentSession& session, const QJsonObject& payload) {
    const QString message = json::string(payload, QLatin1StringView("message")).value_or(QString());
    const QString type = json::string(payload, QLatin1StringView("notification_type")).value_or(QString());
    if (type == QLatin1StringView("idle_prompt") ||
        message.contains(QLatin1StringView("waiting for your input"), Qt::CaseInsensitive) ||
        !session.pending().empty() || type == QLatin1StringView("auth_success")) {
        return; // idle reminders, and cases a card already covers
    }
    session.setStatus(AgentStatus::needsAttention());
    session.setLastMessage(message);
    raise(AgentSignal::needsAttention, session);
}

void AgentStore::applyStop(AgentSession& session, const QJsonObject& payload) {
    session.setStatus(AgentStatus::done());
    session.setToolDetail(std::nullopt);
    if (const auto last = json::string(payload, QLatin1StringView("last_assistant_message"))) {
        session.setLastMessage(AgentStoreText::condense(*last));
    } else if (session.transcriptPath()) {
        if (auto message =
                TranscriptReader::lastAssistantMessage(*session.transcriptPath(), session.agent())) {
            session.setLastMessage(message);
        }
    }
    failPending(session);
    raise(AgentSignal::finished, session);
}

void AgentStore::failPending(AgentSession& session) {
    // Taken out first, so nothing a reply sets off can change the list being walked.
    for (const auto& decision : session.takeAllPending()) {
        record(*decision, session, DecisionOutcome::stale, DecisionRoute::agent);
        decision->connection()->reply();
    }
}

void AgentStore::dismiss(const QString& sessionKey) {
    AgentSession* session = findSession(sessionKey);
    if (session == nullptr) {
        return;
    }
    failPending(*session);
    std::erase_if(sessions_, [&](const auto& candidate) { return candidate->id() == sessionKey; });
    Q_EMIT sessionsChanged();
}

QString AgentStore::addSampleRequest() {
    static int count = 0;
    const QString sessionID = sampleSessionPrefix + QString::number(++count);
    const QString id = QStringLiteral("sample-") + QString::number(count);
    const QJsonObject input{{QStringLiteral("command"), QStringLiteral("echo Hello from Mirrowisp")}};
    const QJsonObject payload{{QStringLiteral("hook_event_name"), QStringLiteral("PermissionRequest")},
                              {QStringLiteral("session_id"), sessionID},
                              {QStringLiteral("tool_name"), QStringLiteral("Bash")},
                              {QStringLiteral("tool_input"), input}};
    // No descriptor behind it: the reply is dropped, so the sample can never reach an agent.
    auto connection = BridgeConnection::make(
        {id, AgentKind::claude, QJsonDocument(payload).toJson(QJsonDocument::Compact), true, {}}, -1);
    sessions_.emplace_back(new AgentSession(AgentKind::claude, sessionID, clock_.now()));
    AgentSession& session = *sessions_.back();
    session.setCwd(QStringLiteral("~/mirrowisp-sample"));
    session.setLastPrompt(QStringLiteral("Say hello"));
    Q_EMIT sessionsChanged();
    session.appendPending(std::make_unique<PendingDecision>(
        id,
        DecisionKind::permission(AgentStoreText::displayName(QStringLiteral("Bash")),
                                 input.value(QLatin1StringView("command")).toString(),
                                 AgentStoreText::detail(QStringLiteral("Bash"), input)),
        clock_.now(), connection, payload));
    session.setStatus(AgentStatus::needsAttention());
    const QString key = session.id();
    QPointer<AgentStore> store(this);
    connect(&session, &AgentSession::pendingChanged, this, [store, key, id] {
        AgentSession* sample = store ? store->findSession(key) : nullptr;
        if (sample == nullptr || !sample->pending().empty()) {
            return;
        }
        // Answered: the session goes too, once the answer's own handling is over.
        QMetaObject::invokeMethod(
            store,
            [store, key, id] {
                if (store) {
                    store->dismiss(key);
                    Q_EMIT store->sampleRequestAnswered(id);
                }
            },
            Qt::QueuedConnection);
    });
    raise(AgentSignal::needsAttention, session);
    return id;
}

} // namespace mirrowisp
