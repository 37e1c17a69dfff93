#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"
#include "integration/AgentSetup.h"

#include <QHash>
#include <QJsonArray>
#include <QString>
#include <functional>
#include <optional>

namespace mirrowisp {

class UserDefaults;

// Puts the app's hooks into the agents on this machine and reports each agent's setup state.
namespace AgentConnector {

using Presence = std::function<bool(AgentKind)>;

// Installs the hooks of every agent that is on this machine and that the user has not disconnected.
// An agent's failure does not stop the others; the setup pages show each agent's state.
void connectionPass(UserDefaults& defaults, const Presence& isInstalled);

QString setupCaseName(AgentSetup::Kind kind);
// Each agent, in order, with its setup state and the sentence the setup pages show.
QJsonArray agentsJson(const UserDefaults& defaults, const QHash<AgentKind, Timestamp>& lastSeen,
                      const Presence& isInstalled, Timestamp now);
// Connects or disconnects one agent by its raw name; answers the error text on failure.
std::optional<QString> setConnected(UserDefaults& defaults, const QString& agent, bool connect);

} // namespace AgentConnector
} // namespace mirrowisp
