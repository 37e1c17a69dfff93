#pragma once

#include <QStringList>

namespace mirrowisp {

// `mirrowisp ctl …`: talks to the running app over the session bus. Exit status 0 on success,
// 1 for an unknown decision or session, 2 when the app is not running, 3 when it does not answer in
// time, 64 for a wrong command line.
int runCtl(const QStringList& arguments);

} // namespace mirrowisp
