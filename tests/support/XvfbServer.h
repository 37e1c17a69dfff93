#pragma once

#include <QProcess>
#include <QSize>
#include <QString>
#include <memory>

namespace mirrowisp::test {

// A private X server for one test program: Xvfb on a display of its own choosing, optionally with
// a window manager (openbox) and a compositing manager (xcompmgr), stopped on destruction.
class XvfbServer {
public:
    XvfbServer() = default;
    ~XvfbServer();
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    // Starts the server and waits until it answers; false with `error()` set when it cannot.
    bool start(bool windowManager, bool compositor, QSize size = {1920, 1080});
    // ":N", empty until started.
    const QString& display() const { return display_; }
    const QString& error() const { return error_; }
    // The system environment with DISPLAY pointing here.
    QProcessEnvironment environment() const;

private:
    bool startHelper(std::unique_ptr<QProcess>& process, const QString& program, const QStringList& args);

    std::unique_ptr<QProcess> server_;
    std::unique_ptr<QProcess> windowManager_;
    std::unique_ptr<QProcess> compositor_;
    QString display_;
    QString error_;
};

} // namespace mirrowisp::test
