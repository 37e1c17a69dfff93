#pragma once

#include "remote/RemoteHost.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp {

// What adding or removing a host did.
struct RemoteOutcome {
    std::optional<QString> error; // the host could not be set up (or cleaned up); nothing changed there
    RemoteHost host;              // with the remote home and system learned
    QStringList agents;           // raw kinds whose hooks were installed (or removed)
    QStringList problems;         // one sentence per agent that was left alone, naming its file
    bool copiedTool = false;

    // One line for `ctl remote list` and the settings window.
    QString message() const;
};

// Sets remote hosts up through the system's ssh and takes them down again. add: the host's system
// must match this build's, its ~/.mirrowisp must be the user's alone; the hook tool is copied to
// ~/.mirrowisp/bin/mirrowisp-bridge there (unless the same build is there already), the agents'
// settings are found through the remote login shell and get our hooks under the same rules as here.
// remove: our hooks come out (with backups), the tool goes, the host is forgotten.
//
// Blocking; run off the main thread (RemoteSetup does).
namespace RemoteSetupSteps {
RemoteOutcome add(RemoteHost host, const QString& toolPath);
RemoteOutcome remove(const RemoteHost& host);
// `uname -sm` as this machine answers it, which the remote must answer too.
QString localSystem();
} // namespace RemoteSetupSteps

} // namespace mirrowisp
