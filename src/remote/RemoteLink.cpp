#include "remote/RemoteLink.h"

#include "base/Log.h"

#include <QJsonValue>
#include <QUuid>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

// What the remote command prints once the forward is in place under its real name.
constexpr QLatin1StringView readyLine("mirrowisp-forwarding");

} // namespace

QString remoteLinkStateName(RemoteLinkState state) {
    switch (state) {
    case RemoteLinkState::connecting:
        return QStringLiteral("connecting");
    case RemoteLinkState::connected:
        return QStringLiteral("connected");
    case RemoteLinkState::reconnecting:
        return QStringLiteral("reconnecting");
    case RemoteLinkState::failed:
        return QStringLiteral("failed");
    }
    return {};
}

RemoteLink::RemoteLink(RemoteHost host, QString localSocket, BridgeServer::RequestHandler onRequest,
                       const Clock& clock, QObject* parent)
    : QObject(parent), host_(std::move(host)), localSocket_(std::move(localSocket)), clock_(clock),
      server_(std::make_unique<BridgeServer>(std::move(onRequest), BridgeTimeouts{},
                                             BridgeEndpoint{localSocket_, host_.destination})) {
    retryTimer_.setSingleShot(true);
    connect(&retryTimer_, &QTimer::timeout, this, [this] { tick(clock_.now()); });
}

RemoteLink::~RemoteLink() {
    if (ssh_) {
        ssh_->disconnect(this);
        ssh_->kill();
        ssh_->waitForFinished(1000);
    }
    // Closing the socket refuses whatever the forward still brings in: the remote tool fails open.
    server_->stop();
}

QStringList RemoteLink::sshArguments(const RemoteHost& host, const QString& localSocket,
                                     const QString& token) {
    const QString folder = host.home + QStringLiteral("/.mirrowisp");
    const QString bound = folder + QStringLiteral("/bridge.") + token + QStringLiteral(".sock");
    const QString socket = folder + QStringLiteral("/bridge.sock");
    // sshd refuses to bind over a socket file a dropped connection left behind, unless its own
    // configuration says otherwise, which few do. So the forward binds a fresh name, and the
    // remote command renames it over the real one: an atomic swap that also clears a stale file.
    // A folder that others may write to, or that is not the user's, could hand the agents'
    // requests to someone else: then nothing is put in place. The command then waits on its
    // input, which stays open while this app holds the pipe, and ends with it if the app dies.
    // It runs under sh whatever the user's login shell is.
    const QString script =
        QStringLiteral("d=") + Ssh::quote(folder) +
        QStringLiteral(
            "; if [ -n \"$(find \"$d\" -maxdepth 0 -perm -020 -o -perm -002 -o ! -user \"$(id -u)\")\" ]; "
            "then echo \"$d may be written by other users: not forwarding there\" >&2; exit 1; fi; mv -f ") +
        Ssh::quote(bound) + QLatin1Char(' ') + Ssh::quote(socket) + QStringLiteral(" && echo ") + readyLine +
        QStringLiteral(" && exec cat >/dev/null");
    const QString command = QStringLiteral("exec sh -c ") + Ssh::quote(script);
    return Ssh::arguments(host,
                          {
                              QStringLiteral("-T"),
                              QStringLiteral("-o"),
                              QStringLiteral("ExitOnForwardFailure=yes"),
                              QStringLiteral("-o"),
                              QStringLiteral("ServerAliveInterval=5"),
                              QStringLiteral("-o"),
                              QStringLiteral("ServerAliveCountMax=2"),
                              QStringLiteral("-o"),
                              QStringLiteral("StreamLocalBindMask=0177"),
                              // Its own connection, never one shared through the user's master,
                              // and our command, not one the user's configuration names.
                              QStringLiteral("-o"),
                              QStringLiteral("ControlPath=none"),
                              QStringLiteral("-o"),
                              QStringLiteral("RemoteCommand=none"),
                              QStringLiteral("-o"),
                              QStringLiteral("PermitLocalCommand=no"),
                              QStringLiteral("-R"),
                              bound + QLatin1Char(':') + localSocket,
                          })
           << command;
}

void RemoteLink::start() {
    if (host_.home.isEmpty() || !host_.home.startsWith(QLatin1Char('/'))) {
        giveUp(QStringLiteral("the remote home folder is not known: add the host again"));
        return;
    }
    if (host_.home.contains(QLatin1Char(':')) || localSocket_.contains(QLatin1Char(':'))) {
        giveUp(QStringLiteral("a socket path holds a ':', which ssh cannot forward"));
        return;
    }
    if (const auto error = server_->start()) {
        giveUp(QStringLiteral("could not open the local socket: ") + error->description);
        return;
    }
    launch();
}

void RemoteLink::tick(Timestamp now) {
    if (retryAt_ && now >= *retryAt_ && !ssh_) {
        launch();
    }
}

void RemoteLink::launch() {
    retryAt_.reset();
    retryTimer_.stop();
    output_.clear();
    lastMessage_.clear();
    ssh_ = std::make_unique<QProcess>();
    connect(ssh_.get(), &QProcess::readyReadStandardOutput, this, &RemoteLink::readOutput);
    connect(ssh_.get(), &QProcess::readyReadStandardError, this, &RemoteLink::readMessages);
    connect(ssh_.get(), &QProcess::finished, this, &RemoteLink::ended);
    connect(ssh_.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart && ssh_) {
            lastMessage_ = QStringLiteral("ssh could not be started: ") + ssh_->errorString();
            ended();
        }
    });
    const QByteArray token = QUuid::createUuid().toRfc4122().toHex().left(16);
    ssh_->start(QStringLiteral("ssh"), sshArguments(host_, localSocket_, QString::fromLatin1(token)));
}

void RemoteLink::readOutput() {
    output_ += ssh_->readAllStandardOutput();
    if (state_ != RemoteLinkState::connected &&
        output_.contains(QByteArray(readyLine.data(), readyLine.size()))) {
        everConnected_ = true;
        backoff_.connected(clock_.now());
        awaySince_.reset();
        setState(RemoteLinkState::connected);
    }
    output_ = output_.right(readyLine.size()); // nothing else is expected; keep only a split marker's start
}

void RemoteLink::readMessages() {
    // The last line ssh (or the remote command) wrote is why the connection ended.
    const QList<QByteArray> lines = ssh_->readAllStandardError().split('\n');
    for (const QByteArray& line : lines) {
        if (const QString text = QString::fromUtf8(line).trimmed(); !text.isEmpty()) {
            lastMessage_ = text;
        }
    }
}

void RemoteLink::ended() {
    if (!ssh_) {
        return;
    }
    if (ssh_->state() != QProcess::NotRunning) {
        ssh_->kill(); // a failed start or a crash: leave nothing behind
    }
    readMessages();
    const int status = ssh_->exitStatus() == QProcess::NormalExit ? ssh_->exitCode() : -1;
    QProcess* done = ssh_.release();
    done->disconnect(this);
    done->deleteLater(); // its signal is still being delivered
    const Timestamp now = clock_.now();
    if (!awaySince_) {
        awaySince_ = now;
    }
    QString reason = lastMessage_;
    if (reason.isEmpty()) {
        reason = status < 0 ? QStringLiteral("ssh was stopped")
                            : QStringLiteral("ssh ended with status %1").arg(status);
    }
    const double delay = backoff_.failed(now);
    retryAt_ = now + delay;
    retryTimer_.start(static_cast<int>(std::ceil(delay * 1000)));
    logLine(QStringLiteral("Mirrowisp: the connection to %1 ended (%2); next try in %3 s")
                .arg(host_.destination, reason)
                .arg(delay));
    setState(everConnected_ ? RemoteLinkState::reconnecting : RemoteLinkState::failed, reason);
}

void RemoteLink::giveUp(const QString& reason) {
    awaySince_ = clock_.now();
    setState(RemoteLinkState::failed, reason);
}

void RemoteLink::setState(RemoteLinkState state, const QString& reason) {
    if (state == state_ && reason == reason_) {
        return;
    }
    state_ = state;
    reason_ = reason;
    Q_EMIT stateChanged();
}

QJsonObject RemoteLink::toJson(Timestamp now) const {
    QJsonObject object{{QStringLiteral("state"), remoteLinkStateName(state_)}};
    if (!reason_.isEmpty() && state_ != RemoteLinkState::connected) {
        object.insert(QStringLiteral("reason"), reason_);
    }
    if (retryAt_) {
        object.insert(QStringLiteral("retryIn"), std::max(0.0, std::ceil(*retryAt_ - now)));
    }
    return object;
}

} // namespace mirrowisp
