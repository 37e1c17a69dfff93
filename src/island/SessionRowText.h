#pragma once

#include "base/Clock.h"

#include <QString>
#include <optional>

namespace mirrowisp {

class AgentSession;

// Which badge a session row carries.
enum class RowBadge { none, needsYou, done, working };

// The texts of a session row, derived from the session each time it is drawn.
namespace SessionRowText {

// The working directory with the home directory shown as "~", only as a whole leading component:
// "/home/ann" gives "~" and "/home/ann/x" gives "~/x", but "/home/anna" stays as it is.
QString subtitle(const QString& cwd, const QString& home);
QString subtitle(const AgentSession& session); // with the user's home directory

// The project's name, and for an agent on a remote host " · " and the host's name.
QString project(const AgentSession& session);

// The one line on what the agent does or last said.
QString activityLine(const AgentSession& session);

// The age of the last event: "now" under a minute, then whole minutes, hours and days.
QString ago(Timestamp updatedAt, Timestamp now);

// The app that hosts the session, as the "Approve this in …" line names it.
QString hostName(const AgentSession& session);

RowBadge badge(const AgentSession& session);
QString badgeName(RowBadge badge); // "needsYou", "done", "working" or empty

// The number next to "person.2.fill": running subagents, when there are any.
std::optional<qint64> subagentCount(const AgentSession& session);

// The agent waits for an answer in its own prompt, which the island cannot give.
bool approvesInHost(const AgentSession& session);

} // namespace SessionRowText
} // namespace mirrowisp
