#include "jump/TerminalJumper.h"

#include "agents/AgentSession.h"
#include "base/MainQueue.h"
#include "base/SerialQueue.h"
#include "jump/ProcessTree.h"

#include <QHash>
#include <utility>

namespace mirrowisp::TerminalJumper {

namespace {

// One queue for all jumps: a second click waits for the first instead of racing it for focus.
SerialQueue& jumpQueue() {
    static SerialQueue queue("mirrowisp.jump");
    return queue;
}

std::optional<QString> present(const ProcessContext& context, const QString& name) {
    std::optional<QString> value = context.value(name);
    if (value && value->isEmpty()) {
        return std::nullopt;
    }
    return value;
}

QString outcomeOfActivation(const std::optional<QString>& appID, const Target& target,
                            const Activate& activate) {
    return activate && activate(appID, target) ? QStringLiteral("activated") : QStringLiteral("none");
}

} // namespace

Activate windowActivation(std::shared_ptr<WindowFocus> windows) {
    return [windows = std::move(windows)](const std::optional<QString>& appID, const Target&) {
        return windows && appID && !appID->isEmpty() && windows->activateApplication(*appID);
    };
}

std::optional<QString> appID(const ProcessContext& context) {
    if (context.terminalBundleID && !context.terminalBundleID->isEmpty()) {
        return context.terminalBundleID;
    }
    if (!context.termProgram) {
        return std::nullopt;
    }
    static const QHash<QString, QString> table = {
        {QStringLiteral("vscode"), QStringLiteral("code")},
        {QStringLiteral("ghostty"), QStringLiteral("com.mitchellh.ghostty")},
        {QStringLiteral("wezterm"), QStringLiteral("org.wezfurlong.wezterm")},
        {QStringLiteral("kitty"), QStringLiteral("kitty")},
        {QStringLiteral("konsole"), QStringLiteral("org.kde.konsole")},
        {QStringLiteral("gnome-terminal"), QStringLiteral("org.gnome.Terminal")},
        {QStringLiteral("warpterminal"), QStringLiteral("dev.warp.Warp")},
    };
    const auto it = table.constFind(context.termProgram->toLower());
    if (it == table.constEnd()) {
        return std::nullopt;
    }
    return *it;
}

Target target(const AgentSession& session) {
    return {session.agent(),   session.sessionID(),      session.cwd(),
            session.context(), appID(session.context()), session.host()};
}

std::optional<Focus> focusExactly(const Target& target, const TerminalDrivers::Tools& tools) {
    using namespace TerminalDrivers;
    const ProcessContext& context = target.context;
    if (!target.host.isEmpty()) {
        return std::nullopt; // its process ids, ttys and panes are the remote host's
    }

    if (const std::optional<QString> surface = present(context, QStringLiteral("CMUX_SURFACE_ID"))) {
        if (focusCmux(*surface, present(context, QStringLiteral("CMUX_WORKSPACE_ID")), context, tools)) {
            return Focus{QStringLiteral("cmux"), std::nullopt};
        }
    }
    if (const std::optional<QString> pane = present(context, QStringLiteral("HERDR_PANE_ID"))) {
        if (focusHerdr(*pane, context, tools)) {
            // herdr picks the pane inside its own window; the terminal around it still has to come up.
            return Focus{QStringLiteral("herdr"), target.appID};
        }
    }
    const std::optional<QString> pane = context.tmuxPane && !context.tmuxPane->isEmpty()
                                            ? context.tmuxPane
                                            : present(context, QStringLiteral("TMUX_PANE"));
    const std::optional<QString> tmux = present(context, QStringLiteral("TMUX"));
    if (pane && tmux) {
        if (const std::optional<TmuxClient> client = focusTmux(*pane, *tmux, context.tmuxBinary, tools)) {
            // The pane is selected whatever happens to the window around the client.
            return Focus{QStringLiteral("tmux"), client->windowRaised ? std::nullopt : client->appID};
        }
    }
    if (focusKitty(context, tools)) {
        return Focus{QStringLiteral("kitty"), std::nullopt};
    }
    if (focusWezTerm(context, tools)) {
        return Focus{QStringLiteral("wezterm"), std::nullopt};
    }
    if (focusKonsole(context, tools)) {
        return Focus{QStringLiteral("konsole"), std::nullopt};
    }
    std::optional<QString> app = target.appID;
    if (!app && context.agentPID) {
        if (const std::optional<ProcessTree::AppProcess> outer =
                ProcessTree::outermostApp(*context.agentPID, tools.procRoot)) {
            app = outer->desktopID;
        }
    }
    const std::optional<QString> editor = editorCLI(context, app, tools);
    // An editor's window holds many folders: raising it by process would often pick the wrong one.
    if (!editor && focusWindow(context, tools)) {
        return Focus{QStringLiteral("ewmh"), std::nullopt};
    }
    if (editor && openFolder(*editor, target.cwd, tools)) {
        return Focus{QStringLiteral("editor"), std::nullopt};
    }
    return std::nullopt;
}

QString jumpAndWait(const Target& target, const TerminalDrivers::Tools& tools, const Activate& activate) {
    if (const std::optional<Focus> focus = focusExactly(target, tools)) {
        if (focus->activateAppID && activate) {
            activate(focus->activateAppID, target);
        }
        return focus->driver;
    }
    return outcomeOfActivation(target.appID, target, activate);
}

void jump(const AgentSession& session, Activate activate, Done done, TerminalDrivers::Tools tools) {
    Target snapshot = target(session);
    jumpQueue().async([snapshot = std::move(snapshot), tools = std::move(tools),
                       activate = std::move(activate), done = std::move(done)]() mutable {
        std::optional<Focus> focus = focusExactly(snapshot, tools);
        postToMain([snapshot = std::move(snapshot), focus = std::move(focus), activate = std::move(activate),
                    done = std::move(done)] {
            QString outcome;
            if (focus) {
                if (focus->activateAppID && activate) {
                    activate(focus->activateAppID, snapshot);
                }
                outcome = focus->driver;
            } else {
                outcome = outcomeOfActivation(snapshot.appID, snapshot, activate);
            }
            if (done) {
                done(outcome);
            }
        });
    });
}

} // namespace mirrowisp::TerminalJumper
