#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp {

// A machine whose agents report to this app through an SSH connection.
struct RemoteHost {
    QString destination;     // "[USER@]HOST" as the user gave it; the key of the host
    std::optional<int> port; // -p, when given
    QString identity;        // -i, when given
    QString home;            // the remote $HOME, learned when the host is added
    QString system;          // `uname -sm` on the remote, e.g. "Linux x86_64"

    // The host part of `destination`: what the island shows beside a project.
    QString hostName() const;
    QJsonObject toJson() const;
    static std::optional<RemoteHost> fromJson(const QJsonObject& object);
    bool operator==(const RemoteHost&) const = default;
};

namespace Ssh {

// The arguments that start the system's `ssh` for `host`, before the remote command: never a
// prompt (BatchMode), a bounded connect, the user's own configuration otherwise. `options` are
// extra "-o" values or flags placed before the destination.
QStringList arguments(const RemoteHost& host, const QStringList& options = {});

// `value` as one word for a POSIX shell: single-quoted, with ' written as '\''. Every value that
// reaches a remote command line goes through this.
QString quote(const QString& value);

} // namespace Ssh

} // namespace mirrowisp
