#pragma once

#include "base/AgentKind.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp {

// The rules that let an agent run a kind of tool call without asking, as the agents keep them in their
// own settings: the ones "Always allow" wrote and the ones the user wrote. Claude Code keeps them in
// `permissions.allow` of its user settings and of each project's .claude/settings.json and
// settings.local.json; the Cursor CLI in `permissions.allow` of its cli-config.json. Removing one is
// an edit of another program's file: refused when the file is unreadable, preceded by a backup,
// atomic, and everything else in the file stays as it was.
namespace AlwaysAllowRules {

struct Rule {
    QString id; // stable while the file and the rule text stay
    AgentKind agent = AgentKind::claude;
    QString scope;   // user, project, local
    QString project; // empty for user rules
    QString file;
    QString rule; // the rule text; empty when unreadable
    bool readable = true;
    QString problem; // unreadable only: what is wrong (a file that does not parse, a value of another type)
    bool operator==(const Rule&) const = default;
};

// The rules of the user's settings and of these project folders. Reads files: off the main thread.
QList<Rule> list(const QStringList& projects);
QJsonArray toJson(const QList<Rule>& rules);

struct Failure {
    enum class Kind { unknownRule, unreadable, fileSystem };
    Kind kind = Kind::unknownRule;
    QString text;
};
// Takes the rule with this id out of its file; nothing on success.
std::optional<Failure> remove(const QString& id, const QStringList& projects);

// The project folders the app knows: those of `sessionFolders` and those in the decision log.
QStringList knownProjects(const QStringList& sessionFolders, const QString& supportDirectory);

} // namespace AlwaysAllowRules
} // namespace mirrowisp
