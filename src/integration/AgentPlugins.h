#pragma once

#include "base/AgentKind.h"

#include <QString>
#include <optional>

namespace mirrowisp::AgentPlugins {

// The TypeScript plugin that feeds OpenCode's or Amp's events to the bridge tool at `bridgePath`, in the
// same hook shape the other agents send. Nothing for agents that take hook files instead.
std::optional<QString> source(AgentKind kind, const QString& bridgePath);

} // namespace mirrowisp::AgentPlugins
