#include "remote/RemoteLink.h"

#include "base/Log.h"

#include <QJsonValue>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

// What `ssh -v` says that is not news for the user: the debug lines, its banner and its
// end-of-session statistics. The last other line is the reason a connection ended.
bool isChatter(QStringView line) {
    static const QLatin1StringView prefixes[] = {
        QLatin1StringView("debug"),
        QLatin1StringView("OpenSSH_"),
        QLatin1StringView("Authenticated to"),
        QLatin1StringView("Transferred:"),
        QLatin1StringView("Bytes per second"),
        QLatin1StringView("Warning: Permanently added"),
    };
    return line.isEmpty() || std::any_of(std::begin(prefixes), std::end(prefixes),
                                         [&](QLatin1StringView prefix) { return line.startsWith(prefix); });
}

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

QStringList RemoteLink::sshArguments(const RemoteHost& host, const QString& localSocket) {
    const QString remoteSocket = host.home + QStringLiteral("/.mirrowisp/bridge.sock");
    return Ssh::arguments(host, {
                                    // -v only for the line that says the forward is in place.
                                    QStringLiteral("-v"),
                                    QStringLiteral("-N"),
                                    QStringLiteral("-n"),
                                    QStringLiteral("-o"),
                                    QStringLiteral("ExitOnForwardFailure=yes"),
                                    QStringLiteral("-o"),
                                    QStringLiteral("ServerAliveInterval=5"),
                                    QStringLiteral("-o"),
                                    QStringLiteral("ServerAliveCountMax=2"),
                                    QStringLiteral("-o"),
                                    QStringLiteral("StreamLocalBindUnlink=yes"),
                                    QStringLiteral("-o"),
                                    QStringLiteral("StreamLocalBindMask=0177"),
                                    // Its own connection, never one shared through the user's master.
                                    QStringLiteral("-o"),
                                    QStringLiteral("ControlPath=none"),
                                    QStringLiteral("-R"),
                                    remoteSocket + QLatin1Char(':') + localSocket,
                                });
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
    partialLine_.clear();
    lastMessage_.clear();
    connectedThisRun_ = false;
    ssh_ = std::make_unique<QProcess>();
    ssh_->setProcessChannelMode(QProcess::SeparateChannels);
    ssh_->setStandardOutputFile(QProcess::nullDevice());
    connect(ssh_.get(), &QProcess::readyReadStandardError, this, &RemoteLink::readMessages);
    connect(ssh_.get(), &QProcess::finished, this, &RemoteLink::ended);
    connect(ssh_.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart && ssh_) {
            lastMessage_ = QStringLiteral("ssh could not be started: ") + ssh_->errorString();
            ended();
        }
    });
    ssh_->start(QStringLiteral("ssh"), sshArguments(host_, localSocket_));
}

void RemoteLink::readMessages() {
    partialLine_ += ssh_->readAllStandardError();
    qsizetype newline = 0;
    while ((newline = partialLine_.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(partialLine_.left(newline)).trimmed();
        partialLine_.remove(0, newline + 1);
        if (line.startsWith(QLatin1StringView("debug")) &&
            line.contains(QLatin1StringView("remote forward success"))) {
            connectedThisRun_ = true;
            everConnected_ = true;
            backoff_.connected(clock_.now());
            awaySince_.reset();
            setState(RemoteLinkState::connected);
        } else if (!isChatter(line)) {
            lastMessage_ = line;
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
