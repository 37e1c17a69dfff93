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

// Reports each agent's setup state; ConnectionPass puts the hooks in.
namespace AgentConnector {

using Presence = std::function<bool(AgentKind)>;

QString setupCaseName(AgentSetup::Kind kind);
// Each agent, in order, with its setup state and the sentence the setup pages show.
QJsonArray agentsJson(const UserDefaults& defaults, const QHash<AgentKind, Timestamp>& lastSeen,
                      const Presence& isInstalled, Timestamp now);

} // namespace AgentConnector
} // namespace mirrowisp
