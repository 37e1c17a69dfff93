#include "app/AgentConnector.h"

#include "base/UserDefaults.h"
#include "integration/HookInstaller.h"

#include <QJsonObject>

namespace mirrowisp::AgentConnector {

QString setupCaseName(AgentSetup::Kind kind) {
    switch (kind) {
    case AgentSetup::Kind::unreadableConfig:
        return QStringLiteral("unreadableConfig");
    case AgentSetup::Kind::connected:
        return QStringLiteral("connected");
    case AgentSetup::Kind::notInstalled:
        return QStringLiteral("notInstalled");
    case AgentSetup::Kind::disconnected:
        return QStringLiteral("disconnected");
    case AgentSetup::Kind::notConnected:
        return QStringLiteral("notConnected");
    case AgentSetup::Kind::codexNeedsApproval:
        return QStringLiteral("codexNeedsApproval");
    case AgentSetup::Kind::codexHooksOff:
        return QStringLiteral("codexHooksOff");
    }
    return {};
}

QJsonArray agentsJson(const UserDefaults& defaults, const QHash<AgentKind, Timestamp>& lastSeen,
                      const Presence& isInstalled, Timestamp now) {
    QJsonArray agents;
    for (AgentKind kind : AgentKinds::all) {
        const auto seen =
            lastSeen.contains(kind) ? std::optional<Timestamp>(lastSeen.value(kind)) : std::nullopt;
        const AgentSetup setup = HookInstaller::setup(kind, seen, defaults, isInstalled);
        agents.append(QJsonObject{{QStringLiteral("agent"), AgentKinds::rawValue(kind)},
                                  {QStringLiteral("name"), AgentKinds::displayName(kind)},
                                  {QStringLiteral("setup"), setupCaseName(setup.kind)},
                                  // No Codex desktop app on Linux: the terminal's words.
                                  {QStringLiteral("summary"), setup.summary(now, false)}});
    }
    return agents;
}

} // namespace mirrowisp::AgentConnector
