#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <optional>

namespace mirrowisp::test {

// A real OpenSSH server of the test's own on a loopback port, logging in as the current user with
// a throw-away key, whose sessions see a temporary folder as HOME: the "remote host" of a test.
// The client side is the real `ssh` too, reached through a wrapper in `binDir()` that adds the
// test's client configuration, so nothing reads or writes the real ~/.ssh.
class SshServer {
public:
    SshServer();
    ~SshServer();
    SshServer(const SshServer&) = delete;
    SshServer& operator=(const SshServer&) = delete;

    // Starts (or restarts, on the same port) sshd and waits until it accepts; false with `error()`
    // set when it cannot.
    bool start();
    // Stops the server and every connection it holds.
    void stop();

    const QString& error() const { return error_; }
    int port() const { return port_; }
    // The name the client configuration knows the server by.
    static QString host() { return QStringLiteral("remote-test"); }
    // HOME of every session on the server.
    QString remoteHome() const { return dir_.filePath(QStringLiteral("home")); }
    // A folder holding `ssh`: put it first on PATH.
    QString binDir() const { return dir_.filePath(QStringLiteral("bin")); }
    QString clientKey() const { return dir_.filePath(QStringLiteral("client_key")); }
    QString clientConfig() const { return dir_.filePath(QStringLiteral("ssh_config")); }
    // PATH with `binDir()` first.
    QByteArray path() const;
    // Runs `command` on the server through the client; its standard output, or nullopt on failure.
    std::optional<QByteArray> run(const QString& command) const;

private:
    bool prepare();

    QTemporaryDir dir_;
    QProcess server_;
    int port_ = 0;
    bool prepared_ = false;
    QString error_;
};

} // namespace mirrowisp::test
