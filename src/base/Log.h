#pragma once

#include <QString>

namespace mirrowisp {

// One diagnostic line through Qt's logging, so journald keeps it beside the desktop's other logs.
// Lines start with "Mirrowisp"; a message that lacks the prefix gets "Mirrowisp: " in front.
void logLine(const QString& message);

} // namespace mirrowisp
