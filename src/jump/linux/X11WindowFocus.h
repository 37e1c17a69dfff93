#pragma once

#include "jump/TerminalDrivers.h"

#include <QString>

namespace mirrowisp {

// Raises a terminal's window on X11 the way a pager does: an EWMH `_NET_ACTIVE_WINDOW` request
// (source 2) to the window manager. Each call opens its own short connection, so it is safe on the
// jump queue. Without a display (or on a bare Wayland session) every call answers false.
class X11WindowFocus final : public WindowFocus {
public:
    // `display` as in DISPLAY; empty means the environment's.
    explicit X11WindowFocus(QString display = {});
    bool activateWindow(quint32 windowID) override;
    bool activateWindowOf(qint32 pid) override;
    bool activateApplication(const QString& appID) override;

    // Whether a window class ("gnome-terminal-server", "Gnome-terminal") names the application with
    // this desktop id ("org.gnome.Terminal"): ids are reverse-domain, classes are not.
    static bool classMatches(const QString& windowClass, const QString& appID);

private:
    QString display_;
};

} // namespace mirrowisp
