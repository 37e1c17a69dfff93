#include "jump/ProcessTree.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>
#include <unistd.h>

namespace mirrowisp::ProcessTree {

namespace {

QByteArray readSmallFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return file.read(65536);
}

// systemd escapes "-" inside a unit name's parts as "\x2d".
QString unescapeUnitPart(QString part) {
    part.replace(QLatin1String("\\x2d"), QLatin1String("-"));
    return part;
}

std::optional<QString> desktopIDFromUnit(const QString& unit) {
    QString name;
    bool hasRandomSuffix = false;
    if (unit.endsWith(QLatin1String(".scope"))) {
        name = unit.chopped(6);
        hasRandomSuffix = true;
    } else if (unit.endsWith(QLatin1String(".service"))) {
        name = unit.chopped(8);
        const qsizetype at = name.indexOf(QLatin1Char('@'));
        if (at >= 0) {
            name.truncate(at);
        }
    } else if (unit.endsWith(QLatin1String(".slice"))) {
        name = unit.chopped(6);
    } else {
        return std::nullopt;
    }
    // app[-<launcher>]-<id>[-<random>]: raw dashes only separate parts, those inside are escaped.
    QStringList parts = name.split(QLatin1Char('-'));
    if (parts.size() < 2 || parts.first() != QLatin1String("app")) {
        return std::nullopt;
    }
    parts.removeFirst();
    if (hasRandomSuffix && parts.size() >= 2) {
        parts.removeLast();
    }
    if (parts.size() >= 2) {
        parts.removeFirst(); // the launcher, such as "gnome" or "kde"
    }
    QString id = unescapeUnitPart(parts.join(QLatin1Char('-')));
    // D-Bus activated applications carry the caller's bus name in front: "dbus-:1.2-org.gnome.Terminal".
    if (id.startsWith(QLatin1String("dbus-:"))) {
        const qsizetype dash = id.indexOf(QLatin1Char('-'), 6);
        id = dash >= 0 ? id.mid(dash + 1) : QString();
    }
    if (id.endsWith(QLatin1String(".desktop"))) {
        id.chop(8);
    }
    if (id.isEmpty()) {
        return std::nullopt;
    }
    return id;
}

// The link's own text: the kernel's "/path (deleted)" must not be resolved or made canonical.
QString linkText(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    char buffer[4096];
    const ssize_t n = ::readlink(encoded.constData(), buffer, sizeof buffer);
    if (n <= 0) {
        return {};
    }
    return QFile::decodeName(QByteArray(buffer, n));
}

} // namespace

QString defaultProcRoot() {
    return QStringLiteral("/proc");
}

std::optional<QString> desktopIDFromCgroup(const QString& cgroupText) {
    // The unified hierarchy's line ("0::/…") names the scope; v1 lines name it too, so any will do.
    for (const QString& line : cgroupText.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const qsizetype pathStart = line.indexOf(QLatin1String(":/"));
        if (pathStart < 0) {
            continue;
        }
        const QStringList components = line.mid(pathStart + 2).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        // The innermost application unit counts: a terminal's shells live in a scope inside its slice.
        for (auto it = components.crbegin(); it != components.crend(); ++it) {
            if (it->startsWith(QLatin1String("app-"))) {
                if (std::optional<QString> id = desktopIDFromUnit(*it)) {
                    return id;
                }
            }
        }
    }
    return std::nullopt;
}

std::optional<QString> desktopIDForExecutable(const QString& executablePath) {
    static const QHash<QString, QString> known = {
        {QStringLiteral("kitty"), QStringLiteral("kitty")},
        {QStringLiteral("wezterm-gui"), QStringLiteral("org.wezfurlong.wezterm")},
        {QStringLiteral("konsole"), QStringLiteral("org.kde.konsole")},
        {QStringLiteral("gnome-terminal-server"), QStringLiteral("org.gnome.Terminal")},
        {QStringLiteral("kgx"), QStringLiteral("org.gnome.Console")},
        {QStringLiteral("ghostty"), QStringLiteral("com.mitchellh.ghostty")},
        {QStringLiteral("alacritty"), QStringLiteral("Alacritty")},
        {QStringLiteral("foot"), QStringLiteral("foot")},
        {QStringLiteral("xterm"), QStringLiteral("xterm")},
        {QStringLiteral("urxvt"), QStringLiteral("rxvt-unicode")},
        {QStringLiteral("xfce4-terminal"), QStringLiteral("xfce4-terminal")},
        {QStringLiteral("tilix"), QStringLiteral("com.gexperts.Tilix")},
        {QStringLiteral("terminator"), QStringLiteral("terminator")},
        {QStringLiteral("code"), QStringLiteral("code")},
        {QStringLiteral("cursor"), QStringLiteral("cursor")},
        {QStringLiteral("windsurf"), QStringLiteral("windsurf")},
    };
    const auto it = known.constFind(QFileInfo(executablePath).fileName());
    if (it == known.constEnd()) {
        return std::nullopt;
    }
    return *it;
}

std::optional<ProcessInfo> read(qint32 pid, const QString& procRoot) {
    const QString directory = procRoot + QLatin1Char('/') + QString::number(pid);
    const QByteArray stat = readSmallFile(directory + QStringLiteral("/stat"));
    // The command name sits in parentheses and may hold blanks and parentheses itself.
    const qsizetype close = stat.lastIndexOf(')');
    if (close < 0) {
        return std::nullopt;
    }
    const QList<QByteArray> fields = stat.mid(close + 1).simplified().split(' ');
    // Counted from the pid: state is field 3, ppid field 4, tty_nr field 7.
    if (fields.size() < 5) {
        return std::nullopt;
    }
    bool parentOK = false;
    bool ttyOK = false;
    ProcessInfo info;
    info.pid = pid;
    info.parentPID = fields[1].toInt(&parentOK);
    info.ttyNumber = fields[4].toInt(&ttyOK);
    if (!parentOK || !ttyOK) {
        return std::nullopt;
    }
    info.executable = linkText(directory + QStringLiteral("/exe"));
    if (info.executable.endsWith(QLatin1String(" (deleted)"))) {
        info.executable.chop(10); // an upgraded package replaced the file under a running program
    }
    // The executable's name first: a terminal started from an editor's terminal shares the editor's
    // scope, yet it is the terminal.
    if (!info.executable.isEmpty()) {
        info.desktopID = desktopIDForExecutable(info.executable);
    }
    if (!info.desktopID) {
        info.desktopID =
            desktopIDFromCgroup(QString::fromUtf8(readSmallFile(directory + QStringLiteral("/cgroup"))));
    }
    return info;
}

QList<ProcessInfo> ancestors(qint32 pid, const QString& procRoot) {
    QList<ProcessInfo> chain;
    qint32 current = pid;
    for (int step = 0; step < maxSteps && current > 0; ++step) {
        std::optional<ProcessInfo> info = read(current, procRoot);
        if (!info) {
            break;
        }
        chain.append(*info);
        if (current == 1 || info->parentPID == current) {
            break;
        }
        current = info->parentPID;
    }
    return chain;
}

QList<AppProcess> appsAbove(qint32 pid, const QString& procRoot) {
    QList<AppProcess> apps;
    for (const ProcessInfo& info : ancestors(pid, procRoot)) {
        if (info.desktopID) {
            apps.append({info.pid, *info.desktopID});
        }
    }
    return apps;
}

std::optional<AppProcess> outermostApp(qint32 pid, const QString& procRoot) {
    const QList<AppProcess> apps = appsAbove(pid, procRoot);
    if (apps.isEmpty()) {
        return std::nullopt;
    }
    return apps.last();
}

} // namespace mirrowisp::ProcessTree
