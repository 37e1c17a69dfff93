#pragma once

#include "base/Clock.h"

#include <QString>
#include <optional>

namespace mirrowisp {

// The guided fix a setup page offers beside an agent's state.
enum class SetupFix { approveInCodex, turnOnInCodex, fixSettingsFile };

// One agent's connection state, reduced to what the setup pages show.
struct AgentSetup {
    enum class Kind {
        unreadableConfig,   // the agent's settings file cannot be used
        connected,          // hook in place, and usable
        notInstalled,       // no trace of the agent and never seen
        disconnected,       // the user turned it off here
        notConnected,       // agent present, hook absent
        codexNeedsApproval, // Codex has not trusted the hooks
        codexHooksOff,      // the user turned the hooks off in Codex
    };

    Kind kind = Kind::notConnected;
    QString file;                      // unreadableConfig only
    std::optional<Timestamp> lastSeen; // connected only
    // unreadableConfig only: the value of a shape we don't manage that stops the install, "hooks.Stop".
    std::optional<QString> unexpectedKey;

    static AgentSetup unreadableConfig(const QString& file) { return {Kind::unreadableConfig, file, {}, {}}; }
    static AgentSetup connected(std::optional<Timestamp> lastSeen) {
        return {Kind::connected, {}, lastSeen, {}};
    }
    static AgentSetup of(Kind kind) { return {kind, {}, {}, {}}; }

    // One line for the setup pages. `codexAppInstalled` picks between the desktop app's words and the
    // terminal's for the two Codex cases.
    QString summary(Timestamp now, bool codexAppInstalled) const;
    // The guided fix to offer, if any.
    std::optional<SetupFix> fix() const;

    bool operator==(const AgentSetup&) const = default;
};

// "5 min. ago", "yesterday", "3 wk. ago": a past moment as a short relative phrase.
QString relativePhrase(Timestamp then, Timestamp now);

} // namespace mirrowisp
