#include "jump/TerminalDrivers.h"

#include "base/ProcessRunner.h"
#include "integration/AgentEnvironment.h"
#include "jump/ProcessTree.h"

#include <QDir>
#include <QStandardPaths>
#include <utility>

namespace mirrowisp::TerminalDrivers {

namespace {

using Assignments = QList<std::pair<QString, QString>>;

// Runs a tool and tells whether it ended with status 0. Variables the tool must see go through
// env(1) as arguments, so no value ever passes a shell.
bool runTool(const QString& executable, const QStringList& arguments, const Tools& tools,
             const Assignments& assignments = {}) {
    ProcessRunner::RunResult result;
    if (assignments.isEmpty()) {
        result = ProcessRunner::run(executable, arguments, tools.timeoutSeconds);
    } else {
        QStringList envArguments;
        for (const auto& [name, value] : assignments) {
            envArguments.append(name + QLatin1Char('=') + value);
        }
        envArguments.append(executable);
        envArguments.append(arguments);
        result = ProcessRunner::run(QStringLiteral("/usr/bin/env"), envArguments, tools.timeoutSeconds);
    }
    return result.ok() && result.exitStatus == 0;
}

struct ToolOutput {
    bool ok = false;
    QString text;
};

ToolOutput runForOutput(const QString& executable, const QStringList& arguments, const Tools& tools) {
    const ProcessRunner::RunResult result = ProcessRunner::run(executable, arguments, tools.timeoutSeconds);
    return {result.ok() && result.exitStatus == 0, result.output};
}

std::optional<QString> present(const ProcessContext& context, const QString& name) {
    std::optional<QString> value = context.value(name);
    if (value && value->isEmpty()) {
        return std::nullopt;
    }
    return value;
}

struct ClientLine {
    qint64 activity = 0;
    qint32 pid = 0;
    QString tty;
};

QList<ClientLine> parseClients(const QString& text) {
    QList<ClientLine> clients;
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QStringList fields = line.simplified().split(QLatin1Char(' '));
        if (fields.size() != 3) {
            continue;
        }
        bool activityOK = false;
        bool pidOK = false;
        ClientLine client{fields[0].toLongLong(&activityOK), fields[1].toInt(&pidOK), fields[2]};
        if (activityOK && pidOK && client.tty.startsWith(QLatin1Char('/'))) {
            clients.append(client);
        }
    }
    return clients;
}

} // namespace

Tools Tools::system() {
    Tools tools;
    QStringList entries = qEnvironmentVariable("PATH").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    const QString home = QDir::homePath();
    // A desktop session's PATH often lacks the user's own install places.
    for (const QString& extra : {home + QStringLiteral("/.local/bin"), home + QStringLiteral("/.cargo/bin"),
                                 QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin"),
                                 QStringLiteral("/snap/bin"), QStringLiteral("/run/current-system/sw/bin")}) {
        if (!entries.contains(extra)) {
            entries.append(extra);
        }
    }
    tools.path = entries.join(QLatin1Char(':'));
    return tools;
}

std::optional<QString> findTool(const QString& name, const Tools& tools) {
    const QString found =
        QStandardPaths::findExecutable(name, tools.path.split(QLatin1Char(':'), Qt::SkipEmptyParts));
    if (found.isEmpty()) {
        return std::nullopt;
    }
    return found;
}

std::optional<QString> tmuxSocket(const QString& tmuxVariable) {
    const qsizetype comma = tmuxVariable.indexOf(QLatin1Char(','));
    if (comma <= 0) {
        return std::nullopt;
    }
    return tmuxVariable.left(comma);
}

std::optional<TmuxClient> focusTmux(const QString& pane, const QString& tmuxVariable,
                                    const std::optional<QString>& binary, const Tools& tools) {
    const std::optional<QString> socket = tmuxSocket(tmuxVariable);
    if (!socket) {
        return std::nullopt;
    }
    const std::optional<QString> tmux = binary && AgentEnvironment::isExecutableFile(*binary)
                                            ? binary
                                            : findTool(QStringLiteral("tmux"), tools);
    if (!tmux) {
        return std::nullopt;
    }
    const QStringList base{QStringLiteral("-S"), *socket};

    const ToolOutput session =
        runForOutput(*tmux,
                     base + QStringList{QStringLiteral("display-message"), QStringLiteral("-p"),
                                        QStringLiteral("-t"), pane, QStringLiteral("#{session_name}")},
                     tools);
    const QString sessionName = session.text.trimmed();
    if (!session.ok || sessionName.isEmpty()) {
        return std::nullopt;
    }

    const QStringList listClients =
        base + QStringList{QStringLiteral("list-clients"), QStringLiteral("-F"),
                           QStringLiteral("#{client_activity} #{client_pid} #{client_tty}")};
    ToolOutput listed =
        runForOutput(*tmux, listClients + QStringList{QStringLiteral("-t"), sessionName}, tools);
    QList<ClientLine> clients = listed.ok ? parseClients(listed.text) : QList<ClientLine>();
    if (clients.isEmpty()) {
        // Nobody shows the session: the client used last anywhere on the server is switched to it.
        listed = runForOutput(*tmux, listClients, tools);
        clients = listed.ok ? parseClients(listed.text) : QList<ClientLine>();
    }
    if (clients.isEmpty()) {
        return std::nullopt;
    }
    const ClientLine* best = &clients.first();
    for (const ClientLine& client : clients) {
        if (client.activity > best->activity) {
            best = &client;
        }
    }

    // One call, so the client never shows the session before the pane is chosen.
    const QStringList switchAndSelect = base + QStringList{QStringLiteral("switch-client"),
                                                           QStringLiteral("-c"),
                                                           best->tty,
                                                           QStringLiteral("-t"),
                                                           sessionName,
                                                           QStringLiteral(";"),
                                                           QStringLiteral("select-window"),
                                                           QStringLiteral("-t"),
                                                           pane,
                                                           QStringLiteral(";"),
                                                           QStringLiteral("select-pane"),
                                                           QStringLiteral("-t"),
                                                           pane};
    if (!runTool(*tmux, switchAndSelect, tools)) {
        return std::nullopt;
    }
    TmuxClient client{best->tty, best->pid, std::nullopt};
    if (const std::optional<ProcessTree::AppProcess> app =
            ProcessTree::outermostApp(best->pid, tools.procRoot)) {
        client.appID = app->desktopID;
    }
    return client;
}

bool focusHerdr(const QString& pane, const ProcessContext& context, const Tools& tools) {
    std::optional<QString> herdr = present(context, QStringLiteral("HERDR_BIN_PATH"));
    if (!herdr || !AgentEnvironment::isExecutableFile(*herdr)) {
        herdr = findTool(QStringLiteral("herdr"), tools);
    }
    if (!herdr) {
        return false;
    }
    Assignments assignments;
    if (const std::optional<QString> socket = present(context, QStringLiteral("HERDR_SOCKET_PATH"))) {
        assignments.append({QStringLiteral("HERDR_SOCKET_PATH"), *socket});
    }
    return runTool(*herdr, {QStringLiteral("agent"), QStringLiteral("focus"), pane}, tools, assignments);
}

bool focusCmux(const QString& surface, const std::optional<QString>& workspace, const ProcessContext& context,
               const Tools& tools) {
    const std::optional<QString> cmux = findTool(QStringLiteral("cmux"), tools);
    if (!cmux) {
        return false;
    }
    Assignments assignments;
    if (const std::optional<QString> socket = present(context, QStringLiteral("CMUX_SOCKET_PATH"))) {
        assignments.append({QStringLiteral("CMUX_SOCKET_PATH"), *socket});
    }
    if (runTool(*cmux, {QStringLiteral("focus-surface"), QStringLiteral("--surface"), surface}, tools,
                assignments)) {
        return true;
    }
    // The surface may be gone while its workspace lives on: showing the workspace is the next best.
    return workspace &&
           runTool(*cmux, {QStringLiteral("select-workspace"), QStringLiteral("--workspace"), *workspace},
                   tools, assignments);
}

namespace {

// `kitty @ [--to SOCKET] COMMAND --match id:WINDOW`, the arguments that follow, run: false when the
// context names no kitty window or kitty is missing.
bool runKitty(const QString& command, const QStringList& more, const ProcessContext& context,
              const Tools& tools) {
    const std::optional<QString> window = present(context, QStringLiteral("KITTY_WINDOW_ID"));
    const std::optional<QString> kitty = findTool(QStringLiteral("kitty"), tools);
    if (!window || !kitty) {
        return false;
    }
    QStringList arguments{QStringLiteral("@")};
    if (const std::optional<QString> listenOn = present(context, QStringLiteral("KITTY_LISTEN_ON"))) {
        arguments << QStringLiteral("--to") << *listenOn;
    }
    arguments << command << QStringLiteral("--match") << QStringLiteral("id:") + *window;
    return runTool(*kitty, arguments + more, tools);
}

// `wezterm cli COMMAND --pane-id PANE` and the arguments that follow, aimed at the instance the agent
// runs in.
bool runWezTerm(const QString& command, const QStringList& more, const ProcessContext& context,
                const Tools& tools) {
    const std::optional<QString> pane = present(context, QStringLiteral("WEZTERM_PANE"));
    const std::optional<QString> wezterm = findTool(QStringLiteral("wezterm"), tools);
    if (!pane || !wezterm) {
        return false;
    }
    Assignments assignments;
    // The socket names the very WezTerm instance the agent runs in, when several are open.
    if (const std::optional<QString> socket = present(context, QStringLiteral("WEZTERM_UNIX_SOCKET"))) {
        assignments.append({QStringLiteral("WEZTERM_UNIX_SOCKET"), *socket});
    }
    return runTool(*wezterm,
                   QStringList{QStringLiteral("cli"), command, QStringLiteral("--pane-id"), *pane} + more,
                   tools, assignments);
}

} // namespace

bool focusKitty(const ProcessContext& context, const Tools& tools) {
    return runKitty(QStringLiteral("focus-window"), {}, context, tools);
}

bool sendTextKitty(const QString& text, const ProcessContext& context, const Tools& tools) {
    // kitty reads backslashes in the text as escapes; a path's own must arrive as they are.
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    // Bracketed when the prompt asked for it, so a path with a line break is not taken as Enter; kitty
    // that knows no such option (older releases) takes the text as typed.
    return runKitty(QStringLiteral("send-text"),
                    {QStringLiteral("--bracketed-paste"), QStringLiteral("auto"), escaped}, context, tools) ||
           runKitty(QStringLiteral("send-text"), {escaped}, context, tools);
}

bool focusWezTerm(const ProcessContext& context, const Tools& tools) {
    return runWezTerm(QStringLiteral("activate-pane"), {}, context, tools);
}

bool sendTextWezTerm(const QString& text, const ProcessContext& context, const Tools& tools) {
    // Without --no-paste WezTerm sends a bracketed paste where the program asked for one.
    return runWezTerm(QStringLiteral("send-text"), {text}, context, tools);
}

bool focusKonsole(const ProcessContext& context, const Tools& tools) {
    const std::optional<QString> service = present(context, QStringLiteral("KONSOLE_DBUS_SERVICE"));
    const std::optional<QString> session = present(context, QStringLiteral("KONSOLE_DBUS_SESSION"));
    return service && session && tools.konsole && tools.konsole->focus(*service, *session);
}

bool focusWindow(const ProcessContext& context, const Tools& tools) {
    if (!tools.windows) {
        return false;
    }
    if (const std::optional<QString> window = present(context, QStringLiteral("WINDOWID"))) {
        bool ok = false;
        const quint32 id = window->toUInt(&ok);
        if (ok && id != 0 && tools.windows->activateWindow(id)) {
            return true;
        }
    }
    if (!context.agentPID) {
        return false;
    }
    const std::optional<ProcessTree::AppProcess> app =
        ProcessTree::outermostApp(*context.agentPID, tools.procRoot);
    return app && tools.windows->activateWindowOf(app->pid);
}

std::optional<QString> editorCLI(const ProcessContext& context, const std::optional<QString>& appID,
                                 const Tools& tools) {
    static const QStringList editors{QStringLiteral("code"), QStringLiteral("cursor"),
                                     QStringLiteral("windsurf")};
    QString name;
    if (appID && editors.contains(*appID)) {
        name = *appID;
    } else {
        const std::optional<QString> termProgram =
            context.termProgram ? context.termProgram : context.value(QStringLiteral("TERM_PROGRAM"));
        bool inEditor =
            termProgram && termProgram->compare(QLatin1String("vscode"), Qt::CaseInsensitive) == 0;
        QString hints;
        if (context.environment) {
            for (auto it = context.environment->constBegin(); it != context.environment->constEnd(); ++it) {
                if (it.key().startsWith(QLatin1String("VSCODE_"))) {
                    inEditor = true;
                    hints += it.value().toLower() + QLatin1Char('\n');
                }
            }
        }
        if (!inEditor) {
            return std::nullopt;
        }
        // Cursor and Windsurf are VS Code builds: their helper paths in VSCODE_* tell them apart.
        name = hints.contains(QLatin1String("windsurf")) ? QStringLiteral("windsurf")
               : hints.contains(QLatin1String("cursor")) ? QStringLiteral("cursor")
                                                         : QStringLiteral("code");
    }
    return findTool(name, tools);
}

bool openFolder(const QString& cli, const QString& folder, const Tools& tools) {
    return !folder.isEmpty() && runTool(cli, {QStringLiteral("-r"), folder}, tools);
}

} // namespace mirrowisp::TerminalDrivers
