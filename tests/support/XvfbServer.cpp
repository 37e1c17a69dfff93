#include "support/XvfbServer.h"

#include <QDeadlineTimer>
#include <QThread>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <xcb/xcb.h>

namespace mirrowisp::test {

namespace {

bool answers(const QString& display) {
    xcb_connection_t* connection = xcb_connect(qPrintable(display), nullptr);
    const bool ok = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return ok;
}

// Whether a client holds the selection that a running manager owns (WM_S0, _NET_WM_CM_S0).
bool selectionOwned(const QString& display, const char* name) {
    xcb_connection_t* connection = xcb_connect(qPrintable(display), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return false;
    }
    bool owned = false;
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(strlen(name)), name), nullptr);
    if (atom != nullptr) {
        xcb_get_selection_owner_reply_t* owner = xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, atom->atom), nullptr);
        owned = owner != nullptr && owner->owner != XCB_WINDOW_NONE;
        free(owner);
        free(atom);
    }
    xcb_disconnect(connection);
    return owned;
}

bool waitFor(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QThread::msleep(20);
    }
    return true;
}

void stop(std::unique_ptr<QProcess>& process) {
    if (process) {
        process->kill();
        process->waitForFinished(3000);
        process.reset();
    }
}

} // namespace

XvfbServer::~XvfbServer() {
    stop(compositor_);
    stop(windowManager_);
    stop(server_);
}

bool XvfbServer::start(bool windowManager, bool compositor, QSize size) {
    server_ = std::make_unique<QProcess>();
    // Xvfb picks a free display and writes its number: parallel test programs never share a server.
    // -noreset keeps it alive when its last client leaves between two tests.
    server_->start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-noreset"),
                    QStringLiteral("-screen"), QStringLiteral("0"),
                    QStringLiteral("%1x%2x24").arg(size.width()).arg(size.height())});
    if (!server_->waitForReadyRead(10000)) {
        error_ = QStringLiteral("Xvfb did not start");
        return false;
    }
    display_ = QLatin1Char(':') + QString::fromLatin1(server_->readLine()).trimmed();
    if (!waitFor([&] { return answers(display_); }, 10000)) {
        error_ = QStringLiteral("Xvfb does not answer on ") + display_;
        return false;
    }
    if (windowManager) {
        if (!startHelper(windowManager_, QStringLiteral("openbox"), {}) ||
            !waitFor([&] { return selectionOwned(display_, "WM_S0"); }, 10000)) {
            error_ = QStringLiteral("openbox did not take the screen");
            return false;
        }
    }
    if (compositor) {
        if (!startHelper(compositor_, QStringLiteral("xcompmgr"), {}) ||
            !waitFor([&] { return selectionOwned(display_, "_NET_WM_CM_S0"); }, 10000)) {
            error_ = QStringLiteral("xcompmgr did not start compositing");
            return false;
        }
    }
    return true;
}

bool XvfbServer::startHelper(std::unique_ptr<QProcess>& process, const QString& program,
                             const QStringList& args) {
    process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment());
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(program, args);
    return process->waitForStarted(5000);
}

QProcessEnvironment XvfbServer::environment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), display_);
    return env;
}

} // namespace mirrowisp::test
