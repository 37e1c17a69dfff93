#pragma once

#include "integration/Locations.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <functional>

namespace mirrowisp::AgentEnvironment {

// How long one attempt of the login-shell probe may take before the shell is killed.
inline constexpr double probeTimeoutSeconds = 6.0;

// An agent's command-line tool: the word the shell looks up, and the absolute paths tried when the
// shell finds nothing.
struct CLI {
    QString name;
    QStringList fallbacks;
};

CLI cli(AgentKind kind, const QString& home);

// The user's login shell: SHELL, else the password database's entry, else /bin/sh.
QString loginShell();

// The text the login shell runs: a sentinel line, six variables, and `command -v` of each tool.
QString probeScript();

// The `NAME=value` lines behind the first sentinel, values trimmed of blanks and tabs. Lines
// without both a key and a value are skipped; a later key replaces an earlier one.
QMap<QString, QString> parseProbeOutput(const QString& text);

// The locations that the parsed shell values give, over the standard ones for `home`.
Locations locations(const QMap<QString, QString>& parsed, const QString& home);

// Runs `shell` with "-ilc", then "-lc" if the first attempt gives no sentinel, each with
// `timeoutSeconds`, and builds the locations from the first answer that counts (the defaults when
// neither does). Blocks: call it off the main thread.
Locations probe(const QString& shell, const QString& home, double timeoutSeconds = probeTimeoutSeconds);

// Probes the user's login shell on a background thread, then on the main thread publishes the
// result as `current()` and runs `then`.
void resolve(std::function<void()> then);

// Whether the agent is on this machine in any form: a tool found, a desktop entry, or files it
// left behind.
bool isInstalled(AgentKind kind);

// "~" and "~/…" against `home`, "~user/…" against that user's home; other paths unchanged.
QString expandTilde(const QString& path, const QString& home);

// An absolute path to a regular file that this user may execute.
bool isExecutableFile(const QString& path);

} // namespace mirrowisp::AgentEnvironment
