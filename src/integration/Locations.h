#pragma once

#include "base/AgentKind.h"

#include <QMap>
#include <QString>
#include <optional>

namespace mirrowisp {

// Where each agent keeps its files and its command-line tool. Everything that touches an agent's
// files reads its paths from here, never from the app's own environment.
struct Locations {
    QString home;                  // the user's home directory
    QMap<AgentKind, QString> dirs; // every agent's configuration directory; always all eight
    QMap<AgentKind, QString> clis; // absolute path of each agent's tool that was found
    QString path;                  // the login shell's PATH; empty until the shell told it

    // The defaults: ~/.claude, ~/.codex, ~/.cursor, <xdgConfig>/opencode, <xdgConfig>/amp,
    // <xdgConfig>/devin, ~/.gemini, ~/.copilot; xdgConfig defaults to ~/.config. No tools.
    static Locations standard(const QString& home, const std::optional<QString>& xdgConfig = std::nullopt);

    QString dir(AgentKind kind) const { return dirs.value(kind); }

    bool operator==(const Locations&) const = default;
};

namespace AgentEnvironment {

// The locations as last published: the standard ones for the system's home directory until the
// login-shell probe has resolved the real ones. Main thread writes; any thread may read a copy.
Locations current();
void setCurrent(const Locations& locations);

} // namespace AgentEnvironment
} // namespace mirrowisp
