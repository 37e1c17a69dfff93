#include "SshServer.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QMultiHash>
#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mirrowisp::test {

namespace {

bool runQuietly(const QString& program, const QStringList& args) {
    QProcess p;
    p.start(program, args);
    return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port nobody listens on now: the one the kernel picks for a socket bound to port 0.
int freeLoopbackPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    ::close(fd);
    return port;
}

bool accepts(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    const bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

QString userName() {
    QProcess p;
    p.start(QStringLiteral("id"), {QStringLiteral("-un")});
    p.waitForFinished(5000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

// Every process below `root`, read from /proc.
QList<qint64> descendants(qint64 root) {
    QMultiHash<qint64, qint64> children;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!numeric || !stat.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1) {
            children.insert(fields[1].toLongLong(), pid);
        }
    }
    QList<qint64> found;
    QList<qint64> pending{root};
    while (!pending.isEmpty()) {
        const QList<qint64> next = children.values(pending.takeLast());
        found += next;
        pending += next;
    }
    return found;
}

} // namespace

SshServer::SshServer() = default;

SshServer::~SshServer() {
    stop();
}

bool SshServer::prepare() {
    if (prepared_) {
        return true;
    }
    if (!dir_.isValid()) {
        error_ = QStringLiteral("no temporary folder");
        return false;
    }
    const QString d = dir_.path();
    QDir(d).mkpath(QStringLiteral("home"));
    QDir(d).mkpath(QStringLiteral("bin"));
    for (const char* key : {"host_key", "client_key"}) {
        if (!runQuietly(QStringLiteral("ssh-keygen"),
                        {QStringLiteral("-q"), QStringLiteral("-t"), QStringLiteral("ed25519"),
                         QStringLiteral("-N"), QString(), QStringLiteral("-f"),
                         dir_.filePath(QLatin1StringView(key))})) {
            error_ = QStringLiteral("ssh-keygen failed");
            return false;
        }
    }
    QFile::copy(dir_.filePath(QStringLiteral("client_key.pub")),
                dir_.filePath(QStringLiteral("authorized_keys")));
    port_ = freeLoopbackPort();
    // Privilege separation needs its empty folder when sshd runs as root.
    if (::geteuid() == 0) {
        QDir().mkpath(QStringLiteral("/run/sshd"));
    }
    const QString config =
        QStringLiteral("Port %1\nListenAddress 127.0.0.1\nHostKey %2/host_key\n"
                       "AuthorizedKeysFile %2/authorized_keys\nPidFile %2/sshd.pid\n"
                       "StrictModes no\nUsePAM no\nPasswordAuthentication no\n"
                       "KbdInteractiveAuthentication no\nPermitRootLogin prohibit-password\n"
                       "AllowStreamLocalForwarding yes\n"
                       "SetEnv HOME=%2/home\nClientAliveInterval 5\nLogLevel ERROR\n")
            .arg(port_)
            .arg(d);
    writeFile(dir_.filePath(QStringLiteral("sshd_config")), config.toUtf8());
    const QString client =
        QStringLiteral("Host %1\n  HostName 127.0.0.1\n  Port %2\n  User %3\n"
                       "  IdentityFile %4/client_key\n  IdentitiesOnly yes\n"
                       "  UserKnownHostsFile %4/known_hosts\n  StrictHostKeyChecking accept-new\n"
                       "  BatchMode yes\n  LogLevel ERROR\n")
            .arg(host())
            .arg(port_)
            .arg(userName(), d);
    writeFile(clientConfig(), client.toUtf8());
    writeFile(dir_.filePath(QStringLiteral("bin/ssh")),
              QStringLiteral("#!/bin/sh\nexec /usr/bin/ssh -F '%1' \"$@\"\n").arg(clientConfig()).toUtf8(),
              true);
    prepared_ = true;
    return true;
}

bool SshServer::start() {
    if (!prepare()) {
        return false;
    }
    stop();
    server_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server_.start(QStringLiteral("/usr/sbin/sshd"),
                  {QStringLiteral("-D"), QStringLiteral("-e"), QStringLiteral("-f"),
                   dir_.filePath(QStringLiteral("sshd_config"))});
    if (!server_.waitForStarted(5000)) {
        error_ = QStringLiteral("sshd did not start: ") + server_.errorString();
        return false;
    }
    const bool listening = waitUntil([this] { return accepts(port_); }, 10000);
    if (!listening) {
        error_ = QStringLiteral("sshd is not listening on port %1").arg(port_);
        return false;
    }
    return true;
}

void SshServer::stop() {
    if (server_.state() == QProcess::NotRunning) {
        return;
    }
    // sshd's per-connection children outlive the listener; end them too so connections really drop.
    const QList<qint64> children = descendants(server_.processId());
    server_.terminate();
    for (const qint64 pid : children) {
        ::kill(static_cast<pid_t>(pid), SIGTERM);
    }
    if (!server_.waitForFinished(5000)) {
        server_.kill();
        server_.waitForFinished(5000);
    }
}

QByteArray SshServer::path() const {
    return binDir().toUtf8() + ':' + qgetenv("PATH");
}

std::optional<QByteArray> SshServer::run(const QString& command) const {
    QProcess p;
    p.start(dir_.filePath(QStringLiteral("bin/ssh")), {host(), command});
    if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        return std::nullopt;
    }
    return p.readAllStandardOutput();
}

} // namespace mirrowisp::test
