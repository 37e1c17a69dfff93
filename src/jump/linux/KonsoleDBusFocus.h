#pragma once

#include "jump/TerminalDrivers.h"

#include <QString>

namespace mirrowisp {

// Shows a Konsole session's tab through Konsole's own D-Bus interface: the window whose session
// list holds the session is told to make it current. Raising the window itself is the window
// system's business (the next driver's).
class KonsoleDBusFocus final : public KonsoleFocus {
public:
    // `connectionName` names an open QDBusConnection; the user's session bus by default.
    explicit KonsoleDBusFocus(QString connectionName = {});
    bool focus(const QString& service, const QString& session) override;

private:
    QString connectionName_;
};

} // namespace mirrowisp
