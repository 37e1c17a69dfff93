#pragma once

#include "agents/AgentKind.h"

#include <QList>
#include <QString>

namespace mirrowisp {

// A bubble beside the closed island.
struct SecondaryActivity {
    enum class Case { agent, music, meeting };

    Case kind = Case::music;
    AgentKind agent = AgentKind::claude; // agent only
    bool needsUser = false;              // agent only

    static SecondaryActivity music() { return {Case::music, AgentKind::claude, false}; }
    static SecondaryActivity meeting() { return {Case::meeting, AgentKind::claude, false}; }
    static SecondaryActivity forAgent(AgentKind agent, bool needsUser) {
        return {Case::agent, agent, needsUser};
    }

    // Stable identity of what the bubble shows: "music", "meeting", "agent-claude-true".
    QString key() const;

    bool operator==(const SecondaryActivity&) const = default;
};

} // namespace mirrowisp
