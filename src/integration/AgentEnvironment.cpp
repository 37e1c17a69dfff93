#include "integration/AgentEnvironment.h"

#include "base/MainQueue.h"
#include "base/ProcessRunner.h"
#include "base/SerialQueue.h"

#include <QDir>
#include <QFileInfo>
#include <pwd.h>
#include <thread>
#include <unistd.h>

namespace mirrowisp::AgentEnvironment {

namespace {

const QString sentinel = QStringLiteral("__MIRROWISP__\n");

QString toolName(AgentKind kind) {
    switch (kind) {
    case AgentKind::claude:
        return QStringLiteral("claude");
    case AgentKind::codex:
        return QStringLiteral("codex");
    case AgentKind::cursor:
        return QStringLiteral("cursor-agent");
    case AgentKind::opencode:
        return QStringLiteral("opencode");
    case AgentKind::amp:
        return QStringLiteral("amp");
    case AgentKind::devin:
        return QStringLiteral("devin");
    case AgentKind::gemini:
        return QStringLiteral("gemini");
    case AgentKind::copilot:
        return QStringLiteral("copilot");
    }
    return {};
}

// Where each agent's installer puts its tool, "~" standing for the home directory.
QStringList knownPlaces(AgentKind kind) {
    switch (kind) {
    case AgentKind::claude:
        return {QStringLiteral("~/.local/bin/claude"), QStringLiteral("~/.claude/local/claude"),
                QStringLiteral("/opt/homebrew/bin/claude"), QStringLiteral("/usr/local/bin/claude")};
    case AgentKind::codex:
        return {QStringLiteral("~/.local/bin/codex"), QStringLiteral("/opt/homebrew/bin/codex"),
                QStringLiteral("/usr/local/bin/codex")};
    case AgentKind::cursor:
        return {QStringLiteral("~/.local/bin/cursor-agent")};
    case AgentKind::opencode:
        return {QStringLiteral("~/.opencode/bin/opencode"), QStringLiteral("/opt/homebrew/bin/opencode"),
                QStringLiteral("/usr/local/bin/opencode"), QStringLiteral("~/.local/bin/opencode")};
    case AgentKind::amp:
        return {QStringLiteral("~/.amp/bin/amp"), QStringLiteral("~/.local/bin/amp"),
                QStringLiteral("/opt/homebrew/bin/amp"), QStringLiteral("/usr/local/bin/amp")};
    case AgentKind::devin:
        return {QStringLiteral("~/.local/bin/devin")};
    case AgentKind::gemini:
        return {QStringLiteral("~/.local/bin/gemini"), QStringLiteral("/opt/homebrew/bin/gemini"),
                QStringLiteral("/usr/local/bin/gemini")};
    case AgentKind::copilot:
        return {QStringLiteral("~/.local/bin/copilot"), QStringLiteral("/opt/homebrew/bin/copilot"),
                QStringLiteral("/usr/local/bin/copilot")};
    }
    return {};
}

// Where Linux package managers and npm/bun global installs put tools, tried after the agent's own
// places for every agent.
const QStringList linuxPlaces = {QStringLiteral("/usr/bin"), QStringLiteral("~/.npm-global/bin"),
                                 QStringLiteral("~/.bun/bin"), QStringLiteral("~/.local/bin"),
                                 QStringLiteral("/usr/local/bin")};

// The desktop entry ids of an agent's desktop application on Linux. Only apps that ship Linux
// packages with a known id are listed: Cursor's editor and Windsurf (Devin's). Claude, Codex, Amp,
// Gemini and Copilot have no Linux desktop app, and OpenCode's desktop build has no id we can rely
// on, so for those the test is skipped rather than guessed.
QStringList desktopEntries(AgentKind kind) {
    switch (kind) {
    case AgentKind::cursor:
        return {QStringLiteral("cursor.desktop")};
    case AgentKind::devin:
        return {QStringLiteral("windsurf.desktop")};
    default:
        return {};
    }
}

// Files an agent leaves behind once it has run here; any one is enough.
QStringList leftFiles(AgentKind kind, const Locations& at) {
    const QString dir = at.dir(kind);
    switch (kind) {
    case AgentKind::claude:
        return {dir + QStringLiteral("/projects"), at.home + QStringLiteral("/.claude.json")};
    case AgentKind::codex:
        return {dir + QStringLiteral("/config.toml"), dir + QStringLiteral("/auth.json"),
                dir + QStringLiteral("/sessions")};
    case AgentKind::cursor:
        return {dir + QStringLiteral("/cli-config.json")};
    case AgentKind::opencode:
        // Data lives under ~/.local/share whatever XDG_CONFIG_HOME says, as the agent itself does.
        return {at.home + QStringLiteral("/.local/share/opencode/opencode.db")};
    case AgentKind::amp:
        return {dir + QStringLiteral("/settings.json"), dir + QStringLiteral("/settings.jsonc")};
    case AgentKind::devin:
        return {at.home + QStringLiteral("/.local/share/devin")};
    case AgentKind::gemini:
        return {dir + QStringLiteral("/oauth_creds.json"), dir + QStringLiteral("/google_accounts.json"),
                dir + QStringLiteral("/installation_id"), dir + QStringLiteral("/tmp")};
    case AgentKind::copilot:
        return {dir + QStringLiteral("/config.json"), dir + QStringLiteral("/session-state"),
                dir + QStringLiteral("/logs")};
    }
    return {};
}

std::optional<QString> firstExecutable(const QStringList& paths) {
    for (const QString& path : paths) {
        if (isExecutableFile(path)) {
            return path;
        }
    }
    return std::nullopt;
}

QString directory(const QString& value, const QString& home) {
    return QDir::cleanPath(expandTilde(value, home));
}

QStringList applicationDirectories(const QString& home) {
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty()) {
        dataHome = home + QStringLiteral("/.local/share");
    }
    QString dataDirs = qEnvironmentVariable("XDG_DATA_DIRS");
    if (dataDirs.isEmpty()) {
        dataDirs = QStringLiteral("/usr/local/share:/usr/share");
    }
    QStringList result{dataHome + QStringLiteral("/applications")};
    for (const QString& dir : dataDirs.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        result.append(dir + QStringLiteral("/applications"));
    }
    return result;
}

} // namespace

CLI cli(AgentKind kind, const QString& home) {
    const QString name = toolName(kind);
    QStringList places = knownPlaces(kind);
    for (const QString& place : linuxPlaces) {
        places.append(place + QLatin1Char('/') + name);
    }
    QStringList fallbacks;
    for (const QString& place : places) {
        const QString path = expandTilde(place, home);
        if (!fallbacks.contains(path)) {
            fallbacks.append(path);
        }
    }
    return {name, fallbacks};
}

QString loginShell() {
    const QString shell = qEnvironmentVariable("SHELL");
    if (!shell.isEmpty()) {
        return shell;
    }
    // A session started by a display manager may lack SHELL; the account's shell is the next best.
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    if (::getpwuid_r(::getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr &&
        found->pw_shell != nullptr && found->pw_shell[0] != '\0') {
        return QFile::decodeName(found->pw_shell);
    }
    return QStringLiteral("/bin/sh");
}

QString probeScript() {
    QStringList names;
    for (AgentKind kind : AgentKinds::all) {
        names.append(toolName(kind));
    }
    return QStringLiteral(
               R"sh(printf '\n__MIRROWISP__\n'; for v in CLAUDE_CONFIG_DIR CODEX_HOME XDG_CONFIG_HOME GEMINI_CLI_HOME COPILOT_HOME PATH; do eval "printf '%s=%s\n' $v \"\$$v\""; done; for c in )sh") +
           names.join(QLatin1Char(' ')) +
           QStringLiteral(R"sh(; do printf 'cli.%s=%s\n' "$c" "$(command -v "$c")"; done)sh");
}

QMap<QString, QString> parseProbeOutput(const QString& text) {
    QMap<QString, QString> parsed;
    const qsizetype start = text.indexOf(sentinel);
    if (start < 0) {
        return parsed;
    }
    const QStringList lines = text.mid(start + sentinel.size()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0 || equals == line.size() - 1) {
            continue;
        }
        // Blanks and tabs only: a value is one line, and other characters may be part of a path.
        qsizetype from = equals + 1;
        qsizetype to = line.size();
        while (from < to && (line[from] == QLatin1Char(' ') || line[from] == QLatin1Char('\t'))) {
            ++from;
        }
        while (to > from && (line[to - 1] == QLatin1Char(' ') || line[to - 1] == QLatin1Char('\t'))) {
            --to;
        }
        if (from == to) {
            continue; // only blanks: as unset as an empty value
        }
        parsed.insert(line.left(equals), line.mid(from, to - from));
    }
    return parsed;
}

Locations locations(const QMap<QString, QString>& parsed, const QString& home) {
    std::optional<QString> xdgConfig;
    if (parsed.contains(QStringLiteral("XDG_CONFIG_HOME"))) {
        xdgConfig = directory(parsed.value(QStringLiteral("XDG_CONFIG_HOME")), home);
    }
    Locations result = Locations::standard(home, xdgConfig);
    result.path = parsed.value(QStringLiteral("PATH"));
    if (const auto value = parsed.constFind(QStringLiteral("CLAUDE_CONFIG_DIR")); value != parsed.cend()) {
        result.dirs[AgentKind::claude] = directory(*value, home);
    }
    if (const auto value = parsed.constFind(QStringLiteral("CODEX_HOME")); value != parsed.cend()) {
        result.dirs[AgentKind::codex] = directory(*value, home);
    }
    // The variable names the parent of the agent's directory.
    if (const auto value = parsed.constFind(QStringLiteral("GEMINI_CLI_HOME")); value != parsed.cend()) {
        result.dirs[AgentKind::gemini] = directory(*value + QStringLiteral("/.gemini"), home);
    }
    if (const auto value = parsed.constFind(QStringLiteral("COPILOT_HOME")); value != parsed.cend()) {
        result.dirs[AgentKind::copilot] = directory(*value, home);
    }

    for (AgentKind kind : AgentKinds::all) {
        const CLI tool = cli(kind, home);
        // An alias or a shell function prints as something that is no path and falls through.
        const QString fromShell = parsed.value(QStringLiteral("cli.") + tool.name);
        if (isExecutableFile(fromShell)) {
            result.clis[kind] = fromShell;
        } else if (const std::optional<QString> found = firstExecutable(tool.fallbacks)) {
            result.clis[kind] = *found;
        } else {
            result.clis.remove(kind);
        }
    }
    return result;
}

Locations probe(const QString& shell, const QString& home, double timeoutSeconds) {
    const QString script = probeScript();
    // Interactive first, because many people set PATH in .bashrc or .zshrc only; a start-up file
    // that waits for a terminal under -i costs one time-out, then the plain login shell answers.
    for (const QString& flags : {QStringLiteral("-ilc"), QStringLiteral("-lc")}) {
        const ProcessRunner::RunResult result = ProcessRunner::run(shell, {flags, script}, timeoutSeconds);
        if (result.ok() && result.output.contains(sentinel)) {
            return locations(parseProbeOutput(result.output), home);
        }
    }
    return locations({}, home);
}

void resolve(std::function<void()> then) {
    const Locations snapshot = current();
    // A thread of its own rather than a queue: it runs once per launch, and a detached thread never
    // holds up quitting while a slow shell is still being waited on.
    std::thread([home = snapshot.home, then = std::move(then)]() mutable {
        nameCurrentThread("mirrowisp.env");
        Locations resolved = probe(loginShell(), home);
        postToMain([resolved = std::move(resolved), then = std::move(then)] {
            setCurrent(resolved);
            if (then) {
                then();
            }
        });
    }).detach();
}

bool isInstalled(AgentKind kind) {
    const Locations at = current();
    if (at.clis.contains(kind)) {
        return true;
    }
    const QStringList entries = desktopEntries(kind);
    if (!entries.isEmpty()) {
        for (const QString& dir : applicationDirectories(at.home)) {
            for (const QString& entry : entries) {
                if (QFileInfo(dir + QLatin1Char('/') + entry).isFile()) {
                    return true;
                }
            }
        }
    }
    for (const QString& path : leftFiles(kind, at)) {
        if (QFileInfo::exists(path)) {
            return true;
        }
    }
    return false;
}

QString expandTilde(const QString& path, const QString& home) {
    if (!path.startsWith(QLatin1Char('~'))) {
        return path;
    }
    const qsizetype slash = path.indexOf(QLatin1Char('/'));
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    if (user.isEmpty()) {
        return home + rest;
    }
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    if (::getpwnam_r(QFile::encodeName(user).constData(), &entry, buffer, sizeof buffer, &found) != 0 ||
        found == nullptr || found->pw_dir == nullptr) {
        return path; // an unknown user: left as written, like the shell does
    }
    return QFile::decodeName(found->pw_dir) + rest;
}

bool isExecutableFile(const QString& path) {
    if (!path.startsWith(QLatin1Char('/'))) {
        return false;
    }
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

} // namespace mirrowisp::AgentEnvironment
