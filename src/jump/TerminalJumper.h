#pragma once

#include "base/AgentKind.h"
#include "bridge/BridgeProtocol.h"
#include "jump/TerminalDrivers.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class AgentSession;

// Brings back the terminal tab, pane or editor window where an agent runs. Claude's and Codex's
// desktop apps have no Linux build, so their deep links are not tried: every jump goes to the
// drivers first and falls back on activating the agent's application.
namespace TerminalJumper {

// What a jump needs of a session, copied on the main thread so that the background work touches
// no observable object.
struct Target {
    AgentKind agent = AgentKind::claude;
    QString sessionID;
    QString cwd;
    ProcessContext context;
    std::optional<QString> appID; // the desktop id of the terminal or editor, when known
    QString host;                 // the remote host the agent runs on; empty on this machine
};

// The driver that reached its target ("cmux", "herdr", "tmux", "kitty", "wezterm", "konsole",
// "ewmh", "editor"), and an application to raise besides, when the driver only reached the inside of it.
struct Focus {
    QString driver;
    std::optional<QString> activateAppID;
};

// Raises the application of a target (the given desktop id, or the agent's own app); true if
// something was raised. The app wires the window system's activation; without one nothing is.
using Activate = std::function<bool(const std::optional<QString>& appID, const Target& target)>;

// Activation through a window system: the target's application window, when its id is known.
Activate windowActivation(std::shared_ptr<WindowFocus> windows);

// What a jump reports: a driver name from `Focus`, "activated" or "none".
using Done = std::function<void(const QString& outcome)>;

// The terminal's desktop id from what the hook tool recorded, or nothing.
std::optional<QString> appID(const ProcessContext& context);

Target target(const AgentSession& session);

// Tries the drivers in order; the first that reaches the exact place wins. A remote target's
// context describes its host, so no local driver can reach it: that jump is the remote layer's. Blocks for up
// to a few seconds per tool: never on the main thread.
std::optional<Focus> focusExactly(const Target& target, const TerminalDrivers::Tools& tools);

// Runs the whole jump where it is called: drivers, then activation. For `ctl`, off the main thread.
QString jumpAndWait(const Target& target, const TerminalDrivers::Tools& tools, const Activate& activate);

// Called on the main thread; returns at once. The drivers run on the jump queue, activation and
// `done` come back on the main thread.
void jump(const AgentSession& session, Activate activate, Done done = {},
          TerminalDrivers::Tools tools = TerminalDrivers::Tools::system());

} // namespace TerminalJumper

} // namespace mirrowisp
