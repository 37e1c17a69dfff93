#pragma once

#include <QStringList>

namespace mirrowisp {

// `mirrowisp ctl log [--since DURATION] [--agent KIND] [--json]`: the decision log, read from the
// support directory by the client itself, so it works whether or not the app runs. Exit status 0, or
// 64 for a wrong command line.
int runCtlLog(QStringList arguments);

} // namespace mirrowisp
