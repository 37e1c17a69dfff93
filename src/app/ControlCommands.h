#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace mirrowisp {

class AgentStore;
class AgentSession;

// What scripts and the `mirrowisp ctl` command can see and do. Each action does exactly what the
// matching card action does.
namespace ControlCommands {

enum class Result { ok, unknownDecision, unknownSession, badArgument };

QJsonObject sessionJson(const AgentSession& session);
// Every session, in the order the island lists them.
QJsonArray sessionsJson(const AgentStore& store);

Result allow(AgentStore& store, const QString& decisionID, bool always);
Result deny(AgentStore& store, const QString& decisionID);
// `answersJson` is an object of question text to answer text.
Result answer(AgentStore& store, const QString& decisionID, const QString& answersJson);
Result approvePlan(AgentStore& store, const QString& decisionID, bool autoEdit);
Result keepPlanning(AgentStore& store, const QString& decisionID, const QString& feedback);
// Hands the decision back to the agent's own prompt in the terminal.
Result terminal(AgentStore& store, const QString& decisionID);
// Hides a session by its id ("claude:<session id>") or by the agent's own session id.
Result hide(AgentStore& store, const QString& sessionID);

QString message(Result result, const QString& subject);

} // namespace ControlCommands
} // namespace mirrowisp
