#pragma once

#include "base/AgentKind.h"

#include <QList>
#include <QString>

namespace mirrowisp {

class ClosedContent;
struct IslandInputs;

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

    // The bubbles beside `primary`: a live meeting, then playing music, when the wings show an
    // agent; music beside a meeting; nothing otherwise. At most two, the first stands left.
    static QList<SecondaryActivity> resolveAll(const IslandInputs& inputs, const ClosedContent& primary);

    // Stable identity of what the bubble shows: "music", "meeting", "agent-claude-true".
    QString key() const;

    bool operator==(const SecondaryActivity&) const = default;
};

} // namespace mirrowisp
