#include "remote/RemoteShell.h"

#include <QProcess>
#include <QStringList>

namespace mirrowisp::RemoteShell {

namespace {

// ssh's own failures end with this status; the remote command's never do unless it chose to.
constexpr int sshFailed = 255;

QString lastLine(const QByteArray& text) {
    const QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return lines.isEmpty() ? QString() : lines.constLast().trimmed();
}

} // namespace

Result run(const RemoteHost& host, const QString& command, const QByteArray& input, int timeoutMs) {
    Result result;
    QProcess ssh;
    ssh.start(QStringLiteral("ssh"), Ssh::arguments(host) << command);
    if (!ssh.waitForStarted(timeoutMs)) {
        result.err = ssh.errorString().toUtf8();
        return result;
    }
    if (!input.isEmpty()) {
        ssh.write(input);
    }
    ssh.closeWriteChannel();
    if (!ssh.waitForFinished(timeoutMs)) {
        result.timedOut = true;
        ssh.kill();
        ssh.waitForFinished(5000);
    }
    result.out = ssh.readAllStandardOutput();
    result.err = ssh.readAllStandardError();
    if (!result.timedOut && ssh.exitStatus() == QProcess::NormalExit) {
        result.exitCode = ssh.exitCode();
    }
    return result;
}

std::optional<QString> connectionProblem(const Result& result, const RemoteHost& host) {
    const QString name = host.destination;
    if (result.timedOut) {
        return name + QStringLiteral(" does not answer (ssh timed out)");
    }
    if (!result.exitCode) {
        const QString why = lastLine(result.err);
        return QStringLiteral("ssh could not run") + (why.isEmpty() ? QString() : QStringLiteral(": ") + why);
    }
    if (*result.exitCode != sshFailed) {
        return std::nullopt;
    }
    const QString err = QString::fromUtf8(result.err);
    const QString why = lastLine(result.err);
    if (err.contains(QLatin1String("Permission denied"))) {
        // The methods the server offered, as ssh lists them: "(publickey,password)".
        const qsizetype open = err.indexOf(QLatin1Char('('), err.indexOf(QLatin1String("Permission denied")));
        const QString methods =
            open < 0 ? QString() : err.mid(open, err.indexOf(QLatin1Char(')'), open) - open);
        if (methods.contains(QLatin1String("password")) ||
            methods.contains(QLatin1String("keyboard-interactive"))) {
            return name + QStringLiteral(" asks for a password, which Mirrowisp never types: add your key "
                                         "to the host (ssh-copy-id) or to your ssh agent");
        }
        return name + QStringLiteral(" refused the key (") + why + QLatin1Char(')');
    }
    if (err.contains(QLatin1String("Host key verification failed")) ||
        err.contains(QLatin1String("REMOTE HOST IDENTIFICATION HAS CHANGED"))) {
        return QStringLiteral("the host key of ") + name +
               QStringLiteral(" is unknown or has changed: connect once with ssh to check it");
    }
    if (err.contains(QLatin1String("Connection refused")) || err.contains(QLatin1String("timed out")) ||
        err.contains(QLatin1String("No route to host")) || err.contains(QLatin1String("Could not resolve")) ||
        err.contains(QLatin1String("Network is unreachable")) ||
        err.contains(QLatin1String("Connection closed"))) {
        return name + QStringLiteral(" does not answer (") + why + QLatin1Char(')');
    }
    return QStringLiteral("ssh to ") + name + QStringLiteral(" failed") +
           (why.isEmpty() ? QString() : QStringLiteral(": ") + why);
}

} // namespace mirrowisp::RemoteShell
