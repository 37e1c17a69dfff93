#pragma once

#include "base/ProcessRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QStringList>
#include <QTemporaryDir>

namespace mirrowisp::test {

// Arguments without blanks of their own, written as one line.
inline QStringList words(const char16_t* line) {
    return QString::fromUtf16(line).split(u' ', Qt::SkipEmptyParts);
}

// A value that breaks anything passing it through a shell or a format string.
inline QString awkwardValue() {
    return QStringLiteral("a b \"q\" 'x' $HOME `id` \\n;");
}

// A folder of stand-in tools. Each records its arguments and its environment, NUL-separated, and
// ends with the status it was made with.
class StandIns {
public:
    QString path() const { return dir_.path(); }

    QString add(const QString& name, int exitStatus = 0) {
        const QString tool = dir_.filePath(name);
        const QString record = dir_.filePath(name + QStringLiteral(".args"));
        const QString environment = dir_.filePath(name + QStringLiteral(".env"));
        writeFile(tool,
                  QStringLiteral("#!/bin/sh\nprintf '%s\\0' \"$@\" > '%1'\nenv -0 > '%2'\nexit %3\n")
                      .arg(record, environment)
                      .arg(exitStatus)
                      .toUtf8(),
                  true);
        return tool;
    }

    bool ran(const QString& name) const {
        return QFile::exists(dir_.filePath(name + QStringLiteral(".args")));
    }

    QStringList arguments(const QString& name) const { return fields(name + QStringLiteral(".args")); }

    QMap<QString, QString> environment(const QString& name) const {
        QMap<QString, QString> values;
        for (const QString& entry : fields(name + QStringLiteral(".env"))) {
            const qsizetype equals = entry.indexOf(QLatin1Char('='));
            values.insert(entry.left(equals), entry.mid(equals + 1));
        }
        return values;
    }

private:
    QStringList fields(const QString& file) const {
        QFile record(dir_.filePath(file));
        if (!record.open(QIODevice::ReadOnly)) {
            return {};
        }
        QStringList values = QString::fromUtf8(record.readAll()).split(QChar(u'\0'));
        values.removeLast(); // after the last terminator
        return values;
    }

    QTemporaryDir dir_;
};

// A /proc-like folder: one entry per process with stat, an exe link and a cgroup file.
class FakeProc {
public:
    void add(qint32 pid, qint32 parent, const QString& executable, const QString& cgroup = {},
             const QString& command = QStringLiteral("proc")) {
        const QString entry = dir_.filePath(QString::number(pid));
        writeFile(entry + QStringLiteral("/stat"),
                  QStringLiteral("%1 (%2) S %3 %1 %1 34817 %1 4194560 0 0 0 0\n")
                      .arg(pid)
                      .arg(command)
                      .arg(parent)
                      .toUtf8());
        writeFile(entry + QStringLiteral("/cgroup"),
                  (QStringLiteral("0::") + cgroup + QLatin1Char('\n')).toUtf8());
        QFile::link(executable, entry + QStringLiteral("/exe"));
    }
    QString root() const { return dir_.path(); }

private:
    QTemporaryDir dir_;
};

// A private tmux server on a socket in a temporary folder, gone with the object.
class TmuxServer {
public:
    TmuxServer() : socket_(dir_.filePath(QStringLiteral("tmux.sock"))) {}
    ~TmuxServer() { tmux({QStringLiteral("kill-server")}); }
    TmuxServer(const TmuxServer&) = delete;
    TmuxServer& operator=(const TmuxServer&) = delete;

    const QString& socket() const { return socket_; }
    QString tmuxVariable() const { return socket_ + QStringLiteral(",4242,0"); }

    ProcessRunner::RunResult tmux(const QStringList& arguments) const {
        return ProcessRunner::run(
            QStringLiteral("tmux"),
            QStringList{QStringLiteral("-S"), socket_, QStringLiteral("-f"), QStringLiteral("/dev/null")} +
                arguments,
            10.0);
    }

    QString query(const QStringList& arguments) const { return tmux(arguments).output.trimmed(); }

private:
    QTemporaryDir dir_;
    QString socket_;
};

} // namespace mirrowisp::test
