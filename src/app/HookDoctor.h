#pragma once

#include "agents/HookTimings.h"
#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <functional>

namespace mirrowisp {

class AgentStore;
class UserDefaults;

// Why an approval may never show up, and whether our hook slows an agent down: per agent, whether it
// is on this machine, the state of our hooks in its files, the bridge link and tool, the last event
// and the hook round trips measured here, and the decisions of the last day that got stuck.
namespace HookDoctor {

// What only the main thread knows, taken in one go.
struct Inputs {
    QHash<AgentKind, Timestamp> lastSeen;
    QHash<AgentKind, HookTimings::Summary> timings;
    QSet<AgentKind> disconnected;
    QString supportDirectory;
    Timestamp now = 0;
};
Inputs gather(const AgentStore& store, const UserDefaults& defaults, Timestamp now);

// Hooks: installed, missing, drifted (ours, but not as we wrote them), disconnected (by the user),
// unreadable (a file we must not write).
QString hookState(AgentKind kind, bool disconnectedByUser);

// Reads the agents' files and runs the tool: off the main thread.
QJsonObject report(const Inputs& inputs);
// The diff `connect` would apply to the agent's file, or a sentence when it would change nothing or
// refuse the file.
QString connectPreview(AgentKind kind);

// Runs `work` on the doctor's own thread.
void runOffMainThread(std::function<void()> work);

} // namespace HookDoctor
} // namespace mirrowisp
