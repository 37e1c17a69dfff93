#include "remote/RemoteSetupSteps.h"

#include "base/AgentKind.h"
#include "base/RegularFile.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "remote/RemoteFiles.h"
#include "remote/RemoteShell.h"

#include <QCryptographicHash>
#include <sys/utsname.h>
#include <variant>

namespace mirrowisp {

namespace {

const QString sentinel = QStringLiteral("__MIRROWISP__");
constexpr qint64 toolLimit = 256 * 1024 * 1024;
constexpr int copyTimeoutMs = 300'000;

// Every command goes through sh, whatever the remote user's own shell makes of quotes and "$".
QString viaSh(const QString& script) {
    return QStringLiteral("sh -c ") + Ssh::quote(script);
}

QString toolOnRemote(const QString& home) {
    return home + QStringLiteral("/.mirrowisp/bin/mirrowisp-bridge");
}

QString lastLine(const QByteArray& text) {
    const QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return lines.isEmpty() ? QStringLiteral("no reason given") : lines.constLast().trimmed();
}

// What a remote command's failure means: ssh's own trouble, or the command's words.
QString failure(const RemoteShell::Result& result, const RemoteHost& host, const QString& what) {
    if (auto problem = RemoteShell::connectionProblem(result, host)) {
        return *problem;
    }
    return what + QStringLiteral(" on ") + host.destination + QStringLiteral(": ") + lastLine(result.err);
}

// The lines after the sentinel, or nothing when there is none.
std::optional<QStringList> linesAfterSentinel(const QByteArray& output) {
    const QStringList lines = QString::fromUtf8(output).split(QLatin1Char('\n'));
    const qsizetype at = lines.indexOf(sentinel);
    if (at < 0) {
        return std::nullopt;
    }
    return lines.mid(at + 1);
}

struct Inspection {
    QString system;
    QString home;
    QString uid;
    QString supportFolder; // "MODE OWNER" of ~/.mirrowisp, or "none"
    QString toolHash;      // of the tool there, or "none"
};

std::variant<Inspection, QString> inspect(const RemoteHost& host) {
    const QString script =
        QStringLiteral(
            "printf '\\n%1\\n'; uname -sm; printf '%s\\n' \"$HOME\"; id -u; m=\"$HOME/.mirrowisp\"; "
            "if [ -e \"$m\" ]; then stat -L -c '%a %u' -- \"$m\"; else echo none; fi; "
            "t=\"$m/bin/mirrowisp-bridge\"; "
            "if [ -f \"$t\" ]; then sha256sum < \"$t\" | cut -d' ' -f1; else echo none; fi")
            .arg(sentinel);
    const RemoteShell::Result result = RemoteShell::run(host, viaSh(script));
    if (auto problem = RemoteShell::connectionProblem(result, host)) {
        return *problem;
    }
    const auto lines = linesAfterSentinel(result.out);
    if (!result.ok() || !lines || lines->size() < 5) {
        return host.destination + QStringLiteral(" did not answer like a Linux shell (") +
               lastLine(result.err) + QLatin1Char(')');
    }
    return Inspection{lines->at(0).trimmed(), lines->at(1), lines->at(2).trimmed(), lines->at(3).trimmed(),
                      lines->at(4).trimmed()};
}

// Where the remote agents keep their settings, as its login shell says (interactive first, as here).
std::variant<Locations, QString> discover(const RemoteHost& host, const QString& home) {
    const QString probe = AgentEnvironment::probeScript();
    for (const QString& flags : {QStringLiteral("-ilc"), QStringLiteral("-lc")}) {
        const RemoteShell::Result result =
            RemoteShell::run(host,
                             viaSh(QStringLiteral("exec \"${SHELL:-/bin/sh}\" ") + flags + QLatin1Char(' ') +
                                   Ssh::quote(probe)),
                             {}, static_cast<int>(AgentEnvironment::probeTimeoutSeconds * 1000) + 10'000);
        if (auto problem = RemoteShell::connectionProblem(result, host)) {
            return *problem;
        }
        const QString output = QString::fromUtf8(result.out);
        if (!output.contains(sentinel + QLatin1Char('\n'))) {
            continue;
        }
        const QMap<QString, QString> parsed = AgentEnvironment::parseProbeOutput(output);
        QMap<QString, QString> variables;
        for (auto it = parsed.begin(); it != parsed.end(); ++it) {
            if (!it.key().startsWith(QLatin1String("cli."))) {
                variables.insert(it.key(), it.value());
            }
        }
        Locations locations = Locations::standard(home);
        const Locations resolved = AgentEnvironment::locations(variables, home);
        locations.dirs = resolved.dirs;
        // Tools are the remote's: only what its shell found counts, and that is checked there.
        for (AgentKind kind : AgentKinds::all) {
            const QString path =
                parsed.value(QStringLiteral("cli.") + AgentEnvironment::cli(kind, home).name);
            if (path.startsWith(QLatin1Char('/'))) {
                locations.clis.insert(kind, path);
            }
        }
        return locations;
    }
    // A shell that prints nothing usable leaves the standard places, as here.
    return Locations::standard(home);
}

struct AgentFiles {
    QList<HookInstaller::Integration> wirings;
    RemoteFiles::Reading reading;
};

std::variant<AgentFiles, QString> readAgentFiles(const RemoteHost& host, const Locations& locations) {
    AgentFiles files;
    QStringList paths;
    QStringList folders;
    for (AgentKind kind : AgentKinds::all) {
        files.wirings.append(HookInstaller::integration(kind, locations));
        paths.append(files.wirings.constLast().file);
        folders.append(locations.dir(kind));
    }
    const RemoteShell::Result result =
        RemoteShell::run(host, viaSh(RemoteFiles::readCommand(paths, folders)));
    files.reading = RemoteFiles::parseRead(result.out, paths.size(), folders.size());
    if (!result.ok() || !files.reading.complete) {
        return failure(result, host, QStringLiteral("cannot read the agents' settings"));
    }
    return files;
}

std::optional<QString> applyEdit(const RemoteHost& host, const HookInstaller::FileEdit& edit,
                                 const QString& path) {
    const QString backups = host.home + QStringLiteral("/.mirrowisp/backups");
    const RemoteShell::Result result = RemoteShell::run(
        host, viaSh(RemoteFiles::applyCommand(edit, path, backups, QDateTime::currentDateTimeUtc())),
        edit.bytes);
    if (result.ok()) {
        return std::nullopt;
    }
    return failure(result, host, QStringLiteral("could not change ") + path);
}

// Keeps the host's backups as they are kept here. Errors are of no consequence.
void pruneBackups(const RemoteHost& host) {
    const QString folder = Ssh::quote(host.home + QStringLiteral("/.mirrowisp/backups"));
    const RemoteShell::Result listed = RemoteShell::run(
        host, viaSh(QStringLiteral("cd %1 2>/dev/null || exit 0; for f in *; do [ -f \"$f\" ] && "
                                   "printf '%s %s\\n' \"$(stat -c %Y -- \"$f\")\" \"$f\"; done; true")
                        .arg(folder)));
    QList<HookInstaller::BackupEntry> entries;
    for (const QString& line : QString::fromUtf8(listed.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const qsizetype blank = line.indexOf(QLatin1Char(' '));
        bool numeric = false;
        const qint64 seconds = line.left(blank).toLongLong(&numeric);
        if (blank > 0 && numeric) {
            entries.append({line.mid(blank + 1), QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC)});
        }
    }
    const QStringList pruned = HookInstaller::backupsToPrune(entries);
    if (!listed.ok() || pruned.isEmpty()) {
        return;
    }
    QString script = QStringLiteral("cd %1 && rm -f --").arg(folder);
    for (const QString& name : pruned) {
        script += QLatin1Char(' ') + Ssh::quote(name);
    }
    RemoteShell::run(host, viaSh(script));
}

std::optional<QString> copyTool(const RemoteHost& host, const QByteArray& tool) {
    const QString script = QStringLiteral(
        "umask 077; m=\"$HOME/.mirrowisp\"; mkdir -p -- \"$m/bin\" && chmod 700 -- \"$m\" || exit 3; "
        "t=\"$m/bin/mirrowisp-bridge\"; n=\"$t.new.$$\"; "
        "cat > \"$n\" && chmod 755 -- \"$n\" && mv -f -- \"$n\" \"$t\" || { rm -f -- \"$n\"; exit 4; }");
    const RemoteShell::Result result = RemoteShell::run(host, viaSh(script), tool, copyTimeoutMs);
    if (result.ok()) {
        return std::nullopt;
    }
    if (result.exitCode == 3) {
        return QStringLiteral("the home folder ") + host.home + QStringLiteral(" on ") + host.destination +
               QStringLiteral(" cannot be written (") + lastLine(result.err) + QLatin1Char(')');
    }
    return failure(result, host, QStringLiteral("cannot copy the hook tool"));
}

// Why the remote ~/.mirrowisp must not hold a socket of ours, if it must not.
std::optional<QString> unsafeSupportFolder(const Inspection& found, const RemoteHost& host) {
    if (found.supportFolder == QLatin1String("none")) {
        return std::nullopt;
    }
    const QStringList fields = found.supportFolder.split(QLatin1Char(' '));
    bool numeric = false;
    const uint mode = fields.value(0).toUInt(&numeric, 8);
    const QString where = host.home + QStringLiteral("/.mirrowisp on ") + host.destination;
    if (!numeric || fields.size() != 2) {
        return QStringLiteral("cannot tell who owns ") + where;
    }
    if (fields.at(1) != found.uid) {
        return where + QStringLiteral(" belongs to another user; Mirrowisp will not use it");
    }
    if ((mode & 0002) != 0) {
        return where + QStringLiteral(" can be written by every user there; make it private (chmod 700) "
                                      "and add the host again");
    }
    return std::nullopt;
}

} // namespace

QString RemoteOutcome::message() const {
    if (error) {
        return *error;
    }
    QString text;
    if (agents.isEmpty()) {
        text = QStringLiteral("no agents found there yet");
    } else {
        text = QStringLiteral("hooks for ") + agents.join(QStringLiteral(", "));
    }
    if (!problems.isEmpty()) {
        text += QStringLiteral("; ") + problems.join(QStringLiteral("; "));
    }
    return text;
}

namespace RemoteSetupSteps {

QString localSystem() {
    utsname name{};
    if (::uname(&name) != 0) {
        return {};
    }
    return QString::fromUtf8(name.sysname) + QLatin1Char(' ') + QString::fromUtf8(name.machine);
}

RemoteOutcome add(RemoteHost host, const QString& toolPath) {
    RemoteOutcome outcome;
    outcome.host = host;
    const FileRead tool = readRegularFile(toolPath, toolLimit);
    if (!tool.ok()) {
        outcome.error = QStringLiteral("the hook tool ") + toolPath + QStringLiteral(" is missing (") +
                        tool.reason() + QStringLiteral("): install mirrowisp-bridge beside the app");
        return outcome;
    }
    const auto inspected = inspect(host);
    if (const QString* error = std::get_if<QString>(&inspected)) {
        outcome.error = *error;
        return outcome;
    }
    const Inspection& found = std::get<Inspection>(inspected);
    host.system = found.system;
    host.home = found.home;
    outcome.host = host;
    if (found.system != localSystem()) {
        outcome.error = host.destination + QStringLiteral(" runs ") + found.system +
                        QStringLiteral("; this build's hook tool runs on ") + localSystem() +
                        QStringLiteral(" only");
        return outcome;
    }
    if (!host.home.startsWith(QLatin1Char('/'))) {
        outcome.error = host.destination + QStringLiteral(" has no home folder for this user");
        return outcome;
    }
    if (auto unsafe = unsafeSupportFolder(found, host)) {
        outcome.error = *unsafe;
        return outcome;
    }
    const QString hash =
        QString::fromLatin1(QCryptographicHash::hash(tool.bytes, QCryptographicHash::Sha256).toHex());
    if (hash != found.toolHash) {
        if (auto error = copyTool(host, tool.bytes)) {
            outcome.error = *error;
            return outcome;
        }
        outcome.copiedTool = true;
    }

    const auto discovered = discover(host, host.home);
    if (const QString* error = std::get_if<QString>(&discovered)) {
        outcome.error = *error;
        return outcome;
    }
    const Locations& locations = std::get<Locations>(discovered);
    const auto read = readAgentFiles(host, locations);
    if (const QString* error = std::get_if<QString>(&read)) {
        outcome.error = *error;
        return outcome;
    }
    const AgentFiles& files = std::get<AgentFiles>(read);
    bool changed = false;
    for (qsizetype i = 0; i < files.wirings.size(); ++i) {
        const AgentKind kind = AgentKinds::all[static_cast<size_t>(i)];
        // Only agents that are there, as the local pass does: a tool the shell finds, or their folder.
        if (!locations.clis.contains(kind) && !files.reading.folders.at(i)) {
            continue;
        }
        const HookInstaller::FileEdit edit = HookInstaller::installEdit(
            kind, files.wirings.at(i), files.reading.files.at(i), toolOnRemote(host.home));
        if (edit.refused) {
            outcome.problems.append(edit.refused->message());
            continue;
        }
        if (edit.action != HookInstaller::FileEdit::Action::keep) {
            if (auto error = applyEdit(host, edit, files.wirings.at(i).file)) {
                outcome.problems.append(*error);
                continue;
            }
        }
        outcome.agents.append(AgentKinds::rawValue(kind));
        changed = changed || edit.action != HookInstaller::FileEdit::Action::keep;
    }
    if (changed) {
        pruneBackups(host);
    }
    return outcome;
}

RemoteOutcome remove(const RemoteHost& stored) {
    RemoteOutcome outcome;
    outcome.host = stored;
    const auto inspected = inspect(stored);
    if (const QString* error = std::get_if<QString>(&inspected)) {
        outcome.error = *error;
        return outcome;
    }
    RemoteHost host = stored;
    host.home = std::get<Inspection>(inspected).home;
    const auto discovered = discover(host, host.home);
    if (const QString* error = std::get_if<QString>(&discovered)) {
        outcome.error = *error;
        return outcome;
    }
    const auto read = readAgentFiles(host, std::get<Locations>(discovered));
    if (const QString* error = std::get_if<QString>(&read)) {
        outcome.error = *error;
        return outcome;
    }
    const AgentFiles& files = std::get<AgentFiles>(read);
    for (qsizetype i = 0; i < files.wirings.size(); ++i) {
        const AgentKind kind = AgentKinds::all[static_cast<size_t>(i)];
        const HookInstaller::FileEdit edit =
            HookInstaller::uninstallEdit(kind, files.wirings.at(i), files.reading.files.at(i));
        if (edit.refused) {
            outcome.problems.append(edit.refused->message());
            continue;
        }
        if (!edit.changes) {
            continue;
        }
        if (auto error = applyEdit(host, edit, files.wirings.at(i).file)) {
            outcome.problems.append(*error);
            continue;
        }
        outcome.agents.append(AgentKinds::rawValue(kind));
    }
    if (!outcome.agents.isEmpty()) {
        pruneBackups(host);
    }
    const RemoteShell::Result removed = RemoteShell::run(
        host, viaSh(QStringLiteral("m=\"$HOME/.mirrowisp\"; rm -f -- \"$m/bin/mirrowisp-bridge\" && "
                                   "{ rmdir -- \"$m/bin\" 2>/dev/null; true; }")));
    if (!removed.ok()) {
        outcome.problems.append(failure(removed, host, QStringLiteral("could not delete the hook tool")));
    }
    return outcome;
}

} // namespace RemoteSetupSteps

} // namespace mirrowisp
