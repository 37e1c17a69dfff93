#pragma once

#include "bridge/BridgeProtocol.h"

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

namespace mirrowisp {

// Konsole is driven over D-Bus, which the logic library does not link: the app hands in an object
// that talks to the session's service. Like every driver it is called on the jump queue, never on
// the main thread.
class KonsoleFocus {
public:
    virtual ~KonsoleFocus() = default;
    // Shows `session` (its object path, such as "/Sessions/3") in the Konsole at `service`, raised.
    virtual bool focus(const QString& service, const QString& session) = 0;
};

// Raising one X11 window (EWMH `_NET_ACTIVE_WINDOW`, source 2) needs the window system, which the
// logic library does not link: the app hands in an object that does it, called on the jump queue.
class WindowFocus {
public:
    virtual ~WindowFocus() = default;
    virtual bool activateWindow(quint32 windowID) = 0;
    // The top-level window whose `_NET_WM_PID` is `pid`.
    virtual bool activateWindowOf(qint32 pid) = 0;
    // A top-level window of the application with this desktop id (matched by its window class).
    virtual bool activateApplication(const QString& appID) {
        Q_UNUSED(appID);
        return false;
    }
};

namespace TerminalDrivers {

inline constexpr double toolTimeoutSeconds = 3.0;

// Where the drivers find their tools and how long each call may take. Tests point `path` at
// stand-ins and `procRoot` at fixtures.
struct Tools {
    QString path;
    QString procRoot = QStringLiteral("/proc");
    double timeoutSeconds = toolTimeoutSeconds;
    std::shared_ptr<KonsoleFocus> konsole;
    std::shared_ptr<WindowFocus> windows;

    // The app's own PATH with the usual install places behind it.
    static Tools system();
};

// The executable `name` in `tools.path`, or nothing.
std::optional<QString> findTool(const QString& name, const Tools& tools);

// The tmux client that was switched: its terminal and the desktop application that shows it.
struct TmuxClient {
    QString tty;
    qint32 pid = 0;
    std::optional<QString> appID;
    bool windowRaised = false; // the terminal's window came to the front as well
};

// The socket of a `TMUX` value: the part before its first comma. A value without a comma is not
// one tmux wrote, so it gives nothing.
std::optional<QString> tmuxSocket(const QString& tmuxVariable);

// Switches the most recently active client to the pane's session and selects the pane.
std::optional<TmuxClient> focusTmux(const QString& pane, const QString& tmuxVariable,
                                    const std::optional<QString>& binary, const Tools& tools);

bool focusHerdr(const QString& pane, const ProcessContext& context, const Tools& tools);
bool focusCmux(const QString& surface, const std::optional<QString>& workspace, const ProcessContext& context,
               const Tools& tools);
bool focusKitty(const ProcessContext& context, const Tools& tools);
bool focusWezTerm(const ProcessContext& context, const Tools& tools);
// Types `text` at the prompt of the agent's kitty window or WezTerm pane as a paste (bracketed when the
// program there asked for it), without Enter. False when the context names no such window or the
// tool is missing or refused.
bool sendTextKitty(const QString& text, const ProcessContext& context, const Tools& tools);
bool sendTextWezTerm(const QString& text, const ProcessContext& context, const Tools& tools);
bool focusKonsole(const ProcessContext& context, const Tools& tools);
// Terminals without a tab interface (GNOME Terminal, xterm…): the window named by `WINDOWID`, else
// the window of the outermost application above the agent.
bool focusWindow(const ProcessContext& context, const Tools& tools);

// The editor CLI ("code", "cursor" or "windsurf") whose integrated terminal runs the agent, or
// nothing when the agent is not in an editor.
std::optional<QString> editorCLI(const ProcessContext& context, const std::optional<QString>& appID,
                                 const Tools& tools);
// `CLI -r FOLDER`: the editor raises the window that has the folder open.
bool openFolder(const QString& cli, const QString& folder, const Tools& tools);

} // namespace TerminalDrivers

} // namespace mirrowisp
