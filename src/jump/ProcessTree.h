#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace mirrowisp::ProcessTree {

// What one /proc entry tells about a process.
struct ProcessInfo {
    qint32 pid = 0;
    qint32 parentPID = 0;
    qint32 ttyNumber = 0;             // the kernel's tty_nr: 0 without a controlling terminal
    QString executable;               // /proc/PID/exe, without a " (deleted)" suffix; empty if unreadable
    std::optional<QString> desktopID; // the desktop application the process belongs to, if any

    bool operator==(const ProcessInfo&) const = default;
};

// A desktop application found among the ancestors of a process.
struct AppProcess {
    qint32 pid = 0;
    QString desktopID;

    bool operator==(const AppProcess&) const = default;
};

inline constexpr int maxSteps = 128;

QString defaultProcRoot();

// The process's /proc entry, or nothing when it is gone or its stat cannot be parsed.
std::optional<ProcessInfo> read(qint32 pid, const QString& procRoot = defaultProcRoot());

// The process and its ancestors, innermost first. The walk ends at process 1, at a process that
// cannot be read (a parent that exited meanwhile) or after `maxSteps`, so a loop in a fixture or a
// racing reuse of process ids cannot keep it going.
QList<ProcessInfo> ancestors(qint32 pid, const QString& procRoot = defaultProcRoot());

// Every ancestor that is a desktop application, innermost first.
QList<AppProcess> appsAbove(qint32 pid, const QString& procRoot = defaultProcRoot());

// The outermost desktop application above a process: a terminal started inside an editor's
// terminal yields the editor, as does a helper process of the editor.
std::optional<AppProcess> outermostApp(qint32 pid, const QString& procRoot = defaultProcRoot());

// The desktop id in a systemd scope of a /proc/PID/cgroup text ("app-gnome-org.gnome.Terminal-42.scope"
// gives "org.gnome.Terminal"), or nothing when the process runs in no application scope.
std::optional<QString> desktopIDFromCgroup(const QString& cgroupText);

// The desktop id of a well-known terminal or editor executable, by its file name.
std::optional<QString> desktopIDForExecutable(const QString& executablePath);

} // namespace mirrowisp::ProcessTree
